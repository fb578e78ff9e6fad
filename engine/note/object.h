// Objects: bytes that belong to a database beside its notes, by a number.
//
// space::kObjects: key number 4 (high byte first), chunk 4 -> chunk 0 is the head {version 1, zero 1, class
// 2, bytes 4, checksum 4}; chunk n holds bytes (n - 1) * 64 KiB and on, each record {checksum 4, content}.
// (1) Numbers rise and are not used again.  (2) Each call is one write, but for those that join one.
// (3) What a chunk does not hold, or a chunk that is absent, is zeros; no record goes beyond the object's
// end.
#pragma once

#include <cstdint>

#include "base/memory.h"
#include "note/database.h"

namespace brynd {

inline constexpr uint32_t kObjectBytesMax = kMemoryBlockBytesMax;
inline constexpr uint32_t kAllBytes = 0xffffffff;  // of an object, from the offset on

uint32_t AllocateObject(Database& database, uint32_t object_bytes, uint16_t object_class);
void ResizeObject(Database& database, uint32_t object, uint32_t object_bytes);
void FreeObject(Database& database, uint32_t object);
// Fails with kBadArgument when the range lies outside the object.
MemoryBlock ReadObject(Database& database, uint32_t object, uint32_t offset, uint32_t byte_count);
void WriteObject(Database& database, uint32_t object, uint32_t offset, Bytes content);

// As parts of a larger write. The copy's number, 0 when the source has no such object.
uint32_t CopyObjectInto(DatabaseWrite& write, Database& source, uint32_t object);
void FreeObjectInto(DatabaseWrite& write, uint32_t object);  // none is no failure

}  // namespace brynd
