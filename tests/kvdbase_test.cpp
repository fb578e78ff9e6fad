// Database handles: open, a further handle for another thread, failures one after the other.
#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "kvdbase_fixture.h"

namespace {

using kit::Fault;
using kit::Spy;

// ---- Open

TEST_F(DatabaseTest, KVDatabaseOpen_NullDatabase_NullParamBeforePath) {
  Spy spy;
  EXPECT_EQ(KVDatabaseOpen(nullptr, nullptr, 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(spy.Count("EngDbOpenEx"), 0u);
  ExpectError(KVFAIL_NULL_PARAM);
}

TEST_F(DatabaseTest, KVDatabaseOpen_NoPath_NullParamAndHandleZero) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    uint32_t database = kUntouched;
    EXPECT_EQ(KVDatabaseOpen(nullptr, path, 0, &database), KVFAIL_NULL_PARAM);
    EXPECT_EQ(database, 0u);
  }
}

TEST_F(DatabaseTest, KVDatabaseOpen_NoSuchFile_NoDatabaseAndHandleZero) {
  uint32_t database = kUntouched;
  EXPECT_EQ(KVDatabaseOpen(nullptr, directory().File("none.qdb").c_str(), 0, &database), KVFAIL_NO_DATABASE);
  EXPECT_EQ(database, 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(DatabaseTest, KVDatabaseOpen_Directory_NoDatabaseAndEngineHandleClosed) {
  uint32_t database = kUntouched;
  Spy spy;
  EXPECT_EQ(KVDatabaseOpen(nullptr, directory().path().c_str(), 0, &database), KVFAIL_NO_DATABASE);
  EXPECT_EQ(database, 0u);
  EXPECT_EQ(spy.Count("EngDbModeGet"), 1u);
  EXPECT_EQ(spy.Count("EngDbClose"), 1u);
}

TEST_F(DatabaseTest, KVDatabaseOpen_EngineFails_ItsStatusAndHandleZero) {
  uint32_t database = kUntouched;
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbOpenEx");
  EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &database), kEngineFailure);
  EXPECT_TRUE(fault.Hit());
  EXPECT_EQ(database, 0u);
}

TEST_F(DatabaseTest, KVDatabaseOpen_EngineStatusWithFlagBits_ComparedWithoutThem) {
  uint32_t database = kUntouched;
  Fault fault = Fault::EngineCall(1, 0xc103, "EngDbOpenEx");
  EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &database), KVFAIL_NO_DATABASE);
}

TEST_F(DatabaseTest, KVDatabaseOpen_ModeUnknown_OpensAllTheSame) {
  uint32_t database = 0;
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbModeGet");
    EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &database), KVSUCCESS);
    EXPECT_TRUE(fault.Hit());
  }
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_AllFlags_OnlyTheMaskReachesTheEngine) {
  uint32_t database = 0;
  Spy spy;
  if (KVDatabaseOpen(nullptr, path_.c_str(), 0xffffffffu, &database) == KVSUCCESS)
    KVDatabaseClose(database, 0);
  ASSERT_EQ(spy.Count("EngDbOpenEx"), 1u);
  EXPECT_EQ(spy.Find("EngDbOpenEx")->words[1], 0x3bau);
}

TEST_F(DatabaseTest, KVDatabaseOpen_UnalignedHandle_IsWritten) {
  std::array<char, 8> bytes{};
  auto* database = reinterpret_cast<uint32_t*>(bytes.data() + 1);
  ASSERT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, database), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(KVILoad<uint32_t>(bytes.data() + 1), 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_Success_RecordHoldsWhatTheEngineTells) {
  const uint32_t database = Open();
  const _DATABASE* dbase = Record(database);
  ASSERT_NE(dbase, nullptr);
  EXPECT_EQ(dbase->database, database);
  TIMEDATE dbid;
  uint16_t build = 0;
  EXPECT_EQ(EngDbIdGet(dbase->dbhand, &dbid), 0);
  EXPECT_EQ(EngDbBuildVersionGet(dbase->dbhand, &build), 0);
  EXPECT_EQ(memcmp(&dbid, &dbase->dbinfo->dbid, sizeof dbid), 0);
  EXPECT_EQ(dbase->br_build, build);
  EXPECT_EQ(dbase->dbinfo->server_name, nullptr);
  EXPECT_STREQ(dbase->dbinfo->db_relpath, path_.c_str());
  EXPECT_STREQ(dbase->dbinfo->db_title, "");
  EXPECT_EQ(dbase->dbinfo->usage_count, 1u);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, dbase->dbinfo);
  EXPECT_EQ(KVICurrentSession()->hmruDB, database);
  EXPECT_EQ(KVICurrentSession()->pmruDB, dbase);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  ExpectError(KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_Twice_HandlesAreNumberedInARow) {
  const uint32_t one = Open();
  const uint32_t other = Open();
  EXPECT_EQ(other, one + 1);
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_AnyFailure_SkipsNoNumber) {
  const uint32_t next = KVICurrentSession()->next_handle;
  uint32_t database = 0;
  for (uint32_t nth = 1;; ++nth) {
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = KVDatabaseOpen(nullptr, path_.c_str(), 0, &database);
    fault.Disarm();
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVICurrentSession()->next_handle, next + 1);
      EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
      if (!fault.Hit()) break;
      KVICurrentSession()->next_handle = next;
      continue;
    }
    EXPECT_EQ(KVICurrentSession()->next_handle, next) << nth << fault.hit_name();
    EXPECT_EQ(KVICurrentSession()->dbinfo_list, nullptr);
  }
}

TEST_F(DatabaseTest, KVDatabaseReopen_NoMemory_SkipsNoNumber) {
  const uint32_t database = Open();
  const _KVDBINFO* dbinfo = KVICurrentSession()->dbinfo_list;
  kit::InSession([&] {
    const uint32_t next = KVICurrentSession()->next_handle;
    uint32_t alias = 0;
    for (uint32_t nth = 1; alias == 0; ++nth) {
      Fault fault = Fault::Allocation(nth);
      KVDatabaseReopen(database, 1, &alias);
      fault.Disarm();
      EXPECT_EQ(KVICurrentSession()->next_handle, next + (alias != 0)) << nth;
    }
    EXPECT_EQ(KVDatabaseClose(alias, 0), KVSUCCESS);
  });
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, dbinfo);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_SameDatabaseTwice_SharesTheRecordOfTheFirst) {
  const std::string title(127, 't');
  const uint32_t one = Open();
  ASSERT_EQ(KVDatabaseSetProperty(one, KVPROP_DB_TITLE, title.c_str()), KVSUCCESS);
  ASSERT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  const uint32_t first = Open();
  uint32_t second = 0;
  const std::string relative = "plain.qdb";
  ASSERT_EQ(KVDatabaseOpen(nullptr, relative.c_str(), 0, &second), KVSUCCESS);
  _KVDBINFO* dbinfo = Record(first)->dbinfo;
  EXPECT_EQ(Record(second)->dbinfo, dbinfo);
  EXPECT_EQ(dbinfo->usage_count, 2u);
  EXPECT_STREQ(dbinfo->db_relpath, path_.c_str());
  EXPECT_STREQ(dbinfo->db_title, title.c_str());

  EXPECT_EQ(KVDatabaseClose(first, 0), KVSUCCESS);
  EXPECT_EQ(Record(second)->dbinfo, dbinfo);
  EXPECT_EQ(dbinfo->usage_count, 1u);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, dbinfo);
  EXPECT_EQ(KVDatabaseClose(second, 0), KVSUCCESS);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, nullptr);
}

TEST_F(DatabaseTest, KVDatabaseOpen_IdentityUnknown_SharesNothing) {
  const uint32_t one = Open();
  uint32_t other = 0;
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbIdGet", true);
    ASSERT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &other), KVSUCCESS);
  }
  EXPECT_NE(Record(one)->dbinfo, Record(other)->dbinfo);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, Record(one)->dbinfo);
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_OtherDatabases_EachHasItsRecord) {
  const std::string other_path = MakeDatabase("other.qdb");
  const uint32_t one = Open();
  uint32_t other = 0;
  ASSERT_EQ(KVDatabaseOpen(nullptr, other_path.c_str(), 0, &other), KVSUCCESS);
  EXPECT_NE(Record(one)->dbinfo, Record(other)->dbinfo);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, Record(other)->dbinfo);
  EXPECT_EQ(Record(other)->dbinfo->next, Record(one)->dbinfo);
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
  EXPECT_EQ(KVICurrentSession()->dbinfo_list, Record(other)->dbinfo);
  EXPECT_EQ(Record(other)->dbinfo->next, nullptr);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
}

// ---- Settings taken from the session

struct DEFAULTS {
  int32_t delay_commit, strict_bind, strict_bind_compute;
  uint32_t summary_limit;
  int32_t docopen_design, fetch_design_code;
  uint32_t vcache_rows;
  int32_t read_subf_fields;
};

void SetDefaults(_api_session* session, const DEFAULTS& defaults) {
  session->delay_commit_default = defaults.delay_commit;
  session->strict_bind_default = defaults.strict_bind;
  session->strict_bind_comp_default = defaults.strict_bind_compute;
  session->summary_limit_default = defaults.summary_limit;
  session->docopen_design_default = defaults.docopen_design;
  session->fetch_design_code_default = defaults.fetch_design_code;
  session->vcache_rows = defaults.vcache_rows;
  session->read_subf_fields_default = defaults.read_subf_fields;
}

void ExpectSettings(const _DATABASE* dbase, const DEFAULTS& settings) {
  EXPECT_EQ(dbase->delay_commit, settings.delay_commit);
  EXPECT_EQ(dbase->strict_bind, settings.strict_bind);
  EXPECT_EQ(dbase->strict_bind_compute, settings.strict_bind_compute);
  EXPECT_EQ(dbase->summary_limit, settings.summary_limit);
  EXPECT_EQ(dbase->docopen_design, settings.docopen_design);
  EXPECT_EQ(dbase->fetch_design_code, settings.fetch_design_code);
  EXPECT_EQ(dbase->vcache_rows, settings.vcache_rows);
  EXPECT_EQ(dbase->read_subf_fields, settings.read_subf_fields);
}

constexpr DEFAULTS kFreshSession{0, 1, 1, 0x2000, 0, 0, 1, 1};
constexpr DEFAULTS kOne{11, 12, 13, 14, 15, 16, 17, 18};
constexpr DEFAULTS kOther{21, 22, 23, 24, 25, 26, 27, 28};

TEST_F(DatabaseTest, KVDatabaseOpen_Settings_AreTheDefaultsOfThatMoment) {
  const uint32_t fresh = Open();
  ExpectSettings(Record(fresh), kFreshSession);
  SetDefaults(KVICurrentSession(), kOne);
  const uint32_t one = Open();
  SetDefaults(KVICurrentSession(), kOther);
  ExpectSettings(Record(one), kOne);
  ExpectSettings(Record(fresh), kFreshSession);
  EXPECT_EQ(KVDatabaseClose(fresh, 0), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(one, 0), KVSUCCESS);
}

// ---- Paths

TEST_F(DatabaseTest, KVDatabaseOpen_LocalServerInOtherCase_OpensByPlainPath) {
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Local/Kavrin"), KVSUCCESS);
  uint32_t database = 0;
  Spy spy;
  ASSERT_EQ(KVDatabaseOpen("LOCAL/kavrin", path_.c_str(), 0, &database), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngDbOpenEx")->texts[0], path_);
  EXPECT_EQ(spy.Count("EngNetPathBuild"), 0u);
  EXPECT_STREQ(Record(database)->dbinfo->server_name, "LOCAL/kavrin");
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_EmptyServer_OpensByPlainPathAndKeepsNoServer) {
  uint32_t database = 0;
  ASSERT_EQ(KVDatabaseOpen("", path_.c_str(), 0, &database), KVSUCCESS);
  EXPECT_EQ(Record(database)->dbinfo->server_name, nullptr);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_OtherServer_EngineGetsTheNetworkPath) {
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Local/Kavrin"), KVSUCCESS);
  uint32_t database = kUntouched;
  char path[kNetPathBytes];
  ASSERT_EQ(KVIDbGetNetPath(nullptr, "Local/Kavrin2", "plain.qdb", path), 0);
  Spy spy;
  EXPECT_NE(KVDatabaseOpen("Local/Kavrin2", "plain.qdb", 0, &database), KVSUCCESS);
  EXPECT_EQ(database, 0u);
  ASSERT_EQ(spy.Count("EngDbOpenEx"), 1u);
  EXPECT_EQ(spy.Find("EngDbOpenEx")->texts[0], path);
  EXPECT_NE(std::string(path), "plain.qdb");
}

TEST_F(DatabaseTest, KVDatabaseOpen_PathThatCannotBeBuilt_NoDatabase) {
  uint32_t database = kUntouched;
  const std::string endless(3000, 'x');
  EXPECT_EQ(KVDatabaseOpen("Server/Kavrin", endless.c_str(), 0, &database), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVDatabaseOpen((endless + "!").c_str(), "plain.qdb", 0, &database), KVFAIL_NO_DATABASE);
  EXPECT_EQ(database, 0u);
}

TEST_F(DatabaseTest, KVIDbGetNetPath_ServerIsPathHead_JoinedAsItIs) {
  char path[kNetPathBytes];
  Spy spy;
  EXPECT_EQ(KVIDbGetNetPath("TCPIP", "LAN!!!CN=Srv!!", "dir/file.qdb", path), 0);
  EXPECT_STREQ(path, "LAN!!!CN=Srv!!dir/file.qdb");
  EXPECT_TRUE(spy.calls().empty());
}

TEST_F(DatabaseTest, KVIDbGetNetPath_PlainServer_CanonicalNameGoesToTheEngine) {
  char path[kNetPathBytes];
  Spy spy;
  EXPECT_EQ(KVIDbGetNetPath("TCPIP", "Srv/Org", "file.qdb", path), 0);
  const kit::EngineCall* canonical = spy.Find("EngNameCanonicalize");
  ASSERT_NE(canonical, nullptr);
  EXPECT_EQ(canonical->texts[2], "Srv/Org");
  EXPECT_EQ(canonical->words[4], 255u);
  const kit::EngineCall* built = spy.Find("EngNetPathBuild");
  ASSERT_NE(built, nullptr);
  EXPECT_EQ(built->texts[0], "TCPIP");
  EXPECT_EQ(built->texts[1], "CN=Srv/O=Org");
  EXPECT_EQ(built->texts[2], "file.qdb");
  EXPECT_STREQ(path, "TCPIP!!!CN=Srv/O=Org!!file.qdb");
}

TEST_F(DatabaseTest, KVIDbGetNetPath_NameCannotBeCompleted_ServerAsGiven) {
  char path[kNetPathBytes];
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNameCanonicalize");
  EXPECT_EQ(KVIDbGetNetPath(nullptr, "Srv/Org", "file.qdb", path), 0);
  EXPECT_TRUE(fault.Hit());
  EXPECT_STREQ(path, "Srv/Org!!file.qdb");
}

TEST_F(DatabaseTest, KVIDbGetNetPath_NullServer_IsEmptyAndNotCompleted) {
  char path[kNetPathBytes];
  Spy spy;
  EXPECT_EQ(KVIDbGetNetPath(nullptr, nullptr, "file.qdb", path), 0);
  EXPECT_EQ(spy.Count("EngNameCanonicalize"), 0u);
  ASSERT_EQ(spy.Count("EngNetPathBuild"), 1u);
  EXPECT_EQ(spy.Find("EngNetPathBuild")->texts[1], "");
  EXPECT_STREQ(path, "file.qdb");
}

TEST_F(DatabaseTest, KVIDbGetNetPath_EngineFails_StatusAndEmptyPath) {
  char path[kNetPathBytes] = "before";
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNetPathBuild");
  EXPECT_EQ(KVIDbGetNetPath(nullptr, "Srv", "file.qdb", path), kEngineFailure);
  EXPECT_STREQ(path, "");
}

TEST_F(DatabaseTest, KVIDbGetNetPath_AtTheLimit_FitsOneLessThanTheBuffer) {
  for (size_t file_bytes : {kNetPathBytes - 8, kNetPathBytes - 7, kNetPathBytes - 6}) {
    // `Srv!!` alone is the head; the five marks of a built path are left free.
    char path[kNetPathBytes + 1];
    path[kNetPathBytes] = 'Z';
    const std::string file(file_bytes - 5, 'f');
    const uint16_t brstatus = KVIDbGetNetPath(nullptr, "S!", file.c_str(), path);
    if (file_bytes - 5 + 2 + 5 < kNetPathBytes) {
      EXPECT_EQ(brstatus, 0);
    } else {
      EXPECT_NE(brstatus, 0);
    }
    EXPECT_EQ(path[kNetPathBytes], 'Z');
    EXPECT_LT(strlen(path), kNetPathBytes);
  }
}

// ---- A further handle

TEST_F(DatabaseTest, KVDatabaseReopen_UnknownSource_BadHandleAndAliasZero) {
  const uint32_t database = Open();
  for (uint32_t source : {0u, database + 7, database | 0x80000000u, database | 5u << 22, 0xffffffffu}) {
    uint32_t alias = kUntouched;
    EXPECT_EQ(KVDatabaseReopen(source, 1, &alias), KVFAIL_BAD_HANDLE) << std::hex << source;
    EXPECT_EQ(alias, 0u);
    ExpectError(KVFAIL_BAD_HANDLE);
  }
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseReopen_SameSession_SharesTheDatabasesRecord) {
  SetDefaults(KVICurrentSession(), kOne);
  const uint32_t database = Open();
  SetDefaults(KVICurrentSession(), kOther);
  Record(database)->br_build = 4711;
  uint32_t inherits = 0;
  uint32_t defaults = 0;
  Spy spy;
  ASSERT_EQ(KVDatabaseReopen(database, 1, &inherits), KVSUCCESS);
  ASSERT_EQ(KVDatabaseReopen(database, 0, &defaults), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngDbBuildVersionGet"), 0u);
  EXPECT_EQ(spy.Find("EngDbReopen")->words[0], Record(database)->dbhand);
  EXPECT_EQ(Record(inherits)->br_build, 4711);
  EXPECT_EQ(Record(inherits)->dbinfo, Record(database)->dbinfo);
  EXPECT_EQ(Record(database)->dbinfo->usage_count, 3u);
  EXPECT_NE(Record(inherits)->dbhand, Record(database)->dbhand);
  ExpectSettings(Record(inherits), kOne);
  ExpectSettings(Record(defaults), kOther);
  for (uint32_t handle : {database, inherits, defaults}) EXPECT_EQ(KVDatabaseClose(handle, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseReopen_OtherThread_OwnRecordNamesAndDefaultsOfTheSource) {
  uint32_t database = 0;
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Here"), KVSUCCESS);
  ASSERT_EQ(KVDatabaseOpen("HERE", path_.c_str(), 0, &database), KVSUCCESS);
  const uint32_t cached = Open();
  SetDefaults(KVICurrentSession(), kOne);
  const _KVDBINFO* source_dbinfo = Record(database)->dbinfo;
  _api_session* owner = KVICurrentSession();
  Record(cached);  // the cached record of the owner
  kit::InSession([&] {
    SetDefaults(KVICurrentSession(), kOther);
    uint32_t alias = 0;
    ASSERT_EQ(KVDatabaseReopen(database, 0, &alias), KVSUCCESS);
    EXPECT_EQ(alias >> 22, 1u);
    ExpectSettings(Record(alias), kOne);
    const _KVDBINFO* dbinfo = Record(alias)->dbinfo;
    EXPECT_NE(dbinfo, source_dbinfo);
    EXPECT_STREQ(dbinfo->server_name, "HERE");
    EXPECT_STREQ(dbinfo->db_relpath, path_.c_str());
    EXPECT_EQ(memcmp(&dbinfo->dbid, &source_dbinfo->dbid, sizeof dbinfo->dbid), 0);
    EXPECT_EQ(KVICurrentSession()->hmruDB, alias);
    EXPECT_EQ(owner->hmruDB, cached);  // the owner's cache is not another thread's to change

    uint32_t again = 0;
    ASSERT_EQ(KVDatabaseReopen(alias, 1, &again), KVSUCCESS);
    ExpectSettings(Record(again), kOne);
    EXPECT_EQ(Record(again)->dbinfo, Record(alias)->dbinfo);
    EXPECT_EQ(KVDatabaseClose(alias, 0), KVSUCCESS);
    EXPECT_EQ(KVDatabaseClose(again, 0), KVSUCCESS);
  });
  EXPECT_EQ(source_dbinfo->usage_count, 2u);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(cached, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseReopen_NoSession_ItsStatus) {
  const uint32_t database = Open();
  kit::InThread([&] {
    uint32_t alias = kUntouched;
    EXPECT_EQ(KVDatabaseReopen(database, 0, &alias), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(alias, kUntouched);
  });
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseReopen_EngineFails_ItsStatusNotMapped) {
  const uint32_t database = Open();
  uint32_t alias = kUntouched;
  Fault fault = Fault::EngineCall(1, 0x103, "EngDbReopen");
  EXPECT_EQ(KVDatabaseReopen(database, 0, &alias), 0x103u);
  EXPECT_EQ(alias, 0u);
  fault.Disarm();
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseReopen_SourceCloses_AliasWorksOn) {
  SetSessionBool(KVPROP_SESS_STRICT_BIND, 0);
  const uint32_t database = Open();
  uint32_t alias = 0;
  ASSERT_EQ(KVDatabaseReopen(database, 1, &alias), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  NewDocument(alias, "kept");
  EXPECT_EQ(KVDatabaseClose(alias, KVDBCLOSE_SAVE_DOCS), KVSUCCESS);
}

// Two threads reopen one database over and over while its owner opens and closes others in the same chains.
TEST_F(DatabaseTest, KVDatabaseReopen_OwnerOpensAndClosesOthers_ChainsStayWhole) {
  const uint32_t database = Open();
  std::atomic<int> running{2};
  const auto reopen = [&] {
    ASSERT_EQ(KVInitThread(0), KVSUCCESS);
    for (int round = 0; round < 40; ++round) {
      uint32_t alias = 0;
      EXPECT_EQ(KVDatabaseReopen(database, round & 1, &alias), KVSUCCESS);
      EXPECT_EQ(KVDatabaseClose(alias, 0), KVSUCCESS);
    }
    EXPECT_EQ(KVTerm(KVTERM_THREAD), KVSUCCESS);
    --running;
  };
  std::thread one(reopen);
  std::thread other(reopen);
  while (running != 0) {
    std::array<uint32_t, 11> others;
    for (uint32_t& handle : others) handle = Open();
    for (uint32_t handle : others) EXPECT_EQ(KVDatabaseClose(handle, 0), KVSUCCESS);
  }
  one.join();
  other.join();
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

// ---- Failures one after the other

TEST_F(DatabaseTest, KVDatabaseOpen_AnyAllocationFails_NoMemoryOrEngineStatusAndNothingLeft) {
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Here"), KVSUCCESS);
  bool hit = true;
  uint32_t heap_failures = 0;
  for (uint32_t nth = 1; hit; ++nth) {
    uint32_t database = kUntouched;
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = KVDatabaseOpen("Here", path_.c_str(), 0, &database);
    hit = fault.Hit();
    const bool on_heap = fault.hit_name() == "heap";
    fault.Disarm();
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
      continue;
    }
    heap_failures += on_heap;
    EXPECT_EQ(database, 0u);
    EXPECT_EQ(status, on_heap ? KVFAIL_NO_MEMORY : 0x107u);
    EXPECT_EQ(KVICurrentSession()->dbinfo_list, nullptr);
  }
  EXPECT_EQ(heap_failures, 5u);  // record, shared record, server, path, title
}

TEST_F(DatabaseTest, KVDatabaseReopen_AnyAllocationFails_AliasZeroAndNothingLeft) {
  const uint32_t database = Open();
  kit::InSession([&] {
    bool hit = true;
    for (uint32_t nth = 1; hit; ++nth) {
      uint32_t alias = kUntouched;
      Fault fault = Fault::Allocation(nth);
      const uint32_t status = KVDatabaseReopen(database, 0, &alias);
      hit = fault.Hit();
      fault.Disarm();
      if (status == KVSUCCESS) {
        EXPECT_EQ(KVDatabaseClose(alias, 0), KVSUCCESS);
        continue;
      }
      EXPECT_EQ(alias, 0u);
      EXPECT_EQ(KVICurrentSession()->dbinfo_list, nullptr);
    }
  });
  EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
}

TEST_F(DatabaseTest, KVDatabaseOpen_AnyEngineCallFails_ItsStatusOrSuccessAndNothingLeft) {
  bool hit = true;
  for (uint32_t nth = 1; hit; ++nth) {
    uint32_t database = kUntouched;
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    const uint32_t status = KVDatabaseOpen(nullptr, path_.c_str(), 0, &database);
    hit = fault.Hit();
    const bool is_open_call = fault.hit_name() == "EngDbOpenEx";
    fault.Disarm();
    EXPECT_EQ(status, hit && is_open_call ? kEngineFailure : KVSUCCESS);
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
    } else {
      EXPECT_EQ(database, 0u);
    }
  }
}

TEST_F(DatabaseTest, KVDatabaseOpen_NumbersUsedUp_NoMemoryAndEngineHandleClosed) {
  KVICurrentSession()->next_handle = kHandleNumberMax + 1;
  uint32_t database = kUntouched;
  Spy spy;
  EXPECT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &database), KVFAIL_NO_MEMORY);
  EXPECT_EQ(database, 0u);
  EXPECT_EQ(spy.Count("EngDbClose"), 1u);
}

}  // namespace
