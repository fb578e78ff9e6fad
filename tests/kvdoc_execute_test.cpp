// Formulas of the caller's, run against open documents.
#include "kvdoc_forms.h"

namespace {

using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::Record;

constexpr char kResult[] = "$$KVDocExecute!";

class ExecuteTest : public kvdoc::DocumentTest {
 protected:
  static int32_t Match(uint32_t document, const char* formula) {
    int32_t match = 77;
    EXPECT_EQ(KVDocumentExecute(document, formula, &match), KVSUCCESS) << formula;
    return match;
  }
  // A saved document, open.
  uint32_t Saved() const { return Open(StoreDocument()); }
};

TEST_F(ExecuteTest, KVDocumentExecute_EachOutcome_ToldInMatch) {
  const uint32_t document = Saved();
  EXPECT_EQ(Match(document, "SELECT Subject = \"a subject\""), KVEXEC_SELECT);
  EXPECT_EQ(Match(document, "SELECT Subject = \"other\""), KVEXEC_NONE);
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_EQ(Match(document, "FIELD Added := \"x\"; SELECT @All"), KVEXEC_MODIFIED);
  EXPECT_EQ(Record(document)->dirty, 1);
  EXPECT_EQ(FetchText(document, "Added"), "x");
}

TEST_F(ExecuteTest, KVDocumentExecute_Delete_GoesBeforeModifiedAndLeavesDirtyAlone) {
  const uint32_t document = Saved();
  EXPECT_EQ(Match(document, "FIELD Added := \"x\"; @DeleteDocument"), KVEXEC_DELETE);
  EXPECT_EQ(Record(document)->dirty, 0);
}

TEST_F(ExecuteTest, KVDocumentExecute_NoMatchAsked_TheChangeDoesNotCount) {
  const uint32_t document = Saved();
  ASSERT_EQ(KVDocumentExecute(document, "FIELD Added := \"x\"; 1", nullptr), KVSUCCESS);
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_EQ(FetchText(document, "Added"), "x");
}

TEST_F(ExecuteTest, KVDocumentExecute_Value_ReadAsAnItem) {
  const uint32_t document = Saved();
  ASSERT_EQ(KVDocumentExecute(document, "Subject + \"!\"", nullptr), KVSUCCESS);
  EXPECT_EQ(FetchText(document, kResult), "a subject!");
  ASSERT_EQ(KVDocumentExecute(document, "6 * 7", nullptr), KVSUCCESS);
  double number = 0;
  int32_t type = 0;
  uint32_t length = sizeof number;
  EXPECT_EQ(KVItemFetch(document, kResult, &type, &length, nullptr, &number), KVSUCCESS);
  EXPECT_EQ(type, KVTYPE_NUMBER);
  EXPECT_EQ(number, 42);
  EXPECT_EQ(KVItemGetLength(document, kResult, nullptr, nullptr, &length), KVSUCCESS);
  EXPECT_EQ(length, 8u);
  EXPECT_EQ(KVItemGetCount(document), 1u) << "it is no item of the note";
}

TEST_F(ExecuteTest, KVDocumentExecute_ValueLifetime_EndsWithRunSaveAndClose) {
  const uint32_t document = Saved();
  char buffer[100];
  uint32_t length = 99;
  EXPECT_EQ(KVItemFetch(document, kResult, nullptr, &length, nullptr, buffer), KVFAIL_NO_ITEM);
  ASSERT_EQ(KVDocumentExecute(document, "\"one\"", nullptr), KVSUCCESS);
  EXPECT_EQ(FetchText(document, kResult), "one");
  EXPECT_EQ(KVDocumentSave(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(FetchText(document, kResult), "one") << "a save that saves nothing ends nothing";
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  length = 99;
  EXPECT_EQ(KVItemFetch(document, kResult, nullptr, &length, nullptr, buffer), KVFAIL_NO_ITEM);
  ASSERT_EQ(KVDocumentExecute(document, nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(FetchText(document, kResult), "one");
  // A run that fails has ended the value of the one before.
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngComputeEvaluate");
    EXPECT_EQ(KVDocumentExecute(document, nullptr, nullptr), kEngineFailure);
  }
  EXPECT_EQ(Record(document)->exechand, 0u);
  ASSERT_EQ(KVDocumentExecute(document, nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
}

TEST_F(ExecuteTest, KVDocumentExecute_NoFormula_RunsTheLastOneForAnyDocument) {
  const uint32_t first = Saved();
  const uint32_t second = Open(StoreDocument("second"));
  int32_t match = 77;
  EXPECT_EQ(KVDocumentExecute(first, nullptr, &match), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(match, 0);
  ExpectError(KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVDocumentExecute(first, "", &match), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(KVDocumentExecute(first, "Subject", nullptr), KVSUCCESS);
  kit::Spy spy;
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    ASSERT_EQ(KVDocumentExecute(second, none, nullptr), KVSUCCESS);
    EXPECT_EQ(FetchText(second, kResult), "second");
  }
  EXPECT_EQ(spy.Count("EngFormulaCompile"), 0u);
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
  EXPECT_EQ(FetchText(first, kResult), "a subject") << "each document has its own value";
  // Another handle on the same database has its own formula.
  const uint32_t database = OpenDatabase(path_);
  const uint32_t third = OpenIn(database, Record(first)->docid);
  EXPECT_EQ(KVDocumentExecute(third, nullptr, nullptr), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(ExecuteTest, KVDocumentExecute_InvalidFormula_TellsThePartAtFaultAndKeepsNone) {
  const uint32_t document = Saved();
  ASSERT_EQ(KVDocumentExecute(document, "1", nullptr), KVSUCCESS);
  int32_t match = 77;
  EXPECT_EQ(KVDocumentExecute(document, "1 + @NoSuchFunction(2)", &match), KVFAIL_FORMULA);
  EXPECT_EQ(match, 0);
  const kit::ErrorState error = kit::LastError();
  EXPECT_EQ(error.status, KVFAIL_FORMULA);
  EXPECT_NE(error.message.find("Formula error near '@NoSuchFunction"), std::string::npos) << error.message;
  EXPECT_EQ(KVDocumentExecute(document, nullptr, nullptr), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(Base()->last_formula_hand, 0u);
}

TEST_F(ExecuteTest, KVDocumentExecute_BeginFails_EngineStatusAndNothingKept) {
  const uint32_t document = Saved();
  ASSERT_EQ(KVDocumentExecute(document, "1", nullptr), KVSUCCESS);
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngComputeBegin");
    EXPECT_EQ(KVDocumentExecute(document, "2", nullptr), kEngineFailure);
  }
  EXPECT_EQ(Base()->last_formula_hand, 0u);
  EXPECT_EQ(Base()->last_compute_hand, 0u);
  EXPECT_EQ(KVDocumentExecute(document, nullptr, nullptr), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(ExecuteTest, KVDocumentExecute_LongFormula_LimitIsThatOfTheEngine) {
  const uint32_t document = Saved();
  std::string text = "1" + std::string(0xffff - 1, ' ');
  EXPECT_EQ(KVDocumentExecute(document, text.c_str(), nullptr), KVSUCCESS);
  text += " ";
  EXPECT_EQ(KVDocumentExecute(document, text.c_str(), nullptr), KVFAIL_DATA_TOO_LONG);
}

TEST_F(ExecuteTest, KVDocumentExecute_BadHandle_MatchIsLeftAlone) {
  int32_t match = 77;
  EXPECT_EQ(KVDocumentExecute(database_, "1", &match), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(match, 77);
}

TEST_F(ExecuteTest, KVDatabaseClose_KeptFormula_ReleasedOnce) {
  const uint32_t document = Saved();
  ASSERT_EQ(KVDocumentExecute(document, "1", nullptr), KVSUCCESS);
  kit::Spy spy;
  EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngComputeEnd"), 1u);
}

}  // namespace
