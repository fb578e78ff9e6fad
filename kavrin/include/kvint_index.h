// Records of open indexes, and the functions that set them up, clear them, move them and read their rows.
//
// (1) An index is empty, has a list of document ids (doc_idlist), or a collection (collhand), never both.
// (2) It uses specs of forms and views, which belong to the databases; a form that has only a name is its
// own. (3) The row in viewrow lies in summ_hand, which stays locked. (4) Nothing is done with an index that
// its session's table does not hold, but by whoever is about to link it.
#ifndef KVINT_INDEX_H
#define KVINT_INDEX_H

#include "kavrin_index.h"
#include "kvint_document.h"

struct _INDEX_VCACHE;

// One binding of an item or of a column to a buffer of the caller's.
struct _BINDFIELD {
  char* name;        // null for a column
  uint16_t namelen;  // for a column its number
  int32_t form_type;
  int32_t in_form;
  FORMAT* format;
  FIELDSPEC* fieldspec;
  int32_t type;
  void* buffer;
  uint32_t length;
  uint32_t* datalen;
  int32_t* nullind;
  int32_t* update;
  _BINDFIELD* next;
};

// A full-text result that lies over an index, and what it hides.
struct FTSEARCH {
  EngSearch search_hand;
  EngMem results;    // of a list: header of 8 bytes, ids, a byte of score for each
  EngIdTable idtab;  // of a view
  int32_t use_scores;
  uint32_t score;  // of the current row
  COLLECTIONPOSITION collpos_save;
  int32_t coll_first_save;
  uint32_t doc_count_save;
  uint32_t doc_index_save;
  KVDATETIME index_datetime_save;
};

// The current row of a view.
struct VIEWROW {
  uint32_t summ_hand;      // the block that holds the row, locked
  uint32_t view_category;  // top byte of the entry's id
  uint16_t view_level;
  char* view_summary;  // an ITEM_TABLE
  uint32_t noteid;
  uint32_t index_hand;
  INDEXSPECIALINFO index_info;
  void* index_pos;
};

// One open index, owned by the session.
struct _INDEX {
  uint32_t index;
  _DATABASE* dbase;
  int32_t flat_view;
  uint16_t search_class;
  _FORMSPEC* active_form;
  _VIEWSPEC* active_view;
  _DATABASE* active_view_dbase;  // set when the view is another database's
  uint32_t* doc_idlist;          // ids, or addresses of chunks of ids
  int16_t doc_idlist_count;      // 0, 1: ids; 2 and more: that many chunks
  uint16_t collhand;
  COLLECTIONPOSITION collpos;
  uint32_t unread_hand;
  uint32_t collapse_hand;  // the collection's
  int32_t coll_first;      // the position is before the first row
  uint32_t doc_count;
  uint32_t doc_index;  // from 1; 0 before the first, doc_count + 1 behind the last
  _BINDFIELD* bindlist;
  _DOCUMENT last_load;
  VIEWROW viewrow;
  FTSEARCH* ftsearch;
  uint32_t key_index;
  KVDATETIME index_datetime;
  _INDEX_VCACHE* pvcache;
  _INDEX* next;
  _INDEX* prev;
};

constexpr uint32_t kIdListFirst = 512;   // ids of the first block
constexpr uint32_t kIdListChunk = 8192;  // ids of a chunk
constexpr uint32_t kIdListChunkBits = 13;
constexpr uint32_t kIdListSlots = 16;  // the list of chunks grows by so many
constexpr int16_t kIdListChunksMax = 0x7fff;

// Entry ids of rows that are no documents.
constexpr uint32_t kRowNotDocument = 0x80000000u;
constexpr uint32_t kRowKindMask = 0xc0000000u;
constexpr uint32_t kRowCategory = 0x80000000u;
constexpr uint32_t kRowTotal = 0xc0000000u;

constexpr uint16_t kCollectionLevelMax = 31;
constexpr uint16_t kMoreRows = 0x20;  // signal of a read

// What a read of rows gives, in this order.
constexpr uint32_t kReadNoteId = 0x1;
constexpr uint32_t kReadClass = 0x4;
constexpr uint32_t kReadIndent = 0x80;
constexpr uint32_t kReadTopCount = 0x100;
constexpr uint32_t kReadScore = 0x200;
constexpr uint32_t kReadValues = 0x2000;
constexpr uint32_t kReadRow = kReadNoteId | kReadClass | kReadIndent | kReadValues;
static_assert(kReadRow == 0x2085);

// How a collection is walked.
enum : uint16_t {
  kStepCurrent = 0,
  kStepNext = 1,
  kStepChild = 4,
  kStepNextPeer = 5,
  kStepPreviousPeer = 6,
  kStepPrevious = 9,
  kStepNextMain = 12,
  kStepPreviousMain = 13,
  kStepNextParent = 19,
  kStepNextHit = 29,
  kStepPreviousHit = 30,
  kStepCurrentHit = 31
};

// ---- State

constexpr int16_t kStateIndexAll = 24;       // form, view, bindings, result, and the two below
constexpr int16_t kStateIndexRow = 25;       // the loaded document and the row
constexpr int16_t kStateIndexFullText = 26;  // the full-text result, as it is

// Releases one kind of state; safe when it is empty. The status is that of closing the loaded document.
uint32_t ClearIndexState(_INDEX* idx, int16_t state);
// Closes the indexes that have their documents in the database, or, with views, those that show a view of it
// on the documents of another.
void _KVICloseIndexesOf(_api_session* session, const _DATABASE* dbase, bool views);
inline bool KVIIndexHasResult(const _INDEX* idx) {
  return idx->doc_idlist != nullptr || idx->collhand != 0 || idx->ftsearch != nullptr;
}

// ---- Lists of ids

// Appends an id, with doc_count as the place. False without memory; the list stands as it was.
bool KVIIdListAppend(_INDEX* idx, uint32_t noteid);
// The id at a place counted from 0 and below doc_count.
uint32_t KVIIdListAt(const _INDEX* idx, uint32_t place);
// Gives back the room behind the last id; the list of a search without a match becomes non-null. False
// without memory.
bool KVIIdListTrim(_INDEX* idx);
void KVIIdListFree(_INDEX* idx);

// Search callbacks: the first appends to the list of the index at index_ptr, the second puts ids into the id
// table whose handle is at idtab_ptr.
EngStatus SearchNoteID(void* index_ptr, const SEARCH_MATCH* search_match, const ITEM_TABLE* summary_buffer);
EngStatus SearchNoteIDTable(void* idtab_ptr, const SEARCH_MATCH* search_match,
                            const ITEM_TABLE* summary_buffer);

// The text of a search in a form: the form's test, and formula (may be null) behind it. A final `;` of the
// formula becomes a NUL. A string of the heap that the caller frees; null without memory.
char* _KVIComposeSearch(const char* form_name, char* formula);

// An id table of the documents of the index, owned by the caller. KVFAIL_NOT_VIEW_INDEX, or an engine
// status; not recorded.
uint32_t KVIIndexGetIDTable(_INDEX* pidx, EngIdTable* phIDT);

// ---- Views

// Counts what the collection shows and stands before its first row. The statuses of the engine, of which one
// closes the collection of a flat view, and KVFAIL_INTERNAL.
uint32_t _KVIViewGetSize(_api_session* session, _INDEX* idx);

// ---- Moving

// The place before the first row.
inline void KVIStandAtStart(COLLECTIONPOSITION* position) {
  position->Level = 0;
  position->Tumbler[0] = 1;
}
// Copies the part of a position that means something.
inline void KVICopyPosition(COLLECTIONPOSITION* target, const COLLECTIONPOSITION& source) {
  const uint16_t level = source.Level > kCollectionLevelMax ? kCollectionLevelMax : source.Level;
  KVICopyBytes(target, &source, size_t{level} * sizeof(uint32_t) + 8);
}

struct IndexMove {
  int32_t direction;
  uint32_t nav_flags;
  uint32_t* docid;   // may be null
  uint32_t* indent;  // may be null
};
// The whole of KVIndexNavigate behind its prologue. Failures are not recorded.
uint32_t _KVIIndexNavigate(_api_session* session, _INDEX* idx, const IndexMove& move);
// The same on a collection.
uint32_t _KVICollectionNavigate(_api_session* session, _INDEX* idx, const IndexMove& move);

// ---- The loaded document

// Loads a document into last_load, which is empty.
uint32_t _LoadCurrentDoc(_api_session* session, _DATABASE* dbase, _INDEX* idx, uint32_t noteid,
                         uint32_t docopen_flags);

#endif
