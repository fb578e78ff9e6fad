// Exported access to the values of lists, in place.
//
// (1) Nothing is allocated and no engine call made. (2) An entry beyond the last one answers 0 without a
// failure. (3) The list is the caller's: its counts and lengths are taken as they are.
#include "kvconv.h"

namespace {

constexpr uint32_t kWord = sizeof(uint16_t);
constexpr uint32_t kRangeBytes = 2 * kListValueBytes;

uint32_t TextCount(const void* textlist) { return KVILoad<uint16_t>(textlist); }

// The entry, which is there.
TEXTLISTWALK FindText(const void* textlist, uint32_t entry_index) {
  TEXTLISTWALK walk = KVIWalkTextList(static_cast<const char*>(textlist), TextCount(textlist));
  for (uint32_t i = 1; i < entry_index; ++i) KVINextEntry(&walk);
  return walk;
}

uint32_t WholeTextListBytes(const void* textlist) {
  const uint32_t count = TextCount(textlist);
  TEXTLISTWALK walk = FindText(textlist, count + 1);
  return static_cast<uint32_t>(walk.text - static_cast<const char*>(textlist));
}

struct RANGECOUNTS {
  uint32_t singles;
  uint32_t ranges;
  uint32_t Entries() const { return singles + ranges; }
};
RANGECOUNTS CountsOf(const void* list) {
  return {KVILoad<uint16_t>(list), KVILoad<uint16_t>(static_cast<const char*>(list) + kWord)};
}

// An entry of a number or date-time list; bytes is 0 when there is none.
struct RANGEENTRY {
  const char* value;
  uint32_t bytes;
};
RANGEENTRY FindValue(const void* list, uint32_t entry_index) {
  const RANGECOUNTS counts = CountsOf(list);
  const char* const values = KVIRangeListValues(static_cast<const char*>(list));
  if (entry_index == 0 || entry_index > counts.Entries()) return {nullptr, 0};
  if (entry_index <= counts.singles) return {values + (entry_index - 1) * kListValueBytes, kListValueBytes};
  const uint32_t range = entry_index - counts.singles - 1;
  return {values + counts.singles * kListValueBytes + range * kRangeBytes, kRangeBytes};
}

// Every accessor starts here. False answers 0: without a session, or with a null that is reported.
bool EnterWith(_api_session** session, const void* list, const void* required) {
  if (KVIEnterThread(session) != KVSUCCESS) return false;
  if (list != nullptr && required != nullptr) return true;
  KVError(KVFAIL_NULL_PARAM);
  return false;
}

uint32_t RangeListCount(const void* list) { return CountsOf(list).Entries(); }

uint32_t RangeListLength(const void* list, uint32_t entry_index) {
  if (entry_index != 0) return FindValue(list, entry_index).bytes;
  const RANGECOUNTS counts = CountsOf(list);
  return static_cast<uint32_t>(KVIRangeListBytes(counts.singles, counts.ranges));
}

const void* RangeListPointer(const void* list, uint32_t entry_index, uint32_t* length) {
  const RANGEENTRY entry = FindValue(list, entry_index);
  if (entry.bytes != 0) KVIStoreIf<uint32_t>(length, entry.bytes);
  return entry.value;
}

}  // namespace

uint32_t KVTextListGetCount(const void* textlist) {
  _api_session* session;
  return EnterWith(&session, textlist, textlist) ? TextCount(textlist) : 0;
}

uint32_t KVTextListGetLength(const void* textlist, uint32_t entry_index) {
  _api_session* session;
  if (!EnterWith(&session, textlist, textlist)) return 0;
  if (entry_index == 0) return WholeTextListBytes(textlist);
  if (entry_index > TextCount(textlist)) return 0;
  return KVILoad<uint16_t>(static_cast<const char*>(textlist) + entry_index * kWord);
}

uint32_t KVTextListFetch(const void* textlist, uint32_t entry_index, uint32_t buffer_length, char* buffer) {
  _api_session* session;
  if (!EnterWith(&session, textlist, buffer)) return 0;
  if (entry_index == 0 || entry_index > TextCount(textlist)) return 0;
  const TEXTLISTWALK entry = FindText(textlist, entry_index);
  uint32_t text_bytes = KVIEntryBytes(entry);
  if (buffer_length != 0 && text_bytes >= buffer_length) {
    if (session->truncate_text == 0) {
      KVError(KVFAIL_DATA_TOO_LONG);
      return 0;
    }
    text_bytes = buffer_length - 1;
  }
  KVICopyBytes(buffer, entry.text, text_bytes);
  buffer[text_bytes] = 0;
  ReviseSplitCharacter(&text_bytes, buffer, 1);
  return text_bytes;
}

const char* KVTextListGetPointer(const void* textlist, uint32_t entry_index, uint32_t* length) {
  _api_session* session;
  if (!EnterWith(&session, textlist, textlist)) return nullptr;
  if (entry_index == 0 || entry_index > TextCount(textlist)) return nullptr;
  const TEXTLISTWALK entry = FindText(textlist, entry_index);
  KVIStoreIf<uint32_t>(length, KVIEntryBytes(entry));
  return entry.text;
}

uint32_t KVNumberListGetCount(const void* numberlist) {
  _api_session* session;
  return EnterWith(&session, numberlist, numberlist) ? RangeListCount(numberlist) : 0;
}

uint32_t KVNumberListGetLength(const void* numberlist, uint32_t entry_index) {
  _api_session* session;
  return EnterWith(&session, numberlist, numberlist) ? RangeListLength(numberlist, entry_index) : 0;
}

uint32_t KVNumberListFetch(const void* numberlist, uint32_t entry_index, double* number) {
  _api_session* session;
  if (!EnterWith(&session, numberlist, number)) return 0;
  const RANGEENTRY entry = FindValue(numberlist, entry_index);
  if (entry.bytes != kListValueBytes) return 0;  // no entry, or a range, which is not fetched as a number
  std::memcpy(static_cast<void*>(number), entry.value, kListValueBytes);
  return kListValueBytes;
}

const void* KVNumberListGetPointer(const void* numberlist, uint32_t entry_index, uint32_t* length) {
  _api_session* session;
  if (!EnterWith(&session, numberlist, numberlist)) return nullptr;
  return RangeListPointer(numberlist, entry_index, length);
}

uint32_t KVDatetimeListGetCount(const void* dtlist, uint32_t* range_count) {
  _api_session* session;
  if (!EnterWith(&session, dtlist, dtlist)) return 0;
  KVIStoreIf<uint32_t>(range_count, CountsOf(dtlist).ranges);
  return RangeListCount(dtlist);
}

uint32_t KVDatetimeListGetLength(const void* dtlist, uint32_t entry_index) {
  _api_session* session;
  return EnterWith(&session, dtlist, dtlist) ? RangeListLength(dtlist, entry_index) : 0;
}

uint32_t KVDatetimeListFetch(const void* dtlist, uint32_t entry_index, KVDATETIME* datetime,
                             KVDATETIME* dt_range) {
  _api_session* session;
  if (!EnterWith(&session, dtlist, datetime)) return 0;
  const RANGEENTRY entry = FindValue(dtlist, entry_index);
  if (entry.bytes == 0) return 0;
  std::memcpy(datetime, entry.value, kListValueBytes);
  if (entry.bytes == kListValueBytes || dt_range == nullptr) return kListValueBytes;
  std::memcpy(dt_range, entry.value + kListValueBytes, kListValueBytes);
  return kRangeBytes;
}

const void* KVDatetimeListGetPointer(const void* dtlist, uint32_t entry_index, uint32_t* length) {
  _api_session* session;
  if (!EnterWith(&session, dtlist, dtlist)) return nullptr;
  return RangeListPointer(dtlist, entry_index, length);
}
