// Blocks of the engine's heap.
#include "base/memory.h"

#include "base/status.h"
#include "brynd_memory.h"

namespace memory = brynd::memory;
namespace status = brynd::status;

EngStatus EngMemAlloc(uint16_t type, uint32_t block_bytes, EngMem* block) {
  if (block == nullptr) return status::kBadArgument;
  brynd::MemHandle allocated = 0;
  if (EngStatus failure = memory::Allocate(type, block_bytes, &allocated)) return failure;
  brynd::StoreU32(block, allocated);
  return status::kOk;
}

EngStatus EngMemRealloc(EngMem block, uint32_t block_bytes) { return memory::Reallocate(block, block_bytes); }

EngStatus EngMemFree(EngMem block) { return memory::Free(block); }

void* EngMemLock(EngMem block) { return memory::Lock(block); }

EngStatus EngMemUnlock(EngMem block) { return memory::Unlock(block) ? status::kOk : status::kBadHandle; }

EngStatus EngMemSizeGet(EngMem block, uint32_t* block_bytes) {
  if (block_bytes == nullptr) return status::kBadArgument;
  uint32_t byte_count = 0;  // the caller's word may have any address
  if (EngStatus failure = memory::Size(block, &byte_count)) return failure;
  brynd::StoreU32(block_bytes, byte_count);
  return status::kOk;
}

void EngMemStats(uint64_t* blocks, uint64_t* bytes, uint64_t* locks) {
  const brynd::MemoryStats stats = memory::Stats();
  if (blocks != nullptr) brynd::StoreU64(blocks, stats.blocks);
  if (bytes != nullptr) brynd::StoreU64(bytes, stats.bytes);
  if (locks != nullptr) brynd::StoreU64(locks, stats.locks);
}
