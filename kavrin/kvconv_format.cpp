// Display formats: between their public and internal forms, and the separators of lists that they stand for.
#include <iterator>

#include "kvconv.h"

namespace {

constexpr uint32_t kDisplayShift = 12;
constexpr uint32_t kAllowMask = 0x1f;
constexpr uint32_t kAttributeMask = 7;

// Display separators by number; a number beyond the table shows as the first.
constexpr struct {
  const char* text;
  uint32_t bytes;
} kDisplaySeparators[] = {{", ", 2}, {" ", 1}, {", ", 2}, {"; ", 2}, {"\n", 1}, {"\n\n", 2}};

// Allowed separators in the order in which they are told. The blank line is a line feed to a scanner too.
constexpr struct {
  uint32_t bit;
  char character;
} kAllowedSeparators[] = {{KVLISTSEP_BLANK, ' '},
                          {KVLISTSEP_COMMA, ','},
                          {KVLISTSEP_SEMICOLON, ';'},
                          {KVLISTSEP_NEWLINE, '\n'},
                          {KVLISTSEP_BLANK_LINE, '\n'}};
constexpr char kDefaultSeparators[] = ";,\n";

bool IsIn(int32_t value, int32_t last) { return value >= 0 && value <= last; }

}  // namespace

void GetFormat(KVFORMAT* format, const NFMT* nfmt, const TFMT* tfmt, const void* listsep) {
  KVFORMAT out{};
  out.number.decimal_digits = nfmt->Digits;
  out.number.number = nfmt->Format;
  out.number.numdisp_flags = nfmt->Attributes;
  out.datetime.date = tfmt->Date;
  out.datetime.time = tfmt->Time;
  out.datetime.zone = tfmt->Zone;
  out.datetime.datetime = tfmt->Structure;
  const uint16_t separators = KVILoad<uint16_t>(listsep);
  out.listsep.display = separators >> kDisplayShift;
  out.listsep.sepallow_flags = separators & 0xfffu;
  KVIStore<KVFORMAT>(format, out);
}

uint32_t PutFormat(const KVFORMAT* format, NFMT* nfmt, TFMT* tfmt, void* listsep) {
  const KVFORMAT in = KVILoad<KVFORMAT>(format);
  if (nfmt != nullptr && !IsIn(in.number.number, KVNUMFORMAT_CURRENCY)) return KVFAIL_BAD_ENUM;
  if (tfmt != nullptr && !IsIn(in.datetime.date, KVDATEFORMAT_YEAR_MONTH)) return KVFAIL_BAD_ENUM;
  if (tfmt != nullptr && !IsIn(in.datetime.time, KVTIMEFORMAT_MINUTES)) return KVFAIL_BAD_ENUM;
  if (tfmt != nullptr && !IsIn(in.datetime.zone, KVZONEFORMAT_ALWAYS)) return KVFAIL_BAD_ENUM;
  if (tfmt != nullptr && !IsIn(in.datetime.datetime, KVDTFORMAT_DATETIME_WORDS)) return KVFAIL_BAD_ENUM;
  if (listsep != nullptr && !IsIn(in.listsep.display, KVLISTDISP_BLANK_LINE)) return KVFAIL_BAD_ENUM;
  if (nfmt != nullptr)
    *nfmt = {.Digits = static_cast<uint8_t>(in.number.decimal_digits),
             .Format = static_cast<uint8_t>(in.number.number),
             .Attributes = static_cast<uint8_t>(in.number.numdisp_flags & kAttributeMask),
             .Unused = 0};
  if (tfmt != nullptr)
    *tfmt = {.Date = static_cast<uint8_t>(in.datetime.date),
             .Time = static_cast<uint8_t>(in.datetime.time),
             .Zone = static_cast<uint8_t>(in.datetime.zone),
             .Structure = static_cast<uint8_t>(in.datetime.datetime)};
  if (listsep != nullptr)
    KVIStore<uint16_t>(listsep,
                       static_cast<uint16_t>(static_cast<uint32_t>(in.listsep.display) << kDisplayShift |
                                             (in.listsep.sepallow_flags & kAllowMask)));
  return KVSUCCESS;
}

uint32_t GetListDispDelim(const FORMAT* format, char* delim) {
  uint32_t display = format->listsep >> kDisplayShift;
  if (display >= std::size(kDisplaySeparators)) display = KVLISTDISP_DEFAULT;
  const auto& separator = kDisplaySeparators[display];
  std::memcpy(delim, separator.text, separator.bytes + 1);
  return separator.bytes;
}

uint32_t GetListAllowDelim(const FORMAT* format, char* delim) {
  uint32_t count = 0;
  for (const auto& separator : kAllowedSeparators)
    if ((format->listsep & separator.bit) != 0) delim[count++] = separator.character;
  if (count == 0) {
    std::memcpy(delim, kDefaultSeparators, sizeof kDefaultSeparators);
    return sizeof kDefaultSeparators - 1;
  }
  delim[count] = 0;
  return count;
}

LISTDELIM KVIListDelim(const FORMAT* format) {
  LISTDELIM delim;
  delim.count = GetListAllowDelim(format, delim.characters);
  return delim;
}
