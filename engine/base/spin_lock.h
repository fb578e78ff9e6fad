// A lock for sections of a few instructions that every call of several threads runs through: waiting for it
// costs less than being put to sleep and woken, which is what a mutex does when two readers meet in it.
// (1) Nothing waits, calls back or does I/O while holding one, but for diagnosis.  (2) Not recursive.
// (3) Who has one keeps it off the cache lines that other threads write.
#ifndef BRYND_BASE_SPIN_LOCK_H
#define BRYND_BASE_SPIN_LOCK_H

#include <sched.h>

#include <atomic>

namespace brynd {

class SpinLock {
 public:
  constexpr SpinLock() = default;
  SpinLock(const SpinLock&) = delete;
  SpinLock& operator=(const SpinLock&) = delete;

  void lock() noexcept {
    for (unsigned tries = 0; taken_.exchange(true, std::memory_order_acquire); ++tries) {
      // Its holder may have lost the processor: after some rounds let it have ours.
      if (tries % kTriesBeforeYield == kTriesBeforeYield - 1) sched_yield();
      while (taken_.load(std::memory_order_relaxed) && ++tries % kTriesBeforeYield != 0) {
      }
    }
  }
  void unlock() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  static constexpr unsigned kTriesBeforeYield = 1024;
  std::atomic<bool> taken_{false};
};

}  // namespace brynd

#endif
