// Handles and the tables that resolve them.
//
// A handle is the session's number in bits 22 to 30 over a running number that all kinds of object share. A
// table is a row of doubly linked buckets, new records first; a one-entry cache stands in front of it.
#include "kvint_composite.h"
#include "kvint_index.h"

uint32_t _KVINewNumber(_api_session* session, uint32_t* number) {
  // Past the limit numbers would run into the session's bits and name objects of other sessions.
  if (session->next_handle > kHandleNumberMax) return KVFAIL_NO_MEMORY;
  *number = session->next_handle++;
  return KVSUCCESS;
}

uint32_t _KVINewHandle(_api_session* session, uint32_t* handle) {
  uint32_t number = 0;
  if (uint32_t status = _KVINewNumber(session, &number)) return status;
  *handle = _KVISessionBits(session) | number;
  return KVSUCCESS;
}

// ---- What the four kinds of record have in common

template <auto Handle, typename Record>
static Record* FindInBucket(Record* bucket, uint32_t handle) {
  while (bucket != nullptr && bucket->*Handle != handle) bucket = bucket->next;
  return bucket;
}

template <typename Record>
static void LinkAtHead(Record** bucket, Record* record) {
  record->prev = nullptr;
  record->next = *bucket;
  if (*bucket != nullptr) (*bucket)->prev = record;
  *bucket = record;
}

// A record that is in no bucket has no neighbours and heads none, so nothing changes for it.
template <typename Record>
static void Unlink(Record** bucket, Record* record) {
  if (record->prev != nullptr)
    record->prev->next = record->next;
  else if (*bucket == record)
    *bucket = record->next;
  if (record->next != nullptr) record->next->prev = record->prev;
  record->next = record->prev = nullptr;
}

// ---- Databases

static _DATABASE** DatabaseBucket(_api_session* session, uint32_t database) {
  return &session->dbtab[KVIBucket(database, kDatabaseBuckets)];
}

_DATABASE* _GetDatabase(_api_session* session, uint32_t database) {
  _DATABASE* dbase = FindInBucket<&_DATABASE::database>(*DatabaseBucket(session, database), database);
  if (dbase == nullptr) return nullptr;
  session->hmruDB = database;
  session->pmruDB = dbase;
  return dbase;
}

void _KVILinkDatabase(_api_session* session, _DATABASE* dbase) {
  LinkAtHead(DatabaseBucket(session, dbase->database), dbase);
  session->hmruDB = dbase->database;
  session->pmruDB = dbase;
}

void _KVIUnlinkDatabase(_api_session* session, _DATABASE* dbase) {
  Unlink(DatabaseBucket(session, dbase->database), dbase);
  if (session->pmruDB != dbase) return;
  session->hmruDB = 0;
  session->pmruDB = nullptr;
}

// ---- Indexes

static _INDEX** IndexBucket(_api_session* session, uint32_t index) {
  return &session->idxtab[KVIBucket(index, kIndexBuckets)];
}

_INDEX* _GetIndex(_api_session* session, uint32_t index) {
  _INDEX* idx = FindInBucket<&_INDEX::index>(*IndexBucket(session, index), index);
  if (idx == nullptr) return nullptr;
  session->hmruIDX = index;
  session->pmruIDX = idx;
  return idx;
}

void _KVILinkIndex(_api_session* session, _INDEX* idx) {
  LinkAtHead(IndexBucket(session, idx->index), idx);
  session->hmruIDX = idx->index;
  session->pmruIDX = idx;
}

void _KVIUnlinkIndex(_api_session* session, _INDEX* idx) {
  Unlink(IndexBucket(session, idx->index), idx);
  _KVIForgetDocument(session, &idx->last_load);
  if (session->pmruIDX != idx) return;
  session->hmruIDX = 0;
  session->pmruIDX = nullptr;
}

// ---- Documents

static _DOCUMENT** DocumentBucket(_api_session* session, uint32_t document) {
  return &session->doctab[KVIBucket(document, kDocumentBuckets)];
}

// The document that an index has loaded is in no table; its handle is the index's with bit 31.
static _DOCUMENT* FindIndexDocument(_api_session* session, uint32_t document) {
  _INDEX* idx = _GetIndex(session, document & ~kIndexDocumentBit);
  return idx != nullptr && idx->last_load.notehand != 0 ? &idx->last_load : nullptr;
}

_DOCUMENT* _GetDocument(_api_session* session, uint32_t document) {
  _DOCUMENT* doc = (document & kIndexDocumentBit) != 0
                       ? FindIndexDocument(session, document)
                       : FindInBucket<&_DOCUMENT::document>(*DocumentBucket(session, document), document);
  if (doc == nullptr) return nullptr;
  session->hmruDOC = doc->document;
  session->pmruDOC = doc;
  return doc;
}

void _KVILinkDocument(_api_session* session, _DOCUMENT* doc) {
  LinkAtHead(DocumentBucket(session, doc->document), doc);
  session->hmruDOC = doc->document;
  session->pmruDOC = doc;
}

void _KVIForgetDocument(_api_session* session, const _DOCUMENT* doc) {
  if (session->pmruDOC != doc) return;
  session->hmruDOC = 0;
  session->pmruDOC = nullptr;
}

void _KVIUnlinkDocument(_api_session* session, _DOCUMENT* doc) {
  Unlink(DocumentBucket(session, doc->document), doc);
  _KVIForgetDocument(session, doc);
}

// ---- Composites

static _COMPOSITE** CompositeBucket(_api_session* session, uint32_t composite) {
  return &session->comptab[KVIBucket(composite, kCompositeBuckets)];
}

_COMPOSITE* _GetComposite(_api_session* session, uint32_t composite) {
  _COMPOSITE* comp = FindInBucket<&_COMPOSITE::composite>(*CompositeBucket(session, composite), composite);
  if (comp == nullptr) return nullptr;
  session->hmruCOMP = composite;
  session->pmruCOMP = comp;
  return comp;
}

// The bucket and the cache go by the bare number; the bucket of the full handle is the same one.
uint32_t _AddComposite(_api_session* session, _COMPOSITE* comp, uint32_t* number) {
  if (uint32_t status = _KVINewNumber(session, &comp->composite)) return status;
  LinkAtHead(CompositeBucket(session, comp->composite), comp);
  comp->docnext = comp->doc->complist;
  comp->doc->complist = comp;
  session->hmruCOMP = comp->composite;
  session->pmruCOMP = comp;
  *number = comp->composite;
  return KVSUCCESS;
}

void _KVIUnlinkComposite(_api_session* session, _COMPOSITE* comp) {
  Unlink(CompositeBucket(session, comp->composite), comp);
  if (session->pmruCOMP != comp) return;
  session->hmruCOMP = 0;
  session->pmruCOMP = nullptr;
}
