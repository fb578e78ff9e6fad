// Properties of indexes.
#include "kit/form_builder.h"
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kit::FormBuilder;
using kvdoc::kUntouched;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

class IndexPropertyTest : public IndexTest {
 protected:
  uint32_t Word(int32_t property) const {
    uint32_t value = kUntouched;
    EXPECT_EQ(KVIndexGetProperty(index_, property, &value), KVSUCCESS);
    return value;
  }
  std::string Text(int32_t property) const {
    char value[300] = "unset";
    EXPECT_EQ(KVIndexGetProperty(index_, property, value), KVSUCCESS);
    return value;
  }
  uint32_t Set(int32_t property, uint32_t value) const {
    return KVIndexSetProperty(index_, property, &value);
  }
  uint32_t TitleForm() const {
    return FormBuilder(EngineDatabase(), "Memo").WindowTitle("\"On \" + Key").Field({.name = "Key"}).Store();
  }
};

TEST_F(IndexPropertyTest, GetAndSet_WrongArguments_NullFirst) {
  uint32_t value = 0;
  EXPECT_EQ(KVIndexGetProperty(77, 1, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexSetProperty(77, 1, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexGetProperty(77, 1, &value), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexSetProperty(77, 1, &value), KVFAIL_BAD_INDEX);
  for (const int32_t property : {-1, 0, 15}) {
    EXPECT_EQ(KVIndexGetProperty(index_, property, &value), KVFAIL_BAD_PROPERTY);
    EXPECT_EQ(KVIndexSetProperty(index_, property, &value), KVFAIL_BAD_PROPERTY);
  }
  for (const int32_t property : {2, 3, 4, 5, 6, 7, 8, 9, 12, 14}) {
    EXPECT_EQ(Set(property, 1), KVFAIL_READ_ONLY_PROPERTY);
    ExpectError(KVFAIL_READ_ONLY_PROPERTY);
  }
}

TEST_F(IndexPropertyTest, Get_EmptyIndex_ZeroOrItsOwn) {
  for (const int32_t property : {1, 2, 3, 4, 5, 6}) EXPECT_EQ(Word(property), 0u);
  EXPECT_EQ(Word(KVPROP_INDEX_DATABASE), database_);
  EXPECT_EQ(Word(KVPROP_INDEX_SEARCH_CLASS), 1u);
  EXPECT_EQ(Word(KVPROP_INDEX_VCACHE_ROWS), 1u);
  EXPECT_EQ(Text(KVPROP_INDEX_FORM_NAME), "");
  KVVIEWCACHESTATS stats;
  memset(&stats, 0xff, sizeof stats);
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_VCACHE_STATS, &stats), KVSUCCESS);
  const KVVIEWCACHESTATS none{};
  EXPECT_EQ(memcmp(&stats, &none, sizeof stats), 0);
  KVDATETIME time{{1, 1}};
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_DATETIME, &time), KVSUCCESS);
  EXPECT_EQ(time.innards[0] | time.innards[1], 0u);
}

TEST_F(IndexPropertyTest, Get_View_WhatItShows) {
  OpenCategories();
  EXPECT_EQ(Word(KVPROP_INDEX_VIEW_ID), view_);
  EXPECT_EQ(Word(KVPROP_INDEX_IS_VIEW), 1u);
  EXPECT_EQ(Word(KVPROP_INDEX_LEVEL), 0u);
  ASSERT_EQ(Go(KVNAV_NEXT, KVNAVF_NO_CATEGORY), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_LEVEL), 1u);
  KVDATETIME time{};
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_DATETIME, &time), KVSUCCESS);
  EXPECT_NE(time.innards[1], 0u);
}

TEST_F(IndexPropertyTest, SetSearchClass_HighBits_Dropped) {
  EXPECT_EQ(Set(KVPROP_INDEX_SEARCH_CLASS, 0x12340204), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_SEARCH_CLASS), 0x204u);
  StoreMany(2);
  const uint32_t formid = TitleForm();
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(IdsOf(Rows()), std::vector<uint32_t>{formid});
}

TEST_F(IndexPropertyTest, SetFormId_Form_SetAndClearsASearch) {
  const uint32_t formid = TitleForm();
  EXPECT_EQ(Set(KVPROP_INDEX_FORM_ID, formid), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_FORM_ID), formid);
  EXPECT_EQ(Set(KVPROP_INDEX_FORM_ID, 0), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_FORM_ID), 0u);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(Set(KVPROP_INDEX_FORM_ID, 0), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_NE(Set(KVPROP_INDEX_FORM_ID, 0x7ffffff0), KVSUCCESS);
}

TEST_F(IndexPropertyTest, SetFormId_ViewOpen_ViewStays) {
  const uint32_t formid = TitleForm();
  OpenCategories();
  EXPECT_EQ(Set(KVPROP_INDEX_FORM_ID, formid), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_IS_VIEW), 1u);
}

TEST_F(IndexPropertyTest, SetFormName_NewName_KeptUntilTheNextSearch) {
  EXPECT_EQ(KVIndexSetProperty(index_, KVPROP_INDEX_FORM_NAME, "Fresh"), KVSUCCESS);
  EXPECT_EQ(Text(KVPROP_INDEX_FORM_NAME), "Fresh");
  EXPECT_EQ(Word(KVPROP_INDEX_FORM_ID), 0u);
  ASSERT_EQ(KVIndexSetProperty(index_, KVPROP_INDEX_FORM_NAME, "Fresher"), KVSUCCESS);
  EXPECT_EQ(Text(KVPROP_INDEX_FORM_NAME), "Fresher");
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(Text(KVPROP_INDEX_FORM_NAME), "");
}

TEST_F(IndexPropertyTest, SetFormName_EmptyBadOrTaken_StatusAndIndexCleared) {
  TitleForm();
  for (const auto& [name, status] : {std::pair{std::string(), uint32_t{KVFAIL_NO_FORM}},
                                     {std::string(300, 'n'), KVFAIL_NO_FORM},
                                     {"Memo", KVFAIL_NAME_IN_USE}}) {
    ASSERT_EQ(Search("@All"), KVSUCCESS);
    EXPECT_EQ(KVIndexSetProperty(index_, KVPROP_INDEX_FORM_NAME, name.c_str()), status);
    EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
    EXPECT_EQ(Text(KVPROP_INDEX_FORM_NAME), "");
  }
}

TEST_F(IndexPropertyTest, SetFormName_NoMemory_None) {
  for (const uint32_t nth : {1u, 2u}) {
    Fault fault = Fault::Allocation(nth);
    const uint32_t status = KVIndexSetProperty(index_, KVPROP_INDEX_FORM_NAME, "Fresh");
    EXPECT_TRUE(fault.Hit());
    EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == KVSUCCESS) << status;
  }
}

TEST_F(IndexPropertyTest, SetCacheRows_EachKind_OneAlone) {
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 1), KVFAIL_NOT_HIERARCHICAL);
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 50), KVFAIL_NOT_HIERARCHICAL);
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  OpenCategories();
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 0), KVSUCCESS);
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 1), KVSUCCESS);
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 2), KVFAIL_UNSUPPORTED);
  EXPECT_EQ(Word(KVPROP_INDEX_VCACHE_ROWS), 1u);
  ASSERT_EQ(KVIndexOpenView(index_, 0, view_, KVOPENVIEW_FLAT), KVSUCCESS);
  EXPECT_EQ(Set(KVPROP_INDEX_VCACHE_ROWS, 1), KVFAIL_NOT_HIERARCHICAL);
}

TEST_F(IndexPropertyTest, Title_CurrentDocument_OfItsForm) {
  TitleForm();
  Store("", "time", "Memo");
  Store("", "no form");
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  EXPECT_EQ(Word(KVPROP_INDEX_TITLE_LENGTH), 7u);
  EXPECT_NE(Index()->last_load.notehand, 0u);
  EXPECT_EQ(Text(KVPROP_INDEX_TITLE), "On time");
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  EXPECT_EQ(Text(KVPROP_INDEX_TITLE), "");
  EXPECT_EQ(Word(KVPROP_INDEX_TITLE_LENGTH), 0u);
}

TEST_F(IndexPropertyTest, Title_NoCurrentDocument_StatusAndEmpty) {
  char title[20] = "unset";
  uint32_t length = kUntouched;
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_TITLE, title), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_STREQ(title, "");
  OpenCategories();
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_TITLE_LENGTH, &length), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_TITLE_LENGTH, &length), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(length, 0u);
}

TEST_F(IndexPropertyTest, Title_EngineFails_StatusAndEmpty) {
  TitleForm();
  Store("", "time", "Memo");
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  for (const char* call : {"EngNoteOpen", "EngComputeBegin", "EngComputeEvaluate"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    char title[20] = "unset";
    EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_TITLE, title), kEngineFailure) << call;
    EXPECT_TRUE(fault.Hit());
    EXPECT_STREQ(title, "");
  }
}

}  // namespace
