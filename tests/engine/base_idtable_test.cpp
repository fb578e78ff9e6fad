// Id tables: against std::set, at the ends of the range, and as blocks of the engine's heap.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "base/idtable.h"
#include "brynd_memory.h"

namespace brynd {
namespace {

class IdTableTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(EngIdTableCreate(4, &table), status::kOk); }
  void TearDown() override {
    if (table != 0) { EXPECT_EQ(EngIdTableDestroy(table), status::kOk); }
  }

  std::vector<uint32_t> Scanned() {
    std::vector<uint32_t> ids;
    uint32_t id = 0;
    for (int32_t more = EngIdTableScan(table, 1, &id); more != 0; more = EngIdTableScan(table, 0, &id))
      ids.push_back(id);
    return ids;
  }

  EngIdTable table = 0;
};

TEST_F(IdTableTest, EngIdTableInsertId_RandomChanges_AgreeWithASet) {
  std::mt19937 random(7);
  std::set<uint32_t> model;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t id = random() % 4 == 0 ? static_cast<uint32_t>(random()) : random() % 5000;
    int32_t changed = -1;
    if (random() % 3 != 0) {
      ASSERT_EQ(EngIdTableInsertId(table, id, &changed), status::kOk);
      ASSERT_EQ(changed, model.insert(id).second ? 1 : 0);
    } else {
      const EngStatus deleted = EngIdTableDeleteId(table, id, &changed);
      ASSERT_EQ(changed, static_cast<int32_t>(model.erase(id)));
      ASSERT_EQ(deleted, model.empty() ? status::kIdTableEmpty : status::kOk);
    }
    ASSERT_EQ(EngIdTableCount(table), model.size());
  }
  EXPECT_EQ(Scanned(), std::vector<uint32_t>(model.begin(), model.end()));
}

TEST_F(IdTableTest, EngIdTableScan_EndsOfTheRange_FoundOnce) {
  for (uint32_t id : {0u, 1u, 0xffffu, 0x10000u, 0x7fffffffu, 0x80000000u, 0xfffffffeu, 0xffffffffu})
    ASSERT_EQ(EngIdTableInsertId(table, id, nullptr), status::kOk);
  EXPECT_EQ(Scanned(), (std::vector<uint32_t>{0u, 1u, 0xffffu, 0x10000u, 0x7fffffffu, 0x80000000u,
                                              0xfffffffeu, 0xffffffffu}));
}

TEST_F(IdTableTest, EngIdTableScan_EmptyTable_NothingAndIdAlone) {
  uint32_t id = 5;
  EXPECT_EQ(EngIdTableScan(table, 1, &id), 0);
  EXPECT_EQ(EngIdTableScan(table, 0, &id), 0);
  EXPECT_EQ(id, 5u);
}

TEST_F(IdTableTest, EngIdTableScan_IdsDeletedOnTheWay_GoesOnBehindThem) {
  for (uint32_t id = 1; id <= 100; ++id) ASSERT_EQ(EngIdTableInsertId(table, id, nullptr), status::kOk);
  uint32_t id = 0, visited = 0;
  for (int32_t more = EngIdTableScan(table, 1, &id); more != 0; more = EngIdTableScan(table, 0, &id)) {
    ++visited;
    EXPECT_EQ(EngIdTableDeleteId(table, id, nullptr), id == 100 ? status::kIdTableEmpty : status::kOk);
  }
  EXPECT_EQ(visited, 100u);
}

TEST_F(IdTableTest, EngIdTableFlagsSet_FlagsAndTime_ReadBack) {
  const TIMEDATE time{{123, 456}};
  TIMEDATE found{{0, 0}};
  EXPECT_EQ(EngIdTableFlagsGet(table), 0);
  ASSERT_EQ(EngIdTableTimeGet(table, &found), status::kOk);
  EXPECT_EQ(found.Innards[0], 0xffffffffu);
  ASSERT_EQ(EngIdTableFlagsSet(table, 0x8003), status::kOk);
  ASSERT_EQ(EngIdTableTimeSet(table, &time), status::kOk);
  ASSERT_EQ(EngIdTableTimeGet(table, &found), status::kOk);
  EXPECT_EQ(EngIdTableFlagsGet(table), 0x8003);
  EXPECT_EQ(found.Innards[0], 123u);
  EXPECT_EQ(found.Innards[1], 456u);
}

TEST_F(IdTableTest, EngIdTableByteSize_MoreIds_MoreBytesButPacked) {
  const uint32_t empty_bytes = EngIdTableByteSize(table);
  for (uint32_t id = 1; id <= 1000; ++id) ASSERT_EQ(EngIdTableInsertId(table, id * 7, nullptr), status::kOk);
  EXPECT_GT(EngIdTableByteSize(table), empty_bytes);
  EXPECT_LT(EngIdTableByteSize(table), 1000u * 4);
}

TEST_F(IdTableTest, EngMemFree_OfATable_FreesItAndItsHandleIsBad) {
  ASSERT_EQ(EngMemFree(table), status::kOk);
  EXPECT_EQ(EngIdTableInsertId(table, 1, nullptr), status::kBadHandle);
  EXPECT_EQ(EngIdTableDestroy(table), status::kBadHandle);
  table = 0;
}

TEST_F(IdTableTest, Calls_HandleOfAnotherKind_BadHandleAndNeutralAnswers) {
  EngMem block = 0;
  ASSERT_EQ(EngMemAlloc(0, 100, &block), status::kOk);
  for (const EngIdTable bad : {EngIdTable{0}, EngIdTable{0xdeadbeef}, block}) {
    uint32_t id = 1;
    int32_t changed = -1;
    TIMEDATE time{{1, 2}};
    EXPECT_EQ(EngIdTableInsertId(bad, 1, &changed), status::kBadHandle);
    EXPECT_EQ(EngIdTableDeleteId(bad, 1, &changed), status::kBadHandle);
    EXPECT_EQ(EngIdTableFlagsSet(bad, 1), status::kBadHandle);
    EXPECT_EQ(EngIdTableTimeSet(bad, &time), status::kBadHandle);
    EXPECT_EQ(EngIdTableTimeGet(bad, &time), status::kBadHandle);
    EXPECT_EQ(EngIdTableScan(bad, 1, &id), 0);
    EXPECT_EQ(EngIdTableCount(bad), 0u);
    EXPECT_EQ(EngIdTableByteSize(bad), 0u);
    EXPECT_EQ(EngIdTableFlagsGet(bad), 0);
    EXPECT_EQ(changed, -1);
    EXPECT_EQ(time.Innards[0], 1u);
  }
  EXPECT_EQ(EngIdTableDestroy(block), status::kBadHandle);
  EXPECT_EQ(EngIdTableDestroy(0), status::kOk);
  EXPECT_EQ(EngMemFree(block), status::kOk);
}

TEST_F(IdTableTest, EngIdTableCreate_OtherWidthOrNoOutput_BadArgument) {
  EngIdTable other = 42;
  EXPECT_EQ(EngIdTableCreate(2, &other), status::kBadArgument);
  EXPECT_EQ(EngIdTableCreate(4, nullptr), status::kBadArgument);
  EXPECT_EQ(other, 42u);
}

TEST(IdTableSetTest, IntersectAndUnite_OfTwoTables_AsSets) {
  IdTable odd, small;
  for (uint32_t id = 1; id < 100; id += 2) odd.Insert(id);
  const std::vector<uint32_t> ids{1, 2, 3, 200};
  small.InsertMany(ids.data(), ids.size());
  odd.Intersect(small);
  std::vector<uint32_t> found;
  odd.ForEach([&](uint32_t id) {
    found.push_back(id);
    return true;
  });
  EXPECT_EQ(found, (std::vector<uint32_t>{1, 3}));
  odd.Unite(small);
  EXPECT_EQ(odd.Count(), 4u);
  EXPECT_TRUE(odd.Contains(200));
  odd.Unite(odd);
  odd.Intersect(odd);
  EXPECT_EQ(odd.Count(), 4u);
}

TEST(IdTableSetTest, Create_ManyTables_NothingLeftAfterwards) {
  uint64_t blocks_before = 0, blocks_after = 0;
  EngMemStats(&blocks_before, nullptr, nullptr);
  for (uint32_t round = 0; round < 100; ++round) {
    EngIdTable table = 0;
    ASSERT_EQ(EngIdTableCreate(4, &table), status::kOk);
    ASSERT_EQ(EngIdTableInsertId(table, round, nullptr), status::kOk);
    ASSERT_EQ(round % 2 == 0 ? EngIdTableDestroy(table) : EngMemFree(table), status::kOk);
  }
  EngMemStats(&blocks_after, nullptr, nullptr);
  EXPECT_EQ(blocks_after, blocks_before);
}

}  // namespace
}  // namespace brynd
