// Instants, the calendar and zones.
// An instant is a TIMEDATE: hundredths since midnight GMT (0xffffffff: no time), Julian day GMT in 24 bits
// (0xffffff: no date) and above them the zone it was made in: 0x80 daylight saving, 0x40 east, 0x30 quarter
// hours, 0x0f hours.
// (1) Calendar: proleptic Gregorian, years 1 to 32767, no leap seconds.
// (2) A date without a time and a time without a date have no zone: zone byte 0, and they are never shifted.
// (3) Local time here is that of the system's zone database at the instant in question, to the whole minute.
// (4) TIME.zone counts hours west of GMT, east negative, plus or minus 100 for each minute off the hour, of
//     standard time; dst adds one hour to the local time. Where daylight saving is not one hour, zone takes
//     up the difference.
#ifndef BRYND_BASE_TIME_H
#define BRYND_BASE_TIME_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "base/bytes.h"
#include "base/status.h"
#include "brynd_types.h"

namespace brynd {

inline constexpr uint32_t kNoTicks = 0xffffffff, kNoDay = 0x00ffffff, kDayMask = 0x00ffffff;
inline constexpr uint32_t kTicksPerSecond = 100, kTicksPerMinute = 6000, kTicksPerHour = 360000;
inline constexpr uint32_t kTicksPerDay = 8640000;
inline constexpr int32_t kYearMin = 1, kYearMax = 32767;
inline constexpr int32_t kUnixJulianDay = 2440588;  // 1970-01-01
inline constexpr int32_t kJulianDayMin = 1721426;   // 0001-01-01
inline constexpr int32_t kJulianDayMax = 13689325;  // 32767-12-31

// The Julian day of a date of the proleptic Gregorian calendar; month and day must be in range, any year of
// 32 bits / 400.
int32_t JulianDay(int32_t year, int32_t month, int32_t day) noexcept;
struct CalendarDate {
  int32_t year, month, day;
};
CalendarDate DateOfJulianDay(int32_t julian_day) noexcept;
int32_t DaysInMonth(int32_t year, int32_t month) noexcept;
bool IsDate(int32_t year, int32_t month, int32_t day) noexcept;  // in the calendar, years 1 to 32767
// Sunday is 1.
constexpr int32_t WeekdayOfJulianDay(int32_t julian_day) noexcept { return (julian_day + 1) % 7 + 1; }

inline uint32_t TicksOf(const TIMEDATE& time) noexcept { return time.Innards[0]; }
inline uint32_t DayOf(const TIMEDATE& time) noexcept { return time.Innards[1] & kDayMask; }
inline uint8_t ZoneByteOf(const TIMEDATE& time) noexcept {
  return static_cast<uint8_t>(time.Innards[1] >> 24);
}
inline bool HasTime(const TIMEDATE& time) noexcept { return time.Innards[0] != kNoTicks; }
inline bool HasDate(const TIMEDATE& time) noexcept { return DayOf(time) != kNoDay; }
// No date and no time: the wildcard, which as a since-time takes everything.
inline bool IsWildcard(const TIMEDATE& time) noexcept { return !HasTime(time) && !HasDate(time); }
// False for damaged words: a time of day beyond 24 hours, a day outside the calendar.
bool IsValidTimedate(const TIMEDATE& time) noexcept;

inline constexpr TIMEDATE kWildcardTime{{kNoTicks, kNoDay}};
inline constexpr TIMEDATE kSmallestTime{{0, kJulianDayMin}};
inline constexpr TIMEDATE kLargestTime{{kTicksPerDay - 1, kJulianDayMax}};

// The order of instants, zones ignored: by day, then time of day; a missing part stands before all others.
constexpr uint64_t InstantKey(const TIMEDATE& time) noexcept {
  const uint32_t day = time.Innards[1] & kDayMask;
  return uint64_t{day == kNoDay ? 0 : day} << 32 |
         (time.Innards[0] == kNoTicks ? 0 : uint64_t{time.Innards[0]} + 1);
}
constexpr int InstantCompare(const TIMEDATE& left, const TIMEDATE& right) noexcept {
  const uint64_t a = InstantKey(left), b = InstantKey(right);
  return a < b ? -1 : a > b;
}
// left - right in whole seconds: both cut to the second before, so that hundredths can be added; a missing
// part counts 0.
int64_t InstantDiff(const TIMEDATE& left, const TIMEDATE& right) noexcept;

struct InstantAmounts {
  int32_t seconds = 0, minutes = 0, hours = 0, days = 0, months = 0, years = 0;
};
// Adds signed amounts. Years and months move along the calendar in the zone the time was made in (a day that
// the new month lacks becomes its last), then days, then the time of day as elapsed time. A date without a
// time takes only the first three; a time without a date only the others, round the clock. False, and time as
// it was, when the result leaves the calendar or time is damaged or the wildcard.
bool AdjustInstant(TIMEDATE* time, const InstantAmounts& amounts) noexcept;

// Zones. Offsets are minutes east of GMT, daylight saving included unless told otherwise.
struct ZoneOffset {
  int32_t offset_minutes = 0;
  bool daylight = false;
  bool operator==(const ZoneOffset&) const = default;
};
// Here, at an instant; any thread, quick when asked again.
ZoneOffset LocalOffsetAt(int64_t unix_seconds) noexcept;
ZoneOffset LocalOffsetAt(const TIMEDATE& time) noexcept;
// Forgets what is known of the system's zone, to be called after TZ or the zone database changed (EngInit
// does).
void ReloadLocalZone() noexcept;
// True when the local zone has daylight saving in the year of an instant.
bool LocalZoneHasDaylight(int64_t unix_seconds) noexcept;
int32_t ZoneNumber(const ZoneOffset& offset) noexcept;  // TIME.zone
// None: not within a day of GMT.
std::optional<ZoneOffset> OffsetOfZoneNumber(int32_t zone, bool daylight) noexcept;
uint8_t ZoneByte(const ZoneOffset& offset) noexcept;  // the nearest quarter hour
ZoneOffset OffsetOfZoneByte(uint8_t zone_byte) noexcept;

// Fields to instant, by time->zone and time->dst: sets GM. False when the fields make no valid one; nothing
// is changed.
bool TimeFromFields(TIME* time) noexcept;
// Instant to fields, in local time here (sets zone and dst), or in the zone and dst that time holds. False
// when GM cannot be broken down; nothing is changed.
bool TimeToLocalFields(TIME* time) noexcept;
bool TimeToZoneFields(TIME* time) noexcept;

// Between instants and counts of hundredths since 1970 GMT; the zone byte is that of the second argument.
TIMEDATE TimedateOfUnixHundredths(int64_t hundredths, uint8_t zone_byte) noexcept;
int64_t UnixHundredths(const TIMEDATE& time) noexcept;  // missing parts count as midnight and 1970

// Date styles of TFMT; stored with views and fields.
enum class DateStyle : uint8_t { kFull = 0, kNoCurrentYear = 1, kMonthDay = 2, kYearMonth = 3 };
enum class TimeStyle : uint8_t { kSeconds = 0, kMinutes = 1 };
enum class ZoneStyle : uint8_t { kNever = 0, kWhenOther = 1, kAlways = 2 };
enum class TimeStructure : uint8_t { kDate = 0, kTime = 1, kBoth = 2, kBothWords = 3 };

inline constexpr size_t kTimeTextBytesMax = 79;

// A time in a format and the conventions of a place, into at most text.size() bytes without a terminator. A
// part that the time lacks, or the structure leaves out, is not written; the wildcard is the empty text.
// Shown in local time here, or, when the zone is shown, in the zone the time was made in, followed by its
// offset: "GMT", "GMT+05:30". Returns 0, kBadFormat, kBadTime (damaged words) or kTextTooLong; text_bytes is
// set on success alone.
EngStatus TimeToText(const INTLFORMAT& intl, const TFMT& format, const TIMEDATE& time, std::span<char> text,
                     size_t* text_bytes) noexcept;

}  // namespace brynd

#endif
