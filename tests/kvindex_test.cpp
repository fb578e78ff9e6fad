// Index handles: open, close, count, and what the states of the teardown release.
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::kUntouched;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

TEST_F(IndexTest, KVIndexOpen_Fresh_EmptyAndTheCachedOne) {
  EXPECT_EQ(session_->hmruIDX, index_);
  EXPECT_EQ(session_->pmruIDX, Index());
  EXPECT_EQ(Index()->dbase, Base());
  EXPECT_EQ(Index()->search_class, 1);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(Go(7), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexOpen_WrongArguments_DatabaseFirst) {
  uint32_t index = kUntouched;
  EXPECT_EQ(KVIndexOpen(77, &index), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVIndexOpen(77, nullptr), KVFAIL_NO_DATABASE);
  EXPECT_EQ(index, kUntouched);
  EXPECT_EQ(KVIndexOpen(database_, nullptr), KVFAIL_NULL_PARAM);
  ExpectError(KVFAIL_NULL_PARAM);
}

TEST_F(IndexTest, KVIndexOpen_NoMemory_ZeroAndNoRecord) {
  uint32_t index = kUntouched;
  Fault fault = Fault::Allocation(1);
  EXPECT_EQ(KVIndexOpen(database_, &index), KVFAIL_NO_MEMORY);
  EXPECT_TRUE(fault.Hit());
  EXPECT_EQ(index, 0u);
}

TEST_F(IndexTest, KVIndexClose_Open_HandleAndCacheAreGoneDatabaseStays) {
  EXPECT_EQ(KVIndexClose(index_), KVSUCCESS);
  EXPECT_EQ(session_->hmruIDX, 0u);
  EXPECT_EQ(KVIndexClose(index_), KVFAIL_BAD_INDEX);
  ExpectError(KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexGetPosition(index_), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  ExpectError(KVFAIL_BAD_INDEX);
  StoreDocument();
}

TEST_F(IndexTest, KVIndexClose_ChangedDocumentLoaded_SavedAndItsHandleIsGone) {
  const uint32_t docid = StoreDocument("before");
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  ASSERT_EQ(_LoadCurrentDoc(session_, Base(), Index(), docid, 0), KVSUCCESS);
  const uint32_t document = Index()->last_load.document;
  EXPECT_EQ(document, index_ | kIndexDocumentBit);
  PutText(document, "Subject", "after");
  EXPECT_EQ(KVIndexClose(index_), KVSUCCESS);
  EXPECT_EQ(KVDocumentSave(document, 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(StoredItems(docid, "Subject").at(0).bytes, "after");
}

TEST_F(IndexTest, KVIndexClose_DocumentCannotBeSaved_IndexGoesAllTheSame) {
  const uint32_t docid = StoreDocument();
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  ASSERT_EQ(_LoadCurrentDoc(session_, Base(), Index(), docid, 0), KVSUCCESS);
  PutText(Index()->last_load.document, "Subject", "after");
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngNoteUpdate");
  EXPECT_EQ(KVIndexClose(index_), KVSUCCESS);
  EXPECT_TRUE(fault.Hit());
  EXPECT_EQ(KVIndexClose(index_), KVFAIL_BAD_INDEX);
}

TEST_F(IndexTest, KVDatabaseClose_IndexesOpen_ClosedWithIt) {
  uint32_t other_database = OpenDatabase(path_);
  uint32_t indexes[25];
  for (uint32_t& index : indexes) ASSERT_EQ(KVIndexOpen(other_database, &index), KVSUCCESS);
  OpenCategories();
  EXPECT_EQ(KVDatabaseClose(other_database, 0), KVSUCCESS);
  for (const uint32_t index : indexes) EXPECT_EQ(KVIndexClose(index), KVFAIL_BAD_INDEX);
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
  EXPECT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  EXPECT_EQ(KVIndexClose(index_), KVFAIL_BAD_INDEX);
}

TEST_F(IndexTest, ClearIndexState_Row_DocumentAndRowGoPositionStays) {
  OpenCategories();
  ASSERT_EQ(Go(KVNAV_NEXT, KVNAVF_NO_CATEGORY), KVSUCCESS);
  ASSERT_EQ(_LoadCurrentDoc(session_, Base(), Index(), docids_[0], 0), KVSUCCESS);
  EXPECT_NE(Index()->viewrow.summ_hand, 0u);
  EXPECT_EQ(ClearIndexState(Index(), kStateIndexRow), KVSUCCESS);
  EXPECT_EQ(Index()->viewrow.summ_hand, 0u);
  EXPECT_EQ(Index()->last_load.notehand, 0u);
  EXPECT_EQ(Dotted(), "1.1");
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
}

TEST_F(IndexTest, ClearIndexState_All_EmptyAgain) {
  OpenCategories();
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  Spy spy;
  EXPECT_EQ(ClearIndexState(Index(), kStateIndexAll), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngCollectionClose"), 1u);
  EXPECT_EQ(Index()->collhand, 0u);
  EXPECT_EQ(Index()->unread_hand, 0u);
  EXPECT_EQ(Index()->active_view, nullptr);
  EXPECT_EQ(KVIndexGetCount(index_), 0u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, ClearIndexState_UnknownState_NothingHappens) {
  OpenCategories();
  for (const int16_t state : {int16_t{0}, int16_t{23}, int16_t{27}})
    EXPECT_EQ(ClearIndexState(Index(), state), KVSUCCESS);
  EXPECT_EQ(KVIndexGetCount(index_), 2u);
}

TEST_F(IndexTest, ClearIndexState_FullText_SearchAloneGoes) {
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  auto* search = KVIAllocate<FTSEARCH>();
  ASSERT_EQ(EngFullTextSearchOpen(&search->search_hand), 0);
  ASSERT_EQ(EngMemAlloc(0, 100, &search->results), 0);
  ASSERT_EQ(EngIdTableCreate(4, &search->idtab), 0);
  Index()->ftsearch = search;
  Spy spy;
  EXPECT_EQ(ClearIndexState(Index(), kStateIndexFullText), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngFullTextSearchClose"), 1u);
  EXPECT_EQ(Index()->ftsearch, nullptr);
  EXPECT_NE(Index()->doc_idlist, nullptr);
}

}  // namespace
