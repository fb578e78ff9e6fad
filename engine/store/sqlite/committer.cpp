#include "store/sqlite/committer.h"

#include <algorithm>

namespace brynd::store {

namespace {

constexpr std::chrono::milliseconds kAskAgain{1};
constexpr std::chrono::milliseconds kViewCheck{1000};

}  // namespace

// Never destroyed: a process may exit with databases open, whose handles go in their own time.
Committer& Committer::OfProcess() {
  static union Lasting {
    Lasting() : committer() {}
    ~Lasting() {}
    Committer committer;
  } lasting;
  return lasting.committer;
}

Committer::~Committer() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
    wake_.notify_all();
  }
  if (thread_.joinable()) thread_.join();
}

void Committer::Join(BackgroundClient* client) {
  const std::lock_guard lifecycle(lifecycle_mutex_);
  {
    const std::lock_guard lock(mutex_);
    entries_.push_back({.client = client});
  }
  if (!thread_.joinable()) thread_ = std::thread([this] { Serve(); });
}

void Committer::Part(BackgroundClient* client) noexcept {
  const std::lock_guard lifecycle(lifecycle_mutex_);
  bool last = false;
  {
    std::unique_lock lock(mutex_);
    std::erase_if(entries_, [&](const Entry& entry) { return entry.client == client; });
    served_.wait(lock, [&] { return serving_ != client; });
    last = entries_.empty();
    stop_ = last;
    if (last) wake_.notify_all();
  }
  if (!last || !thread_.joinable()) return;
  thread_.join();
  const std::lock_guard lock(mutex_);
  stop_ = false;
}

size_t Committer::ClientCount() noexcept {
  const std::lock_guard lock(mutex_);
  return entries_.size();
}

Committer::Entry* Committer::Find(BackgroundClient* client) noexcept {
  const auto found = std::ranges::find(entries_, client, &Entry::client);
  return found == entries_.end() ? nullptr : &*found;
}

void Committer::Wake(Moment moment) noexcept {
  if (moment < sleeping_until_) wake_.notify_all();
}

void Committer::EndBatchAt(BackgroundClient* client, Moment moment) noexcept {
  const std::lock_guard lock(mutex_);
  Entry* entry = Find(client);
  if (entry == nullptr || entry->batch_end <= moment) return;
  entry->batch_end = moment;
  Wake(moment);
}

void Committer::WatchView(BackgroundClient* client) noexcept {
  const std::lock_guard lock(mutex_);
  Entry* entry = Find(client);
  if (entry == nullptr || entry->view_check != Moment::max()) return;
  entry->view_check = std::chrono::steady_clock::now() + kViewCheck;
  Wake(entry->view_check);
}

Committer::Entry* Committer::NextDue() noexcept {
  Entry* next = nullptr;
  Moment earliest = Moment::max();
  for (Entry& entry : entries_) {
    const Moment due = std::min(entry.batch_end, entry.view_check);
    if (due < earliest) {
      next = &entry;
      earliest = due;
    }
  }
  return next;
}

void Committer::Serve() {
  std::unique_lock lock(mutex_);
  while (!stop_) {
    const Entry* next = NextDue();
    const Moment due = next == nullptr ? Moment::max() : std::min(next->batch_end, next->view_check);
    if (due > std::chrono::steady_clock::now()) {
      sleeping_until_ = due;
      if (next == nullptr)
        wake_.wait(lock);
      else
        wake_.wait_until(lock, due);
      sleeping_until_ = Moment::min();
      continue;
    }
    ServeEntry(lock, next->client);
  }
}

// Works for one handle with the lock released; the entry is looked up again, since handles come and go
// meanwhile.
void Committer::ServeEntry(std::unique_lock<std::mutex>& lock, BackgroundClient* client) {
  const Moment now = std::chrono::steady_clock::now();
  Entry* entry = Find(client);
  const bool batch_due = entry->batch_end <= now;
  const bool view_due = entry->view_check <= now;
  if (batch_due) entry->batch_end = Moment::max();  // a batch that begins from here on sets its own moment
  if (view_due) entry->view_check = Moment::max();
  serving_ = client;
  lock.unlock();
  const bool batch_left = batch_due && !client->EndBatchIfIdle();
  const bool view_left = view_due && client->AgeView();
  lock.lock();
  serving_ = nullptr;
  served_.notify_all();
  entry = Find(client);
  if (entry == nullptr) return;
  const Moment after = std::chrono::steady_clock::now();
  if (batch_left) entry->batch_end = std::min(entry->batch_end, after + kAskAgain);
  if (view_left) entry->view_check = std::min(entry->view_check, after + kViewCheck);
}

}  // namespace brynd::store
