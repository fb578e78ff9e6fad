// Sets of note ids: a compressed bitmap with a word of flags and a time.
// (1) A table lies in a memory block and goes with it.  (2) Ids are visited in rising order.
#ifndef BRYND_BASE_IDTABLE_H
#define BRYND_BASE_IDTABLE_H

#include <roaring/roaring.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "base/memory.h"
#include "brynd_types.h"

namespace brynd {

class IdTable {
 public:
  static constexpr MemoryType kMemoryType{0x8101, "id table", MemoryDestroy<IdTable>};

  IdTable();  // empty; no time
  IdTable(IdTable&&) noexcept = default;
  IdTable& operator=(IdTable&&) noexcept = default;

  // True when the id was not in the table before; Delete: when it was.
  bool Insert(uint32_t id);
  bool Delete(uint32_t id) noexcept;
  // Ids in rising order go in quickest.
  void InsertMany(const uint32_t* ids, size_t id_count);

  bool Contains(uint32_t id) const noexcept { return roaring_bitmap_contains(ids_.get(), id); }
  bool IsEmpty() const noexcept { return roaring_bitmap_is_empty(ids_.get()); }
  uint64_t Count() const noexcept { return roaring_bitmap_get_cardinality(ids_.get()); }

  // The smallest id, and the smallest one above an id.
  std::optional<uint32_t> First() const noexcept;
  std::optional<uint32_t> Next(uint32_t id) const noexcept;

  // Calls visit(id) for every id until it returns false.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    roaring_uint32_iterator_t at;
    roaring_init_iterator(ids_.get(), &at);
    for (; at.has_value; roaring_advance_uint32_iterator(&at))
      if (!visit(uint32_t{at.current_value})) return;
  }

  // Keeps the ids that are in both; takes in all of another table.
  void Intersect(const IdTable& other) noexcept;
  void Unite(const IdTable& other);

  // Bytes of the table when it is stored: a head and the packed bitmap.
  size_t StoredBytes() const noexcept;

  uint16_t flags = 0;
  TIMEDATE time{{0xffffffff, 0xffffff}};

 private:
  struct FreeBitmap {
    void operator()(roaring_bitmap_t* bitmap) const noexcept { roaring_bitmap_free(bitmap); }
  };
  std::unique_ptr<roaring_bitmap_t, FreeBitmap> ids_;
};

// A new table in a block of its own.
inline MemoryBlock MakeIdTable() { return MemoryMake<IdTable>(); }

// The table in a block, or null for any other handle.
inline IdTable* FindIdTable(EngIdTable handle) noexcept { return MemoryObject<IdTable>(handle); }

// As above; fails with kBadHandle.
IdTable& IdTableOf(EngIdTable handle);

}  // namespace brynd

#endif
