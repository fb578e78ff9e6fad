// Index handles: open, close, the teardown of what an index holds, and the count of its documents.
//
// (1) All state of an index goes in ClearIndexState and nowhere else. (2) A position is not cleared: whoever
// fills an index sets it.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

// ---- Teardown

namespace {

// A form that is not made yet is the index's own; all others are the database's.
void ClearActiveForm(_INDEX* idx) {
  _FORMSPEC* form = idx->active_form;
  idx->active_form = nullptr;
  if (form == nullptr || form->formid != 0) return;
  KVIFree(form->name);
  KVIFree(form);
}

void ClearActiveView(_INDEX* idx) {
  if (idx->active_view != nullptr && idx->active_view_dbase != nullptr) {
    // The spec knows one index alone: a later one may have taken the place.
    if (idx->active_view->used_in_index == idx) idx->active_view->used_in_index = nullptr;
    idx->active_view_dbase = nullptr;
  }
  idx->active_view = nullptr;
}

void ClearBindings(_INDEX* idx) {
  while (_BINDFIELD* bindfield = idx->bindlist) {
    idx->bindlist = bindfield->next;
    KVIFree(bindfield->name);
    KVIFree(bindfield);
  }
}

void CloseCollection(_INDEX* idx) {
  EngCollectionClose(idx->collhand);
  idx->collhand = 0;
  EngMemFree(idx->unread_hand);
  idx->unread_hand = 0;
}

// False when nothing was open.
bool ClearResult(_INDEX* idx) {
  ClearActiveForm(idx);
  ClearActiveView(idx);
  ClearBindings(idx);
  if (idx->doc_idlist != nullptr)
    KVIIdListFree(idx);
  else if (idx->collhand != 0)
    CloseCollection(idx);
  else if (idx->ftsearch == nullptr)
    return false;
  idx->doc_count = 0;
  idx->doc_index = 0;
  idx->index_datetime = KVDATETIME{};
  return true;
}

void ClearFullText(_INDEX* idx) {
  FTSEARCH* search = idx->ftsearch;
  if (search == nullptr) return;
  idx->ftsearch = nullptr;
  if (search->idtab != 0) EngMemFree(search->idtab);
  if (search->results != 0) EngMemFree(search->results);
  EngFullTextSearchClose(search->search_hand);
  KVIFree(search);
}

void FreeLocked(uint32_t* hand) {
  if (*hand == 0) return;
  EngMemUnlock(*hand);
  EngMemFree(*hand);
  *hand = 0;
}

uint32_t ClearRow(_INDEX* idx) {
  uint32_t status = KVSUCCESS;
  // A changed document is saved when its index moves on.
  if (idx->last_load.notehand != 0) status = KVDocumentClose(idx->last_load.document, 0);
  idx->last_load = _DOCUMENT{};
  FreeLocked(&idx->viewrow.summ_hand);
  FreeLocked(&idx->viewrow.index_hand);
  idx->viewrow = VIEWROW{};
  return status;
}

}  // namespace

uint32_t ClearIndexState(_INDEX* idx, int16_t state) {
  switch (state) {
    case kStateIndexAll:
      if (!ClearResult(idx)) return KVSUCCESS;
      ClearFullText(idx);
      return ClearRow(idx);
    case kStateIndexRow:
      return ClearRow(idx);
    case kStateIndexFullText:
      ClearFullText(idx);
      return KVSUCCESS;
    default:
      return KVSUCCESS;
  }
}

namespace {

bool IsOf(const _INDEX* idx, const _DATABASE* dbase, bool views) {
  return (views ? idx->active_view_dbase : idx->dbase) == dbase;
}

}  // namespace

// Each close may call the application's error procedure, which may close further indexes: the chain is looked
// at anew after each. An index that its own handle does not close is left, so that the walk ends.
void _KVICloseIndexesOf(_api_session* session, const _DATABASE* dbase, bool views) {
  for (_INDEX*& head : session->idxtab) {
    uint32_t closed = 0;
    for (;;) {
      const _INDEX* idx = head;
      while (idx != nullptr && !IsOf(idx, dbase, views)) idx = idx->next;
      if (idx == nullptr || idx->index == closed) break;
      closed = idx->index;
      (void)KVIndexClose(closed);
    }
  }
}

// ---- Handles

uint32_t KVIndexOpen(uint32_t database, uint32_t* index) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (index == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(index, 0);
  auto* idx = KVIAllocate<_INDEX>();
  if (idx == nullptr) return KVError(KVFAIL_NO_MEMORY);
  if (uint32_t status = _KVINewHandle(session, &idx->index)) {
    KVIFree(idx);
    return KVError(status);
  }
  idx->dbase = dbase;
  idx->search_class = BRCLASS_DATA;
  _KVILinkIndex(session, idx);
  KVIStore<uint32_t>(index, idx->index);
  return KVSUCCESS;
}

uint32_t KVIndexClose(uint32_t index) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  (void)ClearIndexState(idx, kStateIndexAll);
  _KVIUnlinkIndex(session, idx);
  KVIFree(idx);
  return KVSUCCESS;
}

uint32_t KVIndexGetCount(uint32_t index) {
  _api_session* session;
  if (KVIEnter(index, &session)) return 0;
  const _INDEX* idx = _GetIndex(session, index);
  if (idx == nullptr) {
    KVError(KVFAIL_BAD_INDEX);
    return 0;
  }
  return idx->doc_count;
}
