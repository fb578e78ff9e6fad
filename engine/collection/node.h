// One node of a counted tree, as it lies in the store. A leaf holds entries, an inner node its children, each
// with the number of entries below it and the sum of their weights.
//
//   offset  size  meaning
//   0       8     checksum: XXH3-64 over the bytes from 8 to the end
//   8       1     version, 1
//   9       1     level: 0 a leaf, else one more than that of its children
//   10      2     count n, at least 1
//   12      4     bytes of the record
//   16      4     number of the node
//   20            leaf:  n offsets 4, n weights 4, n key lengths 2
//                 inner: n offsets 4, n children 4, n checksums 8, n entry counts 8, n weights 8
//   ...           leaf: n times key, payload; inner: n times the first key below the child
//
// (1) A Node exists only for bytes that passed Check: every offset in it may be trusted.  (2) Keys rise.
// (3) A weight is at least 1.  (4) A child is named with its checksum: a copy kept in memory is the right one
// exactly when its checksum is the one its parent names, so nothing needs to be told when a node changes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/bytes.h"

namespace brynd::collection {

constexpr uint8_t kNodeVersion = 1;
constexpr size_t kNodeHeadBytes = 8 + 1 + 1 + 2 + 4 + 4;
constexpr size_t kLeafSlotBytes = 4 + 4 + 2;
constexpr size_t kInnerSlotBytes = 4 + 4 + 8 + 8 + 8;
// A fuller node is split, unless it holds a single entry. Records up to this size lie whole in a page of the
// store's own index; longer ones would cost it an overflow page each, read at every comparison.
constexpr size_t kNodeBytesMax = 1980;
constexpr size_t kNodeBytesMin = 500;  // a node that shrank below is joined with a neighbour
constexpr size_t kTreeKeyBytesMax = 1800;
constexpr uint8_t kTreeLevelMax = 12;
constexpr size_t kPayloadBytesMax = 128 * 1024;

// What a parent says of a child, and the head of a collection of a whole tree. Number 0: nothing.
struct NodeReference {
  uint32_t number = 0;
  uint8_t level = 0;
  uint64_t checksum = 0;
  uint64_t entry_count = 0;
  uint64_t weight = 0;
  friend bool operator==(const NodeReference&, const NodeReference&) = default;
};

struct LeafEntry {
  Bytes key;
  Bytes payload;
  uint32_t weight = 1;
};

struct InnerEntry {
  Bytes key;  // the first one below the child
  NodeReference child;
};

class Node {
 public:
  // Takes the bytes over when they are a whole node of that number; null when they are not.
  static std::shared_ptr<const Node> Check(std::vector<std::byte> stored, uint32_t number);

  uint32_t Number() const noexcept { return reference_.number; }
  uint8_t Level() const noexcept { return reference_.level; }
  bool IsLeaf() const noexcept { return reference_.level == 0; }
  uint32_t Count() const noexcept { return count_; }
  size_t StoredBytes() const noexcept { return stored_.size(); }
  // What its parent must say of it.
  const NodeReference& Reference() const noexcept { return reference_; }

  Bytes Key(uint32_t index) const noexcept {
    const uint32_t begin = Offset(index);
    return {stored_.data() + begin, (IsLeaf() ? KeyBytes(index) : End(index) - begin)};
  }
  // The first index whose key is not below; Count() when all are.
  uint32_t LowerBound(Bytes key) const noexcept;

  // Leaves.
  uint32_t Weight(uint32_t index) const noexcept { return LoadU32(At(4 * count_ + 4 * index)); }
  Bytes Payload(uint32_t index) const noexcept {
    const uint32_t begin = Offset(index) + KeyBytes(index);
    return {stored_.data() + begin, End(index) - begin};
  }
  LeafEntry Entry(uint32_t index) const noexcept { return {Key(index), Payload(index), Weight(index)}; }

  // Inner nodes.
  uint64_t EntriesBelow(uint32_t index) const noexcept { return LoadU64(At(16 * count_ + 8 * index)); }
  uint64_t WeightBelow(uint32_t index) const noexcept { return LoadU64(At(24 * count_ + 8 * index)); }
  NodeReference Child(uint32_t index) const noexcept;

 private:
  Node() = default;
  bool Parse(uint32_t number) noexcept;
  bool AddUp() noexcept;
  const std::byte* At(size_t slot_offset) const noexcept {
    return stored_.data() + kNodeHeadBytes + slot_offset;
  }
  uint32_t Offset(uint32_t index) const noexcept { return LoadU32(At(4 * index)); }
  uint32_t End(uint32_t index) const noexcept {
    return index + 1 < count_ ? Offset(index + 1) : static_cast<uint32_t>(stored_.size());
  }
  uint32_t KeyBytes(uint32_t index) const noexcept { return LoadU16(At(8 * count_ + 2 * index)); }

  std::vector<std::byte> stored_;
  uint32_t count_ = 0;
  NodeReference reference_;
};

int CompareKeys(Bytes left, Bytes right) noexcept;

inline size_t StoredBytesOf(const LeafEntry& entry) noexcept {
  return kLeafSlotBytes + entry.key.size() + entry.payload.size();
}
inline size_t StoredBytesOf(const InnerEntry& entry) noexcept { return kInnerSlotBytes + entry.key.size(); }

// Writes a node into a buffer; what its parent must say of it.
NodeReference EncodeLeaf(uint32_t number, const LeafEntry* entries, size_t count,
                         std::vector<std::byte>* target);
NodeReference EncodeInner(uint32_t number, uint8_t level, const InnerEntry* entries, size_t count,
                          std::vector<std::byte>* target);

}  // namespace brynd::collection
