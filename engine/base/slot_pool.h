// Free slots of a table of handles, shared out among threads so that those who open and close at the same
// time do not meet in one lock. Each thread has a shard: a lock and a queue of slots freed by it. Beyond that
// there is a common queue, and fresh slots that were never used. Slots are known by their index from 1 on;
// the queues run through the slots' own next_free words. (1) A freed slot waits until `kept` others of its
// shard were freed after it, so that a stale handle stays
//     recognised for long. A shard keeps less than three times as many; what is above goes to the common
//     queue.
// (2) A slot is in one queue, or with who took it. Queues change under their lock alone; a shard's lock may
// be held
//     when the common one is taken, not the other way round, and no one holds two shards' locks but
//     AllShards.
// (3) No call waits for memory but Take's `make`.
#ifndef BRYND_BASE_SLOT_POOL_H
#define BRYND_BASE_SLOT_POOL_H

#include <array>
#include <cstdint>
#include <mutex>
#include <utility>

#include "base/spin_lock.h"

namespace brynd {

inline constexpr uint32_t kSlotShards = 16;  // threads beyond that share them

// The number of the calling thread's shard, below kSlotShards. A thread's end sets its number free.
uint32_t SlotShardOfThread() noexcept;

class SlotPool {
 public:
  struct Queue {
    uint32_t head = 0, tail = 0, count = 0;
  };
  // A cache line each.
  struct alignas(64) Shard {
    SpinLock lock;
    Queue older, newer;
    int64_t live =
        0;  // slots taken less slots given back by this shard's threads; only the sum over all means much
  };

  constexpr SlotPool(uint32_t index_max, uint32_t kept) : index_max_(index_max), kept_(kept) {}
  SlotPool(const SlotPool&) = delete;
  SlotPool& operator=(const SlotPool&) = delete;

  Shard& Mine() noexcept { return shards_[SlotShardOfThread()]; }

  // An empty slot's index, or 0 when this shard knows of none (then Rescue may help). The caller holds the
  // shard's lock. next_free(index) is the slot's word; make(index) prepares a slot that was never used, and
  // may throw.
  template <class NextFree, class Make>
  uint32_t Take(Shard& shard, NextFree next_free, Make make) {
    uint32_t index = 0;
    if (shard.older.count + shard.newer.count > kept_) {
      index = TakeOldest(shard, next_free);
    } else {
      const std::lock_guard lock(common_lock_);
      const bool fresh_left = next_index_ <= index_max_;
      if (common_.count > kept_ || (common_.count != 0 && !fresh_left)) {
        index = Pop(common_, next_free);
      } else if (fresh_left) {
        make(next_index_);
        index = next_index_++;
      }
    }
    if (index == 0) index = TakeOldest(shard, next_free);
    shard.live += index != 0;
    return index;
  }

  // The caller holds the shard's lock.
  template <class NextFree>
  void Give(Shard& shard, uint32_t index, NextFree next_free) noexcept {
    --shard.live;
    next_free(index) = 0;
    Join(shard.newer, {index, index, 1}, next_free);
    if (shard.newer.count < kept_) return;
    if (shard.older.count != 0) {
      const std::lock_guard lock(common_lock_);
      Join(common_, std::exchange(shard.older, {}), next_free);
    }
    shard.older = std::exchange(shard.newer, {});
  }

  // Moves what all shards keep to the common queue; false when that leaves nothing to take. The caller holds
  // no lock.
  template <class NextFree>
  bool Rescue(NextFree next_free) noexcept {
    for (Shard& shard : shards_) {
      const std::lock_guard shard_lock(shard.lock);
      const std::lock_guard lock(common_lock_);
      Join(common_, std::exchange(shard.older, {}), next_free);
      Join(common_, std::exchange(shard.newer, {}), next_free);
    }
    const std::lock_guard lock(common_lock_);
    return common_.count != 0 || next_index_ <= index_max_;
  }

  // Holds every lock: nothing is taken or given meanwhile.
  class AllShards {
   public:
    explicit AllShards(SlotPool& pool) noexcept : pool_(pool) {
      for (Shard& shard : pool_.shards_) shard.lock.lock();
      pool_.common_lock_.lock();
    }
    AllShards(const AllShards&) = delete;
    AllShards& operator=(const AllShards&) = delete;
    ~AllShards() {
      pool_.common_lock_.unlock();
      for (Shard& shard : pool_.shards_) shard.lock.unlock();
    }

    uint32_t NextIndex() const noexcept { return pool_.next_index_; }  // slots below it exist
    uint64_t Live() const noexcept {
      int64_t live = 0;
      for (const Shard& shard : pool_.shards_) live += shard.live;
      return static_cast<uint64_t>(live);
    }

   private:
    SlotPool& pool_;
  };

 private:
  template <class NextFree>
  static void Join(Queue& queue, Queue tail, NextFree next_free) noexcept {
    if (tail.count == 0) return;
    if (queue.count == 0)
      queue.head = tail.head;
    else
      next_free(queue.tail) = tail.head;
    queue.tail = tail.tail;
    queue.count += tail.count;
  }

  template <class NextFree>
  static uint32_t Pop(Queue& queue, NextFree next_free) noexcept {
    const uint32_t index = queue.head;
    if (--queue.count == 0)
      queue = {};
    else
      queue.head = next_free(index);
    return index;
  }

  template <class NextFree>
  static uint32_t TakeOldest(Shard& shard, NextFree next_free) noexcept {
    if (shard.older.count == 0) shard.older = std::exchange(shard.newer, {});
    return shard.older.count == 0 ? 0 : Pop(shard.older, next_free);
  }

  const uint32_t index_max_, kept_;
  std::array<Shard, kSlotShards> shards_{};
  alignas(64) SpinLock common_lock_;
  Queue common_;
  uint32_t next_index_ = 1;
};

}  // namespace brynd

#endif
