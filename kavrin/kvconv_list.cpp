// Conversions to lists, and the entries of a list text.
#include "kvconv.h"

namespace {

constexpr uint32_t kWord = sizeof(uint16_t);

void StoreWord(char* target, uint32_t value) { KVIStore<uint16_t>(target, static_cast<uint16_t>(value)); }

// Counts the entries of the result unless the measure for the caller's limit has done so.
uint32_t CountEntries(CONVERSION* conversion, MEASURE measure) {
  if (conversion->counted) return KVSUCCESS;
  uint64_t bytes;
  return measure(conversion, false, &bytes);
}

// A list of fewer than two entries is stored as a plain text item.
void StoreShortTextListAsText(CONVERSION* conversion, uint32_t count) {
  constexpr uint32_t kOneEntryHead = 2 * kWord;
  if (!KVIIsWrite(*conversion) || count > 1) return;
  conversion->dest_type = KVTYPE_TEXT;
  const char* list = conversion->result == nullptr ? conversion->buffer : conversion->result;
  conversion->result = list + (count == 1 ? kOneEntryHead : 0);
  conversion->length = count == 1 ? conversion->length - kOneEntryHead : 0;
}

// A list of one value is stored as that value, one of none as an empty text.
void StoreShortRangeAsScalar(CONVERSION* conversion, uint32_t count, uint32_t range) {
  if (!KVIIsWrite(*conversion) || range != 0 || count > 1) return;
  const char* list = conversion->result == nullptr ? conversion->buffer : conversion->result;
  conversion->result = list + (count == 1 ? kListHeadBytes : 0);
  conversion->length = count == 1 ? conversion->length - kListHeadBytes : 0;
  if (count == 0)
    conversion->dest_type = KVTYPE_TEXT;
  else
    conversion->dest_type = KVIIsNumberKind(conversion->dest_type) ? KVTYPE_NUMBER : KVTYPE_DATETIME;
}

// Where the values of a list under construction go: single values behind the counts, ranges behind all single
// values.
struct RANGESINK {
  char* list;
  char* next_single;
  char* next_range;
  uint32_t range_count;
};

RANGESINK StartRange(char* list, uint32_t single_count) {
  StoreWord(list, single_count);
  StoreWord(list + kWord, 0);
  char* const values = list + kListHeadBytes;
  return {list, values, values + single_count * kListValueBytes, 0};
}

void PutRange(RANGESINK* sink, const RANGEVALUE& value) {
  if (!value.is_range) {
    std::memcpy(sink->next_single, value.low, kListValueBytes);
    sink->next_single += kListValueBytes;
    return;
  }
  std::memcpy(sink->next_range, value.low, kListValueBytes);
  std::memcpy(sink->next_range + kListValueBytes, value.high, kListValueBytes);
  sink->next_range += 2 * kListValueBytes;
  ++sink->range_count;
}

uint32_t FinishRange(CONVERSION* conversion, const RANGESINK& sink) {
  StoreWord(sink.list + kWord, sink.range_count);
  conversion->length = static_cast<uint32_t>(KVIRangeListBytes(conversion->entry_count, sink.range_count));
  StoreShortRangeAsScalar(conversion, conversion->entry_count, sink.range_count);
  return KVSUCCESS;
}

}  // namespace

LISTSTRETCH KVINextStretch(const char* text, const char* text_end, const LISTDELIM& delim) {
  const char* start = text;
  const char* stretch_end = text;
  // Whole characters: what follows a prefix is never a separator. A NUL ends an entry wherever it stands.
  while (stretch_end != text_end && *stretch_end != 0 && !KVIIsDelim(delim, *stretch_end)) {
    const uint32_t character_bytes = KVICharacterBytes(*stretch_end);
    for (uint32_t i = 0; i < character_bytes && stretch_end != text_end; ++i) {
      if (*stretch_end == 0) break;
      ++stretch_end;
    }
  }
  const char* const next = stretch_end == text_end ? nullptr : stretch_end + 1;
  while (start != stretch_end && KVIIsSpace(*start)) ++start;
  while (stretch_end != start && KVIIsSpace(stretch_end[-1])) --stretch_end;
  return {start, static_cast<uint32_t>(stretch_end - start), next};
}

// To a text list

uint32_t KVIScalarToTextList(CONVERSION* conversion) {
  constexpr uint32_t kOneEntryHead = 2 * kWord;
  char text[kDatetimeTextMax + 1];
  uint16_t text_bytes = 0;
  const uint16_t brstatus = KVIFormatValue(&conversion->api_format->intl, conversion->format,
                                           conversion->src_type, conversion->src, text, &text_bytes);
  if (brstatus != 0) return KVIFormatFailure(conversion, brstatus);
  if (const uint32_t status = KVITakeRoom(conversion, kOneEntryHead + text_bytes); status != KVSUCCESS)
    return status;
  StoreWord(conversion->buffer, 1);
  StoreWord(conversion->buffer + kWord, text_bytes);
  KVICopyBytes(conversion->buffer + kOneEntryHead, text, text_bytes);
  conversion->length = kOneEntryHead + text_bytes;
  StoreShortTextListAsText(conversion, 1);
  return KVSUCCESS;
}

uint32_t KVITextToTextList(CONVERSION* conversion) {
  if (const uint32_t status = CountEntries(conversion, KVIMeasureTextToTextList); status != KVSUCCESS)
    return status;
  const LISTDELIM delim = KVIListDelim(conversion->format);
  const char* const text_end = conversion->src + conversion->src_bytes;
  char* length_word = conversion->buffer;
  StoreWord(length_word, conversion->entry_count);
  char* target = conversion->buffer + kWord + conversion->entry_count * kWord;
  for (const char* text = conversion->src; text != nullptr;) {
    const LISTSTRETCH stretch = KVINextStretch(text, text_end, delim);
    text = stretch.next;
    if (stretch.bytes == 0) continue;
    length_word += kWord;
    StoreWord(length_word, stretch.bytes);
    KVICopyBytes(target, stretch.text, stretch.bytes);
    target += stretch.bytes;
  }
  conversion->length = static_cast<uint32_t>(target - conversion->buffer);
  StoreShortTextListAsText(conversion, conversion->entry_count);
  return KVSUCCESS;
}

uint32_t KVICopyTextList(CONVERSION* conversion) {
  KVIPassSource(conversion, conversion->src_bytes);
  StoreShortTextListAsText(conversion, conversion->count);
  return KVSUCCESS;
}

uint32_t KVIRangeToTextList(CONVERSION* conversion) {
  const uint32_t entry_count = conversion->count + conversion->range;
  if (entry_count > kListEntriesMax) return KVFAIL_DATA_TOO_LONG;
  char* length_word = conversion->buffer + kWord;
  char* target = conversion->buffer + kWord + entry_count * kWord;
  StoreWord(conversion->buffer, entry_count);
  const char* value = KVIRangeListValues(conversion->src);
  const auto put_value = [&] {
    char text[kDatetimeTextMax + 1];
    const uint16_t text_bytes = ListType2String(value, text, conversion->src_type, KVTYPE_TEXTLIST,
                                                conversion->format, conversion->api_format);
    KVICopyBytes(target, text, text_bytes);
    target += text_bytes;
    value += kListValueBytes;
  };
  for (uint32_t i = 0; i < entry_count; ++i, length_word += kWord) {
    const char* const entry = target;
    put_value();
    if (i >= conversion->count) {
      *target++ = '-';
      put_value();
    }
    StoreWord(length_word, static_cast<uint32_t>(target - entry));
  }
  conversion->length = static_cast<uint32_t>(target - conversion->buffer);
  StoreShortTextListAsText(conversion, entry_count);
  return KVSUCCESS;
}

// To a number or date-time list

uint32_t KVIScalarToRange(CONVERSION* conversion) {
  conversion->entry_count = 1;
  RANGESINK sink = StartRange(conversion->buffer, 1);
  RANGEVALUE value{};
  std::memcpy(value.low, conversion->src, kListValueBytes);
  PutRange(&sink, value);
  return FinishRange(conversion, sink);
}

uint32_t KVITextToRange(CONVERSION* conversion) {
  if (const uint32_t status = CountEntries(conversion, KVIMeasureTextToRange); status != KVSUCCESS)
    return status;
  RANGESINK sink = StartRange(conversion->buffer, conversion->entry_count);
  LISTSCAN scan = KVIStartScan(conversion->format, conversion->src, conversion->src_bytes);
  while (scan.index < scan.text_bytes) {
    RANGEVALUE value;
    const uint32_t status = KVIScanRange(*conversion, &scan, &value);
    if (status == KVFAIL_END_OF_DATA) break;
    if (status != KVSUCCESS) return status;
    PutRange(&sink, value);
    if (scan.index < scan.text_bytes) ++scan.index;  // over the separator
  }
  return FinishRange(conversion, sink);
}

uint32_t KVITextListToRange(CONVERSION* conversion) {
  if (const uint32_t status = CountEntries(conversion, KVIMeasureTextListToRange); status != KVSUCCESS)
    return status;
  RANGESINK sink = StartRange(conversion->buffer, conversion->entry_count);
  TEXTLISTWALK walk = KVIWalkTextList(conversion->src, conversion->count);
  for (uint32_t i = 0; i < conversion->count; ++i, KVINextEntry(&walk)) {
    LISTSCAN scan = KVIStartScan(conversion->format, walk.text, KVIEntryBytes(walk));
    RANGEVALUE value;
    const uint32_t status = KVIScanRange(*conversion, &scan, &value);
    if (status != KVSUCCESS) return status;
    PutRange(&sink, value);
  }
  return FinishRange(conversion, sink);
}

uint32_t KVICopyRange(CONVERSION* conversion) {
  KVIPassSource(conversion, static_cast<uint32_t>(KVIRangeListBytes(conversion->count, conversion->range)));
  StoreShortRangeAsScalar(conversion, conversion->count, conversion->range);
  return KVSUCCESS;
}
