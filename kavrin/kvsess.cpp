// Start and end of the library and of its sessions.
//
// (1) pgSessPool is null, or names a pool with or without a main session; without one after a failed start
// only, and the next start takes that pool. (2) A pool with a main session is never replaced.
#include "kvint_database.h"
#include "kvint_index.h"
#include "kvint_system.h"

static constexpr char kVersionText[] = "Brynd Kavrin C API 4.51 (Internal)";
static constexpr uint32_t kVersionLowest = 0x20000;
static constexpr uint32_t kVersionHighest = 0x45100;
static constexpr uint16_t kNoSettingsFile = 0x1a5;
static constexpr uint32_t kSummaryLimitDefault = 0x2000;
static constexpr uint32_t kBrVersionBytesMax = 80;
static constexpr uint32_t kWaitForThreadsDelayMs = 100;

// ---- The session record

static uint16_t ReadBuild() {
  char directory[256] = "";
  EngDb database = 0;
  uint16_t build = 0;
  EngDataDirectoryGet(directory);
  if (EngDbOpen(directory, &database) != 0) return 0;
  EngDbBuildVersionGet(database, &build);
  EngDbClose(database);
  return build;
}

// The engine's version text without trailing blanks; its first character stays, blank or not.
static char* CopyEngineVersion() {
  char text[kBrVersionBytesMax + 1] = "";
  uint32_t text_bytes = EngMessageLoad(0, 1, text, kBrVersionBytesMax);
  if (text_bytes > kBrVersionBytesMax) text_bytes = kBrVersionBytesMax;
  while (text_bytes > 1 && text[text_bytes - 1] == ' ') --text_bytes;
  return KVICopyText(text, text_bytes);
}

static uint16_t TextLength(const char (&text)[5]) {
  return static_cast<uint16_t>(strnlen(text, sizeof text));
}

static void SetDefaultFormat(API_FORMAT* format) {
  format->format.nfmt = {.Digits = 2, .Format = 0, .Attributes = 0, .Unused = 0};
  format->format.tfmt = {.Date = 0, .Time = 0, .Zone = 0, .Structure = 2};
  format->format.listsep = 0x200e;
  format->format.item_flags = 0;
  EngIntlSettingsGet(&format->intl, sizeof format->intl);
  format->datesep_len = TextLength(format->intl.DateString);
  format->timesep_len = TextLength(format->intl.TimeString);
  format->amstring_len = TextLength(format->intl.AMString);
  format->pmstring_len = TextLength(format->intl.PMString);
}

static void SetDefaults(_api_session* session, uint32_t version) {
  session->abbreviate_names = 1;
  KVICopyBytes(session->newline_delimiter, "\r\n", sizeof "\r\n");
  session->newline_delim_len = 2;
  session->strict_bind_default = 1;
  session->strict_bind_comp_default = 1;
  session->summary_limit_default = kSummaryLimitDefault;
  session->vcache_rows = 1;
  session->read_subf_fields_default = 1;
  session->max_db_size_default = 1;
  session->next_handle = 1;
  session->delete_bid_ptr = session->delete_bid;
  session->kvprog_version = version;
  SetDefaultFormat(&session->format);
}

uint32_t KVISessionCreate(_api_session** ppSess, uint32_t version) {
  *ppSess = nullptr;
  auto* session = KVIAllocate<_api_session>();
  if (session == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_session([&] { KVIFree(session); });
  session->br_build = ReadBuild();
  session->br_version = CopyEngineVersion();
  if (session->br_version == nullptr) return KVFAIL_NO_MEMORY;
  SetDefaults(session, version);
  *ppSess = session;
  free_session.Dismiss();
  return KVSUCCESS;
}

// ---- The end of a session

static void CloseDatabases(_api_session* session) {
  const uint32_t dbclose_flags = session->term_flags & KVTERM_SAVE_DOCUMENTS;
  for (_DATABASE*& bucket : session->dbtab) {
    while (bucket != nullptr) {
      const uint32_t database = bucket->database;
      KVDatabaseClose(database, dbclose_flags);
      if (bucket != nullptr && bucket->database == database)
        break;  // a handle that another session has given out; closing it again would not end
    }
  }
}

static void FreeTexts(_api_session* session) {
  KVIFreeAndClear(&session->import_);
  KVIFreeAndClear(&session->export_);
  KVIFreeAndClear(&session->local_servername);
  if (session->server_response != 0) {
    EngMemFree(session->server_response);
    session->server_response = 0;
    KVIFreeAndClear(&session->servresp_name);
  }
  if (session->delete_bid_ptr != session->delete_bid) KVIFree(session->delete_bid_ptr);
  session->delete_bid_ptr = session->delete_bid;
}

static void CloseEngineObjects(_api_session* session) {
  if (session->status_hand != 0) EngTaskStatusLineDelete(session->status_hand);
  if (session->maildb_dbhand != 0) EngMailBoxClose(session->maildb_dbhand);
  if (session->mailbox_dbhand != 0) EngDbClose(session->mailbox_dbhand);
  if (session->certhand != 0) EngCertifierContextFree(session->certhand);
  session->status_hand = session->maildb_dbhand = session->mailbox_dbhand = session->certhand = 0;
}

void _KVISessionRelease(_api_session* session) {
  CloseDatabases(session);
  for (int state : {kStateServerList, kStateCatalog, kStateDirectory, kStateTemplates, kStateSchedule})
    _ClearState(session, state);
  FreeTexts(session);
  CloseEngineObjects(session);
}

uint32_t KVISessionDestroy(_api_session** ppSess) {
  _KVISessionRelease(*ppSess);
  KVIFree((*ppSess)->br_version);
  KVIFreeAndClear(ppSess);
  return KVSUCCESS;
}

// ---- Start

static uint32_t StartThread(KVSESSIONPOOL* pool, uint32_t version, uint32_t init_flags) {
  if (KVIMainSession(pool) == nullptr) return KVFAIL_NOT_INITIALIZED;
  const bool starts_engine = (init_flags & KVINIT_ENGINE_RUNNING) == 0;
  if (starts_engine)
    if (uint16_t brstatus = EngThreadInit()) return brstatus;
  KVGuard end_engine_thread([&] {
    if (starts_engine) EngThreadTerm();
  });
  _api_session* session = nullptr;
  if (uint32_t status = KVISessionCreate(&session, version)) return status;
  session->ref_count = 1;
  if (uint32_t status = KVISessPoolAddSession(pool, session)) {
    KVISessionDestroy(&session);
    return status;
  }
  end_engine_thread.Dismiss();
  return KVSUCCESS;
}

static uint32_t MakePool(KVSESSIONPOOL** pool) {
  *pool = KVIAllocate<KVSESSIONPOOL>();
  if (*pool == nullptr) return KVFAIL_NO_MEMORY;
  if (uint32_t status = KVISessPoolInit(*pool)) {
    KVIFreeAndClear(pool);
    return status;
  }
  pgSessPool.store(*pool, std::memory_order_release);
  return KVSUCCESS;
}

// With KVINIT_INI_FILE, argv is the path itself.
static uint32_t StartEngine(uint32_t init_flags, int argc, char** argv) {
  const bool with_file = (init_flags & KVINIT_INI_FILE) != 0 && argv != nullptr;
  const uint16_t brstatus =
      with_file ? EngInitWithIni(reinterpret_cast<const char*>(argv)) : EngInit(argc, argv);
  return (brstatus & 0x3fff) == kNoSettingsFile ? KVFAIL_NO_INI_FILE : brstatus;
}

static uint32_t StartMain(KVSESSIONPOOL* pool, uint32_t version, uint32_t init_flags, int argc, char** argv) {
  if (pool == nullptr)
    if (uint32_t status = MakePool(&pool)) return status;
  const bool starts_engine = (init_flags & KVINIT_ENGINE_RUNNING) == 0;
  if (starts_engine)
    if (uint32_t status = StartEngine(init_flags, argc, argv)) return status;
  _api_session* session = nullptr;
  if (uint32_t status = KVISessionCreate(&session, version)) {
    if (starts_engine) EngTerm();
    return status;
  }
  session->ref_count = 1;
  return KVISessPoolSetMain(pool, session);
}

uint32_t _KVInit(uint32_t version, uint32_t init_flags, int argc, char** argv) {
  KVSESSIONPOOL* pool = pgSessPool.load(std::memory_order_acquire);
  _api_session* session = nullptr;
  KVISessPoolGetCurrentSess(pool, &session);
  if (version != KVAPI_VERSION && (version < kVersionLowest || version > kVersionHighest))
    return KVFAIL_BAD_VERSION;
  if (session != nullptr) {
    ++session->ref_count;
    return KVSUCCESS;
  }
  // A running library is never started anew: without KVINIT_THREAD too, a further thread gets a session of
  // its own.
  const bool running = KVIMainSession(pool) != nullptr;
  if (running || (init_flags & KVINIT_THREAD) != 0) return StartThread(pool, version, init_flags);
  return StartMain(pool, version, init_flags, argc, argv);
}

// ---- End

static uint32_t EndThread(KVSESSIONPOOL* pool, _api_session* session, uint32_t term_flags) {
  // The main session is in no slot. It ends as the main session or not at all.
  if (session->tidKV == 0 && session->ref_count == 1) return KVError(KVFAIL_TERM_FAILED);
  if (--session->ref_count != 0) return KVSUCCESS;
  KVISessPoolRemoveSession(pool, session);
  if ((term_flags & KVTERM_ENGINE_RUNNING) == 0) EngThreadTerm();
  KVISessPoolSignalNoThread(pool);
  return KVSUCCESS;
}

static uint32_t EndMain(KVSESSIONPOOL* pool, _api_session* session, uint32_t term_flags) {
  if (session != KVIMainSession(pool)) return KVError(KVFAIL_TERM_FAILED);
  if ((term_flags & KVTERM_WAIT_THREADS) != 0) {
    KVISleep(kWaitForThreadsDelayMs);
    KVISessPoolWaitForThreads(pool, kNoTimeLimit);
  }
  if (--session->ref_count != 0) return KVSUCCESS;
  session->term_flags = term_flags;
  KVISessPoolRemoveMain(pool);
  if ((term_flags & KVTERM_ENGINE_RUNNING) == 0) EngTerm();
  pgSessPool.store(nullptr, std::memory_order_release);
  KVISessPoolClose(pool);
  KVIFree(pool);
  return KVSUCCESS;
}

uint32_t KVTerm(uint32_t term_flags) {
  _api_session* session = nullptr;
  if (uint32_t status = KVIEnterThread(&session)) return status;
  KVSESSIONPOOL* pool = pgSessPool.load(std::memory_order_acquire);
  if ((term_flags & KVTERM_THREAD) != 0) return EndThread(pool, session, term_flags);
  return EndMain(pool, session, term_flags);
}

uint32_t KVGetAPILibraryVersion(char* string) {
  if (string != nullptr) KVIstrnncpy(string, kVersionText, KVVERSION_BYTES - 1);
  return KVAPI_VERSION;
}
