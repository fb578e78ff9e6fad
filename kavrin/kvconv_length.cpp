// Sources and sizes: finding the length of a source, checking a stored one, and adding up how long a result
// will be.
//
// (1) An exact size is what the conversion writes. (2) An estimate is never below it, with the one exception
// of lists that become text, whose told estimate leaves separators out; buffers of that size are made by
// BufferBytes (kvconv.cpp).
#include "kvconv.h"

namespace {

// A value that tells its own length is unbounded; the check of its parts then cannot fail.
constexpr uint64_t kUnknownBytes = UINT64_MAX;

uint32_t OpenScalar(CONVERSION* conversion, uint64_t known_bytes) {
  conversion->src_bytes = kListValueBytes;
  return known_bytes < kListValueBytes ? KVFAIL_BAD_FORMAT : KVSUCCESS;
}

// Text, and what needs no look at the source.
uint32_t OpenText(CONVERSION* conversion, uint64_t known_bytes) {
  conversion->src_bytes =
      static_cast<uint32_t>(known_bytes == kUnknownBytes ? std::strlen(conversion->src) : known_bytes);
  return KVSUCCESS;
}

uint32_t OpenTextList(CONVERSION* conversion, uint64_t known_bytes) {
  if (known_bytes < sizeof(uint16_t)) return KVFAIL_BAD_FORMAT;
  conversion->count = KVILoad<uint16_t>(conversion->src);
  uint64_t needed_bytes = sizeof(uint16_t) + conversion->count * sizeof(uint16_t);
  if (needed_bytes > known_bytes) return KVFAIL_BAD_FORMAT;
  const char* length = conversion->src + sizeof(uint16_t);
  for (uint32_t i = 0; i < conversion->count; ++i, length += sizeof(uint16_t))
    needed_bytes += KVILoad<uint16_t>(length);
  if (needed_bytes > known_bytes) return KVFAIL_BAD_FORMAT;
  const uint64_t bytes = known_bytes == kUnknownBytes ? needed_bytes : known_bytes;
  if (bytes >= kNoLimit) return KVFAIL_BAD_FORMAT;
  conversion->src_bytes = static_cast<uint32_t>(bytes);
  return KVSUCCESS;
}

uint32_t OpenRange(CONVERSION* conversion, uint64_t known_bytes) {
  if (known_bytes < kListHeadBytes) return KVFAIL_BAD_FORMAT;
  conversion->count = KVILoad<uint16_t>(conversion->src);
  conversion->range = KVILoad<uint16_t>(conversion->src + sizeof(uint16_t));
  const uint64_t needed_bytes = KVIRangeListBytes(conversion->count, conversion->range);
  if (needed_bytes > known_bytes) return KVFAIL_BAD_FORMAT;
  conversion->src_bytes = static_cast<uint32_t>(needed_bytes);
  return KVSUCCESS;
}

uint32_t OpenFormula(CONVERSION* conversion, uint64_t known_bytes) {
  if (known_bytes < sizeof(uint16_t)) return KVFAIL_BAD_FORMAT;
  const void* at = conversion->src;
  uint16_t formula_bytes = 0;
  EngOdsRead(&at, 0, &formula_bytes, 1);
  if (formula_bytes < sizeof(uint16_t) || formula_bytes > known_bytes) return KVFAIL_BAD_FORMAT;
  conversion->src_bytes = formula_bytes;
  return KVSUCCESS;
}

// A composite is told by its handle; only a stored one has a length of its own.
uint32_t OpenComposite(CONVERSION* conversion, uint64_t known_bytes) {
  constexpr uint32_t kHandleBytes = 4;
  conversion->src_bytes = known_bytes == kUnknownBytes ? kHandleBytes : static_cast<uint32_t>(known_bytes);
  return KVSUCCESS;
}

using OPEN = uint32_t (*)(CONVERSION* conversion, uint64_t known_bytes);
constexpr OPEN kOpen[kKVTypeCount] = {OpenText,  OpenScalar, OpenText, OpenScalar, OpenTextList,
                                      OpenRange, OpenRange,  OpenComposite, OpenFormula};

uint32_t CountLineEnds(const char* text, uint32_t text_bytes) {
  uint32_t count = 0;
  const char* const text_end = text + text_bytes;
  while (text != text_end) {
    const void* nul = std::memchr(text, 0, static_cast<size_t>(text_end - text));
    if (nul == nullptr) break;
    ++count;
    text = static_cast<const char*>(nul) + 1;
  }
  return count;
}

}  // namespace

uint32_t KVIOpenSource(CONVERSION* conversion, const void* src_buf, uint32_t src_len) {
  const bool tells_length =
      src_len == 0 && src_buf != nullptr && (conversion->flags & KVCONV_SRC_TERMINATED) != 0;
  const bool is_scalar = fixed_length[conversion->src_type] != 0;
  // A caller's own number is 8 bytes whatever length stands beside it; a stored one must have them.
  const bool is_own_scalar =
      is_scalar && src_buf != nullptr && (conversion->flags & KVCONV_SRC_TERMINATED) != 0;
  conversion->src = src_buf == nullptr ? "" : static_cast<const char*>(src_buf);
  const uint64_t known_bytes =
      tells_length || is_own_scalar ? kUnknownBytes : (src_buf == nullptr ? 0 : uint64_t{src_len});
  return kOpen[conversion->src_type](conversion, known_bytes);
}

// Text to text

uint32_t KVIMeasureText(CONVERSION* conversion, bool, uint64_t* bytes) {
  *bytes = conversion->src_bytes;
  const int32_t newline_bytes = conversion->session->newline_delim_len;
  const bool is_lines =
      (conversion->flags & KVCONV_LINES) != 0 && (conversion->flags & KVCONV_SRC_TERMINATED) == 0;
  if (is_lines && newline_bytes >= 2)
    *bytes += uint64_t{CountLineEnds(conversion->src, conversion->src_bytes)} *
              (static_cast<uint32_t>(newline_bytes) - 1);
  return KVSUCCESS;
}

// Formatted values

uint32_t KVIMeasureScalarText(CONVERSION* conversion, bool estimate, uint64_t* bytes) {
  constexpr uint32_t kOneEntryHead = 2 * sizeof(uint16_t);
  const uint32_t head_bytes = conversion->dest_type == KVTYPE_TEXTLIST ? kOneEntryHead : 0;
  if (estimate) {
    *bytes = head_bytes + KVIValueTextMax(conversion->src_type);
    return KVSUCCESS;
  }
  char text[kDatetimeTextMax + 1];
  uint16_t text_bytes = 0;
  if (KVIFormatValue(&conversion->api_format->intl, conversion->format, conversion->src_type, conversion->src,
                     text, &text_bytes) != 0)
    return KVFAIL_BAD_FORMAT;
  *bytes = head_bytes + text_bytes;
  return KVSUCCESS;
}

uint32_t KVIMeasureRangeText(CONVERSION* conversion, bool estimate, uint64_t* bytes) {
  const uint64_t count = conversion->count;
  const uint64_t range = conversion->range;
  const uint64_t text_max = KVIValueTextMax(conversion->src_type);
  *bytes = 0;
  if (conversion->dest_type == KVTYPE_TEXT) {
    if (count + range == 0) return KVSUCCESS;
    char delim[kDispDelimBytes];
    const uint64_t delim_bytes = GetListDispDelim(conversion->format, delim);
    *bytes = estimate ? (text_max * 2 + 1) * range + count * text_max + count * delim_bytes - delim_bytes
                      : (range + count - 1) * delim_bytes + range;
  } else {
    if (count + range > kListEntriesMax) return KVFAIL_DATA_TOO_LONG;
    *bytes = estimate ? (text_max * 2 + 1) * range + (range + count) * 2 + 2 + count * text_max
                      : range + (range + count) * 2 + 2;
  }
  if (estimate) return KVSUCCESS;
  const char* value = KVIRangeListValues(conversion->src);
  for (uint64_t i = 0; i < count + range * 2; ++i, value += kListValueBytes) {
    char text[kDatetimeTextMax + 1];
    uint16_t text_bytes = 0;
    if (KVIFormatValue(&conversion->api_format->intl, conversion->format, conversion->src_type, value, text,
                       &text_bytes) != 0)
      return KVFAIL_BAD_FORMAT;
    *bytes += text_bytes;
  }
  return KVSUCCESS;
}

uint32_t KVIMeasureTextListText(CONVERSION* conversion, bool, uint64_t* bytes) {
  *bytes = 0;
  if (conversion->count == 0) return KVSUCCESS;
  char delim[kDispDelimBytes];
  const uint32_t delim_bytes = GetListDispDelim(conversion->format, delim);
  const uint64_t head_bytes = conversion->count * sizeof(uint16_t) + sizeof(uint16_t);
  *bytes = uint64_t{conversion->count - 1} * delim_bytes + conversion->src_bytes - head_bytes;
  return KVSUCCESS;
}

uint32_t KVIMeasureFormulaText(CONVERSION* conversion, bool, uint64_t* bytes) {
  EngMem text = 0;
  uint16_t text_bytes = 0;
  if (EngFormulaDecompile(conversion->src, 0, &text, &text_bytes) != 0) return KVFAIL_BAD_FORMAT;
  EngMemFree(text);
  *bytes = text_bytes;
  return KVSUCCESS;
}

// A composite that cannot be converted has the length 0, without a failure.
uint32_t KVIMeasureCompositeText(CONVERSION* conversion, bool, uint64_t* bytes) {
  uint32_t actual_bytes = 0;
  const uint32_t status = _CompConvert(
      conversion->session, nullptr, conversion->src_type, conversion->src_bytes, conversion->src,
      conversion->dest_type, 0, nullptr, &actual_bytes, nullptr, conversion->flags, conversion->format);
  *bytes = status == KVSUCCESS ? actual_bytes : 0;
  return KVSUCCESS;
}

// Lists

uint32_t KVIMeasureSource(CONVERSION* conversion, bool, uint64_t* bytes) {
  *bytes = conversion->src_bytes;
  return KVSUCCESS;
}

uint32_t KVIMeasureTextToTextList(CONVERSION* conversion, bool, uint64_t* bytes) {
  const LISTDELIM delim = KVIListDelim(conversion->format);
  const char* const text_end = conversion->src + conversion->src_bytes;
  uint64_t entries = 0;
  uint64_t text_bytes = 0;
  for (const char* text = conversion->src; text != nullptr;) {
    const LISTSTRETCH stretch = KVINextStretch(text, text_end, delim);
    if (stretch.bytes > kListEntryBytesMax) return KVFAIL_DATA_TOO_LONG;
    if (stretch.bytes != 0) ++entries;
    text_bytes += stretch.bytes;
    text = stretch.next;
  }
  if (entries > kListEntriesMax) return KVFAIL_DATA_TOO_LONG;
  conversion->counted = true;
  conversion->entry_count = static_cast<uint32_t>(entries);
  *bytes = entries * sizeof(uint16_t) + sizeof(uint16_t) + text_bytes;
  return KVSUCCESS;
}

uint32_t KVIMeasureTextToRange(CONVERSION* conversion, bool estimate, uint64_t* bytes) {
  if (estimate) {
    const LISTDELIM delim = KVIListDelim(conversion->format);
    const char* const text_end = conversion->src + conversion->src_bytes;
    uint64_t entries = 0;
    for (const char* text = conversion->src; text != nullptr && text != text_end; ++entries)
      text = KVINextStretch(text, text_end, delim).next;
    *bytes = entries * 2 * kListValueBytes + kListHeadBytes;
    return KVSUCCESS;
  }
  uint64_t entries = 0;
  uint64_t ranges = 0;
  RANGEVALUE value;
  LISTSCAN scan = KVIStartScan(conversion->format, conversion->src, conversion->src_bytes);
  while (scan.index < scan.text_bytes) {
    const uint32_t status = KVIScanRange(*conversion, &scan, &value);
    if (status == KVFAIL_END_OF_DATA) break;
    if (status != KVSUCCESS) return status;
    ++entries;
    if (value.is_range) ++ranges;
    if (scan.index < scan.text_bytes) ++scan.index;  // over the separator
  }
  if (entries - ranges > kListEntriesMax) return KVFAIL_DATA_TOO_LONG;
  if (ranges > kListEntriesMax) return KVFAIL_DATA_TOO_LONG;
  conversion->counted = true;
  conversion->entry_count = static_cast<uint32_t>(entries - ranges);
  *bytes = KVIRangeListBytes(entries - ranges, ranges);
  return KVSUCCESS;
}

uint32_t KVIMeasureTextListToRange(CONVERSION* conversion, bool estimate, uint64_t* bytes) {
  if (estimate) {
    *bytes = uint64_t{conversion->count} * 2 * kListValueBytes + kListHeadBytes;
    return KVSUCCESS;
  }
  uint32_t ranges = 0;
  TEXTLISTWALK walk = KVIWalkTextList(conversion->src, conversion->count);
  for (uint32_t i = 0; i < conversion->count; ++i, KVINextEntry(&walk)) {
    LISTSCAN scan = KVIStartScan(conversion->format, walk.text, KVIEntryBytes(walk));
    RANGEVALUE value;
    const uint32_t status = KVIScanRange(*conversion, &scan, &value);
    if (status == KVFAIL_END_OF_DATA) return KVFAIL_BAD_FORMAT;  // an empty entry holds no value
    if (status != KVSUCCESS) return status;
    if (value.is_range) ++ranges;
  }
  conversion->counted = true;
  conversion->entry_count = conversion->count - ranges;
  *bytes = KVIRangeListBytes(conversion->entry_count, ranges);
  return KVSUCCESS;
}

uint32_t KVIMeasureRange(CONVERSION* conversion, bool, uint64_t* bytes) {
  *bytes = KVIRangeListBytes(conversion->count, conversion->range);
  return KVSUCCESS;
}

uint32_t KVIMeasureScalarRange(CONVERSION*, bool, uint64_t* bytes) {
  *bytes = KVIRangeListBytes(1, 0);
  return KVSUCCESS;
}

// Formulas

uint32_t KVIMeasureTextFormula(CONVERSION* conversion, bool, uint64_t* bytes) {
  EngMem formula = 0;
  uint16_t formula_bytes = 0;
  const uint32_t status = KVICompile(conversion, &formula, &formula_bytes);
  if (status != KVSUCCESS) return status;
  EngMemFree(formula);
  *bytes = formula_bytes;
  return KVSUCCESS;
}
