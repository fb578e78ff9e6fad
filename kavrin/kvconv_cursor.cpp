// The cursors behind every list call: over entries by number, and over the entries of a text list that is at
// hand.
#include <algorithm>

#include "kvint_convert.h"

namespace {

constexpr uint32_t kWord = sizeof(uint16_t);

// Puts the cursor before the first entry.
void Rewind(KVTEXTLIST* textlist) {
  char* const list = static_cast<char*>(textlist->buffer);
  textlist->index = 0;
  textlist->next_len = static_cast<uint16_t*>(textlist->buffer) + 1;
  textlist->next_str = list + kWord + textlist->count * kWord;
}

void StepForward(KVTEXTLIST* textlist) {
  textlist->next_str += KVILoad<uint16_t>(textlist->next_len);
  ++textlist->next_len;
  ++textlist->index;
}

void StepBack(KVTEXTLIST* textlist, uint32_t entry_count) {
  for (uint32_t i = 0; i < entry_count; ++i) {
    --textlist->next_len;
    textlist->next_str -= KVILoad<uint16_t>(textlist->next_len);
    --textlist->index;
  }
}

// True when the counts and lengths of the list keep within its bytes.
bool IsWhole(const char* list, uint32_t list_bytes) {
  const uint32_t count = KVILoad<uint16_t>(list);
  uint64_t needed_bytes = kWord + uint64_t{count} * kWord;
  for (uint32_t i = 1; i <= count && needed_bytes <= list_bytes; ++i)
    needed_bytes += KVILoad<uint16_t>(list + i * kWord);
  return needed_bytes <= list_bytes;
}

// Leaves the cursor before the entry to read.
uint32_t Aim(KVTEXTLIST* textlist, int32_t list, uint32_t record_entries) {
  const uint32_t count = textlist->count;
  switch (list) {
    case KVLIST_REFRESH:
    case KVLIST_FIRST:
      Rewind(textlist);
      return KVSUCCESS;
    case KVLIST_LAST:
      Rewind(textlist);
      while (textlist->index + record_entries < count) StepForward(textlist);
      return KVSUCCESS;
    case KVLIST_NEXT:
      return textlist->index >= count ? KVFAIL_END_OF_DATA : KVSUCCESS;
    case KVLIST_PREVIOUS:
      if (textlist->index < uint64_t{record_entries} * 2) return KVFAIL_END_OF_DATA;
      StepBack(textlist, record_entries * 2);
      return KVSUCCESS;
    case KVLIST_CURRENT:
      if (textlist->index < record_entries) return KVFAIL_DATA_UNAVAILABLE;
      StepBack(textlist, record_entries);
      return KVSUCCESS;
    default:
      return KVFAIL_BAD_ENUM;
  }
}

}  // namespace

uint32_t ListIterate(int32_t list, uint32_t* index, uint32_t max) {
  const auto position = KVILoad<uint32_t>(index);
  switch (list) {
    case KVLIST_REFRESH:
    case KVLIST_FIRST:
      if (max == 0) return KVFAIL_END_OF_DATA;
      KVIStore<uint32_t>(index, 1);
      return KVSUCCESS;
    case KVLIST_LAST:
      if (max == 0) return KVFAIL_END_OF_DATA;
      KVIStore<uint32_t>(index, max);
      return KVSUCCESS;
    case KVLIST_NEXT:
      if (position >= max) return KVFAIL_END_OF_DATA;
      KVIStore<uint32_t>(index, position + 1);
      return KVSUCCESS;
    case KVLIST_PREVIOUS:
      if (position < 2) return KVFAIL_END_OF_DATA;
      KVIStore<uint32_t>(index, position - 1);
      return KVSUCCESS;
    case KVLIST_CURRENT:
      return position == 0 ? KVFAIL_DATA_UNAVAILABLE : KVSUCCESS;
    default:
      return KVFAIL_BAD_ENUM;
  }
}

uint32_t TextListCopy(EngMem listhand, KVTEXTLIST* textlist) {
  *textlist = {};
  KVGuard free_hand([&] { EngMemFree(listhand); });
  const KVLocked list(listhand);
  if (list.bytes == nullptr) return 0;
  const uint32_t list_bytes = std::max<uint32_t>(EngListByteSize(list.bytes, 0), kWord);
  auto* copy = KVIAllocate<char>(list_bytes);
  if (copy == nullptr) return 0;
  std::memcpy(copy, list.bytes, list_bytes);
  textlist->buffer = copy;
  textlist->count = IsWhole(copy, list_bytes) ? KVILoad<uint16_t>(copy) : 0;
  Rewind(textlist);
  return textlist->count;
}

uint32_t TextListIterate(KVTEXTLIST* textlist, int32_t list, uint32_t count, char* buffer, uint32_t length) {
  if (textlist->buffer == nullptr) return KVFAIL_END_OF_DATA;
  if (textlist->count == 0) return KVFAIL_END_OF_DATA;
  if (const uint32_t status = Aim(textlist, list, std::max(count, 1u)); status != KVSUCCESS) return status;
  if (textlist->index >= textlist->count) return KVFAIL_END_OF_DATA;
  const uint32_t entry_bytes = std::min<uint32_t>(KVILoad<uint16_t>(textlist->next_len), length);
  KVICopyBytes(buffer, textlist->next_str, entry_bytes);
  buffer[entry_bytes] = 0;
  StepForward(textlist);
  return KVSUCCESS;
}
