// Counted trees: against a map, by the number of nodes they read, in damaged and half-written files.
#include "base/boundary.h"
#include "base/checksum.h"
#include "collection/tree.h"
#include "engine/collection_tree_fixture.h"

namespace {

using namespace brynd;
using namespace brynd::collection;

class TreeTest : public TreeFixture {
 protected:
  static std::string KeyOf(uint32_t number) {
    std::string key(4, '\0');
    Store<uint32_t>(key.data(), __builtin_bswap32(number));
    return key + "some text that a key has";
  }
  static Model ModelOf(uint32_t count) {
    Model model;
    for (uint32_t i = 0; i < count; ++i) model[KeyOf(3 * i)] = {1 + i % 5, std::string(i % 90, 'p')};
    return model;
  }
};

TEST_F(TreeTest, Seek_NoTree_AtEndAtOnce) {
  NodeSource source = Source();
  const Tree tree(source, root_);
  EXPECT_TRUE(tree.Seek(In("a")).AtEnd());
  EXPECT_TRUE(tree.AtRank(0).AtEnd());
  EXPECT_TRUE(tree.AtWeight(0).AtEnd());
  EXPECT_EQ(0u, tree.EntryCount());
  EXPECT_EQ(0u, source.Asked());
}

TEST_F(TreeTest, Seek_BuiltTreesOfManySizes_SameAsMap) {
  for (const uint32_t count : {1u, 2u, 30u, 35u, 36u, 1000u, 5000u}) {
    const Model model = ModelOf(count);
    Build(model);
    ExpectSame(model);
  }
}

TEST_F(TreeTest, AtRank_LargeTree_ReadsOneNodeALevel) {
  Build(ModelOf(40000));
  ASSERT_LE(root_.level, 4u);
  const uint64_t path = root_.level + 1u;
  for (const uint64_t rank : {uint64_t{0}, uint64_t{1}, uint64_t{20000}, uint64_t{39999}}) {
    NodeSource source = Source();
    const Tree tree(source, root_);
    EXPECT_EQ(rank, tree.AtRank(rank).Rank());
    EXPECT_EQ(1u * path, source.Asked());
    tree.AtWeight(rank);
    EXPECT_EQ(2u * path, source.Asked());
    tree.Seek(In(KeyOf(static_cast<uint32_t>(3 * rank))));
    EXPECT_EQ(3u * path, source.Asked());
  }
}

TEST_F(TreeTest, Next_WholeTree_ReadsEachNodeOnce) {
  Build(ModelOf(5000));
  cache_.Clear();
  NodeSource source = Source();
  uint32_t entries = 0;
  for (Cursor cursor = Tree(source, root_).AtRank(0); !cursor.AtEnd(); cursor.Next()) ++entries;
  EXPECT_EQ(5000u, entries);
  EXPECT_EQ(source.Asked(), source.Fetched());
  uint32_t records = 0;
  Owner().Store().ScanRecords(kNodeSpace, {}, std::nullopt, [&](Bytes, Bytes) { return ++records != 0; });
  EXPECT_EQ(records, source.Fetched());
}

TEST_F(TreeTest, Load_NodeInMemoryIsOfAnotherMoment_StoreIsAsked) {
  Model model = ModelOf(10);
  Build(model);
  ExpectSame(model);
  const NodeReference before = root_;
  Change([&](TreeEdit& edit) { edit.Put(In(KeyOf(1)), 1, In("new")); });
  EXPECT_EQ(before.number, root_.number);
  model[KeyOf(1)] = {1, "new"};
  ExpectSame(model);
  // The former moment is gone from the file: it is told as damage, not as mixed rows.
  cache_.Clear();
  NodeSource source = Source();
  EXPECT_EQ(status::kDamaged, AtBoundary([&] { Tree(source, before).AtRank(0); }));
}

TEST_F(TreeTest, Load_EveryByteOfANodeChanged_Damaged) {
  Build(ModelOf(40));
  ASSERT_EQ(1u, root_.level);
  const NodeKey key = KeyOfNode(kName, root_.number);
  std::vector<std::byte> whole;
  Owner().Store().ReadRecord(kNodeSpace, key,
                             [&](Bytes stored) { whole.assign(stored.begin(), stored.end()); });
  const auto damaged = [&](const std::vector<std::byte>& record) {
    DatabaseWrite write(Owner());
    write.Records().PutRecord(kNodeSpace, key, record);
    cache_.Clear();
    NodeSource source = Source();
    return AtBoundary([&] { Tree(source, root_).AtRank(3); });
  };
  for (size_t at = 0; at < whole.size(); ++at) {
    std::vector<std::byte> harmed = whole;
    harmed[at] ^= std::byte{0x41};
    ASSERT_EQ(status::kDamaged, damaged(harmed)) << at;
    harmed.resize(at);
    ASSERT_EQ(status::kDamaged, damaged(harmed)) << at;
  }
  EXPECT_EQ(status::kOk, damaged(whole));
}

// An enemy knows the checksum too: then the lengths inside must hold.
TEST_F(TreeTest, Check_HostileNodeWithRightChecksum_NullOrWithinBounds) {
  Build(ModelOf(70));
  TestRandom random(SeedOfRun());
  uint32_t refused = 0;
  Owner().Store().ScanRecords(kNodeSpace, {}, std::nullopt, [&](Bytes, Bytes stored) {
    for (int round = 0; round < 4000; ++round) {
      std::vector<std::byte> harmed(stored.begin(), stored.end());
      const auto all = static_cast<uint32_t>(harmed.size()) - 8;
      const uint32_t reach = random.Below(2) == 0 ? std::min(all, 200u) : all;
      for (uint32_t n = 1 + random.Below(3); n != 0; --n)
        harmed[8 + random.Below(reach)] = static_cast<std::byte>(random.Below(256));
      Store<uint64_t>(harmed.data(), Checksum64(Bytes(harmed).subspan(8)));
      const std::shared_ptr<const Node> node = Node::Check(harmed, LoadU32(stored.data() + 16));
      refused += node == nullptr;
      for (uint32_t i = 0; node != nullptr && i < node->Count(); ++i) {
        const Bytes key = node->Key(i);
        EXPECT_LE(key.data() + key.size(), node->Key(0).data() + node->StoredBytes());
        if (node->IsLeaf()) {
          EXPECT_LE(node->Payload(i).size(), node->StoredBytes());
        }
      }
    }
    return true;
  });
  EXPECT_GT(refused, 100u);
}

TEST_F(TreeTest, Load_NodeOfAnotherPlace_Damaged) {
  Build(ModelOf(200));
  std::vector<std::vector<std::byte>> nodes;
  Owner().Store().ScanRecords(kNodeSpace, {}, std::nullopt, [&](Bytes, Bytes stored) {
    nodes.emplace_back(stored.begin(), stored.end());
    return true;
  });
  ASSERT_GT(nodes.size(), 2u);
  DatabaseWrite write(Owner());
  write.Records().PutRecord(kNodeSpace, KeyOfNode(kName, LoadU32(nodes[0].data() + 16)), nodes[1]);
  cache_.Clear();
  NodeSource source = Source();
  EXPECT_EQ(status::kDamaged, AtBoundary([&] { Tree(source, root_).AtRank(0); }));
}

}  // namespace
