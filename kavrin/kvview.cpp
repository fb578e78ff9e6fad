// Views and their columns as programs reach them: by a database and an id. The lists of views, folders and
// navigators are with the other families of design elements; what the three have in common is here.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint16_t kDesignNotFound = 0x404;
constexpr uint16_t kStatusBits = 0x3fff;
constexpr uint16_t kAccessPrivateViews = 0x10;  // the user may make private views
constexpr uint16_t kNoAccess = 0x246;

// Bytes of the view record of a program's version. Those before the current one end with the three names.
size_t ViewBytes(const _api_session* session) {
  constexpr size_t kOldHeadBytes = 4 + 4 + 4 + 3 * sizeof(KVFONTSTYLE) + 4 + 2 * sizeof(char*);
  if (session->kvprog_version >= kVersionFourth) return sizeof(KVVIEW);
  return kOldHeadBytes + (session->kvprog_version >= kVersionLongNames ? 130 + 65 + 65 : 66 + 33 + 33);
}

// A private view in a database of this machine is the right of those whom its access control list gives it
// to; an engine without such lists refuses nobody.
uint32_t MayCreate(const _api_session* session, const _DATABASE& dbase, const _VIEWSPEC& spec) {
  if ((spec.flags & KVVIEWSPEC_PRIVATE) == 0) return KVSUCCESS;
  const char* server = dbase.dbinfo->server_name;
  if (!KVIEmpty(server) && !_KVIIsLocalServer(session, server)) return KVSUCCESS;
  uint16_t level = 0;
  uint16_t access_flags = 0;
  const uint16_t brstatus = EngDbAccessGet(dbase.dbhand, &level, &access_flags);
  if ((brstatus & kStatusBits) == kEngNotAvailable) return KVSUCCESS;
  if (brstatus) return brstatus;
  return (access_flags & kAccessPrivateViews) != 0 ? uint32_t{KVSUCCESS} : kNoAccess;
}

uint32_t CreateView(_api_session* session, _DATABASE* dbase, const _VIEWSPEC& spec, uint32_t* viewid) {
  if (uint32_t status = MayCreate(session, *dbase, spec)) return status;
  return _KVIViewCreateFromSpec(session, dbase, &spec, viewid);
}

void FillColumn(const _DATABASE* dbase, COLSPEC* spec, KVCOLUMN* column) {
  memset(static_cast<void*>(column), 0, sizeof *column);
  KVIColumnGetCOLUMNFromSpec(dbase, spec, column);
}

}  // namespace

// ---- What views, folders and navigators have in common

bool _KVIHasKind(const _api_session* session, _DATABASE* dbase, uint32_t id, uint32_t kind) {
  uint32_t design_flags = 0;
  if (KVIDesignNoteGetFlagsExt(dbase, id, &design_flags, nullptr)) return false;
  return kind == KVDESIGN_VIEW ? _KVIIsView(session, design_flags) : (design_flags & kind) != 0;
}

uint32_t _KVIViewClassLocate(const KVILOCATE& call) {
  _api_session* session;
  if (KVIEnter(call.database, &session)) return 0;
  const auto fail = [](uint32_t status) {
    KVError(status);
    return uint32_t{0};
  };
  if (call.name == nullptr) return fail(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, call.database);
  if (dbase == nullptr) return fail(KVFAIL_NO_DATABASE);
  uint32_t id = 0;
  uint16_t brstatus = EngDesignFind(dbase->dbhand, call.name, BRCLASS_VIEW, &id);
  if ((brstatus & kStatusBits) == kDesignNotFound && call.may_be_private)
    brstatus = EngDesignFindPrivate(dbase->dbhand, call.name, BRCLASS_VIEW, &id);
  if ((brstatus & kStatusBits) == kDesignNotFound) return fail(call.none_status);
  if (brstatus) return fail(brstatus);
  return _KVIHasKind(session, dbase, id, call.kind) ? id : fail(call.none_status);
}

uint32_t _KVIViewClassCopy(const KVICOPY& call) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIStoreIf<uint32_t>(call.dest_id, 0);
  _DATABASE* src_dbase = _KVIFindDatabase(session, call.src_database);
  if (src_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _DATABASE* dest_dbase = _KVIFindDatabase(session, call.dest_database);
  if (dest_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const char* name = KVIEmpty(call.dest_name) ? nullptr : call.dest_name;
  if (name != nullptr && call.checks_length && strlen(name) > kDesignTitleMax)
    return KVError(KVFAIL_DATA_TOO_LONG);
  uint32_t id = 0;
  const uint32_t status =
      _KVIDesignNoteCopy(session, call.kind, src_dbase, call.src_id, dest_dbase, name, &id, 1);
  if (status) return KVError(status == KVFAIL_NAME_IN_USE ? status : call.none_status);
  KVIStoreIf<uint32_t>(call.dest_id, id);
  return KVSUCCESS;
}

// ---- Views

uint32_t KVViewLocateByName(uint32_t database, const char* viewname) {
  return _KVIViewClassLocate({.database = database,
                              .name = viewname,
                              .may_be_private = true,
                              .kind = KVDESIGN_VIEW,
                              .none_status = KVFAIL_NO_VIEW});
}

uint32_t KVViewFetch(uint32_t database, uint32_t viewid, KVVIEW* view) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (view == nullptr) return KVError(KVFAIL_NULL_PARAM);
  memset(static_cast<void*>(view), 0, ViewBytes(session));
  _VIEWSPEC* spec = nullptr;
  if (uint32_t status = KVIViewGetSpec(dbase, viewid, &spec)) return KVError(status);
  if ((spec->kv_design_flags & KVDESIGN_VIEW) == 0) return KVError(KVFAIL_NO_VIEW);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  KVIViewGetVIEWFromSpec(spec, view);
  return KVSUCCESS;
}

uint32_t KVViewCopy(uint32_t src_database, uint32_t src_viewid, uint32_t dest_database,
                    const char* dest_viewname, uint32_t* dest_viewid) {
  return _KVIViewClassCopy({.src_database = src_database,
                            .src_id = src_viewid,
                            .dest_database = dest_database,
                            .dest_name = dest_viewname,
                            .dest_id = dest_viewid,
                            .checks_length = true,
                            .kind = KVDESIGN_VIEW,
                            .none_status = KVFAIL_NO_VIEW});
}

uint32_t KVViewDelete(uint32_t database, uint32_t viewid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (viewid == 0) return KVError(KVFAIL_NO_VIEW);
  if (!_KVIHasKind(session, dbase, viewid, KVDESIGN_VIEW)) return KVError(KVFAIL_NO_VIEW);
  if (_KVISessionIsViewFolderActive(session, dbase, viewid)) return KVError(KVFAIL_ACTIVE_RESULT);
  if (uint32_t status = KVIDbInfoClearViewFolder(dbase, viewid)) return KVError(status);
  if (uint16_t brstatus = EngNoteDelete(dbase->dbhand, viewid, 0)) return KVError(brstatus);
  return KVSUCCESS;
}

uint32_t KVViewCreate(uint32_t database, KVVIEW* view, uint32_t column_count, KVCOLUMN* columns,
                      uint32_t* viewid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (view == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (columns == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStoreIf<uint32_t>(viewid, 0);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  _VIEWSPEC* spec = nullptr;
  if (uint32_t status = _KVIViewCreateSpec(session, dbase, view, columns, column_count, &spec))
    return KVError(status);
  const uint32_t status = CreateView(session, dbase, *spec, viewid);
  ClearView(spec);
  return status ? KVError(status) : KVSUCCESS;
}

// ---- Columns

uint32_t KVColumnGetCount(uint32_t database, uint32_t viewid) {
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) {
    KVError(KVFAIL_NO_DATABASE);
    return 0;
  }
  _VIEWSPEC* spec = nullptr;
  return KVIViewGetSpec(dbase, viewid, &spec) == KVSUCCESS ? spec->col_count : 0;  // no view: no status
}

uint32_t KVColumnList(uint32_t database, uint32_t viewid, int32_t list, uint32_t* column_number,
                      KVCOLUMN* column) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (column == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _VIEWSPEC* spec = nullptr;
  if (KVIViewGetSpec(dbase, viewid, &spec)) return KVError(KVFAIL_NO_VIEW);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  if (uint32_t status = ListIterate(list, &spec->index, spec->col_count)) return KVError(status);
  FillColumn(dbase, &spec->collist[spec->index - 1], column);
  KVIStoreIf<uint32_t>(column_number, spec->index);
  return KVSUCCESS;
}

uint32_t KVColumnFetch(uint32_t database, uint32_t viewid, uint32_t column_number, KVCOLUMN* column) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (column == nullptr) return KVError(KVFAIL_NULL_PARAM);
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _VIEWSPEC* spec = nullptr;
  if (KVIViewGetSpec(dbase, viewid, &spec)) return KVError(KVFAIL_NO_VIEW);
  if (column_number == 0 || column_number > spec->col_count) return KVError(KVFAIL_NO_COLUMN);
  if (session->kvprog_version < kVersionFourth) return KVError(KVFAIL_UNSUPPORTED);
  FillColumn(dbase, &spec->collist[column_number - 1], column);
  return KVSUCCESS;
}
