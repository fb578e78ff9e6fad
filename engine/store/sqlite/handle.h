// An open database over SQLite: one connection, its read view, its open batch of lazy writes.
// (1) All state is guarded by mutex_, which may be taken again by the thread that has it (visitors call
//     back).
// (2) state_ says what transaction the connection is in: none, a read view, or the batch, which holds the
//     writer's turn of the file from its beginning to its end.
// (3) A write whose only change is one note, made while the batch holds earlier lazy writes, is kept aside
//     until its commit: a single statement undoes itself when it fails, so that such a write needs no
//     savepoint. Every read and every further change brings it in first (ApplyPending).
// (4) A batch that cannot be committed takes its lazy writes with it; then lost_ is set and the handle writes
//     no more.
#ifndef BRYND_STORE_SQLITE_HANDLE_H
#define BRYND_STORE_SQLITE_HANDLE_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "store/sqlite/change_counter.h"
#include "store/sqlite/committer.h"
#include "store/sqlite/connection.h"
#include "store/sqlite/fulltext.h"
#include "store/sqlite/schema.h"
#include "store/sqlite/shared_file.h"
#include "store/store.h"
#include "store/write_target.h"

namespace brynd::store {

// A batch ends after kBatchMilliseconds (what is left of kLazyVisibleMs is for the committer to come round),
// or when it holds so many writes or bytes.
inline constexpr uint32_t kBatchMilliseconds = 12;
inline constexpr uint32_t kBatchWritesMax = 16384;
inline constexpr uint64_t kBatchBytesMax = 8u << 20;
inline constexpr uint32_t kReadsPerLook = 64;  // how often reads look whether the cache is too small

class Handle final : public Database, private WriteTarget, private FileUser, private BackgroundClient {
 public:
  Handle(const std::string& path, const OpenOptions& options);
  ~Handle() override;

  void Close() override;
  bool FileHasMoved() noexcept;  // the path names another file by now
  void EndBatchesOfOthers();     // brings in the lazy writes of all handles of this process

  void Refresh() override;
  ViewStamp Stamp() override;
  bool ReadNote(NoteId note_id, Visitor<void(Bytes)> visitor) override;
  void ScanNotes(NoteId from, Visitor<bool(NoteId, Bytes)> visitor) override;
  NoteId FindUnid(const Unid& unid) override;
  bool ReadRecord(Space space, Bytes key, Visitor<void(Bytes)> visitor) override;
  void ScanRecords(Space space, Bytes from, std::optional<Bytes> to, Visitor<bool(Bytes, Bytes)> visitor,
                   Order order) override;
  NoteId LastNoteId() override;
  uint64_t CountNotes() override;
  bool ChangesSince(uint64_t sequence, Visitor<void(const NoteChange&)> visitor) override;
  bool ChangesBackward(Visitor<bool(const NoteChange&)> visitor) override;
  WordIndex& Words() override;  // sqlite/fulltext.cpp
  SizeInfo Sizes() override;
  uint64_t InstanceId() override;
  uint16_t FileClass() const override { return file_class_; }
  const std::string& Path() const override { return path_; }
  uint64_t FileNumber() const override { return file_number_; }
  Write BeginWrite() override;
  void Flush() override;
  CompactReport Compact() override;

 private:
  friend class FullText;
  enum class State : uint8_t { kNone, kView, kBatch };

  struct Change {
    NoteId note_id;
    ChangeKind kind;
  };

  struct Batch {
    std::vector<Change> changes;
    uint32_t lazy_writes = 0;  // finished writes that wait for the batch to end
    uint64_t edits = 0;        // statements that changed something
    uint64_t bytes = 0;
    NoteId last_id = 0;    // highest id stored or given out
    NoteId stored_id = 0;  // highest id stored, once last_id is known; may be too high after a taking back
    bool told = false;     // the first change tells itself in its note's row
    bool last_id_known = false;
    bool end_arranged = false;  // the committer knows of it
  };

  // The write that is under way.
  struct Current {
    bool open = false;
    bool broken = false;  // a call of it failed
    bool savepoint = false;
    bool stirred = false;  // it has changed something
    size_t changes_before = 0;
    uint64_t edits_before = 0, bytes_before = 0;
    NoteId last_id_before = 0;
    bool last_id_known_before = false;
    bool pending = false;  // one note waits in pending_image_
    NoteId pending_id = 0;
    ChangeKind pending_kind = ChangeKind::kStored;
  };

  struct NoteScan;  // handle_read.cpp
  class Reading;    // handle_read.cpp

  void Enter() override;
  void Leave() override;
  void AskToEndBatch() noexcept override;
  void DropIdleView() noexcept override;
  bool EndBatchIfIdle() noexcept override;
  bool AgeView() noexcept override;

  NoteId NewNoteId() override;
  void PutNote(NoteId note_id, Bytes image, ChangeKind kind) override;
  bool DeleteRow(NoteId note_id) override;
  void PutUnid(const Unid& unid, NoteId note_id) override;
  bool RemoveUnid(const Unid& unid) override;
  void PutRecord(Space space, Bytes key, Bytes value) override;
  bool RemoveRecord(Space space, Bytes key) override;
  uint64_t RemoveRange(Space space, Bytes from, std::optional<Bytes> to) override;
  void CommitWrite(Durability durability) override;
  void AbandonWrite() noexcept override;

  void CheckOpen() const;
  void StampInstance();
  void LeaveFile() noexcept;
  static int OnCommit(void* self, sqlite3*, const char*, int log_frames) noexcept;
  static void ShowNote(sqlite3_context* context, int, sqlite3_value** values) noexcept;

  void CountRead() noexcept {
    if (++reads_unlooked_ == kReadsPerLook) LookAtCache();
  }
  void LookAtCache() noexcept;
  void BeginView();
  void EndView() noexcept;
  uint64_t LastSequence();
  uint64_t NewestTold();
  std::vector<NoteChange> ToldSince(uint64_t sequence, uint64_t last);
  void KeepSequence(uint64_t sequence, const ChangeCounter::Value& before) noexcept;
  void TakeSequence() noexcept;
  bool ShowJournal(uint64_t sequence, Visitor<void(const NoteChange&)> visitor);
  static void ShowChanges(uint64_t sequence, Bytes packed, Visitor<void(const NoteChange&)> visitor);
  static bool ShowChangesBackward(uint64_t sequence, Bytes packed, Visitor<bool(const NoteChange&)> visitor);
  void EndBatchIfAsked() noexcept;

  void CheckWritable() const;
  void StartTransaction();
  void BeginImmediate(SharedFile::Moment until);
  template <class Body>
  auto Attempt(Body&& body);
  void BeforeChange();
  uint64_t RunChange(Lease& lease);
  void StoreNote(NoteId note_id, Bytes image, ChangeKind kind);
  void ApplyPending();
  void AddJournalRow(uint64_t sequence);
  void EndBatch(Durability durability = Durability::kLazy);  // durable: a sync of the log follows at once
  void ForgetBatch(EngStatus reason) noexcept;
  void Vacuum();

  const std::string path_;
  const OpenOptions options_;
  bool read_only_ = false;
  uint16_t file_class_ = 0;
  uint64_t instance_id_ = 0, file_number_ = 0;

  std::recursive_mutex mutex_;
  std::unique_ptr<Connection> connection_;  // null once closed
  std::unique_ptr<StatementSet> statements_;
  std::unique_ptr<FullText> words_;  // once asked for
  std::shared_ptr<SharedFile> file_;
  State state_ = State::kNone;
  uint32_t readings_ = 0, holds_ = 0;

  size_t cache_bytes_ = 0;  // while the cache may still grow
  size_t cache_misses_seen_ = 0;
  uint32_t reads_unlooked_ = 0;

  ChangeCounter counter_;
  ChangeCounter::Value seen_;
  std::optional<uint64_t> sequence_;  // last committed transaction in the view or below the batch
  uint64_t journal_last_ = 0;         // its last row's sequence when sequence_ was looked up or journalled
  uint64_t own_sequence_ = 0;  // of this handle's last commit; 0 when another may have come right behind it
  ChangeCounter::Value own_commit_;  // the counter as it stood then
  NoteScan* scan_ = nullptr;
  bool view_touched_ = false, view_watched_ = false;

  Batch batch_;
  Current current_;
  std::vector<std::byte> pending_image_;
  std::atomic<bool> end_wanted_{false};
  uint64_t edit_count_ = 0;  // rises with every change and every taking back
  uint32_t log_frames_ = 0;
  EngStatus failure_ = status::kOk;  // of the last statement that failed to change something
  EngStatus lost_ = status::kOk;     // why lazy writes were lost
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_HANDLE_H
