// Changing counted trees: random changes against a map, nodes written once, all or nothing.
#include "base/boundary.h"
#include "collection/tree_edit.h"
#include "engine/collection_tree_fixture.h"

namespace {

using namespace brynd;
using namespace brynd::collection;

class TreeEditTest : public TreeFixture {
 protected:
  static std::string RandomKey(TestRandom& random) {
    std::string key = std::to_string(random.Below(3000));
    return key + std::string(random.Below(4) == 0 ? random.Below(60) : 3, 'k');
  }
  static std::string RandomPayload(TestRandom& random) {
    return std::string(random.Below(50) == 0 ? random.Below(9000) : random.Below(120), 'p');
  }
  uint32_t NodeRecords() {
    uint32_t records = 0;
    Owner().Store().ScanRecords(kNodeSpace, {}, std::nullopt, [&](Bytes, Bytes) { return ++records != 0; });
    return records;
  }
  uint32_t NodesReached() {
    NodeSource source = Source();
    if (root_.number == 0) return 0;
    for (Cursor cursor = Tree(source, root_).AtRank(0); !cursor.AtEnd();) cursor.Next();
    return static_cast<uint32_t>(source.Asked());
  }
};

TEST_F(TreeEditTest, Put_RandomChangesOfAllKinds_SameAsMap) {
  TestRandom random(SeedOfRun());
  Model model;
  for (int round = 0; round < 120; ++round) {
    const bool shrinks = round % 40 > 25;
    const WriteReport report = Change([&](TreeEdit& edit) {
      for (uint32_t n = random.Below(random.Below(5) == 0 ? 400 : 12); n != 0; --n) {
        const std::string key = RandomKey(random);
        const auto next = model.lower_bound(key);
        const std::optional<TreeEdit::Place> place = edit.Next(In(key));
        ASSERT_EQ(next != model.end(), place.has_value());
        if (place) {
          ASSERT_EQ(next->first, Out(place->key));
          ASSERT_EQ(next->second.first, place->weight);
        }
        const uint32_t choice = random.Below(10);
        if (choice < (shrinks ? 9u : 3u)) {
          const std::string victim = shrinks && next != model.end() ? next->first : key;
          ASSERT_EQ(model.erase(victim) != 0, edit.Erase(In(victim)));
        } else if (choice < 5 && next != model.end()) {
          const int64_t more = random.Between(1 - int64_t{next->second.first}, 20);
          next->second.first = static_cast<uint32_t>(next->second.first + more);
          edit.AddWeight(In(next->first), more);
          ASSERT_EQ(next->second.first, edit.Find(In(next->first))->weight);
        } else {
          const uint32_t weight = 1 + random.Below(9);
          model[key] = {weight, RandomPayload(random)};
          edit.Put(In(key), weight, In(model[key].second));
          ASSERT_EQ(model[key].second, Out(edit.Find(In(key))->payload));
        }
      }
    });
    ASSERT_NO_FATAL_FAILURE(ExpectSame(model));
    ASSERT_EQ(NodesReached(), NodeRecords()) << "nodes that nothing leads to, round " << round;
    ASSERT_LE(report.written, NodeRecords());
  }
}

TEST_F(TreeEditTest, Write_ManyChangesInOneLeaf_OneNodeALevelWritten) {
  Model model;
  for (uint32_t i = 0; i < 20000; ++i) {
    char key[16];
    std::snprintf(key, sizeof key, "%08u", i);
    model[key] = {1, std::string(60, 'p')};
  }
  Build(model);
  const uint32_t path = root_.level + 1u;
  ASSERT_GT(path, 2u);
  const WriteReport report = Change([&](TreeEdit& edit) {
    for (int i = 0; i < 30; ++i) edit.Put(In("00010000"), 5, In(std::string(60, static_cast<char>('a' + i))));
    edit.AddWeight(In("00010001"), 3);
  });
  EXPECT_EQ(path, report.written);
  EXPECT_EQ(0u, report.removed);
  model["00010000"] = {5, std::string(60, 'a' + 29)};
  model["00010001"].first += 3;
  ExpectSame(model);
}

TEST_F(TreeEditTest, Erase_EveryEntry_NoNodeLeft) {
  Model model;
  for (int i = 0; i < 3000; ++i) model["key" + std::to_string(i)] = {1, "payload"};
  Build(model);
  Change([&](TreeEdit& edit) {
    for (const auto& [key, value] : model) EXPECT_TRUE(edit.Erase(In(key)));
    EXPECT_FALSE(edit.Erase(In("key1")));
  });
  EXPECT_EQ(0u, root_.number);
  EXPECT_EQ(0u, NodeRecords());
}

TEST_F(TreeEditTest, Put_EntriesAtTheLimits_TakenAndOneMoreRefused) {
  const std::string long_key(kTreeKeyBytesMax, 'k'), long_payload(kPayloadBytesMax, 'p');
  Model model;
  Change([&](TreeEdit& edit) {
    for (const char first : {'a', 'b', 'c'}) {
      const std::string key = first + long_key.substr(1);
      edit.Put(In(key), 1, In(long_payload));
      model[key] = {1, long_payload};
    }
    EXPECT_EQ(status::kBadCollection, AtBoundary([&] { edit.Put(In(long_key + "k"), 1, In("")); }));
    EXPECT_EQ(status::kBadCollection, AtBoundary([&] { edit.Put(In("z"), 1, In(long_payload + "p")); }));
  });
  ExpectSame(model);
}

TEST_F(TreeEditTest, AddWeight_NoEntryOrBelowOne_Damaged) {
  Change([&](TreeEdit& edit) {
    edit.Put(In("a"), 5, In(""));
    EXPECT_EQ(status::kDamaged, AtBoundary([&] { edit.AddWeight(In("b"), 1); }));
    EXPECT_EQ(status::kDamaged, AtBoundary([&] { edit.AddWeight(In("a"), -5); }));
    edit.AddWeight(In("a"), -4);
  });
  ExpectSame({{"a", {1, ""}}});
}

TEST_F(TreeEditTest, Write_TransactionTakenBack_TreeAsItWas) {
  Model model;
  for (int i = 0; i < 500; ++i) model["key" + std::to_string(i)] = {1, "payload"};
  Build(model);
  ExpectSame(model);
  {
    DatabaseWrite write(Owner());
    NodeSource source = Source();
    uint32_t numbers = next_number_;
    TreeEdit edit(source, root_, &numbers);
    for (int i = 0; i < 400; ++i) edit.Put(In("other" + std::to_string(i)), 2, In("x"));
    const NodeReference changed = edit.Write(write.Records());
    EXPECT_EQ(900u, changed.entry_count);
    EXPECT_FALSE(Tree(source, changed).Seek(In("other")).AtEnd());
  }
  ExpectSame(model);  // what was read of the other tree does not get in the way
}

TEST_F(TreeEditTest, Write_FileOpenedAgain_TreeIsThere) {
  Model model;
  for (int i = 0; i < 500; ++i) model["key" + std::to_string(i)] = {2, "payload"};
  Change([&](TreeEdit& edit) {
    for (const auto& [key, value] : model) edit.Put(In(key), value.first, In(value.second));
  });
  Reopen();
  cache_.Clear();
  ExpectSame(model);
}

}  // namespace
