// Handles: numbers given out for objects of the engine, with a lock-free way back.
// A handle is, from its highest bit, kind | generation | slot index. Slot indices start at 1 and kinds of
// 32-bit handles are never 0, so no handle is 0.
// (1) A slot's word is the handle of its object, or 0 when it is empty: one comparison tells a live handle
//     from a stale, forged or foreign one.
// (2) A slot's generation moves on whenever it is given up, and freed slots wait in a queue (slot_pool.h), so
// that a
//     stale handle stays recognised for long.
// (3) Slots never move and chunks are not given back while the table lives: Find needs no lock.
// The table does not guard an object against removal by another thread while Find's caller uses it: engine
// handles belong to the thread that made them, and objects that are shared between threads are held by
// shared_ptr inside T.
#ifndef BRYND_BASE_HANDLE_TABLE_H
#define BRYND_BASE_HANDLE_TABLE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/slot_pool.h"
#include "base/status.h"

namespace brynd {

// How the bits of a handle are shared out; the kind distinguishes tables whose handles may be mixed up.
struct HandleLayout {
  uint32_t kind = 0;
  unsigned kind_bits = 4;
  unsigned generation_bits = 8;
  unsigned index_bits = 20;
};

// Kinds of 32-bit handles, one for each table of the engine; append, 15 is the last.
enum class HandleKind : uint32_t {
  kMemory = 1,
  kDatabase = 2,
  kNote = 3,
  kIdTable = 4,
  kCompute = 5,
  kCollection = 6,
  kSearch = 7,
  kObject = 8,
  kAgent = 9,
  kTask = 10,
  kLibrary = 11,
  kDirectory = 12,
  kName = 13,
  kOther = 14
};

constexpr HandleLayout Handles32(HandleKind kind) { return {static_cast<uint32_t>(kind), 4, 8, 20}; }
constexpr HandleLayout Handles16() { return {0, 0, 4, 12}; }  // collections: up to 4095 open, 16 generations

template <class T, HandleLayout kLayout>
class HandleTable {
 public:
  static constexpr unsigned kBits = kLayout.kind_bits + kLayout.generation_bits + kLayout.index_bits;
  static_assert(kBits == 32 || kBits == 16);
  using Handle = std::conditional_t<kBits == 32, uint32_t, uint16_t>;

  HandleTable() = default;
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  // Takes the object over and gives its handle. Fails with kTooManyOpen when every slot is taken.
  Handle Add(std::unique_ptr<T> object) {
    do {
      SlotPool::Shard& shard = pool_.Mine();
      const std::lock_guard lock(shard.lock);
      const uint32_t index = pool_.Take(shard, NextFree(), [this](uint32_t fresh) { MakeFresh(fresh); });
      if (index == 0) continue;
      Slot& slot = *SlotAt(index);
      const uint32_t handle = slot.next_handle;
      slot.object.store(object.get(), std::memory_order_release);
      slot.owner = std::move(object);
      slot.handle.store(handle, std::memory_order_release);
      return static_cast<Handle>(handle);
    } while (pool_.Rescue(NextFree()));
    Fail(status::kTooManyOpen);
  }

  // The object of a handle, or null when the handle is not a live one of this table. Lock-free.
  T* Find(uint32_t handle) const noexcept {
    const Slot* slot = SlotAt(handle & kIndexMask);
    if (slot == nullptr || slot->handle.load(std::memory_order_acquire) != handle || handle == 0)
      return nullptr;
    T* object = slot->object.load(std::memory_order_acquire);
    return slot->handle.load(std::memory_order_relaxed) == handle ? object : nullptr;
  }

  // The object of a handle; fails with kBadHandle when there is none.
  T& Get(uint32_t handle) const {
    T* object = Find(handle);
    if (object == nullptr) Fail(status::kBadHandle);
    return *object;
  }

  // Gives the object back to the caller and retires the handle; null when the handle is not live.
  std::unique_ptr<T> Remove(uint32_t handle) noexcept {
    Slot* slot = SlotAt(handle & kIndexMask);
    if (handle == 0 || slot == nullptr) return nullptr;
    SlotPool::Shard& shard = pool_.Mine();
    const std::lock_guard lock(shard.lock);
    uint32_t expected = handle;  // threads may come here together from different shards: one of them removes
    if (!slot->handle.compare_exchange_strong(expected, 0, std::memory_order_acq_rel)) return nullptr;
    slot->object.store(nullptr, std::memory_order_release);
    slot->next_handle = NextGeneration(handle);
    std::unique_ptr<T> object = std::move(slot->owner);
    pool_.Give(shard, handle & kIndexMask, NextFree());
    return object;
  }

  // Calls visit(handle, object) for every live object, in no stated order, holding the table's locks.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    const SlotPool::AllShards all(pool_);
    for (uint32_t index = 1; index < all.NextIndex(); ++index) {
      const Slot& slot = *SlotAt(index);
      if (slot.owner) visit(static_cast<Handle>(slot.handle.load(std::memory_order_relaxed)), *slot.owner);
    }
  }

  size_t Count() const noexcept { return static_cast<size_t>(SlotPool::AllShards(pool_).Live()); }

 private:
  // A cache line each: neighbours belong to other threads.
  struct alignas(64) Slot {
    std::atomic<uint32_t> handle{0};
    uint32_t next_handle = 0;
    std::atomic<T*> object{nullptr};
    std::unique_ptr<T> owner;
    uint32_t next_free = 0;
  };

  static constexpr uint32_t kIndexMask = (1u << kLayout.index_bits) - 1;
  static constexpr uint32_t kGenerationMask = ((1u << kLayout.generation_bits) - 1) << kLayout.index_bits;
  static constexpr unsigned kChunkBits = kLayout.index_bits < 8 ? kLayout.index_bits : 8;
  static constexpr uint32_t kChunkSlots = 1u << kChunkBits;
  static constexpr size_t kChunkCount = size_t{1} << (kLayout.index_bits - kChunkBits);
  // Freed slots wait until so many of a thread do.
  static constexpr uint32_t kFreeSlotsKept = kChunkSlots / 2;

  Slot* SlotAt(uint32_t index) const noexcept {
    Slot* chunk = directory_[index >> kChunkBits].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : chunk + (index & (kChunkSlots - 1));
  }

  static uint32_t FirstHandle(uint32_t index) noexcept {
    constexpr unsigned shift = kLayout.generation_bits + kLayout.index_bits;
    const uint32_t kind = shift >= 32 ? 0 : kLayout.kind << (shift % 32);
    return kind | (1u << kLayout.index_bits) | index;
  }

  static uint32_t NextGeneration(uint32_t handle) noexcept {
    const uint32_t generation = (handle + (1u << kLayout.index_bits)) & kGenerationMask;
    return (handle & ~kGenerationMask) | generation;
  }

  auto NextFree() const noexcept {
    return [this](uint32_t index) -> uint32_t& { return SlotAt(index)->next_free; };
  }

  void MakeFresh(uint32_t index) {
    std::atomic<Slot*>& chunk = directory_[index >> kChunkBits];
    if (chunk.load(std::memory_order_relaxed) == nullptr) {
      chunks_.push_back(std::make_unique<Slot[]>(kChunkSlots));
      chunk.store(chunks_.back().get(), std::memory_order_release);
    }
    SlotAt(index)->next_handle = FirstHandle(index);
  }

  std::array<std::atomic<Slot*>, kChunkCount> directory_{};
  mutable SlotPool pool_{kIndexMask, kFreeSlotsKept};
  std::vector<std::unique_ptr<Slot[]>>
      chunks_;  // changed by who makes a fresh slot, which the pool lets one do
};

}  // namespace brynd

#endif
