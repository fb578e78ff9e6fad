// Moving an index on a list of documents.
#include "kvindex_world.h"

namespace {

using kvdoc::kUntouched;
using kvindex::IndexTest;

TEST_F(IndexTest, KVIndexNavigate_UnknownIndex_OutputsZero) {
  uint32_t docid = kUntouched, indent = kUntouched;
  EXPECT_EQ(KVIndexNavigate(77, KVNAV_NEXT, 0, &docid, &indent), KVFAIL_BAD_INDEX);
  EXPECT_EQ(docid, 0u);
  EXPECT_EQ(indent, 0u);
  docid = indent = kUntouched;
  EXPECT_EQ(KVIndexNavigate(0x7fffffff, KVNAV_NEXT, 0, &docid, &indent), KVFAIL_BAD_HANDLE);
  EXPECT_EQ(docid, 0u);
  EXPECT_EQ(indent, 0u);
}

TEST_F(IndexTest, KVIndexNavigate_ListForthAndBack_RestsOutsideBothEnds) {
  const std::vector<uint32_t> docids = StoreMany(3);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  for (const uint32_t docid : docids) EXPECT_EQ(IdAt(KVNAV_NEXT), docid);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
    EXPECT_EQ(Position(), 4u);
  }
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_BACKWARD), docids[2]);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_BACKWARD), docids[1]);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_BACKWARD), docids[0]);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_BACKWARD), KVFAIL_END_OF_DATA);
    EXPECT_EQ(Position(), 0u);
  }
  EXPECT_EQ(IdAt(KVNAV_NEXT), docids[0]);
}

TEST_F(IndexTest, KVIndexNavigate_ListEachDirection_PlaceOrStatus) {
  const std::vector<uint32_t> docids = StoreMany(3);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_CURRENT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(IdAt(KVNAV_MAIN), docids[0]);
  EXPECT_EQ(IdAt(KVNAV_END), docids[2]);
  EXPECT_EQ(IdAt(KVNAV_CURRENT), docids[2]);
  EXPECT_EQ(IdAt(KVNAV_MAIN, KVNAVF_BACKWARD), docids[1]);
  EXPECT_EQ(IdAt(KVNAV_END, KVNAVF_BACKWARD), docids[0]);
  for (const int32_t direction : {KVNAV_PEER, KVNAV_CHILD, KVNAV_PARENT})
    for (const uint32_t nav_flags : {0u, 2u}) EXPECT_EQ(Go(direction, nav_flags), KVFAIL_NOT_HIERARCHICAL);
  EXPECT_EQ(Go(7), KVFAIL_BAD_ENUM);
  EXPECT_EQ(Go(-1), KVFAIL_BAD_ENUM);
  ExpectError(KVFAIL_BAD_ENUM);
  EXPECT_EQ(Position(), 1u);
  ASSERT_EQ(KVIndexSetPosition(index_, 4), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_CURRENT), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(IndexTest, KVIndexNavigate_ListPeek_PlaceStaysAlsoAtTheEnds) {
  const std::vector<uint32_t> docids = StoreMany(2);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EXPECT_EQ(IdAt(KVNAV_NEXT, KVNAVF_PEEK), docids[0]);
  EXPECT_EQ(Position(), 0u);
  EXPECT_EQ(IdAt(KVNAV_END, KVNAVF_PEEK), docids[1]);
  EXPECT_EQ(Position(), 0u);
  EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_PEEK | KVNAVF_BACKWARD), KVFAIL_END_OF_DATA);
  ASSERT_EQ(Go(KVNAV_END), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_PEEK), KVFAIL_END_OF_DATA);
  EXPECT_EQ(Position(), 2u);
}

TEST_F(IndexTest, KVIndexNavigate_DocumentLoaded_MoveClosesItPeekDoesNot) {
  const std::vector<uint32_t> docids = StoreMany(2);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  ASSERT_EQ(Go(KVNAV_NEXT), KVSUCCESS);
  ASSERT_EQ(_LoadCurrentDoc(session_, Base(), Index(), docids[0], 0), KVSUCCESS);
  EXPECT_EQ(Go(KVNAV_NEXT, KVNAVF_PEEK), KVSUCCESS);
  EXPECT_NE(Index()->last_load.notehand, 0u);
  EXPECT_EQ(Go(KVNAV_CURRENT), KVSUCCESS);
  EXPECT_EQ(Index()->last_load.notehand, 0u);
}

TEST_F(IndexTest, KVIndexNavigate_FullTextHits_IdsAndScoresOfTheBlock) {
  ASSERT_EQ(Search("@False"), KVSUCCESS);
  auto* search = KVIAllocate<FTSEARCH>();
  ASSERT_EQ(EngFullTextSearchOpen(&search->search_hand), 0);
  ASSERT_EQ(EngMemAlloc(0, 8 + 2 * 4 + 2, &search->results), 0);
  {
    const KVLocked results(search->results);
    const uint32_t words[] = {2, 0, 0x8f6, 0x8fa};
    KVICopyBytes(results.bytes, words, sizeof words);
    KVICopyBytes(results.bytes + sizeof words, "\x64\x07", 2);
  }
  search->use_scores = 1;
  Index()->ftsearch = search;
  Index()->doc_count = 2;
  uint32_t score = 0;
  EXPECT_EQ(IdAt(KVNAV_NEXT), 0x8f6u);
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_SCORE, &score), KVSUCCESS);
  EXPECT_EQ(score, 100u);
  EXPECT_EQ(IdAt(KVNAV_NEXT), 0x8fau);
  EXPECT_EQ(KVIndexGetProperty(index_, KVPROP_INDEX_SCORE, &score), KVSUCCESS);
  EXPECT_EQ(score, 7u);
  EXPECT_EQ(Go(KVNAV_NEXT), KVFAIL_END_OF_DATA);
  EngIdTable table = 0;
  ASSERT_EQ(KVIIndexGetIDTable(Index(), &table), KVSUCCESS);
  EXPECT_EQ(EngIdTableCount(table), 2u);
  EngIdTableDestroy(table);
  Index()->doc_count = 3;  // more than the block holds
  EXPECT_EQ(Go(KVNAV_END), KVFAIL_INTERNAL);
}

}  // namespace
