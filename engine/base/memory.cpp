// The table of memory blocks. Slots are handed out and taken back under the lock of the calling thread's
// shard (slot_pool.h); everything else is lock-free. A handle is kind 1 (4 bits) | generation (8 bits) | slot
// index (20 bits), as in base/handle_table.h.
#include "base/memory.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "base/handle_table.h"
#include "base/slot_pool.h"

namespace brynd::memory {

constinit std::atomic<Slot*> chunk_directory[kChunkCount] = {};

namespace {

constexpr HandleLayout kLayout = Handles32(HandleKind::kMemory);
static_assert(kLayout.index_bits == kIndexBits);
constexpr uint32_t kGenerationUnit = 1u << kIndexBits;
constexpr uint32_t kGenerationMask = ((1u << kLayout.generation_bits) - 1) << kIndexBits;
constexpr uint32_t kFirstHandle = kLayout.kind << (kIndexBits + kLayout.generation_bits) | kGenerationUnit;
// Freed slots wait until so many of a thread do: a handle stays recognised as freed through this many times
// 256 further frees by that thread.
constexpr uint32_t kFreeSlotsKept = 512;

#ifndef NDEBUG
// What a block holds before it is written, after it is freed.
constexpr int kFreshPattern = 0xcd, kFreedPattern = 0xdd;

void Poison(std::byte* bytes, int pattern, size_t byte_count) noexcept {
  std::memset(bytes, pattern, byte_count);
}
#endif

Slot* SlotAt(uint32_t index) noexcept {
  return chunk_directory[index >> kChunkBits].load(std::memory_order_relaxed) + (index & (kChunkSlots - 1));
}

constexpr auto kNextFree = [](uint32_t index) noexcept -> uint32_t& { return SlotAt(index)->next_free; };

struct Table {
  SlotPool pool{kIndexMask, kFreeSlotsKept};
  std::vector<std::unique_ptr<Slot[]>>
      chunks;  // changed by who makes a fresh slot, which the pool lets one do
};

Table& TheTable() {
  // Never destroyed: blocks may outlive static objects.
  static Table* table = std::make_unique<Table>().release();
  return *table;
}

void MakeFresh(uint32_t index) {
  std::atomic<Slot*>& chunk = chunk_directory[index >> kChunkBits];
  if (chunk.load(std::memory_order_relaxed) == nullptr) {
    std::vector<std::unique_ptr<Slot[]>>& chunks = TheTable().chunks;
    chunks.push_back(std::make_unique<Slot[]>(kChunkSlots));
    chunk.store(chunks.back().get(), std::memory_order_release);
  }
  SlotAt(index)->next_handle = kFirstHandle | index;
}

// Bytes of no length have an address too.
std::byte* RawAllocate(uint32_t byte_count) noexcept {
  auto* bytes = static_cast<std::byte*>(std::malloc(byte_count == 0 ? 1 : byte_count));
#ifndef NDEBUG
  if (bytes != nullptr) Poison(bytes, kFreshPattern, byte_count);
#endif
  return bytes;
}

struct BlockKind {
  uint16_t code;
  const MemoryType* type;
};

// Takes a slot for bytes and publishes it; the handle, or 0 when there is no slot.
MemHandle Publish(std::byte* bytes, uint32_t byte_count, BlockKind kind) {
  SlotPool& pool = TheTable().pool;
  do {
    SlotPool::Shard& shard = pool.Mine();
    const std::lock_guard lock(shard.lock);
    const uint32_t index = pool.Take(shard, kNextFree, MakeFresh);
    if (index == 0) continue;
    Slot* slot = SlotAt(index);
    const MemHandle handle = slot->next_handle;
    slot->address.store(bytes, std::memory_order_relaxed);
    slot->byte_count.store(byte_count, std::memory_order_relaxed);
    slot->lock_count.store(0, std::memory_order_relaxed);
    slot->code.store(kind.code, std::memory_order_relaxed);
    slot->type.store(kind.type, std::memory_order_relaxed);
    slot->handle.store(handle, std::memory_order_release);
    return handle;
  } while (pool.Rescue(kNextFree));
  return 0;
}

EngStatus AllocateKind(BlockKind kind, uint32_t byte_count, MemHandle* handle) noexcept {
  if (byte_count > kMemoryBlockBytesMax) return status::kMemoryTooLarge;
  std::byte* bytes = RawAllocate(byte_count);
  if (bytes == nullptr) return status::kNoMemory;
  MemHandle published = 0;
  try {
    published = Publish(bytes, byte_count, kind);
  } catch (...) {
    published = 0;  // no room for a further chunk of slots
  }
  if (published == 0) {
    std::free(bytes);
    return status::kNoMemory;
  }
  *handle = published;
  return status::kOk;
}

}  // namespace

EngStatus Allocate(uint16_t code, uint32_t byte_count, MemHandle* handle) noexcept {
  return AllocateKind({code, nullptr}, byte_count, handle);
}

EngStatus Allocate(const MemoryType& type, uint32_t byte_count, MemHandle* handle) noexcept {
  return AllocateKind({type.code, &type}, byte_count, handle);
}

EngStatus Free(MemHandle handle) noexcept {
  std::byte* bytes = nullptr;
  uint32_t byte_count = 0;
  const MemoryType* type = nullptr;
  {
    Slot* slot = FindSlot(handle);
    if (slot == nullptr) return status::kBadHandle;
    SlotPool& pool = TheTable().pool;
    SlotPool::Shard& shard = pool.Mine();
    const std::lock_guard lock(shard.lock);
    MemHandle expected = handle;  // threads may come here together from different shards: one of them frees
    if (!slot->handle.compare_exchange_strong(expected, 0, std::memory_order_acq_rel))
      return status::kBadHandle;
    bytes = slot->address.load(std::memory_order_relaxed);
    slot->address.store(nullptr, std::memory_order_relaxed);
    byte_count = slot->byte_count.load(std::memory_order_relaxed);
    type = slot->type.load(std::memory_order_relaxed);
    slot->type.store(nullptr, std::memory_order_relaxed);
    slot->next_handle = (handle & ~kGenerationMask) | ((handle + kGenerationUnit) & kGenerationMask);
    pool.Give(shard, handle & kIndexMask, kNextFree);
  }
  // Outside the lock: a hook may free blocks of its own.
  if (type != nullptr && type->destroy != nullptr) type->destroy(bytes, byte_count);
#ifndef NDEBUG
  Poison(bytes, kFreedPattern, byte_count);
#endif
  std::free(bytes);
  return status::kOk;
}

EngStatus Reallocate(MemHandle handle, uint32_t byte_count) noexcept {
  if (byte_count > kMemoryBlockBytesMax) return status::kMemoryTooLarge;
  Slot* slot = FindSlot(handle);
  if (slot == nullptr) return status::kBadHandle;
  const MemoryType* type = slot->type.load(std::memory_order_relaxed);
  if (type != nullptr && type->destroy != nullptr) return status::kBadArgument;
  void* moved = std::realloc(slot->address.load(std::memory_order_relaxed), byte_count == 0 ? 1 : byte_count);
  if (moved == nullptr) return status::kNoMemory;
#ifndef NDEBUG
  const uint32_t former_count = slot->byte_count.load(std::memory_order_relaxed);
  if (byte_count > former_count)
    Poison(static_cast<std::byte*>(moved) + former_count, kFreshPattern, byte_count - former_count);
#endif
  slot->address.store(static_cast<std::byte*>(moved), std::memory_order_release);
  slot->byte_count.store(byte_count, std::memory_order_relaxed);
  return status::kOk;
}

EngStatus Size(MemHandle handle, uint32_t* byte_count) noexcept {
  Slot* slot = FindSlot(handle);
  if (slot == nullptr) return status::kBadHandle;
  *byte_count = slot->byte_count.load(std::memory_order_relaxed);
  return status::kOk;
}

uint16_t CodeOf(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  return slot == nullptr ? uint16_t{0} : slot->code.load(std::memory_order_relaxed);
}

const MemoryType* TypeOf(MemHandle handle) noexcept {
  Slot* slot = FindSlot(handle);
  return slot == nullptr ? nullptr : slot->type.load(std::memory_order_relaxed);
}

void ForEach(LeakVisitor visit, void* context) noexcept {
  const SlotPool::AllShards all(TheTable().pool);
  for (uint32_t index = 1; index < all.NextIndex(); ++index) {
    const Slot& slot = *SlotAt(index);
    const MemHandle handle = slot.handle.load(std::memory_order_relaxed);
    if (handle != 0) visit(context, handle, slot.code, slot.byte_count, slot.lock_count);
  }
}

MemoryStats Stats() noexcept {
  MemoryStats stats;
  ForEach(
      [](void* context, MemHandle, uint16_t, uint32_t byte_count, uint32_t lock_count) {
        auto* sums = static_cast<MemoryStats*>(context);
        ++sums->blocks;
        sums->bytes += byte_count;
        sums->locks += lock_count;
      },
      &stats);
  return stats;
}

}  // namespace brynd::memory

namespace brynd {

MemoryBlock MemoryCopy(Bytes bytes, uint16_t code) {
  if (bytes.size() > kMemoryBlockBytesMax) Fail(status::kMemoryTooLarge);
  MemoryBlock block = MemoryAllocate(static_cast<uint32_t>(bytes.size()), code);
  CopyBytes(block.data(), bytes.data(), bytes.size());
  return block;
}

}  // namespace brynd
