// Sets of note ids.
#include "base/idtable.h"

#include "base/boundary.h"
#include "brynd_memory.h"

using brynd::AtBoundary;
using brynd::FindIdTable;
using brynd::IdTable;
using brynd::IdTableOf;
using brynd::Store;

namespace status = brynd::status;

namespace {

constexpr uint16_t kIdBytes = 4;

}  // namespace

EngStatus EngIdTableCreate(uint16_t id_bytes, EngIdTable* table) {
  return AtBoundary([&]() -> EngStatus {
    if (id_bytes != kIdBytes) return status::kBadArgument;
    if (table == nullptr) return status::kBadArgument;
    Store<EngIdTable>(table, brynd::MakeIdTable().Release());
    return status::kOk;
  });
}

EngStatus EngIdTableDestroy(EngIdTable table) {
  if (table == 0) return status::kOk;
  if (FindIdTable(table) == nullptr) return status::kBadHandle;
  return brynd::memory::Free(table);
}

EngStatus EngIdTableInsertId(EngIdTable table, uint32_t id, int32_t* inserted) {
  return AtBoundary([&] {
    const bool is_new = IdTableOf(table).Insert(id);
    if (inserted != nullptr) Store<int32_t>(inserted, is_new ? 1 : 0);
  });
}

EngStatus EngIdTableDeleteId(EngIdTable table, uint32_t id, int32_t* deleted) {
  return AtBoundary([&]() -> EngStatus {
    IdTable& ids = IdTableOf(table);
    const bool was_there = ids.Delete(id);
    if (deleted != nullptr) Store<int32_t>(deleted, was_there ? 1 : 0);
    return ids.IsEmpty() ? status::kIdTableEmpty : status::kOk;
  });
}

int32_t EngIdTableScan(EngIdTable table, int32_t first, uint32_t* id) {
  const IdTable* ids = FindIdTable(table);
  if (ids == nullptr) return 0;
  if (id == nullptr) return 0;
  const auto found = first != 0 ? ids->First() : ids->Next(brynd::LoadU32(id));
  if (!found) return 0;
  Store<uint32_t>(id, *found);
  return 1;
}

uint32_t EngIdTableCount(EngIdTable table) {
  const IdTable* ids = FindIdTable(table);
  return ids == nullptr ? 0 : static_cast<uint32_t>(ids->Count());
}

uint32_t EngIdTableByteSize(EngIdTable table) {
  const IdTable* ids = FindIdTable(table);
  return ids == nullptr ? 0 : static_cast<uint32_t>(ids->StoredBytes());
}

uint16_t EngIdTableFlagsGet(EngIdTable table) {
  const IdTable* ids = FindIdTable(table);
  return ids == nullptr ? uint16_t{0} : ids->flags;
}

EngStatus EngIdTableFlagsSet(EngIdTable table, uint16_t flags) {
  return AtBoundary([&] { IdTableOf(table).flags = flags; });
}

EngStatus EngIdTableTimeGet(EngIdTable table, TIMEDATE* time) {
  return AtBoundary([&]() -> EngStatus {
    const IdTable& ids = IdTableOf(table);
    if (time == nullptr) return status::kBadArgument;
    *time = ids.time;
    return status::kOk;
  });
}

EngStatus EngIdTableTimeSet(EngIdTable table, const TIMEDATE* time) {
  return AtBoundary([&]() -> EngStatus {
    IdTable& ids = IdTableOf(table);
    if (time == nullptr) return status::kBadArgument;
    ids.time = *time;
    return status::kOk;
  });
}
