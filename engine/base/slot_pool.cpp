#include "base/slot_pool.h"

#include <pthread.h>

#include <atomic>
#include <bit>

namespace brynd {

namespace {

static_assert(kSlotShards <= 32 && std::has_single_bit(kSlotShards));
constexpr uint32_t kAllTaken = static_cast<uint32_t>((uint64_t{1} << kSlotShards) - 1);

constinit std::atomic<uint32_t> taken_shards{0};  // a bit each
constinit std::atomic<uint32_t> sharing_threads{0};

// The number above the thread's shard; 0 before it has one. Found without a call, whatever library this is
// in.
[[gnu::tls_model("initial-exec")]] constinit thread_local uint32_t own_shard = 0;

// What tells of a thread's end. A key, since it can fail without taking the process along when there is no
// memory.
class EndOfThread {
 public:
  EndOfThread() noexcept { made_ = pthread_key_create(&key_, GiveShardBack) == 0; }
  EndOfThread(const EndOfThread&) = delete;
  EndOfThread& operator=(const EndOfThread&) = delete;
  ~EndOfThread() {
    if (made_) pthread_key_delete(key_);
  }
  bool Watch(uint32_t shard) noexcept { return made_ && pthread_setspecific(key_, marks_ + shard) == 0; }

 private:
  // What the thread still does goes on in this shard, perhaps together with its next owner: there is a lock.
  static void GiveShardBack(void* mark) noexcept {
    const auto shard = static_cast<uint32_t>(static_cast<char*>(mark) - marks_);
    taken_shards.fetch_and(~(1u << shard), std::memory_order_relaxed);
  }

  static inline char marks_[kSlotShards];
  pthread_key_t key_{};
  bool made_ = false;
};

uint32_t ChooseShard() noexcept {
  static EndOfThread end_of_thread;
  uint32_t taken = taken_shards.load(std::memory_order_relaxed);
  while (taken != kAllTaken) {
    const auto shard = static_cast<uint32_t>(std::countr_one(taken));
    if (!taken_shards.compare_exchange_weak(taken, taken | 1u << shard, std::memory_order_relaxed)) continue;
    if (end_of_thread.Watch(shard)) return shard;
    taken_shards.fetch_and(~(1u << shard), std::memory_order_relaxed);
    break;
  }
  return sharing_threads.fetch_add(1, std::memory_order_relaxed) % kSlotShards;
}

}  // namespace

uint32_t SlotShardOfThread() noexcept {
  if (own_shard == 0) own_shard = ChooseShard() + 1;
  return own_shard - 1;
}

}  // namespace brynd
