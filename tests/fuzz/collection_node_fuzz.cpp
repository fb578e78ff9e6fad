// Nodes of collections from any bytes: what Check lets through can be read in every way.
//
// The first byte of the input chooses: bit 1 gives the rest a checksum and a length that fit, so that the
// fuzzer gets past them.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "base/checksum.h"
#include "collection/entry.h"
#include "collection/node.h"

using namespace brynd;
using namespace brynd::collection;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Bytes input = BytesAt(data + 1, size - 1);
  std::vector<std::byte> stored(input.begin(), input.end());
  uint32_t number = 1;
  if ((data[0] & 1) != 0 && stored.size() >= kNodeHeadBytes) {
    StoreU32(stored.data() + 12, static_cast<uint32_t>(stored.size()));
    number = LoadU32(stored.data() + 16);
    StoreU64(stored.data(), Checksum64(Bytes(stored).subspan(8)));
  }
  const std::shared_ptr<const Node> node = Node::Check(std::move(stored), number);
  if (node == nullptr) return 0;
  uint64_t weight = 0, entries = 0;
  for (uint32_t i = 0; i < node->Count(); ++i) {
    if (node->LowerBound(node->Key(i)) != i) std::abort();
    if (!node->IsLeaf()) {
      weight += node->Child(i).weight;
      entries += node->Child(i).entry_count;
      continue;
    }
    weight += node->Weight(i);
    ++entries;
    DocumentEntry document;
    CategoryEntry category;
    NoteRecord record;
    (void)ReadDocument(node->Payload(i), &document);
    (void)ReadCategory(node->Payload(i), data[0] >> 4, &category);
    (void)ReadNoteRecord(node->Payload(i), data[0] >> 4, &record);
  }
  if (weight != node->Reference().weight || entries != node->Reference().entry_count) std::abort();
  return 0;
}
