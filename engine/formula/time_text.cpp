#include "formula/time_text.h"

#include <cstring>

#include "base/text.h"

namespace brynd::formula {

namespace {

constexpr int32_t kCenturyPivot = 50;  // two digits from here on are of the 20th century
constexpr int64_t kHundredthsPerMinute = 6000;

// Reads from the front of a text; a step that finds nothing leaves it as it is.
class Scan {
 public:
  explicit Scan(std::string_view text) : text_(TrimBlanks(text)) {}

  bool AtEnd() const { return text_.empty(); }
  void SkipBlanks() { text_ = TrimBlanks(text_); }
  bool NextIsDigit() const { return !text_.empty() && IsDigit(text_[0]); }

  bool Number(int32_t* number, size_t* digits, size_t digits_max) {
    *number = 0;
    *digits = 0;
    while (*digits < text_.size() && *digits < digits_max && IsDigit(text_[*digits]))
      *number = *number * 10 + (text_[(*digits)++] - '0');
    text_.remove_prefix(*digits);
    return *digits != 0;
  }
  bool Word(std::string_view word) {
    if (word.empty() || !StartsWithFold(text_, word)) return false;
    text_.remove_prefix(word.size());
    return true;
  }
  bool AnyOf(std::string_view letters) {
    if (text_.empty() || letters.find(text_[0]) == letters.npos) return false;
    text_.remove_prefix(1);
    return true;
  }

 private:
  std::string_view text_;
};

struct Fields {
  bool has_date = false, has_time = false, has_zone = false;
  int32_t year = 0, month = 0, day = 0;
  uint32_t ticks = 0;
  int32_t offset_minutes = 0;
};

// Which group of digits is the year, the month, the day.
struct DateOrder {
  int year, month, day;
};
DateOrder OrderOf(uint16_t flags, size_t first_digits) {
  constexpr DateOrder kYearFirst{0, 1, 2}, kMonthFirst{2, 0, 1}, kDayFirst{2, 1, 0};
  if (first_digits > 2) return kYearFirst;
  if ((flags & BRINTL_DATE_MDY) != 0) return kMonthFirst;
  if ((flags & BRINTL_DATE_DMY) != 0) return kDayFirst;
  return (flags & BRINTL_DATE_YMD) != 0 ? kYearFirst : kMonthFirst;
}

bool DateSign(const INTLFORMAT& intl, Scan* scan) {
  return scan->Word(FieldText(intl.DateString)) || scan->AnyOf("/-.");
}

bool TimeSign(const INTLFORMAT& intl, Scan* scan) {
  return scan->Word(FieldText(intl.TimeString)) || scan->AnyOf(":");
}

// From behind the first group of digits.
bool ReadDate(const INTLFORMAT& intl, Scan* scan, int32_t first, size_t first_digits, Fields* fields) {
  int32_t groups[3] = {first, 0, 0};
  size_t digits[3] = {first_digits, 0, 0};
  if (!scan->Number(&groups[1], &digits[1], 2) || !DateSign(intl, scan)) return false;
  if (!scan->Number(&groups[2], &digits[2], 5)) return false;
  const DateOrder order = OrderOf(intl.Flags, first_digits);
  fields->year = groups[order.year];
  fields->month = groups[order.month];
  fields->day = groups[order.day];
  if (digits[order.year] <= 2) fields->year += fields->year < kCenturyPivot ? 2000 : 1900;
  fields->has_date = true;
  return IsDate(fields->year, fields->month, fields->day);
}

// From behind the sign after the hours.
bool ReadClock(const INTLFORMAT& intl, Scan* scan, int32_t hour, Fields* fields) {
  int32_t minute = 0, second = 0, hundredth = 0;
  size_t digits = 0;
  if (!scan->Number(&minute, &digits, 2)) return false;
  if (TimeSign(intl, scan) && !scan->Number(&second, &digits, 2)) return false;
  if (scan->AnyOf(".,")) {
    if (!scan->Number(&hundredth, &digits, 2)) return false;
    if (digits == 1) hundredth *= 10;
  }
  scan->SkipBlanks();
  const bool afternoon = scan->Word(FieldText(intl.PMString)) || scan->Word("PM");
  const bool morning = !afternoon && (scan->Word(FieldText(intl.AMString)) || scan->Word("AM"));
  if ((afternoon || morning) && (hour < 1 || hour > 12)) return false;
  if (afternoon || morning) hour = hour % 12 + (afternoon ? 12 : 0);
  if (hour > 23 || minute > 59 || second > 59) return false;
  fields->ticks = static_cast<uint32_t>(((hour * 60 + minute) * 60 + second) * 100 + hundredth);
  fields->has_time = true;
  return true;
}

// GMT, or GMT+05:30.
bool ReadZone(Scan* scan, Fields* fields) {
  if (!scan->Word("GMT")) return false;
  fields->has_zone = true;
  const bool is_east = scan->Word("+");
  if (!is_east && !scan->Word("-")) return true;
  int32_t hours = 0, minutes = 0;
  size_t digits = 0;
  if (!scan->Number(&hours, &digits, 2)) return false;
  if (scan->Word(":") && !scan->Number(&minutes, &digits, 2)) return false;
  if (hours > 14 || minutes > 59) return false;
  fields->offset_minutes = (is_east ? 1 : -1) * (hours * 60 + minutes);
  return true;
}

bool ReadFields(const INTLFORMAT& intl, Scan* scan, Fields* fields) {
  int32_t number = 0;
  size_t digits = 0;
  if (!scan->Number(&number, &digits, 5)) return false;
  // A sign that both use parts a date: only the rest can then tell a time, and a place that writes so knows
  // its dates.
  const bool is_date = FieldText(intl.TimeString) == FieldText(intl.DateString) || !TimeSign(intl, scan);
  if (is_date) {
    if (!DateSign(intl, scan) || !ReadDate(intl, scan, number, digits, fields)) return false;
    scan->SkipBlanks();
    if (!scan->NextIsDigit()) return scan->AtEnd();
    if (!scan->Number(&number, &digits, 2) || !TimeSign(intl, scan)) return false;
  }
  if (digits > 2 || !ReadClock(intl, scan, number, fields)) return false;
  scan->SkipBlanks();
  if (fields->has_date && !scan->AtEnd() && !ReadZone(scan, fields)) return false;
  scan->SkipBlanks();
  return scan->AtEnd();
}

}  // namespace

TIMEDATE InstantHere(int32_t julian_day, uint32_t ticks) {
  const int64_t shown = UnixHundredths({{ticks, static_cast<uint32_t>(julian_day)}});
  int64_t instant = shown;
  for (int round = 0; round < 2; ++round)
    instant = shown - LocalOffsetAt(instant / 100).offset_minutes * kHundredthsPerMinute;
  return TimedateOfUnixHundredths(instant, ZoneByte(LocalOffsetAt(instant / 100)));
}

bool ReadTime(const INTLFORMAT& intl, std::string_view text, TIMEDATE* time) {
  Scan scan(text);
  Fields fields;
  if (!ReadFields(intl, &scan, &fields)) return false;
  if (fields.has_date && fields.has_time) {
    const int32_t day = JulianDay(fields.year, fields.month, fields.day);
    TIMEDATE instant{{fields.ticks, static_cast<uint32_t>(day)}};
    if (fields.has_zone) {
      const int64_t shown = UnixHundredths(instant);
      instant = TimedateOfUnixHundredths(shown - fields.offset_minutes * kHundredthsPerMinute,
                                         ZoneByte({fields.offset_minutes, false}));
    } else {
      instant = InstantHere(day, fields.ticks);
    }
    if (!IsValidTimedate(instant)) return false;
    *time = instant;
    return true;
  }
  *time = {{kNoTicks, kNoDay}};
  if (fields.has_date)
    time->Innards[1] = static_cast<uint32_t>(JulianDay(fields.year, fields.month, fields.day));
  if (fields.has_time) time->Innards[0] = fields.ticks;
  return true;
}

std::string TimeText(const INTLFORMAT& intl, const TIMEDATE& time) {
  char text[kTimeTextBytesMax];
  size_t text_bytes = 0;
  const TFMT format{static_cast<uint8_t>(DateStyle::kFull), static_cast<uint8_t>(TimeStyle::kSeconds),
                    static_cast<uint8_t>(ZoneStyle::kNever), static_cast<uint8_t>(TimeStructure::kBoth)};
  if (TimeToText(intl, format, time, text, &text_bytes) != status::kOk) return {};
  return {text, text_bytes};
}

}  // namespace brynd::formula
