#include "collection/tree.h"

#include "base/status.h"

namespace brynd::collection {

NodeKey KeyOfNode(TreeName name, uint32_t number) noexcept {
  NodeKey key;
  Store<uint32_t>(key.data(), __builtin_bswap32(name.collection));
  key[4] = std::byte{name.tree};
  Store<uint32_t>(key.data() + 5, __builtin_bswap32(number));
  return key;
}

// --- nodes in memory

std::shared_ptr<const Node> NodeCache::Find(TreeName name, const NodeReference& reference) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = nodes_.find(SlotOf(name, reference.number));
  if (found == nodes_.end() || !(found->second->Reference() == reference)) return nullptr;
  return found->second;
}

void NodeCache::Keep(TreeName name, std::shared_ptr<const Node> node) {
  const std::lock_guard lock(mutex_);
  if (bytes_ + node->StoredBytes() > kBytesMax) {
    nodes_.clear();
    bytes_ = 0;
  }
  std::shared_ptr<const Node>& slot = nodes_[SlotOf(name, node->Number())];
  if (slot) bytes_ -= slot->StoredBytes();
  bytes_ += node->StoredBytes();
  slot = std::move(node);
}

void NodeCache::Clear() noexcept {
  const std::lock_guard lock(mutex_);
  nodes_.clear();
  bytes_ = 0;
}

std::shared_ptr<const Node> NodeSource::Load(const NodeReference& reference) {
  ++asked_;
  if (shelf_ == nullptr) return LoadShared(reference);
  std::shared_ptr<const Node>& slot = shelf_->Slot(name_, reference.number);
  if (slot == nullptr || !(slot->Reference() == reference)) slot = LoadShared(reference);
  return slot;
}

std::shared_ptr<const Node> NodeSource::LoadShared(const NodeReference& reference) {
  if (std::shared_ptr<const Node> kept = cache_.Find(name_, reference)) return kept;
  ++fetched_;
  std::vector<std::byte> stored;
  const bool found = database_.ReadRecord(kNodeSpace, KeyOfNode(name_, reference.number),
                                          [&](Bytes value) { stored.assign(value.begin(), value.end()); });
  if (!found) Fail(status::kDamaged);
  std::shared_ptr<const Node> node = Node::Check(std::move(stored), reference.number);
  if (node == nullptr || !(node->Reference() == reference)) Fail(status::kDamaged);
  cache_.Keep(name_, node);
  return node;
}

// --- cursors

// From the child chosen on some level down to a leaf.
void Cursor::Descend(bool to_last) {
  uint8_t level = 1;
  while (level <= root_level_ && path_[level].node == nullptr) ++level;
  for (; level >= 1; --level) {
    const Step& step = path_[level];
    std::shared_ptr<const Node> child = source_->Load(step.node->Child(step.index));
    const uint32_t index = to_last ? child->Count() - 1 : 0;
    if (level == 1) {
      leaf_ = std::move(child);
      index_ = index;
    } else {
      path_[level - 1] = {std::move(child), index};
    }
  }
}

void Cursor::Next() {
  ++rank_;
  weight_before_ += Weight();
  if (++index_ < Leaf().Count()) return;
  uint8_t level = 1;
  while (level <= root_level_ && path_[level].index + 1 >= path_[level].node->Count()) ++level;
  if (level > root_level_) {
    at_end_ = true;
    return;
  }
  ++path_[level].index;
  for (uint8_t below = 1; below < level; ++below) path_[below].node = nullptr;
  Descend(false);
}

bool Cursor::Previous() {
  if (rank_ == 0) return false;
  if (at_end_) {
    at_end_ = false;
    --index_;
  } else if (index_ != 0) {
    --index_;
  } else {
    uint8_t level = 1;
    while (level <= root_level_ && path_[level].index == 0) ++level;
    if (level > root_level_) Fail(status::kDamaged);
    --path_[level].index;
    for (uint8_t below = 1; below < level; ++below) path_[below].node = nullptr;
    Descend(true);
  }
  --rank_;
  weight_before_ -= Weight();
  return true;
}

// --- trees

template <class Pick>
Cursor Tree::Walk(Pick&& pick) const {
  Cursor cursor;
  cursor.source_ = &source_;
  if (root_.number == 0) return cursor;
  cursor.root_level_ = root_.level;
  cursor.at_end_ = false;
  std::shared_ptr<const Node> node = source_.Load(root_);
  while (!node->IsLeaf()) {
    const uint32_t index = pick(*node);
    for (uint32_t i = 0; i < index; ++i) {
      cursor.rank_ += node->EntriesBelow(i);
      cursor.weight_before_ += node->WeightBelow(i);
    }
    const NodeReference child = node->Child(index);
    const uint8_t level = node->Level();
    cursor.path_[level] = {std::move(node), index};
    node = source_.Load(child);
  }
  const uint32_t index = pick(*node);
  const uint32_t before = std::min(index, node->Count());
  for (uint32_t i = 0; i < before; ++i) cursor.weight_before_ += node->Weight(i);
  cursor.rank_ += before;
  cursor.leaf_ = std::move(node);
  cursor.index_ = before;
  if (before < cursor.leaf_->Count()) return cursor;
  // Behind the last entry of this leaf: on the first one of the next.
  cursor.index_ = before - 1;
  cursor.rank_ -= 1;
  cursor.weight_before_ -= cursor.Weight();
  cursor.Next();
  return cursor;
}

Cursor Tree::Seek(Bytes key) const {
  return Walk([&](const Node& node) {
    const uint32_t index = node.LowerBound(key);
    if (node.IsLeaf()) return index;
    const bool is_first_of_child = index < node.Count() && CompareKeys(node.Key(index), key) == 0;
    return is_first_of_child || index == 0 ? index : index - 1;
  });
}

Cursor Tree::AtRank(uint64_t rank) const {
  rank = std::min(rank, EntryCount());
  return Walk([&](const Node& node) {
    if (node.IsLeaf()) return static_cast<uint32_t>(std::min<uint64_t>(rank, node.Count()));
    uint32_t index = 0;
    for (; index + 1 < node.Count() && rank >= node.EntriesBelow(index); ++index)
      rank -= node.EntriesBelow(index);
    return index;
  });
}

Cursor Tree::AtWeight(uint64_t sum) const {
  return Walk([&](const Node& node) {
    uint32_t index = 0;
    if (node.IsLeaf()) {
      for (; index < node.Count() && sum >= node.Weight(index); ++index) sum -= node.Weight(index);
    } else {
      for (; index + 1 < node.Count() && sum >= node.WeightBelow(index); ++index)
        sum -= node.WeightBelow(index);
    }
    return index;
  });
}

}  // namespace brynd::collection
