#include <cstring>
#include <thread>

#include "brynd.h"
#include "kit/child.h"
#include "kit/kit.h"
#include "kvint_session.h"
#include "kvint_system.h"

using kit::Memory;

namespace {

// The library is not started by the fixture; whatever a test starts is ended at the end.
class SessionTest : public testing::Test {
 protected:
  void TearDown() override {
    while (KVTerm(0) == KVSUCCESS) continue;
    EndPool();
    EXPECT_EQ(Memory().heap_blocks, 0);
    EXPECT_EQ(Memory().blocks, 0u);
    EXPECT_EQ(Memory().locks, 0u);
    EXPECT_EQ(directory_.StrayFiles(), "");
  }

  uint32_t Start(uint32_t version = KVAPI_VERSION, uint32_t init_flags = 0) {
    return _KVInit(version, init_flags | KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini_.data()));
  }
  uint32_t StartMissing() {
    std::string ini = directory_.File("nothing.ini");
    return KVInit(KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data()));
  }
  // A failed start leaves its pool for the next one.
  static void EndPool() {
    KVSESSIONPOOL* pool = pgSessPool.exchange(nullptr);
    if (pool == nullptr) return;
    KVISessPoolClose(pool);
    KVIFree(pool);
  }
  static _api_session* Session() { return KVICurrentSession(); }
  std::string SweepStart(bool of_thread);

  kit::DataDirectory directory_;
  std::string ini_ = directory_.ini();
};

std::vector<uint32_t> slept;

}  // namespace

TEST_F(SessionTest, KVInit_Twice_OneTermLeavesTheSession) {
  ASSERT_EQ(Start(), KVSUCCESS);
  ASSERT_EQ(Start(), KVSUCCESS);
  EXPECT_EQ(Session()->ref_count, 2u);
  EXPECT_EQ(KVTerm(0), KVSUCCESS);
  ASSERT_NE(Session(), nullptr);
  EXPECT_EQ(Session()->ref_count, 1u);
  EXPECT_EQ(KVTerm(0), KVSUCCESS);
  EXPECT_EQ(Session(), nullptr);
  EXPECT_EQ(KVTerm(0), KVFAIL_NOT_INITIALIZED);
}

TEST_F(SessionTest, KVInit_CallerVersions_OnlyTheRangeIsAccepted) {
  struct Row {
    uint32_t version;
    bool accepted;
  };
  for (const Row& row :
       {Row{0, false}, Row{0x1ffff, false}, Row{0x20000, true}, Row{0x20001, true}, Row{0x45005, true},
        Row{0x45100, true}, Row{0x45101, false}, Row{0xffffffff, false}}) {
    EXPECT_EQ(Start(row.version), row.accepted ? KVSUCCESS : KVFAIL_BAD_VERSION) << row.version;
    if (!row.accepted) continue;
    EXPECT_EQ(Session()->kvprog_version, row.version);
    EXPECT_EQ(KVTerm(0), KVSUCCESS);
  }
  ASSERT_EQ(Start(), KVSUCCESS);
  EXPECT_EQ(Start(0x1ffff), KVFAIL_BAD_VERSION);  // tested before the nesting
  EXPECT_EQ(Session()->ref_count, 1u);
}

TEST_F(SessionTest, KVInit_DefaultsOfEveryField) {
  ASSERT_EQ(Start(), KVSUCCESS);
  const _api_session* session = Session();
  EXPECT_EQ(session->truncate_text, 0);
  EXPECT_EQ(session->keep_maildb_open, 0);
  EXPECT_EQ(session->abbreviate_names, 1);
  EXPECT_STREQ(session->newline_delimiter, "\r\n");
  EXPECT_EQ(session->newline_delim_len, 2);
  EXPECT_EQ(session->default_task_name[0], 0);
  EXPECT_EQ(session->delay_commit_default, 0);
  EXPECT_EQ(session->strict_bind_default, 1);
  EXPECT_EQ(session->strict_bind_comp_default, 1);
  EXPECT_EQ(session->docopen_design_default, 0);
  EXPECT_EQ(session->fetch_design_code_default, 0);
  EXPECT_EQ(session->summary_limit_default, 0x2000u);
  EXPECT_EQ(session->vcache_rows, 1u);
  EXPECT_EQ(session->read_subf_fields_default, 1);
  EXPECT_EQ(session->max_db_size_default, 1u);
  EXPECT_EQ(session->errcode, 0u);
  EXPECT_EQ(session->dbinfo_list, nullptr);
  EXPECT_EQ(session->next_handle, 1u);
  EXPECT_EQ(session->delete_bid_ptr, session->delete_bid);
  EXPECT_EQ(session->local_servername, nullptr);
  EXPECT_EQ(session->tidKV, 0);
  EXPECT_EQ(session->tidOS, KVICurrentThread());
  EXPECT_EQ(session->ref_count, 1u);
  EXPECT_EQ(session->term_flags, 0u);
}

TEST_F(SessionTest, KVInit_DefaultFormat_FixedValuesAndSettingsOfTheEngine) {
  ASSERT_EQ(Start(), KVSUCCESS);
  const API_FORMAT format = Session()->format;
  EXPECT_EQ(format.format.nfmt.Digits, 2);
  EXPECT_EQ(format.format.nfmt.Format, 0);
  EXPECT_EQ(format.format.nfmt.Attributes, 0);
  EXPECT_EQ(format.format.nfmt.Unused, 0);
  EXPECT_EQ(format.format.tfmt.Date, 0);
  EXPECT_EQ(format.format.tfmt.Time, 0);
  EXPECT_EQ(format.format.tfmt.Zone, 0);
  EXPECT_EQ(format.format.tfmt.Structure, 2);
  EXPECT_EQ(uint16_t{format.format.listsep}, 0x200e);
  EXPECT_EQ(uint16_t{format.format.item_flags}, 0);
  INTLFORMAT intl{};
  ASSERT_EQ(EngIntlSettingsGet(&intl, sizeof intl), 0);
  EXPECT_EQ(std::memcmp(&intl, &format.intl, sizeof intl), 0);
  EXPECT_EQ(uint16_t{format.datesep_len}, std::strlen(intl.DateString));
  EXPECT_EQ(uint16_t{format.timesep_len}, std::strlen(intl.TimeString));
  EXPECT_EQ(uint16_t{format.amstring_len}, std::strlen(intl.AMString));
  EXPECT_EQ(uint16_t{format.pmstring_len}, std::strlen(intl.PMString));
}

TEST_F(SessionTest, KVInit_EngineVersion_TrailingBlanksCutFirstCharacterKept) {
  struct Row {
    const char* text;
    const char* kept;
  };
  for (const Row& row :
       {Row{"Brynd Release 5.0  ", "Brynd Release 5.0"}, Row{"   ", " "}, Row{"x", "x"}, Row{"", ""}}) {
    kit::Answer version("EngMessageLoad", [&](const std::vector<uint64_t>& words) -> uint64_t {
      EXPECT_EQ(words[0], 0u);
      EXPECT_EQ(words[1], 1u);
      EXPECT_EQ(words[3], 80u);
      std::strcpy(reinterpret_cast<char*>(words[2]), row.text);
      return std::strlen(row.text);
    });
    ASSERT_EQ(Start(), KVSUCCESS);
    EXPECT_STREQ(Session()->br_version, row.kept);
    ASSERT_EQ(KVTerm(0), KVSUCCESS);
  }
}

TEST_F(SessionTest, KVInit_BuildNumber_ReadFromTheDataDirectory) {
  kit::Spy spy;
  kit::Answer open("EngDbOpen", [](const std::vector<uint64_t>& words) -> uint64_t {
    KVIStore<uint32_t>(reinterpret_cast<void*>(words[1]), 55);
    return 0;
  });
  kit::Answer build("EngDbBuildVersionGet", [](const std::vector<uint64_t>& words) -> uint64_t {
    EXPECT_EQ(words[0], 55u);
    KVIStore<uint16_t>(reinterpret_cast<void*>(words[1]), 166);
    return 0;
  });
  kit::Answer close("EngDbClose", 0);
  ASSERT_EQ(Start(), KVSUCCESS);
  EXPECT_EQ(Session()->br_build, 166);
  EXPECT_EQ(spy.Find("EngDbOpen")->texts[0], directory_.path());
  EXPECT_EQ(spy.Count("EngDbClose"), 1u);
}

TEST_F(SessionTest, KVInit_NoSettingsFile_NoIniFileThenStartsOver) {
  EXPECT_EQ(StartMissing(), KVFAIL_NO_INI_FILE);
  EXPECT_EQ(Session(), nullptr);
  EXPECT_NE(pgSessPool.load(), nullptr);
  const int64_t heap_blocks = Memory().heap_blocks;
  EXPECT_EQ(StartMissing(), KVFAIL_NO_INI_FILE);
  EXPECT_EQ(Memory().heap_blocks, heap_blocks);  // the pool that is left is taken again
  EXPECT_EQ(KVInitThread(0), KVFAIL_NOT_INITIALIZED);
  EXPECT_EQ(Start(), KVSUCCESS);
}

TEST_F(SessionTest, KVInit_EngineFails_All16BitsReturned) {
  kit::Fault fault = kit::Fault::EngineCall(1, 0xc1f7, "EngInitWithIni");
  EXPECT_EQ(Start(), 0xc1f7u);
  fault.Disarm();
  EXPECT_EQ(Session(), nullptr);
  kit::Fault missing = kit::Fault::EngineCall(1, 0x41a5, "EngInitWithIni");
  EXPECT_EQ(Start(), KVFAIL_NO_INI_FILE);
}

TEST_F(SessionTest, KVInit_Arguments_PassedToTheEngine) {
  std::string settings = "=" + directory_.ini();
  char program[] = "program";
  char* argv[] = {program, settings.data(), nullptr};
  kit::Spy spy;
  ASSERT_EQ(KVInit(0, 2, argv), KVSUCCESS);
  ASSERT_EQ(spy.Count("EngInit"), 1u);
  EXPECT_EQ(spy.Find("EngInit")->words[0], 2u);
  EXPECT_EQ(spy.Find("EngInit")->words[1], reinterpret_cast<uintptr_t>(argv));
}

TEST_F(SessionTest, KVInit_IniFlagWithoutPath_TakesTheArguments) {
  kit::Spy spy;
  kit::Answer start("EngInit", 0x1a5);
  EXPECT_EQ(KVInit(KVINIT_INI_FILE, 0, nullptr), KVFAIL_NO_INI_FILE);
  EXPECT_EQ(spy.Count("EngInit"), 1u);
  EXPECT_EQ(spy.Count("EngInitWithIni"), 0u);
}

TEST_F(SessionTest, KVInitAndKVTerm_EngineRunning_EngineNeitherStartedNorStopped) {
  ASSERT_EQ(EngInitWithIni(directory_.ini().c_str()), 0);
  {
    kit::Spy spy;
    ASSERT_EQ(Start(KVAPI_VERSION, KVINIT_ENGINE_RUNNING), KVSUCCESS);
    EXPECT_EQ(KVTerm(KVTERM_ENGINE_RUNNING), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngInitWithIni") + spy.Count("EngInit") + spy.Count("EngTerm"), 0u);
  }
  EngTerm();
}

// Starts with the 1st, 2nd, 3rd ... allocation failing; returns what was found wrong.
std::string SessionTest::SweepStart(bool of_thread) {
  if (Start() != KVSUCCESS) return "no start";  // what the engine makes once in a process is made
  if (!of_thread && KVTerm(0) != KVSUCCESS) return "no end";
  std::string found;
  const auto sweep = [&] {
    const int64_t heap_blocks = Memory().heap_blocks;
    for (uint32_t nth = 1;; ++nth) {
      kit::Fault fault = kit::Fault::Allocation(nth);
      const uint32_t status = of_thread ? KVInitThread(0) : Start();
      fault.Disarm();
      const std::string place = std::to_string(nth) + " (" + fault.hit_name() + "): ";
      const bool is_event = !of_thread && (nth == 3 || nth == 5);  // the pool's own and its guard's
      const bool expected = fault.hit_name() == "heap"
                                ? status == (is_event ? KVFAIL_INTERNAL : KVFAIL_NO_MEMORY)
                                : status == KVSUCCESS || status == 0x107;
      if (fault.Hit() && !expected) found += place + "status " + std::to_string(status) + "\n";
      if (status == KVSUCCESS) KVTerm(of_thread ? KVTERM_THREAD : 0);
      if (!of_thread) EndPool();
      if (Memory().heap_blocks != heap_blocks) found += place + "heap blocks left\n";
      if (!fault.Hit()) return;
    }
  };
  if (of_thread)
    kit::InThread(sweep);
  else
    sweep();
  if (of_thread) KVTerm(0);
  return found;
}

TEST_F(SessionTest, KVInit_AllocationFails_NothingLeftAndTheNextStartWorks) {
  EXPECT_EQ(kit::InChild([this] { return SweepStart(false); }), "");
}

TEST_F(SessionTest, KVInitThread_AllocationFails_ThreadUndoneAndTheNextStartWorks) {
  EXPECT_EQ(kit::InChild([this] { return SweepStart(true); }), "");
}

TEST_F(SessionTest, KVInitThread_BeforeTheMainStart_NotInitialized) {
  EXPECT_EQ(KVInitThread(0), KVFAIL_NOT_INITIALIZED);
}

TEST_F(SessionTest, KVInitThread_OnTheMainThread_OnlyRaisesTheCount) {
  ASSERT_EQ(Start(), KVSUCCESS);
  kit::Spy spy;
  EXPECT_EQ(KVInitThread(0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngThreadInit"), 0u);
  EXPECT_EQ(Session()->ref_count, 2u);
  EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
  EXPECT_EQ(Session()->ref_count, 1u);
}

TEST_F(SessionTest, KVTerm_ThreadEndOfTheMainSession_TermFailedNothingEnded) {
  ASSERT_EQ(Start(), KVSUCCESS);
  EXPECT_EQ(KVTerm(KVTERM_THREAD), KVFAIL_TERM_FAILED);
  EXPECT_EQ(kit::LastError().status, KVFAIL_TERM_FAILED);
  EXPECT_EQ(Session()->ref_count, 1u);
}

TEST_F(SessionTest, KVTerm_MainEndInAnotherThread_TermFailedNothingEnded) {
  ASSERT_EQ(Start(), KVSUCCESS);
  kit::InSession([] {
    EXPECT_EQ(KVTerm(0), KVFAIL_TERM_FAILED);
    EXPECT_EQ(kit::LastError().status, KVFAIL_TERM_FAILED);
    EXPECT_EQ(Session()->ref_count, 1u);
  });
  EXPECT_NE(Session(), nullptr);
}

TEST_F(SessionTest, KVTerm_NoSession_StatusByWhatIsMissing) {
  EXPECT_EQ(KVTerm(0), KVFAIL_NOT_INITIALIZED);
  ASSERT_EQ(Start(), KVSUCCESS);
  kit::InThread([] { EXPECT_EQ(KVTerm(KVTERM_THREAD), KVFAIL_THREAD_NOT_INITIALIZED); });
}

TEST_F(SessionTest, KVInit_SecondThreadWithoutThreadFlag_ThreadSessionOfTheSamePool) {
  ASSERT_EQ(Start(), KVSUCCESS);
  const KVSESSIONPOOL* pool = pgSessPool.load();
  kit::InThread([&] {
    EXPECT_EQ(Start(), KVSUCCESS);
    EXPECT_EQ(pgSessPool.load(), pool);
    EXPECT_EQ(Session()->tidKV, 1);
    EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
  });
}

TEST_F(SessionTest, KVInitThread_EngineRefusesTheThread_All16BitsAndNoSession) {
  ASSERT_EQ(Start(), KVSUCCESS);
  kit::InThread([] {
    kit::Fault fault = kit::Fault::EngineCall(1, 0x81f7, "EngThreadInit");
    EXPECT_EQ(KVInitThread(0), 0x81f7u);
    EXPECT_EQ(Session(), nullptr);
  });
  kit::InThread([] {
    kit::Spy spy;
    EXPECT_EQ(KVInitThread(KVINIT_ENGINE_RUNNING), KVSUCCESS);
    EXPECT_EQ(KVTerm(KVTERM_THREAD | KVTERM_ENGINE_RUNNING), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngThreadInit") + spy.Count("EngThreadTerm"), 0u);
  });
}

TEST_F(SessionTest, KVTerm_WaitThreadsWithoutThreads_EndsAfterTheSleep) {
  ASSERT_EQ(Start(), KVSUCCESS);
  ASSERT_EQ(Start(), KVSUCCESS);
  static constexpr KVSYSTEM kSystem{nullptr, [](uint32_t msec) { slept.push_back(msec); }};
  slept.clear();
  pgSystem = &kSystem;
  EXPECT_EQ(KVTerm(KVTERM_WAIT_THREADS), KVSUCCESS);
  EXPECT_EQ(slept, std::vector<uint32_t>{100});
  EXPECT_EQ(KVTerm(KVTERM_WAIT_THREADS), KVSUCCESS);
  pgSystem = &kv_operating_system;
  EXPECT_EQ(slept, (std::vector<uint32_t>{100, 100}));  // every matching call waits
  EXPECT_EQ(Session(), nullptr);
}

TEST_F(SessionTest, KVTerm_WaitThreads_ReturnsAfterTheLastThreadSession) {
  ASSERT_EQ(Start(), KVSUCCESS);
  std::atomic<int> started{0}, ended{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 3; ++number)
    threads.emplace_back([&, number] {
      EXPECT_EQ(KVInitThread(0), KVSUCCESS);
      ++started;
      std::this_thread::sleep_for(std::chrono::milliseconds(120 + 20 * number));
      ++ended;
      EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
    });
  while (started < 3) std::this_thread::yield();
  EXPECT_EQ(KVTerm(KVTERM_WAIT_THREADS), KVSUCCESS);
  EXPECT_EQ(ended, 3);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(pgSessPool.load(), nullptr);
}

TEST_F(SessionTest, KVTerm_Final_ANewStartNumbersHandlesFromOne) {
  ASSERT_EQ(Start(), KVSUCCESS);
  uint32_t handle = 0;
  for (int number = 0; number < 5; ++number) ASSERT_EQ(_KVINewHandle(Session(), &handle), KVSUCCESS);
  ASSERT_EQ(KVTerm(0), KVSUCCESS);
  ASSERT_EQ(Start(), KVSUCCESS);
  EXPECT_EQ(Session()->next_handle, 1u);
  EXPECT_EQ(Session()->tidKV, 0);
}

TEST_F(SessionTest, KVTerm_StateOfTheSession_ReleasedInOrder) {
  ASSERT_EQ(Start(), KVSUCCESS);
  _api_session* session = Session();
  session->import_ = static_cast<IMPEXPINFO*>(KVIAllocateBytes(8));
  session->export_ = static_cast<IMPEXPINFO*>(KVIAllocateBytes(8));
  session->local_servername = KVICopyText("server", 6);
  session->servresp_name = KVICopyText("server", 6);
  ASSERT_EQ(EngMemAlloc(0, 10, &session->server_response), 0);
  session->dbcat_dbhand = 71;
  session->status_hand = 72;
  session->maildb_dbhand = 73;
  session->mailbox_dbhand = 74;
  session->certhand = 75;
  session->delete_bid_ptr = KVIAllocate<BLOCKID>(100);
  kit::Answer db("EngDbClose", 0), line("EngTaskStatusLineDelete", 0), mail("EngMailBoxClose", 0),
      certifier("EngCertifierContextFree", 0);
  kit::Spy spy;
  EXPECT_EQ(KVTerm(0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngDbClose", "EngMemFree", "EngTaskStatusLineDelete",
                                                   "EngMailBoxClose", "EngDbClose", "EngCertifierContextFree",
                                                   "EngTerm"}));
  EXPECT_EQ(spy.Find("EngDbClose", 0)->words[0], 71u);
  EXPECT_EQ(spy.Find("EngDbClose", 1)->words[0], 74u);
}

TEST_F(SessionTest, KVGetAPILibraryVersion_NoSessionNeeded_TextOptional) {
  EXPECT_EQ(KVGetAPILibraryVersion(nullptr), 0x45005u);
  char text[KVVERSION_BYTES];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(KVGetAPILibraryVersion(text), 0x45005u);
  EXPECT_STREQ(text, "Brynd Kavrin C API 4.51 (Internal)");
}
