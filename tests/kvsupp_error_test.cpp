#include <cstring>

#include "kit/kit.h"
#include "kvint_session.h"

using kit::KavrinTest;
using kit::LastError;

namespace {

struct StatusRow {
  const char* name;
  uint32_t status;
  uint32_t low_word;
  int32_t severity;
  const char* message;
};

constexpr StatusRow kStatuses[] = {
#define KVSTATUS(name, code, severity, message) {#name, name, code, severity, message},
#include "kavrin_statuses.def"
#undef KVSTATUS
};

// What the error procedure of a test was told.
struct Told {
  int times = 0;
  uint32_t status = 0;
  int32_t severity = -1;
  std::string message;
};

uint32_t TellTest(uint32_t status, int32_t severity, char* message, void* error_param) {
  auto* told = static_cast<Told*>(error_param);
  ++told->times;
  told->status = status;
  told->severity = severity;
  told->message = message;
  return 99;
}

class ErrorTest : public KavrinTest {
 protected:
  _api_session* Session() { return KVICurrentSession(); }
  // A failing exported call.
  static uint32_t Fail() { return KVGetProperty(1, nullptr); }
};

}  // namespace

TEST_F(ErrorTest, KVErrorGetInfo_PublicBitAlone_NoMessage) {
  int32_t severity = 9;
  char message[KVMESSAGE_BYTES] = "old";
  EXPECT_EQ(KVErrorGetInfo(0x80000000u, &severity, message), 0u);
  EXPECT_STREQ(message, "");
  EXPECT_EQ(severity, 0);
}

TEST_F(ErrorTest, KVErrorGetInfo_EveryPublicStatus_ItsTextAndSeverity) {
  for (const StatusRow& row : kStatuses) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(row.status, 0x80000000u + row.low_word);
    if (row.status == KVFAIL_FORMULA) continue;  // its text is made when it happens
    int32_t severity = -1;
    char message[KVMESSAGE_BYTES] = "?";
    EXPECT_EQ(KVErrorGetInfo(row.status, &severity, message), std::strlen(row.message));
    EXPECT_STREQ(message, row.message);
    EXPECT_EQ(severity, row.severity);
  }
}

TEST_F(ErrorTest, KVErrorGetInfo_FormulaStatus_NoTextSeverityZero) {
  int32_t severity = -1;
  char message[KVMESSAGE_BYTES] = "?";
  EXPECT_EQ(KVErrorGetInfo(KVFAIL_FORMULA, &severity, message), 0u);
  EXPECT_STREQ(message, "");
  EXPECT_EQ(severity, 0);
}

TEST_F(ErrorTest, KVErrorGetInfo_MessageCount_TextWithoutSeverity) {
  int32_t severity = -1;
  char message[KVMESSAGE_BYTES];
  EXPECT_EQ(KVErrorGetInfo(0x8000ffff, &severity, message), 2u);
  EXPECT_STREQ(message, "59");
  EXPECT_EQ(severity, 0);
}

TEST_F(ErrorTest, KVErrorGetInfo_Success_EmptyMessage) {
  int32_t severity = -1;
  char message[KVMESSAGE_BYTES] = "?";
  EXPECT_EQ(KVErrorGetInfo(KVSUCCESS, &severity, message), 0u);
  EXPECT_STREQ(message, "");
  EXPECT_EQ(severity, 0);
}

TEST_F(ErrorTest, KVErrorGetInfo_UnknownStatus_NothingFound) {
  for (const uint32_t status : {0x80000700u, 0x8000ff00u, 0x80000113u, 0x3ffeu}) {
    int32_t severity = -1;
    char message[KVMESSAGE_BYTES] = "?";
    EXPECT_EQ(KVErrorGetInfo(status, &severity, message), 0u) << status;
    EXPECT_STREQ(message, "");
    EXPECT_EQ(severity, 0);
  }
}

TEST_F(ErrorTest, KVErrorGetInfo_EngineStatus_EngineTextBelowTheFlagBits) {
  char plain[KVMESSAGE_BYTES] = "", flagged[KVMESSAGE_BYTES] = "";
  int32_t severity = 0;
  EXPECT_GT(KVErrorGetInfo(0x103, &severity, plain), 0u);
  EXPECT_EQ(severity, KVSEV_ENGINE);
  EXPECT_EQ(KVErrorGetInfo(0xc103, nullptr, flagged), std::strlen(plain));
  EXPECT_STREQ(flagged, plain);
}

TEST_F(ErrorTest, KVErrorGetInfo_OptionalOutputs_MayBeNull) {
  EXPECT_EQ(KVErrorGetInfo(KVFAIL_BAD_ENUM, nullptr, nullptr), 0u);
  int32_t severity = -1;
  EXPECT_EQ(KVErrorGetInfo(KVFAIL_BAD_ENUM, &severity, nullptr), 0u);
  EXPECT_EQ(severity, KVSEV_ERROR);
}

TEST_F(ErrorTest, KVErrorGetInfo_AfterFailure_DisturbsNothing) {
  Told told;
  uint32_t status = 7;
  int32_t severity = 7;
  char message[KVMESSAGE_BYTES] = "x";
  KVErrorSetProcedure(TellTest, &told);
  KVErrorSetBuffer(&status, &severity, message);
  ASSERT_EQ(Fail(), KVFAIL_NULL_PARAM);
  ASSERT_EQ(told.times, 1);
  const std::string text = message;
  char other[KVMESSAGE_BYTES];
  EXPECT_GT(KVErrorGetInfo(KVFAIL_NO_VIEW, nullptr, other), 0u);
  EXPECT_EQ(told.times, 1);
  EXPECT_EQ(status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(message, text);
  EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(LastError().message, text);
  EXPECT_EQ(KVErrorSetProcedure(nullptr, nullptr), &TellTest);
}

TEST_F(ErrorTest, KVError_FlagBitsAlone_SuccessAndNothingRecorded) {
  Told told;
  KVErrorSetProcedure(TellTest, &told);
  EXPECT_EQ(KVError(0xc000), 0u);
  EXPECT_EQ(KVError(0), 0u);
  EXPECT_EQ(told.times, 0);
  EXPECT_EQ(LastError().status, 0u);
}

TEST_F(ErrorTest, KVError_EngineStatus_MaskedTo14Bits) {
  EXPECT_EQ(KVError(0xc103), 0x103u);
  EXPECT_EQ(LastError().status, 0x103u);
  EXPECT_EQ(LastError().severity, KVSEV_ENGINE);
  EXPECT_NE(LastError().message, "");
}

TEST_F(ErrorTest, KVError_TwoNestedFailures_FirstWinsProcedureRunsOnce) {
  Told told;
  KVErrorSetProcedure(TellTest, &told);
  EXPECT_EQ(KVError(KVFAIL_NO_ITEM), KVFAIL_NO_ITEM);
  EXPECT_EQ(KVError(KVFAIL_NO_VIEW), KVFAIL_NO_ITEM);
  EXPECT_EQ(told.times, 1);
  EXPECT_EQ(told.status, KVFAIL_NO_ITEM);
  EXPECT_EQ(told.severity, KVSEV_WARNING);
  EXPECT_EQ(told.message, "No such item exists in the document");
}

TEST_F(ErrorTest, KVError_TwoCallsFail_ProcedureRunsTwice) {
  Told told;
  KVErrorSetProcedure(TellTest, &told);
  Fail();
  Fail();
  EXPECT_EQ(told.times, 2);
}

TEST_F(ErrorTest, KVError_ZeroSeverityStatuses_AreFailures) {
  Session()->errsev = 8;
  EXPECT_EQ(KVError(KVFAIL_NO_CERTIFIER), KVFAIL_NO_CERTIFIER);
  EXPECT_EQ(LastError().severity, 0);
}

TEST_F(ErrorTest, KVError_UnknownStatus_EmptyMessagePreviousSeverity) {
  for (const uint32_t status : {0x80000700u, 0x3ffeu}) {
    Session()->errcode = 0;
    Session()->errsev = 8;
    std::strcpy(Session()->errstring, "old");
    EXPECT_EQ(KVError(status), status);
    EXPECT_EQ(LastError().severity, 8);
    EXPECT_EQ(LastError().message, "");
  }
}

TEST_F(ErrorTest, KVError_ProcedureCallsTheLibrary_OwnCodeReturned) {
  struct Seen {
    uint32_t status_in_buffer = 0;
    uint32_t buffer = 0;
  } seen;
  KVErrorSetBuffer(&seen.buffer, nullptr, nullptr);
  KVErrorSetProcedure(
      [](uint32_t, int32_t, char*, void* param) -> uint32_t {
        auto* record = static_cast<Seen*>(param);
        record->status_in_buffer = record->buffer;
        int32_t truncate = 0;
        return KVGetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate);  // clears errcode
      },
      &seen);
  EXPECT_EQ(Fail(), KVFAIL_NULL_PARAM);
  EXPECT_EQ(seen.status_in_buffer, KVFAIL_NULL_PARAM);
  EXPECT_EQ(LastError().status, 0u);
}

TEST_F(ErrorTest, KVErrorFetch_AfterSuccess_EmptyThoughTheTextStays) {
  Fail();
  int32_t truncate = 0;
  ASSERT_EQ(KVGetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate), KVSUCCESS);
  uint32_t status = 7;
  int32_t severity = 7;
  char message[KVMESSAGE_BYTES] = "x";
  EXPECT_EQ(KVErrorFetch(&status, &severity, message), 0u);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(severity, 0);
  EXPECT_STREQ(message, "");
  EXPECT_STRNE(Session()->errstring, "");
}

TEST_F(ErrorTest, KVErrorFetch_Repeated_SameAnswerAndOptionalOutputs) {
  Fail();
  for (int time = 0; time < 2; ++time) {
    char message[KVMESSAGE_BYTES];
    EXPECT_EQ(KVErrorFetch(nullptr, nullptr, message),
              std::strlen("A parameter is NULL when a value is required"));
    EXPECT_EQ(KVErrorFetch(nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
    EXPECT_EQ(LastError().severity, KVSEV_ERROR);
  }
}

TEST_F(ErrorTest, KVErrorFetch_NoSession_NotInitialized) {
  kit::InThread([] {
    uint32_t status = 0;
    int32_t severity = 7;
    char message[KVMESSAGE_BYTES] = "kept";
    EXPECT_EQ(KVErrorFetch(&status, &severity, message), 0u);
    EXPECT_EQ(status, KVFAIL_NOT_INITIALIZED);
    EXPECT_EQ(severity, 7);
    EXPECT_STREQ(message, "kept");
    EXPECT_EQ(KVErrorFetch(nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(KVErrorGetInfo(KVFAIL_BAD_ENUM, &severity, message), 0u);
    EXPECT_STREQ(message, "kept");
    KVErrorSetBuffer(&status, &severity, message);
    EXPECT_EQ(severity, 7);
    EXPECT_EQ(KVErrorSetProcedure(TellTest, nullptr), nullptr);
  });
}

TEST_F(ErrorTest, KVErrorSetBuffer_Registered_ClearedAtOnceThenFilledByFailuresOnly) {
  uint32_t status = 7;
  int32_t severity = 7;
  char message[KVMESSAGE_BYTES] = "x";
  KVErrorSetBuffer(&status, &severity, message);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(severity, 0);
  EXPECT_STREQ(message, "");
  Fail();
  EXPECT_EQ(status, KVFAIL_NULL_PARAM);
  EXPECT_EQ(severity, KVSEV_ERROR);
  EXPECT_STREQ(message, "A parameter is NULL when a value is required");
  int32_t truncate = 0;
  ASSERT_EQ(KVGetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate), KVSUCCESS);
  EXPECT_EQ(status, KVFAIL_NULL_PARAM);
  KVErrorSetBuffer(nullptr, nullptr, nullptr);
  KVGetProperty(99, &truncate);
  EXPECT_EQ(status, KVFAIL_NULL_PARAM);
}

TEST_F(ErrorTest, KVErrorSetBuffer_UnalignedVariables_Filled) {
  char room[16] = {};
  KVErrorSetBuffer(reinterpret_cast<uint32_t*>(room + 1), reinterpret_cast<int32_t*>(room + 7), nullptr);
  Fail();
  EXPECT_EQ(KVILoad<uint32_t>(room + 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVILoad<int32_t>(room + 7), KVSEV_ERROR);
  KVErrorSetBuffer(nullptr, nullptr, nullptr);
}

TEST_F(ErrorTest, KVErrorSetProcedure_Replaced_PreviousReturnedNullRemoves) {
  Told told;
  EXPECT_EQ(KVErrorSetProcedure(TellTest, &told), nullptr);
  EXPECT_EQ(KVErrorSetProcedure(nullptr, nullptr), &TellTest);
  Fail();
  EXPECT_EQ(told.times, 0);
}

TEST_F(ErrorTest, Registrations_OtherThread_HaveNoPartInThem) {
  Told told;
  KVErrorSetProcedure(TellTest, &told);
  kit::InSession([] {
    EXPECT_EQ(Fail(), KVFAIL_NULL_PARAM);
    EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
  });
  EXPECT_EQ(told.times, 0);
  EXPECT_EQ(LastError().status, 0u);
}

TEST_F(ErrorTest, BryndFormulaError_LongFragment_WholeMessageIn255Characters) {
  static constexpr char kStart[] = "Formula error near '";
  for (const size_t length : {size_t{0}, size_t{5}, size_t{233}, size_t{234}, size_t{235}, size_t{1000}}) {
    Session()->errcode = 0;
    const std::string fragment(length, 'x');
    EXPECT_EQ(_BryndFormulaError(Session(), 0x301, fragment.data(), static_cast<uint32_t>(length)),
              KVFAIL_FORMULA);
    const std::string expected = kStart + fragment.substr(0, 234) + "'";
    EXPECT_EQ(LastError().message, expected);
    EXPECT_EQ(LastError().severity, KVSEV_ERROR);
    EXPECT_LE(expected.size(), 255u);
  }
}

TEST_F(ErrorTest, BryndFormulaError_FragmentEndsBeforeItsLength_NothingReadBehindIt) {
  const std::vector<char> fragment{'a', 'b', 0};
  EXPECT_EQ(_BryndFormulaError(Session(), 0x301, fragment.data(), 200), KVFAIL_FORMULA);
  EXPECT_EQ(LastError().message, "Formula error near 'ab'");
}

TEST_F(ErrorTest, BryndLoadString_LimitAndUnknownKey) {
  char buffer[KVMESSAGE_BYTES];
  EXPECT_EQ(BryndLoadString(KVFAIL_NO_ACTION, buffer, 9), 9u);
  EXPECT_STREQ(buffer, "Parameter");
  EXPECT_EQ(BryndLoadString(0x0113, buffer, 255), 0u);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(BryndLoadString(0, buffer, 255), 8u);
  EXPECT_STREQ(buffer, "No Error");
}

TEST_F(ErrorTest, KVError_NoSession_CodeReturned) {
  kit::InThread([] { EXPECT_EQ(KVError(KVFAIL_INTERNAL), KVFAIL_INTERNAL); });
}
