// Changing a counted tree, and making one from sorted entries.
//
// (1) Nothing is stored before Write: each changed node is then written once, however many entries changed.
// (2) Reading through an edit sees its changes.  (3) After Write an edit is used no more.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "collection/tree.h"

namespace brynd::collection {

// What Write has done, for tests of cost.
struct WriteReport {
  uint32_t written = 0, removed = 0;
};

class TreeEdit {
 public:
  // `next_number` is the number the next new node gets; numbers are not used again.
  TreeEdit(NodeSource& source, const NodeReference& root, uint32_t* next_number)
      : source_(source), root_(root), next_number_(next_number) {}
  TreeEdit(const TreeEdit&) = delete;
  TreeEdit& operator=(const TreeEdit&) = delete;

  struct Found {
    uint32_t weight = 0;
    Bytes payload;  // good until the entry is changed
  };
  std::optional<Found> Find(Bytes key);
  // The first entry that is not below the key.
  struct Place {
    std::vector<std::byte> key;
    uint32_t weight = 0;
  };
  std::optional<Place> Next(Bytes key);

  // Enters or replaces.
  void Put(Bytes key, uint32_t weight, Bytes payload);
  bool Erase(Bytes key);
  // Adds to the weight of an entry; it must be there and stay at least 1: kDamaged otherwise.
  void AddWeight(Bytes key, int64_t more);

  bool Changed() const noexcept { return top_ != nullptr; }
  // Stores what changed and gives the new root.
  NodeReference Write(store::Write& write, WriteReport* report = nullptr);

 private:
  struct EditNode;
  struct EditChild {
    InnerEntry entry;
    std::unique_ptr<EditNode> edit;  // null: as stored
  };
  struct EditNode {
    uint32_t number = 0;
    uint8_t level = 0;
    std::shared_ptr<const Node> base;
    std::vector<LeafEntry> entries;
    std::vector<EditChild> children;
    bool IsEmpty() const noexcept { return entries.empty() && children.empty(); }
  };

  std::unique_ptr<EditNode> Open(const NodeReference& reference);
  EditNode& LeafFor(Bytes key);
  static size_t ChildIndex(const EditNode& node, Bytes key);
  static size_t BytesOf(const EditNode& node);
  Bytes Copy(Bytes bytes);
  void Settle(EditNode& node, std::vector<uint32_t>* removed);
  void Join(EditNode& parent, size_t index, std::vector<uint32_t>* removed);
  std::vector<InnerEntry> Store(EditNode& node, store::Write& write, WriteReport* report);

  NodeSource& source_;
  NodeReference root_;
  uint32_t* next_number_;
  std::unique_ptr<EditNode> top_;
  std::deque<std::vector<std::byte>> own_;
};

// Makes a tree from entries that come in the order of their keys.
class TreeBuilder {
 public:
  TreeBuilder(store::Write& write, TreeName name, uint32_t* next_number)
      : write_(write), name_(name), next_number_(next_number) {}

  void Add(Bytes key, uint32_t weight, Bytes payload);
  NodeReference Finish();

 private:
  struct Level {
    std::vector<InnerEntry> entries;
    std::deque<std::vector<std::byte>> keys;
    size_t bytes = kNodeHeadBytes;
  };
  void FlushLeaf();
  void AddChild(size_t level, Bytes key, const NodeReference& child);
  void FlushInner(size_t level);
  void Put(const NodeReference& reference);

  store::Write& write_;
  TreeName name_;
  uint32_t* next_number_;
  std::vector<LeafEntry> leaf_;
  std::vector<std::byte> leaf_content_;
  std::vector<std::pair<uint32_t, uint32_t>> leaf_sizes_;  // key and payload of each entry
  std::vector<uint32_t> leaf_weights_;
  size_t leaf_bytes_ = kNodeHeadBytes;
  std::vector<Level> levels_;  // [0] collects leaves
  std::vector<std::byte> buffer_;
};

}  // namespace brynd::collection
