// Views and folders as indexes: opening them, and counting their rows.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kEngineFlagsMask = 7;

// Counts all rows. Nothing of the index is changed.
uint16_t CountRows(const _INDEX* idx, uint32_t* count) {
  COLLECTIONPOSITION position{};
  KVIStandAtStart(&position);
  const uint16_t step = idx->ftsearch != nullptr ? kStepNextHit : kStepNext;
  uint32_t skip_count = 0;
  uint32_t returned = 0;
  uint16_t signal = 0;
  do {
    EngMem page = 0;
    if (uint16_t brstatus = EngCollectionRead(idx->collhand, &position, step, skip_count, step, 0xffffffff, 0,
                                              &page, nullptr, nullptr, &returned, &signal))
      return brstatus;
    if (page != 0) EngMemFree(page);
    *count += returned;
    skip_count = 1;  // a page ends on the last row that it holds
  } while ((signal & kMoreRows) != 0 && returned != 0);
  return 0;
}

// Counts the rows at the top. A collection that does not tell them is one of KVFAIL_INTERNAL.
uint32_t CountTop(_INDEX* idx, uint32_t* count) {
  EngMem page = 0;
  uint16_t page_bytes = 0;
  if (EngCollectionRead(idx->collhand, &idx->collpos, kStepCurrent, 0, kStepCurrent, 0, kReadTopCount, &page,
                        &page_bytes, nullptr, nullptr, nullptr))
    return KVFAIL_INTERNAL;
  if (page == 0) return KVFAIL_INTERNAL;
  KVGuard free_page([&] { EngMemFree(page); });
  const KVLocked counts(page);
  if (page_bytes < sizeof(uint32_t)) return KVFAIL_INTERNAL;
  *count = KVILoad<uint32_t>(counts.bytes);
  if (idx->active_view != nullptr && (idx->active_view->flags & KVVIEWSPEC_TOTALED) != 0) ++*count;
  return KVSUCCESS;
}

// A view that is about to be opened.
struct ViewToOpen {
  _DATABASE* view_dbase;  // where it lies, if that is another physical database than the index's
  uint32_t viewid;
  uint32_t flags;
};

uint32_t TakeSpec(_INDEX* idx, const ViewToOpen& view) {
  _DATABASE* dbase = view.view_dbase != nullptr ? view.view_dbase : idx->dbase;
  _VIEWSPEC* spec = nullptr;
  if (uint32_t status = KVIViewGetSpec(dbase, view.viewid, &spec)) return status;
  if (spec == nullptr) return KVFAIL_NO_VIEW;
  idx->active_view = spec;
  idx->active_view_dbase = view.view_dbase;
  if (view.view_dbase != nullptr) spec->used_in_index = idx;
  return KVSUCCESS;
}

uint32_t OpenCollection(_INDEX* idx, const ViewToOpen& view) {
  EngIdTable unread = 0;
  if (uint16_t brstatus = EngIdTableCreate(sizeof(uint32_t), &unread)) return brstatus;
  KVGuard destroy_table([&] { EngIdTableDestroy(unread); });
  idx->flat_view = (view.flags & KVOPENVIEW_FLAT) != 0 ? 1 : 0;
  const EngDb view_dbhand = view.view_dbase != nullptr ? view.view_dbase->dbhand : idx->dbase->dbhand;
  EngCollection collection = 0;
  EngIdTable collapsed = 0;
  if (uint16_t brstatus = EngCollectionOpen(view_dbhand, idx->dbase->dbhand, view.viewid,
                                            static_cast<uint16_t>(view.flags & kEngineFlagsMask), unread,
                                            &collection, nullptr, nullptr, &collapsed, nullptr))
    return brstatus;
  destroy_table.Dismiss();
  TIMEDATE now{};
  EngTimedateNow(&now);
  KVICopyBytes(&idx->index_datetime, &now, sizeof now);
  idx->unread_hand = unread;
  idx->collhand = collection;
  idx->collapse_hand = collapsed;
  idx->key_index = 0;
  return KVSUCCESS;
}

struct ViewCall {
  uint32_t index, view_database, viewid, flags;
};

// The whole of KVIndexOpenView; the failure is the caller's to record.
uint32_t OpenView(_api_session* session, const ViewCall& call) {
  _INDEX* idx = _KVIFindIndex(session, call.index);
  if (idx == nullptr) return KVFAIL_BAD_INDEX;
  if (call.viewid == 0) return KVFAIL_NULL_PARAM;
  ViewToOpen view{.view_dbase = nullptr, .viewid = call.viewid, .flags = call.flags};
  if (call.view_database != 0) {
    view.view_dbase = _KVIFindDatabase(session, call.view_database);
    if (view.view_dbase == nullptr) return KVFAIL_NO_DATABASE;
  }
  (void)ClearIndexState(idx, kStateIndexAll);
  if (view.view_dbase != nullptr && view.view_dbase->dbinfo == idx->dbase->dbinfo) view.view_dbase = nullptr;
  if (uint32_t status = TakeSpec(idx, view)) return status;
  if (uint32_t status = OpenCollection(idx, view)) return status;
  return _KVIViewGetSize(session, idx);
}

}  // namespace

uint32_t _KVIViewGetSize(_api_session*, _INDEX* idx) {
  uint32_t count = 0;
  if (idx->flat_view) {
    if (uint16_t brstatus = CountRows(idx, &count)) {
      EngCollectionClose(idx->collhand);
      EngMemFree(idx->unread_hand);
      idx->collhand = 0;
      idx->unread_hand = 0;
      return KVError(brstatus);
    }
  } else if (uint32_t status = CountTop(idx, &count)) {
    return status;
  }
  idx->doc_index = 0;
  idx->doc_count = count;
  KVIStandAtStart(&idx->collpos);
  idx->coll_first = 1;
  return KVSUCCESS;
}

uint32_t KVIndexOpenView(uint32_t index, uint32_t view_database, uint32_t viewid, uint32_t openview_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  const ViewCall call{index, view_database, viewid, openview_flags};
  if (uint32_t status = OpenView(session, call)) return KVError(status);
  return KVSUCCESS;
}

uint32_t KVIndexOpenViewFolder(uint32_t index, uint32_t vf_database, uint32_t vfid, uint32_t openvf_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(index, &session)) return status;
  const _INDEX* idx = _KVIFindIndex(session, index);
  if (idx == nullptr) return KVError(KVFAIL_BAD_INDEX);
  if (vfid == 0) return KVError(KVFAIL_NULL_PARAM);
  uint32_t status = OpenView(session, {index, vf_database, vfid, openvf_flags});
  // What kind it is, is looked for in the database of the index, wherever the folder lies.
  uint32_t design_flags = 0;
  if (status == KVFAIL_NO_VIEW && !KVIDesignNoteGetFlagsExt(idx->dbase, vfid, &design_flags, nullptr) &&
      (design_flags & KVDESIGN_FOLDER) != 0)
    status = KVFAIL_NO_FOLDER;
  return status ? KVError(status) : KVSUCCESS;
}
