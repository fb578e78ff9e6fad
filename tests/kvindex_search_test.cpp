// Searches: the formula that is made of the caller's and of the form's name, what is found, and what is left
// after a failure.
#include "kit/form_builder.h"
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kit::FormBuilder;
using kit::Spy;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

constexpr char kMemoHead[] = "@@SELECT@@ (Form=\"Memo\" | $TITLE=\"Memo\")";

std::string Compose(const std::string& name, std::string formula) {
  char* text = _KVIComposeSearch(name.c_str(), formula.data());
  const std::string composed = text;
  KVIFree(text);
  return composed;
}

TEST_F(IndexTest, KVIComposeSearch_EachFormula_ConditionBehindTheForm) {
  const struct {
    const char* formula;
    const char* condition;
  } rows[] = {{"x = 1", "& (x = 1)"},
              {"choix x = 1", "& (x = 1)"},
              {"SELECT x = 1;", "& (x = 1)"},
              {" \t select  x = 1 ; \n", "& (x = 1 )"},
              {"selectchoix@@SELECT@@ x", "& (x)"},
              {"@@select@@x", "& (x)"},
              {"choix select x", "& (select x)"},
              {"x = 1 ", "& (x = 1 )"},
              {"@All", ""},
              {"SELECT @All;", ""},
              {"@Allchildren", ""},
              {"choix @tout", ""},
              {"@Al", "& (@Al)"},
              {"x;;", "& (x;)"},
              {";", "& ()"}};
  for (const auto& row : rows)
    EXPECT_EQ(Compose("Memo", row.formula), std::string(kMemoHead) + row.condition);
}

TEST_F(IndexTest, KVIComposeSearch_BackslashesInTheName_Doubled) {
  EXPECT_EQ(Compose("a\\b", "x"), "@@SELECT@@ (Form=\"a\\\\b\" | $TITLE=\"a\\\\b\")& (x)");
}

TEST_F(IndexTest, KVIComposeSearch_NoFormula_FormAlone) {
  char* text = _KVIComposeSearch("Memo", nullptr);
  EXPECT_STREQ(text, kMemoHead);
  KVIFree(text);
}

TEST_F(IndexTest, KVIndexSearch_Formula_FoundInOrderAndTimed) {
  const std::vector<uint32_t> docids = StoreMany(3);
  ASSERT_EQ(Search("SELECT Key >= \"key 1001\""), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
  EXPECT_EQ(Position(), 0u);
  EXPECT_EQ(IdsOf(Rows()), (std::vector<uint32_t>{docids[1], docids[2]}));
  EXPECT_NE(Index()->index_datetime.innards[1], 0u);
}

TEST_F(IndexTest, KVIndexSearch_EmptyTextWithoutForm_CompilesANullText) {
  StoreMany(2);
  char empty[] = "";
  for (char* formula : {static_cast<char*>(nullptr), empty}) {
    Spy spy;
    (void)KVIndexSearch(index_, formula, 0, nullptr);
    ASSERT_EQ(spy.Count("EngFormulaCompile"), 1u);
    EXPECT_EQ(spy.Find("EngFormulaCompile")->words[2], 0u);
    EXPECT_EQ(spy.Find("EngFormulaCompile")->words[3], 0u);
  }
}

TEST_F(IndexTest, KVIndexSearch_Form_ItsDocumentsAndTheSemicolonIsCut) {
  const uint32_t formid = FormBuilder(EngineDatabase(), "Memo").Field({.name = "Key"}).Store();
  Store("", "other");
  const uint32_t one = Store("", "one", "Memo"), two = Store("", "two", "Memo");
  std::string formula = "SELECT @All;";
  ASSERT_EQ(KVIndexSearch(index_, formula.data(), formid, nullptr), KVSUCCESS);
  EXPECT_STREQ(formula.c_str(), "SELECT @All");
  EXPECT_EQ(IdsOf(Rows()), (std::vector<uint32_t>{one, two}));
  ASSERT_EQ(Search("Key = \"two\"", formid), KVSUCCESS);
  EXPECT_EQ(IdsOf(Rows()), (std::vector<uint32_t>{two}));
  ASSERT_EQ(KVIndexSearch(index_, nullptr, formid, nullptr), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
}

TEST_F(IndexTest, KVIndexSearch_NoMatch_SearchedAndAtTheEnd) {
  StoreMany(2);
  ASSERT_EQ(Search("@False"), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  EXPECT_NE(Index()->doc_idlist, nullptr);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
}

TEST_F(IndexTest, KVIndexSearch_SinceTomorrow_NoneAndTimeToldToTheEngine) {
  StoreMany(2);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  KVDATETIME since = Index()->index_datetime;
  since.innards[1] = since.innards[1] + 1;  // the next day
  Spy spy;
  char all[] = "@All";
  ASSERT_EQ(KVIndexSearch(index_, all, 0, &since), KVSUCCESS);
  ASSERT_EQ(spy.Count("EngDbSearch"), 1u);
  EXPECT_NE(spy.Find("EngDbSearch")->words[5], 0u);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
}

TEST_F(IndexTest, KVIndexSearch_BadFormula_TextToldAndIndexEmpty) {
  StoreMany(2);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(Search("SELECT Key ="), KVFAIL_FORMULA);
  ExpectError(KVFAIL_FORMULA);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexSearch_TooLong_DataTooLong) {
  EXPECT_EQ(Search("SELECT " + std::string(0x10000, '1')), KVFAIL_DATA_TOO_LONG);
}

TEST_F(IndexTest, KVIndexSearch_FormAndOtherClass_NoActionAndIndexCleared) {
  StoreMany(2);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  const uint32_t design = BRCLASS_INFO;
  ASSERT_EQ(KVIndexSetProperty(index_, KVPROP_INDEX_SEARCH_CLASS, &design), KVSUCCESS);
  EXPECT_EQ(Search("@All", 99), KVFAIL_NO_ACTION);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexSearch_UnknownIndexOrForm_Statuses) {
  EXPECT_EQ(KVIndexSearch(77, nullptr, 0, nullptr), KVFAIL_BAD_INDEX);
  EXPECT_NE(Search("@All", 0x7ffffff0), KVSUCCESS);
  EXPECT_EQ(Index()->active_form, nullptr);
}

TEST_F(IndexTest, KVIndexSearch_EngineFails_StatusAndIndexEmpty) {
  StoreMany(2);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngDbSearch");
  EXPECT_EQ(Search("@All"), kEngineFailure);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  EXPECT_EQ(Index()->doc_idlist, nullptr);
}

TEST_F(IndexTest, KVIndexSearch_EachAllocationFails_IndexEmpty) {
  const uint32_t formid = FormBuilder(EngineDatabase(), "Memo").Field({.name = "Key"}).Store();
  Store("", "one", "Memo");
  for (uint32_t nth = 1;; ++nth) {
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = Search("Key = \"one\"", formid);
    const bool hit = fault.Hit();
    fault.Disarm();
    if (status == KVSUCCESS) {
      if (!hit) break;
      continue;
    }
    EXPECT_EQ(KVIndexGetCount(index_), 0u);
    EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
  }
  EXPECT_EQ(KVIndexGetCount(index_), 1u);
}

}  // namespace
