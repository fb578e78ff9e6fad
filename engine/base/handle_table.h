// Handles: numbers given out for objects of the engine, with a lock-free way back.
// A handle is, from its highest bit, kind | generation | slot index. Slot indices start at 1 and kinds of
// 32-bit handles are never 0, so no handle is 0.
// (1) A slot's word is the handle of its object, or 0 when it is empty: one comparison tells a live handle
//     from a stale, forged or foreign one.
// (2) A slot's generation moves on whenever it is given up, and freed slots wait in a queue, so that a stale
//     handle stays recognised for long.
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

#include "base/spin_lock.h"
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
    std::lock_guard lock(mutex_);
    const uint32_t index = TakeSlot();
    Slot& slot = *SlotAt(index);
    const uint32_t handle = slot.next_handle;
    slot.object.store(object.get(), std::memory_order_release);
    slot.owner = std::move(object);
    slot.handle.store(handle, std::memory_order_release);
    ++count_;
    return static_cast<Handle>(handle);
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
    std::lock_guard lock(mutex_);
    Slot* slot = SlotAt(handle & kIndexMask);
    if (handle == 0 || slot == nullptr || slot->handle.load(std::memory_order_relaxed) != handle)
      return nullptr;
    slot->handle.store(0, std::memory_order_release);
    slot->object.store(nullptr, std::memory_order_release);
    slot->next_handle = NextGeneration(handle);
    GiveSlot(handle & kIndexMask);
    --count_;
    return std::move(slot->owner);
  }

  // Calls visit(handle, object) for every live object, in no stated order, holding the table's lock.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    std::lock_guard lock(mutex_);
    for (uint32_t index = 1; index < next_index_; ++index) {
      const Slot& slot = *SlotAt(index);
      if (slot.owner) visit(static_cast<Handle>(slot.handle.load(std::memory_order_relaxed)), *slot.owner);
    }
  }

  size_t Count() const noexcept {
    std::lock_guard lock(mutex_);
    return count_;
  }

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
  // Fresh slots are used first until so many wait.
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

  uint32_t TakeSlot() {
    const bool fresh_left = next_index_ <= kIndexMask;
    if (free_head_ != 0 && (free_count_ > kFreeSlotsKept || !fresh_left)) return TakeFreeSlot();
    if (!fresh_left) Fail(status::kTooManyOpen);
    if (directory_[next_index_ >> kChunkBits].load(std::memory_order_relaxed) == nullptr) AddChunk();
    const uint32_t index = next_index_++;
    SlotAt(index)->next_handle = FirstHandle(index);
    return index;
  }

  uint32_t TakeFreeSlot() noexcept {
    const uint32_t index = free_head_;
    free_head_ = SlotAt(index)->next_free;
    if (free_head_ == 0) free_tail_ = 0;
    --free_count_;
    return index;
  }

  void GiveSlot(uint32_t index) noexcept {
    SlotAt(index)->next_free = 0;
    if (free_tail_ == 0)
      free_head_ = index;
    else
      SlotAt(free_tail_)->next_free = index;
    free_tail_ = index;
    ++free_count_;
  }

  void AddChunk() {
    chunks_.push_back(std::make_unique<Slot[]>(kChunkSlots));
    directory_[next_index_ >> kChunkBits].store(chunks_.back().get(), std::memory_order_release);
  }

  std::array<std::atomic<Slot*>, kChunkCount> directory_{};
  mutable SpinLock mutex_;
  std::vector<std::unique_ptr<Slot[]>> chunks_;
  uint32_t next_index_ = 1;
  uint32_t free_head_ = 0, free_tail_ = 0, free_count_ = 0;
  size_t count_ = 0;
};

}  // namespace brynd

#endif
