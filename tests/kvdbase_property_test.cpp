// Properties of a database handle: every number, read and written, by every version of callers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::Fault;
using kit::Spy;

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint32_t kUntouched = 0xdeadbeef;
constexpr int32_t kLastProperty = 32;
constexpr uint16_t kMemberNoteId = 1;
constexpr uint16_t kMemberClass = 3;

class PropertyTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    KavrinTest::SetUp();
    path_ = MakeDatabase("plain.qdb");
    Reopen();
  }
  void TearDown() override {
    if (running_) {
      EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
    }
    KavrinTest::TearDown();
  }
  void Reopen() {
    if (database_) {
      EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
    }
    ASSERT_EQ(KVDatabaseOpen(nullptr, path_.c_str(), 0, &database_), KVSUCCESS);
  }
  // The library again, for a caller of another version.
  void RestartAs(uint32_t version) {
    EndLibrary();
    ASSERT_EQ(kit::StartLibrary(directory().ini(), version), KVSUCCESS);
    running_ = true;
    database_ = 0;
    Reopen();
  }
  template <typename Value>
  Value Get(int32_t property) {
    Value value{};
    EXPECT_EQ(KVDatabaseGetProperty(database_, property, &value), KVSUCCESS) << property;
    return value;
  }
  std::string GetText(int32_t property) {
    char text[256];
    memset(text, 'x', sizeof text);
    EXPECT_EQ(KVDatabaseGetProperty(database_, property, text), KVSUCCESS) << property;
    return std::string(text, strnlen(text, sizeof text));
  }
  template <typename Value>
  uint32_t Set(int32_t property, Value value) {
    return KVDatabaseSetProperty(database_, property, &value);
  }
  uint32_t SetText(int32_t property, const std::string& text) {
    return KVDatabaseSetProperty(database_, property, text.c_str());
  }
  EngDb Hand() const { return _GetDatabase(KVICurrentSession(), database_)->dbhand; }

  std::string path_;
  uint32_t database_ = 0;
};

// ---- The frame

TEST_F(PropertyTest, KVDatabaseGetProperty_ChecksInOrder) {
  uint32_t value = kUntouched;
  EXPECT_EQ(KVDatabaseGetProperty(77, 99, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseGetProperty(77, 99, &value), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVDatabaseGetProperty(database_, 99, &value), KVFAIL_BAD_PROPERTY);
  EXPECT_EQ(value, kUntouched);
  EXPECT_EQ(kit::LastError().status, KVFAIL_BAD_PROPERTY);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ChecksInOrder) {
  uint32_t value = 1;
  EXPECT_EQ(KVDatabaseSetProperty(77, 99, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatabaseSetProperty(77, 99, &value), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVDatabaseSetProperty(database_, 99, &value), KVFAIL_BAD_PROPERTY);
  EXPECT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_ID, &value), KVFAIL_READ_ONLY_PROPERTY);
}

TEST_F(PropertyTest, KVDatabaseGetProperty_OutsideTheTable_BadProperty) {
  char value[256];
  for (int32_t property : {-2147483647 - 1, -1, 0, kLastProperty + 1, 2147483647}) {
    EXPECT_EQ(KVDatabaseGetProperty(database_, property, value), KVFAIL_BAD_PROPERTY) << property;
    EXPECT_EQ(KVDatabaseSetProperty(database_, property, "value"), KVFAIL_BAD_PROPERTY) << property;
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ReadOnlyNumbers_AreRefused) {
  const uint64_t value = 0;
  for (int32_t property : {6, 7, 19, 20, 21, 22, 23, 24, 25, 26, 27, 31})
    EXPECT_EQ(KVDatabaseSetProperty(database_, property, &value), KVFAIL_READ_ONLY_PROPERTY) << property;
}

TEST_F(PropertyTest, KVDatabaseGetProperty_OtherThread_BadHandle) {
  kit::InSession([&] {
    uint32_t value = kUntouched;
    EXPECT_EQ(KVDatabaseGetProperty(database_, 1, &value), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDatabaseSetProperty(database_, 1, &value), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVDatabaseGetProperty(database_, 1, nullptr), KVFAIL_BAD_HANDLE);
  });
}

TEST_F(PropertyTest, KVDatabaseGetProperty_OlderCallers_SeeThePropertiesOfTheirDay) {
  const struct {
    uint32_t version;
    int32_t last;
  } versions[] = {{0x20000, 28}, {0x3ffff, 28}, {0x40000, 31}, {0x40105, 31}, {0x40106, 32}, {0x45005, 32}};
  for (const auto& row : versions) {
    RestartAs(row.version);
    for (int32_t property = 29; property <= kLastProperty; ++property) {
      int32_t value = 0;
      const bool is_known = property <= row.last;
      EXPECT_EQ(KVDatabaseGetProperty(database_, property, &value),
                is_known ? KVSUCCESS : KVFAIL_BAD_PROPERTY)
          << property << " for " << std::hex << row.version;
      const uint32_t status = KVDatabaseSetProperty(database_, property, &value);
      EXPECT_EQ(status, !is_known                     ? KVFAIL_BAD_PROPERTY
                        : property == KVPROP_DB_BUILD ? KVFAIL_READ_ONLY_PROPERTY
                                                      : KVSUCCESS);
    }
  }
}

// ---- Settings

TEST_F(PropertyTest, KVDatabaseSetProperty_Bools_StoreOneForAnyWord) {
  const struct {
    int32_t property;
    int32_t _DATABASE::*field;
  } bools[] = {{KVPROP_DB_DELAY_COMMIT, &_DATABASE::delay_commit},
               {KVPROP_DB_STRICT_BIND, &_DATABASE::strict_bind},
               {KVPROP_DB_FETCH_DESIGN_CODE, &_DATABASE::fetch_design_code},
               {KVPROP_DB_DOCOPEN_DESIGN, &_DATABASE::docopen_design},
               {KVPROP_DB_READ_SUBF_FIELDS, &_DATABASE::read_subf_fields},
               {KVPROP_DB_STRICT_BIND_COMPUTE, &_DATABASE::strict_bind_compute}};
  _DATABASE* dbase = _GetDatabase(KVICurrentSession(), database_);
  for (const auto& row : bools) dbase->*row.field = 0;
  for (const auto& row : bools) {
    for (int32_t word : {5, 0, -1, 1, 0}) {
      EXPECT_EQ(Set<int32_t>(row.property, word), KVSUCCESS);
      EXPECT_EQ(dbase->*row.field, word != 0) << row.property;
      EXPECT_EQ(Get<int32_t>(row.property), word != 0) << row.property;
    }
    EXPECT_EQ(Set<int32_t>(row.property, 1), KVSUCCESS);
    for (const auto& other : bools) EXPECT_EQ(dbase->*other.field, other.property == row.property);
    EXPECT_EQ(Set<int32_t>(row.property, 0), KVSUCCESS);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_Settings_HoldForThisHandleOnly) {
  uint32_t other = 0;
  ASSERT_EQ(KVDatabaseReopen(database_, 1, &other), KVSUCCESS);
  EXPECT_EQ(Set<uint32_t>(KVPROP_DB_VCACHE_ROWS, 40), KVSUCCESS);
  uint32_t rows = 0;
  EXPECT_EQ(KVDatabaseGetProperty(other, KVPROP_DB_VCACHE_ROWS, &rows), KVSUCCESS);
  EXPECT_EQ(rows, 1u);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_SummaryLimit_AtItsLimit) {
  for (uint32_t limit : {0u, 0x3bffu, 0x3c00u}) {
    EXPECT_EQ(Set<uint32_t>(KVPROP_DB_SUMMARY_LIMIT, limit), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(KVPROP_DB_SUMMARY_LIMIT), limit);
  }
  for (uint32_t limit : {0x3c01u, 0xffffffffu})
    EXPECT_EQ(Set<uint32_t>(KVPROP_DB_SUMMARY_LIMIT, limit), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(Get<uint32_t>(KVPROP_DB_SUMMARY_LIMIT), 0x3c00u);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_VcacheRowsZero_ReadsBackOne) {
  for (uint32_t rows : {7u, 0u, 1u, 0xffffffffu}) {
    EXPECT_EQ(Set<uint32_t>(KVPROP_DB_VCACHE_ROWS, rows), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(KVPROP_DB_VCACHE_ROWS), rows == 0 ? 1u : rows);
  }
}

TEST_F(PropertyTest, KVDatabaseGetProperty_UnalignedValue_IsReadAndWritten) {
  char bytes[9] = {};
  KVIStore<uint32_t>(bytes + 1, 100);
  EXPECT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_SUMMARY_LIMIT, bytes + 1), KVSUCCESS);
  EXPECT_EQ(KVDatabaseGetProperty(database_, KVPROP_DB_SUMMARY_LIMIT, bytes + 3), KVSUCCESS);
  EXPECT_EQ(KVILoad<uint32_t>(bytes + 3), 100u);
}

// ---- Names and facts

TEST_F(PropertyTest, KVDatabaseGetProperty_ServerAndPath_AreThoseOfTheOpen) {
  EXPECT_EQ(GetText(KVPROP_DB_SERVER), "");
  EXPECT_EQ(GetText(KVPROP_DB_FILEPATH), path_);
  _DATABASE* dbase = _GetDatabase(KVICurrentSession(), database_);
  const std::string longest(300, 's');
  dbase->dbinfo->server_name = KVICopyText(longest.c_str(), longest.size());
  EXPECT_EQ(GetText(KVPROP_DB_SERVER), longest.substr(0, 255));
}

TEST_F(PropertyTest, KVDatabaseGetProperty_Facts_AreTheEngines) {
  TIMEDATE dbid;
  ASSERT_EQ(EngDbIdGet(Hand(), &dbid), 0);
  for (int32_t property : {KVPROP_DB_ID, KVPROP_DB_INSTANCE_ID}) {
    const auto id = Get<KVDATETIME>(property);
    EXPECT_EQ(memcmp(&id, &dbid, sizeof dbid), 0);
  }
  TIMEDATE data;
  TIMEDATE other;
  ASSERT_EQ(EngDbModifiedTimeGet(Hand(), &data, &other), 0);
  const auto data_modified = Get<KVDATETIME>(KVPROP_DB_DATA_MODIFIED);
  const auto design_modified = Get<KVDATETIME>(KVPROP_DB_DESIGN_MODIFIED);
  EXPECT_EQ(memcmp(&data_modified, &data, sizeof data), 0);
  EXPECT_EQ(memcmp(&design_modified, &other, sizeof other), 0);
  uint32_t used = 0;
  uint32_t unused = 0;
  ASSERT_EQ(EngDbSpaceUsageGet(Hand(), &used, &unused), 0);
  EXPECT_EQ(Get<uint32_t>(KVPROP_DB_SPACE_1), used);
  EXPECT_EQ(Get<uint32_t>(KVPROP_DB_SPACE_2), unused);
  EXPECT_GT(used, 0u);
  uint16_t build = 0;
  ASSERT_EQ(EngDbBuildVersionGet(Hand(), &build), 0);
  EXPECT_EQ(Get<uint32_t>(KVPROP_DB_BUILD), build);
  uint16_t db_class = 0;
  ASSERT_EQ(EngDbClassGet(Hand(), &db_class), 0);
  EXPECT_EQ(Get<int32_t>(KVPROP_DB_CLASS), (db_class + 1) & 0xff);
}

TEST_F(PropertyTest, KVDatabaseGetProperty_EngineFails_ZeroAndItsStatus) {
  const struct {
    int32_t property;
    const char* call;
  } calls[] = {{KVPROP_DB_REPLICA_DB_FLAGS, "EngDbReplicaInfoGet"},
               {KVPROP_DB_REPLICA_ID, "EngDbReplicaInfoGet"},
               {KVPROP_DB_CUTOFF_INTERVAL, "EngDbReplicaInfoGet"},
               {KVPROP_DB_REPLICA_FLAGS, "EngDbReplicaInfoGet"},
               {KVPROP_DB_CLASS, "EngDbClassGet"},
               {KVPROP_DB_DATA_MODIFIED, "EngDbModifiedTimeGet"},
               {KVPROP_DB_DESIGN_MODIFIED, "EngDbModifiedTimeGet"},
               {KVPROP_DB_SPACE_1, "EngDbSpaceUsageGet"},
               {KVPROP_DB_SPACE_2, "EngDbSpaceUsageGet"},
               {KVPROP_DB_FULLTEXT_TIME, "EngFullTextIndexTimeGet"}};
  for (const auto& row : calls) {
    KVDATETIME value = {{kUntouched, kUntouched}};
    Fault fault = Fault::EngineCall(1, kEngineFailure, row.call);
    EXPECT_EQ(KVDatabaseGetProperty(database_, row.property, &value), kEngineFailure) << row.property;
    EXPECT_TRUE(fault.Hit()) << row.property;
    EXPECT_EQ(value.innards[0], 0u) << row.property;
    EXPECT_EQ(kit::LastError().status, kEngineFailure);
  }
}

TEST_F(PropertyTest, KVDatabaseGetProperty_PriorityOfUnknownReplicaInfo_IsThatOfZeroFlags) {
  int32_t value = -1;
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbReplicaInfoGet");
  EXPECT_EQ(KVDatabaseGetProperty(database_, KVPROP_DB_REPLICA_PRIORITY, &value), kEngineFailure);
  EXPECT_EQ(value, 1);
}

TEST_F(PropertyTest, KVDatabaseGetProperty_HasFullText_OnlyTheMissingIndexCountsAsNone) {
  for (uint16_t brstatus : {uint16_t{0xf02}, uint16_t{0xf03}, kEngineFailure}) {
    Fault fault = Fault::EngineCall(1, brstatus, "EngFullTextIndexTimeGet");
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_HAS_FULLTEXT), brstatus != 0xf02);
    EXPECT_TRUE(fault.Hit());
  }
}

// ---- Information fields

TEST_F(PropertyTest, KVDatabaseSetProperty_InfoFields_AreStoredEachInItsPlace) {
  EXPECT_EQ(SetText(KVPROP_DB_TITLE, "The title"), KVSUCCESS);
  EXPECT_EQ(SetText(KVPROP_DB_INFO_1, "Categories"), KVSUCCESS);
  EXPECT_EQ(SetText(KVPROP_DB_INFO_2, "Template"), KVSUCCESS);
  EXPECT_EQ(SetText(KVPROP_DB_INFO_3, "Inherited"), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_DB_TITLE), "");  // that of the time of opening
  Reopen();
  EXPECT_EQ(GetText(KVPROP_DB_TITLE), "The title");
  EXPECT_EQ(GetText(KVPROP_DB_INFO_1), "Categories");
  EXPECT_EQ(GetText(KVPROP_DB_INFO_2), "Template");
  EXPECT_EQ(GetText(KVPROP_DB_INFO_3), "Inherited");
  EXPECT_EQ(SetText(KVPROP_DB_INFO_2, ""), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_DB_INFO_2), "");
  EXPECT_EQ(GetText(KVPROP_DB_INFO_3), "Inherited");
}

TEST_F(PropertyTest, KVDatabaseSetProperty_Title_GoesToTheIconRecord) {
  Spy spy;
  EXPECT_EQ(SetText(KVPROP_DB_TITLE, "The title"), KVSUCCESS);
  const kit::EngineCall* open = spy.Find("EngNoteOpen");
  ASSERT_NE(open, nullptr);
  EXPECT_EQ(open->words[1], 0xffff0010u);
  EXPECT_EQ(open->words[2], 1u);
  const kit::EngineCall* text = spy.Find("EngItemTextSet");
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text->texts[1], "$TITLE");
  EXPECT_EQ(text->words[3], 0xffffu);
  EXPECT_EQ(spy.Find("EngNoteUpdate")->words[1], 1u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
  EngNote icon = 0;
  char title[256] = {};
  ASSERT_EQ(EngNoteOpen(Hand(), 0xffff0010, 0, &icon), 0);
  EngItemTextGet(icon, "$TITLE", title, 255);
  EXPECT_EQ(std::string(title).substr(0, 9), "The title");
  EXPECT_EQ(EngNoteClose(icon), 0);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_InfoFieldsTogether_AtTheLimitOf127) {
  EXPECT_EQ(SetText(KVPROP_DB_INFO_1, std::string(40, '1')), KVSUCCESS);
  EXPECT_EQ(SetText(KVPROP_DB_INFO_2, std::string(30, '2')), KVSUCCESS);
  EXPECT_EQ(SetText(KVPROP_DB_INFO_3, std::string(20, '3')), KVSUCCESS);
  char before[kDbInfoBytes] = {};
  ASSERT_EQ(EngDbInfoGet(Hand(), before), 0);
  for (size_t title_bytes : {size_t{38}, size_t{100}, size_t{100000}}) {
    Spy spy;
    EXPECT_EQ(SetText(KVPROP_DB_TITLE, std::string(title_bytes, 't')), KVFAIL_DATA_TOO_LONG);
    EXPECT_EQ(spy.Count("EngDbInfoSet"), 0u);
  }
  char after[kDbInfoBytes] = {};
  ASSERT_EQ(EngDbInfoGet(Hand(), after), 0);
  EXPECT_EQ(memcmp(before, after, sizeof before), 0);
  for (size_t title_bytes : {size_t{36}, size_t{37}})
    EXPECT_EQ(SetText(KVPROP_DB_TITLE, std::string(title_bytes, 't')), KVSUCCESS);
  Reopen();
  EXPECT_EQ(GetText(KVPROP_DB_TITLE), std::string(37, 't'));
  EXPECT_EQ(GetText(KVPROP_DB_INFO_1), std::string(40, '1'));
}

TEST_F(PropertyTest, KVDatabaseSetProperty_InfoFieldReplaced_ItsOldTextDoesNotCount) {
  for (int32_t property : {KVPROP_DB_TITLE, KVPROP_DB_INFO_1, KVPROP_DB_INFO_2, KVPROP_DB_INFO_3}) {
    EXPECT_EQ(SetText(property, std::string(100, 'a')), KVSUCCESS) << property;
    EXPECT_EQ(SetText(property, std::string(110, 'b')), KVSUCCESS) << property;
    EXPECT_EQ(SetText(property, std::string(128, 'c')), KVFAIL_DATA_TOO_LONG) << property;
    EXPECT_EQ(SetText(property, ""), KVSUCCESS) << property;
  }
}

TEST_F(PropertyTest, KVDatabaseGetProperty_TitleForOldCallers_IsCutAt65) {
  EXPECT_EQ(SetText(KVPROP_DB_TITLE, std::string(100, 't')), KVSUCCESS);
  for (uint32_t version : {0x20305u, 0x20306u}) {
    RestartAs(version);
    EXPECT_EQ(GetText(KVPROP_DB_TITLE), std::string(version < 0x20306 ? 65 : 100, 't'));
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_TitleAnyEngineCallFails_ItsStatus) {
  for (const char* call :
       {"EngDbInfoGet", "EngDbInfoSet", "EngNoteOpen", "EngItemTextSet", "EngNoteUpdate"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    EXPECT_EQ(SetText(KVPROP_DB_TITLE, "title"), kEngineFailure) << call;
    EXPECT_TRUE(fault.Hit()) << call;
  }
}

// ---- Replication

DBREPLICAINFO ReplicaInfo(EngDb dbhand) {
  DBREPLICAINFO info{};
  EXPECT_EQ(EngDbReplicaInfoGet(dbhand, &info), 0);
  return info;
}

void SetReplicaFlags(EngDb dbhand, uint16_t flags) {
  DBREPLICAINFO info = ReplicaInfo(dbhand);
  info.Flags = flags;
  EXPECT_EQ(EngDbReplicaInfoSet(dbhand, &info), 0);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ReplicaFlags_OnlyTheBitsOfTheMask) {
  const struct {
    int32_t property;
    uint16_t mask;
  } masks[] = {{KVPROP_DB_REPLICA_DB_FLAGS, 0xc60}, {KVPROP_DB_REPLICA_FLAGS, 0x294}};
  for (const auto& row : masks) {
    SetReplicaFlags(Hand(), 0xffff);
    EXPECT_EQ(Get<uint32_t>(row.property), row.mask);
    EXPECT_EQ(Set<uint32_t>(row.property, 0), KVSUCCESS);
    EXPECT_EQ(ReplicaInfo(Hand()).Flags, 0xffff & ~row.mask);
    SetReplicaFlags(Hand(), 0);
    EXPECT_EQ(Set<uint32_t>(row.property, 0xffffffff), KVSUCCESS);
    EXPECT_EQ(ReplicaInfo(Hand()).Flags, row.mask);
    EXPECT_EQ(Get<uint32_t>(row.property), row.mask);
    SetReplicaFlags(Hand(), 0);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ReplicaPriority_TopTwoBitsAndOneMore) {
  for (uint32_t bits = 0; bits < 4; ++bits) {
    SetReplicaFlags(Hand(), static_cast<uint16_t>(bits << 14 | 0x1234));
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_REPLICA_PRIORITY), static_cast<int32_t>((bits + 1) & 3));
  }
  for (int32_t priority : {0, 1, 2, 3, 4, -1}) {
    EXPECT_EQ(Set<int32_t>(KVPROP_DB_REPLICA_PRIORITY, priority), KVSUCCESS);
    EXPECT_EQ(ReplicaInfo(Hand()).Flags, (static_cast<uint32_t>(priority - 1) & 3) << 14 | 0x1234);
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_REPLICA_PRIORITY), priority & 3);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ReplicaIdAndCutoff_LeaveTheRestAlone) {
  SetReplicaFlags(Hand(), 0x294);
  const KVDATETIME id = {{0x11223344, 0x55667788}};
  EXPECT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_REPLICA_ID, &id), KVSUCCESS);
  EXPECT_EQ(Set<uint32_t>(KVPROP_DB_CUTOFF_INTERVAL, 0x10123), KVSUCCESS);
  const DBREPLICAINFO info = ReplicaInfo(Hand());
  EXPECT_EQ(memcmp(&info.ID, &id, sizeof id), 0);
  EXPECT_EQ(info.CutoffInterval, 0x123);
  EXPECT_EQ(info.Flags, 0x294);
  EXPECT_EQ(Get<uint32_t>(KVPROP_DB_CUTOFF_INTERVAL), 0x123u);
  const auto read = Get<KVDATETIME>(KVPROP_DB_REPLICA_ID);
  EXPECT_EQ(memcmp(&read, &id, sizeof id), 0);
}

TEST_F(PropertyTest, KVDatabaseSetProperty_ReplicaInfoFails_ItsStatusAndNothingStored) {
  const uint64_t value = 3;
  for (int32_t property : {KVPROP_DB_REPLICA_DB_FLAGS, KVPROP_DB_REPLICA_ID, KVPROP_DB_CUTOFF_INTERVAL,
                           KVPROP_DB_REPLICA_PRIORITY, KVPROP_DB_REPLICA_FLAGS}) {
    const DBREPLICAINFO before = ReplicaInfo(Hand());
    for (const char* call : {"EngDbReplicaInfoGet", "EngDbReplicaInfoSet"}) {
      Fault fault = Fault::EngineCall(1, kEngineFailure, call);
      EXPECT_EQ(KVDatabaseSetProperty(database_, property, &value), kEngineFailure) << property << call;
      EXPECT_TRUE(fault.Hit());
    }
    const DBREPLICAINFO after = ReplicaInfo(Hand());
    EXPECT_EQ(memcmp(&before, &after, sizeof before), 0);
  }
}

// ---- Defaults

uint32_t MakeDesignRecord(EngDb dbhand, uint16_t note_class, const char* title) {
  EngNote note = 0;
  uint32_t id = 0;
  EXPECT_EQ(EngNoteCreate(dbhand, &note), 0);
  EXPECT_EQ(EngNoteInfoSet(note, kMemberClass, &note_class), 0);
  EXPECT_EQ(EngItemTextSet(note, "$TITLE", title, 0xffff), 0);
  EXPECT_EQ(EngNoteUpdate(note, 0), 0);
  EXPECT_EQ(EngNoteInfoGet(note, kMemberNoteId, &id), 0);
  EXPECT_EQ(EngNoteClose(note), 0);
  return id;
}

uint16_t ClassOf(EngDb dbhand, uint32_t id) {
  EngNote note = 0;
  uint16_t note_class = 0;
  EXPECT_EQ(EngNoteOpen(dbhand, id, 0, &note), 0);
  EXPECT_EQ(EngNoteInfoGet(note, kMemberClass, &note_class), 0);
  EXPECT_EQ(EngNoteClose(note), 0);
  return note_class;
}

struct DEFAULTROW {
  int32_t property;
  uint16_t class_bit;
  uint16_t other_bit;
  uint32_t no_such;
};
constexpr DEFAULTROW kDefaults[] = {{KVPROP_DB_DEFAULT_FORM, 4, 8, KVFAIL_NO_FORM},
                                    {KVPROP_DB_DEFAULT_VIEW, 8, 4, KVFAIL_NO_VIEW}};

TEST_F(PropertyTest, KVDatabaseSetProperty_Default_MovesFromRecordToRecord) {
  for (const DEFAULTROW& row : kDefaults) {
    const uint32_t one = MakeDesignRecord(Hand(), row.class_bit, "one");
    const uint32_t other = MakeDesignRecord(Hand(), row.class_bit, "other");
    EXPECT_EQ(Get<uint32_t>(row.property), 0u);
    EXPECT_EQ(Set<uint32_t>(row.property, 0), KVSUCCESS);
    EXPECT_EQ(Set<uint32_t>(row.property, one), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(row.property), one);
    EXPECT_EQ(ClassOf(Hand(), one), 0x8000 | row.class_bit);
    EXPECT_EQ(Set<uint32_t>(row.property, other), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(row.property), other);
    EXPECT_EQ(ClassOf(Hand(), one), row.class_bit);
    EXPECT_EQ(ClassOf(Hand(), other), 0x8000 | row.class_bit);
    EXPECT_EQ(Set<uint32_t>(row.property, 0), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(row.property), 0u);
    EXPECT_EQ(ClassOf(Hand(), other), row.class_bit);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_DefaultTwice_NothingDoneTheSecondTime) {
  for (const DEFAULTROW& row : kDefaults) {
    const uint32_t one = MakeDesignRecord(Hand(), row.class_bit, "one");
    EXPECT_EQ(Set<uint32_t>(row.property, one), KVSUCCESS);
    Spy spy;
    EXPECT_EQ(Set<uint32_t>(row.property, one), KVSUCCESS);
    EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngDbSpecialIdGet"}));
    EXPECT_EQ(spy.Find("EngDbSpecialIdGet")->words[1], 0x8000u | row.class_bit);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_DefaultOfWrongClass_RefusedAndOldStays) {
  for (const DEFAULTROW& row : kDefaults) {
    const uint32_t one = MakeDesignRecord(Hand(), row.class_bit, "one");
    const uint32_t wrong = MakeDesignRecord(Hand(), row.other_bit, "wrong");
    EXPECT_EQ(Set<uint32_t>(row.property, one), KVSUCCESS);
    for (uint32_t id : {wrong, 0x3ffffffu}) {
      Spy spy;
      EXPECT_EQ(Set<uint32_t>(row.property, id), row.no_such);
      EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
      EXPECT_EQ(kit::LastError().status, row.no_such);
    }
    EXPECT_EQ(Get<uint32_t>(row.property), one);
    EXPECT_EQ(ClassOf(Hand(), one), 0x8000 | row.class_bit);
    EXPECT_EQ(ClassOf(Hand(), wrong), row.other_bit);
    EXPECT_EQ(Set<uint32_t>(row.property, 0), KVSUCCESS);
  }
}

TEST_F(PropertyTest, KVDatabaseGetProperty_DefaultUnknown_ZeroWithoutError) {
  for (const DEFAULTROW& row : kDefaults) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbSpecialIdGet");
    uint32_t id = kUntouched;
    EXPECT_EQ(KVDatabaseGetProperty(database_, row.property, &id), KVSUCCESS);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  }
}

TEST_F(PropertyTest, KVDatabaseSetProperty_DefaultAnyEngineCallFails_NoNoteLeftOpen) {
  for (const DEFAULTROW& row : kDefaults) {
    const uint32_t one = MakeDesignRecord(Hand(), row.class_bit, "one");
    const uint32_t other = MakeDesignRecord(Hand(), row.class_bit, "other");
    const struct {
      const char* call;
      uint32_t nth;
      uint32_t status;
    } faults[] = {{"EngNoteOpen", 1, kEngineFailure},    {"EngNoteOpen", 2, row.no_such},
                  {"EngNoteInfoSet", 1, kEngineFailure}, {"EngNoteInfoGet", 1, row.no_such},
                  {"EngNoteInfoSet", 2, kEngineFailure}, {"EngNoteUpdate", 1, kEngineFailure},
                  {"EngNoteUpdate", 2, kEngineFailure}};
    for (const auto& step : faults) {
      EXPECT_EQ(Set<uint32_t>(row.property, one), KVSUCCESS);
      Spy spy;
      Fault fault = Fault::EngineCall(step.nth, kEngineFailure, step.call);
      EXPECT_EQ(Set<uint32_t>(row.property, other), step.status) << step.call << step.nth;
      EXPECT_TRUE(fault.Hit()) << step.call << step.nth;
      fault.Disarm();
      const size_t failed_opens = std::string_view(step.call) == "EngNoteOpen";
      EXPECT_EQ(spy.Count("EngNoteClose") + failed_opens, spy.Count("EngNoteOpen")) << step.call << step.nth;
    }
    EXPECT_EQ(Set<uint32_t>(row.property, 0), KVSUCCESS);
  }
}

// ---- The stored-form flag

class StoredFormTest : public PropertyTest {
 protected:
  void PutFlags(const std::string& flags) {
    EngNote icon = 0;
    ASSERT_EQ(EngNoteOpen(Hand(), 0xffff0010, 0, &icon), 0);
    if (flags.empty())
      EngItemDelete(icon, "$Flags", 6);
    else {
      ASSERT_EQ(EngItemTextSet(icon, "$Flags", flags.c_str(), 0xffff), 0);
    }
    ASSERT_EQ(EngNoteUpdate(icon, 0), 0);
    ASSERT_EQ(EngNoteClose(icon), 0);
  }
  std::string Flags() {
    EngNote icon = 0;
    char flags[256] = {};
    EXPECT_EQ(EngNoteOpen(Hand(), 0xffff0010, 0, &icon), 0);
    EngItemTextGet(icon, "$Flags", flags, 255);
    EXPECT_EQ(EngNoteClose(icon), 0);
    return flags;
  }
};

TEST_F(StoredFormTest, KVDatabaseGetProperty_StoredForm_IsOnWithoutTheLetter) {
  for (const char* flags : {"", "abc", "F"}) {
    PutFlags(flags);
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_STORED_FORM), 1) << flags;
  }
  for (const char* flags : {"f", "abf", "fab"}) {
    PutFlags(flags);
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_STORED_FORM), 0) << flags;
  }
}

TEST_F(StoredFormTest, KVDatabaseSetProperty_StoredForm_CutsAndAppendsTheLetter) {
  const struct {
    const char* before;
    int32_t on;
    const char* after;
  } rows[] = {{"", 0, "f"},     {"ab", 0, "abf"}, {"afb", 0, "afb"},
              {"afb", 7, "ab"}, {"f", 1, ""},     {"ab", 1, "ab"}};
  for (const auto& row : rows) {
    PutFlags(row.before);
    EXPECT_EQ(Set<int32_t>(KVPROP_DB_STORED_FORM, row.on), KVSUCCESS);
    EXPECT_EQ(Flags(), row.after) << row.before;
    EXPECT_EQ(Get<int32_t>(KVPROP_DB_STORED_FORM), row.on != 0);
  }
}

TEST_F(StoredFormTest, KVDatabaseSetProperty_StoredFormOfLongFlags_LettersAtTheLimit) {
  for (size_t flag_bytes : {size_t{30}, size_t{31}, size_t{32}}) {
    PutFlags(std::string(flag_bytes, 'a'));
    EXPECT_EQ(Set<int32_t>(KVPROP_DB_STORED_FORM, 0), KVSUCCESS);
    EXPECT_EQ(Flags(), std::string(flag_bytes < 31 ? flag_bytes : 31, 'a') + "f");
  }
}

TEST_F(StoredFormTest, KVDatabaseGetProperty_StoredFormWithoutIcon_Internal) {
  int32_t on = -1;
  {
    Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteOpen", true);
    EXPECT_EQ(KVDatabaseGetProperty(database_, KVPROP_DB_STORED_FORM, &on), KVFAIL_INTERNAL);
    EXPECT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_STORED_FORM, &on), KVFAIL_INTERNAL);
  }
  EXPECT_EQ(on, -1);
}

TEST_F(StoredFormTest, KVDatabaseSetProperty_StoredForm_UpdatesWithWordZero) {
  Spy spy;
  EXPECT_EQ(Set<int32_t>(KVPROP_DB_STORED_FORM, 0), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngNoteOpen")->words[1], 0xffff0010u);
  EXPECT_EQ(spy.Find("EngItemTextGet")->words[3], 31u);
  EXPECT_EQ(spy.Find("EngNoteUpdate")->words[1], 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 1u);
}

}  // namespace
