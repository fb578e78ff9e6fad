// Every navigator from every row of views of all kinds, against the model's rows.
#include "collection/walk.h"
#include "engine/collection_view_fixture.h"

namespace {

using namespace brynd;

constexpr uint16_t kNavigators[] = {0, 1, 4, 5, 6, 9, 12, 13, 19, 43, 44};

class WalkTest : public ViewFixture {
 protected:
  void Fill(Model* model, const ModelView& view, int count) {
    TestRandom random(SeedOfRun());
    static const char* const kValues[] = {"one", "two\\in", "two\\out", "two", "", "three\\a\\b"};
    std::vector<uint32_t> ids;
    for (int i = 0; i < count; ++i) {
      ModelDocument document;
      document.first = {kValues[random.Below(6)]};
      if (random.Below(5) == 0) document.first.emplace_back(kValues[random.Below(6)]);
      document.second = {kValues[random.Below(6)]};
      document.key = "k" + std::to_string(random.Below(30));
      document.number = random.Below(50);
      if (view.responses && !ids.empty() && random.Below(2) == 0)
        document.parent = ids[random.Below(static_cast<uint32_t>(ids.size()))];
      StoreDocument(&document);
      ids.push_back(document.id);
      model->documents[document.id] = document;
    }
  }

  // One call against the model: where it rests, how many steps, which rows, whether there are more.
  void ExpectStep(EngCollection collection, const ModelView& view, const std::vector<ModelRow>& rows, int at,
                  uint16_t skip, uint32_t count, uint16_t back, uint32_t most, bool continues) {
    const ModelWalk walk(rows);
    int reached = at;
    uint32_t skipped = 0;
    for (; skipped < count; ++skipped) {
      const std::optional<int> next = walk.Step(reached, skip);
      if (!next) break;
      reached = *next;
    }
    std::vector<int> wanted;
    bool more = false;
    if (reached >= 0 && most != 0 && (skipped == count || continues)) {
      wanted.push_back(reached);
      while (back != 0 && wanted.size() < most) {
        const std::optional<int> next = walk.Step(wanted.back(), back);
        if (!next) break;
        wanted.push_back(*next);
      }
      more = back != 0 && walk.Step(wanted.back(), back).has_value();
      reached = wanted.back();
    }
    const std::vector<uint32_t> from =
        at < 0 ? std::vector<uint32_t>{0} : rows[static_cast<size_t>(at)].tumbler;
    const auto navigator = static_cast<uint16_t>(skip | (continues ? 0x8000 : 0));
    const Page page = Read(collection, from, navigator, count, back, most);
    ASSERT_EQ(0, page.status);
    ASSERT_EQ(skipped, page.skipped);
    ASSERT_EQ(wanted.size(), page.rows.size());
    for (size_t i = 0; i < wanted.size(); ++i)
      ASSERT_EQ(Fold(rows[static_cast<size_t>(wanted[i])].Text()), Fold(AsModel(page.rows[i], view).Text()));
    ASSERT_EQ(more ? 0x20 : 0, page.signal);
    ASSERT_EQ(reached < 0 ? std::vector<uint32_t>{0} : rows[static_cast<size_t>(reached)].tumbler,
              TumblerOf(page.position));
  }

  void RunAll(const ModelView& view, int count) {
    Model model(view);
    Fill(&model, view, count);
    const EngCollection collection = OpenView(MakeView(ColumnsOf(view), view.responses));
    const std::vector<ModelRow> rows = model.Rows();
    for (int at = -1; at < static_cast<int>(rows.size()); ++at) {
      for (const uint16_t navigator : kNavigators) {
        for (const uint32_t steps : {0u, 1u, 2u, 7u, 1000u}) {
          ASSERT_NO_FATAL_FAILURE(ExpectStep(collection, view, rows, at, navigator, steps, navigator,
                                             1 + steps % 4, steps % 2 == 1))
              << "row " << at << " navigator " << navigator << " steps " << steps;
        }
        ASSERT_NO_FATAL_FAILURE(ExpectStep(collection, view, rows, at, 1, 0, navigator, 3, false))
            << "row " << at << " return navigator " << navigator;
        ASSERT_NO_FATAL_FAILURE(ExpectStep(collection, view, rows, at, navigator, 2, 1, 0, false));
      }
    }
    EXPECT_EQ(0, EngCollectionClose(collection));
  }
};

TEST_F(WalkTest, Move_FlatView_SameAsModel) { RunAll({}, 60); }
TEST_F(WalkTest, Move_EmptyView_NoRowAnywhere) { RunAll({.category_count = 1}, 0); }
TEST_F(WalkTest, Move_EmptyViewWithTotal_TotalRowAlone) { RunAll({.category_count = 1, .total_kind = 1}, 0); }
TEST_F(WalkTest, Move_CategoriesAndTotal_SameAsModel) { RunAll({.category_count = 2, .total_kind = 1}, 40); }
TEST_F(WalkTest, Move_ResponsesBelowCategories_SameAsModel) {
  RunAll({.category_count = 1, .responses = true}, 40);
}

TEST_F(WalkTest, Go_PlacesThatAreNot_NoRowsAndPositionAsItWas) {
  Model model({});
  Fill(&model, {}, 5);
  const EngCollection collection = OpenView(MakeView(ColumnsOf({})));
  for (const std::vector<uint32_t>& from :
       {std::vector<uint32_t>{6}, {0xffffffff}, {1, 1}, {1, 0}, {0, 1}, std::vector<uint32_t>(32, 1)}) {
    for (const uint32_t count : {0u, 1u}) {
      const Page page = Read(collection, from, 1, count, 1, 10);
      EXPECT_EQ(0, page.status);
      EXPECT_EQ(0u, page.returned);
      EXPECT_EQ(from, TumblerOf(page.position));
    }
  }
  COLLECTIONPOSITION position{};
  position.Level = 32;
  uint32_t returned = 7;
  EXPECT_EQ(0, EngCollectionRead(collection, &position, 1, 0, 1, 1, 1, nullptr, nullptr, nullptr, &returned,
                                 nullptr));
  EXPECT_EQ(0u, returned);
  EXPECT_EQ(32, position.Level);
  EXPECT_EQ(0, EngCollectionClose(collection));
}

TEST_F(WalkTest, Move_SkipToTheEndWithContinue_LastRowFromAnywhere) {
  const ModelView view{.category_count = 1, .total_kind = 1};
  Model model(view);
  Fill(&model, view, 30);
  const EngCollection collection = OpenView(MakeView(ColumnsOf(view)));
  const ModelRow last = model.Rows().back();
  for (const uint32_t from : {0u, 1u, 3u, 1000u}) {
    const Page page = Read(collection, {from}, 0x8001, 0xffff, 0, 1);
    ASSERT_EQ(1u, page.rows.size());
    EXPECT_EQ(0xc0000000u, page.rows[0].id);
    EXPECT_EQ(last.tumbler, TumblerOf(page.position));
  }
  EXPECT_EQ(0, EngCollectionClose(collection));
}

// Nodes read, not time: a skip over half of a large view costs a few nodes.
TEST_F(WalkTest, Move_LargeView_FewNodesForAnySkip) {
  for (int i = 0; i < 6000; ++i) {
    ModelDocument document;
    document.first = {"c" + std::to_string(i % 7)};
    document.key = std::to_string(i);
    StoreDocument(&document);
  }
  const uint32_t view = MakeView(ColumnsOf({.category_count = 1}));
  collection::Index index(brynd::FindDatabase(db_), brynd::FindDatabase(db_), view);
  index.BringUpToDate();
  ASSERT_TRUE(index.Look());
  collection::Walk walk(index);
  ASSERT_EQ(6007u, walk.RowCount());
  const uint64_t before = walk.NodesAsked();
  EXPECT_EQ(3000u, walk.Move(1, 3000));
  EXPECT_EQ(2999u, walk.Move(9, 5000));
  EXPECT_EQ(6u, walk.Move(5, 100));
  EXPECT_LE(walk.NodesAsked() - before, 60u);
}

}  // namespace
