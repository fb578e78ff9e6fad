// Memory blocks: the engine's heap as its callers see it, addressed by 32-bit handles.
// (1) A block keeps its address from allocation until it is resized or freed, locked or not.
// (2) Finding a block needs no lock; a freed, forged or foreign handle is recognised and finds nothing.
// (3) Locks are counted for diagnosis alone: freeing a locked block is allowed, and its locks go with it.
// (4) The destroy hook of a block's type runs exactly once, in Free, before the bytes go.
// Any thread may call anything here; two threads must not resize or free one block while another uses it.
#ifndef BRYND_BASE_MEMORY_H
#define BRYND_BASE_MEMORY_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "base/bytes.h"
#include "base/status.h"

namespace brynd {

using MemHandle = uint32_t;  // 0 is no block

// The largest block; what is left of 32 bits keeps sums of a size and a small header from wrapping.
inline constexpr uint32_t kMemoryBlockBytesMax = 0x7fffffff;

// A kind of block that is more than bytes: destroy ends the life of what lies in it.
struct MemoryType {
  uint16_t code;
  const char* name;
  void (*destroy)(std::byte* bytes, uint32_t byte_count) noexcept;
};

struct MemoryStats {
  uint64_t blocks = 0;  // live blocks
  uint64_t bytes = 0;   // sum of their sizes as asked for
  uint64_t locks = 0;   // locks not yet given back
};

namespace memory {

// One block. handle is 0 while the slot is empty; the other fields mean something only while it is not.
// A cache line each: neighbours belong to other threads, and every lock writes.
struct alignas(64) Slot {
  std::atomic<uint32_t> handle{0};
  std::atomic<uint32_t> byte_count{0};
  std::atomic<std::byte*> address{nullptr};
  std::atomic<uint32_t> lock_count{0};
  std::atomic<uint16_t> code{0};
  std::atomic<const MemoryType*> type{nullptr};
  uint32_t next_handle = 0;
  uint32_t next_free = 0;
};

inline constexpr unsigned kIndexBits = 20, kChunkBits = 10;
inline constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
inline constexpr uint32_t kChunkSlots = 1u << kChunkBits;
inline constexpr uint32_t kChunkCount = 1u << (kIndexBits - kChunkBits);
extern std::atomic<Slot*> chunk_directory[kChunkCount];

// The slot of a live handle, or null.
inline Slot* FindSlot(MemHandle handle) noexcept {
  const uint32_t index = handle & kIndexMask;
  Slot* chunk = chunk_directory[index >> kChunkBits].load(std::memory_order_acquire);
  if (chunk == nullptr || handle == 0) return nullptr;
  Slot* slot = chunk + (index & (kChunkSlots - 1));
  return slot->handle.load(std::memory_order_acquire) == handle ? slot : nullptr;
}

// The address of a block without counting a lock, or null for a bad handle.
inline std::byte* Find(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  return slot == nullptr ? nullptr : slot->address.load(std::memory_order_acquire);
}

// The whole block in place without counting a lock; empty with a null address for a bad handle.
inline MutableBytes FindBytes(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  if (slot == nullptr) return {};
  return {slot->address.load(std::memory_order_acquire), slot->byte_count.load(std::memory_order_relaxed)};
}

// Counts a lock and gives the address; null for a bad handle.
inline std::byte* Lock(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  if (slot == nullptr) return nullptr;
  slot->lock_count.fetch_add(1, std::memory_order_relaxed);
  return slot->address.load(std::memory_order_acquire);
}

// Gives a lock back. False for a bad handle or a block that is not locked.
inline bool Unlock(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  if (slot == nullptr) return false;
  uint32_t count = slot->lock_count.load(std::memory_order_relaxed);
  while (count != 0)
    if (slot->lock_count.compare_exchange_weak(count, count - 1, std::memory_order_relaxed)) return true;
  return false;
}

// A new block; its bytes are not cleared. Status kNoMemory, kMemoryTooLarge. No bytes are a
// block too.
EngStatus Allocate(uint16_t code, uint32_t byte_count, MemHandle* handle) noexcept;
// As above for a block with a destroy hook; type must outlive the block.
EngStatus Allocate(const MemoryType& type, uint32_t byte_count, MemHandle* handle) noexcept;

EngStatus Free(MemHandle handle) noexcept;

// Resizes a block, locked or not; its address may change, its bytes up to the smaller size stay, further ones
// are not cleared. A failure leaves the block as it is. A block whose type has a destroy hook is refused
// (kBadArgument).
EngStatus Reallocate(MemHandle handle, uint32_t byte_count) noexcept;

// The size of a block; kBadHandle leaves byte_count alone.
EngStatus Size(MemHandle handle, uint32_t* byte_count) noexcept;

// The type of a block: its code, and its hook record or null. 0 and null for a bad handle.
uint16_t CodeOf(MemHandle handle) noexcept;
const MemoryType* TypeOf(MemHandle handle) noexcept;

MemoryStats Stats() noexcept;

// Calls visit(context, handle, code, byte_count, lock_count) for every live block, for the report of leaks.
using LeakVisitor = void (*)(void* context, MemHandle handle, uint16_t code, uint32_t byte_count,
                             uint32_t lock_count);
void ForEach(LeakVisitor visit, void* context) noexcept;

}  // namespace memory

// Owns a block and frees it, unless released.
class MemoryBlock {
 public:
  MemoryBlock() = default;
  explicit MemoryBlock(MemHandle handle) noexcept : handle_(handle) {}
  MemoryBlock(MemoryBlock&& other) noexcept : handle_(std::exchange(other.handle_, 0)) {}
  MemoryBlock& operator=(MemoryBlock&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.handle_, 0));
    return *this;
  }
  MemoryBlock(const MemoryBlock&) = delete;
  MemoryBlock& operator=(const MemoryBlock&) = delete;
  ~MemoryBlock() { Reset(); }

  MemHandle handle() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != 0; }
  std::byte* data() const noexcept { return memory::Find(handle_); }
  uint32_t size() const noexcept { return static_cast<uint32_t>(memory::FindBytes(handle_).size()); }
  MutableBytes bytes() const noexcept { return memory::FindBytes(handle_); }

  // Resizes the block; fails with its status.
  void Resize(uint32_t byte_count) { Check(memory::Reallocate(handle_, byte_count)); }

  // Hands the block over to the caller: used for output arguments, once nothing can fail any more.
  [[nodiscard]] MemHandle Release() noexcept { return std::exchange(handle_, 0); }

  void Reset(MemHandle handle = 0) noexcept {
    if (handle_ != 0) memory::Free(handle_);
    handle_ = handle;
  }

 private:
  MemHandle handle_ = 0;
};

// Holds one counted lock of a block.
class MemoryLock {
 public:
  // Fails with kBadHandle when there is no such block.
  explicit MemoryLock(MemHandle handle) : MemoryLock(handle, std::nothrow) {
    if (bytes_.data() == nullptr) Fail(status::kBadHandle);
  }
  MemoryLock(MemHandle handle, std::nothrow_t) noexcept {
    if (memory::Lock(handle) == nullptr) return;
    handle_ = handle;
    bytes_ = memory::FindBytes(handle);
  }
  MemoryLock(MemoryLock&& other) noexcept
      : handle_(std::exchange(other.handle_, 0)), bytes_(std::exchange(other.bytes_, MutableBytes{})) {}
  MemoryLock& operator=(MemoryLock&&) = delete;
  MemoryLock(const MemoryLock&) = delete;
  MemoryLock& operator=(const MemoryLock&) = delete;
  ~MemoryLock() {
    if (handle_ != 0) memory::Unlock(handle_);
  }

  explicit operator bool() const noexcept { return handle_ != 0; }
  std::byte* data() const noexcept { return bytes_.data(); }
  size_t size() const noexcept { return bytes_.size(); }
  MutableBytes bytes() const noexcept { return bytes_; }

 private:
  MemHandle handle_ = 0;
  MutableBytes bytes_;
};

// A new block of plain memory; fails with the status of memory::Allocate.
inline MemoryBlock MemoryAllocate(uint32_t byte_count, uint16_t code = 0) {
  MemHandle handle = 0;
  Check(memory::Allocate(code, byte_count, &handle));
  return MemoryBlock(handle);
}

// A new block with a copy of bytes; kMemoryTooLarge when they are too many.
MemoryBlock MemoryCopy(Bytes bytes, uint16_t code = 0);

// A block that holds an object of T; freeing the block destroys the object. T has a static MemoryType
// kMemoryType whose destroy is MemoryDestroy<T>:
//   static constexpr MemoryType kMemoryType{0x8101, "id table", MemoryDestroy<IdTable>};
template <class T>
void MemoryDestroy(std::byte* bytes, uint32_t) noexcept {
  std::destroy_at(std::launder(reinterpret_cast<T*>(bytes)));
}

template <class T, class... Arguments>
MemoryBlock MemoryMake(Arguments&&... arguments) {
  static_assert(alignof(T) <= alignof(std::max_align_t));
  // Made first and moved in, so that a constructor that throws never meets a half-made block.
  T object(std::forward<Arguments>(arguments)...);
  static_assert(std::is_nothrow_move_constructible_v<T>);
  MemHandle handle = 0;
  Check(memory::Allocate(T::kMemoryType, sizeof(T), &handle));
  std::construct_at(reinterpret_cast<T*>(memory::Find(handle)), std::move(object));
  return MemoryBlock(handle);
}

// The object in a block made by MemoryMake<T>, or null for any other handle.
template <class T>
T* MemoryObject(MemHandle handle) noexcept {
  memory::Slot* slot = memory::FindSlot(handle);
  if (slot == nullptr || slot->type.load(std::memory_order_relaxed) != &T::kMemoryType) return nullptr;
  return std::launder(reinterpret_cast<T*>(slot->address.load(std::memory_order_acquire)));
}

}  // namespace brynd

#endif
