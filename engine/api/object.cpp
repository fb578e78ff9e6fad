// Objects of a database.
#include "note/object.h"

#include "base/boundary.h"
#include "base/memory.h"
#include "brynd_db.h"

using brynd::AtBoundary;
using brynd::FindDatabase;
using brynd::Store;

namespace status = brynd::status;

EngStatus EngDbObjectAlloc(EngDb database, uint32_t object_bytes, uint16_t object_class, uint16_t,
                           uint32_t* object) {
  return AtBoundary([&]() -> EngStatus {
    brynd::Database& found = *FindDatabase(database);
    if (object == nullptr) return status::kBadArgument;
    Store<uint32_t>(object, brynd::AllocateObject(found, object_bytes, object_class));
    return status::kOk;
  });
}

EngStatus EngDbObjectRealloc(EngDb database, uint32_t object, uint32_t object_bytes) {
  return AtBoundary([&] { brynd::ResizeObject(*FindDatabase(database), object, object_bytes); });
}

EngStatus EngDbObjectFree(EngDb database, uint32_t object) {
  return AtBoundary([&] { brynd::FreeObject(*FindDatabase(database), object); });
}

EngStatus EngDbObjectRead(EngDb database, uint32_t object, uint32_t offset, uint32_t length, EngMem* memory) {
  return AtBoundary([&]() -> EngStatus {
    brynd::Database& found = *FindDatabase(database);
    if (memory == nullptr) return status::kBadArgument;
    Store<EngMem>(memory, brynd::ReadObject(found, object, offset, length).Release());
    return status::kOk;
  });
}

EngStatus EngDbObjectWrite(EngDb database, uint32_t object, EngMem memory, uint32_t offset, uint32_t length) {
  return AtBoundary([&]() -> EngStatus {
    brynd::Database& found = *FindDatabase(database);
    const brynd::MemoryLock block(memory);
    if (length > block.size()) return status::kBadArgument;
    brynd::WriteObject(found, object, offset, block.bytes().first(length));
    return status::kOk;
  });
}
