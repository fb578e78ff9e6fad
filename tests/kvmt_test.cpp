#include <atomic>
#include <chrono>
#include <thread>

#include "kit/kit.h"
#include "kvint_session.h"

using Clock = std::chrono::steady_clock;

namespace {

// A thread with a session that lives until it is told to end.
class SessionThread {
 public:
  SessionThread() : thread_([this] { Run(); }) {
    while (!started_) std::this_thread::yield();
  }
  ~SessionThread() { End(); }
  void End() {
    ends_ = true;
    if (thread_.joinable()) thread_.join();
  }
  uint16_t tid_kv() const { return tid_kv_; }

 private:
  void Run() {
    EXPECT_EQ(KVInitThread(0), KVSUCCESS);
    tid_kv_ = KVICurrentSession()->tidKV;
    started_ = true;
    while (!ends_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
  }

  std::atomic<bool> started_{false}, ends_{false};
  uint16_t tid_kv_ = 0;
  std::thread thread_;
};

class PoolTest : public kit::KavrinTest {
 protected:
  static KVSESSIONPOOL* Pool() { return pgSessPool.load(); }
  static uint32_t ByHandle(uint32_t handle) {
    _api_session* session = nullptr;
    return KVIEnter(handle, &session);
  }
  static uint32_t ByThread() {
    _api_session* session = nullptr;
    return KVIEnterThread(&session);
  }
};

// A pool of the test's own, with sessions that nothing runs on.
class OwnPoolTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(KVISessPoolInit(&pool_), KVSUCCESS);
    KVISessPoolSetMain(&pool_, &main_);
  }
  void TearDown() override {
    EXPECT_EQ(KVISessPoolClose(&pool_), KVSUCCESS);
    EXPECT_EQ(kit::HeapBlocks(), 0);
  }
  KVSESSIONPOOL pool_{};
  _api_session main_{};
};

}  // namespace

// ---- Primitives

TEST(KVIEvent, Init_SignalledThenResetAndSignal) {
  KVIEvent* event = nullptr;
  ASSERT_EQ(KVIEventInit(&event), KVSUCCESS);
  EXPECT_EQ(KVIEventWait(event, kNoTimeLimit), KVSUCCESS);  // made signalled, and stays so
  EXPECT_EQ(KVIEventWait(event, kNoTimeLimit), KVSUCCESS);
  EXPECT_EQ(KVIEventReset(event), KVSUCCESS);
  const auto start = Clock::now();
  EXPECT_EQ(KVIEventWait(event, 30), KVSUCCESS);  // a time-out is a success
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
  std::thread signaller([&] { KVIEventSignal(event); });
  EXPECT_EQ(KVIEventWait(event, kNoTimeLimit), KVSUCCESS);
  signaller.join();
  EXPECT_EQ(KVIEventDestroy(&event), KVSUCCESS);
  EXPECT_EQ(event, nullptr);
}

TEST(KVIEvent, NoEvent_Internal) {
  KVIEvent* event = nullptr;
  EXPECT_EQ(KVIEventSignal(nullptr), KVFAIL_INTERNAL);
  EXPECT_EQ(KVIEventReset(nullptr), KVFAIL_INTERNAL);
  EXPECT_EQ(KVIEventWait(nullptr, 0), KVFAIL_INTERNAL);
  EXPECT_EQ(KVIEventDestroy(&event), KVFAIL_INTERNAL);
  kit::Fault fault = kit::Fault::Allocation(1);
  EXPECT_EQ(KVIEventInit(&event), KVFAIL_INTERNAL);
  EXPECT_EQ(event, nullptr);
}

TEST(KVIMutex, Recursive_OtherThreadWaits) {
  KVIMutex* mutex = nullptr;
  ASSERT_EQ(KVIMutexInit(&mutex), KVSUCCESS);
  EXPECT_EQ(KVIMutexWait(mutex, 0), KVSUCCESS);
  EXPECT_EQ(KVIMutexWait(mutex, 0), KVSUCCESS);
  std::atomic<bool> entered{false};
  std::thread other([&] {
    KVIMutexWait(mutex, 0);  // the time limit has no effect
    entered = true;
    KVIMutexRelease(mutex);
  });
  KVIMutexRelease(mutex);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(entered);
  KVIMutexRelease(mutex);
  other.join();
  EXPECT_TRUE(entered);
  EXPECT_EQ(KVIMutexDestroy(&mutex), KVSUCCESS);
  EXPECT_EQ(mutex, nullptr);
  kit::Fault fault = kit::Fault::Allocation(1);
  EXPECT_EQ(KVIMutexInit(&mutex), KVFAIL_NO_MEMORY);
}

TEST(KVRWGUARD, ReadersNest_WriterWaitsForTheLast) {
  KVRWGUARD guard{};
  ASSERT_EQ(KVIRWGuardInit(&guard), KVSUCCESS);
  KVIRWGuardWaitToRead(&guard, kNoTimeLimit);
  KVIRWGuardWaitToRead(&guard, kNoTimeLimit);
  std::atomic<bool> wrote{false};
  std::thread writer([&] {
    KVIRWGuardWaitToWrite(&guard, kNoTimeLimit);
    wrote = true;
    KVIRWGuardDoneWriting(&guard);
  });
  KVIRWGuardDoneReading(&guard);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(wrote);
  KVIRWGuardDoneReading(&guard);
  writer.join();
  EXPECT_TRUE(wrote);
  EXPECT_EQ(KVIRWGuardClose(&guard), KVSUCCESS);
}

TEST(KVRWGUARD, ReadersAndWriters_NoWriterBesideAnyone) {
  KVRWGUARD guard{};
  ASSERT_EQ(KVIRWGuardInit(&guard), KVSUCCESS);
  int64_t first = 0, second = 0;  // equal outside a writer
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number)
    threads.emplace_back([&, number] {
      for (int round = 0; round < 500; ++round) {
        if (number == 0) {
          KVIRWGuardWaitToWrite(&guard, kNoTimeLimit);
          ++first;
          ++second;
          KVIRWGuardDoneWriting(&guard);
        } else {
          KVIRWGuardWaitToRead(&guard, kNoTimeLimit);
          EXPECT_EQ(first, second);
          KVIRWGuardDoneReading(&guard);
        }
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(first, 500);
  EXPECT_EQ(guard.ReadCount, 0u);
  KVIRWGuardClose(&guard);
}

TEST(KVRWGUARD, Init_AllocationFails_NothingLeft) {
  for (uint32_t nth = 1; nth <= 2; ++nth) {
    KVRWGUARD guard{};
    kit::Fault fault = kit::Fault::Allocation(nth);
    EXPECT_NE(KVIRWGuardInit(&guard), KVSUCCESS);
    EXPECT_EQ(kit::HeapBlocks(), 0);
  }
}

TEST(KVICurrentThread, EveryThread_OwnNumberNeverReused) {
  const uint32_t own = KVICurrentThread();
  EXPECT_NE(own, 0u);
  EXPECT_EQ(KVICurrentThread(), own);
  std::vector<uint32_t> seen{own};
  for (int number = 0; number < 20; ++number)
    kit::InThread([&] {
      const uint32_t thread = KVICurrentThread();
      EXPECT_EQ(std::count(seen.begin(), seen.end(), thread), 0);
      seen.push_back(thread);
    });
}

// ---- A pool of its own

TEST_F(OwnPoolTest, Init_AllocationFails_StatusOfThePartNothingLeft) {
  constexpr uint32_t kStatuses[] = {KVFAIL_NO_MEMORY, KVFAIL_INTERNAL, KVFAIL_NO_MEMORY, KVFAIL_INTERNAL};
  const int64_t heap_blocks = kit::HeapBlocks();
  for (uint32_t nth = 1;; ++nth) {
    KVSESSIONPOOL pool{};
    kit::Fault fault = kit::Fault::Allocation(nth);
    const uint32_t status = KVISessPoolInit(&pool);
    fault.Disarm();
    if (!fault.Hit()) {
      EXPECT_EQ(KVISessPoolClose(&pool), KVSUCCESS);
      EXPECT_EQ(nth, 5u);  // slots, event, mutex and event of the guard, and none more
      break;
    }
    ASSERT_LE(nth, std::size(kStatuses));
    EXPECT_EQ(status, kStatuses[nth - 1]) << nth;
    EXPECT_EQ(kit::HeapBlocks(), heap_blocks);
  }
}

TEST_F(OwnPoolTest, AddSession_511Sessions_The512thIsRefused) {
  std::vector<_api_session> sessions(512);
  for (uint32_t slot = 0; slot < 511; ++slot) {
    ASSERT_EQ(KVISessPoolAddSession(&pool_, &sessions[slot]), KVSUCCESS);
    EXPECT_EQ(sessions[slot].tidKV, slot + 1);
  }
  EXPECT_EQ(KVISessPoolAddSession(&pool_, &sessions[511]), KVFAIL_NO_MEMORY);
  EXPECT_EQ(pool_.Count, 511u);
  EXPECT_EQ(pool_.Size, 512u);
}

TEST_F(OwnPoolTest, AddSession_GrowthFails_NothingAdded) {
  std::vector<_api_session> sessions(17);
  for (uint32_t slot = 0; slot < 16; ++slot)
    ASSERT_EQ(KVISessPoolAddSession(&pool_, &sessions[slot]), KVSUCCESS);
  kit::Fault fault = kit::Fault::Allocation(1);
  EXPECT_EQ(KVISessPoolAddSession(&pool_, &sessions[16]), KVFAIL_NO_MEMORY);
  fault.Disarm();
  EXPECT_EQ(pool_.Count, 16u);
  EXPECT_EQ(pool_.Size, 16u);
  EXPECT_EQ(KVISessPoolAddSession(&pool_, &sessions[16]), KVSUCCESS);
  EXPECT_EQ(pool_.Size, 32u);
  EXPECT_EQ(sessions[16].tidKV, 17);
}

TEST_F(OwnPoolTest, GetSessByHandle_EmptySlots_StatusByWhoAsks) {
  _api_session* session = nullptr;
  // Only the main session lives, and this thread is its owner.
  EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, 1, 1, &session), KVSUCCESS);
  EXPECT_EQ(session, &main_);
  for (const uint32_t bits : {1u, 16u, 17u, 511u, 0x3ffu}) {
    EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, bits << 22 | 1, 1, &session), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, bits << 22 | 1, 0, &session), KVFAIL_THREAD_NOT_INITIALIZED);
  }
  kit::InThread([&] {
    _api_session* found = nullptr;
    EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, 1u << 22 | 1, 1, &found), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, 1, 1, &found), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVISessPoolGetSessByHandle(&pool_, 1, 0, &found),
              KVSUCCESS);  // without validation any thread's
    EXPECT_EQ(found, &main_);
    EXPECT_EQ(KVISessPoolGetCurrentSess(&pool_, &found), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(found, nullptr);
  });
}

TEST_F(OwnPoolTest, GetSess_NoPoolOrNoMain_NotInitialized) {
  _api_session* session = &main_;
  EXPECT_EQ(KVISessPoolGetCurrentSess(nullptr, &session), KVFAIL_NOT_INITIALIZED);
  EXPECT_EQ(session, nullptr);
  EXPECT_EQ(KVISessPoolGetSessByHandle(nullptr, 1, 1, &session), KVFAIL_NOT_INITIALIZED);
  KVSESSIONPOOL empty{};
  ASSERT_EQ(KVISessPoolInit(&empty), KVSUCCESS);
  EXPECT_EQ(KVISessPoolGetCurrentSess(&empty, &session), KVFAIL_NOT_INITIALIZED);
  EXPECT_EQ(KVISessPoolGetSessByHandle(&empty, 1, 1, &session), KVFAIL_NOT_INITIALIZED);
  KVISessPoolClose(&empty);
}

TEST_F(OwnPoolTest, RemoveSession_EmptySlot_Internal) {
  _api_session stray{};
  stray.tidKV = 3;
  EXPECT_EQ(KVISessPoolRemoveSession(&pool_, &stray), KVFAIL_INTERNAL);
  stray.tidKV = 0;
  EXPECT_EQ(KVISessPoolRemoveSession(&pool_, &stray), KVFAIL_INTERNAL);
}

TEST_F(OwnPoolTest, NoThread_SignalledWhileThereIsNone) {
  EXPECT_EQ(KVISessPoolWaitForThreads(&pool_, kNoTimeLimit), KVSUCCESS);
  auto* session = KVIAllocate<_api_session>();
  ASSERT_EQ(KVISessPoolAddSession(&pool_, session), KVSUCCESS);
  EXPECT_EQ(KVISessPoolSignalNoThread(&pool_), KVSUCCESS);  // a session lives: no signal
  auto start = Clock::now();
  EXPECT_EQ(KVISessPoolWaitForThreads(&pool_, 20), KVSUCCESS);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
  EXPECT_EQ(KVISessPoolRemoveSession(&pool_, session), KVSUCCESS);
  EXPECT_EQ(KVISessPoolSignalNoThread(&pool_), KVSUCCESS);
  EXPECT_EQ(KVISessPoolWaitForThreads(&pool_, kNoTimeLimit), KVSUCCESS);
}

// ---- The library's pool

TEST_F(PoolTest, SeventeenThreadSessions_ArrayGrowsTo32) {
  std::vector<std::unique_ptr<SessionThread>> threads;
  for (uint32_t number = 1; number <= 17; ++number) {
    threads.push_back(std::make_unique<SessionThread>());
    EXPECT_EQ(threads.back()->tid_kv(), number);
  }
  EXPECT_EQ(Pool()->Size, 32u);
  EXPECT_EQ(Pool()->Count, 17u);
  threads.clear();
  EXPECT_EQ(Pool()->Count, 0u);
  EXPECT_EQ(Pool()->Next, 0u);
}

TEST_F(PoolTest, SlotReuse_LowestFreeSlotFirst) {
  SessionThread first;
  auto second = std::make_unique<SessionThread>();
  SessionThread third;
  EXPECT_EQ(second->tid_kv(), 2);
  EXPECT_EQ(Pool()->Next, 3u);
  second.reset();
  EXPECT_EQ(Pool()->Next, 1u);
  SessionThread again;
  EXPECT_EQ(again.tid_kv(), 2);
  EXPECT_EQ(Pool()->Next, 3u);
}

TEST_F(PoolTest, Prologue_HandlesOfOtherSessions_BadHandle) {
  SessionThread other;
  EXPECT_EQ(ByHandle(1), KVSUCCESS);
  EXPECT_EQ(ByHandle(1 | kIndexDocumentBit), KVSUCCESS);  // bit 31 is no session bit
  EXPECT_EQ(ByHandle(1u << 22 | 1), KVFAIL_BAD_HANDLE);   // the other thread's
  EXPECT_EQ(ByHandle(2u << 22 | 1), KVFAIL_BAD_HANDLE);   // nobody's
  EXPECT_EQ(ByHandle(511u << 22 | 1), KVFAIL_BAD_HANDLE);
  kit::InSession([] {
    EXPECT_EQ(KVICurrentSession()->tidKV, 2);
    EXPECT_EQ(ByHandle(1), KVFAIL_BAD_HANDLE);  // the main session's
    EXPECT_EQ(ByHandle(1u << 22 | 1), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(ByHandle(2u << 22 | 1), KVSUCCESS);
    EXPECT_EQ(ByHandle(2u << 22 | 1 | kIndexDocumentBit), KVSUCCESS);
  });
  kit::InThread([] {
    EXPECT_EQ(ByThread(), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(ByHandle(3u << 22 | 1), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(ByHandle(1), KVFAIL_BAD_HANDLE);
  });
}

TEST_F(PoolTest, Prologue_BadHandle_LeavesTheErrorStateAlone) {
  ASSERT_EQ(KVGetProperty(1, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(ByHandle(1u << 22 | 1), KVFAIL_BAD_HANDLE);
  EXPECT_EQ(kit::LastError().status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(ByHandle(1), KVSUCCESS);
  EXPECT_EQ(kit::LastError().status, 0u);
}

TEST_F(PoolTest, Prologue_AfterTheEnd_NotInitializedThoughTheThreadHadASession) {
  EXPECT_EQ(ByThread(), KVSUCCESS);
  EXPECT_EQ(ByHandle(1), KVSUCCESS);
  EndLibrary();
  EXPECT_EQ(ByThread(), KVFAIL_NOT_INITIALIZED);
  EXPECT_EQ(ByHandle(1), KVFAIL_NOT_INITIALIZED);
  EXPECT_EQ(KVICurrentSession(), nullptr);
}

TEST_F(PoolTest, Prologue_ThreadEndsItsSession_ThreadNotInitialized) {
  kit::InThread([] {
    ASSERT_EQ(KVInitThread(0), KVSUCCESS);
    EXPECT_EQ(ByThread(), KVSUCCESS);
    EXPECT_EQ(ByHandle(1u << 22 | 1), KVSUCCESS);
    ASSERT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
    EXPECT_EQ(ByThread(), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(ByHandle(1u << 22 | 1), KVFAIL_THREAD_NOT_INITIALIZED);
    ASSERT_EQ(KVInitThread(0), KVSUCCESS);
    EXPECT_EQ(ByThread(), KVSUCCESS);
    ASSERT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
  });
}

TEST_F(PoolTest, ThreadEndsWithoutTerm_NextThreadDoesNotInheritItsSession) {
  _api_session* left = nullptr;
  kit::InThread([&] {
    ASSERT_EQ(KVInitThread(0), KVSUCCESS);
    left = KVICurrentSession();
  });
  for (int number = 0; number < 5; ++number)
    kit::InThread([] { EXPECT_EQ(ByThread(), KVFAIL_THREAD_NOT_INITIALIZED); });
  KVISessPoolRemoveSession(Pool(), left);
  KVISessPoolSignalNoThread(Pool());
}

TEST_F(PoolTest, ManyThreads_StartCallAndEnd_EachKeepsItsOwnState) {
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number)
    threads.emplace_back([number] {
      for (int round = 0; round < 40; ++round) {
        ASSERT_EQ(KVInitThread(0), KVSUCCESS);
        const uint32_t rows = static_cast<uint32_t>(number * 1000 + round + 2);
        EXPECT_EQ(KVSetProperty(KVPROP_SESS_VCACHE_ROWS, &rows), KVSUCCESS);
        for (int call = 0; call < 20; ++call) {
          uint32_t read = 0;
          EXPECT_EQ(KVGetProperty(KVPROP_SESS_VCACHE_ROWS, &read), KVSUCCESS);
          EXPECT_EQ(read, rows);
          EXPECT_EQ(KVGetProperty(0, &read), KVFAIL_BAD_PROPERTY);
          EXPECT_EQ(kit::LastError().status, KVFAIL_BAD_PROPERTY);
        }
        ASSERT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
      }
    });
  for (int call = 0; call < 2000; ++call) {
    uint32_t rows = 0;
    EXPECT_EQ(KVGetProperty(KVPROP_SESS_VCACHE_ROWS, &rows), KVSUCCESS);
    EXPECT_EQ(rows, 1u);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Pool()->Count, 0u);
}
