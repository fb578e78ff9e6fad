// Instants: order, difference, adjustment, and the way between instants and broken-down times.
#include "base/time.h"

#include <algorithm>

namespace brynd {
namespace {

constexpr int64_t kSecondsPerDay = 86400;

struct DayTicks {
  int64_t day;    // Julian day
  int64_t ticks;  // 0 to kTicksPerDay - 1
};

DayTicks Normalized(int64_t day, int64_t ticks) noexcept {
  int64_t days = ticks / kTicksPerDay, rest = ticks % kTicksPerDay;
  if (rest < 0) {
    rest += kTicksPerDay;
    --days;
  }
  return {day + days, rest};
}

// Moves an instant by an offset: to local time with the offset of a zone, from it with the negative one.
DayTicks Shifted(int64_t day, int64_t ticks, int64_t minutes) noexcept {
  return Normalized(day, ticks + minutes * kTicksPerMinute);
}

constexpr bool IsDay(int64_t day) noexcept { return day >= kJulianDayMin && day <= kJulianDayMax; }

uint32_t DayWord(int64_t day, uint8_t zone_byte) noexcept {
  return static_cast<uint32_t>(day) | static_cast<uint32_t>(zone_byte) << 24;
}

bool LacksDate(const TIME& time) noexcept { return time.year == -1 && time.month == -1 && time.day == -1; }
bool LacksTime(const TIME& time) noexcept {
  return time.hour == -1 && time.minute == -1 && time.second == -1 && time.hundredth == -1;
}
bool IsTimeOfDay(const TIME& time) noexcept {
  return time.hour >= 0 && time.hour <= 23 && time.minute >= 0 && time.minute <= 59 && time.second >= 0 &&
         time.second <= 59 && time.hundredth >= 0 && time.hundredth <= 99;
}
int64_t TicksOfFields(const TIME& time) noexcept {
  return int64_t{time.hour} * kTicksPerHour + time.minute * kTicksPerMinute + time.second * kTicksPerSecond +
         time.hundredth;
}

void SetDateFields(int32_t day, TIME* time) noexcept {
  const CalendarDate date = DateOfJulianDay(day);
  time->year = date.year;
  time->month = date.month;
  time->day = date.day;
  time->weekday = WeekdayOfJulianDay(day);
}

void SetTimeFields(int64_t ticks, TIME* time) noexcept {
  const auto whole = static_cast<int32_t>(ticks);
  time->hour = whole / static_cast<int32_t>(kTicksPerHour);
  time->minute = whole / static_cast<int32_t>(kTicksPerMinute) % 60;
  time->second = whole / static_cast<int32_t>(kTicksPerSecond) % 60;
  time->hundredth = whole % static_cast<int32_t>(kTicksPerSecond);
}

// Fields of an instant that has a date, a time or both, at an offset that only a whole instant is shifted by.
bool FillFields(const ZoneOffset& offset, TIME* time) noexcept {
  const TIMEDATE instant = time->GM;
  const bool has_date = HasDate(instant), has_time = HasTime(instant);
  DayTicks local{DayOf(instant), TicksOf(instant)};
  if (has_date && has_time) local = Shifted(local.day, local.ticks, offset.offset_minutes);
  if (has_date && !IsDay(local.day)) return false;
  if (has_date)
    SetDateFields(static_cast<int32_t>(local.day), time);
  else
    time->year = time->month = time->day = time->weekday = -1;
  if (has_time)
    SetTimeFields(local.ticks, time);
  else
    time->hour = time->minute = time->second = time->hundredth = -1;
  return true;
}

// Years and months along the calendar, then days; false when the date leaves the calendar.
bool MoveDate(const InstantAmounts& amounts, int64_t* day) noexcept {
  const CalendarDate date = DateOfJulianDay(static_cast<int32_t>(*day));
  const int64_t months = (int64_t{date.year} + amounts.years) * 12 + date.month - 1 + amounts.months;
  const int64_t year = months / 12;  // below year 1 whatever the rounding when months are negative
  if (months < 12 || year > kYearMax) return false;
  const auto month = static_cast<int32_t>(months % 12) + 1;
  const int32_t month_day = std::min(date.day, DaysInMonth(static_cast<int32_t>(year), month));
  *day = JulianDay(static_cast<int32_t>(year), month, month_day) + int64_t{amounts.days};
  return IsDay(*day);
}

int64_t TicksOfAmounts(const InstantAmounts& amounts) noexcept {
  return int64_t{amounts.hours} * kTicksPerHour + int64_t{amounts.minutes} * kTicksPerMinute +
         int64_t{amounts.seconds} * kTicksPerSecond;
}

}  // namespace

bool IsValidTimedate(const TIMEDATE& time) noexcept {
  return (!HasTime(time) || TicksOf(time) < kTicksPerDay) && (!HasDate(time) || IsDay(DayOf(time)));
}

int64_t InstantDiff(const TIMEDATE& left, const TIMEDATE& right) noexcept {
  const auto seconds = [](const TIMEDATE& time) {
    return (HasDate(time) ? int64_t{DayOf(time)} : 0) * kSecondsPerDay +
           (HasTime(time) ? int64_t{TicksOf(time)} / kTicksPerSecond : 0);
  };
  return seconds(left) - seconds(right);
}

bool AdjustInstant(TIMEDATE* time, const InstantAmounts& amounts) noexcept {
  const TIMEDATE former = *time;
  if (!IsValidTimedate(former) || IsWildcard(former)) return false;
  const int64_t more_ticks = TicksOfAmounts(amounts);
  if (!HasDate(former)) {
    time->Innards[0] = static_cast<uint32_t>(Normalized(0, TicksOf(former) + more_ticks).ticks);
    return true;
  }
  int64_t day = DayOf(former);
  if (!HasTime(former)) {
    if (!MoveDate(amounts, &day)) return false;
    time->Innards[1] = DayWord(day, ZoneByteOf(former));
    return true;
  }
  const int64_t minutes = OffsetOfZoneByte(ZoneByteOf(former)).offset_minutes;
  DayTicks local = Shifted(day, TicksOf(former), minutes);
  if (!IsDay(local.day)) return false;
  if (!MoveDate(amounts, &local.day)) return false;
  const DayTicks moved = Shifted(local.day, local.ticks + more_ticks, -minutes);
  if (!IsDay(moved.day)) return false;
  *time = {{static_cast<uint32_t>(moved.ticks), DayWord(moved.day, ZoneByteOf(former))}};
  return true;
}

bool TimeFromFields(TIME* time) noexcept {
  const bool lacks_date = LacksDate(*time), lacks_time = LacksTime(*time);
  if (lacks_date && lacks_time) return false;
  if (!lacks_date && !IsDate(time->year, time->month, time->day)) return false;
  if (!lacks_time && !IsTimeOfDay(*time)) return false;
  if (lacks_date) {
    time->GM = {{static_cast<uint32_t>(TicksOfFields(*time)), kNoDay}};
    return true;
  }
  const int32_t day = JulianDay(time->year, time->month, time->day);
  if (lacks_time) {
    time->GM = {{kNoTicks, DayWord(day, 0)}};
    return true;
  }
  const std::optional<ZoneOffset> offset = OffsetOfZoneNumber(time->zone, time->dst != 0);
  if (!offset) return false;
  const DayTicks instant = Shifted(day, TicksOfFields(*time), -int64_t{offset->offset_minutes});
  if (!IsDay(instant.day)) return false;
  time->GM = {{static_cast<uint32_t>(instant.ticks), DayWord(instant.day, ZoneByte(*offset))}};
  return true;
}

bool TimeToLocalFields(TIME* time) noexcept {
  if (!IsValidTimedate(time->GM) || IsWildcard(time->GM)) return false;
  ZoneOffset offset;
  if (HasDate(time->GM) && HasTime(time->GM)) offset = LocalOffsetAt(time->GM);
  if (!FillFields(offset, time)) return false;
  time->zone = ZoneNumber(offset);
  time->dst = offset.daylight ? 1 : 0;
  return true;
}

bool TimeToZoneFields(TIME* time) noexcept {
  if (!IsValidTimedate(time->GM) || IsWildcard(time->GM)) return false;
  const std::optional<ZoneOffset> offset = OffsetOfZoneNumber(time->zone, time->dst != 0);
  return offset && FillFields(*offset, time);
}

TIMEDATE TimedateOfUnixHundredths(int64_t hundredths, uint8_t zone_byte) noexcept {
  const DayTicks instant = Normalized(kUnixJulianDay, hundredths);
  if (instant.day < kJulianDayMin) return {{0, DayWord(kJulianDayMin, zone_byte)}};
  if (instant.day > kJulianDayMax) return {{kTicksPerDay - 1, DayWord(kJulianDayMax, zone_byte)}};
  return {{static_cast<uint32_t>(instant.ticks), DayWord(instant.day, zone_byte)}};
}

int64_t UnixHundredths(const TIMEDATE& time) noexcept {
  const int64_t day = HasDate(time) ? int64_t{DayOf(time)} - kUnixJulianDay : 0;
  return day * kTicksPerDay + (HasTime(time) ? int64_t{TicksOf(time)} : 0);
}

}  // namespace brynd
