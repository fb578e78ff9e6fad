/** @file brynd_item.h
 *  Items of open notes.
 *
 *  An item is named by a BLOCKID that stays valid until that item is deleted or the note closed, whatever
 *  happens to other items; the BLOCKID of its value is read by locking its pool and adding its block, and
 *  stays valid as long. A value starts with its type word, which value_bytes counts. Names have 1 to 255
 *  bytes and compare without regard to case; several items may have one name.
 *
 *  Item flags: 1 sign, 2 seal, 4 summary, 0x20 names that may edit, 0x40 names, 0x100 placeholder, 0x200
 *  protected, 0x400 names that may read.
 */
#ifndef BRYND_ITEM_H
#define BRYND_ITEM_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Finds the first item of a name. Each output may be null.
 *  @param item [out] the item
 *  @param type [out] type word
 *  @param value [out] its value, type word first
 *  @param value_bytes [out] bytes of the value, type word included
 *  @return 0, 0x1f0, 0x1f1, 0x222 no such item. */
BRYND_API EngStatus EngItemInfo(EngNote note, const char* name, uint16_t name_bytes, BLOCKID* item,
                                uint16_t* type, BLOCKID* value, uint32_t* value_bytes);

/** Finds the next item of a name behind another. Outputs as EngItemInfo.
 *  @param previous an item of that note
 *  @return 0, 0x1f0, 0x222 no further one. */
BRYND_API EngStatus EngItemInfoNext(EngNote note, BLOCKID previous, const char* name, uint16_t name_bytes,
                                    BLOCKID* item, uint16_t* type, BLOCKID* value, uint32_t* value_bytes);

/** All about an item. Each output may be null.
 *  @param name [out] without NUL
 *  @param name_capacity room at name; a longer name is cut
 *  @param name_bytes [out] bytes written at name
 *  @param flags [out] item flags; the others as EngItemInfo
 *  @return 0, 0x1f0, 0x222 no such item. */
BRYND_API EngStatus EngItemQuery(EngNote note, BLOCKID item, char* name, uint16_t name_capacity,
                                 uint16_t* name_bytes, uint16_t* flags, uint16_t* type, BLOCKID* value,
                                 uint32_t* value_bytes);

/** Calls back for each item, in stored order. The callback must not change the note.
 *  @return 0, the callback's result, 0x1f0, 0x1f1. */
BRYND_API EngStatus EngItemScan(EngNote note, EngItemCallback callback, void* parameter);

/** Adds an item; the value is copied.
 *  @param type type word
 *  @param value data without the type word, at any address
 *  @param value_bytes bytes of the data
 *  @return 0, 0x1f0, 0x1f1, 0x223 value too large, 0x224 bad name, 0x226 too many items. */
BRYND_API EngStatus EngItemAppend(EngNote note, uint16_t flags, const char* name, uint16_t name_bytes,
                                  uint16_t type, const void* value, uint32_t value_bytes);

/** Adds an item that takes over a block.
 *  @param value where the value starts: its type word; on success the note owns the pool, on failure the
 *    caller
 *  @param value_bytes bytes of the value, type word included
 *  @param reserved 0
 *  @return as EngItemAppend. */
BRYND_API EngStatus EngItemAppendByBlock(EngNote note, uint16_t flags, const char* name, uint16_t name_bytes,
                                         BLOCKID value, uint32_t value_bytes, uint16_t reserved);

/** Adds a copy of an item, of the same note or of another, to a note.
 *  @return 0, 0x1f0, 0x222, and as EngItemAppend. */
BRYND_API EngStatus EngItemCopy(EngNote destination, BLOCKID item);

/** Deletes the first item of a name.
 *  @return 0, 0x1f0, 0x222 no such item. */
BRYND_API EngStatus EngItemDelete(EngNote note, const char* name, uint16_t name_bytes);

/** Deletes one item.
 *  @return 0, 0x1f0, 0x222 no such item. */
BRYND_API EngStatus EngItemDeleteByBlock(EngNote note, BLOCKID item);

/** The first item of a name as text: a text as it is, cut to the limit between characters; other types
 *  converted.
 *  @param text [out] the text and a NUL; empty when there is no such item
 *  @param text_limit most bytes written, without the NUL
 *  @return bytes of the text, without the NUL; 0 when there is none. */
BRYND_API uint16_t EngItemTextGet(EngNote note, const char* name, char* text, uint16_t text_limit);

/** Replaces all items of a name by one text item with the summary flag.
 *  @param text_bytes bytes; 0xffff or 0xffffffff for a text that ends with NUL
 *  @return as EngItemAppend. */
BRYND_API EngStatus EngItemTextSet(EngNote note, const char* name, const char* text, uint32_t text_bytes);

/** Adds an entry to the first item of a name, a text list, making it when there is none.
 *  @param allow_duplicate 0: a text that is in the list already (without regard to case) is not added
 *    again
 *  @return as EngItemAppend, 0x229 the item is no text or text list, 0x230 the list is full. */
BRYND_API EngStatus EngItemTextListAppend(EngNote note, const char* name, const char* text,
                                          uint16_t text_bytes, uint16_t allow_duplicate);

/** @return entries of a text list item, 1 for a text item, 0 when there is none of either. */
BRYND_API uint16_t EngItemTextListCount(EngNote note, const char* name);

/** An entry of a text list item.
 *  @param entry from 0
 *  @param text [out] no NUL is written
 *  @param text_limit room in bytes; a longer entry is cut between characters
 *  @return bytes written, 0 when there is no such entry. */
BRYND_API uint16_t EngItemTextListEntry(EngNote note, const char* name, uint16_t entry, char* text,
                                        uint16_t text_limit);

/** The first item of a name as a number.
 *  @param number [out] at any address
 *  @return 1 when there is a number item of that name, else 0. */
BRYND_API int32_t EngItemNumberGet(EngNote note, const char* name, double* number);

/** Turns a text value into a composite value. Answers 0x1ff in this build.
 *  @param value a text value, type word first
 *  @param value_bytes bytes of the value, type word included
 *  @param font font of the text
 *  @param delimiter what ends a line of the text besides NUL; null for NUL alone
 *  @param flags 4
 *  @param memory [out] block with the composite value, type word first, owned by the caller
 *  @param length [out] its bytes, type word included
 *  @param reserved1 0 @param reserved2 0 @param reserved3 0 @param reserved4 0 */
BRYND_API EngStatus EngItemToComposite(BLOCKID value, uint32_t value_bytes, uint32_t font,
                                       const char* delimiter, uint16_t flags, EngMem* memory,
                                       uint32_t* length, uint32_t reserved1, uint32_t reserved2,
                                       uint32_t reserved3, uint32_t reserved4);

#ifdef __cplusplus
}
#endif

#endif
