#include "base/idtable.h"

#include <new>

#include "base/status.h"

namespace brynd {

namespace {

// Head of a stored table: version 2, flags 2, count 4, bytes of the bitmap 4, spare 4, time 8.
constexpr size_t kStoredHeadBytes = 2 + 2 + 4 + 4 + 4 + 8;

}  // namespace

IdTable::IdTable() : ids_(roaring_bitmap_create()) {
  if (ids_ == nullptr) throw std::bad_alloc();
}

bool IdTable::Insert(uint32_t id) { return roaring_bitmap_add_checked(ids_.get(), id); }

bool IdTable::Delete(uint32_t id) noexcept { return roaring_bitmap_remove_checked(ids_.get(), id); }

void IdTable::InsertMany(const uint32_t* ids, size_t id_count) {
  roaring_bitmap_add_many(ids_.get(), id_count, ids);
}

std::optional<uint32_t> IdTable::First() const noexcept {
  if (IsEmpty()) return std::nullopt;
  return roaring_bitmap_minimum(ids_.get());
}

std::optional<uint32_t> IdTable::Next(uint32_t id) const noexcept {
  if (id == UINT32_MAX) return std::nullopt;
  roaring_uint32_iterator_t at;
  roaring_init_iterator(ids_.get(), &at);
  if (!roaring_move_uint32_iterator_equalorlarger(&at, id + 1)) return std::nullopt;
  return at.current_value;
}

void IdTable::Intersect(const IdTable& other) noexcept {
  if (this != &other) roaring_bitmap_and_inplace(ids_.get(), other.ids_.get());
}

void IdTable::Unite(const IdTable& other) {
  if (this != &other) roaring_bitmap_or_inplace(ids_.get(), other.ids_.get());
}

size_t IdTable::StoredBytes() const noexcept {
  return kStoredHeadBytes + roaring_bitmap_portable_size_in_bytes(ids_.get());
}

IdTable& IdTableOf(EngIdTable handle) {
  IdTable* table = FindIdTable(handle);
  if (table == nullptr) Fail(status::kBadHandle);
  return *table;
}

}  // namespace brynd
