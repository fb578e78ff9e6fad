// A database as the engine has it open: its handle on the store, its names, what is known of the whole.
//
// Records of space::kDatabase, each {version 1, three zero bytes, low half of XXH3-64 over the content,
// content}:
//   "replica"   DBREPLICAINFO, 20 bytes
//   "limit"     4 bytes, the size limit asked for at creation; 0 is none
//   "other"     8 bytes, when a note that is no data was changed last
// (1) A Database lives as long as its handle or any of its notes; after Close its store answers kBadHandle.
// (2) Names known here are those of the store or wait for the write that brings them there; a write that
//     fails takes the ids back that it gave.
// (3) A directory is a Database without a store.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/handle_table.h"
#include "brynd.h"
#include "note/image.h"
#include "note/names.h"
#include "note/spaces.h"
#include "store/store.h"

namespace brynd {

class Database;

inline constexpr uint16_t kDefaultFileClass = 0xff01;  // "data file"; class 0 means it too

// A checked image together with the dictionary that explains it. Valid as long as the bytes it was made of.
class ImageView {
 public:
  ImageView(const NoteImage& image, const NameDictionary& names) noexcept : image_(image), names_(&names) {}

  const NoteImage& Image() const noexcept { return image_; }
  const NameDictionary& Names() const noexcept { return *names_; }
  uint32_t NoteId() const noexcept { return image_.NoteId(); }
  uint16_t NoteClass() const noexcept { return image_.NoteClass(); }
  bool IsStub() const noexcept { return image_.IsStub(); }

  // The first item of a canonical name. Neither throws nor allocates. An external value has item->external
  // set and no bytes: Database::LoadExternal fetches it.
  bool Find(NameToken canonical, ImageItem* item) const noexcept {
    const uint32_t index = names_->FindIn(image_, canonical);
    if (index == NoteImage::kNone) return false;
    *item = image_.Item(index);
    return true;
  }
  bool Find(std::string_view name, ImageItem* item) const noexcept {
    const NameToken canonical = names_->Lookup(name);
    return canonical != kNoName && Find(canonical, item);
  }
  std::string_view NameOf(const ImageItem& item) const noexcept {
    return names_->Spelling(names_->OfStored(item.name_id));
  }
  NameToken CanonicalOf(const ImageItem& item) const noexcept {
    return names_->Canonical(names_->OfStored(item.name_id));
  }

 private:
  NoteImage image_;
  const NameDictionary* names_;
};

// Data as far as the modified times of the whole database go; all else is design and the like.
inline bool CountsAsData(uint16_t note_class) noexcept { return (note_class & BRCLASS_DATA) != 0; }

// One write to a database: the store's write, and the names it brings along. Destroyed without Commit it
// never was.
class DatabaseWrite {
 public:
  explicit DatabaseWrite(Database& database);
  ~DatabaseWrite();
  DatabaseWrite(const DatabaseWrite&) = delete;
  DatabaseWrite& operator=(const DatabaseWrite&) = delete;

  Database& Owner() const noexcept { return database_; }
  store::Write& Records() noexcept { return *write_; }
  // The stored id of a spelling; stores the spelling when it has none yet.
  uint16_t NameId(NameToken token);
  void Commit(store::Durability durability);

 private:
  Database& database_;
  std::optional<store::Write> write_;
  uint32_t names_before_;
  bool names_fresh_ = false;
  bool names_added_ = false;
};

// What a higher layer keeps with an open database. Any thread.
class KeptRecord {
 public:
  std::shared_ptr<const void> Get() const {
    const std::lock_guard lock(mutex_);
    return record_;
  }
  void Set(std::shared_ptr<const void> record) {
    const std::lock_guard lock(mutex_);
    record_ = std::move(record);
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<const void> record_;
};

class Database {
 public:
  // `given_path` is the engine text the user gave, `file_path` what the system calls the file (see path.h).
  static std::shared_ptr<Database> OpenFile(const std::string& file_path, const std::string& given_path,
                                            const store::OpenOptions& options = {});
  static std::shared_ptr<Database> OpenDirectory(const std::string& file_path, const std::string& given_path);
  struct Creation {
    uint16_t file_class = kDefaultFileClass;
    bool overwrite = false;
    uint32_t size_limit = 0;
  };
  // Makes the file with its replica id and its icon record, and closes it again; nothing is left behind on
  // failure.
  static void Create(const std::string& file_path, const Creation& creation);

  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void Close();  // runs to its end; a failure to bring everything to disk is thrown last
  // Keeps the store open while its callers may close the database from a visitor: it then closes with the
  // last use.
  class Use {
   public:
    explicit Use(Database& database) noexcept : database_(database) { ++database_.uses_; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use();

   private:
    Database& database_;
  };
  bool IsOpen() const noexcept { return open_.load(std::memory_order_acquire); }
  bool IsDirectory() const noexcept { return store_ == nullptr; }
  const std::string& FilePath() const noexcept { return file_path_; }
  const std::string& GivenPath() const noexcept { return given_path_; }

  // Fails with kBadHandle once closed, with kIsDirectory for a directory.
  store::Database& Store() const {
    if (!open_.load(std::memory_order_acquire)) Fail(status::kBadHandle);
    if (store_ == nullptr) Fail(status::kIsDirectory);
    return *store_;
  }
  NameDictionary& Names() noexcept { return names_; }
  const NameDictionary& Names() const noexcept { return names_; }
  KeptRecord& KeptFullText() noexcept { return full_text_; }
  // Learns the names that came into the store since.
  void RefreshNames();

  // Checks stored bytes and makes sure that every name in them is known; fails with kDamaged.
  ImageView View(Bytes stored);
  // As above for scans that must go on: nothing when the bytes are damaged.
  std::optional<ImageView> TryView(Bytes stored);
  // Shows a note in place, stubs too; false when there is no such row. `note_id` must be a plain id.
  bool VisitNote(uint32_t note_id, store::Visitor<void(const ImageView&)> visitor);

  // External values. Loading fails with kConflict when the value has been replaced since, kDamaged when it is
  // not as told.
  void LoadExternal(uint32_t note_id, uint32_t number, std::span<std::byte> target);
  void StoreExternal(DatabaseWrite& write, uint32_t note_id, uint32_t number, Bytes value);
  static void RemoveExternal(DatabaseWrite& write, uint32_t note_id, uint32_t number);
  static void RemoveAllExternals(DatabaseWrite& write, uint32_t note_id);

  // Identity. A universal id minted here for a note gives that note's id back; see docs/stored-format.md.
  TIMEDATE InstanceId() const;
  UNIVERSALNOTEID MintUnid(uint32_t note_id) const;  // 0: not stored yet, the id cannot be derived
  ORIGINATORID NewOriginator() const;                // for a copy: a fresh universal id, sequence 1, now
  static uint32_t DerivedNoteId(const UNIVERSALNOTEID& unid) noexcept;  // a candidate, to be compared
  // The note (never a stub, unless asked for) of a universal id; 0 when there is none.
  uint32_t FindUnid(const UNIVERSALNOTEID& unid, bool stubs_too = false);

  // Resolves 0xffff0000 | class to the id of that special record; other ids pass. Fails with kNoNote.
  uint32_t PlainNoteId(uint32_t note_id);
  // The default record of a class (the icon record for its own class); 0 when there is none.
  uint32_t SpecialId(uint16_t note_class);

  DBREPLICAINFO ReplicaInfo();
  void SetReplicaInfo(const DBREPLICAINFO& info, store::Durability durability = store::Durability::kDurable);
  uint16_t FileClass() const;

  // Facts of the whole database (space::kDatabase), checked; nothing when there is none, kDamaged when it is
  // not whole.
  std::optional<std::vector<std::byte>> ReadFact(std::string_view key);
  static void PutFact(DatabaseWrite& write, std::string_view key, Bytes content);

  // When a note that is no data was changed last; nothing in a file where that was not stamped yet.
  std::optional<TIMEDATE> OtherModified();
  static void StampOther(DatabaseWrite& write, const TIMEDATE& modified);

 private:
  friend class DatabaseWrite;
  Database(std::string file_path, std::string given_path);
  void ReloadNames() noexcept;  // after a failed write: what the store holds is what is known

  std::string file_path_, given_path_;
  std::unique_ptr<store::Database> store_;
  std::atomic<bool> open_{true};
  std::atomic<uint32_t> uses_{0};
  NameDictionary names_;
  KeptRecord full_text_;
};

// Open databases of the process by their handles.
struct DatabaseEntry {
  std::shared_ptr<Database> database;
};
using DatabaseTable = HandleTable<DatabaseEntry, Handles32(HandleKind::kDatabase)>;
DatabaseTable& Databases();

EngDb AddDatabase(std::shared_ptr<Database> database);
const std::shared_ptr<Database>& FindDatabase(EngDb handle);  // fails with kBadHandle
void CloseDatabase(EngDb handle);                             // the handle goes in any case

// Universal ids as the store keys them, and compared.
store::Unid UnidKey(const UNIVERSALNOTEID& unid) noexcept;
bool SameUnid(const UNIVERSALNOTEID& left, const UNIVERSALNOTEID& right) noexcept;
inline UNIVERSALNOTEID UnidOf(const ORIGINATORID& originator) noexcept {
  UNIVERSALNOTEID unid;
  unid.File = originator.File;
  unid.Note = originator.Note;
  return unid;
}

}  // namespace brynd
