// Folders: design records of the view class that hold a chosen set of documents. The engine keeps the set;
// their design is read as that of views.
#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kRowCategory = 0xffffffff;  // ids that rows without a document have
constexpr uint32_t kRowTotal = 0xfffffffe;
constexpr uint16_t kIdBytes = 4;
constexpr uint16_t kOpenToLook = 10;

bool IsFolder(const _api_session* session, _DATABASE* dbase, uint32_t id) {
  return _KVIHasKind(session, dbase, id, KVDESIGN_FOLDER);
}

using EntriesCall = EngStatus (*)(EngDb database, EngDb folder_database, uint32_t folder, EngIdTable table,
                                  uint32_t flags);

struct IDS {
  uint32_t count;
  const uint32_t* ids;  // at any address
};

uint16_t FillTable(EngIdTable table, const IDS& ids) {
  for (uint32_t i = 0; i < ids.count; ++i) {
    const auto id = KVILoad<uint32_t>(ids.ids + i);
    if (id == 0 || id == kRowCategory || id == kRowTotal) continue;
    if (uint16_t brstatus = EngIdTableInsertId(table, id, nullptr)) return brstatus;
  }
  return 0;
}

uint32_t ChangeEntries(uint32_t database, uint32_t folderid, const IDS& ids, EntriesCall call) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (ids.ids == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (folderid == 0) return KVError(KVFAIL_NO_FOLDER);
  if (ids.count == 0) return KVError(KVFAIL_NO_ACTION);
  if (!IsFolder(session, dbase, folderid)) return KVError(KVFAIL_NO_FOLDER);
  EngIdTable table = 0;
  if (EngIdTableCreate(kIdBytes, &table)) return KVError(KVFAIL_INTERNAL);
  KVGuard destroy_table([&] { EngIdTableDestroy(table); });
  if (uint16_t brstatus = FillTable(table, ids)) return KVError(brstatus);
  if (uint16_t brstatus = call(dbase->dbhand, 0, folderid, table, 0)) return KVError(brstatus);
  return KVSUCCESS;
}

// A fresh folder beside the source, with the same entries.
uint32_t Duplicate(_DATABASE* dbase, uint32_t folderid, const char* name, uint32_t* dest_folderid) {
  if (name == nullptr) return KVFAIL_NAME_IN_USE;
  uint32_t bearer = 0;
  if (uint16_t brstatus = _KVIDesignFind(dbase, 0, name, BRCLASS_VIEW, &bearer)) return brstatus;
  if (bearer != 0) return KVFAIL_NAME_IN_USE;
  uint32_t id = 0;
  const auto name_bytes = static_cast<uint16_t>(strlen(name));
  if (uint16_t brstatus = EngFolderDuplicate(dbase->dbhand, 0, folderid, name, name_bytes, 0, &id))
    return brstatus;
  KVIStoreIf<uint32_t>(dest_folderid, id);
  return KVSUCCESS;
}

// The title of a view or folder; KVFAIL_BAD_FORMAT when there is none.
uint32_t TitleOf(_DATABASE* dbase, uint32_t id, char (&title)[kDesignTitleMax + 1]) {
  EngNote note = 0;
  if (uint16_t brstatus = EngNoteOpen(dbase->dbhand, id, kOpenToLook, &note)) return brstatus;
  KVGuard close_note([&] { EngNoteClose(note); });
  if (EngItemInfo(note, "$TITLE", 6, nullptr, nullptr, nullptr, nullptr)) return KVFAIL_BAD_FORMAT;
  const uint16_t title_bytes = EngItemTextGet(note, "$TITLE", title, kDesignTitleMax);
  title[title_bytes] = 0;
  return *title != 0 ? uint32_t{KVSUCCESS} : KVFAIL_BAD_FORMAT;
}

// Where a new folder goes, and the view or folder that it is made like.
struct NEWFOLDER {
  _DATABASE* dbase;
  _DATABASE* src_dbase;
  uint32_t src_id;
  bool is_private;
};

uint32_t NewFolder(const NEWFOLDER& folder, const char* name, uint32_t* folderid) {
  char title[kDesignTitleMax + 1];
  if (KVIEmpty(name)) {
    if (folder.src_dbase->dbinfo == folder.dbase->dbinfo) return KVFAIL_NAME_IN_USE;
    if (uint32_t status = TitleOf(folder.src_dbase, folder.src_id, title)) return status;
    name = title;
  }
  const size_t name_bytes = strlen(name);
  if (name_bytes > kDesignTitleMax) return KVFAIL_DATA_TOO_LONG;
  uint32_t bearer = 0;
  const uint32_t design_flags = folder.is_private ? KVDESIGN_PRIVATE : 0;
  if (uint16_t brstatus = _KVIDesignFind(folder.dbase, design_flags, name, BRCLASS_VIEW, &bearer))
    return brstatus;
  if (bearer != 0) return KVFAIL_NAME_IN_USE;
  uint32_t id = 0;
  const EngDb src_dbhand = folder.src_dbase == folder.dbase ? 0 : folder.src_dbase->dbhand;
  if (uint16_t brstatus = EngFolderNew(folder.dbase->dbhand, 0, folder.src_id, src_dbhand, name,
                                       static_cast<uint16_t>(name_bytes), folder.is_private ? 1 : 0, 0, &id))
    return brstatus;
  KVIStoreIf<uint32_t>(folderid, id);
  return KVSUCCESS;
}

}  // namespace

uint32_t KVFolderLocateByName(uint32_t database, const char* foldername) {
  return _KVIViewClassLocate({.database = database,
                              .name = foldername,
                              .may_be_private = true,
                              .kind = KVDESIGN_FOLDER,
                              .none_status = KVFAIL_NO_FOLDER});
}

uint32_t KVFolderDelete(uint32_t database, uint32_t folderid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (folderid == 0) return KVError(KVFAIL_NO_FOLDER);
  if (!IsFolder(session, dbase, folderid)) return KVError(KVFAIL_NO_FOLDER);
  if (_KVISessionIsViewFolderActive(session, dbase, folderid)) return KVError(KVFAIL_ACTIVE_RESULT);
  if (uint32_t status = KVIDbInfoClearViewFolder(dbase, folderid)) return KVError(status);
  if (uint16_t brstatus = EngFolderRemove(dbase->dbhand, 0, folderid, 0)) return KVError(brstatus);
  return KVSUCCESS;
}

uint32_t KVFolderGetCount(uint32_t database, uint32_t folderid) {
  _api_session* session;
  if (KVIEnter(database, &session)) return 0;
  const auto fail = [](uint32_t status) {
    KVError(status);
    return uint32_t{0};
  };
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return fail(KVFAIL_NO_DATABASE);
  if (folderid == 0) return fail(KVFAIL_NO_FOLDER);
  if (!IsFolder(session, dbase, folderid)) return fail(KVFAIL_NO_FOLDER);
  uint32_t count = 0;
  if (uint16_t brstatus = EngFolderEntriesCount(dbase->dbhand, 0, folderid, 0, &count)) return fail(brstatus);
  return count;
}

uint32_t KVFolderCopy(uint32_t src_database, uint32_t src_folderid, uint32_t dest_database,
                      const char* dest_foldername, uint32_t* dest_folderid) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIStoreIf<uint32_t>(dest_folderid, 0);
  _DATABASE* src_dbase = _KVIFindDatabase(session, src_database);
  if (src_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _DATABASE* dest_dbase = _KVIFindDatabase(session, dest_database);
  if (dest_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const char* name = KVIEmpty(dest_foldername) ? nullptr : dest_foldername;
  if (!IsFolder(session, src_dbase, src_folderid)) return KVError(KVFAIL_NO_FOLDER);
  if (name != nullptr && strlen(name) > kDesignTitleMax) return KVError(KVFAIL_DATA_TOO_LONG);
  if (src_dbase->dbinfo == dest_dbase->dbinfo) {
    const uint32_t status = Duplicate(dest_dbase, src_folderid, name, dest_folderid);
    return status ? KVError(status) : KVSUCCESS;
  }
  uint32_t id = 0;
  const uint32_t status =
      _KVIDesignNoteCopy(session, KVDESIGN_FOLDER, src_dbase, src_folderid, dest_dbase, name, &id, 1);
  if (status) return KVError(status == KVFAIL_NAME_IN_USE ? status : KVFAIL_NO_FOLDER);
  KVIStoreIf<uint32_t>(dest_folderid, id);
  return KVSUCCESS;
}

uint32_t KVFolderAddEntries(uint32_t database, uint32_t folderid, uint32_t doc_count, const uint32_t* docid) {
  return ChangeEntries(database, folderid, {doc_count, docid}, EngFolderEntriesAdd);
}

uint32_t KVFolderRemoveEntries(uint32_t database, uint32_t folderid, uint32_t doc_count,
                               const uint32_t* docid) {
  return ChangeEntries(database, folderid, {doc_count, docid}, EngFolderEntriesRemove);
}

uint32_t KVFolderRemoveAllEntries(uint32_t database, uint32_t folderid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (folderid == 0) return KVError(KVFAIL_NO_FOLDER);
  if (!IsFolder(session, dbase, folderid)) return KVError(KVFAIL_NO_FOLDER);
  if (uint16_t brstatus = EngFolderEntriesRemoveAll(dbase->dbhand, 0, folderid, 0)) return KVError(brstatus);
  return KVSUCCESS;
}

uint32_t KVFolderCreateFromViewFolder(uint32_t database, uint32_t folder_database, uint32_t viewfolder_id,
                                      uint32_t foldcreate_flags, const char* foldername, uint32_t* folderid) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  _DATABASE* src_dbase = folder_database == 0 ? dbase : _KVIFindDatabase(session, folder_database);
  if (src_dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (!_KVIHasKind(session, src_dbase, viewfolder_id, kDesignViewOrFolder)) return KVError(KVFAIL_NO_FOLDER);
  const NEWFOLDER folder{.dbase = dbase,
                         .src_dbase = src_dbase,
                         .src_id = viewfolder_id,
                         .is_private = (foldcreate_flags & KVFOLDCREATE_PRIVATE) != 0};
  const uint32_t status = NewFolder(folder, foldername, folderid);
  return status ? KVError(status) : KVSUCCESS;
}
