// An open note: the items of one document in memory, changed freely, stored by Save.
//
// Values lie in blocks of the engine's heap, so a BLOCKID into them is an item value with no further copy. An
// item is named outside by {note handle, serial}: the serial stays its own while others come and go.
// (1) items_ and canonical_ run in parallel, in document order.
// (2) Serials rise along items_ until 65535 were given out.
// (3) Blocks are addressed by handle at every use: one that a caller freed gives a status, not a crash.
// (4) A failed Save leaves the note as it was.
// (5) Hidden items (not asked for at the open) are found by nobody and stored again.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/handle_table.h"
#include "base/memory.h"
#include "note/database.h"

namespace brynd {

// Open words.
inline constexpr uint16_t kOpenSummary = 0x1;    // summary items only
inline constexpr uint16_t kOpenNoObjects = 0x8;  // objects are loaded when asked for in any case
// Update words.
inline constexpr uint16_t kUpdateForce = 0x1;     // store although the note was changed meanwhile
inline constexpr uint16_t kUpdateNoCommit = 0x4;  // lazy
inline constexpr uint16_t kUpdateFirst = 0x100;   // a hint, no more
// Item flags.
inline constexpr uint16_t kItemSign = 0x1, kItemSeal = 0x2, kItemSummary = 0x4, kItemWriters = 0x20,
                          kItemNames = 0x40, kItemPlaceholder = 0x100, kItemProtected = 0x200,
                          kItemReaders = 0x400;
// Summary items hold at most 15 KiB.
inline constexpr uint32_t kSummaryValueBytesMax = 15 * 1024;

class Note {
 public:
  static constexpr uint32_t kNone = 0xffffffff;
  class Key {
    friend class Note;
    Key() = default;
  };
  explicit Note(Key) noexcept { Reset(); }  // notes come from Create, Open, FromImage and CopyOf

  // One item as it lies in memory.
  struct Item {
    NameToken name = kNoName;  // the spelling
    uint32_t length = 0;       // type word included
    uint32_t offset = 0;       // in the block
    uint32_t external = 0;     // number of the stored external value; 0: none yet
    uint16_t flags = 0;
    uint16_t type = 0;
    uint16_t serial = 0;
    uint16_t block = 0;  // index into blocks_; kNotLoaded while the value is only in the store
  };

  // A new, empty note; a copy of a stored one (fails with kNoNote); a copy of an open one, everything loaded.
  static std::unique_ptr<Note> Create(std::shared_ptr<Database> database);
  static std::unique_ptr<Note> Open(std::shared_ptr<Database> database, uint32_t note_id, uint16_t open_word);
  static std::unique_ptr<Note> FromImage(std::shared_ptr<Database> database, const ImageView& view,
                                         uint16_t open_word = 0);
  static std::unique_ptr<Note> CopyOf(Note& source);
  // Gives a note back for the next one; its blocks are freed.
  static void Recycle(std::unique_ptr<Note> note) noexcept;

  ~Note();
  Note(const Note&) = delete;
  Note& operator=(const Note&) = delete;

  Database& Owner() const noexcept { return *database_; }
  const std::shared_ptr<Database>& OwnerPointer() const noexcept { return database_; }
  EngNote Handle() const noexcept { return handle_; }
  void SetHandle(EngNote handle) noexcept { handle_ = handle; }

  // --- header
  const NoteHeader& Header() const noexcept { return header_; }
  bool IsNew() const noexcept { return header_.note_id == 0; }
  uint16_t OpenWord() const noexcept { return open_word_; }
  void SetClass(uint16_t note_class) noexcept { header_.note_class = note_class; }
  void SetFlags(uint16_t note_flags) noexcept { header_.note_flags = note_flags; }
  void SetTimes(const TIMEDATE& created, const TIMEDATE& added) noexcept;
  void SetOriginator(const ORIGINATORID& originator) noexcept;
  const ORIGINATORID& Originator();           // mints one for a note that has none yet
  void SetNoteId(uint32_t note_id) noexcept;  // 0: the next Save makes a new note
  // Takes the note over into another database: loads what is not loaded, translates names.
  void MoveTo(std::shared_ptr<Database> database);

  // --- items
  uint32_t ItemCount() const noexcept {
    return static_cast<uint32_t>(items_.size());
  }  // hidden ones included
  const Item& At(uint32_t index) const noexcept { return items_[index]; }
  bool IsHidden(uint32_t index) const noexcept { return (canonical_[index] & kHiddenBit) != 0; }
  // The first visible item of the name at or behind `from`.
  uint32_t Find(NameToken canonical, uint32_t from = 0) const noexcept;
  uint32_t Find(std::string_view name, uint32_t from = 0) const noexcept;
  uint32_t FindSerial(uint16_t serial) const noexcept;   // kNone: no such item now
  uint32_t FirstBehind(uint16_t serial) const noexcept;  // the place of the first item made after that one
  NameToken Canonical(uint32_t index) const noexcept { return canonical_[index] & ~kHiddenBit; }
  std::string_view NameOf(uint32_t index) const noexcept {
    return database_->Names().Spelling(items_[index].name);
  }
  // Where the value lies, type word first; loads an external one. Fails with kBadHandle for a block freed by
  // others.
  Bytes Value(uint32_t index);
  BLOCKID Place(uint32_t index);  // the same as a BLOCKID; loads likewise
  BLOCKID Name(uint32_t index) const noexcept { return {handle_, items_[index].serial}; }

  // `data` is the value without its type word. Returns the index of the new item.
  uint32_t Append(std::string_view name, uint16_t flags, uint16_t type, Bytes data);
  // The note takes the block over on success, and keeps it as it lies. The value begins with its type word.
  uint32_t Adopt(std::string_view name, uint16_t flags, BLOCKID value, uint32_t value_bytes);
  // A copy of an item of this or another note.
  uint32_t AppendCopy(Note& source, uint32_t index);
  // Gives an item another value in its place.
  void SetValue(uint32_t index, uint16_t type, Bytes data);
  // Puts an entry at the end of a text list, in place when it lies last in its block. Fails with kListFull.
  void AddListEntry(uint32_t index, std::string_view text);
  void Delete(uint32_t index) noexcept;
  // Deletes all items of the name, hidden ones too; how many there were.
  uint32_t DeleteAll(std::string_view name) noexcept;
  // Deletes all other items of that item's name, hidden ones too. The item is then found anew.
  void DeleteOthers(uint32_t index) noexcept { DeleteNamed(Canonical(index), items_[index].serial); }
  bool Modified() const noexcept { return modified_; }

  // --- storing
  struct SaveOptions {
    bool force = false;            // store although the stored note changed since the open
    bool keep_originator = false;  // replication: sequence and its time as they stand
    store::Durability durability = store::Durability::kDurable;
  };
  // One write. Fails with kConflict, kNoteDeleted, kTooManyNames, kNoteTooLarge and what the store gives.
  void Save(const SaveOptions& options);
  // The same as part of a larger write; what the note has become counts only once the write is committed:
  // call Saved then.
  void SaveInto(DatabaseWrite& write, const SaveOptions& options);
  void Saved() noexcept;

 private:
  friend class NoteSaver;
  static constexpr NameToken kHiddenBit = 0x80000000u;
  static constexpr uint16_t kNotLoaded = 0xffff;
  struct Block {
    MemHandle handle = 0;
    uint32_t used = 0;
    uint32_t capacity = 0;
  };
  // What a save has settled, until it is known to have come true.
  struct Pending {
    NoteHeader header;
    uint32_t checksum = 0;
    std::vector<std::pair<uint32_t, uint32_t>> externals;  // item index, number
  };

  void Reset() noexcept;
  static std::unique_ptr<Note> Take(std::shared_ptr<Database> database);
  void LoadImage(const ImageView& view, uint16_t open_word);
  uint32_t AddItem(Item item);
  void CheckRoomForItem(size_t value_bytes) const;
  std::byte* AddressOf(const Item& item) const;
  uint16_t NextSerial();
  struct Room {
    uint16_t block;
    uint32_t offset;
    std::byte* at;
  };
  Room MakeRoom(uint32_t value_bytes);
  uint16_t AddBlock(uint32_t capacity);
  void Load(uint32_t index);
  void DropValue(const Item& item) noexcept;
  uint32_t DeleteNamed(NameToken canonical, uint16_t kept_serial) noexcept;
  uint16_t BlockPlace();
  void FreeDeadBlocks() noexcept;

  std::shared_ptr<Database> database_;
  EngNote handle_ = 0;
  NoteHeader header_;
  bool has_originator_ = false;
  bool modified_ = false;
  bool serials_wrapped_ = false;
  uint16_t open_word_ = 0;
  uint16_t last_serial_ = 0;
  uint16_t current_block_ = kNotLoaded;  // where appended values go
  // Of the image this note was read from or stored as.
  uint32_t stored_checksum_ = 0, stored_sequence_ = 0;
  uint32_t source_id_ = 0;         // the note whose external values are not loaded yet
  uint64_t dead_bytes_ = 0;        // of values that no item has any more
  uint64_t dead_bytes_limit_ = 0;  // when to look for blocks that nothing lives in
  std::vector<Item> items_;
  std::vector<NameToken> canonical_;
  std::vector<Block> blocks_;
  Pending pending_;
};

using NoteTable = HandleTable<Note, Handles32(HandleKind::kNote)>;
NoteTable& Notes();
EngNote AddNote(std::unique_ptr<Note> note);
Note& FindNote(EngNote handle);  // fails with kBadHandle
void CloseNote(EngNote handle);

// Deletes a stored note: a stub takes its place. Fails with kNoNote.
void DeleteNote(Database& database, uint32_t note_id, store::Durability durability);
// The same as part of a larger write; false when there is no such note.
bool DeleteNoteInto(DatabaseWrite& write, uint32_t note_id);

}  // namespace brynd
