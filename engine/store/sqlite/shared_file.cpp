#include "store/sqlite/shared_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <thread>
#include <utility>

#include "base/boundary.h"

namespace brynd::store {

namespace {

// The log is copied into the file when it has grown by so many frames since the last time: 5 MB. A log that
// begins anew is overwritten in place, which spares a durable commit the growth of a file; four times as long
// it cost a quarter more.
constexpr uint32_t kCheckpointFrames = 640;

// The log of a file that is committed to durably is kept longer than its frames by the first, in steps of up
// to the second, until it is as long as it ever needs to be.
constexpr uint64_t kReserveAtLeastBytes = 64 * 1024, kReserveBytes = 1024 * 1024;
constexpr uint64_t kReservedLogBytesMax = 8u << 20;
constexpr uint32_t kLogHeaderBytes = 32, kFrameHeaderBytes = 24;

// Other processes ask for SQLite's writer lock every half millisecond. After holding it with hardly a gap for
// the first time, this process stays away from it for the second, so that they get their turn.
constexpr std::chrono::milliseconds kBusyStretch{60};
constexpr std::chrono::microseconds kCourtesy{1200};
constexpr std::chrono::microseconds kGap{50};  // a durable commit leaves a longer one while it syncs

struct Registry {
  std::mutex mutex;
  std::map<std::pair<dev_t, ino_t>, std::weak_ptr<SharedFile>> files;
  uint64_t last_number = 0;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

std::pair<dev_t, ino_t> IdentityOf(const std::string& path) {
  struct stat facts;
  if (stat(path.c_str(), &facts) != 0) Fail(status::kNoFile);
  return {facts.st_dev, facts.st_ino};
}

}  // namespace

std::shared_ptr<SharedFile> SharedFile::Of(const std::string& path, const char* vfs) {
  const auto identity = IdentityOf(path);
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  std::erase_if(registry.files, [](const auto& entry) { return entry.second.expired(); });
  if (const auto found = registry.files.find(identity); found != registry.files.end()) {
    if (auto file = found->second.lock()) return file;
  }
  auto file = std::make_shared<SharedFile>(path, vfs, ++registry.last_number);
  registry.files[identity] = file;
  return file;
}

bool SharedFile::IsOpen(const std::string& path) {
  struct stat facts;
  if (stat(path.c_str(), &facts) != 0) return false;
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  const auto found = registry.files.find({facts.st_dev, facts.st_ino});
  return found != registry.files.end() && !found->second.expired();
}

SharedFile::SharedFile(std::string path, const char* vfs, uint64_t number)
    : path_(std::move(path)), vfs_(vfs), number_(number), next_checkpoint_(kCheckpointFrames) {}

void SharedFile::Join(FileUser* user) {
  const std::lock_guard lock(users_mutex_);
  users_.push_back(user);
}

void SharedFile::Part(FileUser* user) noexcept {
  const std::lock_guard lock(users_mutex_);
  std::erase(users_, user);
}

bool SharedFile::TakeTurn(FileUser* user, Moment until) {
  std::unique_lock lock(queue_mutex_);
  if (turn_taken_ || !queue_.empty()) {
    const uint64_t me = ++next_waiter_;
    queue_.push_back(me);
    ++waiting_;
    const auto my_turn = [&] { return !turn_taken_ && queue_.front() == me; };
    if (writer_ != nullptr) writer_->AskToEndBatch();
    const bool came = turn_ended_.wait_until(lock, until, my_turn);
    std::erase(queue_, me);
    --waiting_;
    if (!came) {
      turn_ended_.notify_all();  // the next in line may have come to the front
      return false;
    }
  }
  turn_taken_ = true;
  writer_ = user;
  if (waiting_ != 0) writer_->AskToEndBatch();
  const Moment now = std::chrono::steady_clock::now();
  if (now - turn_ended_at_ > kGap) {
    busy_since_ = now;
  } else if (now - busy_since_ > kBusyStretch) {
    lock.unlock();
    std::this_thread::sleep_for(kCourtesy);
    lock.lock();
    busy_since_ = std::chrono::steady_clock::now();
  }
  return true;
}

void SharedFile::EndTurn() noexcept {
  const std::lock_guard lock(queue_mutex_);
  turn_taken_ = false;
  writer_ = nullptr;
  turn_ended_at_ = std::chrono::steady_clock::now();
  if (!queue_.empty()) turn_ended_.notify_all();
}

uint64_t SharedFile::NoteCommit() noexcept { return committed_.fetch_add(1) + 1; }

void SharedFile::Stop() noexcept {
  stopped_ = true;
  sync_ended_.notify_all();
}

void SharedFile::SyncTo(uint64_t ticket, Connection& connection, bool skip) {
  std::unique_lock lock(sync_mutex_);
  while (synced_ < ticket) {
    if (stopped_) Fail(status::kSyncFailed);
    if (syncing_) {
      sync_ended_.wait(lock);
      continue;
    }
    sqlite3_file* log = connection.LogFile();
    if (log == nullptr) Fail(status::kInternal);
    syncing_ = true;
    const uint64_t covered = committed_;  // all of these had ended before the sync begins
    lock.unlock();
    const int result = skip ? SQLITE_OK : log->pMethods->xSync(log, SQLITE_SYNC_NORMAL);
    lock.lock();
    syncing_ = false;
    if (result == SQLITE_OK)
      synced_ = std::max(synced_, covered);
    else
      stopped_ = true;
    sync_ended_.notify_all();
  }
}

// Zeros are what the log may hold behind its last frame: no frame begins with page number 0. Only who holds
// SQLite's writer lock changes the log, and nothing shortens it below kReservedLogBytesMax while a connection
// is open.
void SharedFile::ReserveLog(Connection& writer, uint32_t log_frames) noexcept {
  if (frame_bytes_ == 0) {
    (void)AtBoundary(
        [&] { frame_bytes_ = static_cast<uint32_t>(writer.Number("PRAGMA page_size")) + kFrameHeaderBytes; });
    if (frame_bytes_ == 0) return;
  }
  const uint64_t used = kLogHeaderBytes + uint64_t{log_frames} * frame_bytes_;
  if (log_bytes_ >= used + kReserveAtLeastBytes || log_bytes_ >= kReservedLogBytesMax) return;
  sqlite3_file* log = writer.LogFile();
  sqlite3_int64 log_bytes = 0;
  if (log == nullptr || log->pMethods->xFileSize(log, &log_bytes) != SQLITE_OK) return;
  log_bytes_ = static_cast<uint64_t>(log_bytes);
  if (log_bytes_ >= used + kReserveAtLeastBytes || log_bytes_ >= kReservedLogBytesMax) return;
  // The first commits of a file reserve little: most files that are written to are written to once. No single
  // write is larger than SQLite's own: its file system cannot do any size.
  static constexpr std::byte kZeros[kReserveAtLeastBytes] = {};
  const uint64_t end = log_bytes_ + std::clamp<uint64_t>(log_bytes_, kReserveAtLeastBytes, kReserveBytes);
  while (log_bytes_ < end) {
    const uint64_t step = std::min(end - log_bytes_, kReserveAtLeastBytes);
    if (log->pMethods->xWrite(log, kZeros, static_cast<int>(step), static_cast<int64_t>(log_bytes_)) !=
        SQLITE_OK)
      return;
    log_bytes_ += step;
  }
}

void SharedFile::DropViews() noexcept {
  const std::lock_guard lock(users_mutex_);
  for (FileUser* user : users_) user->DropIdleView();
}

void SharedFile::Checkpoint(Connection& guard, uint32_t log_frames, bool force) noexcept {
  if (log_frames < frames_seen_) next_checkpoint_ = kCheckpointFrames;  // the log began anew
  frames_seen_ = log_frames;
  if (stopped_ || (!force && log_frames < next_checkpoint_)) return;
  // Views that stay would keep the copying from being complete before, and the log from beginning anew after.
  DropViews();
  guard.LimitWaits(std::chrono::steady_clock::now());  // another process writes: next time then
  const int result = guard.Run("BEGIN IMMEDIATE");
  guard.LimitWaits({});
  if (result != SQLITE_OK) return;
  next_checkpoint_ = log_frames + kCheckpointFrames;
  const bool complete = CheckpointUnderLock(guard);
  guard.Run("COMMIT");
  if (complete) DropViews();
}

bool SharedFile::CheckpointUnderLock(Connection&) noexcept {
  if (checkpointer_ == nullptr) {
    const EngStatus code = AtBoundary([&] {
      checkpointer_ = std::make_unique<Connection>(path_, ConnectionOptions{.vfs = vfs_, .cache_bytes = 0});
    });
    if (code != status::kOk) return false;
  }
  int log_frames = 0, copied_frames = 0;
  const int result = sqlite3_wal_checkpoint_v2(checkpointer_->Get(), "main", SQLITE_CHECKPOINT_PASSIVE,
                                               &log_frames, &copied_frames);
  if (IsSyncFailure(result)) Stop();
  return result == SQLITE_OK && log_frames == copied_frames;
}

}  // namespace brynd::store
