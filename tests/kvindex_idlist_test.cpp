// Lists of ids at all limits of their blocks, and id tables of what an index shows.
#include "kvindex_world.h"

namespace {

using kit::Fault;
using kvindex::IndexTest;
using kvindex::kEngineFailure;

class IdListTest : public IndexTest {
 protected:
  void Fill(uint32_t count) {
    while (Index()->doc_count < count) ASSERT_TRUE(KVIIdListAppend(Index(), Index()->doc_count * 4 + 2));
  }
  void ExpectAll(uint32_t count) {
    ASSERT_EQ(Index()->doc_count, count);
    for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(KVIIdListAt(Index(), i), i * 4 + 2) << i;
  }
  static std::vector<uint32_t> IdsIn(EngIdTable table) {
    std::vector<uint32_t> ids;
    uint32_t id = 0;
    for (int32_t first = 1; EngIdTableScan(table, first, &id); first = 0) ids.push_back(id);
    return ids;
  }
};

TEST_F(IdListTest, KVIIdListAppend_AtEachLimit_AllIdsThereAndBlocksAsTold) {
  const struct {
    uint32_t count;
    int16_t blocks;
  } rows[] = {{1, 0},    {511, 0},   {512, 0},   {513, 1},     {8191, 1},    {8192, 1},
              {8193, 2}, {16384, 2}, {16385, 3}, {131072, 16}, {131073, 17}, {262145, 33}};
  for (const auto& row : rows) {
    Fill(row.count);
    EXPECT_EQ(Index()->doc_idlist_count, row.blocks) << row.count;
  }
  ExpectAll(262145);
}

TEST_F(IdListTest, KVIIdListTrim_AtEachLimit_NoIdIsLost) {
  for (const uint32_t count : {1u, 511u, 512u, 513u, 8191u, 8192u, 8193u, 16383u, 16384u, 16385u, 24576u}) {
    Fill(count);
    EXPECT_TRUE(KVIIdListTrim(Index()));
    ExpectAll(count);
    KVIIdListFree(Index());
    EXPECT_EQ(Index()->doc_idlist, nullptr);
    EXPECT_EQ(Index()->doc_idlist_count, 0);
    Index()->doc_count = 0;
  }
}

TEST_F(IdListTest, KVIIdListTrim_NoIds_ListIsThere) {
  EXPECT_TRUE(KVIIdListTrim(Index()));
  EXPECT_NE(Index()->doc_idlist, nullptr);
}

TEST_F(IdListTest, KVIIdListAppend_NoMemory_ListStandsAsItWas) {
  for (const uint32_t count : {0u, 512u, 8192u, 16384u, 131072u}) {
    Fill(count);
    for (uint32_t nth = 1;; ++nth) {
      Fault fault = Fault::Allocation(nth);
      if (KVIIdListAppend(Index(), count * 4 + 2)) break;
      ASSERT_TRUE(fault.Hit());
      ExpectAll(count);
    }
    ExpectAll(count + 1);
  }
}

TEST_F(IdListTest, SearchNoteID_Records_MatchesAloneAreTaken) {
  SEARCH_MATCH match{};
  match.ID.NoteID = 0x8f6;
  match.SERetFlags = 0xfe;
  EXPECT_EQ(SearchNoteID(Index(), &match, nullptr), 0);
  EXPECT_EQ(Index()->doc_count, 0u);
  match.SERetFlags = 1;
  EXPECT_EQ(SearchNoteID(Index(), &match, nullptr), 0);
  EXPECT_EQ(Index()->doc_count, 1u);
  EXPECT_EQ(KVIIdListAt(Index(), 0), 0x8f6u);
}

TEST_F(IdListTest, SearchNoteIDTable_Records_MatchesAloneAreTaken) {
  EngIdTable table = 0;
  ASSERT_EQ(EngIdTableCreate(4, &table), 0);
  SEARCH_MATCH match{};
  match.ID.NoteID = 0x8f6;
  EXPECT_EQ(SearchNoteIDTable(&table, &match, nullptr), 0);
  EXPECT_EQ(IdsIn(table).size(), 0u);
  match.SERetFlags = 3;
  EXPECT_EQ(SearchNoteIDTable(&table, &match, nullptr), 0);
  EXPECT_EQ(IdsIn(table), std::vector<uint32_t>{0x8f6});
  EXPECT_EQ(EngIdTableDestroy(table), 0);
  EXPECT_EQ(SearchNoteIDTable(&table, &match, nullptr), 0x1f0);
}

TEST_F(IdListTest, KVIIndexGetIDTable_EmptyIndex_NotViewIndex) {
  EngIdTable table = kvdoc::kUntouched;
  EXPECT_EQ(KVIIndexGetIDTable(Index(), &table), KVFAIL_NOT_VIEW_INDEX);
  EXPECT_EQ(table, kvdoc::kUntouched);
}

TEST_F(IdListTest, KVIIndexGetIDTable_SearchResult_ItsDocuments) {
  const std::vector<uint32_t> docids = StoreMany(5);
  ASSERT_EQ(Search("@All"), KVSUCCESS);
  EngIdTable table = 0;
  ASSERT_EQ(KVIIndexGetIDTable(Index(), &table), KVSUCCESS);
  EXPECT_EQ(IdsIn(table), docids);
  EngIdTableDestroy(table);
}

TEST_F(IdListTest, KVIIndexGetIDTable_View_DocumentsWithoutCategories) {
  OpenCategories();
  EngIdTable table = 0;
  ASSERT_EQ(KVIIndexGetIDTable(Index(), &table), KVSUCCESS);
  EXPECT_EQ(IdsIn(table), docids_);
  EngIdTableDestroy(table);
  for (uint32_t nth = 1; nth <= 2; ++nth) {
    Fault fault = Fault::EngineCall(nth, kEngineFailure);
    EXPECT_EQ(KVIIndexGetIDTable(Index(), &table), kEngineFailure);
    EXPECT_TRUE(fault.Hit());
  }
}

}  // namespace
