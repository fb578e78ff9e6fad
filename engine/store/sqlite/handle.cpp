#include "store/sqlite/handle.h"

#include <algorithm>

#include "base/boundary.h"
#include "base/process.h"

namespace brynd::store {

namespace {

// Pages kept by all handles of a process together, and by one of them, which begins with the least. A handle
// that only writes never needs more: the memory of a large cache, touched for the first time, cost a bulk
// load a fifth of its time.
constexpr size_t kCacheBudget = 256u << 20, kCacheMin = 4u << 20, kCacheMax = 64u << 20;
constexpr size_t kCachePageBytes = 8192;  // as most files have; others fill a cache of as many bytes

size_t CacheShare() {
  return std::clamp(kCacheBudget / (Committer::OfProcess().ClientCount() + 1), kCacheMin, kCacheMax);
}

void KeepFirst(EngStatus* first, EngStatus code) noexcept {
  if (*first == status::kOk) *first = code;
}

}  // namespace

Handle::Handle(const std::string& path, const OpenOptions& options) : path_(path), options_(options) {
  connection_ = std::make_unique<Connection>(
      path, ConnectionOptions{.access = options.read_only ? Access::kReadOnly : Access::kReadWrite,
                              .vfs = options.vfs,
                              .busy_timeout_ms = options.busy_timeout_ms,
                              .cache_bytes = options.cache_bytes == 0 ? kCacheMin : options.cache_bytes});
  read_only_ = sqlite3_db_readonly(connection_->Get(), "main") != 0;
  VerifySchema(*connection_);
  if (!read_only_ && connection_->Text("PRAGMA journal_mode=WAL") != "wal") Fail(status::kDamaged);
  file_class_ =
      static_cast<uint16_t>(static_cast<uint32_t>(connection_->Number("PRAGMA user_version")) >> 16);
  sqlite3_wal_hook(connection_->Get(), OnCommit, this);
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DIRECTONLY;
  if (const int result = sqlite3_create_function_v2(connection_->Get(), "show_note", 2, kFlags, this,
                                                    ShowNote, nullptr, nullptr, nullptr)) {
    Connection::FailWith(result);
  }
  if (options.cache_bytes == 0) cache_bytes_ = kCacheMin;
  statements_ = std::make_unique<StatementSet>(*connection_);
  file_ = SharedFile::Of(path, options.vfs);
  file_number_ = file_->Number();
  StampInstance();
  const EngStatus code = AtBoundary([&] {
    file_->Join(this);
    Committer::OfProcess().Join(this);
  });
  if (code == status::kOk) return;
  LeaveFile();  // both lists ignore a stranger
  Fail(code);
}

Handle::~Handle() {
  AtBoundary([&] { Close(); });
  if (connection_ != nullptr)
    LeaveFile();  // it was destroyed inside a call of its own: at least nobody calls it
}

void Handle::LeaveFile() noexcept {
  Committer::OfProcess().Part(this);
  file_->Part(this);
}

void Handle::Close() {
  const std::lock_guard lock(mutex_);
  if (connection_ == nullptr) return;
  EngStatus first = AtBoundary([&] {
    if (current_.open || readings_ != 0) Fail(status::kInternal);
    Flush();
  });
  if (first == status::kInternal && (current_.open || readings_ != 0))
    Fail(first);  // in use by this very thread
  KeepFirst(&first, lost_);
  LeaveFile();
  EndView();
  words_.reset();
  statements_.reset();
  connection_.reset();
  state_ = State::kNone;
  file_.reset();  // with the last connection SQLite copies the log into the file and removes it
  if (first != status::kOk) Fail(first);
}

bool Handle::FileHasMoved() noexcept {
  int moved = 0;
  sqlite3_file_control(connection_->Get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

void Handle::CheckOpen() const {
  if (connection_ == nullptr) Fail(status::kBadHandle);
}

// A file whose mark is not the stored one was copied by other means, or is new: it gets an instance id of its
// own.
void Handle::StampInstance() {
  const FileMark mark = MarkOf(path_);
  InstanceRecord record = ReadInstance(*connection_);
  if (record.instance_id == 0 || record.mark != mark) {
    record = {.instance_id = Process().random->U64() | 1, .mark = mark};
    if (!read_only_) {
      const auto until =
          std::chrono::steady_clock::now() + std::chrono::milliseconds(options_.busy_timeout_ms);
      if (!file_->TakeTurn(this, until)) Fail(status::kBusy);
      const EngStatus code = AtBoundary([&] {
        BeginImmediate(until);
        const InstanceRecord stored = ReadInstance(*connection_);  // another process may have been quicker
        if (stored.instance_id != 0 && stored.mark == mark)
          record = stored;
        else
          WriteInstance(*connection_, record);
        connection_->Execute("COMMIT");
        file_->NoteCommit();
      });
      if (connection_->InTransaction()) connection_->Run("ROLLBACK");
      file_->EndTurn();
      Check(code);
    }
  }
  instance_id_ = record.instance_id;
}

int Handle::OnCommit(void* self, sqlite3*, const char*, int log_frames) noexcept {
  static_cast<Handle*>(self)->log_frames_ = static_cast<uint32_t>(log_frames);
  return SQLITE_OK;
}

void Handle::Enter() {
  mutex_.lock();
  ++holds_;
}

void Handle::Leave() {
  --holds_;
  EndBatchIfAsked();
  mutex_.unlock();
}

// Doubles the cache once reads have missed half of its pages: before it overflows, so that nothing is read
// twice for its having been small.
void Handle::LookAtCache() noexcept {
  reads_unlooked_ = 0;
  if (cache_bytes_ == 0 || connection_ == nullptr) return;
  int misses = 0, unused = 0;
  sqlite3_db_status(connection_->Get(), SQLITE_DBSTATUS_CACHE_MISS, &misses, &unused, 0);
  if (static_cast<size_t>(misses) - cache_misses_seen_ < cache_bytes_ / (2 * kCachePageBytes)) return;
  cache_misses_seen_ = static_cast<size_t>(misses);
  const size_t wanted = std::min(2 * cache_bytes_, CacheShare());
  if (wanted <= cache_bytes_) {
    cache_bytes_ = 0;  // it has its share
    return;
  }
  cache_bytes_ = wanted;
  connection_->SetCache(wanted);
}

// --- the read view
// ---------------------------------------------------------------------------------------------------

void Handle::BeginView() {
  if (state_ != State::kNone) return;
  seen_ = counter_.Read();  // before the view begins: what is committed in between makes the counter move
  {
    Lease begin(*statements_, Query::kBegin);
    begin.Step();
  }
  state_ = State::kView;
  sequence_.reset();
  if (!counter_.Attached()) {
    LastSequence();  // any read will do: it opens the shared index
    counter_.Attach(*connection_);
  }
  if (view_watched_) return;
  view_watched_ = true;
  Committer::OfProcess().WatchView(this);
}

void Handle::EndView() noexcept {
  if (state_ != State::kView) return;
  connection_->Run("COMMIT");
  state_ = State::kNone;
  sequence_.reset();
}

void Handle::Refresh() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  if (state_ == State::kView && readings_ == 0 && counter_.Moved(seen_)) EndView();
}

void Handle::DropIdleView() noexcept {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (lock.owns_lock() && readings_ == 0 && holds_ == 0 && !current_.open && connection_ != nullptr)
    EndView();
}

bool Handle::AgeView() noexcept {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock()) return true;
  if (!view_touched_ && readings_ == 0 && holds_ == 0 && !current_.open) EndView();
  view_touched_ = false;
  view_watched_ = state_ == State::kView;
  return view_watched_;
}

ViewStamp Handle::Stamp() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  BeginView();
  const bool own_changes = state_ == State::kBatch && (batch_.edits != 0 || current_.pending);
  return {.sequence = LastSequence(), .pending = own_changes ? edit_count_ : 0};
}

SizeInfo Handle::Sizes() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  BeginView();
  const auto page = static_cast<uint64_t>(connection_->Number("PRAGMA page_size"));
  SizeInfo sizes;
  sizes.file_bytes = static_cast<uint64_t>(connection_->Number("PRAGMA page_count")) * page;
  sizes.free_bytes = static_cast<uint64_t>(connection_->Number("PRAGMA freelist_count")) * page;
  sqlite3_file* log = connection_->LogFile();
  sqlite3_int64 log_bytes = 0;
  if (log != nullptr && log->pMethods->xFileSize(log, &log_bytes) == SQLITE_OK) {
    sizes.log_bytes = static_cast<uint64_t>(log_bytes);
  }
  return sizes;
}

uint64_t Handle::InstanceId() {
  const std::lock_guard lock(mutex_);
  CheckOpen();
  return instance_id_;
}

// --- the open batch, seen from other threads
// -------------------------------------------------------------------------

void Handle::AskToEndBatch() noexcept {
  end_wanted_ = true;
  Committer::OfProcess().EndBatchAt(this, std::chrono::steady_clock::now());
}

bool Handle::EndBatchIfIdle() noexcept {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock()) {
    end_wanted_ = true;  // who is in there ends it on the way out
    return false;
  }
  if (state_ == State::kBatch && connection_ != nullptr) AtBoundary([&] { EndBatch(); });
  return true;
}

void Handle::EndBatchIfAsked() noexcept {
  if (!end_wanted_.load(std::memory_order_relaxed) || state_ != State::kBatch || current_.open || holds_ != 0)
    return;
  AtBoundary([&] { EndBatch(); });
}

}  // namespace brynd::store
