// A counted tree in a fresh database, with what tests need to change, read and compare it.
#ifndef TESTS_ENGINE_COLLECTION_TREE_FIXTURE_H
#define TESTS_ENGINE_COLLECTION_TREE_FIXTURE_H

#include <map>
#include <string>
#include <utility>

#include "collection/tree_edit.h"
#include "engine/note_fixture.h"
#include "engine/test_random.h"

class TreeFixture : public NoteFixture {
 protected:
  using Model = std::map<std::string, std::pair<uint32_t, std::string>>;  // key -> weight, payload
  static constexpr brynd::collection::TreeName kName{7, 1};

  static brynd::Bytes In(const std::string& text) { return brynd::BytesOf(text); }
  static std::string Out(brynd::Bytes bytes) { return std::string(brynd::TextOf(bytes)); }

  brynd::collection::NodeSource Source() { return {Owner().Store(), cache_, kName}; }

  // One transaction of changes.
  template <class Body>
  brynd::collection::WriteReport Change(Body&& body) {
    brynd::DatabaseWrite write(Owner());
    brynd::collection::NodeSource source = Source();
    brynd::collection::TreeEdit edit(source, root_, &next_number_);
    body(edit);
    brynd::collection::WriteReport report;
    root_ = edit.Write(write.Records(), &report);
    write.Commit(brynd::store::Durability::kLazy);
    return report;
  }

  void Build(const Model& model) {
    brynd::DatabaseWrite write(Owner());
    brynd::collection::TreeBuilder builder(write.Records(), kName, &next_number_);
    for (const auto& [key, value] : model) builder.Add(In(key), value.first, In(value.second));
    root_ = builder.Finish();
    write.Commit(brynd::store::Durability::kLazy);
  }

  // Every entry, its rank and the weights before it, forward, backward, by rank and by weight.
  void ExpectSame(const Model& model) {
    brynd::collection::NodeSource source = Source();
    const brynd::collection::Tree tree(source, root_);
    ASSERT_EQ(model.size(), tree.EntryCount());
    uint64_t rank = 0, weight = 0;
    brynd::collection::Cursor walk = tree.AtRank(0);
    for (const auto& [key, value] : model) {
      ASSERT_FALSE(walk.AtEnd());
      ASSERT_EQ(key, Out(walk.Key()));
      ASSERT_EQ(value.second, Out(walk.Payload()));
      ASSERT_EQ(value.first, walk.Weight());
      ASSERT_EQ(rank, walk.Rank());
      ASSERT_EQ(weight, walk.WeightBefore());
      if (rank % 7 == 0) {
        ExpectPlaces(tree, key, rank, weight, value.first);
      }
      ++rank;
      weight += value.first;
      walk.Next();
    }
    ASSERT_TRUE(walk.AtEnd());
    ASSERT_EQ(weight, tree.Weight());
    for (auto at = model.rbegin(); at != model.rend(); ++at) {
      ASSERT_TRUE(walk.Previous());
      ASSERT_EQ(at->first, Out(walk.Key()));
      ASSERT_EQ(--rank, walk.Rank());
      ASSERT_EQ(weight -= at->second.first, walk.WeightBefore());
    }
    ASSERT_FALSE(walk.Previous());
  }

  void ExpectPlaces(const brynd::collection::Tree& tree, const std::string& key, uint64_t rank,
                    uint64_t weight, uint32_t own_weight) {
    brynd::collection::Cursor found;
    ASSERT_TRUE(tree.Find(In(key), &found));
    ASSERT_EQ(rank, found.Rank());
    ASSERT_EQ(weight, found.WeightBefore());
    ASSERT_FALSE(tree.Find(In(key + '\x01'), &found));
    ASSERT_EQ(rank + 1, found.Rank());
    ASSERT_EQ(key, Out(tree.AtRank(rank).Key()));
    for (const uint64_t sum : {weight, weight + own_weight - 1})
      ASSERT_EQ(key, Out(tree.AtWeight(sum).Key()));
  }

  brynd::collection::NodeCache cache_;
  brynd::collection::NodeReference root_;
  uint32_t next_number_ = 1;
};

#endif
