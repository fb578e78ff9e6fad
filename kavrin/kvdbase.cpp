// Database handles: open, close, a further handle for another thread, the engine's handle; and what is
// released in which order.
//
// (1) A _KVDBINFO stands on the list of exactly one session, and usage_count is the number of that session's
// _DATABASE records that point at it.  (2) A record enters and leaves its session's table under the pool's
// guard as a writer, so that another thread, reading as a reader, finds whole chains.  (3) Names and title of
// a _KVDBINFO are those of its first opener.
#include <cassert>
#include <cstdio>

#include "kvint.h"

namespace {

constexpr STATUSROW kOpenStatuses[] = {{0x103, KVFAIL_NO_DATABASE}};
constexpr uint16_t kModeDirectory = 2;
constexpr uint32_t kCloseFlagsMask = KVDBCLOSE_SAVE_DOCS | KVDBCLOSE_SESSION;

// The settings that a handle takes when it is made.
struct DBSETTINGS {
  int32_t delay_commit;
  int32_t strict_bind;
  int32_t strict_bind_compute;
  uint32_t summary_limit;
  int32_t docopen_design;
  int32_t fetch_design_code;
  uint32_t vcache_rows;
  int32_t read_subf_fields;
};

DBSETTINGS SessionDefaults(const _api_session* session) {
  return {.delay_commit = session->delay_commit_default,
          .strict_bind = session->strict_bind_default,
          .strict_bind_compute = session->strict_bind_comp_default,
          .summary_limit = session->summary_limit_default,
          .docopen_design = session->docopen_design_default,
          .fetch_design_code = session->fetch_design_code_default,
          .vcache_rows = session->vcache_rows,
          .read_subf_fields = session->read_subf_fields_default};
}

DBSETTINGS HandleSettings(const _DATABASE* dbase) {
  return {.delay_commit = dbase->delay_commit,
          .strict_bind = dbase->strict_bind,
          .strict_bind_compute = dbase->strict_bind_compute,
          .summary_limit = dbase->summary_limit,
          .docopen_design = dbase->docopen_design,
          .fetch_design_code = dbase->fetch_design_code,
          .vcache_rows = dbase->vcache_rows,
          .read_subf_fields = dbase->read_subf_fields};
}

void TakeSettings(_DATABASE* dbase, const DBSETTINGS& settings) {
  dbase->delay_commit = settings.delay_commit;
  dbase->strict_bind = settings.strict_bind;
  dbase->strict_bind_compute = settings.strict_bind_compute;
  dbase->summary_limit = settings.summary_limit;
  dbase->docopen_design = settings.docopen_design;
  dbase->fetch_design_code = settings.fetch_design_code;
  dbase->vcache_rows = settings.vcache_rows;
  dbase->read_subf_fields = settings.read_subf_fields;
}

// An engine database that is about to get a handle.
struct OPENED {
  EngDb dbhand;
  const char* server;    // as the caller gave it, may be null
  const char* filepath;  // as the caller gave it
  DBSETTINGS settings;
};

void FreeDbInfo(_KVDBINFO* dbinfo) {
  KVIFree(dbinfo->server_name);
  KVIFree(dbinfo->db_relpath);
  KVIFree(dbinfo->db_title);
  KVIFree(dbinfo);
}

// The record of the opened database, in no table yet. A failure has taken nothing; the engine's handle stays
// the caller's.
uint32_t NewRecord(_api_session* session, const OPENED& opened, _DATABASE** dbase) {
  auto* record = KVIAllocate<_DATABASE>();
  if (record == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_record([&] { KVIFree(record); });
  _KVDBINFO* fresh = nullptr;
  KVGuard free_fresh([&] {
    if (fresh != nullptr) FreeDbInfo(fresh);
  });
  _KVDBINFO* dbinfo = _KVISessionGetDbInfo(session, opened.dbhand);
  if (dbinfo == nullptr) {
    if (uint32_t status = KVIDbInfoCreate(opened.dbhand, opened.server, opened.filepath, &fresh))
      return status;
    dbinfo = fresh;
  }
  // The last step that can fail, so that an open that fails skips no number.
  if (uint32_t status = _KVINewHandle(session, &record->database)) return status;
  free_fresh.Dismiss();
  if (fresh != nullptr) {
    fresh->next = session->dbinfo_list;
    session->dbinfo_list = fresh;
  }
  ++dbinfo->usage_count;
  record->dbhand = opened.dbhand;
  record->dbinfo = dbinfo;
  TakeSettings(record, opened.settings);
  free_record.Dismiss();
  *dbase = record;
  return KVSUCCESS;
}

// Changes the session's table while no other thread reads it.
void ChangeTable(_api_session* session, _DATABASE* dbase, void (*change)(_api_session*, _DATABASE*)) {
  KVRWGUARD* guard = &pgSessPool.load()->RWSynch;
  const uint32_t entered = KVIRWGuardWaitToWrite(guard, kNoTimeLimit);
  change(session, dbase);
  if (entered == KVSUCCESS) KVIRWGuardDoneWriting(guard);
}

// A directory opens as well; a failed query of the mode is no reason to refuse the path.
bool IsDirectory(EngDb dbhand) {
  uint16_t mode = 0;
  return EngDbModeGet(dbhand, &mode) == 0 && mode == kModeDirectory;
}

// What a further handle takes from its source.
struct SOURCE {
  EngDb dbhand;
  const char* server;  // of the source's _KVDBINFO, valid as long as the source is open
  const char* filepath;
  uint16_t br_build;
  DBSETTINGS settings;
};

// Reads a database of any thread's session without touching that session's cache. False when there is none.
// The guard keeps every record in its table meanwhile; that the source itself stays open after that is the
// caller's duty.
bool ReadSource(uint32_t database, bool inherit_settings, SOURCE* source) {
  KVSESSIONPOOL* pool = pgSessPool.load();
  if (KVIRWGuardWaitToRead(&pool->RWSynch, kNoTimeLimit)) return false;
  KVGuard done([&] { KVIRWGuardDoneReading(&pool->RWSynch); });
  _api_session* owner;
  if (KVISessPoolGetSessByHandle(pool, database, 0, &owner)) return false;
  const _DATABASE* dbase = owner->dbtab[KVIBucket(database, kDatabaseBuckets)];
  while (dbase != nullptr && dbase->database != database) dbase = dbase->next;
  if (dbase == nullptr) return false;
  *source = {.dbhand = dbase->dbhand,
             .server = dbase->dbinfo->server_name,
             .filepath = dbase->dbinfo->db_relpath,
             .br_build = dbase->br_build,
             .settings = inherit_settings ? HandleSettings(dbase) : SessionDefaults(owner)};
  return true;
}

}  // namespace

uint32_t KVDatabaseOpen(const char* server, const char* filepath, uint32_t dbopen_flags, uint32_t* database) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  if (database == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<uint32_t>(database, 0);
  if (KVIEmpty(filepath)) return KVError(KVFAIL_NULL_PARAM);

  // A network path that cannot be built is empty, and then names no database.
  char netpath[kNetPathBytes];
  const char* path;
  (void)_KVIDbPath(session, server, filepath, netpath, &path);
  EngDb dbhand = 0;
  if (uint16_t brstatus =
          EngDbOpenEx(path, dbopen_flags & KVDBOPEN_ENGINE_MASK, 0, nullptr, &dbhand, nullptr, nullptr))
    return KVError(KVIMapStatus(brstatus, kOpenStatuses));
  KVGuard close_engine([&] { EngDbClose(dbhand); });
  if (IsDirectory(dbhand)) return KVError(KVFAIL_NO_DATABASE);

  _DATABASE* dbase;
  const OPENED opened{
      .dbhand = dbhand, .server = server, .filepath = filepath, .settings = SessionDefaults(session)};
  if (uint32_t status = NewRecord(session, opened, &dbase)) return KVError(status);
  close_engine.Dismiss();  // owned by the record from here
  EngDbBuildVersionGet(dbhand, &dbase->br_build);
  ChangeTable(session, dbase, _KVILinkDatabase);
  KVIStore<uint32_t>(database, dbase->database);
  return KVSUCCESS;
}

uint32_t KVDatabaseClose(uint32_t database, uint32_t dbclose_flags) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  return _CloseDATABASE(session, database, dbclose_flags, nullptr);
}

uint32_t KVDatabaseReopen(uint32_t database, int32_t bInheritProp, uint32_t* phAlias) {
  _api_session* session;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVIStore<uint32_t>(phAlias, 0);
  SOURCE source;
  if (!ReadSource(database, bInheritProp != 0, &source)) return KVError(KVFAIL_BAD_HANDLE);

  EngDb dbhand = 0;
  if (uint16_t brstatus = EngDbReopen(source.dbhand, &dbhand)) return KVError(brstatus);
  KVGuard close_engine([&] { EngDbClose(dbhand); });
  _DATABASE* dbase;
  const OPENED opened{
      .dbhand = dbhand, .server = source.server, .filepath = source.filepath, .settings = source.settings};
  if (uint32_t status = NewRecord(session, opened, &dbase)) return KVError(status);
  close_engine.Dismiss();  // owned by the record from here
  dbase->br_build = source.br_build;
  ChangeTable(session, dbase, _KVILinkDatabase);
  KVIStore<uint32_t>(phAlias, dbase->database);
  return KVSUCCESS;
}

uint32_t KVDatabaseGetBryndHandle(uint32_t database, uint32_t tobrynd_flags, void* brynd_dbhandle) {
  _api_session* session;
  if (uint32_t status = KVIEnter(database, &session)) return status;
  if (brynd_dbhandle == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  const uint32_t wanted = tobrynd_flags & (KVTOBRYND_GET_HANDLE | KVTOBRYND_RELEASE);
  if (wanted == KVTOBRYND_GET_HANDLE) {
    KVIStore<EngDb>(brynd_dbhandle, dbase->dbhand);
    return KVSUCCESS;
  }
  if (wanted != KVTOBRYND_RELEASE) return KVError(KVFAIL_NO_ACTION);
  return _CloseDATABASE(session, database, tobrynd_flags & kCloseFlagsMask,
                        static_cast<EngDb*>(brynd_dbhandle));
}

// ---- Teardown

namespace {

// What a close releases before the access control list is written back, and what after it. Indexes go first:
// the documents they have loaded are closed while the database stands.
constexpr int kTeardownBeforeAcl[] = {
    kStateIndexes,    kStateDocuments,     kStateFormList,  kStateSubformList, kStateViewList,
    kStateFolderList, kStateNavigatorList, kStateAgentList, kStateAclList,     kStateAclLog};
constexpr int kTeardownAfterAcl[] = {kStateSpecIndexes, kStateExecuted, kStateTable};

constexpr KVDESIGNLIST _DATABASE::*kDesignLists[] = {&_DATABASE::formlist, &_DATABASE::subformlist,
                                                     &_DATABASE::viewlist, &_DATABASE::folderlist,
                                                     &_DATABASE::navlist,  &_DATABASE::agentlist};
static_assert(std::size(kDesignLists) == kStateAgentList - kStateFormList + 1);

void FreeBuffer(KVTEXTLIST* list) { KVIFreeAndClear(&list->buffer); }

uint32_t ClearAcl(_api_session* session, _DATABASE* dbase) {
  if (dbase->aclhand == 0) return KVSUCCESS;
  const uint16_t brstatus =
      dbase->acl_dirty ? EngDbAclStore(dbase->dbhand, dbase->aclhand, 0, 0) : uint16_t{0};
  EngMemFree(dbase->aclhand);
  dbase->aclhand = 0;
  dbase->acl_dirty = 0;
  if (brstatus == 0) return KVSUCCESS;
  // A document that failed to close may have recorded its status, which nobody looks at; this one is the
  // close's own.
  session->errcode = KVSUCCESS;
  return KVError(brstatus);
}

// Nothing reads agents yet: their cache is empty.
[[maybe_unused]] bool HasNoOtherSpecs(const _KVDBINFO* dbinfo) { return dbinfo->agents == nullptr; }

// Forms first: their slots may hold copies of shared fields, which own what the copies show.
void FreeSpecs(_KVDBINFO* dbinfo) {
  while (_FORMSPEC* form = dbinfo->forms) {
    dbinfo->forms = form->next;
    ClearForm(form);
  }
  while (_VIEWSPEC* view = dbinfo->views) {
    dbinfo->views = view->next;
    ClearView(view);
  }
  while (_SHAREDFIELDSPEC* field = dbinfo->sfields) {
    dbinfo->sfields = field->next;
    ClearField(&field->fieldspec);
    KVIFree(field);
  }
}

// A further handle of the session on the same database; null when there is none.
_DATABASE* OtherHandle(_api_session* session, const _DATABASE* dbase) {
  for (_DATABASE* other : session->dbtab)
    for (; other != nullptr; other = other->next)
      if (other != dbase && other->dbinfo == dbase->dbinfo) return other;
  return nullptr;
}

// What was read through a handle that goes stays for the others: it belongs to one of them from here.
void PassOnSpecs(_api_session* session, const _DATABASE* dbase) {
  _DATABASE* heir = OtherHandle(session, dbase);
  for (_FORMSPEC* form = dbase->dbinfo->forms; form != nullptr; form = form->next)
    if (form->pdbase == dbase) form->pdbase = heir;
  for (_VIEWSPEC* view = dbase->dbinfo->views; view != nullptr; view = view->next)
    if (view->pdbase == dbase) view->pdbase = heir;
}

uint32_t ClearDbInfo(_api_session* session, _DATABASE* dbase) {
  _KVDBINFO* dbinfo = dbase->dbinfo;
  if (dbinfo == nullptr) return KVSUCCESS;
  if (dbinfo->usage_count != 0) return KVFAIL_INTERNAL;
  assert(HasNoOtherSpecs(dbinfo));
  FreeSpecs(dbinfo);
  _KVDBINFO** place = &session->dbinfo_list;
  while (*place != nullptr && *place != dbinfo) place = &(*place)->next;
  if (*place != nullptr) *place = dbinfo->next;
  FreeDbInfo(dbinfo);
  dbase->dbinfo = nullptr;
  return KVSUCCESS;
}

_DOCUMENT* FirstDocument(_DOCUMENT* head, const _DATABASE* dbase) {
  while (head != nullptr && head->dbase != dbase) head = head->next;
  return head;
}

// Each close may call the application's error procedure, which may close further documents: the chain is
// looked at anew after each. A document that its own handle does not close is left, so that the walk ends.
void CloseDocuments(_api_session* session, const _DATABASE* dbase, uint32_t docwrite_flags) {
  for (_DOCUMENT*& head : session->doctab) {
    uint32_t closed = 0;
    while (const _DOCUMENT* doc = FirstDocument(head, dbase)) {
      if (doc->document == closed) break;
      closed = doc->document;
      (void)KVDocumentClose(closed, docwrite_flags);
    }
  }
}

void ClearExecuted(_DATABASE* dbase) {
  if (dbase->last_formula_hand == 0) return;
  EngComputeEnd(dbase->last_compute_hand);
  EngMemFree(dbase->last_formula_hand);
  dbase->last_compute_hand = 0;
  dbase->last_formula_hand = 0;
}

}  // namespace

uint32_t _ClearDatabaseState(_api_session* session, _DATABASE* dbase, int state, const uint32_t* info) {
  switch (state) {
    case kStateFormList:
    case kStateSubformList:
    case kStateViewList:
    case kStateFolderList:
    case kStateNavigatorList:
    case kStateAgentList:
      FreeBuffer(&(dbase->*kDesignLists[state - kStateFormList]).list);
      return KVSUCCESS;
    case kStateAclList:
      FreeBuffer(&dbase->acllist);
      return KVSUCCESS;
    case kStateAcl:
      return ClearAcl(session, dbase);
    case kStateAclLog:
      KVIFreeAndClear(&dbase->acllog);
      return KVSUCCESS;
    case kStateDbInfo:
      return ClearDbInfo(session, dbase);
    case kStateIndexes:
      _KVICloseIndexesOf(session, dbase, false);
      return KVSUCCESS;
    case kStateSpecIndexes:
      _KVICloseIndexesOf(session, dbase, true);
      return KVSUCCESS;
    case kStateDocuments:
      if (info == nullptr) return KVFAIL_INTERNAL;
      CloseDocuments(session, dbase, *info & KVDBCLOSE_SAVE_DOCS ? 0 : KVDOCWRITE_DISCARD);
      return KVSUCCESS;
    case kStateExecuted:
      ClearExecuted(dbase);
      return KVSUCCESS;
    case kStateEngineDatabase:
      if (info == nullptr) return KVFAIL_INTERNAL;
      if (*info & KVDBCLOSE_SESSION)
        EngDbSessionClose(dbase->dbhand);
      else
        EngDbClose(dbase->dbhand);
      return KVSUCCESS;
    case kStateTable:
      ChangeTable(session, dbase, _KVIUnlinkDatabase);
      return KVSUCCESS;
    default:
      return KVSUCCESS;
  }
}

uint32_t _CloseDATABASE(_api_session* session, uint32_t database, uint32_t dbclose_flags,
                        uint32_t* pbrynd_handle) {
  _DATABASE* dbase = _KVIFindDatabase(session, database);
  if (dbase == nullptr) return KVError(KVFAIL_NO_DATABASE);
  if (pbrynd_handle != nullptr) KVIStore<EngDb>(pbrynd_handle, 0);
  for (int state : kTeardownBeforeAcl) _ClearDatabaseState(session, dbase, state, &dbclose_flags);
  const uint32_t status = _ClearDatabaseState(session, dbase, kStateAcl, nullptr);
  for (int state : kTeardownAfterAcl) _ClearDatabaseState(session, dbase, state, nullptr);
  if (--dbase->dbinfo->usage_count == 0)
    _ClearDatabaseState(session, dbase, kStateDbInfo, nullptr);
  else
    PassOnSpecs(session, dbase);
  // A list that could not be written back is not lost behind a close that looks done: the engine's database
  // stays open.
  if (status == KVSUCCESS) {
    if (pbrynd_handle == nullptr)
      _ClearDatabaseState(session, dbase, kStateEngineDatabase, &dbclose_flags);
    else
      KVIStore<EngDb>(pbrynd_handle, dbase->dbhand);
  }
  KVIFree(dbase);
  return status;
}

// ---- Shared records

_KVDBINFO* _KVISessionGetDbInfo(_api_session* session, EngDb dbh) {
  TIMEDATE dbid;
  if (EngDbIdGet(dbh, &dbid)) return nullptr;  // a database without a known identity shares nothing
  _KVDBINFO* dbinfo = session->dbinfo_list;
  while (dbinfo != nullptr && memcmp(&dbinfo->dbid, &dbid, sizeof dbid) != 0) dbinfo = dbinfo->next;
  return dbinfo;
}

namespace {

// The title; null when there is no memory.
char* CopyTitle(EngDb dbh) {
  char info[kDbInfoBytes] = {};
  char title[kDbInfoBytes + 1];
  EngDbInfoGet(dbh, info);
  KVIDbInfoField(info, 0, title, kDbInfoTextMax);
  return KVICopyText(title, strlen(title));
}

}  // namespace

uint32_t KVIDbInfoCreate(EngDb dbh, const char* szServer, const char* szPath, _KVDBINFO** pNewDBI) {
  *pNewDBI = nullptr;
  auto* dbinfo = KVIAllocate<_KVDBINFO>();
  if (dbinfo == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_dbinfo([&] { FreeDbInfo(dbinfo); });
  EngDbIdGet(dbh, &dbinfo->dbid);
  if (!KVIEmpty(szServer)) {
    dbinfo->server_name = KVICopyText(szServer, strlen(szServer));
    if (dbinfo->server_name == nullptr) return KVFAIL_NO_MEMORY;
  }
  dbinfo->db_relpath = KVICopyText(szPath, strlen(szPath));
  if (dbinfo->db_relpath == nullptr) return KVFAIL_NO_MEMORY;
  dbinfo->db_title = CopyTitle(dbh);
  if (dbinfo->db_title == nullptr) return KVFAIL_NO_MEMORY;
  free_dbinfo.Dismiss();
  *pNewDBI = dbinfo;
  return KVSUCCESS;
}

// ---- Paths

namespace {

constexpr size_t kServerNameBytes = 257;
constexpr uint16_t kServerNameMax = 255;
constexpr uint16_t kBadArgument = 0x1f1;
constexpr size_t kPathMarks = 3 + 2;  // `!!!` behind the port, `!!` behind the server

// The server's full name, or the name as it is when the engine does not know how to complete it.
const char* CanonicalServerName(const char* server, char (&canonical)[kServerNameBytes]) {
  memset(canonical, 0, sizeof canonical);
  return EngNameCanonicalize(0, nullptr, server, canonical, kServerNameMax, nullptr) ? server : canonical;
}

// ASCII letters of both cases are equal, other bytes only to themselves.
bool EqualsIgnoringCase(const char* one, const char* other) {
  const auto fold = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  while (*one != 0 && fold(*one) == fold(*other)) {
    ++one;
    ++other;
  }
  return fold(*one) == fold(*other);
}

}  // namespace

uint16_t KVIDbGetNetPath(const char* szPort, const char* szServer, const char* szFile, char* szOutput) {
  *szOutput = 0;
  char canonical[kServerNameBytes];
  const bool is_path_head = szServer != nullptr && strchr(szServer, '!') != nullptr;
  const char* server = szServer == nullptr ? ""
                       : is_path_head      ? szServer
                                           : CanonicalServerName(szServer, canonical);
  const size_t port_bytes = szPort == nullptr ? 0 : strlen(szPort);
  if (port_bytes + strlen(server) + strlen(szFile) + kPathMarks >= kNetPathBytes) return kBadArgument;
  if (!is_path_head) return EngNetPathBuild(szPort, server, szFile, szOutput);
  snprintf(szOutput, kNetPathBytes, "%s%s", server, szFile);
  return 0;
}

bool _KVIIsLocalServer(const _api_session* session, const char* server) {
  return session->local_servername != nullptr && EqualsIgnoringCase(session->local_servername, server);
}

uint16_t _KVIDbPath(const _api_session* session, const char* server, const char* filepath,
                    char (&netpath)[kNetPathBytes], const char** path) {
  *path = filepath;
  if (KVIEmpty(server) || _KVIIsLocalServer(session, server)) return 0;
  *path = netpath;
  return KVIDbGetNetPath(nullptr, server, filepath, netpath);
}
