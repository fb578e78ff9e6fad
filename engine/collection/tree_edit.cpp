#include "collection/tree_edit.h"

#include <algorithm>
#include <cassert>

#include "base/status.h"

namespace brynd::collection {

namespace {

constexpr size_t kBuiltNodeBytes = kNodeBytesMax - kNodeBytesMax / 10;  // room for what comes later

bool KeyBelow(const LeafEntry& entry, Bytes key) { return CompareKeys(entry.key, key) < 0; }

// Where to cut a run of entries into nodes of about equal size, none too large.
template <class Entry>
std::vector<size_t> Cuts(const std::vector<Entry>& entries, size_t fewest) {
  size_t total = 0;
  for (const Entry& entry : entries) total += StoredBytesOf(entry);
  const size_t room = kNodeBytesMax - kNodeHeadBytes;
  const size_t node_count = (total + room - 1) / room;
  const size_t goal = node_count <= 1 ? room : total / node_count + 1;
  std::vector<size_t> cuts;
  size_t begin = 0, bytes = 0;
  for (size_t i = 0; i < entries.size(); ++i) {
    const size_t entry_bytes = StoredBytesOf(entries[i]);
    const bool is_full = bytes + entry_bytes > room || bytes >= goal || i - begin >= UINT16_MAX / 2;
    if (is_full && i - begin >= fewest) {
      cuts.push_back(i);
      begin = i;
      bytes = 0;
    }
    bytes += entry_bytes;
  }
  cuts.push_back(entries.size());
  return cuts;
}

}  // namespace

// --- edits

std::unique_ptr<TreeEdit::EditNode> TreeEdit::Open(const NodeReference& reference) {
  auto node = std::make_unique<EditNode>();
  node->number = reference.number;
  node->level = reference.level;
  node->base = source_.Load(reference);
  for (uint32_t i = 0; i < node->base->Count(); ++i) {
    if (reference.level == 0)
      node->entries.push_back(node->base->Entry(i));
    else
      node->children.push_back({{node->base->Key(i), node->base->Child(i)}, nullptr});
  }
  return node;
}

size_t TreeEdit::ChildIndex(const EditNode& node, Bytes key) {
  const auto above = std::upper_bound(
      node.children.begin(), node.children.end(), key,
      [](Bytes sought, const EditChild& child) { return CompareKeys(sought, child.entry.key) < 0; });
  return above == node.children.begin() ? 0 : static_cast<size_t>(above - node.children.begin()) - 1;
}

Bytes TreeEdit::Copy(Bytes bytes) { return own_.emplace_back(bytes.begin(), bytes.end()); }

TreeEdit::EditNode& TreeEdit::LeafFor(Bytes key) {
  if (top_ == nullptr) {
    if (root_.number == 0) {
      top_ = std::make_unique<EditNode>();
      top_->number = (*next_number_)++;
    } else {
      top_ = Open(root_);
    }
  }
  EditNode* node = top_.get();
  while (node->level != 0) {
    EditChild& child = node->children[ChildIndex(*node, key)];
    if (CompareKeys(key, child.entry.key) < 0) child.entry.key = Copy(key);
    if (child.edit == nullptr) child.edit = Open(child.entry.child);
    node = child.edit.get();
  }
  return *node;
}

std::optional<TreeEdit::Found> TreeEdit::Find(Bytes key) {
  NodeReference reference = root_;
  const EditNode* edit = top_.get();
  while (edit != nullptr && edit->level != 0) {
    const EditChild& child = edit->children[ChildIndex(*edit, key)];
    reference = child.entry.child;
    edit = child.edit.get();
  }
  if (edit != nullptr) {
    const auto found = std::lower_bound(edit->entries.begin(), edit->entries.end(), key, KeyBelow);
    if (found == edit->entries.end() || CompareKeys(found->key, key) != 0) return std::nullopt;
    return Found{found->weight, found->payload};
  }
  Cursor cursor;
  if (!Tree(source_, reference).Find(key, &cursor)) return std::nullopt;
  own_.emplace_back(cursor.Payload().begin(), cursor.Payload().end());
  return Found{cursor.Weight(), own_.back()};
}

std::optional<TreeEdit::Place> TreeEdit::Next(Bytes key) {
  if (top_ == nullptr) {
    const Cursor cursor = Tree(source_, root_).Seek(key);
    if (cursor.AtEnd()) return std::nullopt;
    return Place{{cursor.Key().begin(), cursor.Key().end()}, cursor.Weight()};
  }
  // Down the changed nodes; a child without an entry left sends the search on to its neighbour.
  const auto search = [&](auto&& self, const EditNode& node) -> std::optional<Place> {
    if (node.level == 0) {
      const auto found = std::lower_bound(node.entries.begin(), node.entries.end(), key, KeyBelow);
      if (found == node.entries.end()) return std::nullopt;
      return Place{{found->key.begin(), found->key.end()}, found->weight};
    }
    for (size_t i = ChildIndex(node, key); i < node.children.size(); ++i) {
      const EditChild& child = node.children[i];
      if (child.edit != nullptr) {
        if (std::optional<Place> place = self(self, *child.edit)) return place;
        continue;
      }
      const Cursor cursor = Tree(source_, child.entry.child).Seek(key);
      if (!cursor.AtEnd()) return Place{{cursor.Key().begin(), cursor.Key().end()}, cursor.Weight()};
    }
    return std::nullopt;
  };
  return search(search, *top_);
}

void TreeEdit::Put(Bytes key, uint32_t weight, Bytes payload) {
  if (key.size() > kTreeKeyBytesMax || payload.size() > kPayloadBytesMax) Fail(status::kBadCollection);
  EditNode& leaf = LeafFor(key);
  const auto place = std::lower_bound(leaf.entries.begin(), leaf.entries.end(), key, KeyBelow);
  if (place != leaf.entries.end() && CompareKeys(place->key, key) == 0) {
    place->weight = weight;
    place->payload = Copy(payload);
  } else {
    const Bytes own_key = Copy(key);
    leaf.entries.insert(place, {own_key, Copy(payload), weight});
  }
}

bool TreeEdit::Erase(Bytes key) {
  if (!Find(key)) return false;
  EditNode& leaf = LeafFor(key);
  leaf.entries.erase(std::lower_bound(leaf.entries.begin(), leaf.entries.end(), key, KeyBelow));
  return true;
}

void TreeEdit::AddWeight(Bytes key, int64_t more) {
  const std::optional<Found> found = Find(key);
  if (!found) Fail(status::kDamaged);
  const int64_t weight = int64_t{found->weight} + more;
  if (weight < 1 || weight > int64_t{UINT32_MAX}) Fail(status::kDamaged);
  EditNode& leaf = LeafFor(key);
  std::lower_bound(leaf.entries.begin(), leaf.entries.end(), key, KeyBelow)->weight =
      static_cast<uint32_t>(weight);
}

size_t TreeEdit::BytesOf(const EditNode& node) {
  size_t bytes = kNodeHeadBytes;
  for (const LeafEntry& entry : node.entries) bytes += StoredBytesOf(entry);
  for (const EditChild& child : node.children) bytes += StoredBytesOf(child.entry);
  return bytes;
}

// The child at index takes in the one behind it.
void TreeEdit::Join(EditNode& parent, size_t index, std::vector<uint32_t>* removed) {
  EditChild& left = parent.children[index];
  EditChild& right = parent.children[index + 1];
  if (left.edit == nullptr) left.edit = Open(left.entry.child);
  if (right.edit == nullptr) right.edit = Open(right.entry.child);
  EditNode& from = *right.edit;
  EditNode& into = *left.edit;
  into.entries.insert(into.entries.end(), from.entries.begin(), from.entries.end());
  std::move(from.children.begin(), from.children.end(), std::back_inserter(into.children));
  // The entries of either lie in its base, which must live until they are written.
  if (from.base != nullptr && into.base != from.base) {
    for (LeafEntry& entry : into.entries) {
      entry.key = Copy(entry.key);
      entry.payload = Copy(entry.payload);
    }
    for (EditChild& child : into.children) child.entry.key = Copy(child.entry.key);
  }
  removed->push_back(from.number);
  parent.children.erase(parent.children.begin() + static_cast<ptrdiff_t>(index) + 1);
}

// Takes out empty nodes and joins small ones, from the leaves up.
void TreeEdit::Settle(EditNode& node, std::vector<uint32_t>* removed) {
  if (node.level == 0) return;
  for (EditChild& child : node.children) {
    if (child.edit != nullptr) Settle(*child.edit, removed);
  }
  std::erase_if(node.children, [&](const EditChild& child) {
    const bool is_empty = child.edit != nullptr && child.edit->IsEmpty();
    if (is_empty) removed->push_back(child.edit->number);
    return is_empty;
  });
  for (size_t i = 0; i < node.children.size(); ++i) {
    const EditChild& child = node.children[i];
    if (child.edit == nullptr || BytesOf(*child.edit) >= kNodeBytesMin || node.children.size() < 2) continue;
    const size_t left = i + 1 < node.children.size() ? i : i - 1;
    Join(node, left, removed);
    i = left;
  }
}

std::vector<InnerEntry> TreeEdit::Store(EditNode& node, store::Write& write, WriteReport* report) {
  std::vector<std::byte> buffer;
  std::vector<InnerEntry> pieces;
  std::vector<InnerEntry> children;
  for (EditChild& child : node.children) {
    if (child.edit == nullptr) {
      children.push_back(child.entry);
      continue;
    }
    for (const InnerEntry& piece : Store(*child.edit, write, report)) children.push_back(piece);
  }
  const std::vector<size_t> cuts = node.level == 0 ? Cuts(node.entries, 1) : Cuts(children, 2);
  size_t begin = 0;
  for (const size_t end : cuts) {
    const uint32_t number = begin == 0 ? node.number : (*next_number_)++;
    const NodeReference reference =
        node.level == 0 ? EncodeLeaf(number, node.entries.data() + begin, end - begin, &buffer)
                        : EncodeInner(number, node.level, children.data() + begin, end - begin, &buffer);
    write.PutRecord(kNodeSpace, KeyOfNode(source_.Name(), number), buffer);
    ++report->written;
    pieces.push_back({Copy(node.level == 0 ? node.entries[begin].key : children[begin].key), reference});
    begin = end;
  }
  return pieces;
}

NodeReference TreeEdit::Write(store::Write& write, WriteReport* report) {
  WriteReport unwanted;
  if (report == nullptr) report = &unwanted;
  if (top_ == nullptr) return root_;
  std::vector<uint32_t> removed;
  Settle(*top_, &removed);
  NodeReference root;
  // A root with one child gives way to it.
  while (top_->level != 0 && top_->children.size() == 1) {
    removed.push_back(top_->number);
    EditChild child = std::move(top_->children.front());
    if (child.edit == nullptr) {
      root = child.entry.child;
      top_ = nullptr;
      break;
    }
    top_ = std::move(child.edit);
  }
  if (top_ != nullptr && top_->IsEmpty()) {
    removed.push_back(top_->number);
  } else if (top_ != nullptr) {
    std::vector<InnerEntry> pieces = Store(*top_, write, report);
    while (pieces.size() > 1) {
      if (pieces.front().child.level >= kTreeLevelMax) Fail(status::kDatabaseTooLarge);
      EditNode above;
      above.number = (*next_number_)++;
      above.level = static_cast<uint8_t>(pieces.front().child.level + 1);
      for (const InnerEntry& piece : pieces) above.children.push_back({piece, nullptr});
      pieces = Store(above, write, report);
    }
    root = pieces.front().child;
  }
  for (const uint32_t number : removed)
    report->removed += write.RemoveRecord(kNodeSpace, KeyOfNode(source_.Name(), number));
  return root;
}

// --- building

void TreeBuilder::Put(const NodeReference& reference) {
  write_.PutRecord(kNodeSpace, KeyOfNode(name_, reference.number), buffer_);
}

void TreeBuilder::Add(Bytes key, uint32_t weight, Bytes payload) {
  if (key.size() > kTreeKeyBytesMax || payload.size() > kPayloadBytesMax) Fail(status::kBadCollection);
  const size_t entry_bytes = kLeafSlotBytes + key.size() + payload.size();
  if (!leaf_sizes_.empty() && leaf_bytes_ + entry_bytes > kBuiltNodeBytes) FlushLeaf();
  leaf_content_.insert(leaf_content_.end(), key.begin(), key.end());
  leaf_content_.insert(leaf_content_.end(), payload.begin(), payload.end());
  leaf_sizes_.emplace_back(key.size(), payload.size());
  leaf_weights_.push_back(weight);
  leaf_bytes_ += entry_bytes;
}

void TreeBuilder::FlushLeaf() {
  leaf_.clear();
  const std::byte* at = leaf_content_.data();
  for (size_t i = 0; i < leaf_sizes_.size(); ++i) {
    const auto [key_bytes, payload_bytes] = leaf_sizes_[i];
    leaf_.push_back({{at, key_bytes}, {at + key_bytes, payload_bytes}, leaf_weights_[i]});
    at += key_bytes + payload_bytes;
  }
  const NodeReference reference = EncodeLeaf((*next_number_)++, leaf_.data(), leaf_.size(), &buffer_);
  Put(reference);
  AddChild(0, leaf_.front().key, reference);
  leaf_content_.clear();
  leaf_sizes_.clear();
  leaf_weights_.clear();
  leaf_bytes_ = kNodeHeadBytes;
}

void TreeBuilder::AddChild(size_t level, Bytes key, const NodeReference& child) {
  if (level >= kTreeLevelMax) Fail(status::kDatabaseTooLarge);
  if (levels_.size() <= level) levels_.resize(level + 1);
  const size_t entry_bytes = kInnerSlotBytes + key.size();
  if (levels_[level].entries.size() >= 2 && levels_[level].bytes + entry_bytes > kBuiltNodeBytes)
    FlushInner(level);
  Level& into = levels_[level];
  into.keys.emplace_back(key.begin(), key.end());
  into.entries.push_back({into.keys.back(), child});
  into.bytes += entry_bytes;
}

void TreeBuilder::FlushInner(size_t level) {
  Level full = std::move(levels_[level]);
  levels_[level] = Level{};
  const NodeReference reference = EncodeInner((*next_number_)++, static_cast<uint8_t>(level + 1),
                                              full.entries.data(), full.entries.size(), &buffer_);
  Put(reference);
  AddChild(level + 1, full.entries.front().key, reference);
}

NodeReference TreeBuilder::Finish() {
  if (!leaf_sizes_.empty()) FlushLeaf();
  if (levels_.empty()) return {};
  for (size_t level = 0;; ++level) {
    if (level + 1 == levels_.size() && levels_[level].entries.size() == 1)
      return levels_[level].entries.front().child;
    if (!levels_[level].entries.empty()) FlushInner(level);
  }
}

}  // namespace brynd::collection
