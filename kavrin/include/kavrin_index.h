/* Indexes of Kavrin: a cursor over documents of one database, which are the result of a search or the rows of
 * a view.
 *
 * An index is empty when it is opened; a search or a view fills it, and a further one takes the place of what
 * it had. All functions run on the thread that owns the handles. */
#ifndef KAVRIN_INDEX_H
#define KAVRIN_INDEX_H

#include "kavrin_status.h"
#include "kavrin_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Flag of KVIndexOpenView: the view is walked as a plain list, one position for each row. */
enum { KVOPENVIEW_FLAT = 0x10000 };

/** Properties of an index. Where it is told, a property is read only. Texts need the room told, NUL
 * included. */
enum {
  KVPROP_INDEX_FORM_ID = 1,     /**< uint32_t: form of the index, 0 for none. Setting it clears an index that
                                     has a search result, a form or bindings */
  KVPROP_INDEX_VIEW_ID = 2,     /**< uint32_t: view or folder shown, 0 for none; read only */
  KVPROP_INDEX_IS_VIEW = 3,     /**< int32_t: 1 for the rows of a view, else 0; read only */
  KVPROP_INDEX_IS_FTSEARCH = 4, /**< int32_t: 1 under a full-text result, else 0; read only */
  KVPROP_INDEX_LEVEL = 5,       /**< uint32_t: level of the position in a view, from 0; read only */
  KVPROP_INDEX_SCORE = 6,       /**< uint32_t: score of the current row, 0 without scores; read only */
  KVPROP_INDEX_TITLE_LENGTH =
      7,                     /**< uint32_t: bytes of the window title of the current document; read only */
  KVPROP_INDEX_TITLE = 8,    /**< text of that length plus a NUL; read only */
  KVPROP_INDEX_DATABASE = 9, /**< uint32_t: handle of the database; read only */
  KVPROP_INDEX_SEARCH_CLASS = 10, /**< uint32_t: classes of records that searches look at; 16 bits are kept */
  KVPROP_INDEX_FORM_NAME = 11,   /**< text, 131 bytes: a form that is not made yet, empty for none. Setting it
                                      clears the index */
  KVPROP_INDEX_DATETIME = 12,    /**< KVDATETIME: when the result was made or the view opened; read only */
  KVPROP_INDEX_VCACHE_ROWS = 13, /**< uint32_t: rows of a view that are read at once. Only 1 is available in
                                      this version */
  KVPROP_INDEX_VCACHE_STATS = 14 /**< KVVIEWCACHESTATS: all zero when rows are read one by one; read only */
};

/** Directions of KVIndexNavigate. */
enum {
  KVNAV_NEXT = 0,   /**< next row; backward the previous one */
  KVNAV_END = 1,    /**< last row; backward the first one */
  KVNAV_PEER = 2,   /**< next row of the same parent; backward the previous one */
  KVNAV_CHILD = 3,  /**< first row below */
  KVNAV_PARENT = 4, /**< next row of a higher level; backward the parent */
  KVNAV_MAIN = 5,   /**< next main document; backward the previous one */
  KVNAV_CURRENT = 6 /**< stay */
};

/** Flags of KVIndexNavigate. */
enum {
  KVNAVF_PEEK = 1,        /**< tell the row, stay where the index is */
  KVNAVF_BACKWARD = 2,    /**< go the other way */
  KVNAVF_NO_CATEGORY = 4, /**< pass over category rows */
  KVNAVF_NO_TOTAL = 8     /**< pass over total rows */
};

/** Ids of rows that are no documents; both have the top bit, which no document's id has. */
#define KVDOCID_CATEGORY 0xffffffffu
#define KVDOCID_TOTAL 0xfffffffeu

#pragma pack(push, 1)

/** What the cache of a view's rows did. */
typedef struct KVVIEWCACHESTATS {
  uint32_t index;        /**< the index */
  uint32_t cache_rows;   /**< rows now held */
  uint32_t cache_size;   /**< bytes that hold them */
  uint32_t total_hits;   /**< moves */
  uint32_t refresh_hits; /**< of them, those that read rows anew */
  uint32_t fail_hits;    /**< of them, those that failed */
} KVVIEWCACHESTATS;

#pragma pack(pop)

/** Opens an empty index over a database.
 *  @param database the database; it stays open until its own close, which closes the index too
 *  @param index [out] new handle, 0 after a failure; closed with KVIndexClose
 *  @return KVSUCCESS, KVFAIL_NO_DATABASE, KVFAIL_NULL_PARAM (`index`), KVFAIL_NO_MEMORY. Owner's thread only.
 */
KVAPI uint32_t KVIndexOpen(uint32_t database, uint32_t* index);

/** Closes an index with its loaded document, which is saved if it was changed.
 *  @param index the index; its handle names nothing afterwards
 *  @return KVSUCCESS, KVFAIL_BAD_INDEX. Owner's thread only. */
KVAPI uint32_t KVIndexClose(uint32_t index);

/** Fills an index with the documents that a formula selects. What the index had goes first, also when the
 *  search fails.
 *  @param index the index
 *  @param formula selection formula; null or empty for none, which the engine refuses without a form. With a
 *    form, a `;` that ends it is overwritten with a NUL, and "@All" at its start means no formula
 *  @param formid form that the documents must have, 0 for any; only for searches of data documents
 *  @param begin_datetime only documents changed since; null for all
 *  @return KVSUCCESS, also when nothing was found; KVFAIL_BAD_INDEX, KVFAIL_NO_ACTION (a form, and another
 *    class than 1), KVFAIL_NO_FORM and other statuses of reading a form, KVFAIL_FORMULA (the message tells
 * the place), KVFAIL_DATA_TOO_LONG (over 65535 bytes of text), KVFAIL_NO_MEMORY, or an engine status. Owner's
 *    thread only. */
KVAPI uint32_t KVIndexSearch(uint32_t index, char* formula, uint32_t formid,
                             const KVDATETIME* begin_datetime);

/** The number of documents found, or of rows of a view: of those at the top, and of all for a flat one.
 *  @param index the index
 *  @return the number, 0 for an empty index and after a failure: KVErrorFetch tells KVFAIL_BAD_INDEX. Owner's
 *    thread only. */
KVAPI uint32_t KVIndexGetCount(uint32_t index);

/** Reads a property.
 *  @param index the index
 *  @param property KVPROP_INDEX_ number
 *  @param value [out] of the property's type
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (`value`, looked at first), KVFAIL_BAD_INDEX, KVFAIL_BAD_PROPERTY.
 * For the title besides the statuses of KVIndexNavigate, KVFAIL_BAD_DOCUMENT (the row is no document), or an
 *    engine status; the output is then 0 or empty. Owner's thread only. */
KVAPI uint32_t KVIndexGetProperty(uint32_t index, int32_t property, void* value);

/** Sets a property.
 *  @param index the index
 *  @param property KVPROP_INDEX_ number
 *  @param value of the property's type, the caller's
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (`value`, looked at first), KVFAIL_BAD_INDEX,
 *    KVFAIL_READ_ONLY_PROPERTY, KVFAIL_BAD_PROPERTY; KVFAIL_NO_FORM (no such form, an empty or a bad name)
 * and other statuses of reading a form, KVFAIL_NAME_IN_USE (a form has the name), KVFAIL_NO_MEMORY,
 *    KVFAIL_NOT_HIERARCHICAL (rows at once, but no view; KVErrorFetch does not tell it), KVFAIL_UNSUPPORTED
 *    (more than one row at once). Owner's thread only. */
KVAPI uint32_t KVIndexSetProperty(uint32_t index, int32_t property, const void* value);

/** Moves an index and tells the row that it reaches. Each move that is no peek closes the loaded document,
 *  which is saved if it was changed. After a failure at either end the index can be moved back.
 *  @param index the index
 *  @param direction KVNAV_ number
 *  @param nav_flags KVNAVF_ bits
 *  @param docid [out] the document, or KVDOCID_CATEGORY, KVDOCID_TOTAL; 0 after a failure; may be null
 *  @param indent [out] level of a category; indent of a document; 0 in a list; may be null
 *  @return KVSUCCESS, KVFAIL_BAD_INDEX, KVFAIL_DATA_UNAVAILABLE (empty index; no current row),
 *    KVFAIL_END_OF_DATA, KVFAIL_BAD_ENUM (`direction`), KVFAIL_NOT_HIERARCHICAL (PEER, CHILD, PARENT in a
 * list or under a full-text result), KVFAIL_NO_ACTION (CHILD backward), KVFAIL_INTERNAL (a flat view
 * changed), or an engine status. Owner's thread only. */
KVAPI uint32_t KVIndexNavigate(uint32_t index, int32_t direction, uint32_t nav_flags, uint32_t* docid,
                               uint32_t* indent);

/** The position of an index: 0 before the first row, then from 1; in a view with levels the number of the row
 *  at the top.
 *  @param index the index
 *  @return the position; KVFAIL_BAD_INDEX itself for no index. Owner's thread only. */
KVAPI uint32_t KVIndexGetPosition(uint32_t index);

/** Stands an index at a position.
 *  @param index the index
 *  @param position 0 before the first row; the number of rows and 1: at the end
 *  @return KVSUCCESS, KVFAIL_BAD_INDEX, KVFAIL_DATA_UNAVAILABLE (empty index), KVFAIL_END_OF_DATA (beyond),
 * or a status of KVIndexNavigate. Owner's thread only. */
KVAPI uint32_t KVIndexSetPosition(uint32_t index, uint32_t position);

/** Fills an index with the rows of a view. What the index had goes first, also when the view does not open.
 *  @param index the index
 *  @param view_database database with the view, 0 for that of the index
 *  @param viewid the view
 *  @param openview_flags KVOPENVIEW_FLAT, and in the low three bits flags for the engine: 1 builds the view's
 *    rows anew, 2 shows them as they are
 *  @return KVSUCCESS, KVFAIL_BAD_INDEX, KVFAIL_NULL_PARAM (`viewid` 0), KVFAIL_NO_DATABASE (`view_database`),
 *    KVFAIL_NO_VIEW, KVFAIL_BAD_FORMAT (damaged), KVFAIL_NO_MEMORY, KVFAIL_INTERNAL (the rows cannot be
 *    counted), or an engine status. Owner's thread only. */
KVAPI uint32_t KVIndexOpenView(uint32_t index, uint32_t view_database, uint32_t viewid,
                               uint32_t openview_flags);

/** As KVIndexOpenView, for a view or a folder.
 *  @param index the index
 *  @param vf_database database with the view or folder, 0 for that of the index
 *  @param vfid the view or folder
 *  @param openvf_flags as `openview_flags`
 *  @return as KVIndexOpenView, and KVFAIL_NO_FOLDER for a folder that is not usable. Owner's thread only. */
KVAPI uint32_t KVIndexOpenViewFolder(uint32_t index, uint32_t vf_database, uint32_t vfid,
                                     uint32_t openvf_flags);

/** The position in a view with levels, as numbers with dots between, one for each level.
 *  @param index the index
 *  @param length most characters, without the NUL; 0 for no limit
 *  @param position [out] `length` + 1 bytes
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (`position`, looked at first), KVFAIL_BAD_INDEX,
 *    KVFAIL_NOT_HIERARCHICAL (a list or a flat view), KVFAIL_DATA_UNAVAILABLE (empty index),
 *    KVFAIL_DATA_TOO_LONG (`position` is empty then; KVErrorFetch does not tell it). Owner's thread only. */
KVAPI uint32_t KVIndexGetViewPosition(uint32_t index, uint32_t length, char* position);

/** Stands an index at a row of a view with levels.
 *  @param index the index
 *  @param position numbers with dots between, one for each level, each from 1
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM (`position` null or empty, looked at first), KVFAIL_BAD_INDEX,
 *    KVFAIL_NOT_HIERARCHICAL (a list; a dot under a full-text result), KVFAIL_DATA_UNAVAILABLE (empty index,
 * flat view), KVFAIL_END_OF_DATA (no such row; KVErrorFetch does not tell it), or an engine status. After a
 * failure the index stands where it stood. Owner's thread only. */
KVAPI uint32_t KVIndexSetViewPosition(uint32_t index, const char* position);

#ifdef __cplusplus
}
#endif

#endif
