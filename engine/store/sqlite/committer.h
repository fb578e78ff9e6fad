// The background thread of the store: ends lazy batches when their time has come, and gives up read views
// that nobody used for a second (a view that stays open keeps the log from being used anew, in every
// process).
// (1) It runs while a handle is open, and not otherwise.
// (2) It never waits for a handle: one that is in use is asked again a millisecond later.
// (3) When Part has returned, the thread does not touch the handle any more.
#ifndef BRYND_STORE_SQLITE_COMMITTER_H
#define BRYND_STORE_SQLITE_COMMITTER_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace brynd::store {

class BackgroundClient {
 public:
  // Ends the lazy batch, if one is open. False when the handle is in use and the batch still to be ended.
  virtual bool EndBatchIfIdle() noexcept = 0;
  // Gives the view up if it was not used since the last call. False when there is no view to look after any
  // more.
  virtual bool AgeView() noexcept = 0;

 protected:
  ~BackgroundClient() = default;
};

class Committer {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  static Committer& OfProcess();

  Committer() = default;
  Committer(const Committer&) = delete;
  Committer& operator=(const Committer&) = delete;
  ~Committer();

  void Join(BackgroundClient* client);
  void Part(BackgroundClient* client) noexcept;

  void EndBatchAt(BackgroundClient* client, Moment moment) noexcept;  // keeps an earlier moment
  void WatchView(BackgroundClient* client) noexcept;
  size_t ClientCount() noexcept;

 private:
  struct Entry {
    BackgroundClient* client;
    Moment batch_end = Moment::max();
    Moment view_check = Moment::max();
  };

  Entry* Find(BackgroundClient* client) noexcept;
  Entry* NextDue() noexcept;
  void Wake(Moment moment) noexcept;
  void Serve();
  void ServeEntry(std::unique_lock<std::mutex>& lock, BackgroundClient* client);

  std::mutex lifecycle_mutex_;  // starting and stopping the thread; taken before mutex_
  std::mutex mutex_;
  std::condition_variable wake_, served_;
  std::vector<Entry> entries_;
  BackgroundClient* serving_ = nullptr;
  Moment sleeping_until_ = Moment::max();
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_SQLITE_COMMITTER_H
