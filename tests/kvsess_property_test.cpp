#include <cstring>

#include "brynd.h"
#include "kit/kit.h"
#include "kvint_session.h"

using kit::LastError;

namespace {

class PropertyTest : public kit::KavrinTest {
 protected:
  static _api_session* Session() { return KVICurrentSession(); }

  template <typename Value>
  static uint32_t Set(int32_t property, Value value) {
    return KVSetProperty(property, &value);
  }
  template <typename Value>
  static Value Get(int32_t property) {
    Value value{};
    EXPECT_EQ(KVGetProperty(property, &value), KVSUCCESS) << property;
    return value;
  }
  static std::string GetText(int32_t property) {
    char text[KVMESSAGE_BYTES + 1];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(KVGetProperty(property, text), KVSUCCESS) << property;
    return text;
  }
};

constexpr int32_t kBools[] = {
    KVPROP_SESS_TRUNCATE_TEXT,  KVPROP_SESS_KEEP_MAILDB_OPEN, KVPROP_SESS_ABBREVIATE_NAMES,
    KVPROP_SESS_DELAY_COMMIT,   KVPROP_SESS_STRICT_BIND,      KVPROP_SESS_FETCH_DESIGN_CODE,
    KVPROP_SESS_DOCOPEN_DESIGN, KVPROP_SESS_READ_SUBF_FIELDS, KVPROP_SESS_STRICT_BIND_COMPUTE};
constexpr int32_t kNumbers[] = {KVPROP_SESS_SUMMARY_LIMIT, KVPROP_SESS_VCACHE_ROWS, KVPROP_SESS_MAX_DB_SIZE};
constexpr int32_t kReadOnly[] = {KVPROP_SESS_USER_NAME, KVPROP_SESS_TIME_ZONE,  KVPROP_SESS_DST,
                                 KVPROP_SESS_ON_SERVER, KVPROP_SESS_BR_VERSION, KVPROP_SESS_BR_BUILD};

}  // namespace

TEST_F(PropertyTest, Bools_AnyNonZeroWord_ReadsBackAsOne) {
  for (const int32_t property : kBools) {
    SCOPED_TRACE(property);
    for (const uint32_t word : {5u, 0u, 0x80000000u, 0u, 1u}) {
      EXPECT_EQ(Set<uint32_t>(property, word), KVSUCCESS);
      EXPECT_EQ(Get<int32_t>(property), word != 0 ? 1 : 0);
    }
    EXPECT_EQ(KVSetProperty(property, nullptr), KVFAIL_NULL_PARAM);
    EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
    EXPECT_EQ(Get<int32_t>(property), 1);
  }
}

TEST_F(PropertyTest, Bools_EachHasItsOwnField) {
  for (const int32_t property : kBools) ASSERT_EQ(Set<int32_t>(property, 0), KVSUCCESS);
  for (const int32_t property : kBools) {
    ASSERT_EQ(Set<int32_t>(property, 1), KVSUCCESS);
    for (const int32_t other : kBools) EXPECT_EQ(Get<int32_t>(other), other == property ? 1 : 0);
    ASSERT_EQ(Set<int32_t>(property, 0), KVSUCCESS);
  }
}

TEST_F(PropertyTest, Numbers_Limits) {
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_SUMMARY_LIMIT), 0x2000u);
  EXPECT_EQ(Set<uint32_t>(KVPROP_SESS_SUMMARY_LIMIT, 15361), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(LastError().status, KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_SUMMARY_LIMIT), 0x2000u);
  EXPECT_EQ(Set<uint32_t>(KVPROP_SESS_SUMMARY_LIMIT, 15360), KVSUCCESS);
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_SUMMARY_LIMIT), 15360u);
  EXPECT_EQ(Set<uint32_t>(KVPROP_SESS_VCACHE_ROWS, 0), KVSUCCESS);
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_VCACHE_ROWS), 1u);
  EXPECT_EQ(Set<uint32_t>(KVPROP_SESS_VCACHE_ROWS, 64), KVSUCCESS);
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_VCACHE_ROWS), 64u);
  struct Row {
    uint32_t set, read;
  };
  for (const Row& row : {Row{9, 4}, Row{0, 1}, Row{1, 1}, Row{4, 4}, Row{5, 4}, Row{3, 3}}) {
    EXPECT_EQ(Set<uint32_t>(KVPROP_SESS_MAX_DB_SIZE, row.set), KVSUCCESS);
    EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_MAX_DB_SIZE), row.read);
  }
  for (const int32_t property : kNumbers) EXPECT_EQ(KVSetProperty(property, nullptr), KVFAIL_NULL_PARAM);
}

TEST_F(PropertyTest, KVSetProperty_ReadOnly_RefusedEvenForNull) {
  for (const int32_t property : kReadOnly) {
    EXPECT_EQ(Set<uint32_t>(property, 1), KVFAIL_READ_ONLY_PROPERTY) << property;
    EXPECT_EQ(KVSetProperty(property, nullptr), KVFAIL_READ_ONLY_PROPERTY) << property;
    EXPECT_EQ(LastError().status, KVFAIL_READ_ONLY_PROPERTY);
  }
}

TEST_F(PropertyTest, KVGetProperty_OutOfRange_BadPropertyAfterTheNullTest) {
  uint32_t value = 7;
  for (const int32_t property : {0, 22, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(KVGetProperty(property, &value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(KVGetProperty(property, nullptr), KVFAIL_NULL_PARAM);
    EXPECT_EQ(KVSetProperty(property, &value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(KVSetProperty(property, nullptr), KVFAIL_BAD_PROPERTY);
  }
  EXPECT_EQ(value, 7u);
}

TEST_F(PropertyTest, OldCallers_SeeThePropertiesOfTheirDay) {
  struct Row {
    uint32_t version;
    int32_t last_property;
  };
  for (const Row& row :
       {Row{0x30000, 17}, Row{0x3ffff, 17}, Row{0x40000, 20}, Row{0x40105, 20}, Row{0x40106, 21}}) {
    Session()->kvprog_version = row.version;
    for (int32_t property = 17; property <= 21; ++property) {
      char value[300];
      const uint32_t expected = property <= row.last_property ? KVSUCCESS : KVFAIL_BAD_PROPERTY;
      EXPECT_EQ(KVGetProperty(property, value), expected) << row.version << " " << property;
      const uint32_t one = 1;
      const bool read_only = property == KVPROP_SESS_BR_BUILD;
      EXPECT_EQ(KVSetProperty(property, &one),
                expected == KVSUCCESS && read_only ? KVFAIL_READ_ONLY_PROPERTY : expected);
    }
  }
}

TEST_F(PropertyTest, LocalServer_SetCutCleared) {
  EXPECT_EQ(GetText(KVPROP_SESS_LOCAL_SERVER), "");
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Hub"), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_LOCAL_SERVER), "Hub");
  const std::string long_name(300, 'n');
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, long_name.c_str()), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_LOCAL_SERVER), std::string(255, 'n'));
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, ""), KVSUCCESS);
  EXPECT_EQ(Session()->local_servername, nullptr);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Hub"), KVSUCCESS);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, nullptr), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_LOCAL_SERVER), "");
}

TEST_F(PropertyTest, LocalServer_NoMemory_OldNameStays) {
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Hub"), KVSUCCESS);
  kit::Fault fault = kit::Fault::Allocation(1);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_LOCAL_SERVER, "Other"), KVFAIL_NO_MEMORY);
  fault.Disarm();
  EXPECT_EQ(GetText(KVPROP_SESS_LOCAL_SERVER), "Hub");
}

TEST_F(PropertyTest, Newline_FiveCharactersFillTheField) {
  EXPECT_EQ(GetText(KVPROP_SESS_NEWLINE), "\r\n");
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, ""), KVSUCCESS);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, nullptr), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_NEWLINE), "\r\n");
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, "12345"), KVSUCCESS);
  EXPECT_EQ(Session()->newline_delim_len, 5);
  EXPECT_EQ(GetText(KVPROP_SESS_NEWLINE), "12345");
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, "123456"), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(GetText(KVPROP_SESS_NEWLINE), "12345");
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_NEWLINE, "\n"), KVSUCCESS);
  EXPECT_EQ(Session()->newline_delim_len, 1);
  EXPECT_EQ(GetText(KVPROP_SESS_NEWLINE), "\n");
}

TEST_F(PropertyTest, TaskName_256CharactersLeaveTheNeighbourAlone) {
  Session()->delay_commit_default = 1;
  EXPECT_EQ(GetText(KVPROP_SESS_TASK_NAME), "");
  const std::string longest(256, 't');
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_TASK_NAME, longest.c_str()), KVSUCCESS);
  EXPECT_EQ(Session()->delay_commit_default, 1);
  EXPECT_EQ(GetText(KVPROP_SESS_TASK_NAME), longest);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_TASK_NAME, std::string(257, 't').c_str()), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_TASK_NAME, ""), KVSUCCESS);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_TASK_NAME, nullptr), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_TASK_NAME), longest);
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_TASK_NAME, "Task"), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_TASK_NAME), "Task");
}

TEST_F(PropertyTest, KeepMailDb_SetFalse_ClosesBothAndClears) {
  kit::Answer mail("EngMailBoxClose", 0), box("EngDbClose", 0);
  Session()->maildb_dbhand = 31;
  Session()->mailbox_dbhand = 32;
  kit::Spy spy;
  EXPECT_EQ(Set<int32_t>(KVPROP_SESS_KEEP_MAILDB_OPEN, 1), KVSUCCESS);
  EXPECT_EQ(spy.calls().size(), 0u);
  EXPECT_EQ(Set<int32_t>(KVPROP_SESS_KEEP_MAILDB_OPEN, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (std::vector<std::string>{"EngMailBoxClose", "EngDbClose"}));
  EXPECT_EQ(spy.calls()[0].words[0], 31u);
  EXPECT_EQ(spy.calls()[1].words[0], 32u);
  EXPECT_EQ(Session()->maildb_dbhand, 0u);
  EXPECT_EQ(Session()->mailbox_dbhand, 0u);
  EXPECT_EQ(Set<int32_t>(KVPROP_SESS_KEEP_MAILDB_OPEN, 0), KVSUCCESS);
  EXPECT_EQ(spy.calls().size(), 2u);
}

TEST_F(PropertyTest, UserName_AbbreviatedOrNot_EmptyOnFailure) {
  EXPECT_EQ(GetText(KVPROP_SESS_USER_NAME), "Test User/Kavrin");
  ASSERT_EQ(Set<int32_t>(KVPROP_SESS_ABBREVIATE_NAMES, 0), KVSUCCESS);
  EXPECT_EQ(GetText(KVPROP_SESS_USER_NAME), "CN=Test User/O=Kavrin");
  kit::Fault fault = kit::Fault::EngineCall(1, 0x4601, "EngUserNameGet");
  char text[300] = "old";
  EXPECT_EQ(KVGetProperty(KVPROP_SESS_USER_NAME, text), 0x601u);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(LastError().status, 0x601u);
}

TEST_F(PropertyTest, TimeZoneAndDaylight_FromTheEngine) {
  kit::Answer zone("EngTimeZoneGet", uint64_t{0});
  int32_t engine_zone = 0, engine_dst = 0;
  {
    kit::Spy spy;
    EngTimeZoneGet(&engine_zone, &engine_dst);
  }
  EXPECT_EQ(Get<int32_t>(KVPROP_SESS_TIME_ZONE), engine_zone);
  EXPECT_EQ(Get<int32_t>(KVPROP_SESS_DST), engine_dst != 0 ? 1 : 0);
}

TEST_F(PropertyTest, OnServer_OpensTheEmptyNameOnTheUsersServer) {
  {
    kit::Fault fault = kit::Fault::EngineCall(1, 0x103, "EngDbOpen");
    EXPECT_EQ(Get<int32_t>(KVPROP_SESS_ON_SERVER), 0);
    EXPECT_EQ(LastError().status, 0u);
  }
  {
    kit::Answer open("EngDbOpen", 0), close("EngDbClose", 0);
    kit::Spy spy;
    EXPECT_EQ(Get<int32_t>(KVPROP_SESS_ON_SERVER), 1);
    EXPECT_EQ(spy.Count("EngDbClose"), 1u);
    EXPECT_NE(spy.Find("EngDbOpen")->texts[0].find("Test User"), std::string::npos);
  }
  kit::Fault fault = kit::Fault::EngineCall(1, 0x601, "EngUserNameGet");
  int32_t value = 7;
  EXPECT_EQ(KVGetProperty(KVPROP_SESS_ON_SERVER, &value), 0x601u);
  EXPECT_EQ(value, 0);
}

TEST_F(PropertyTest, EngineVersionAndBuild) {
  EXPECT_EQ(GetText(KVPROP_SESS_BR_VERSION), Session()->br_version);
  EXPECT_EQ(Get<uint32_t>(KVPROP_SESS_BR_BUILD), Session()->br_build);
}

TEST_F(PropertyTest, UnalignedVariables_ReadAndWritten) {
  char room[9] = {};
  room[1] = 33;
  EXPECT_EQ(KVSetProperty(KVPROP_SESS_VCACHE_ROWS, room + 1), KVSUCCESS);
  room[5] = 99;
  EXPECT_EQ(KVGetProperty(KVPROP_SESS_VCACHE_ROWS, room + 5), KVSUCCESS);
  EXPECT_EQ(room[5], 33);
}

TEST_F(PropertyTest, NoSession_StatusReturned) {
  kit::InThread([] {
    uint32_t value = 0;
    KVINTERNATIONAL intl{};
    KVFORMAT format{};
    char text[200];
    EXPECT_EQ(KVGetProperty(1, &value), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVSetProperty(1, &value), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVGetEnvironmentString("a", 0, text), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVSetEnvironmentString("a", "b", 1), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVGetFormat(&format), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVSetFormat(&format), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVGetInternational(&intl), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVSetInternational(&intl), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVTranslate(0, 1, "a", 1, text, nullptr), KVFAIL_THREAD_NOT_INITIALIZED);
  });
}

// ---- Environment strings

TEST_F(PropertyTest, KVSetEnvironmentString_NewVariable_OnlyWithTheFlag) {
  char value[152];
  EXPECT_EQ(KVGetEnvironmentString("TestNew", 0, value), KVFAIL_NOT_FOUND);
  EXPECT_STREQ(value, "");
  for (const uint32_t flags : {0u, 2u, 3u})
    EXPECT_EQ(KVSetEnvironmentString("TestNew", "one", flags), KVFAIL_NOT_FOUND);
  EXPECT_EQ(KVSetEnvironmentString("TestNew", "one", KVSETENV_CREATE), KVSUCCESS);
  EXPECT_EQ(KVGetEnvironmentString("TestNew", 0, value), KVSUCCESS);
  EXPECT_STREQ(value, "one");
  EXPECT_EQ(KVSetEnvironmentString("TestNew", "two", 0), KVSUCCESS);
  EXPECT_EQ(KVGetEnvironmentString("TestNew", 0, value), KVSUCCESS);
  EXPECT_STREQ(value, "two");
}

TEST_F(PropertyTest, EnvironmentString_150CharactersReadBack) {
  const std::string longest(150, 'v');
  EXPECT_EQ(KVSetEnvironmentString("TestLong", std::string(151, 'v').c_str(), 1), KVFAIL_DATA_TOO_LONG);
  ASSERT_EQ(KVSetEnvironmentString("TestLong", longest.c_str(), 1), KVSUCCESS);
  for (const uint32_t length : {0u, 150u, 151u, 0xffffffffu}) {
    std::vector<char> value(151, 'x');
    EXPECT_EQ(KVGetEnvironmentString("TestLong", length, value.data()), KVSUCCESS);
    EXPECT_EQ(std::string(value.data()), longest);
  }
  for (const uint32_t length : {1u, 10u, 149u}) {
    std::vector<char> value(length + 1, 'x');
    EXPECT_EQ(KVGetEnvironmentString("TestLong", length, value.data()), KVSUCCESS);
    EXPECT_EQ(std::strlen(value.data()), length);
  }
}

TEST_F(PropertyTest, KVGetEnvironmentString_CutInsideACharacter_CharacterLeftOut) {
  kit::Answer environment("EngEnvironmentGet", [](const std::vector<uint64_t>& words) -> uint64_t {
    EXPECT_EQ(words[2], 4u);
    std::memcpy(reinterpret_cast<char*>(words[1]), "abc\x10", 5);
    return 1;
  });
  char value[5];
  EXPECT_EQ(KVGetEnvironmentString("Any", 4, value), KVSUCCESS);
  EXPECT_STREQ(value, "abc");
}

TEST_F(PropertyTest, EnvironmentString_Nulls) {
  char value[152] = "kept";
  EXPECT_EQ(KVGetEnvironmentString(nullptr, 0, value), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVGetEnvironmentString("", 0, value), KVFAIL_NULL_PARAM);
  EXPECT_STREQ(value, "kept");
  EXPECT_EQ(KVGetEnvironmentString("a", 0, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVSetEnvironmentString(nullptr, "b", 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVSetEnvironmentString("", "b", 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVSetEnvironmentString("a", nullptr, 1), KVFAIL_NULL_PARAM);
}

TEST_F(PropertyTest, KVSetEnvironmentString_EngineFails_StatusReported) {
  kit::Fault fault = kit::Fault::EngineCall(1, 0x1f7, "EngEnvironmentSet");
  EXPECT_EQ(KVSetEnvironmentString("a", "b", 1), 0x1f7u);
  EXPECT_EQ(LastError().status, 0x1f7u);
}

// ---- Formats

TEST_F(PropertyTest, KVGetFormat_Default_ThenWhatWasSet) {
  KVFORMAT format{};
  EXPECT_EQ(KVGetFormat(&format), KVSUCCESS);
  EXPECT_EQ(uint32_t{format.number.decimal_digits}, 2u);
  EXPECT_EQ(int32_t{format.datetime.datetime}, 2);
  EXPECT_EQ(int32_t{format.listsep.display}, 2);
  EXPECT_EQ(uint32_t{format.listsep.sepallow_flags}, 14u);
  format.number.decimal_digits = 5;
  format.listsep.display = 3;
  EXPECT_EQ(KVSetFormat(&format), KVSUCCESS);
  KVFORMAT read{};
  EXPECT_EQ(KVGetFormat(&read), KVSUCCESS);
  EXPECT_EQ(std::memcmp(&read, &format, sizeof format), 0);
  KVFORMAT bad = format;
  bad.datetime.zone = 3;
  EXPECT_EQ(KVSetFormat(&bad), KVFAIL_BAD_ENUM);
  EXPECT_EQ(LastError().status, KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVGetFormat(&read), KVSUCCESS);
  EXPECT_EQ(std::memcmp(&read, &format, sizeof format), 0);
  EXPECT_EQ(KVGetFormat(nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVSetFormat(nullptr), KVFAIL_NULL_PARAM);
}

// ---- International settings

TEST_F(PropertyTest, International_SetAndReadBack_LengthsFollow) {
  KVINTERNATIONAL intl{};
  ASSERT_EQ(KVGetInternational(&intl), KVSUCCESS);
  intl.intl_flags = 0xffffff15;
  intl.date_order = KVDATEORDER_1;
  intl.currency_digits = 255;
  intl.time_zone = -11;
  std::strcpy(intl.date_sep, "....");
  std::strcpy(intl.time_sep, "");
  std::strcpy(intl.am_string, "vorm");
  std::strcpy(intl.pm_string, "nm");
  std::strcpy(intl.tomorrow_string, std::string(31, 'm').c_str());
  ASSERT_EQ(KVSetInternational(&intl), KVSUCCESS);
  KVINTERNATIONAL read{};
  ASSERT_EQ(KVGetInternational(&read), KVSUCCESS);
  intl.intl_flags = 0x15;
  EXPECT_EQ(std::memcmp(&read, &intl, sizeof intl), 0);
  EXPECT_EQ(uint16_t{Session()->format.intl.Flags}, 0x40 | 0x15);
  EXPECT_EQ(uint16_t{Session()->format.datesep_len}, 4);
  EXPECT_EQ(uint16_t{Session()->format.timesep_len}, 0);
  EXPECT_EQ(uint16_t{Session()->format.amstring_len}, 4);
  EXPECT_EQ(uint16_t{Session()->format.pmstring_len}, 2);
}

TEST_F(PropertyTest, KVGetInternational_DateOrder_FirstBitSetWins) {
  struct Row {
    uint16_t flags;
    int32_t order;
  };
  for (const Row& row : {Row{0x20, 0}, Row{0x40, 1}, Row{0x80, 2}, Row{0xe0, 0}, Row{0xc0, 1}, Row{0, 0}}) {
    Session()->format.intl.Flags = row.flags;
    KVINTERNATIONAL intl{};
    EXPECT_EQ(KVGetInternational(&intl), KVSUCCESS);
    EXPECT_EQ(int32_t{intl.date_order}, row.order) << row.flags;
  }
}

TEST_F(PropertyTest, KVSetInternational_LongStrings_NothingChanged) {
  KVINTERNATIONAL intl{};
  ASSERT_EQ(KVGetInternational(&intl), KVSUCCESS);
  const INTLFORMAT before = Session()->format.intl;
  struct Row {
    size_t offset, bytes;
  };
  for (const Row& row :
       {Row{offsetof(KVINTERNATIONAL, am_string), 5}, Row{offsetof(KVINTERNATIONAL, pm_string), 5},
        Row{offsetof(KVINTERNATIONAL, currency_symbol), 5}, Row{offsetof(KVINTERNATIONAL, thousand_sep), 5},
        Row{offsetof(KVINTERNATIONAL, decimal_sep), 5}, Row{offsetof(KVINTERNATIONAL, date_sep), 5},
        Row{offsetof(KVINTERNATIONAL, time_sep), 5}, Row{offsetof(KVINTERNATIONAL, yesterday_string), 32},
        Row{offsetof(KVINTERNATIONAL, today_string), 32},
        Row{offsetof(KVINTERNATIONAL, tomorrow_string), 32}}) {
    KVINTERNATIONAL bad = intl;
    bad.date_order = 99;  // found after the strings
    std::memset(reinterpret_cast<char*>(&bad) + row.offset, 'x', row.bytes);
    EXPECT_EQ(KVSetInternational(&bad), KVFAIL_DATA_TOO_LONG) << row.offset;
    EXPECT_EQ(std::memcmp(&Session()->format.intl, &before, sizeof before), 0);
  }
}

TEST_F(PropertyTest, KVSetInternational_NumbersOutOfRange_DateOrderChangedAllTheSame) {
  KVINTERNATIONAL intl{};
  ASSERT_EQ(KVGetInternational(&intl), KVSUCCESS);
  for (const int32_t order : {-1, 3, INT32_MAX}) {
    KVINTERNATIONAL bad = intl;
    bad.date_order = order;
    Session()->format.intl.Flags = 0x1f;
    EXPECT_EQ(KVSetInternational(&bad), KVFAIL_BAD_ENUM);
    EXPECT_EQ(uint16_t{Session()->format.intl.Flags}, 0x1f);
  }
  for (const int32_t zone : {-12, 12}) {
    KVINTERNATIONAL bad = intl;
    bad.time_zone = zone;
    bad.date_order = KVDATEORDER_2;
    Session()->format.intl.Flags = 0x1f;
    EXPECT_EQ(KVSetInternational(&bad), KVFAIL_DATA_TOO_LONG);
    EXPECT_EQ(uint16_t{Session()->format.intl.Flags}, 0x80);
  }
  KVINTERNATIONAL bad = intl;
  bad.currency_digits = 256;
  EXPECT_EQ(KVSetInternational(&bad), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVSetInternational(nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVGetInternational(nullptr), KVFAIL_NULL_PARAM);
}

// ---- Character sets

TEST_F(PropertyTest, KVTranslate_ChecksInOrder) {
  char target[8] = "";
  uint32_t actual = 7;
  EXPECT_EQ(KVTranslate(9, 0, nullptr, 0, target, &actual), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVTranslate(9, 0, "a", 0, nullptr, &actual), KVFAIL_NULL_PARAM);
  EXPECT_EQ(actual, 7u);
  EXPECT_EQ(KVTranslate(2, 0x10000, "a", 0, target, &actual), KVFAIL_BAD_ENUM);
  EXPECT_EQ(actual, 0u);
  EXPECT_EQ(KVTranslate(-1, 0x10000, "a", 0, target, &actual), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVTranslate(0, 0x10000, "a", 0, target, &actual), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVTranslate(0, 0, "a", 0, target, &actual), KVFAIL_NO_ACTION);
  EXPECT_EQ(LastError().status, KVFAIL_NO_ACTION);
  EXPECT_EQ(KVTranslate(0, 1, "a", 0, target, &actual), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVTranslate(0, 1, "a", 0x10000, target, nullptr), KVSUCCESS);
  EXPECT_EQ(target[0], 'a');
}

TEST_F(PropertyTest, KVTranslate_ThereAndBack_AndNoHalfCharacter) {
  const std::string text =
      "a\xe2\x82\xac"
      "b";  // a, the euro sign, b in UTF-8
  char engine[32], platform[32];
  uint32_t engine_bytes = 0, platform_bytes = 0;
  ASSERT_EQ(KVTranslate(KVTRANSLATE_TO_ENGINE, 5, text.data(), sizeof engine, engine, &engine_bytes),
            KVSUCCESS);
  ASSERT_EQ(
      KVTranslate(KVTRANSLATE_FROM_ENGINE, engine_bytes, engine, sizeof platform, platform, &platform_bytes),
      KVSUCCESS);
  EXPECT_EQ(std::string(platform, platform_bytes), text);
  std::vector<char> narrow(3);
  ASSERT_EQ(KVTranslate(KVTRANSLATE_FROM_ENGINE, engine_bytes, engine, 3, narrow.data(), &platform_bytes),
            KVSUCCESS);
  EXPECT_EQ(std::string(narrow.data(), platform_bytes), "a");
}
