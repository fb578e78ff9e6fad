#include "collection/node.h"

#include <algorithm>
#include <cassert>

#include "base/checksum.h"

namespace brynd::collection {

namespace {

void StartNode(size_t node_bytes, std::vector<std::byte>* target) { target->resize(node_bytes); }

NodeReference FinishNode(NodeReference reference, size_t count, std::vector<std::byte>* target) {
  std::byte* const head = target->data();
  head[8] = std::byte{kNodeVersion};
  head[9] = std::byte{reference.level};
  StoreU16(head + 10, static_cast<uint16_t>(count));
  StoreU32(head + 12, static_cast<uint32_t>(target->size()));
  StoreU32(head + 16, reference.number);
  reference.checksum = Checksum64(Bytes(*target).subspan(8));
  StoreU64(head, reference.checksum);
  return reference;
}

}  // namespace

int CompareKeys(Bytes left, Bytes right) noexcept {
  const size_t common = std::min(left.size(), right.size());
  const int order = common == 0 ? 0 : std::memcmp(left.data(), right.data(), common);
  if (order != 0) return order;
  return left.size() < right.size() ? -1 : left.size() > right.size();
}

std::shared_ptr<const Node> Node::Check(std::vector<std::byte> stored, uint32_t number) {
  struct Made : Node {};
  const auto node = std::make_shared<Made>();
  node->stored_ = std::move(stored);
  if (!node->Parse(number)) return nullptr;
  return node;
}

bool Node::Parse(uint32_t number) noexcept {
  if (stored_.size() < kNodeHeadBytes) return false;
  const std::byte* const head = stored_.data();
  reference_.number = LoadU32(head + 16);
  reference_.level = std::to_integer<uint8_t>(head[9]);
  reference_.checksum = LoadU64(head);
  count_ = LoadU16(head + 10);
  if (head[8] != std::byte{kNodeVersion} || LoadU32(head + 12) != stored_.size()) return false;
  if (reference_.number != number || count_ == 0 || reference_.level > kTreeLevelMax) return false;
  const size_t slots = count_ * (IsLeaf() ? kLeafSlotBytes : kInnerSlotBytes);
  if (slots > stored_.size() - kNodeHeadBytes) return false;
  if (Checksum64(Bytes(stored_).subspan(8)) != reference_.checksum) return false;
  uint32_t expected = static_cast<uint32_t>(kNodeHeadBytes + slots);
  if (Offset(0) != expected) return false;
  for (uint32_t index = 0; index < count_; ++index) {
    if (Offset(index) < expected || Offset(index) > stored_.size()) return false;
    expected = Offset(index);
  }
  return AddUp();
}

// The offsets hold: sums, lengths of keys and their order.
bool Node::AddUp() noexcept {
  reference_.entry_count = reference_.weight = 0;
  for (uint32_t index = 0; index < count_; ++index) {
    if (IsLeaf()) {
      if (KeyBytes(index) > End(index) - Offset(index) || Weight(index) == 0) return false;
      reference_.entry_count += 1;
      reference_.weight += Weight(index);
    } else {
      const uint64_t entries = EntriesBelow(index), weight = WeightBelow(index);
      if (entries == 0 || weight < entries || entries > UINT32_MAX || weight > uint64_t{1} << 48)
        return false;
      reference_.entry_count += entries;
      reference_.weight += weight;
    }
    if (index != 0 && CompareKeys(Key(index - 1), Key(index)) >= 0) return false;
  }
  return true;
}

uint32_t Node::LowerBound(Bytes key) const noexcept {
  uint32_t low = 0, high = count_;
  while (low < high) {
    const uint32_t middle = (low + high) / 2;
    if (CompareKeys(Key(middle), key) < 0)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

NodeReference Node::Child(uint32_t index) const noexcept {
  NodeReference child;
  child.number = LoadU32(At(4 * count_ + 4 * index));
  child.level = static_cast<uint8_t>(Level() - 1);
  child.checksum = LoadU64(At(8 * count_ + 8 * index));
  child.entry_count = EntriesBelow(index);
  child.weight = WeightBelow(index);
  return child;
}

NodeReference EncodeLeaf(uint32_t number, const LeafEntry* entries, size_t count,
                         std::vector<std::byte>* target) {
  assert(count != 0 && count <= UINT16_MAX);
  size_t node_bytes = kNodeHeadBytes;
  for (size_t i = 0; i < count; ++i) node_bytes += StoredBytesOf(entries[i]);
  StartNode(node_bytes, target);
  NodeReference reference{.number = number};
  std::byte* const slots = target->data() + kNodeHeadBytes;
  size_t offset = kNodeHeadBytes + count * kLeafSlotBytes;
  for (size_t i = 0; i < count; ++i) {
    const LeafEntry& entry = entries[i];
    StoreU32(slots + 4 * i, static_cast<uint32_t>(offset));
    StoreU32(slots + 4 * count + 4 * i, entry.weight);
    StoreU16(slots + 8 * count + 2 * i, static_cast<uint16_t>(entry.key.size()));
    CopyBytes(target->data() + offset, entry.key.data(), entry.key.size());
    offset += entry.key.size();
    CopyBytes(target->data() + offset, entry.payload.data(), entry.payload.size());
    offset += entry.payload.size();
    reference.entry_count += 1;
    reference.weight += entry.weight;
  }
  return FinishNode(reference, count, target);
}

NodeReference EncodeInner(uint32_t number, uint8_t level, const InnerEntry* entries, size_t count,
                          std::vector<std::byte>* target) {
  assert(count != 0 && count <= UINT16_MAX && level != 0);
  size_t node_bytes = kNodeHeadBytes;
  for (size_t i = 0; i < count; ++i) node_bytes += StoredBytesOf(entries[i]);
  StartNode(node_bytes, target);
  NodeReference reference{.number = number, .level = level};
  std::byte* const slots = target->data() + kNodeHeadBytes;
  size_t offset = kNodeHeadBytes + count * kInnerSlotBytes;
  for (size_t i = 0; i < count; ++i) {
    const NodeReference& child = entries[i].child;
    StoreU32(slots + 4 * i, static_cast<uint32_t>(offset));
    StoreU32(slots + 4 * count + 4 * i, child.number);
    StoreU64(slots + 8 * count + 8 * i, child.checksum);
    StoreU64(slots + 16 * count + 8 * i, child.entry_count);
    StoreU64(slots + 24 * count + 8 * i, child.weight);
    CopyBytes(target->data() + offset, entries[i].key.data(), entries[i].key.size());
    offset += entries[i].key.size();
    reference.entry_count += child.entry_count;
    reference.weight += child.weight;
  }
  return FinishNode(reference, count, target);
}

}  // namespace brynd::collection
