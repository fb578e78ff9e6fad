/* Composites of Kavrin: rich text, an ordered run of records under one item name of a document.
 *
 * A composite is opened on an item, made anew, or copied; its records are numbered from 1 and are read,
 * inserted, replaced and deleted by number. Its changes go into the open document when the composite is
 * closed, or when the document is saved or closed; they are stored with the document.
 *
 * Handles belong to their thread. In threads other than the one that started the library, only handles of
 * KVCompositeCreate can be used further: those that the other functions give are KVFAIL_BAD_HANDLE or
 * KVFAIL_BAD_COMPOSITE there.
 *
 * Records cross this interface as the structures below. Types 1 to 5 and 12 are known to this version; all
 * others are read as KVCDTYPE_UNKNOWN, can be copied as that, and give KVFAIL_UNSUPPORTED when they are
 * written as their own type. */
#ifndef KAVRIN_COMPOSITE_H
#define KAVRIN_COMPOSITE_H

#include "kavrin_convert.h"
#include "kavrin_status.h"
#include "kavrin_types.h"

/** Types of records. 11 is none and is refused with KVFAIL_BAD_ENUM. */
enum {
  KVCDTYPE_UNKNOWN = 1,   /**< KVCDUNKNOWN: any record as its stored bytes */
  KVCDTYPE_PABDEF = 2,    /**< KVCDPABDEF: definition of a paragraph style */
  KVCDTYPE_PABREF = 3,    /**< KVCDPABREF: the style of what follows */
  KVCDTYPE_PARAGRAPH = 4, /**< no structure: a paragraph starts */
  KVCDTYPE_TEXT = 5,      /**< KVCDTEXT: text in one font */
  KVCDTYPE_FIELD = 12     /**< KVCDFIELD: a field of a form */
};

/** Flags of KVCompositeClose. */
enum { KVCOMPWRITE_DISCARD = 0x1 /**< drop the changes */ };

/** Properties of KVCompositeGetProperty. */
enum {
  KVPROP_COMPOSITE_ITEMNAME = 1, /**< text of at most 64 characters (33 for programs that declare a version
                                    below 0x20306) and a NUL: name of the item, empty without one */
  KVPROP_COMPOSITE_DIRTY = 2,    /**< int32_t: 1 when the composite differs from its item */
  KVPROP_COMPOSITE_DOCUMENT = 3, /**< uint32_t: handle of its document */
  KVPROP_COMPOSITE_DATABASE = 4  /**< uint32_t: handle of the document's database */
};

#pragma pack(push, 1)

/** A record as its stored bytes. */
typedef struct KVCDUNKNOWN {
  uint32_t length;    /**< bytes, head included; a pad byte is not counted */
  uint32_t signature; /**< written: 0, or what the bytes say */
  char* buffer;       /**< the bytes; no NUL is added to a copy */
} KVCDUNKNOWN;

/** A paragraph style. Widths are in twips. Programs that declare a version below 0x40000 have no
 * `list_format`. */
typedef struct KVCDPABDEF {
  uint32_t pabid;                   /**< number of the style within the composite, 16 bits */
  uint32_t pab_flags;               /**< bits of 0x6aff */
  int32_t justify;                  /**< 0 left, 1 right, 2 full, 3 centred, 4 none */
  int32_t list_format;              /**< 0 none, 1 bullets, 2 numbers */
  uint32_t line_spacing;            /**< 0 single, 1 one and a half, 2 double */
  uint32_t lines_before_para;       /**< as line_spacing */
  uint32_t lines_after_para;        /**< as line_spacing */
  uint32_t left_margin_twips;       /**< of all lines but the first */
  uint32_t right_margin_twips;      /**< 0 for the width of the window */
  uint32_t first_left_margin_twips; /**< of the first line */
  uint32_t tab_count;               /**< tab stops in use, at most 20 */
  int32_t tab_twips[20];            /**< their places */
} KVCDPABDEF;

/** The style of the paragraphs that follow. */
typedef struct KVCDPABREF {
  uint32_t pabid; /**< number of the style */
} KVCDPABREF;

/** Text in one font. */
typedef struct KVCDTEXT {
  KVFONTSTYLE font; /**< its flag 0x40 is cleared by a write, in the caller's structure too */
  uint32_t length;  /**< bytes of the text, at most 65527; a line end at its end is not stored */
  char* buffer;     /**< the text; a NUL is added to a copy */
} KVCDTEXT;

/** A field of a form. */
typedef struct KVCDFIELD {
  int32_t type;         /**< KVTYPE_ */
  uint32_t field_flags; /**< bits of 0x3d3f */
  int32_t keywords;     /**< 0 none, else the kind of its choices, at most 4; 1 is read back as 3, 4 as 2 */
  KVFONTSTYLE font;     /**< as in KVCDTEXT */
  KVFORMAT format;      /**< how its value is shown */
  uint32_t default_formula_length;     /**< bytes of the texts in `buffer`, in this order */
  uint32_t input_trans_formula_length; /**< translation of what is entered */
  uint32_t input_valid_formula_length; /**< check of what is entered */
  uint32_t field_name_length;          /**< name, 1 to 64 characters */
  uint32_t field_desc_length;          /**< description */
  uint32_t field_keywords_length;      /**< choices, as a stored text list */
  char* buffer;                        /**< the six, one behind the other, without NULs */
} KVCDFIELD;

/** Any record. */
typedef union COMPDATA {
  KVCDUNKNOWN unknown;
  KVCDPABDEF pabdef;
  KVCDPABREF pabref;
  KVCDTEXT text;
  KVCDFIELD field;
} COMPDATA;

#pragma pack(pop)

/* Initialisers of structures to start from. */
/* clang-format off */
#define KVFONTSTYLE_DEFAULT {1, 0, 0, 10}
#define KVCDPABDEF_DEFAULT {0, 0, 0, 0, 0, 0, 0, 1440, 0, 1440, 0, {720}}
#define KVCDFIELD_DEFAULT \
  {2, 2, 0, KVFONTSTYLE_DEFAULT, {{1, 0, 0}, {0, 0, 0, 2}, {2, 14}}, 0, 0, 0, 0, 0, 0, NULL}
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif

/** Makes an empty composite. With a name, the document's items of that name are deleted, and a composite that
 * is open on it is closed without its changes.
 *  @param document   an open document of this thread; it counts as changed from here on
 *  @param itemname   name of the item that the composite is written to; null or empty for one that is never
 * written
 *  @param composite  [out] the handle, 0 on failure; closed with KVCompositeClose or with the document
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`composite`), KVFAIL_BAD_DOCUMENT, KVFAIL_NO_FIELD (not a field of
 * the bound form), KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE. Owner's thread only. */
KVAPI uint32_t KVCompositeCreate(uint32_t document, const char* itemname, uint32_t* composite);

/** Opens a composite on an item. Nothing of it is read before it is asked for.
 *  @param document   an open document of this thread
 *  @param itemname   name of the item
 *  @param composite  [out] the handle, 0 on failure; closed with KVCompositeClose or with the document
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`composite`; `itemname` null or empty), KVFAIL_BAD_DOCUMENT,
 * KVFAIL_NO_FIELD, KVFAIL_BAD_COMPOSITE (a field of another type), KVFAIL_NO_ITEM, KVFAIL_NO_MEMORY,
 * KVFAIL_BAD_HANDLE, or an engine status. Owner's thread only. */
KVAPI uint32_t KVCompositeOpen(uint32_t document, const char* itemname, uint32_t* composite);

/** Closes a composite, writing its changes into the document unless told otherwise. One without a name is
 * dropped.
 *  @param compwrite_flags  KVCOMPWRITE_ bits
 *  @return KVSUCCESS; KVFAIL_BAD_COMPOSITE, KVFAIL_INTERNAL (a record of more than 60000 bytes),
 * KVFAIL_BAD_FORMAT (damaged records), KVFAIL_NO_MEMORY, KVFAIL_BAD_HANDLE, or an engine status. After a
 * failure the composite is still open and the items are the old ones. Owner's thread only. */
KVAPI uint32_t KVCompositeClose(uint32_t composite, uint32_t compwrite_flags);

/** Reads a property of a composite.
 *  @param property  KVPROP_COMPOSITE_
 *  @param value     [out] of the property's type, at any address
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`value`), KVFAIL_BAD_COMPOSITE, KVFAIL_BAD_PROPERTY,
 * KVFAIL_BAD_HANDLE. Owner's thread only. */
KVAPI uint32_t KVCompositeGetProperty(uint32_t composite, int32_t property, void* value);

/** Copies a composite, with the changes it has at the moment.
 *  @param src_composite   an open composite of this thread
 *  @param dest_document   where the copy goes, a document of this thread; it counts as changed
 *  @param dest_itemname   as `itemname` of KVCompositeCreate
 *  @param dest_composite  [out] the copy's handle, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`dest_composite`), KVFAIL_BAD_COMPOSITE, KVFAIL_BAD_DOCUMENT,
 * KVFAIL_NO_FIELD, KVFAIL_NO_MEMORY, KVFAIL_INTERNAL (the source's item was deleted). Calling thread's
 * session. */
KVAPI uint32_t KVCompositeCopy(uint32_t src_composite, uint32_t dest_document, const char* dest_itemname,
                               uint32_t* dest_composite);

/** Copies records of a composite.
 *  @param record_index  first record, from 1
 *  @param record_count  records; what is more than there are is not missed, 0 gives an empty composite
 *  Others and statuses as KVCompositeCopy, and KVFAIL_DATA_UNAVAILABLE (no such record), KVFAIL_BAD_FORMAT
 * (damaged records). */
KVAPI uint32_t KVCompositeCopySubset(uint32_t src_composite, uint32_t record_index, uint32_t record_count,
                                     uint32_t dest_document, const char* dest_itemname,
                                     uint32_t* dest_composite);

/** Inserts a copy of all records of one composite into another. Its paragraph styles get numbers above those
 * of the other one. A listing that stands at or behind the place goes on further behind: by the records of
 * the inserted run and of the stored piece before it.
 *  @param main_composite  receives the records
 *  @param record_index    they go before this record; 0 for the end
 *  @param add_composite   stays as it is
 *  @return KVSUCCESS; KVFAIL_BAD_COMPOSITE (`add_composite`, then `main_composite`), KVFAIL_NAME_IN_USE (both
 * are the same), KVFAIL_DATA_UNAVAILABLE (`record_index`), KVFAIL_BAD_FORMAT (damaged records),
 * KVFAIL_NO_MEMORY, KVFAIL_INTERNAL (an item was deleted). Calling thread's session. */
KVAPI uint32_t KVCompositeMerge(uint32_t main_composite, uint32_t record_index, uint32_t add_composite);

/** Counts the records of a composite.
 *  @return the count, 0 for a failure that KVErrorFetch tells (KVFAIL_BAD_COMPOSITE, KVFAIL_BAD_HANDLE); a
 * failure to count is returned as it is (KVFAIL_BAD_FORMAT for damaged records). Owner's thread only. */
KVAPI uint32_t KVCDRecordGetCount(uint32_t composite);

/** Lists the records of a composite.
 *  @param list          KVLIST_ direction; there is no KVLIST_PREVIOUS
 *  @param cdtype        [in, out] the type wanted, 0 for any; receives the record's type
 *  @param record_index  [out, optional] its number, 0 on failure
 *  @return KVSUCCESS; KVFAIL_NULL_PARAM (`cdtype`), KVFAIL_BAD_COMPOSITE, KVFAIL_NO_ACTION (KVLIST_PREVIOUS),
 * KVFAIL_BAD_ENUM (`list`, `*cdtype`), KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE (KVLIST_LAST: none of that
 * type; KVLIST_CURRENT: none, or of another type; the record listed last is gone), KVFAIL_BAD_FORMAT (damaged
 * records), KVFAIL_BAD_HANDLE, or an engine status. Owner's thread only. */
KVAPI uint32_t KVCDRecordList(uint32_t composite, int32_t list, int32_t* cdtype, uint32_t* record_index);

/** Tells type and size of a record.
 *  @param cdtype         [in, out, optional] not 0 on entry: the type that the record must have,
 * KVCDTYPE_UNKNOWN for any; receives the type
 *  @param buffer_length  [out, optional] bytes of its variable part, without a NUL
 *  @return KVSUCCESS; KVFAIL_BAD_COMPOSITE, KVFAIL_BAD_ENUM (`*cdtype`), KVFAIL_DATA_UNAVAILABLE (no such
 * record), KVFAIL_ILLEGAL_CONVERSION (of another type), KVFAIL_BAD_FORMAT (damaged), KVFAIL_BAD_HANDLE, or an
 * engine status (a formula that cannot be told as text). Outputs are 0 on failure. Owner's thread only. */
KVAPI uint32_t KVCDRecordGetInfo(uint32_t composite, uint32_t record_index, int32_t* cdtype,
                                 uint32_t* buffer_length);

/** Reads a record into the caller's structure.
 *  @param cdtype    as in KVCDRecordGetInfo
 *  @param cdrecord  [in, out, optional] the structure of the type; its buffer pointer, if it has one, names
 * room for the bytes that KVCDRecordGetInfo tells and one more
 *  @return as KVCDRecordGetInfo, and KVFAIL_DATA_TOO_LONG (no buffer), KVFAIL_NO_MEMORY. Owner's thread only.
 */
KVAPI uint32_t KVCDRecordFetch(uint32_t composite, uint32_t record_index, int32_t* cdtype, void* cdrecord);

/** The same without a copy: the structure's buffer pointer is set to the composite's own bytes, valid until
 * the composite changes or ends. Formulas of a field are told as they are stored, and so are their lengths.
 */
KVAPI uint32_t KVCDRecordGetPointer(uint32_t composite, uint32_t record_index, int32_t* cdtype,
                                    void* cdrecord);

/** Inserts a record.
 *  @param record_index  it goes before this record; 0 for the end
 *  @param cdtype        KVCDTYPE_
 *  @param cdrecord      the structure of the type; not looked at for KVCDTYPE_PARAGRAPH
 *  @return KVSUCCESS; KVFAIL_BAD_COMPOSITE, KVFAIL_DATA_UNAVAILABLE (`record_index`), KVFAIL_BAD_ENUM
 * (`cdtype`, or a member), KVFAIL_UNSUPPORTED (a type that is not written yet), KVFAIL_NULL_PARAM (`cdrecord`
 * or its buffer), KVFAIL_BAD_FORMAT (a member, or stored records that are damaged), KVFAIL_DATA_TOO_LONG,
 * KVFAIL_BAD_FIELD_NAME (KVFAIL_NO_FIELD below version 0x40000), KVFAIL_FORMULA, KVFAIL_NO_MEMORY,
 * KVFAIL_INTERNAL (the item was deleted), KVFAIL_BAD_HANDLE, or an engine status. After a failure the
 * composite is as it was. Owner's thread only. */
KVAPI uint32_t KVCDRecordInsert(uint32_t composite, uint32_t record_index, int32_t cdtype, void* cdrecord);

/** Replaces a record, by one of any type and size.
 *  @param record_index  the record, from 1
 *  Others and statuses as KVCDRecordInsert. */
KVAPI uint32_t KVCDRecordUpdate(uint32_t composite, uint32_t record_index, int32_t cdtype, void* cdrecord);

/** Deletes records.
 *  @param record_index  the first one, from 1
 *  @param record_count  how many; what is more than there are is not missed
 *  @return KVSUCCESS; KVFAIL_NO_ACTION (`record_count` 0), KVFAIL_BAD_COMPOSITE, KVFAIL_DATA_UNAVAILABLE,
 * KVFAIL_BAD_FORMAT (damaged records), KVFAIL_NO_MEMORY, KVFAIL_INTERNAL (the item was deleted),
 * KVFAIL_BAD_HANDLE. Owner's thread only. */
KVAPI uint32_t KVCDRecordDelete(uint32_t composite, uint32_t record_index, uint32_t record_count);

#ifdef __cplusplus
}
#endif

#endif
