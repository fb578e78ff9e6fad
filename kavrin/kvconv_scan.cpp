// Values read off text: numbers, entries of lists, ranges. And back: one value of a list as text.
//
// All reading is bounded by the end of the text, not by a NUL, and steps forward or stops: a text from a
// damaged record is read no further than it goes.
#include <charconv>
#include <cmath>

#include "kvconv.h"

namespace {

constexpr int64_t kExponentCap = 1000000;

const char* SkipSpace(const char* text, const char* text_end) {
  while (text != text_end && KVIIsSpace(*text)) ++text;
  return text;
}

const char* SkipDigits(const char* text, const char* text_end) {
  while (text != text_end && KVIIsDigit(*text)) ++text;
  return text;
}

// True for a number out of range because it is too large, false because it is too small. [text, text_end) is
// a number without its sign.
bool IsTooLarge(const char* text, const char* text_end) {
  const char* fraction = SkipDigits(text, text_end);
  while (text != fraction && *text == '0') ++text;
  int64_t exponent = fraction - text;
  if (exponent == 0 && fraction != text_end && *fraction == '.') {
    const char* digit = fraction + 1;
    while (digit != text_end && *digit == '0') ++digit;
    exponent = fraction + 1 - digit;
  }
  while (fraction != text_end && *fraction != 'e' && *fraction != 'E') ++fraction;
  if (fraction == text_end) return exponent > 0;
  ++fraction;
  const bool negative = fraction != text_end && *fraction == '-';
  if (fraction != text_end && (*fraction == '-' || *fraction == '+')) ++fraction;
  int64_t written = 0;
  for (; fraction != text_end && KVIIsDigit(*fraction) && written < kExponentCap; ++fraction)
    written = written * 10 + (*fraction - '0');
  return exponent + (negative ? -written : written) > 0;
}

// Reads the value where the scan stands, up to the next separator. *at_end tells that nothing but white space
// was left; the scan stays then.
uint32_t ScanValue(uint32_t dest_type, const API_FORMAT* api_format, LISTSCAN* scan, void* value,
                   bool* at_end) {
  const char* const src_end = scan->text + scan->text_bytes;
  *at_end = true;
  if (scan->index >= scan->text_bytes) return KVFAIL_END_OF_DATA;
  const char* const start = SkipSpace(scan->text + scan->index, src_end);
  if (start == src_end) return KVFAIL_END_OF_DATA;
  *at_end = false;
  const auto start_index = static_cast<uint32_t>(start - scan->text);
  if (scan->entry_end < start_index) scan->entry_end = start_index;
  while (scan->entry_end != scan->text_bytes && !KVIIsDelim(scan->delim, scan->text[scan->entry_end]))
    ++scan->entry_end;
  const char* const entry_end = scan->text + scan->entry_end;

  char read[kListValueBytes] = {};
  const char* stop = start;
  uint32_t status = KVSUCCESS;
  if (KVIIsNumberKind(dest_type)) {
    double number;
    bool in_range;
    stop = KVIReadNumber(start, entry_end, &number, &in_range);
    if (!in_range) status = KVFAIL_DATA_TOO_LONG;
    KVIStore<double>(read, number);
  } else {
    TIMEDATE date{};
    status = KVIReadDate(start, entry_end, api_format, &date, &stop);
    KVIStore<TIMEDATE>(read, date);
  }
  if (status != KVSUCCESS) {
    scan->index = 0;
    return status;
  }
  const bool blank_separates = KVIIsDelim(scan->delim, ' ');
  while (stop != src_end && (*stop == '\t' || (*stop == ' ' && !blank_separates))) ++stop;
  if (value != nullptr) std::memcpy(value, read, sizeof read);
  scan->index = static_cast<uint32_t>(stop - scan->text);
  return KVSUCCESS;
}

}  // namespace

const char* KVIReadNumber(const char* text, const char* text_end, double* number, bool* in_range) {
  *number = 0;
  *in_range = true;
  const char* digits = SkipSpace(text, text_end);
  const bool negative = digits != text_end && *digits == '-';
  if (digits != text_end && (*digits == '-' || *digits == '+')) ++digits;
  const char* first = digits != text_end && *digits == '.' ? digits + 1 : digits;
  if (first == text_end || !KVIIsDigit(*first))
    return text;  // no names of special values, no hexadecimal digits
  double value = 0;
  const std::from_chars_result read = std::from_chars(digits, text_end, value, std::chars_format::general);
  if (read.ec == std::errc::result_out_of_range) value = IsTooLarge(digits, read.ptr) ? HUGE_VAL : 0;
  if (std::isinf(value)) *in_range = false;
  *number = negative ? -value : value;
  return read.ptr;
}

uint32_t ScanString(const char* src, uint32_t src_len, uint32_t dest_type, const FORMAT* format,
                    const API_FORMAT* api_format, uint32_t* index, void* value) {
  LISTSCAN scan = KVIStartScan(format != nullptr ? format : &api_format->format, src, src_len);
  scan.index = KVILoad<uint32_t>(index);
  bool at_end;
  const uint32_t status = ScanValue(dest_type, api_format, &scan, value, &at_end);
  KVIStore<uint32_t>(index, scan.index);
  return status;
}

uint32_t KVIScanRange(const CONVERSION& conversion, LISTSCAN* scan, RANGEVALUE* value) {
  bool at_end;
  uint32_t status = ScanValue(conversion.dest_type, conversion.api_format, scan, value->low, &at_end);
  if (at_end) return KVFAIL_END_OF_DATA;
  if (status == KVFAIL_DATA_TOO_LONG) return status;
  if (status != KVSUCCESS || scan->index == 0) return KVFAIL_BAD_FORMAT;
  value->is_range = scan->index < scan->text_bytes && scan->text[scan->index] == '-';
  if (!value->is_range) return KVSUCCESS;
  ++scan->index;
  status = ScanValue(conversion.dest_type, conversion.api_format, scan, value->high, &at_end);
  if (status == KVFAIL_DATA_TOO_LONG) return status;
  return status == KVSUCCESS ? KVSUCCESS : KVFAIL_BAD_FORMAT;  // a range without its high end is no range
}

uint16_t KVIFormatValue(const INTLFORMAT* intl, const FORMAT* format, uint32_t type, const void* value,
                        char* text, uint16_t* text_bytes) {
  *text_bytes = 0;
  if (KVIIsNumberKind(type)) {
    const double number = KVILoad<double>(value);
    return EngNumberToText(intl, &format->nfmt, &number, text, kNumberTextMax, text_bytes);
  }
  const TIMEDATE date = KVILoad<TIMEDATE>(value);
  return EngTimedateToText(intl, &format->tfmt, &date, text, kDatetimeTextMax, text_bytes);
}

uint16_t ListType2String(const void* src, char* dest, uint32_t src_type, uint32_t dest_type,
                         const FORMAT* format, const API_FORMAT* api_format) {
  const bool is_text = dest_type == KVTYPE_TEXT;
  if (!is_text && dest_type != KVTYPE_TEXTLIST) {
    *dest = 0;
    return 0;
  }
  char text[kDatetimeTextMax + 1];
  uint16_t text_bytes = 0;
  uint16_t brstatus = kEngNotAvailable;
  if (src_type == KVTYPE_NUMBERLIST || src_type == KVTYPE_DATETIMELIST)
    brstatus = KVIFormatValue(&api_format->intl, format, src_type, src, text, &text_bytes);
  if (brstatus != 0) text_bytes = 0;
  KVICopyBytes(dest, text, text_bytes);
  if (is_text) dest[text_bytes] = 0;
  return text_bytes;
}

// Bytes of the text that are whole characters, when a length limit may have cut its last one. A prefix at the
// end has lost what follows it; so has a 3-byte prefix in the last place but one, unless it is itself the
// second byte of a character.
static uint32_t WholeCharacterBytes(const char* text, uint32_t text_bytes) {
  const auto prefix = [&](uint32_t back) {
    return text_bytes < back ? 0u : kCharacterBytes[static_cast<unsigned char>(text[text_bytes - back])];
  };
  constexpr uint32_t kThreeBytes = 3;
  if (prefix(1) != 0) return prefix(2) == kThreeBytes ? text_bytes - 2 : text_bytes - 1;
  if (prefix(2) == kThreeBytes && prefix(3) != kThreeBytes) return text_bytes - 2;
  return text_bytes;
}

bool ReviseSplitCharacter(uint32_t* pbufflen, const void* buffer) {
  if (pbufflen == nullptr || buffer == nullptr) return false;
  const uint32_t text_bytes = KVILoad<uint32_t>(pbufflen);
  if (text_bytes == 0) return false;
  KVIStore<uint32_t>(pbufflen, WholeCharacterBytes(static_cast<const char*>(buffer), text_bytes));
  return true;
}

bool ReviseSplitCharacter(uint32_t* pbufflen, char* buffer, int write) {
  const uint32_t before = pbufflen == nullptr ? 0 : KVILoad<uint32_t>(pbufflen);
  if (!ReviseSplitCharacter(pbufflen, static_cast<const void*>(buffer))) return false;
  const uint32_t after = KVILoad<uint32_t>(pbufflen);
  if (write != 0 && after != before) buffer[after] = 0;
  return true;
}
