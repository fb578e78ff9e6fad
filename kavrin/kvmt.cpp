// Mutex, event, readers-writer guard and the pool of sessions.
//
// (1) The pool's fields change under writer entry alone. (2) Size, Count, Next and the slots are read under
// reader entry. (3) Every change of who has a session takes a new generation, so that the threads' cached
// sessions are looked up anew. (4) Nothing touches the pool after KVISessPoolClose has had writer entry.
#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "kvint_session.h"

constinit std::atomic<KVSESSIONPOOL*> pgSessPool{nullptr};
constinit std::atomic<uint64_t> kv_pool_generation{1};
constinit thread_local KVSESSIONCACHE kv_session_cache{0, nullptr, 0};

struct KVIMutex {
  pthread_mutex_t lock;
};

struct KVIEvent {
  pthread_mutex_t lock;
  pthread_cond_t changed;
  bool signalled;
};

// ---- Mutex

uint32_t KVIMutexInit(KVIMutex** phMutex) {
  *phMutex = nullptr;
  auto* mutex = KVIAllocate<KVIMutex>();
  if (mutex == nullptr) return KVFAIL_NO_MEMORY;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex->lock, &attributes);
  pthread_mutexattr_destroy(&attributes);
  *phMutex = mutex;
  return KVSUCCESS;
}

uint32_t KVIMutexWait(KVIMutex* hMutex, int32_t) {
  pthread_mutex_lock(&hMutex->lock);
  return KVSUCCESS;
}

uint32_t KVIMutexRelease(KVIMutex* hMutex) {
  pthread_mutex_unlock(&hMutex->lock);
  return KVSUCCESS;
}

uint32_t KVIMutexDestroy(KVIMutex** phMutex) {
  if (*phMutex == nullptr) return KVSUCCESS;
  pthread_mutex_destroy(&(*phMutex)->lock);
  KVIFreeAndClear(phMutex);
  return KVSUCCESS;
}

// ---- Event

uint32_t KVIEventInit(KVIEvent** phEvent) {
  *phEvent = nullptr;
  auto* event = KVIAllocate<KVIEvent>();
  if (event == nullptr) return KVFAIL_INTERNAL;
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_mutex_init(&event->lock, nullptr);
  pthread_cond_init(&event->changed, &attributes);
  pthread_condattr_destroy(&attributes);
  event->signalled = true;
  *phEvent = event;
  return KVSUCCESS;
}

static uint32_t SetEvent(KVIEvent* event, bool signalled) {
  if (event == nullptr || pthread_mutex_lock(&event->lock) != 0) return KVFAIL_INTERNAL;
  event->signalled = signalled;
  if (signalled) pthread_cond_broadcast(&event->changed);
  pthread_mutex_unlock(&event->lock);
  return KVSUCCESS;
}

uint32_t KVIEventSignal(KVIEvent* hEvent) { return SetEvent(hEvent, true); }

uint32_t KVIEventReset(KVIEvent* hEvent) { return SetEvent(hEvent, false); }

uint32_t KVIEventWait(KVIEvent* hEvent, int32_t TimeOut) {
  if (hEvent == nullptr) return KVFAIL_INTERNAL;
  timespec until{};
  if (TimeOut >= 0) {
    clock_gettime(CLOCK_MONOTONIC, &until);
    const int64_t nanoseconds = until.tv_nsec + int64_t{TimeOut % 1000} * 1000000;
    until.tv_sec += TimeOut / 1000 + nanoseconds / 1000000000;
    until.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  }
  if (pthread_mutex_lock(&hEvent->lock) != 0) return KVFAIL_INTERNAL;
  int result = 0;
  while (!hEvent->signalled && result == 0)
    result = TimeOut < 0 ? pthread_cond_wait(&hEvent->changed, &hEvent->lock)
                         : pthread_cond_timedwait(&hEvent->changed, &hEvent->lock, &until);
  pthread_mutex_unlock(&hEvent->lock);
  return result == 0 || result == ETIMEDOUT ? KVSUCCESS : KVFAIL_INTERNAL;
}

uint32_t KVIEventDestroy(KVIEvent** phEvent) {
  if (*phEvent == nullptr) return KVFAIL_INTERNAL;
  pthread_cond_destroy(&(*phEvent)->changed);
  pthread_mutex_destroy(&(*phEvent)->lock);
  KVIFreeAndClear(phEvent);
  return KVSUCCESS;
}

// ---- Readers-writer guard

uint32_t KVIRWGuardInit(KVRWGUARD* pRWGuard) {
  pRWGuard->ReadCount = 0;
  pRWGuard->NoReader = nullptr;
  if (uint32_t status = KVIMutexInit(&pRWGuard->WriteAccess)) return status;
  if (uint32_t status = KVIEventInit(&pRWGuard->NoReader)) {
    KVIMutexDestroy(&pRWGuard->WriteAccess);
    return status;
  }
  return KVSUCCESS;
}

uint32_t KVIRWGuardClose(KVRWGUARD* pRWGuard) {
  uint32_t first = KVIMutexDestroy(&pRWGuard->WriteAccess);
  KVIKeepFirst(&first, KVIEventDestroy(&pRWGuard->NoReader));
  return first;
}

uint32_t KVIRWGuardWaitToRead(KVRWGUARD* pRWGuard, int32_t TimeOut) {
  if (uint32_t status = KVIMutexWait(pRWGuard->WriteAccess, TimeOut)) return status;
  ++pRWGuard->ReadCount;
  const uint32_t status = KVIEventReset(pRWGuard->NoReader);
  KVIMutexRelease(pRWGuard->WriteAccess);
  return status;
}

uint32_t KVIRWGuardDoneReading(KVRWGUARD* pRWGuard) {
  if (uint32_t status = KVIMutexWait(pRWGuard->WriteAccess, kNoTimeLimit)) return status;
  uint32_t status = KVSUCCESS;
  if (--pRWGuard->ReadCount == 0) status = KVIEventSignal(pRWGuard->NoReader);
  KVIMutexRelease(pRWGuard->WriteAccess);
  return status;
}

uint32_t KVIRWGuardWaitToWrite(KVRWGUARD* pRWGuard, int32_t TimeOut) {
  if (uint32_t status = KVIEventWait(pRWGuard->NoReader, TimeOut)) return status;
  if (uint32_t status = KVIMutexWait(pRWGuard->WriteAccess, TimeOut)) return status;
  while (pRWGuard->ReadCount != 0) {
    KVIMutexRelease(pRWGuard->WriteAccess);
    if (uint32_t status = KVIEventWait(pRWGuard->NoReader, TimeOut)) return status;
    if (uint32_t status = KVIMutexWait(pRWGuard->WriteAccess, TimeOut)) return status;
  }
  return KVSUCCESS;
}

uint32_t KVIRWGuardDoneWriting(KVRWGUARD* pRWGuard) { return KVIMutexRelease(pRWGuard->WriteAccess); }

// ---- The pool

// A running number, not the platform's thread id: those come back, and a new thread would inherit the session
// of one that ended without ending its session.
uint32_t KVICurrentThread() {
  static constinit std::atomic<uint32_t> last_thread{0};
  static constinit thread_local uint32_t thread = 0;
  while (thread == 0) thread = last_thread.fetch_add(1, std::memory_order_relaxed) + 1;
  return thread;
}

static void RenewGeneration() { kv_pool_generation.fetch_add(1, std::memory_order_release); }

uint32_t KVISessPoolInit(KVSESSIONPOOL* pSessPool) {
  pSessPool->ppTSess = KVIAllocate<_api_session*>(kPoolGrowth);
  if (pSessPool->ppTSess == nullptr) return KVFAIL_NO_MEMORY;
  KVGuard free_slots([&] { KVIFreeAndClear(&pSessPool->ppTSess); });
  pSessPool->Size = kPoolGrowth;
  pSessPool->Count = 0;
  pSessPool->Next = 0;
  if (uint32_t status = KVIEventInit(&pSessPool->NoThread)) return status;
  KVGuard destroy_event([&] { KVIEventDestroy(&pSessPool->NoThread); });
  if (uint32_t status = KVIRWGuardInit(&pSessPool->RWSynch)) return status;
  destroy_event.Dismiss();
  free_slots.Dismiss();
  return KVSUCCESS;
}

static uint32_t GrowPool(KVSESSIONPOOL* pool) {
  if (pool->Size >= kThreadSessionsMax) return KVFAIL_NO_MEMORY;
  if (!KVIReallocate(&pool->ppTSess, pool->Size + kPoolGrowth)) return KVFAIL_NO_MEMORY;
  for (uint32_t slot = pool->Size; slot < pool->Size + kPoolGrowth; ++slot) pool->ppTSess[slot] = nullptr;
  pool->Size += kPoolGrowth;
  return KVSUCCESS;
}

static uint32_t PlaceSession(KVSESSIONPOOL* pool, _api_session* session) {
  // A handle has nine bits for the session: the 512th thread session would shift into the mark of index
  // documents.
  if (pool->Next >= kThreadSessionsMax) return KVFAIL_NO_MEMORY;
  if (pool->Next == pool->Size)
    if (uint32_t status = GrowPool(pool)) return status;
  if (pool->Count == 0) KVIEventReset(pool->NoThread);
  session->tidOS = KVICurrentThread();
  session->tidKV = static_cast<uint16_t>(pool->Next + 1);
  pool->ppTSess[pool->Next] = session;
  ++pool->Count;
  ++pool->Next;
  while (pool->Next < pool->Size && pool->ppTSess[pool->Next] != nullptr) ++pool->Next;
  RenewGeneration();
  return KVSUCCESS;
}

uint32_t KVISessPoolAddSession(KVSESSIONPOOL* pSessPool, _api_session* pNewSess) {
  if (uint32_t status = KVIRWGuardWaitToWrite(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  const uint32_t status = PlaceSession(pSessPool, pNewSess);
  KVIRWGuardDoneWriting(&pSessPool->RWSynch);
  return status;
}

// The objects are closed while the slot still names the session, since closing finds it through its handles;
// the slot is cleared under the guard, since other threads walk the slots. NoThread is not signalled here: a
// waiting KVTerm would free the pool under the ending thread, which signals as the last thing that it does
// with the pool.
uint32_t KVISessPoolRemoveSession(KVSESSIONPOOL* pSessPool, _api_session* pSess) {
  const uint32_t slot = uint32_t{pSess->tidKV} - 1;
  if (uint32_t status = KVIRWGuardWaitToRead(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  const bool empty = slot >= pSessPool->Size || pSessPool->ppTSess[slot] == nullptr;
  KVIRWGuardDoneReading(&pSessPool->RWSynch);
  if (empty) return KVFAIL_INTERNAL;
  _KVISessionRelease(pSess);
  if (uint32_t status = KVIRWGuardWaitToWrite(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  pSessPool->ppTSess[slot] = nullptr;
  --pSessPool->Count;
  if (pSessPool->Next > slot) pSessPool->Next = slot;
  RenewGeneration();
  KVIRWGuardDoneWriting(&pSessPool->RWSynch);
  return KVISessionDestroy(&pSess);
}

uint32_t KVISessPoolSetMain(KVSESSIONPOOL* pSessPool, _api_session* pMainSess) {
  pMainSess->tidOS = KVICurrentThread();
  pMainSess->tidKV = 0;
  std::atomic_ref<_api_session*>(pSessPool->pMain).store(pMainSess, std::memory_order_release);
  RenewGeneration();
  return KVSUCCESS;
}

uint32_t KVISessPoolRemoveMain(KVSESSIONPOOL* pSessPool) {
  _api_session* session = pSessPool->pMain;
  _KVISessionRelease(session);
  if (uint32_t status = KVIRWGuardWaitToWrite(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  std::atomic_ref<_api_session*>(pSessPool->pMain).store(nullptr, std::memory_order_release);
  RenewGeneration();
  KVIRWGuardDoneWriting(&pSessPool->RWSynch);
  return KVISessionDestroy(&session);
}

// The calling thread's session; the caller has reader entry.
static _api_session* FindThreadSession(KVSESSIONPOOL* pool, uint32_t thread) {
  _api_session* main_session = KVIMainSession(pool);
  if (main_session != nullptr && main_session->tidOS == thread) return main_session;
  uint32_t seen = 0;
  for (uint32_t slot = 0; slot < pool->Size && seen < pool->Count; ++slot) {
    _api_session* session = pool->ppTSess[slot];
    if (session == nullptr) continue;
    ++seen;
    if (session->tidOS == thread) return session;
  }
  return nullptr;
}

uint32_t KVISessPoolGetCurrentSess(KVSESSIONPOOL* pSessPool, _api_session** ppSess) {
  *ppSess = nullptr;
  if (KVIMainSession(pSessPool) == nullptr) return KVFAIL_NOT_INITIALIZED;
  if (uint32_t status = KVIRWGuardWaitToRead(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  *ppSess = FindThreadSession(pSessPool, KVICurrentThread());
  KVIRWGuardDoneReading(&pSessPool->RWSynch);
  return *ppSess == nullptr ? KVFAIL_THREAD_NOT_INITIALIZED : KVSUCCESS;
}

// The session that the handle names, null if none; the caller has reader entry.
static _api_session* FindHandleSession(KVSESSIONPOOL* pool, uint32_t pool_index) {
  if (pool_index == 0) return KVIMainSession(pool);
  if (pool->Count == 0 || pool_index > pool->Size) return nullptr;
  return pool->ppTSess[pool_index - 1];
}

uint32_t KVISessPoolGetSessByHandle(KVSESSIONPOOL* pSessPool, uint32_t h, int bValidate,
                                    _api_session** ppSess) {
  const uint32_t pool_index = (h >> kHandleNumberBits) & 0x3ff;
  *ppSess = nullptr;
  if (KVIMainSession(pSessPool) == nullptr) return KVFAIL_NOT_INITIALIZED;
  if (uint32_t status = KVIRWGuardWaitToRead(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  const uint32_t thread = KVICurrentThread();
  _api_session* candidate = FindHandleSession(pSessPool, pool_index);
  uint32_t status = KVSUCCESS;
  if (candidate == nullptr && (bValidate == 0 || FindThreadSession(pSessPool, thread) == nullptr))
    status = KVFAIL_THREAD_NOT_INITIALIZED;
  else if (candidate == nullptr)
    status = KVFAIL_BAD_HANDLE;
  else if (bValidate != 0 && candidate->tidOS != thread)
    status = KVFAIL_BAD_HANDLE;
  if (status == KVSUCCESS) *ppSess = candidate;
  KVIRWGuardDoneReading(&pSessPool->RWSynch);
  return status;
}

uint32_t KVISessPoolWaitForThreads(KVSESSIONPOOL* pSessPool, int32_t TimeOut) {
  return KVIEventWait(pSessPool->NoThread, TimeOut);
}

// Under reader entry, so that no session is added between the test and the signal, and so that a pool that is
// closed after the signal is closed after the exit too.
uint32_t KVISessPoolSignalNoThread(KVSESSIONPOOL* pSessPool) {
  if (uint32_t status = KVIRWGuardWaitToRead(&pSessPool->RWSynch, kNoTimeLimit)) return status;
  uint32_t status = KVSUCCESS;
  if (pSessPool->Count == 0) status = KVIEventSignal(pSessPool->NoThread);
  KVIKeepFirst(&status, KVIRWGuardDoneReading(&pSessPool->RWSynch));
  return status;
}

uint32_t KVISessPoolClose(KVSESSIONPOOL* pSessPool) {
  uint32_t first = KVIRWGuardWaitToWrite(&pSessPool->RWSynch, kNoTimeLimit);
  RenewGeneration();
  KVIKeepFirst(&first, KVIRWGuardDoneWriting(&pSessPool->RWSynch));
  KVIFreeAndClear(&pSessPool->ppTSess);
  pSessPool->Size = pSessPool->Count = pSessPool->Next = 0;
  KVIKeepFirst(&first, KVIEventDestroy(&pSessPool->NoThread));
  KVIKeepFirst(&first, KVIRWGuardClose(&pSessPool->RWSynch));
  return first;
}

// ---- The prologue behind its cache

// Reads the generation before it looks, so that a change in between makes the cached session stale at once.
static uint32_t LookUpThread(_api_session** session) {
  const uint64_t generation = kv_pool_generation.load(std::memory_order_acquire);
  if (uint32_t status = KVISessPoolGetCurrentSess(pgSessPool.load(std::memory_order_acquire), session))
    return status;
  kv_session_cache = {generation, *session, (*session)->tidKV};
  return KVSUCCESS;
}

uint32_t _KVIEnterThreadByPool(_api_session** session) {
  if (uint32_t status = LookUpThread(session)) return status;
  (*session)->errcode = 0;
  return KVSUCCESS;
}

uint32_t _KVIEnterByPool(uint32_t handle, _api_session** session) {
  KVSESSIONPOOL* pool = pgSessPool.load(std::memory_order_acquire);
  if (uint32_t status = KVISessPoolGetSessByHandle(pool, handle & ~kIndexDocumentBit, 1, session))
    return status;
  _api_session* own = nullptr;
  LookUpThread(&own);  // the two are the same; this one fills the cache
  (*session)->errcode = 0;
  return KVSUCCESS;
}

_api_session* KVICurrentSession() {
  if (kv_session_cache.generation == kv_pool_generation.load(std::memory_order_acquire))
    return kv_session_cache.session;
  _api_session* session = nullptr;
  LookUpThread(&session);
  return session;
}
