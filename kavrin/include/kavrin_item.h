/* Items of Kavrin: the named, typed values of a document.
 *
 * Names have 1 to 255 characters and are compared without regard to case. Each call converts between the type
 * of the item and the type that the caller asks for. "$FILE" and "$REF" are not seen by these functions.
 *
 * Wherever a call fills a buffer with text, the buffer has one byte more than the length given, for a NUL. A
 * length of 0 means that no limit is checked. All functions run on the thread that owns the handle. */
#ifndef KAVRIN_ITEM_H
#define KAVRIN_ITEM_H

#include "kavrin_status.h"
#include "kavrin_types.h"

/** Flags of KVItemPut: the low 16 bits are item flags of the engine, bits of 0x0767. */
enum {
  KVITEMFLAG_SIGN = 0x1,            /**< part of what a signature covers */
  KVITEMFLAG_SEAL = 0x2,            /**< encrypted when the document is */
  KVITEMFLAG_SUMMARY = 0x4,         /**< part of the summary that views and searches see */
  KVITEMFLAG_EDITORS = 0x20,        /**< names that may edit the document */
  KVITEMFLAG_NAMES = 0x40,          /**< names */
  KVITEMFLAG_PLACEHOLDER = 0x100,   /**< stands for a field without a value */
  KVITEMFLAG_PROTECTED = 0x200,     /**< changed by editors alone */
  KVITEMFLAG_READERS = 0x400,       /**< names that may read the document */
  KVITEMFLAG_SET_SUMMARY = 0x10000, /**< take only KVITEMFLAG_SUMMARY of the flags */
  KVITEMFLAG_REPLACE_ALL = 0x20000, /**< the flags replace those that the value would get */
  KVITEMFLAG_MASK = 0x30767         /**< bits that are looked at */
};

#pragma pack(push, 1)

/** One item of a document's item table. Programs that declare a version below 0x20306 get 34 characters of
 * name. */
typedef struct KVITEM {
  int32_t type;        /**< KVTYPE_ */
  char name[65];       /**< at most 64 characters; longer names are cut */
  uint32_t item_flags; /**< KVITEMFLAG_, those of the engine */
  uint32_t length;     /**< bytes of the value */
  void* value;         /**< the value when it was asked for: owned by the document, valid until it closes */
} KVITEM;

#pragma pack(pop)

#ifdef __cplusplus
extern "C" {
#endif

/** Counts the items of a document.
 *  @return the count; 0 also for a failure, which KVErrorFetch tells: KVFAIL_BAD_DOCUMENT */
KVAPI uint32_t KVItemGetCount(uint32_t document);

/** Lists the items of a document in their stored order. The table is made at the first call and does not see
 * later changes before KVLIST_REFRESH.
 *  @param document     an open document
 *  @param list         KVLIST_ direction
 *  @param get_pointer  not 0: `value` points to a copy of the value, owned by the document
 *  @param item         [out] the item, all zero on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_BAD_DOCUMENT, KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (no
 * current item), KVFAIL_DATA_TOO_LONG (the first entry of an empty table, which is all zero, was given: only
 * KVLIST_REFRESH goes on), KVFAIL_NO_ITEM (`get_pointer`, and the item is gone or its name was cut),
 * KVFAIL_BAD_ENUM, KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVItemList(uint32_t document, int32_t list, int32_t get_pointer, KVITEM* item);

/** Tells type, flags and length of an item as it is stored.
 *  @param type        [out, optional] KVTYPE_
 *  @param item_flags  [out, optional] flags of the engine
 *  @param length      [out, optional] bytes of the value; 4 for a composite
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`itemname` null or empty), KVFAIL_BAD_DOCUMENT, KVFAIL_NO_ITEM,
 * KVFAIL_NO_FIELD (not a field of the bound form), KVFAIL_BAD_HANDLE, or an engine status. Outputs are 0 on
 * failure. */
KVAPI uint32_t KVItemGetInfo(uint32_t document, const char* itemname, int32_t* type, uint32_t* item_flags,
                             uint32_t* length);

/** Tells how long an item is once converted.
 *  @param item_type    [in, out, optional] not 0 on entry: only an item that fits this type; 0 receives the
 * item's type
 *  @param buffer_type  [in, out, optional] the type wanted; 0, or null, means the item's own and receives it
 *  @param length       [out] bytes, without the NUL of a text
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`length`, or `itemname` null or empty), KVFAIL_BAD_DOCUMENT,
 * KVFAIL_NO_ITEM, KVFAIL_NO_FIELD, KVFAIL_BAD_ENUM, KVFAIL_ILLEGAL_CONVERSION, KVFAIL_BAD_FORMAT,
 * KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVItemGetLength(uint32_t document, const char* itemname, int32_t* item_type,
                               int32_t* buffer_type, uint32_t* length);

/** Reads an item into the caller's buffer.
 *  @param item_type      [in, out, optional] as in KVItemGetLength
 *  @param buffer_length  [in, out, optional] bytes of the buffer (a text may need one more, for its NUL); 0
 * or null: no limit. Receives the length of the value, 0 on failure
 *  @param buffer_type    [in, out, optional] as in KVItemGetLength
 *  @param buffer         [out] the value; its first bytes are cleared when there is no such item
 *  @return as KVItemGetLength (`buffer` in place of `length`), and KVFAIL_DATA_TOO_LONG (the value does not
 * fit and the session does not cut text) */
KVAPI uint32_t KVItemFetch(uint32_t document, const char* itemname, int32_t* item_type,
                           uint32_t* buffer_length, int32_t* buffer_type, void* buffer);

/** Gives a converted value by pointer. It stays valid until the same item is asked for again with the same
 * types, or until the document closes. The document owns it.
 *  @param buffer  [out] the address of the value, null on failure; a text has a NUL behind it
 *  @return as KVItemFetch, and KVFAIL_NO_MEMORY */
KVAPI uint32_t KVItemGetPointer(uint32_t document, const char* itemname, int32_t* item_type,
                                uint32_t* buffer_length, int32_t* buffer_type, void** buffer);

/** Writes an item, in place of all items of that name. The document is stored by its next save.
 *  @param item_type      type of the item, or 0 for `buffer_type`
 *  @param buffer_length  bytes of the value; for a text 0 means up to its NUL
 *  @param buffer_type    type of the value in `buffer`
 *  @param buffer         the value; may lie at any address
 *  @param item_flags     KVITEMFLAG_ bits; 0 lets the library decide: short values are summary items
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`itemname` null or empty, `buffer` null), KVFAIL_BAD_DOCUMENT,
 * KVFAIL_DATA_UNAVAILABLE (a text that is nothing but a cut character), KVFAIL_NO_FIELD, KVFAIL_BAD_ENUM,
 * KVFAIL_ILLEGAL_CONVERSION, KVFAIL_BAD_FORMAT, KVFAIL_DATA_TOO_LONG, KVFAIL_FORMULA, KVFAIL_NO_MEMORY,
 * KVFAIL_BAD_HANDLE, or an engine status. An old value is gone also when the engine refuses the new one. */
KVAPI uint32_t KVItemPut(uint32_t document, const char* itemname, int32_t item_type, uint32_t buffer_length,
                         int32_t buffer_type, const void* buffer, uint32_t item_flags);

/** Adds an entry to a text list item, or makes it.
 *  @param text             the entry
 *  @param length           its bytes, at most 65500; 0 means up to its NUL
 *  @param allow_duplicate  0: an entry that the list has already is refused with KVFAIL_NAME_IN_USE
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (name or text null or empty), KVFAIL_BAD_DOCUMENT,
 * KVFAIL_DATA_UNAVAILABLE, KVFAIL_NO_FIELD, KVFAIL_NO_ITEM (the field holds no text), KVFAIL_DATA_TOO_LONG,
 * KVFAIL_NAME_IN_USE, KVFAIL_BAD_HANDLE, or an engine status. With `allow_duplicate` an entry that the engine
 * refuses (a full list) is not told: the list stays as it was. */
KVAPI uint32_t KVItemAppendTextList(uint32_t document, const char* itemname, const char* text,
                                    uint32_t length, int32_t allow_duplicate);

/** Copies an item into another document of the same thread, in place of all its items of that name. Of
 * several items of one name the first that fits is copied; of a composite all its items.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_BAD_DOCUMENT (destination, then source), KVFAIL_NO_FIELD,
 * KVFAIL_NO_ITEM, KVFAIL_NO_MEMORY, or an engine status */
KVAPI uint32_t KVItemCopy(uint32_t src_document, const char* itemname, uint32_t dest_document);

/** Deletes all items of a name.
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM, KVFAIL_BAD_DOCUMENT, KVFAIL_NO_FIELD (not a field of the bound
 * form), KVFAIL_NO_ITEM, KVFAIL_BAD_HANDLE, or an engine status */
KVAPI uint32_t KVItemDelete(uint32_t document, const char* itemname);

#ifdef __cplusplus
}
#endif

#endif
