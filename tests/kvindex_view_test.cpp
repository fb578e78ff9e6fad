// Views as indexes: opening, counting, and what is left when that fails.
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

TEST_F(IndexTest, KVIndexOpenView_Levels_TopRowsCountedAndBeforeTheFirst) {
  OpenCategories();
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
  EXPECT_EQ(Position(), 0u);
  EXPECT_EQ(Index()->coll_first, 1);
  EXPECT_EQ(Go(KVNAV_CURRENT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(IdsOf(Rows()), IdsOf(AllOfCategories()));
}

TEST_F(IndexTest, KVIndexOpenView_Total_CountsAsARow) {
  OpenCategories(0, 1);
  EXPECT_EQ(KVIndexGetCount(index_), 3u);
  const std::vector<kvindex::Row> rows = Rows();
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows.back(), (kvindex::Row{KVDOCID_TOTAL, 0}));
}

TEST_F(IndexTest, KVIndexOpenView_Flat_AllRowsCounted) {
  OpenCategories(KVOPENVIEW_FLAT);
  EXPECT_EQ(KVIndexGetCount(index_), 5u);
  EXPECT_EQ(IdsOf(Rows()), IdsOf(AllOfCategories()));
}

TEST_F(IndexTest, KVIndexOpenView_FlatWithManyPages_EachRowCountedOnce) {
  StoreMany(3000);
  view_ = MakeView({{"Key", 1, 0}});
  ASSERT_EQ(KVIndexOpenView(index_, 0, view_, KVOPENVIEW_FLAT), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 3000u);
  EngIdTable table = 0;
  ASSERT_EQ(KVIIndexGetIDTable(Index(), &table), KVSUCCESS);
  EXPECT_EQ(EngIdTableCount(table), 3000u);
  EngIdTableDestroy(table);
}

TEST_F(IndexTest, KVIndexOpenView_Flags_LowThreeBitsGoToTheEngine) {
  view_ = MakeView(CategoryAndKey());
  Spy spy;
  ASSERT_EQ(KVIndexOpenView(index_, 0, view_, 0xffffffff), KVSUCCESS);
  const kit::EngineCall* call = spy.Find("EngCollectionOpen");
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->words[0], EngineDatabase());
  EXPECT_EQ(call->words[1], EngineDatabase());
  EXPECT_EQ(call->words[2], view_);
  EXPECT_EQ(call->words[3], 7u);
  EXPECT_EQ(Index()->flat_view, 1);
}

TEST_F(IndexTest, KVIndexOpenView_WrongArguments_OrderOfChecks) {
  EXPECT_EQ(KVIndexOpenView(77, 0, 0, 0), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexOpenView(index_, 77, 0, 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexOpenView(index_, 77, 5, 0), KVFAIL_NO_DATABASE);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(KVIndexOpenView(index_, 77, 5, 0), KVFAIL_NO_DATABASE);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);  // what it had is there
  EXPECT_EQ(KVIndexOpenView(index_, 0, 0x7ffffff0, 0), KVFAIL_NO_VIEW);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVIndexOpenViewFolder(77, 0, 0, 0), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexOpenViewFolder(index_, 0, 0, 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIndexOpenViewFolder(index_, 0, 0x7ffffff0, 0), KVFAIL_NO_VIEW);
}

TEST_F(IndexTest, KVIndexOpenViewFolder_ViewAndFolder_Open) {
  StoreMany(1);
  view_ = MakeView(CategoryAndKey());
  EXPECT_EQ(KVIndexOpenViewFolder(index_, 0, view_, 0), KVSUCCESS);
  const uint32_t folder = MakeView(CategoryAndKey(), "F");
  EXPECT_EQ(KVIndexOpenViewFolder(index_, 0, folder, 0), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
}

TEST_F(IndexTest, KVIndexOpenViewFolder_FolderWithoutColumns_NoFolder) {
  const uint32_t broken =
      StoreNote(BRCLASS_VIEW, {{"$TITLE", BRTYPE_TEXT, 4, "Broken"}, {"$Flags", BRTYPE_TEXT, 4, "F"}});
  EXPECT_EQ(KVIndexOpenViewFolder(index_, 0, broken, 0), KVFAIL_NO_FOLDER);
  ExpectError(KVFAIL_NO_FOLDER);
  EXPECT_EQ(KVIndexOpenView(index_, 0, broken, 0), KVFAIL_NO_VIEW);
}

TEST_F(IndexTest, KVIndexOpenView_OtherDatabase_ItsDesignOnTheseDocumentsAndClosedWithIt) {
  docids_ = {Store("Fruit", "apple")};
  const uint32_t other = OpenDatabase(MakeDatabase("other.qdb"));
  view_ = MakeViewIn(BaseOf(other)->dbhand, CategoryAndKey(), "", "SELECT @All");
  ASSERT_EQ(KVIndexOpenView(index_, other, view_, 0), KVSUCCESS);
  EXPECT_EQ(Index()->active_view_dbase, BaseOf(other));
  EXPECT_EQ(Index()->active_view->used_in_index, Index());
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_NO_CATEGORY), docids_[0]);
  uint32_t second = 0;
  ASSERT_EQ(KVIndexOpen(database_, &second), KVSUCCESS);
  ASSERT_EQ(KVIndexOpenView(second, other, view_, 0), KVSUCCESS);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
  EXPECT_EQ(KVIndexClose(index_), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexClose(second), KVFAIL_BAD_INDEX);
}

TEST_F(IndexTest, KVIndexOpenView_OtherHandleOfTheDatabase_CountsAsItsOwn) {
  const uint32_t other = OpenDatabase(path_);
  view_ = MakeView(CategoryAndKey());
  ASSERT_EQ(KVIndexOpenView(index_, other, view_, 0), KVSUCCESS);
  EXPECT_EQ(Index()->active_view_dbase, nullptr);
  EXPECT_EQ(Index()->active_view->used_in_index, nullptr);
  EXPECT_EQ(KVDatabaseClose(other, 0), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
}

TEST_F(IndexTest, KVIndexOpenView_EngineFails_StatusAndTableGone) {
  view_ = MakeView(CategoryAndKey());
  for (const char* call : {"EngIdTableCreate", "EngCollectionOpen"}) {
    Fault fault = Fault::EngineCall(1, kEngineFailure, call);
    EXPECT_EQ(KVIndexOpenView(index_, 0, view_, 0), kEngineFailure) << call;
    EXPECT_TRUE(fault.Hit());
    EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
  }
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionRead");
  EXPECT_EQ(KVIndexOpenView(index_, 0, view_, 0), KVFAIL_INTERNAL);
}

TEST_F(IndexTest, KVIndexOpenView_FlatCountFails_CollectionIsClosed) {
  view_ = MakeView(CategoryAndKey());
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngCollectionRead");
  EXPECT_EQ(KVIndexOpenView(index_, 0, view_, KVOPENVIEW_FLAT), kEngineFailure);
  ExpectError(kEngineFailure);
  EXPECT_EQ(Index()->collhand, 0u);
  EXPECT_EQ(Index()->unread_hand, 0u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
}

}  // namespace
