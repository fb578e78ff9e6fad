// The table of memory blocks. Slots are handed out and taken back under one lock; everything else is lock-
// free. A handle is kind 1 (4 bits) | generation (8 bits) | slot index (20 bits), as in base/handle_table.h.
#include "base/memory.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "base/handle_table.h"
#include "base/spin_lock.h"

namespace brynd::memory {

constinit std::atomic<Slot*> chunk_directory[kChunkCount] = {};

namespace {

constexpr HandleLayout kLayout = Handles32(HandleKind::kMemory);
static_assert(kLayout.index_bits == kIndexBits);
constexpr uint32_t kGenerationUnit = 1u << kIndexBits;
constexpr uint32_t kGenerationMask = ((1u << kLayout.generation_bits) - 1) << kIndexBits;
constexpr uint32_t kFirstHandle = kLayout.kind << (kIndexBits + kLayout.generation_bits) | kGenerationUnit;
// Freed slots wait until so many of them do: a handle stays recognised as freed through this many times 256
// further frees.
constexpr uint32_t kFreeSlotsKept = 512;

#ifndef NDEBUG
// What a block holds before it is written, after it is freed.
constexpr int kFreshPattern = 0xcd, kFreedPattern = 0xdd;

void Poison(std::byte* bytes, int pattern, size_t byte_count) noexcept {
  std::memset(bytes, pattern, byte_count);
}
#endif

// What only the holder of mutex touches.
struct Table {
  SpinLock mutex;
  std::vector<std::unique_ptr<Slot[]>> chunks;
  uint32_t next_index = 1;
  uint32_t free_head = 0, free_tail = 0, free_count = 0;
};

Table& TheTable() {
  // Never destroyed: blocks may outlive static objects.
  static Table* table = std::make_unique<Table>().release();
  return *table;
}

Slot* SlotAt(uint32_t index) noexcept {
  return chunk_directory[index >> kChunkBits].load(std::memory_order_relaxed) + (index & (kChunkSlots - 1));
}

// An empty slot's index, or 0. The caller holds the mutex.
uint32_t TakeSlot(Table& table) {
  const bool fresh_left = table.next_index <= kIndexMask;
  if (table.free_head != 0 && (table.free_count > kFreeSlotsKept || !fresh_left)) {
    const uint32_t index = table.free_head;
    table.free_head = SlotAt(index)->next_free;
    if (table.free_head == 0) table.free_tail = 0;
    --table.free_count;
    return index;
  }
  if (!fresh_left) return 0;
  std::atomic<Slot*>& chunk = chunk_directory[table.next_index >> kChunkBits];
  if (chunk.load(std::memory_order_relaxed) == nullptr) {
    table.chunks.push_back(std::make_unique<Slot[]>(kChunkSlots));
    chunk.store(table.chunks.back().get(), std::memory_order_release);
  }
  const uint32_t index = table.next_index++;
  SlotAt(index)->next_handle = kFirstHandle | index;
  return index;
}

void GiveSlot(Table& table, uint32_t index) noexcept {
  Slot* slot = SlotAt(index);
  slot->next_handle =
      (slot->next_handle & ~kGenerationMask) | ((slot->next_handle + kGenerationUnit) & kGenerationMask);
  slot->next_free = 0;
  if (table.free_tail == 0)
    table.free_head = index;
  else
    SlotAt(table.free_tail)->next_free = index;
  table.free_tail = index;
  ++table.free_count;
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
  Table& table = TheTable();
  std::lock_guard lock(table.mutex);
  const uint32_t index = TakeSlot(table);
  if (index == 0) return 0;
  Slot* slot = SlotAt(index);
  const MemHandle handle = slot->next_handle;
  slot->address.store(bytes, std::memory_order_relaxed);
  slot->byte_count.store(byte_count, std::memory_order_relaxed);
  slot->lock_count.store(0, std::memory_order_relaxed);
  slot->code.store(kind.code, std::memory_order_relaxed);
  slot->type.store(kind.type, std::memory_order_relaxed);
  slot->handle.store(handle, std::memory_order_release);
  return handle;
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
    Table& table = TheTable();
    std::lock_guard lock(table.mutex);
    Slot* slot = FindSlot(handle);
    if (slot == nullptr) return status::kBadHandle;
    // From here no other Free of this handle gets past the test.
    slot->handle.store(0, std::memory_order_release);
    bytes = slot->address.exchange(nullptr, std::memory_order_relaxed);
    byte_count = slot->byte_count.load(std::memory_order_relaxed);
    type = slot->type.exchange(nullptr, std::memory_order_relaxed);
    GiveSlot(table, handle & kIndexMask);
  }
  // Outside the mutex: a hook may free blocks of its own.
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
  Table& table = TheTable();
  std::lock_guard lock(table.mutex);
  for (uint32_t index = 1; index < table.next_index; ++index) {
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
