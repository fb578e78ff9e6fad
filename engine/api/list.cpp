// Text lists, as values and in blocks.
#include "base/list.h"

#include <string_view>

#include "base/boundary.h"
#include "brynd_text.h"

using brynd::AtBoundary;
using brynd::ListPrefix;
using brynd::ListView;
using brynd::Store;

namespace status = brynd::status;

namespace {

ListPrefix PrefixOf(uint16_t prefix) { return prefix == 0 ? ListPrefix::kNone : ListPrefix::kTypeWord; }

ListView ViewOf(const void* list, uint16_t prefix) {
  return {static_cast<const std::byte*>(list), PrefixOf(prefix)};
}

}  // namespace

EngStatus EngListCreate(uint16_t entry_count, uint16_t text_bytes, uint16_t prefix, EngMem* memory,
                        void** list, uint16_t* list_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (memory == nullptr) return status::kBadArgument;
    brynd::MemoryBlock block =
        brynd::MakeList(PrefixOf(prefix), size_t{4} + size_t{entry_count} * 2 + text_bytes);
    if (list_bytes != nullptr) Store<uint16_t>(list_bytes, EngListByteSize(block.data(), prefix));
    if (list != nullptr) Store<void*>(list, block.data());
    Store<EngMem>(memory, block.Release());
    return status::kOk;
  });
}

EngStatus EngListEntryAdd(EngMem memory, uint16_t prefix, uint16_t* list_bytes, uint16_t entry,
                          const char* text, uint16_t text_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (text == nullptr && text_bytes != 0) return status::kBadArgument;
    const size_t size =
        brynd::AddListEntry(memory, PrefixOf(prefix), entry, std::string_view(text, text_bytes));
    if (list_bytes != nullptr) Store<uint16_t>(list_bytes, static_cast<uint16_t>(size));
    return status::kOk;
  });
}

EngStatus EngListEntryRemove(EngMem memory, uint16_t prefix, uint16_t* list_bytes, uint16_t entry) {
  return AtBoundary([&] {
    const size_t size = brynd::RemoveListEntry(memory, PrefixOf(prefix), entry);
    if (list_bytes != nullptr) Store<uint16_t>(list_bytes, static_cast<uint16_t>(size));
  });
}

EngStatus EngListEntryText(const void* list, uint16_t prefix, uint16_t entry, char** text,
                           uint16_t* text_bytes) {
  if (list == nullptr) return status::kBadArgument;
  if (text == nullptr) return status::kBadArgument;
  if (text_bytes == nullptr) return status::kBadArgument;
  const ListView view = ViewOf(list, prefix);
  if (entry >= brynd::ListCount(view)) return status::kNoListEntry;
  const std::string_view found = brynd::ListEntry(view, entry);
  Store<char*>(text, const_cast<char*>(found.data()));
  Store<uint16_t>(text_bytes, static_cast<uint16_t>(found.size()));
  return status::kOk;
}

uint16_t EngListEntryCount(const void* list, uint16_t prefix) {
  return list == nullptr ? uint16_t{0} : brynd::ListCount(ViewOf(list, prefix));
}

uint16_t EngListByteSize(const void* list, uint16_t prefix) {
  return list == nullptr ? uint16_t{0} : static_cast<uint16_t>(brynd::ListByteSize(ViewOf(list, prefix)));
}
