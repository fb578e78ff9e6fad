#include "kit/kit.h"
#include "kvint_session.h"

namespace {

class SupportTest : public kit::KavrinTest {
 protected:
  _api_session* Session() { return KVICurrentSession(); }

  std::string Abbreviate(const char* name) {
    char text[256] = "?";
    EXPECT_EQ(_FormatUsername(Session(), name, text), 0u);
    return text;
  }

  static _DBDIR* DirectoryEntry(_DBDIR* next) {
    auto* entry = KVIAllocate<_DBDIR>();
    entry->path = KVICopyText("path", 4);
    entry->name = KVICopyText("name", 4);
    entry->next = next;
    return entry;
  }
};

}  // namespace

TEST_F(SupportTest, FormatUsername_Abbreviating_LabelsDropped) {
  EXPECT_EQ(Abbreviate("CN=User One/O=Sales"), "User One/Sales");
  EXPECT_EQ(Abbreviate("User One"), "User One");
  EXPECT_EQ(Abbreviate(""), "");
  EXPECT_EQ(Abbreviate("CN=A/OU=B/O=C/C=D"), "A/B/C/D");
  EXPECT_EQ(Abbreviate("User/O=Sales"), "Sales");  // the search for a label does not stop at a separator
  EXPECT_EQ(Abbreviate("CN="), "");
  EXPECT_EQ(Abbreviate("CN=A/"), "A/");
}

TEST_F(SupportTest, FormatUsername_NotAbbreviating_PlainCopy) {
  Session()->abbreviate_names = 0;
  EXPECT_EQ(Abbreviate("CN=User One/O=Sales"), "CN=User One/O=Sales");
}

TEST_F(SupportTest, ClearState_EmptySession_EveryNumberIsSafe) {
  for (int state = -1; state < 40; ++state) EXPECT_EQ(_ClearState(Session(), state), KVSUCCESS);
}

TEST_F(SupportTest, ClearState_ServerList_BufferFreedAndCountersCleared) {
  Session()->srvlist = {0, KVIAllocateBytes(10), 3, 2, nullptr, nullptr};
  _ClearState(Session(), kStateServerList);
  EXPECT_EQ(Session()->srvlist.buffer, nullptr);
  EXPECT_EQ(Session()->srvlist.count, 0);
  EXPECT_EQ(Session()->srvlist.index, 0);
}

TEST_F(SupportTest, ClearState_Directories_EachReleasesItsOwn) {
  _api_session* session = Session();
  session->dbdir_list = session->dbdir_current = DirectoryEntry(DirectoryEntry(nullptr));
  session->dbdir_server = KVICopyText("s", 1);
  session->dbdir_directory = KVICopyText("d", 1);
  session->dbtemp_list = session->dbtemp_current = DirectoryEntry(nullptr);
  session->dbtemp_server = KVICopyText("s", 1);
  session->dbtemp_directory = KVICopyText("d", 1);
  _ClearState(session, kStateDirectory);
  EXPECT_EQ(session->dbdir_list, nullptr);
  EXPECT_EQ(session->dbdir_current, nullptr);
  EXPECT_EQ(session->dbdir_server, nullptr);
  EXPECT_EQ(session->dbdir_directory, nullptr);
  EXPECT_NE(session->dbtemp_list, nullptr);
  _ClearState(session, kStateTemplates);
  EXPECT_EQ(session->dbtemp_list, nullptr);
  EXPECT_EQ(session->dbtemp_server, nullptr);
}

TEST_F(SupportTest, ClearState_Catalog_CollectionThenDatabaseClosed) {
  _api_session* session = Session();
  session->dbcat_collect = 77;
  session->dbcat_dbhand = 88;
  session->dbcat_server = KVICopyText("s", 1);
  kit::Spy spy;
  EXPECT_EQ(_ClearState(session, kStateCatalog), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngCollectionClose", "EngDbClose"}));
  EXPECT_EQ(spy.Find("EngCollectionClose")->words[0], 77u);
  EXPECT_EQ(spy.Find("EngDbClose")->words[0], 88u);
  EXPECT_EQ(session->dbcat_collect, 0);
  EXPECT_EQ(session->dbcat_dbhand, 0u);
  EXPECT_EQ(session->dbcat_server, nullptr);
}

TEST_F(SupportTest, ClearState_Schedule_AllIntervalsFreed) {
  for (int interval = 0; interval < 3; ++interval) {
    auto* schedule = KVIAllocate<_SCHEDULE>();
    schedule->next = Session()->sched_list;
    Session()->sched_list = schedule;
  }
  _ClearState(Session(), kStateSchedule);
  EXPECT_EQ(Session()->sched_list, nullptr);
}

TEST_F(SupportTest, Heap_AllocatesZeroFilledAndKeepsContentWhenResized) {
  auto* bytes = static_cast<char*>(KVIAllocateBytes(100));
  for (int place = 0; place < 100; ++place) ASSERT_EQ(bytes[place], 0);
  bytes[0] = 'x';
  bytes = static_cast<char*>(KVIReallocateBytes(bytes, 5000));
  EXPECT_EQ(bytes[0], 'x');
  KVIFree(bytes);
  KVIFree(nullptr);
  void* empty = KVIAllocateBytes(0);
  EXPECT_NE(empty, nullptr);
  KVIFree(empty);
}

TEST_F(SupportTest, Heap_TooManyRecords_Null) {
  EXPECT_EQ(KVIAllocate<uint64_t>(SIZE_MAX / 4), nullptr);
  uint64_t* records = nullptr;
  EXPECT_FALSE(KVIReallocate(&records, SIZE_MAX / 4));
  EXPECT_EQ(KVICopyText("x", SIZE_MAX), nullptr);
}

TEST_F(SupportTest, Heap_FaultArmed_NthAllocationFails) {
  kit::Fault fault = kit::Fault::Allocation(2);
  void* first = KVIAllocateBytes(1);
  void* second = KVIAllocateBytes(1);
  void* third = KVIAllocateBytes(1);
  fault.Disarm();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(fault.hit_name(), "heap");
  KVIFree(first);
  KVIFree(third);
}

TEST_F(SupportTest, KVGuard_DismissedOrNot) {
  int runs = 0;
  {
    KVGuard armed([&] { ++runs; });
    KVGuard dismissed([&] { runs += 10; });
    dismissed.Dismiss();
  }
  EXPECT_EQ(runs, 1);
}
