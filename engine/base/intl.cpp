#include "base/intl.h"

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "base/charset.h"
#include "base/number.h"
#include "base/process.h"
#include "base/text.h"
#include "base/time.h"

namespace brynd {
namespace {

constexpr INTLFORMAT kDefaults{.Flags = BRINTL_DATE_MDY | BRINTL_CLOCK_24 | BRINTL_LEADING_ZERO,
                               .CurrencyDigits = 2,
                               .Length = sizeof(INTLFORMAT),
                               .TimeZone = 0,
                               .AMString = "AM",
                               .PMString = "PM",
                               .CurrencyString = "$",
                               .ThousandString = ",",
                               .DecimalString = ".",
                               .DateString = "/",
                               .TimeString = ":",
                               .YesterdayString = "Yesterday",
                               .TodayString = "Today",
                               .TomorrowString = "Tomorrow"};

constexpr uint16_t kDateOrderMask = BRINTL_DATE_MDY | BRINTL_DATE_DMY | BRINTL_DATE_YMD;
constexpr uint64_t kCurrencyDigitsMax = 15;

// A setting whose value is one of a few words, each of which sets the bits of a mask.
struct WordRow {
  std::string_view setting, word;
  uint16_t mask, bits;
};
constexpr WordRow kWords[] = {{"DateOrder", "MDY", kDateOrderMask, BRINTL_DATE_MDY},
                              {"DateOrder", "DMY", kDateOrderMask, BRINTL_DATE_DMY},
                              {"DateOrder", "YMD", kDateOrderMask, BRINTL_DATE_YMD},
                              {"Clock", "12", BRINTL_CLOCK_24, 0},
                              {"Clock", "24", BRINTL_CLOCK_24, BRINTL_CLOCK_24},
                              {"CurrencyPosition", "before", BRINTL_CURRENCY_SUFFIX, 0},
                              {"CurrencyPosition", "behind", BRINTL_CURRENCY_SUFFIX, BRINTL_CURRENCY_SUFFIX},
                              {"CurrencySpace", "0", BRINTL_CURRENCY_SPACE, 0},
                              {"CurrencySpace", "1", BRINTL_CURRENCY_SPACE, BRINTL_CURRENCY_SPACE},
                              {"LeadingZero", "0", BRINTL_LEADING_ZERO, 0},
                              {"LeadingZero", "1", BRINTL_LEADING_ZERO, BRINTL_LEADING_ZERO}};

// A setting whose value is a text field of the record.
struct TextRow {
  std::string_view setting;
  size_t offset, field_bytes;
};
constexpr size_t kShort = sizeof(INTLFORMAT::AMString), kLong = sizeof(INTLFORMAT::TodayString);
constexpr TextRow kTexts[] = {{"AM", offsetof(INTLFORMAT, AMString), kShort},
                              {"PM", offsetof(INTLFORMAT, PMString), kShort},
                              {"CurrencySymbol", offsetof(INTLFORMAT, CurrencyString), kShort},
                              {"ThousandSeparator", offsetof(INTLFORMAT, ThousandString), kShort},
                              {"DecimalSeparator", offsetof(INTLFORMAT, DecimalString), kShort},
                              {"DateSeparator", offsetof(INTLFORMAT, DateString), kShort},
                              {"TimeSeparator", offsetof(INTLFORMAT, TimeString), kShort},
                              {"Yesterday", offsetof(INTLFORMAT, YesterdayString), kLong},
                              {"Today", offsetof(INTLFORMAT, TodayString), kLong},
                              {"Tomorrow", offsetof(INTLFORMAT, TomorrowString), kLong}};

void ApplyWord(const WordRow& row, INTLFORMAT* intl) {
  const std::optional<std::string> value = Process().settings->Get(row.setting);
  if (value && EqualFold(TrimBlanks(*value), row.word))
    intl->Flags = static_cast<uint16_t>((intl->Flags & ~row.mask) | row.bits);
}

// A value that does not fit whole, with its NUL, is passed over rather than cut.
void ApplyText(const TextRow& row, INTLFORMAT* intl) {
  const std::optional<std::string> value = Process().settings->Get(row.setting);
  if (!value) return;
  const std::string text = EngineFromUtf8(*value);
  if (text.size() >= row.field_bytes) return;
  char* field = reinterpret_cast<char*>(intl) + row.offset;
  std::memset(field, 0, row.field_bytes);
  CopyBytes(field, text.data(), text.size());
}

}  // namespace

const INTLFORMAT& DefaultIntl() noexcept { return kDefaults; }

INTLFORMAT IntlFromSettings() {
  INTLFORMAT intl = kDefaults;
  for (const WordRow& row : kWords) ApplyWord(row, &intl);
  for (const TextRow& row : kTexts) ApplyText(row, &intl);
  const std::optional<std::string> digits = Process().settings->Get("CurrencyDigits");
  if (digits) {
    const auto number = ParseWholeUnsigned(TrimBlanks(*digits), kCurrencyDigitsMax);
    if (number) intl.CurrencyDigits = static_cast<uint8_t>(*number);
  }
  const int64_t now = Process().clock->UnixNanoseconds() / 1'000'000'000;
  intl.TimeZone = ZoneNumber(LocalOffsetAt(now));
  if (LocalZoneHasDaylight(now)) intl.Flags |= BRINTL_DAYLIGHT;
  return intl;
}

}  // namespace brynd
