// What all open handles of one file in this process share: whose turn it is to write, the syncing of the log,
// checkpoints.
// (1) One handle of the process at a time has the writer's turn; only it may start a transaction that writes.
//     Turns are given in the order they were asked for. (Processes take turns by SQLite's own lock.)
// (2) A durable commit waits until a sync of the log that began after its transaction ended has succeeded.
//     One thread syncs at a time, outside the writer's turn, and for everyone whose transaction had ended
//     before.
// (3) After a failed sync nobody here writes to the file any more, until the last handle has closed.
// (4) Checkpoints run only while the caller's connection holds SQLite's writer lock: a commit that slips in
//     between a checkpoint's reading of the log's head and its copying would otherwise make a later one skip
//     frames.
#ifndef BRYND_STORE_SQLITE_SHARED_FILE_H
#define BRYND_STORE_SQLITE_SHARED_FILE_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "store/sqlite/connection.h"

namespace brynd::store {

// A handle as its file sees it.
class FileUser {
 public:
  // Others wait for the turn this user has: an idle batch is to end at once. Called with the queue locked;
  // must not block.
  virtual void AskToEndBatch() noexcept = 0;
  // Gives up the read view when nobody is using it. Never waits.
  virtual void DropIdleView() noexcept = 0;

 protected:
  ~FileUser() = default;
};

class SharedFile {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  // The record of a file: the same for every handle of it that is open at the same time.
  static std::shared_ptr<SharedFile> Of(const std::string& path, const char* vfs);
  static bool IsOpen(const std::string& path);

  SharedFile(std::string path, const char* vfs, uint64_t number);

  uint64_t Number() const noexcept { return number_; }
  const std::string& Path() const noexcept { return path_; }

  void Join(FileUser* user);
  void Part(FileUser* user) noexcept;

  // The writer's turn. False when it did not come until the moment given.
  bool TakeTurn(FileUser* user, Moment until);
  void EndTurn() noexcept;
  bool SomeoneWaits() const noexcept { return waiting_.load(std::memory_order_relaxed) != 0; }

  // A transaction has been committed (the turn is still the caller's); the ticket is what SyncTo takes.
  uint64_t NoteCommit() noexcept;
  uint64_t LastTicket() const noexcept { return committed_.load(); }
  void SyncTo(uint64_t ticket, Connection& connection, bool skip);

  bool Stopped() const noexcept { return stopped_.load(std::memory_order_relaxed); }
  void Stop() noexcept;  // data may not have reached the disk

  // Makes the log longer than its frames, so that the commits to come overwrite it: a sync that has to bring
  // a new length to disk as well takes twice the time. The caller is inside a transaction that writes.
  // Failing to do it is no failure.
  void ReserveLog(Connection& writer, uint32_t log_frames) noexcept;

  // Copies the log into the file when it has grown past its bound (or always, when forced). The caller has
  // the turn, and its connection no transaction. Failing to do it now is no failure; a failed sync stops the
  // file.
  void Checkpoint(Connection& guard, uint32_t log_frames, bool force) noexcept;

 private:
  bool CheckpointUnderLock(Connection& guard) noexcept;
  void DropViews() noexcept;

  const std::string path_;
  const char* const vfs_;
  const uint64_t number_;

  std::mutex queue_mutex_;
  std::condition_variable turn_ended_;
  std::deque<uint64_t> queue_;  // tickets of those who wait for the turn
  uint64_t next_waiter_ = 0;
  FileUser* writer_ = nullptr;
  bool turn_taken_ = false;
  std::atomic<uint32_t> waiting_{0};
  Moment busy_since_{}, turn_ended_at_{};

  std::mutex sync_mutex_;
  std::condition_variable sync_ended_;
  bool syncing_ = false;
  uint64_t synced_ = 0;
  std::atomic<uint64_t> committed_{0};
  std::atomic<bool> stopped_{false};

  std::mutex users_mutex_;
  std::vector<FileUser*> users_;

  std::unique_ptr<Connection> checkpointer_;  // used by who has the turn
  uint32_t frames_seen_ = 0, next_checkpoint_ = 0;
  // Used by who has the turn. The log never becomes shorter than this while the file is open.
  uint64_t log_bytes_ = 0;
  uint32_t frame_bytes_ = 0;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_SHARED_FILE_H
