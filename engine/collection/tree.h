// A counted tree: entries in the order of their keys, in nodes that are records of the store. Each entry has
// a weight; ranks and sums of weights are found, and entries by them, in a number of steps that grows with
// the logarithm of the size.
//
// (1) What is read belongs to one root: a node that is not what its parent says it is gives kDamaged.
// (2) Reading neither writes nor needs a lock of the caller's; nodes in memory never change.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "collection/node.h"
#include "store/store.h"

namespace brynd::collection {

inline constexpr store::Space kHeadSpace = 0x20;  // heads of collections, see index.h
inline constexpr store::Space kNodeSpace = 0x21;  // collection 4, tree 1, node 4, high byte first -> a node

// Which tree of which collection: the start of its nodes' keys.
struct TreeName {
  uint32_t collection = 0;
  uint8_t tree = 0;
};
using NodeKey = std::array<std::byte, 9>;
NodeKey KeyOfNode(TreeName name, uint32_t number) noexcept;

// Nodes kept in memory for all handles of a process on one collection.
class NodeCache {
 public:
  static constexpr size_t kBytesMax = size_t{96} << 20;

  // The node when it is here and is the one meant.
  std::shared_ptr<const Node> Find(TreeName name, const NodeReference& reference) noexcept;
  void Keep(TreeName name, std::shared_ptr<const Node> node);
  void Clear() noexcept;

 private:
  static uint64_t SlotOf(TreeName name, uint32_t number) noexcept {
    return uint64_t{name.tree} << 32 | number;
  }

  std::mutex mutex_;
  std::unordered_map<uint64_t, std::shared_ptr<const Node>> nodes_;
  size_t bytes_ = 0;
};

// The nodes one handle used last, found without a lock.
class NodeShelf {
 public:
  std::shared_ptr<const Node>& Slot(TreeName name, uint32_t number) noexcept {
    return slots_[(number * 2 + name.tree) % kSlots];
  }

 private:
  static constexpr size_t kSlots = 1024;
  std::array<std::shared_ptr<const Node>, kSlots> slots_;
};

// Where a reader finds nodes: in memory, else in the store. A shelf serves one thread.
class NodeSource {
 public:
  NodeSource(store::Database& database, NodeCache& cache, TreeName name, NodeShelf* shelf = nullptr) noexcept
      : database_(database), cache_(cache), shelf_(shelf), name_(name) {}

  std::shared_ptr<const Node> Load(const NodeReference& reference);  // fails with kDamaged
  TreeName Name() const noexcept { return name_; }
  // How many nodes were asked for, and how many the store had to give.
  uint64_t Asked() const noexcept { return asked_; }
  uint64_t Fetched() const noexcept { return fetched_; }

 private:
  std::shared_ptr<const Node> LoadShared(const NodeReference& reference);

  store::Database& database_;
  NodeCache& cache_;
  NodeShelf* shelf_;
  TreeName name_;
  uint64_t asked_ = 0, fetched_ = 0;
};

// A place in a tree: on an entry, or behind the last one.
class Cursor {
 public:
  bool AtEnd() const noexcept { return at_end_; }
  uint64_t Rank() const noexcept { return rank_; }                   // entries before it
  uint64_t WeightBefore() const noexcept { return weight_before_; }  // of the entries before it
  Bytes Key() const noexcept { return Leaf().Key(index_); }
  Bytes Payload() const noexcept { return Leaf().Payload(index_); }
  uint32_t Weight() const noexcept { return Leaf().Weight(index_); }
  void Next();      // must not be at the end
  bool Previous();  // false, and where it was, on the first entry

 private:
  friend class Tree;
  struct Step {
    std::shared_ptr<const Node> node;
    uint32_t index = 0;
  };
  const Node& Leaf() const noexcept { return *leaf_; }
  void Descend(bool to_last);

  NodeSource* source_ = nullptr;
  std::array<Step, kTreeLevelMax + 1> path_;  // by level; [0] is unused
  uint8_t root_level_ = 0;
  std::shared_ptr<const Node> leaf_;
  uint32_t index_ = 0;
  uint64_t rank_ = 0, weight_before_ = 0;
  bool at_end_ = true;
};

class Tree {
 public:
  Tree(NodeSource& source, const NodeReference& root) noexcept : source_(source), root_(root) {}

  uint64_t EntryCount() const noexcept { return root_.number == 0 ? 0 : root_.entry_count; }
  uint64_t Weight() const noexcept { return root_.number == 0 ? 0 : root_.weight; }

  Cursor Seek(Bytes key) const;         // the first entry that is not below the key
  Cursor AtRank(uint64_t rank) const;   // behind the last entry when there are not so many
  Cursor AtWeight(uint64_t sum) const;  // the entry within whose weight the sum falls
  bool Find(Bytes key, Cursor* cursor) const {
    *cursor = Seek(key);
    return !cursor->AtEnd() && CompareKeys(cursor->Key(), key) == 0;
  }

 private:
  // Chooses a child by pick(node), which counts down what is before it.
  template <class Pick>
  Cursor Walk(Pick&& pick) const;

  NodeSource& source_;
  NodeReference root_;
};

}  // namespace brynd::collection
