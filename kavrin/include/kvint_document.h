// Records of open documents and their items, and the functions that other modules call on them.
#ifndef KVINT_DOCUMENT_H
#define KVINT_DOCUMENT_H

#include <strings.h>

#include "kavrin_item.h"
#include "kvint_database.h"
#include "kvint_form.h"
#include "kvint_session.h"

struct _DATAFIELD;
struct _DOC_ITEMLIST;

// One open document, owned by the session; or the document that an index has loaded, embedded in it and in no
// table.
struct _DOCUMENT {
  uint32_t document;
  uint32_t docid;  // 0 until a new document's first update
  _DATABASE* dbase;
  _DOC_ITEMLIST* itemlist;
  uint32_t itemlist_cursor;
  BLOCKID last_attach_bid;
  int32_t dirty;
  uint32_t notehand;
  _DATAFIELD* fieldlist;
  _FORMSPEC* form;       // set exactly when strict binding is in force
  _FORMSPEC* form_save;  // the form kept aside while strict binding is off
  int32_t sb_compute;
  uint16_t class_;
  char* title;
  int32_t new_;
  int32_t encrypted;
  int32_t embedded_form;
  uint32_t precrypt_notehand;
  uint32_t index;
  _COMPOSITE* complist;
  uint32_t exechand;
  uint16_t execlen;
  _DOCUMENT* prev;
  _DOCUMENT* next;
};

// Item table of KVItemList.
struct _DOC_ITEMLIST {
  _DOCUMENT* pDoc;
  KVITEM* pTable;
  uint32_t nCount;
};

// A converted value that a caller received by pointer.
struct _DATAFIELD {
  char* name;
  uint16_t namelen;
  int32_t form_type;
  int32_t in_form;
  FIELDSPEC* fieldspec;
  int32_t type;
  uint32_t length;
  void* buffer;
  BLOCKID blockid;
  _DATAFIELD* next;
};

// Databases and collection of a copy between databases.
struct COPYINFO {
  uint32_t src_dbhand;
  uint32_t dest_dbhand;
  uint16_t collhand;
};

// Where the value of an item lies, type word included.
struct ItemPlace {
  int32_t type;     // public type
  uint32_t length;  // bytes, type word included
  BLOCKID value;
  int32_t free_value;  // the value is a computed result: whoever asked frees its pool
};

constexpr char kExecuteItemName[] = "$$KVDocExecute!";  // stands for the value of the last executed formula
constexpr uint16_t kExecuteItemNameBytes = 15;
constexpr uint32_t kItemNameBytesMax = 64;  // of a name in an item table

// Documents

// State of a document by number, besides kStateTable.
constexpr int kStateDocumentEdits =
    21;  // composites and changes, stored unless the flags drop them; item table
constexpr int kStateDocumentValues = 22;  // what it handed out by pointer, its title, its form

// Runs the states in order and frees the record. With pbrynd_handle the engine's note stays open and goes to
// the caller.
uint32_t _CloseDOCUMENT(_api_session* session, uint32_t document, uint32_t docwrite_flags,
                        uint32_t* pbrynd_handle);
// Releases one kind of state; safe when it is empty. info points at the write flags in kStateDocumentEdits.
uint32_t _ClearDocState(_api_session* session, _DOCUMENT* doc, int state, const uint32_t* info);
// The open document with that note id; the pair asked for last is not changed. KVFAIL_NOT_FOUND is not
// recorded.
uint32_t _KVIDbFindDocByID(_api_session* session, const _DATABASE* pdbase, uint32_t docid, _DOCUMENT** ppDoc);
// Copies a note under a new identity; parent (optional) becomes its "$REF".
uint32_t CopyDocument(const COPYINFO* copyinfo, uint32_t src_noteid, uint32_t* dest_noteid,
                      UNIVERSALNOTEID* dest_unid, const UNIVERSALNOTEID* parent);

// Binding and computation

// Resolves a name and a caller's type against the form in force. With no form the caller's type passes
// through.
uint32_t GetItemTypeInfo(_FORMSPEC* formspec, const char* itemname, const int32_t* itemtype,
                         int32_t* form_type, const _DATAFIELD* datafield, FORMAT** format,
                         FIELDSPEC** fieldspec);
// The first cached spec of that name. KVFAIL_NOT_FOUND is not recorded.
uint32_t KVIDbGetFormspecByFormName(_DATABASE* dbase, const char* szFormName, _FORMSPEC** ppformspec);
// Binds a document to the form of its "Form" item, else to the one in its own items, else to the database's
// default form. Always 0: doc->form tells.
uint32_t _LoadDocumentForm(_api_session* session, _DATABASE* dbase, _DOCUMENT* doc);
// Unbinds a document that goes away. A form that came out of its items is freed, or left to another document
// that uses it.
void _KVIReleaseOwnForm(_api_session* session, _DOCUMENT* doc);
// Runs the form's formulas for a KVCOMPUTE_ event. What fails in a single field leaves it empty; an engine
// status comes from the marks alone that a form wants in its documents.
uint32_t _DocCompute(_api_session* session, _DOCUMENT* doc, int32_t ComputeEvent);
// Evaluates a compiled formula and stores its value as the field. An engine status, or one of the conversion.
uint32_t _ItemCompute(_api_session* session, _DOCUMENT* doc, const FIELDSPEC* fieldspec, const char* formula);
// Frees the value of the last executed formula; safe without one.
void _KVIFreeExecuteResult(_DOCUMENT* doc);

// Items

// Length of an item's name for the engine, which refuses the longest ones anyway.
inline uint16_t KVIItemNameBytes(const char* itemname) {
  const size_t name_bytes = std::strlen(itemname);
  return name_bytes < 0xffff ? static_cast<uint16_t>(name_bytes) : uint16_t{0xffff};
}
// True for the names that items functions do not see. Most names differ from them in length.
inline bool KVIIsHiddenItem(const char* itemname, uint16_t namelen) {
  if (namelen == 5) return strncasecmp(itemname, "$FILE", 5) == 0;
  if (namelen == 4) return strncasecmp(itemname, "$REF", 4) == 0;
  return false;
}
// Finds the value of an item: the first of the name whose type fits form_type, if that is not 0.
uint32_t GetItemInfo(_DOCUMENT* doc, const char* itemname, uint16_t namelen, int32_t form_type,
                     const FIELDSPEC* fieldspec, ItemPlace* place);
// Notes all items of the name, so that they can be deleted once their successor stands. KVFAIL_NO_MEMORY or
// an engine status; no item is noted then.
uint32_t _DeleteItemPrep(_api_session* session, _DOCUMENT* doc, const char* itemname, uint16_t namelen);
// Deletes the noted items; with a name, those of them that the note still has under it.
void _DeleteItem(_api_session* session, _DOCUMENT* doc, const char* itemname, uint16_t namelen);
// Forgets the noted items without deleting them.
void _DropDeleteList(_api_session* session);
// Turns a stored text with special sequences into display text in the session's buffer, type word in front.
uint32_t _TranslateItem(_api_session* session, _INDEX* idx, _DOCUMENT* doc, const void* data,
                        uint32_t* length);

// Values handed out by pointer

_DATAFIELD* GetDatafield(_DOCUMENT* doc, const char* fieldname, const int32_t* type, const int32_t* itemtype);
// A new node with the name, at the head of the document's list; null when there is no memory.
_DATAFIELD* KVIDatafieldAdd(_DOCUMENT* doc, const char* name, uint16_t namelen);
void KVIDatafieldFree(_DATAFIELD* field);

// Item table

uint32_t KVIItemListCreate(_DOCUMENT* doc, _DOC_ITEMLIST** ppList);
uint32_t KVIItemListLoadTable(_DOC_ITEMLIST* list);
uint32_t KVIItemListIterate(_DOC_ITEMLIST* list, uint32_t* cursor, int32_t iter, KVITEM** item);
void KVIItemListDestroy(_DOC_ITEMLIST** ppList);

#endif
