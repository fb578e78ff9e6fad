// What a database needs from storage: a transactional, ordered record store. All words here are about notes,
// records and transactions; the means (engine/store/sqlite) do not show.
//
// A file holds: notes (id -> image, any bytes), the index of foreign universal ids (16 bytes -> note id),
// records ((space, key) -> value, keys in byte order within a space) and a journal (transaction sequence ->
// notes it changed).
//
// What stays true:
// (1) Every failure is thrown as Failure(status) (base/status.h). "Not found" is an answer, not a failure.
// (2) A durable commit returns when it is on disk, and with it every commit made before it to the file, by
//     any handle.
// (3) A lazy commit is seen by its own handle at once, by other handles and processes within 20 ms or with
//     the next durable commit, and reaches the disk with the next durable commit, Flush or Close. A crash may
//     lose a tail of the lazy commits, in order, and nothing else.
// (4) Readers never wait for writers. A writer waits for another at most busy_timeout_ms, then fails with
//     kBusy.
// (5) After a failed sync (kSyncFailed) no handle of this process writes to the file (kWriteStopped) until
//     all its handles are closed and it is opened anew. So does a handle whose lazy commits could not be
//     written (disk full, I/O error), until it is closed: a lost lazy commit is never followed by a stored
//     one.
// (6) A damaged or hostile file gives kDamaged, never undefined behaviour. No code stored in a file is run.
// (7) Nothing else in the process opens a database file, not even to read its header: Exists and Inspect are
//     for that.
//
// Threads: a Database may be called from several threads; calls exclude one another. Each handle sees the
// file through its own read view. Bytes given to a visitor are valid until the visitor returns. Visitors may
// call the database again.
#ifndef BRYND_STORE_STORE_H
#define BRYND_STORE_STORE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/bytes.h"
#include "store/visitor.h"

namespace brynd::store {

using Unid = std::array<std::byte, 16>;  // universal note id as stored: compared byte by byte
using NoteId = uint32_t;                 // 1 .. kNoteIdMax
using Space = uint32_t;                  // the caller's number of a kind of records, any value

inline constexpr NoteId kNoteIdMax = 0x3fffffff;
inline constexpr size_t kKeyBytesMax = 2048;          // key of a record
inline constexpr size_t kValueBytesMax = 512u << 20;  // value of a record, image of a note
inline constexpr uint32_t kBusyTimeoutMs = 10000;     // how long a writer waits for another by default
inline constexpr uint32_t kLazyVisibleMs = 20;        // when others see a lazy commit, at the latest
inline constexpr uint64_t kJournalRowsKept = 65536;   // transactions ChangesSince can look back on, at least

enum class Durability : uint8_t { kDurable, kLazy };
enum class Order : uint8_t { kAscending, kDescending };

// What a transaction did to a note. Stored in the journal: append, never renumber.
enum class ChangeKind : uint8_t { kStored = 1, kDeleted = 2, kRemoved = 3 };

struct OpenOptions {
  bool read_only = false;                     // no call writes to the file; BeginWrite fails with kReadOnly
  uint32_t busy_timeout_ms = kBusyTimeoutMs;  // how long a writer waits for other writers
  size_t cache_bytes = 0;                     // page cache of the handle; 0: a share of the process's budget
  const char* vfs = nullptr;                  // the file system used (tests wrap it); null: DefaultVfs()
  bool skip_sync = false;  // canary of the crash tests: durable commits do not wait for the disk
};

struct CreateOptions {
  OpenOptions open = {};
  bool overwrite = false;   // an existing database is replaced (kFileInUse while anyone has it open)
  uint16_t file_class = 0;  // kept in the header, see FileInfo
  uint32_t page_bytes = 0;  // 0: the default, else a power of two from 1024 to 65536
};

// What is known about a file without opening the database in it.
struct FileInfo {
  bool is_database =
      false;                // it carries this store's marks; all else is meaningful only then, but file_bytes
  uint16_t format = 0;      // version of the file format
  uint16_t file_class = 0;  // as given to Create
  uint32_t page_bytes = 0;
  uint64_t file_bytes = 0;  // the file itself
  uint64_t log_bytes = 0;   // what lies beside it while it is open somewhere
};

struct SizeInfo {
  uint64_t file_bytes = 0;  // size of the database as the view sees it
  uint64_t free_bytes = 0;  // of them not in use; Compact gives them back
  uint64_t log_bytes = 0;   // write-ahead log beside the file
};

struct CompactReport {
  uint64_t bytes_before = 0;
  uint64_t bytes_after = 0;
};

// Identifies what a handle sees: equal stamps of one file mean equal contents. Stamps with pending == 0 may
// be compared between handles and processes; others hold for their own handle only.
struct ViewStamp {
  uint64_t sequence = 0;  // last committed transaction in the view
  uint64_t pending = 0;   // not 0 while the handle sees changes of its own that are not committed yet
  friend bool operator==(const ViewStamp&, const ViewStamp&) = default;
};

struct NoteChange {
  uint64_t sequence = 0;  // the transaction; rises by one from transaction to transaction
  NoteId note_id = 0;
  ChangeKind kind = ChangeKind::kStored;
};

class WordIndex;    // engine/store/fulltext.h
class WriteTarget;  // engine/store/write_target.h: what stands behind a Write

// One write: several changes that are made together or not at all. Holds its handle until it ends, so it
// begins and ends on one thread and is short. Ends by Commit, or by destruction, which takes back this write
// and nothing else. When a call on it fails it can only be abandoned.
class Write {
 public:
  Write(Write&& other) noexcept : target_(other.target_) { other.target_ = nullptr; }
  Write& operator=(Write&&) = delete;
  Write(const Write&) = delete;
  Write& operator=(const Write&) = delete;
  ~Write();

  // A note id above all stored ones and all given out in this write. Unused ones may come again after the
  // write.
  NoteId NewNoteId();

  // Stores a note under an id, in place of one that is there. The image is copied before the call returns.
  void PutNote(NoteId note_id, Bytes image, ChangeKind kind = ChangeKind::kStored);

  // Removes the row of a note without a trace but the journal's. False when there was none.
  bool DeleteRow(NoteId note_id);

  // Enters, or takes out, a universal id that cannot be derived from its note. Entering it again moves it to
  // the note.
  void PutUnid(const Unid& unid, NoteId note_id);
  bool RemoveUnid(const Unid& unid);

  // Records: key of at most kKeyBytesMax bytes. Removing says whether there was one, removing a range how
  // many there were.
  void PutRecord(Space space, Bytes key, Bytes value);
  bool RemoveRecord(Space space, Bytes key);
  uint64_t RemoveRange(Space space, Bytes from,
                       std::optional<Bytes> to);  // from <= key < to; no end without to

  // Ends the write. When it throws, the write has not happened, but for kSyncFailed: then it may have, as
  // reading tells, and whether the disk holds it is unknown.
  void Commit(Durability durability);

 private:
  friend class WriteTarget;
  explicit Write(WriteTarget* target) : target_(target) {}
  WriteTarget* target_;  // null once ended
};

class Database {
 public:
  virtual ~Database() = default;  // closes; a failure is lost, so call Close first where it matters
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Ends the open lazy batch, brings everything to disk and closes. Runs to its end; the first failure is
  // thrown last.
  virtual void Close() = 0;

  // --- the read view
  // ------------------------------------------------------------------------------------------------- Reads
  // answer from the handle's read view. Refresh brings the view up to date: two loads from shared memory when
  // nothing changed. Between calls the store may also renew the view by itself (so that the log can be
  // reused), but never while a visitor runs, a Write is open or a Hold is alive.
  virtual void Refresh() = 0;
  virtual ViewStamp Stamp() = 0;

  // Keeps the view (and excludes other threads from the handle) for several reads that belong together.
  class Hold {
   public:
    explicit Hold(Database& database) : database_(&database) { database.Enter(); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    ~Hold() { database_->Leave(); }

   private:
    Database* database_;
  };

  // --- reading
  // -------------------------------------------------------------------------------------------------------
  // Shows the image in place; false when there is no such row.
  virtual bool ReadNote(NoteId note_id, Visitor<void(Bytes image)> visitor) = 0;

  // Shows the notes with id >= from in order of their ids until the visitor returns false. A note written by
  // this handle meanwhile may be seen or not.
  virtual void ScanNotes(NoteId from, Visitor<bool(NoteId note_id, Bytes image)> visitor) = 0;

  // The note a foreign universal id was entered for; 0 when it was not.
  virtual NoteId FindUnid(const Unid& unid) = 0;

  virtual bool ReadRecord(Space space, Bytes key, Visitor<void(Bytes value)> visitor) = 0;

  // Shows the records of a space with from <= key < to (no end without to), in order of their keys as bytes,
  // either way, until the visitor returns false.
  virtual void ScanRecords(Space space, Bytes from, std::optional<Bytes> to,
                           Visitor<bool(Bytes key, Bytes value)> visitor,
                           Order order = Order::kAscending) = 0;

  // Highest note id stored, 0 without notes; and the number of notes, rows left by deletions included (counts
  // them all: time grows with the file).
  virtual NoteId LastNoteId() = 0;
  virtual uint64_t CountNotes() = 0;

  // Shows the notes changed by transactions after the one given, oldest first; a note as often as it was
  // changed. Changes of this handle that still wait for their transaction to end come last, under the
  // sequence they will have. False, and nothing is shown, when the journal does not reach back so far: then
  // all notes count as changed.
  virtual bool ChangesSince(uint64_t sequence, Visitor<void(const NoteChange& change)> visitor) = 0;

  // Shows the same changes newest first, from the handle's own that wait on, until the visitor returns false.
  // False when the journal ended before the visitor did, and did not reach back to the making of the file.
  virtual bool ChangesBackward(Visitor<bool(const NoteChange& change)> visitor) = 0;

  // The word index of the database, made or not; it lives as long as the handle is open.
  virtual WordIndex& Words() = 0;

  virtual SizeInfo Sizes() = 0;

  // A random number that belongs to this file alone: a file copied by other means gets a new one when first
  // opened.
  virtual uint64_t InstanceId() = 0;
  virtual uint16_t FileClass() const = 0;
  virtual const std::string& Path() const = 0;

  // Number of the file in this process: equal for all its handles, never used again. For caches shared by
  // handles.
  virtual uint64_t FileNumber() const = 0;

  // --- writing
  // -------------------------------------------------------------------------------------------------------
  // Begins a write: joins the handle's open lazy batch, or starts a transaction and waits for other writers.
  // Reads of the handle see the write's changes at once. One write at a time: a second before the first ended
  // fails with kInternal.
  virtual Write BeginWrite() = 0;

  // Brings everything committed so far to disk.
  virtual void Flush() = 0;

  // Gives free space back to the file system, in place: other handles stay open, a crash at any point leaves
  // the old or the new file. kBusy when this handle is inside a read or a write, or others write for too
  // long.
  virtual CompactReport Compact() = 0;

 protected:
  Database() = default;
  virtual void Enter() = 0;  // for Hold
  virtual void Leave() = 0;
};

// --- files
// -----------------------------------------------------------------------------------------------------------

// Opens an existing database: kNoFile, kNotDatabase, kDamaged, kBusy, kReadOnly, ...
std::unique_ptr<Database> Open(const std::string& path, const OpenOptions& options = {});

// Makes an empty database and opens it: kFileExists without overwrite.
std::unique_ptr<Database> Create(const std::string& path, const CreateOptions& options = {});

// Removes a database with all that lies beside it: kNoFile, kNotDatabase (a file that is none of ours stays),
// kFileInUse while anyone has it open.
void Remove(const std::string& path, const OpenOptions& options = {});

// Copies a database as it is at this moment, without free space, under a new instance id. Whole or absent: a
// crash never leaves half a target. kFileExists without overwrite, kFileInUse when the target is open.
struct CopyOptions {
  OpenOptions open = {};
  bool overwrite = false;
};
void Copy(const std::string& source, const std::string& target, const CopyOptions& options = {});

bool Exists(const std::string& path);

// kNoFile when there is none; a file of another kind is an answer (is_database false). Safe while the file is
// open here.
FileInfo Inspect(const std::string& path, const OpenOptions& options = {});

// --- process
// ---------------------------------------------------------------------------------------------------------

// The file system that options without one use; null is the system's. Set by tests before any file is opened.
void SetDefaultVfs(const char* name);

// Number of handles open in this process; 0 means that no thread of the store runs.
size_t OpenHandleCount();

}  // namespace brynd::store

#endif  // BRYND_STORE_STORE_H
