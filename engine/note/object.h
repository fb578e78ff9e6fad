// Objects: bytes that belong to a database beside its notes, by a number.
//
// space::kObjects: key number 4 (high byte first), chunk 4 -> chunk 0 is the head {version 1, zero 1, class
// 2, bytes 4, checksum 4}; chunk n holds bytes (n - 1) * 64 KiB and on, each record {checksum 4, content}.
// (1) Numbers rise and are not used again.  (2) Each call is one write, but for those that join one.
// (3) What a chunk does not hold, or a chunk that is absent, is zeros; no record goes beyond the object's
// end.
// (4) space::kObjectUses has an empty record for each pair of an object and a stored note that names it in an
// item. With
//     the last note that names it, an object goes when that note is deleted or replaced, in the same write.
//     One that no stored note has named yet, or that a changed note names no more, stays until it is freed.
#pragma once

#include <cstdint>
#include <vector>

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

// The objects that items name, each once, rising.
using ObjectSet = std::vector<uint32_t>;
// The number in the value of an object item, which begins with its type word; 0 when it is none.
uint32_t ObjectOf(uint16_t type, Bytes value) noexcept;
ObjectSet ObjectsOf(const NoteImage& image);
void AddObject(ObjectSet* objects, uint32_t object);  // 0 is none

// The stored note named these objects before, and names others now.
void ChangeObjectUses(DatabaseWrite& write, uint32_t note_id, const ObjectSet& before, const ObjectSet& now);
// The stored note goes, or is replaced by another file's: objects that nobody else names are freed.
void ReleaseObjects(DatabaseWrite& write, uint32_t note_id, const ObjectSet& objects);

}  // namespace brynd
