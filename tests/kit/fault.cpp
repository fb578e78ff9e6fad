#include "kit/fault.h"

#include <link.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "kvint_support.h"

namespace kit {

static constinit thread_local Fault* armed_fault = nullptr;

Fault* ArmedFault() { return armed_fault; }

Fault::Fault(FaultKind kind, uint32_t nth, uint16_t status, std::string_view name, bool for_good)
    : kind_(kind), left_(nth), status_(status), name_(name), for_good_(for_good) {
  hit_name_.reserve(64);  // written while allocations fail
  armed_fault = this;
}

Fault Fault::EngineCall(uint32_t nth, uint16_t status, std::string_view name, bool for_good) {
  return Fault(FaultKind::kEngineCall, nth, status, name, for_good);
}

Fault Fault::Allocation(uint32_t nth, bool for_good) {
  constexpr uint16_t kNoMemory = 0x107;
  return Fault(FaultKind::kAllocation, nth, kNoMemory, {}, for_good);
}

Fault::~Fault() { Disarm(); }

void Fault::Disarm() {
  if (armed_fault == this) armed_fault = nullptr;
}

bool Fault::Count(const char* what) {
  if (left_ == 0 && !for_good_) return false;
  if (left_ != 0 && --left_ != 0) return false;
  ++hits_;
  if (hits_ == 1) hit_name_ = what;
  return true;
}

bool Fault::FailsCall(const char* call) {
  if (!name_.empty() && name_ != call) return false;
  return Count(call);
}

bool Fault::FailsAllocation(const char* allocator) {
  return kind_ == FaultKind::kAllocation && Count(allocator);
}

Quiet::Quiet() : fault_(armed_fault) { armed_fault = nullptr; }
Quiet::~Quiet() { armed_fault = fault_; }

// ---- The library's heap: counts its blocks, fails when told to

static constinit std::atomic<int64_t> heap_blocks{0};

static void* AllocateCounted(size_t bytes) {
  if (armed_fault != nullptr && armed_fault->FailsAllocation("heap")) return nullptr;
  void* block = std::calloc(1, bytes);
  if (block != nullptr) heap_blocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

static void* ReallocateCounted(void* block, size_t new_bytes) {
  if (armed_fault != nullptr && armed_fault->FailsAllocation("heap")) return nullptr;
  void* resized = std::realloc(block, new_bytes);
  if (resized != nullptr && block == nullptr) heap_blocks.fetch_add(1, std::memory_order_relaxed);
  return resized;
}

static void ReleaseCounted(void* block) {
  if (block != nullptr) heap_blocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

static constexpr KVHEAP kCountingHeap{AllocateCounted, ReallocateCounted, ReleaseCounted};
static const bool heap_in_place = [] {
  pgHeap = &kCountingHeap;
  return true;
}();

int64_t HeapBlocks() { return heap_in_place ? heap_blocks.load(std::memory_order_relaxed) : 0; }

}  // namespace kit

// ---- operator new, of the engine too

// Where the C++ library's own code lies.
struct CodeRange {
  uintptr_t start = 0, end = 0;
};

static int FindCppLibrary(dl_phdr_info* info, size_t, void* range) {
  if (std::strstr(info->dlpi_name, "libstdc++") == nullptr) return 0;
  auto* found = static_cast<CodeRange*>(range);
  for (int header = 0; header < info->dlpi_phnum; ++header) {
    const auto& segment = info->dlpi_phdr[header];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
    found->start = info->dlpi_addr + segment.p_vaddr;
    found->end = found->start + segment.p_memsz;
  }
  return 1;
}

// Some functions of the C++ library (walking a folder is one) end the program when memory is short; what its
// own code allocates never fails here. Its templates, compiled into the engine, do fail.
static bool FromCppLibrary(const void* caller) {
  static const CodeRange range = [] {
    CodeRange found;
    dl_iterate_phdr(FindCppLibrary, &found);
    return found;
  }();
  const auto address = reinterpret_cast<uintptr_t>(caller);
  return address >= range.start && address < range.end;
}

static void* NewBlock(size_t bytes, size_t alignment, const void* caller) {
  kit::Fault* fault = kit::ArmedFault();
  if (fault != nullptr && !FromCppLibrary(caller) && fault->FailsAllocation("new")) return nullptr;
  if (bytes == 0) bytes = 1;
  if (alignment <= alignof(std::max_align_t)) return std::malloc(bytes);
  return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}

static void* NewOrThrow(size_t bytes, size_t alignment, const void* caller) {
  void* block = NewBlock(bytes, alignment, caller);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(size_t bytes) { return NewOrThrow(bytes, 1, __builtin_return_address(0)); }
void* operator new[](size_t bytes) { return NewOrThrow(bytes, 1, __builtin_return_address(0)); }
void* operator new(size_t bytes, std::align_val_t at) {
  return NewOrThrow(bytes, static_cast<size_t>(at), __builtin_return_address(0));
}
void* operator new[](size_t bytes, std::align_val_t at) {
  return NewOrThrow(bytes, static_cast<size_t>(at), __builtin_return_address(0));
}
void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  return NewBlock(bytes, 1, __builtin_return_address(0));
}
void* operator new[](size_t bytes, const std::nothrow_t&) noexcept {
  return NewBlock(bytes, 1, __builtin_return_address(0));
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
