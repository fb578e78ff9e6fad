/** @file brynd_memory.h
 *  Blocks of the engine's heap, id tables, canonical records.
 *
 *  A block keeps its address from its allocation until EngMemRealloc or EngMemFree, locked or not. Locks
 *  are counted for diagnosis. A freed or made-up handle is recognised. Any thread may call anything here;
 *  two threads must not change one block at once.
 */
#ifndef BRYND_MEMORY_H
#define BRYND_MEMORY_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Takes a block. Its bytes are not cleared.
 *  @param type 0 for plain memory, or a word that tells the block's use
 *  @param block_bytes 0 to 0x7fffffff
 *  @param memory [out] the fresh block, owned by the caller
 *  @return 0, 0x107 no memory, 0x113 too large. */
BRYND_API EngStatus EngMemAlloc(uint16_t type, uint32_t block_bytes, EngMem* memory);

/** Changes the size of a block; its address may change, its bytes up to the smaller size stay. Id tables
 *  and other blocks with a life of their own are refused.
 *  @return 0, 0x107, 0x113, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngMemRealloc(EngMem memory, uint32_t block_bytes);

/** Frees a block, locked or not.
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngMemFree(EngMem memory);

/** The address of a block, counting a lock. Every lock is paired with an unlock.
 *  @return the address, null for a bad handle. */
BRYND_API void* EngMemLock(EngMem memory);

/** Gives a lock back; the address stays good.
 *  @return 0, 0x1f0 bad handle or not locked. */
BRYND_API EngStatus EngMemUnlock(EngMem memory);

/** The size of a block.
 *  @param block_bytes [out]
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngMemSizeGet(EngMem memory, uint32_t* block_bytes);

/** What the engine's heap holds, for tests and diagnosis. Each argument may be null.
 *  @param blocks [out] live blocks @param bytes [out] sum of their sizes @param locks [out] locks not
 *    given back */
BRYND_API void EngMemStats(uint64_t* blocks, uint64_t* bytes, uint64_t* locks);

/** Makes an empty set of note ids. It is a block of the engine's heap too: EngMemFree frees it as well;
 *  what lies in it is the engine's business.
 *  @param id_bytes 4
 *  @param table [out] owned by the caller
 *  @return 0, 0x107, 0x1f1. */
BRYND_API EngStatus EngIdTableCreate(uint16_t id_bytes, EngIdTable* table);

/** Frees an id table; 0 is none and no failure.
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngIdTableDestroy(EngIdTable table);

/** Puts an id into a table.
 *  @param inserted [out] 1 when it was not there before, else 0; may be null
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngIdTableInsertId(EngIdTable table, uint32_t id, int32_t* inserted);

/** Takes an id out of a table.
 *  @param deleted [out] 1 when it was there, else 0; may be null
 *  @return 0; 0x23c when no id is left in the table (deleted is set then too); 0x1f0. */
BRYND_API EngStatus EngIdTableDeleteId(EngIdTable table, uint32_t id, int32_t* deleted);

/** Walks a table in rising order.
 *  @param first non-zero: the smallest id; 0: the smallest one above *id
 *  @param id [in, out] the id reached; left alone at the end
 *  @return 1 while there is one, 0 at the end and for a bad handle. The table may change between the
 *    steps. */
BRYND_API int32_t EngIdTableScan(EngIdTable table, int32_t first, uint32_t* id);

/** @return the number of ids; 0 for a bad handle. */
BRYND_API uint32_t EngIdTableCount(EngIdTable table);

/** @return the bytes that the table takes when it is stored; 0 for a bad handle. */
BRYND_API uint32_t EngIdTableByteSize(EngIdTable table);

/** @return the table's flags, a word for its owner's use; 0 for a bad handle. */
BRYND_API uint16_t EngIdTableFlagsGet(EngIdTable table);

/** Sets the word that EngIdTableFlagsGet gives.
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngIdTableFlagsSet(EngIdTable table, uint16_t flags);

/** The time kept with a table; a fresh one has none (both words all ones, the second in its low 24 bits).
 *  @param time [out]
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngIdTableTimeGet(EngIdTable table, TIMEDATE* time);

/** Sets the time that EngIdTableTimeGet gives.
 *  @return 0, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngIdTableTimeSet(EngIdTable table, const TIMEDATE* time);

/** The bytes that one record of a type code takes in stored values.
 *  @return the size, 0 for an unknown code. */
BRYND_API uint16_t EngOdsLength(uint16_t type);

/** Moves records from a stored value into memory.
 *  @param source [in, out] address of the cursor into the stored value, which is moved on; it needs no
 *    alignment, and the caller has seen to it that the records lie whole in the value
 *  @param type type code; an unknown one moves nothing
 *  @param target [out] count packed records */
BRYND_API void EngOdsRead(const void** source, uint16_t type, void* target, uint16_t count);

/** Moves records from memory into a value to be stored.
 *  @param target [in, out] address of the cursor into the room for the value, which is moved on
 *  @param type type code; an unknown one moves nothing
 *  @param source count packed records */
BRYND_API void EngOdsWrite(void** target, uint16_t type, const void* source, uint16_t count);

#ifdef __cplusplus
}
#endif

#endif
