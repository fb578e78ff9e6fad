// Dates and times read off text, in any order and in the conventions of the session's international settings.
//
// The readers are forgiving about separators and month names, and exact about where they stopped. Each works
// on a cursor that knows its end: a character beyond it reads as NUL, which is neither blank, digit, letter
// nor separator.
#include <algorithm>
#include <iterator>

#include "kvconv.h"

namespace {

constexpr uint32_t kMonthCount = 12;
constexpr uint32_t kShortMonthBytes = 3;
constexpr int32_t kNumberCap =
    100000000;  // no field of a date is larger; more digits are stepped over, not counted
constexpr int32_t kHourNoon = 12;
constexpr int32_t kHourMax = 23;
constexpr int32_t kMinuteMax = 59;
constexpr int32_t kCentury = 100;
constexpr int32_t kDayOrYear = 99;  // a comma is looked for behind a number below this
constexpr int32_t kNoValue = -1;
constexpr uint16_t kDayFirst = 0x40;
constexpr uint16_t kYearFirst = 0x80;
constexpr uint32_t kSettingBytesMax = 5;

constexpr const char* month_name[kMonthCount] = {"january",   "february", "march",    "april",
                                                 "may",       "june",     "july",     "august",
                                                 "september", "october",  "november", "december"};

struct CURSOR {
  const char* at;
  const char* end;

  char Peek() const { return at == end ? char{0} : *at; }
  void SkipSpace() {
    while (KVIIsSpace(Peek())) ++at;
  }
};

// A separator or word of the settings. An empty one matches nothing.
struct SETTING {
  const char* text;
  uint32_t bytes;
};
SETTING DateSeparator(const API_FORMAT& format) {
  return {format.intl.DateString, std::min<uint32_t>(format.datesep_len, kSettingBytesMax)};
}
SETTING TimeSeparator(const API_FORMAT& format) {
  return {format.intl.TimeString, std::min<uint32_t>(format.timesep_len, kSettingBytesMax)};
}
SETTING Morning(const API_FORMAT& format) {
  return {format.intl.AMString, std::min<uint32_t>(format.amstring_len, kSettingBytesMax)};
}
SETTING Afternoon(const API_FORMAT& format) {
  return {format.intl.PMString, std::min<uint32_t>(format.pmstring_len, kSettingBytesMax)};
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualsIgnoringCase(const char* first, const char* second, uint32_t bytes) {
  for (uint32_t i = 0; i < bytes; ++i)
    if (Lower(first[i]) != Lower(second[i])) return false;
  return true;
}

bool StartsWith(const CURSOR& cursor, const SETTING& setting) {
  return setting.bytes != 0 && static_cast<size_t>(cursor.end - cursor.at) >= setting.bytes &&
         std::memcmp(cursor.at, setting.text, setting.bytes) == 0;
}

// Bytes of the separator that stands here, 0 for none. That of the settings goes first: it may be longer.
uint32_t DateSeparatorBytes(const CURSOR& cursor, const API_FORMAT& format) {
  const SETTING separator = DateSeparator(format);
  if (StartsWith(cursor, separator)) return separator.bytes;
  return cursor.Peek() == '/' || cursor.Peek() == '-' ? 1 : 0;
}
uint32_t TimeSeparatorBytes(const CURSOR& cursor, const API_FORMAT& format) {
  const SETTING separator = TimeSeparator(format);
  if (StartsWith(cursor, separator)) return separator.bytes;
  return cursor.Peek() == ':' ? 1 : 0;
}

// The decimal number here, 0 when there is none.
int32_t ReadDigits(CURSOR* cursor) {
  int32_t number = 0;
  for (; KVIIsDigit(cursor->Peek()); ++cursor->at)
    if (number < kNumberCap) number = number * 10 + (*cursor->at - '0');
  return number;
}

int32_t ReadMonth(CURSOR* cursor) {
  if (static_cast<size_t>(cursor->end - cursor->at) < kShortMonthBytes) return 0;
  for (uint32_t month = 0; month < kMonthCount; ++month) {
    if (!EqualsIgnoringCase(cursor->at, month_name[month], kShortMonthBytes)) continue;
    cursor->at += kShortMonthBytes;
    // The rest of the name counts in lower case alone; what is left of it fails the caller's next step.
    const char* rest = month_name[month] + kShortMonthBytes;
    if (KVIIsLetter(cursor->Peek()))
      for (; *rest != 0 && cursor->Peek() == *rest; ++rest) ++cursor->at;
    if (cursor->Peek() == '.') ++cursor->at;
    return static_cast<int32_t>(month + 1);
  }
  return 0;
}

// What a date is made of before it is known which number is which.
struct DATEPARTS {
  int32_t num1;
  int32_t num2;
  int32_t num3;
  int32_t month;  // told by name, else 0
};

// Three numbers with separators; the first has been read.
uint32_t ReadNumericDate(CURSOR* cursor, const API_FORMAT& format, DATEPARTS* parts) {
  if (parts->num1 == 0) return KVFAIL_BAD_FORMAT;
  cursor->at += DateSeparatorBytes(*cursor, format);
  cursor->SkipSpace();
  parts->num2 = ReadDigits(cursor);
  cursor->SkipSpace();
  const uint32_t separator_bytes = DateSeparatorBytes(*cursor, format);
  if (separator_bytes == 0) return KVFAIL_BAD_FORMAT;
  cursor->at += separator_bytes;
  parts->num3 = ReadDigits(cursor);
  return KVSUCCESS;
}

// A month name beside one or two numbers; the first of them, or the name, has been read.
uint32_t ReadWordDate(CURSOR* cursor, const API_FORMAT& format, DATEPARTS* parts) {
  if (parts->num1 != 0) {
    parts->month = ReadMonth(cursor);
    if (parts->month == 0) return KVFAIL_BAD_FORMAT;
  } else {
    if (cursor->Peek() == ',') ++cursor->at;
    cursor->SkipSpace();
    if (!KVIIsDigit(cursor->Peek())) return KVFAIL_BAD_FORMAT;
    parts->num1 = ReadDigits(cursor);
  }
  const CURSOR before_year = *cursor;
  cursor->SkipSpace();
  if (parts->num1 < kDayOrYear && cursor->Peek() == ',') {
    ++cursor->at;
    cursor->SkipSpace();
  }
  if (!KVIIsDigit(cursor->Peek())) return KVSUCCESS;
  parts->num2 = ReadDigits(cursor);
  cursor->SkipSpace();
  if (TimeSeparatorBytes(*cursor, format) != 0) {  // it was the hour of a time
    parts->num2 = 0;
    *cursor = before_year;
  }
  return KVSUCCESS;
}

// Year, month and day of the parts.
void AssignDate(const DATEPARTS& parts, uint16_t intl_flags, TIME* time) {
  const int32_t present_year = time->year;
  int32_t year = 0;
  if (parts.month != 0) {
    time->month = parts.month;
    time->day = parts.num1;
    if (parts.num2 != 0) {
      year = parts.num2;
    } else if (parts.num1 >= kCentury) {
      year = parts.num1;
      time->day = 1;
    }
  } else if ((intl_flags & kDayFirst) != 0) {
    time->month = parts.num2;
    time->day = parts.num1;
    year = parts.num3;
  } else if ((intl_flags & kYearFirst) != 0) {
    year = parts.num1;
    time->month = parts.num2;
    time->day = parts.num3;
  } else {
    time->month = parts.num1;
    time->day = parts.num2;
    year = parts.num3;
  }
  if (year == 0)
    year = present_year;
  else if (year < kCentury)
    year += present_year / kCentury * kCentury;
  time->year = year;
  time->weekday = 0;
}

uint32_t ReadDatePart(CURSOR* cursor, const API_FORMAT& format, TIME* time) {
  DATEPARTS parts{};
  cursor->SkipSpace();
  if (KVIIsDigit(cursor->Peek())) {
    parts.num1 = ReadDigits(cursor);
  } else {
    parts.month = ReadMonth(cursor);
    if (parts.month == 0) return KVFAIL_END_OF_DATA;
  }
  cursor->SkipSpace();
  const bool is_numeric = DateSeparatorBytes(*cursor, format) != 0;
  const uint32_t status =
      is_numeric ? ReadNumericDate(cursor, format, &parts) : ReadWordDate(cursor, format, &parts);
  if (status != KVSUCCESS) return status;
  AssignDate(parts, format.intl.Flags, time);
  return KVSUCCESS;
}

// Hour, and minute, second and hundredths as far as they are given.
uint32_t ReadClock(CURSOR* cursor, const API_FORMAT& format, TIME* time) {
  int32_t numbers[4] = {};
  for (uint32_t i = 0; i < std::size(numbers); ++i) {
    cursor->SkipSpace();
    if (!KVIIsDigit(cursor->Peek())) return i == 0 ? KVFAIL_END_OF_DATA : KVFAIL_BAD_FORMAT;
    numbers[i] = ReadDigits(cursor);
    if (i == 3) break;
    cursor->SkipSpace();
    uint32_t separator_bytes = TimeSeparatorBytes(*cursor, format);
    if (separator_bytes == 0 && i == 2 && cursor->Peek() == '.') separator_bytes = 1;
    if (separator_bytes == 0) break;
    cursor->at += separator_bytes;
  }
  while (numbers[3] >= 100) numbers[3] /= 10;  // the first two digits as they stand, not as a fraction
  time->hour = numbers[0];
  time->minute = numbers[1];
  time->second = numbers[2];
  time->hundredth = numbers[3];
  return KVSUCCESS;
}

uint32_t ReadTimePart(CURSOR* cursor, const API_FORMAT& format, TIME* time) {
  TIME read{};
  if (const uint32_t status = ReadClock(cursor, format, &read); status != KVSUCCESS) return status;
  cursor->SkipSpace();
  const auto starts_with = [&](const SETTING& word) {
    return word.bytes != 0 && static_cast<size_t>(cursor->end - cursor->at) >= word.bytes &&
           EqualsIgnoringCase(cursor->at, word.text, word.bytes);
  };
  if (starts_with(Afternoon(format))) {
    cursor->at += Afternoon(format).bytes;
    // Twelve o'clock sharp goes to 24 and is refused below, the minutes after it stay at 12: as applications
    // know it.
    const bool sharp = read.minute == 0 && read.second == 0 && read.hundredth == 0;
    if (read.hour < kHourNoon || (read.hour == kHourNoon && sharp)) read.hour += kHourNoon;
  } else if (starts_with(Morning(format))) {
    cursor->at += Morning(format).bytes;
  }
  if (read.hour > kHourMax) return KVFAIL_BAD_FORMAT;
  if (read.minute > kMinuteMax) return KVFAIL_BAD_FORMAT;
  if (read.second > kMinuteMax) return KVFAIL_BAD_FORMAT;
  time->hour = read.hour;
  time->minute = read.minute;
  time->second = read.second;
  time->hundredth = read.hundredth;
  return KVSUCCESS;
}

// Whether a time or a date comes first, decided by the first character that is neither digit nor blank nor
// noise.
enum class Order { kTimeFirst, kDateFirst, kNeither };

Order FindOrder(CURSOR cursor, const API_FORMAT& format) {
  for (; cursor.at != cursor.end; ++cursor.at) {
    if (TimeSeparatorBytes(cursor, format) != 0) return Order::kTimeFirst;
    if (KVIIsLetter(*cursor.at) || DateSeparatorBytes(cursor, format) != 0) return Order::kDateFirst;
  }
  return Order::kNeither;
}

void SetNow(TIME* time) {
  int32_t zone = 0;
  int32_t in_summer = 0;
  EngTimedateNow(&time->GM);
  EngTimeZoneGet(&zone, &in_summer);
  time->zone = zone;
  time->dst = in_summer;
  EngTimeToLocalZone(time);
}

uint32_t ReadTimeFirst(CURSOR* cursor, const API_FORMAT& format, TIME* time) {
  if (const uint32_t status = ReadTimePart(cursor, format, time); status != KVSUCCESS) return status;
  CURSOR behind = *cursor;
  const uint32_t status = ReadDatePart(&behind, format, time);
  if (status == KVFAIL_END_OF_DATA) {
    time->year = time->month = time->day = kNoValue;
    time->zone = 0;
    return KVSUCCESS;
  }
  *cursor = behind;
  return status;
}

uint32_t ReadDateFirst(CURSOR* cursor, const API_FORMAT& format, TIME* time) {
  if (const uint32_t status = ReadDatePart(cursor, format, time); status != KVSUCCESS) return status;
  CURSOR behind = *cursor;
  const uint32_t status = ReadTimePart(&behind, format, time);
  if (status == KVFAIL_END_OF_DATA) {
    time->hour = time->minute = time->second = time->hundredth = kNoValue;
    time->dst = 0;
    return KVSUCCESS;
  }
  *cursor = behind;
  return status;
}

CURSOR CursorOn(const char* string) { return {string, string + std::strlen(string)}; }

}  // namespace

uint32_t KVIReadDate(const char* text, const char* text_end, const API_FORMAT* format, TIMEDATE* date,
                     const char** stop) {
  *stop = text;
  const void* nul = text == text_end ? nullptr : std::memchr(text, 0, static_cast<size_t>(text_end - text));
  CURSOR cursor{text, nul == nullptr ? text_end : static_cast<const char*>(nul)};
  const Order order = FindOrder(cursor, *format);
  if (order == Order::kNeither) {  // a bare number is no date
    std::memset(date, 0xff, sizeof *date);
    return KVFAIL_BAD_FORMAT;
  }
  TIME time{};
  SetNow(&time);
  const uint32_t status = order == Order::kTimeFirst ? ReadTimeFirst(&cursor, *format, &time)
                                                     : ReadDateFirst(&cursor, *format, &time);
  if (status != KVSUCCESS) return status;
  *stop = cursor.at;
  if (EngTimeFromLocal(&time) != 0) return KVFAIL_BAD_FORMAT;
  KVIStore<TIMEDATE>(date, time.GM);
  return KVSUCCESS;
}

uint32_t String2Date(const char* string, const API_FORMAT* format, TIMEDATE* date, const char** end_ptr) {
  const char* stop = string;
  const uint32_t status = KVIReadDate(string, string + std::strlen(string), format, date, &stop);
  KVIStoreIf<const char*>(end_ptr, stop);
  return status;
}

uint32_t GetDate(const char* buffer, const API_FORMAT* format, TIME* time, const char** end_ptr) {
  CURSOR cursor = CursorOn(buffer);
  if (const uint32_t status = ReadDatePart(&cursor, *format, time); status != KVSUCCESS) return status;
  *end_ptr = cursor.at;
  return KVSUCCESS;
}

uint32_t GetTime(const char* buffer, const API_FORMAT* format, TIME* time, const char** end_ptr) {
  CURSOR cursor = CursorOn(buffer);
  if (const uint32_t status = ReadTimePart(&cursor, *format, time); status != KVSUCCESS) return status;
  *end_ptr = cursor.at;
  return KVSUCCESS;
}

uint32_t GetMonth(const char** data) {
  CURSOR cursor = CursorOn(*data);
  const int32_t month = ReadMonth(&cursor);
  if (month != 0) *data = cursor.at;
  return static_cast<uint32_t>(month);
}
