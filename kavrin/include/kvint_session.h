// The session record, the pool of sessions, the prologue of exported functions, handles and their tables,
// failures.
//
// (1) A session is touched by its own thread alone; other threads read its tidOS under the pool's guard. (2)
// A record is in exactly one bucket of its table, or in none. (3) A cache pair names a linked record, a
// loaded index document, or nothing. (4) Slots of the pool below Next are occupied; the session in slot i has
// tidKV i + 1.
#ifndef KVINT_SESSION_H
#define KVINT_SESSION_H

#include <atomic>

#include "kvint_support.h"

struct _COMPOSITE;
struct _DATABASE;
struct _DBDIR;
struct _DOCUMENT;
struct _INDEX;
struct _KVDBINFO;
struct _SCHEDULE;
struct IMPEXPINFO;

// ---- Formats and lists that the session embeds

#pragma pack(push, 1)

// Display format of a value.
struct FORMAT {
  NFMT nfmt;
  TFMT tfmt;
  uint16_t listsep;     // bits 12 to 15 the display separator, bits 0 to 4 the allowed ones
  uint16_t item_flags;  // flags that a field's format adds to an item written under it
};

// The session's format with its international settings and the lengths of four of their strings.
struct API_FORMAT {
  uint16_t datesep_len;
  uint16_t timesep_len;
  uint16_t amstring_len;
  uint16_t pmstring_len;
  FORMAT format;
  INTLFORMAT intl;
};

#pragma pack(pop)

static_assert(sizeof(FORMAT) == 12);
static_assert(sizeof(INTLFORMAT) == 139);
static_assert(sizeof(API_FORMAT) == 8 + 12 + 139);

// Cursor over a text list.
struct KVTEXTLIST {
  uint32_t listhand;   // engine memory, 0 for a list copied to the library's heap
  void* buffer;        // the list, owned
  uint16_t count;      // entries
  uint16_t index;      // current entry, from 1; 0 before the first
  uint16_t* next_len;  // length word of the next entry
  char* next_str;      // its text
};

// One entry of a directory list.
struct _DBDIR {
  int32_t isdatabase;
  char* path;
  char* name;
  uint16_t namelen;
  _DBDIR* next;
};

// One interval of a server task.
struct _SCHEDULE {
  uint32_t interval;
  uint32_t count;
  int64_t nexttime;
  int64_t lasttime;
  _SCHEDULE* next;
};

// ---- The session

constexpr uint32_t kDatabaseBuckets = 10;
constexpr uint32_t kIndexBuckets = 10;
constexpr uint32_t kDocumentBuckets = 20;
constexpr uint32_t kCompositeBuckets = 10;
constexpr uint32_t kErrorTextBytes = 256;
constexpr uint32_t kNewlineBytesMax = 5;
constexpr uint32_t kTaskNameBytesMax = 256;
constexpr uint32_t kSessionBufferBytes = 1025;
constexpr uint32_t kDeleteBidCount = 32;

struct _api_session {
  int32_t truncate_text;
  int32_t keep_maildb_open;
  int32_t abbreviate_names;
  char newline_delimiter[kNewlineBytesMax];  // newline_delim_len bytes count; five fill it without a NUL
  int32_t newline_delim_len;
  API_FORMAT format;
  char default_task_name[kTaskNameBytesMax];  // 256 characters fill it without a NUL
  int32_t delay_commit_default;
  int32_t strict_bind_default;
  int32_t strict_bind_comp_default;
  int32_t docopen_design_default;
  int32_t fetch_design_code_default;
  uint32_t summary_limit_default;
  uint32_t vcache_rows;
  int32_t read_subf_fields_default;
  uint32_t max_db_size_default;
  // Error state
  uint32_t errcode;
  int32_t errsev;
  char errstring[kErrorTextBytes];
  char* errbuf;
  uint32_t* errstat;
  int32_t* errsev_ptr;
  KVERRORPROC errproc;
  void* errparam;
  uint32_t error_module;
  // Objects
  _KVDBINFO* dbinfo_list;
  uint32_t next_handle;
  _DATABASE* dbtab[kDatabaseBuckets];
  uint32_t hmruDB;
  _DATABASE* pmruDB;
  _INDEX* idxtab[kIndexBuckets];
  uint32_t hmruIDX;
  _INDEX* pmruIDX;
  _DOCUMENT* doctab[kDocumentBuckets];
  uint32_t hmruDOC;
  _DOCUMENT* pmruDOC;
  _COMPOSITE* comptab[kCompositeBuckets];
  uint32_t hmruCOMP;
  _COMPOSITE* pmruCOMP;
  // Converters, servers, tasks
  uint32_t import_index;
  uint32_t export_index;
  IMPEXPINFO* import_;
  IMPEXPINFO* export_;
  KVTEXTLIST srvlist;
  char* local_servername;
  uint32_t server_response;
  char* servresp_name;
  uint32_t status_hand;
  _SCHEDULE* sched_list;
  int32_t winyield;
  uint32_t certhand;
  // Directory, catalog and template listings
  char* dbdir_server;
  char* dbdir_directory;
  uint32_t dbdir_class;
  uint32_t dbdir_flags;
  _DBDIR* dbdir_list;
  _DBDIR* dbdir_current;
  char* dbcat_server;
  uint32_t dbcat_dbhand;
  uint16_t dbcat_collect;
  COLLECTIONPOSITION dbcat_collpos;
  char* dbtemp_server;
  char* dbtemp_directory;
  _DBDIR* dbtemp_list;
  _DBDIR* dbtemp_current;
  // Mail
  uint32_t maildb_dbhand;
  uint32_t mailbox_dbhand;
  // Scratch
  char buffer[kSessionBufferBytes];
  BLOCKID* delete_bid_ptr;  // delete_bid, or a heap array when more than 32 are needed
  BLOCKID delete_bid[kDeleteBidCount];
  COLLECTIONPOSITION collpos;
  // Versions and identity
  uint32_t kvprog_version;
  uint16_t br_build;
  char* br_version;
  uint32_t ref_count;
  uint32_t tidOS;
  uint16_t tidKV;
  uint32_t term_flags;
};

// Session versions at which structures and properties changed.
constexpr uint32_t kVersionLongNames = 0x20306;
constexpr uint32_t kVersionSecond = 0x20325;
constexpr uint32_t kVersionFourth = 0x40000;
constexpr uint32_t kVersionNewest = 0x40106;

// ---- Mutex, event, readers-writer guard

struct KVIMutex;  // recursive, of this process
struct KVIEvent;  // manual reset, made in the signalled state

constexpr int32_t kNoTimeLimit = -1;

uint32_t KVIMutexInit(KVIMutex** phMutex);
uint32_t KVIMutexWait(KVIMutex* hMutex, int32_t TimeOut);  // TimeOut has no effect
uint32_t KVIMutexRelease(KVIMutex* hMutex);
uint32_t KVIMutexDestroy(KVIMutex** phMutex);
uint32_t KVIEventInit(KVIEvent** phEvent);
uint32_t KVIEventSignal(KVIEvent* hEvent);
uint32_t KVIEventReset(KVIEvent* hEvent);
uint32_t KVIEventWait(KVIEvent* hEvent, int32_t TimeOut);  // milliseconds; a time-out is a success
uint32_t KVIEventDestroy(KVIEvent** phEvent);

struct KVRWGUARD {
  KVIMutex* WriteAccess;  // held briefly by readers, throughout by a writer
  uint32_t ReadCount;     // readers inside
  KVIEvent* NoReader;     // signalled while ReadCount is 0
};

uint32_t KVIRWGuardInit(KVRWGUARD* pRWGuard);
uint32_t KVIRWGuardClose(KVRWGUARD* pRWGuard);
uint32_t KVIRWGuardWaitToRead(KVRWGUARD* pRWGuard, int32_t TimeOut);
uint32_t KVIRWGuardDoneReading(KVRWGUARD* pRWGuard);
uint32_t KVIRWGuardWaitToWrite(KVRWGUARD* pRWGuard, int32_t TimeOut);
uint32_t KVIRWGuardDoneWriting(KVRWGUARD* pRWGuard);

// ---- The pool

constexpr uint32_t kPoolGrowth = 16;
constexpr uint32_t kThreadSessionsMax = 511;  // nine bits of a handle name the session, 0 is the main one

struct KVSESSIONPOOL {
  _api_session* pMain;     // not stored in the array
  _api_session** ppTSess;  // thread sessions by slot
  uint32_t Size;
  uint32_t Count;  // occupied slots
  uint32_t Next;   // lowest slot that may be free
  KVIEvent* NoThread;
  KVRWGUARD RWSynch;
};

extern std::atomic<KVSESSIONPOOL*> pgSessPool;

// The main session, null before the start is done. Other threads may ask while it starts.
inline _api_session* KVIMainSession(KVSESSIONPOOL* pSessPool) {
  if (pSessPool == nullptr) return nullptr;
  return std::atomic_ref<_api_session*>(pSessPool->pMain).load(std::memory_order_acquire);
}

uint32_t KVICurrentThread();  // never 0, never used by two threads of a process
uint32_t KVISessPoolInit(KVSESSIONPOOL* pSessPool);
uint32_t KVISessPoolAddSession(KVSESSIONPOOL* pSessPool, _api_session* pNewSess);
uint32_t KVISessPoolRemoveSession(KVSESSIONPOOL* pSessPool, _api_session* pSess);
uint32_t KVISessPoolSetMain(KVSESSIONPOOL* pSessPool, _api_session* pMainSess);
uint32_t KVISessPoolRemoveMain(KVSESSIONPOOL* pSessPool);
uint32_t KVISessPoolGetSessByHandle(KVSESSIONPOOL* pSessPool, uint32_t h, int bValidate,
                                    _api_session** ppSess);
uint32_t KVISessPoolGetCurrentSess(KVSESSIONPOOL* pSessPool, _api_session** ppSess);
uint32_t KVISessPoolWaitForThreads(KVSESSIONPOOL* pSessPool, int32_t TimeOut);
uint32_t KVISessPoolSignalNoThread(KVSESSIONPOOL* pSessPool);
uint32_t KVISessPoolClose(KVSESSIONPOOL* pSessPool);

uint32_t KVISessionCreate(_api_session** ppSess, uint32_t version);
uint32_t KVISessionDestroy(_api_session** ppSess);
// The first part of KVISessionDestroy: closes all that the session holds, while handles still find the
// session.
void _KVISessionRelease(_api_session* session);

// ---- The prologue

constexpr uint32_t kHandleNumberBits = 22;
constexpr uint32_t kHandleNumberMax = (1u << kHandleNumberBits) - 1;
constexpr uint32_t kIndexDocumentBit = 0x80000000u;

// What the calling thread's session was when the pool's generation was read. The pool changes the generation
// whenever a session comes or goes, so an equal generation proves that the session still is the thread's,
// without a guard and without a write to memory that another thread reads.
struct KVSESSIONCACHE {
  uint64_t generation;
  _api_session* session;
  uint32_t tidKV;
};
extern constinit thread_local KVSESSIONCACHE kv_session_cache;
extern constinit std::atomic<uint64_t> kv_pool_generation;

uint32_t _KVIEnterByPool(uint32_t handle, _api_session** session);
uint32_t _KVIEnterThreadByPool(_api_session** session);

// The session that owns the handle, its status cleared. A status goes to the caller directly, not through
// KVError.
inline uint32_t KVIEnter(uint32_t handle, _api_session** session) {
  const KVSESSIONCACHE& cache = kv_session_cache;
  if (cache.generation == kv_pool_generation.load(std::memory_order_acquire) &&
      cache.tidKV == ((handle & ~kIndexDocumentBit) >> kHandleNumberBits)) [[likely]] {
    *session = cache.session;
    cache.session->errcode = 0;
    return KVSUCCESS;
  }
  return _KVIEnterByPool(handle, session);
}

// The calling thread's session, its status cleared; for functions without a handle.
inline uint32_t KVIEnterThread(_api_session** session) {
  const KVSESSIONCACHE& cache = kv_session_cache;
  if (cache.generation == kv_pool_generation.load(std::memory_order_acquire)) [[likely]] {
    *session = cache.session;
    cache.session->errcode = 0;
    return KVSUCCESS;
  }
  return _KVIEnterThreadByPool(session);
}

// The calling thread's session as it stands, null if there is none.
_api_session* KVICurrentSession();

// ---- Failures

// Records a failure in the calling thread's session and returns the word to return. The first failure of a
// call wins.
uint32_t KVError(uint32_t code);
// Records a formula failure with the offending text.
uint32_t _BryndFormulaError(_api_session* session, uint32_t code, const char* error, uint32_t errlen);
// A message of the library's own table, at most length characters and a NUL; the number of characters, 0 for
// an unknown key.
uint32_t BryndLoadString(uint32_t code, char* buffer, uint32_t length);

// A masked engine status and the public status that stands for it.
struct STATUSROW {
  uint16_t brstatus;
  uint32_t status;
};
// The public status of the row that the masked engine status matches, else the engine status itself.
template <size_t RowCount>
uint32_t KVIMapStatus(uint16_t brstatus, const STATUSROW (&rows)[RowCount]) {
  for (const STATUSROW& row : rows)
    if ((brstatus & 0x3fff) == row.brstatus) return row.status;
  return brstatus;
}

// ---- Handles and tables

// A number for a new object, and the handle made of it. KVFAIL_NO_MEMORY when the session has used up its
// numbers.
uint32_t _KVINewNumber(_api_session* session, uint32_t* number);
uint32_t _KVINewHandle(_api_session* session, uint32_t* handle);
inline uint32_t _KVISessionBits(const _api_session* session) {
  return uint32_t{session->tidKV} << kHandleNumberBits;
}
inline uint32_t KVIBucket(uint32_t handle, uint32_t bucket_count) {
  return (handle & 0x801fffffu) % bucket_count;
}

// The record of a handle, null if there is none; a found record becomes the cached one.
_DATABASE* _GetDatabase(_api_session* session, uint32_t database);
_INDEX* _GetIndex(_api_session* session, uint32_t index);
_DOCUMENT* _GetDocument(_api_session* session, uint32_t document);
_COMPOSITE* _GetComposite(_api_session* session, uint32_t composite);

// The same with one comparison for the cached record.
inline _DATABASE* _KVIFindDatabase(_api_session* session, uint32_t database) {
  return database == session->hmruDB ? session->pmruDB : _GetDatabase(session, database);
}
inline _INDEX* _KVIFindIndex(_api_session* session, uint32_t index) {
  return index == session->hmruIDX ? session->pmruIDX : _GetIndex(session, index);
}
inline _DOCUMENT* _KVIFindDocument(_api_session* session, uint32_t document) {
  return document == session->hmruDOC ? session->pmruDOC : _GetDocument(session, document);
}
inline _COMPOSITE* _KVIFindComposite(_api_session* session, uint32_t composite) {
  return composite == session->hmruCOMP ? session->pmruCOMP : _GetComposite(session, composite);
}

// Puts a record whose handle is set at the head of its bucket and makes it the cached one.
void _KVILinkDatabase(_api_session* session, _DATABASE* dbase);
void _KVILinkIndex(_api_session* session, _INDEX* idx);
void _KVILinkDocument(_api_session* session, _DOCUMENT* doc);
// Takes a record out of its bucket and clears the cache if it holds it. Safe on a record that is in no
// bucket.
void _KVIUnlinkDatabase(_api_session* session, _DATABASE* dbase);
void _KVIUnlinkIndex(_api_session* session, _INDEX* idx);
void _KVIUnlinkDocument(_api_session* session, _DOCUMENT* doc);
void _KVIUnlinkComposite(_api_session* session, _COMPOSITE* comp);
// Clears the document cache if it holds this record: an index's document that is closed, zeroed or freed is
// in no bucket.
void _KVIForgetDocument(_api_session* session, const _DOCUMENT* doc);
// Gives a composite its bare number, links it in its bucket and its document's list, and stores the number in
// *number.
uint32_t _AddComposite(_api_session* session, _COMPOSITE* comp, uint32_t* number);

// ---- State of the session by number

constexpr int kStateServerList = 2;
constexpr int kStateCatalog = 3;
constexpr int kStateDirectory = 4;
constexpr int kStateTemplates = 5;
constexpr int kStateSchedule = 27;

// Releases one kind of state of the session; safe when it is empty.
uint32_t _ClearState(_api_session* session, int state);

// A user's name as the session tells names: without labels if it abbreviates names, else as it is. newname
// has the room of oldname. Always 0.
uint32_t _FormatUsername(_api_session* session, const char* oldname, char* newname);

#endif
