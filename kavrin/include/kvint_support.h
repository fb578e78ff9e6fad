// Small helpers that every module uses: the heap seam, scope guards, memory moves through unaligned pointers,
// locked engine blocks. Nothing here knows the session.
#ifndef KVINT_SUPPORT_H
#define KVINT_SUPPORT_H

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "brynd.h"
#include "kavrin.h"

// The library's heap. Every string and record of the library comes from here; a test puts another heap in
// place to count blocks and to make the n-th allocation fail.
struct KVHEAP {
  void* (*allocate)(size_t bytes);                     // zero-filled; null when there is no memory
  void* (*reallocate)(void* block, size_t new_bytes);  // block may be null; null leaves the block as it is
  void (*release)(void* block);                        // block may be null
};
extern const KVHEAP kv_system_heap;
extern const KVHEAP* pgHeap;

// Zero-filled bytes; null when there is no memory. 0 bytes give a block of one.
void* KVIAllocateBytes(size_t bytes);
// Resized block, its old content kept, new bytes not cleared; null leaves the old block in place.
void* KVIReallocateBytes(void* block, size_t new_bytes);
void KVIFree(void* block);
// Heap copy of text_bytes characters with a NUL behind; null when there is no memory.
char* KVICopyText(const char* text, size_t text_bytes);

template <typename Record>
Record* KVIAllocate(size_t record_count = 1) {
  static_assert(std::is_trivially_copyable_v<Record>);
  if (record_count > SIZE_MAX / sizeof(Record)) return nullptr;
  return static_cast<Record*>(KVIAllocateBytes(record_count * sizeof(Record)));
}

// Grows or shrinks *records; false leaves it as it is. New records are not cleared.
template <typename Record>
bool KVIReallocate(Record** records, size_t record_count) {
  static_assert(std::is_trivially_copyable_v<Record>);
  if (record_count > SIZE_MAX / sizeof(Record)) return false;
  void* resized = KVIReallocateBytes(*records, record_count * sizeof(Record));
  if (resized == nullptr) return false;
  *records = static_cast<Record*>(resized);
  return true;
}

// Releases what *pointer holds and clears it.
template <typename Record>
void KVIFreeAndClear(Record** pointer) {
  KVIFree(*pointer);
  *pointer = nullptr;
}

// Runs an action at the end of its scope unless it was dismissed.
template <typename Action>
class KVGuard {
 public:
  explicit KVGuard(Action action) : action_(std::move(action)) {}
  ~KVGuard() {
    if (armed_) action_();
  }
  KVGuard(const KVGuard&) = delete;
  KVGuard& operator=(const KVGuard&) = delete;
  void Dismiss() { armed_ = false; }

 private:
  Action action_;
  bool armed_ = true;
};

// A locked engine block; bytes is null when the handle names none.
struct KVLocked {
  explicit KVLocked(uint32_t hand, size_t offset = 0)
      : hand_(hand),
        start_(static_cast<char*>(EngMemLock(hand))),
        bytes(start_ == nullptr ? nullptr : start_ + offset) {}
  ~KVLocked() {
    if (start_ != nullptr) EngMemUnlock(hand_);
  }
  KVLocked(const KVLocked&) = delete;
  KVLocked& operator=(const KVLocked&) = delete;

 private:
  uint32_t hand_;
  char* start_;

 public:
  char* bytes;
};

inline void KVICopyBytes(void* target, const void* source, size_t bytes) {
  if (bytes != 0) std::memcpy(target, source, bytes);
}

// A value at any address; pointers of callers and stored values may be unaligned.
template <typename Value>
Value KVILoad(const void* source) {
  Value value;
  std::memcpy(&value, source, sizeof value);
  return value;
}
template <typename Value>
void KVIStore(void* target, std::type_identity_t<Value> value) {
  std::memcpy(target, &value, sizeof value);
}
// The same for an output that the caller may leave out.
template <typename Value>
void KVIStoreIf(Value* target, std::type_identity_t<Value> value) {
  if (target != nullptr) std::memcpy(static_cast<void*>(target), &value, sizeof value);
}

inline void KVIKeepFirst(uint32_t* first, uint32_t status) {
  if (*first == KVSUCCESS) *first = status;
}

inline bool KVIEmpty(const char* text) { return text == nullptr || *text == 0; }

#endif
