// Times. Parts of a time are those of clocks and calendars here; a part that a time lacks is -1.
#include <cmath>

#include "base/time.h"
#include "formula/functions.h"
#include "formula/time_text.h"

namespace brynd::formula {

namespace {

constexpr int32_t kNoPart = -1;

// The fields of a time here. A time without a date, or a date without a time, has -1 for what it lacks.
TIME FieldsOf(const TIMEDATE& time) {
  TIME fields{};
  fields.GM = time;
  if (!TimeToLocalFields(&fields))
    fields.year = fields.month = fields.day = fields.weekday = fields.hour = fields.minute = fields.second =
        kNoPart;
  if (!HasDate(time)) fields.weekday = kNoPart;
  return fields;
}

template <int32_t TIME::*kPart>
Value PartOf(Machine& machine, std::span<const Value> arguments) {
  return EachTime(machine, arguments[0], [](const TIMEDATE& time) {
    const TIME fields = FieldsOf(time);
    const int32_t part = fields.*kPart;
    return Value::Number(part);
  });
}

TIMEDATE DateOnly(const TIMEDATE& time) {
  const TIME fields = FieldsOf(time);
  if (fields.year == kNoPart) return kWildcardTime;
  return {{kNoTicks, static_cast<uint32_t>(JulianDay(fields.year, fields.month, fields.day))}};
}

TIMEDATE TimeOnly(const TIMEDATE& time) {
  const TIME fields = FieldsOf(time);
  if (fields.hour == kNoPart) return kWildcardTime;
  const int32_t ticks = ((fields.hour * 60 + fields.minute) * 60 + fields.second) * 100 + fields.hundredth;
  return {{static_cast<uint32_t>(ticks), kNoDay}};
}

// The day of a time, as a Julian day here; none for a time without a date.
std::optional<int32_t> DayHere(const TIMEDATE& time) {
  const TIMEDATE date = DateOnly(time);
  if (!HasDate(date)) return std::nullopt;
  return static_cast<int32_t>(DayOf(date));
}

Value DayFromNow(Machine& machine, int32_t days) {
  TIMEDATE date = DateOnly(machine.Now());
  if (!AdjustInstant(&date, {.days = days})) return Value::Error(ErrorCode::kDomain);
  return Value::Time(date);
}

// Six numbers, or three: a date and a time of day here. Fields that are out of range are an error.
struct Numbers {
  int32_t at[6] = {0, 0, 0, 0, 0, 0};
  bool valid = true;
};
Numbers TakeNumbers(std::span<const Value> arguments) {
  Numbers numbers;
  for (size_t index = 0; index < arguments.size(); ++index) {
    const std::optional<int64_t> number = FirstWhole(arguments[index]);
    if (!number.has_value() || *number < 0 || *number > kYearMax)
      numbers.valid = false;
    else
      numbers.at[index] = static_cast<int32_t>(*number);
  }
  return numbers;
}

bool IsClock(const int32_t* clock) { return clock[0] <= 23 && clock[1] <= 59 && clock[2] <= 59; }

Value MergeHere(const TIMEDATE& date, const TIMEDATE& time) {
  if (!HasDate(date) || !HasTime(time)) return BadArgument();
  const TIMEDATE day = DateOnly(date), clock = TimeOnly(time);
  if (!HasDate(day) || !HasTime(clock)) return BadArgument();
  return Value::Time(InstantHere(static_cast<int32_t>(DayOf(day)), TicksOf(clock)));
}

// The two words of a list of weekdays, Sunday 1, as bits.
std::optional<uint32_t> WeekdayBits(const Value& days) {
  uint32_t bits = 0;
  if (days.IsEmptyText()) return bits;
  if (!days.IsNumber()) return std::nullopt;
  for (uint32_t index = 0; index < days.Count(); ++index) {
    const double day = days.NumberAt(index);
    if (!(day >= 1 && day <= 7)) return std::nullopt;
    bits |= 1u << static_cast<int>(day);
  }
  return bits;
}

// Days of the stretch that are none of those weekdays: whole weeks at once, the rest one by one.
int64_t CountDays(int32_t first, int32_t last, uint32_t left_out) {
  int per_week = 0;
  for (int weekday = 1; weekday <= 7; ++weekday) per_week += (left_out >> weekday & 1) == 0;
  const int64_t days = int64_t{last} - first + 1;
  int64_t count = days / 7 * per_week;
  for (int64_t day = last - days % 7 + 1; day <= last; ++day)
    count += (left_out >> WeekdayOfJulianDay(static_cast<int32_t>(day)) & 1) == 0;
  return count;
}

// The week of the year that has the year's first Thursday as its first.
int32_t IsoWeek(int32_t julian_day) {
  const int32_t monday_based = (WeekdayOfJulianDay(julian_day) + 5) % 7;
  const int32_t thursday = julian_day - monday_based + 3;
  return (thursday - JulianDay(DateOfJulianDay(thursday).year, 1, 1)) / 7 + 1;
}

}  // namespace

Value CallNow(Machine& machine, std::span<const Value>) { return Value::Time(machine.Now()); }
Value CallToday(Machine& machine, std::span<const Value>) { return DayFromNow(machine, 0); }
Value CallYesterday(Machine& machine, std::span<const Value>) { return DayFromNow(machine, -1); }
Value CallTomorrow(Machine& machine, std::span<const Value>) { return DayFromNow(machine, 1); }

// The date of a time; or year, month, day; or those with hour, minute and second.
Value CallDate(Machine& machine, std::span<const Value> arguments) {
  if (arguments.size() == 1)
    return EachTime(machine, arguments[0], [](const TIMEDATE& time) { return Value::Time(DateOnly(time)); });
  const Numbers numbers = TakeNumbers(arguments);
  if (!numbers.valid || (arguments.size() != 3 && arguments.size() != 6)) return BadArgument();
  const int32_t* at = numbers.at;
  if (!IsDate(at[0], at[1], at[2]) || !IsClock(at + 3)) return BadArgument();
  const TIMEDATE date{{kNoTicks, static_cast<uint32_t>(JulianDay(at[0], at[1], at[2]))}};
  if (arguments.size() == 3) return Value::Time(date);
  return MergeHere(date, {{static_cast<uint32_t>(((at[3] * 60 + at[4]) * 60 + at[5]) * 100), kNoDay}});
}

// The time of day of a time; or hour, minute, second; or those behind year, month and day.
Value CallTime(Machine& machine, std::span<const Value> arguments) {
  if (arguments.size() == 1)
    return EachTime(machine, arguments[0], [](const TIMEDATE& time) { return Value::Time(TimeOnly(time)); });
  const Numbers numbers = TakeNumbers(arguments);
  if (!numbers.valid || (arguments.size() != 3 && arguments.size() != 6)) return BadArgument();
  const int32_t* clock = numbers.at + (arguments.size() == 6 ? 3 : 0);
  if (!IsClock(clock)) return BadArgument();
  const TIMEDATE time{{static_cast<uint32_t>(((clock[0] * 60 + clock[1]) * 60 + clock[2]) * 100), kNoDay}};
  if (arguments.size() == 3) return Value::Time(time);
  const int32_t* at = numbers.at;
  if (!IsDate(at[0], at[1], at[2])) return BadArgument();
  return MergeHere({{kNoTicks, static_cast<uint32_t>(JulianDay(at[0], at[1], at[2]))}}, time);
}

Value CallTimeMerge(Machine&, std::span<const Value> arguments) {
  const std::optional<TIMEDATE> date = FirstTime(arguments[0]), time = FirstTime(arguments[1]);
  if (!date.has_value() || !time.has_value()) return WantsTime();
  return MergeHere(*date, *time);
}

Value CallYear(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::year>(machine, arguments);
}
Value CallMonth(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::month>(machine, arguments);
}
Value CallDay(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::day>(machine, arguments);
}
Value CallWeekday(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::weekday>(machine, arguments);
}
Value CallHour(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::hour>(machine, arguments);
}
Value CallMinute(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::minute>(machine, arguments);
}
Value CallSecond(Machine& machine, std::span<const Value> arguments) {
  return PartOf<&TIME::second>(machine, arguments);
}

// Years, months, days, hours, minutes, seconds to add.
Value CallAdjust(Machine& machine, std::span<const Value> arguments) {
  int32_t at[6] = {};
  for (size_t index = 0; index < std::size(at); ++index) {
    const std::optional<int64_t> amount = FirstWhole(arguments[index + 1]);
    if (!amount.has_value()) return WantsNumber();
    if (*amount < INT32_MIN || *amount > INT32_MAX) return BadArgument();
    at[index] = static_cast<int32_t>(*amount);
  }
  const InstantAmounts amounts{
      .seconds = at[5], .minutes = at[4], .hours = at[3], .days = at[2], .months = at[1], .years = at[0]};
  return EachTime(machine, arguments[0], [&](TIMEDATE time) {
    return AdjustInstant(&time, amounts) ? Value::Time(time) : Value::Error(ErrorCode::kDomain);
  });
}

// The zone of a time, or the one here: hours west of GMT.
Value CallTimeZone(Machine& machine, std::span<const Value> arguments) {
  if (arguments.empty()) return Value::Number(ZoneNumber(LocalOffsetAt(machine.Now())));
  return EachTime(machine, arguments[0], [](const TIMEDATE& time) {
    return Value::Number(ZoneNumber(OffsetOfZoneByte(ZoneByteOf(time))));
  });
}

Value CallTimeToTextInZone(Machine& machine, std::span<const Value> arguments) {
  const std::optional<int64_t> zone = FirstWhole(arguments[1]);
  const std::optional<std::string_view> format =
      arguments.size() == 3 ? FirstText(arguments[2]) : std::string_view("S2Z2");
  if (!zone.has_value()) return WantsNumber();
  if (!format.has_value()) return WantsText();
  const bool in_range = *zone >= INT32_MIN && *zone <= INT32_MAX;
  const std::optional<ZoneOffset> offset =
      in_range ? OffsetOfZoneNumber(static_cast<int32_t>(*zone), false) : std::nullopt;
  if (!offset.has_value()) return BadArgument();
  return EachTime(machine, arguments[0], [&](TIMEDATE time) {
    if (HasDate(time) && HasTime(time))
      time.Innards[1] = DayOf(time) | static_cast<uint32_t>(ZoneByte(*offset)) << 24;
    return ValueText(machine, Value::Time(time), 0, *format);
  });
}

// First and last day count. Saturdays and Sundays are left out unless other weekdays are given; then single
// days are.
Value CallBusinessDays(Machine&, std::span<const Value> arguments) {
  const std::optional<TIMEDATE> start = FirstTime(arguments[0]), end = FirstTime(arguments[1]);
  if (!start.has_value() || !end.has_value()) return WantsTime();
  const std::optional<int32_t> first = DayHere(*start), last = DayHere(*end);
  const std::optional<uint32_t> weekdays =
      arguments.size() > 2 ? WeekdayBits(arguments[2]) : std::optional<uint32_t>(1u << 1 | 1u << 7);
  if (!first.has_value() || !last.has_value() || !weekdays.has_value()) return BadArgument();
  if (*first > *last) return Value::Number(0);
  int64_t count = CountDays(*first, *last, *weekdays);
  if (arguments.size() < 4 || arguments[3].IsEmptyText()) return Value::Number(static_cast<double>(count));
  const Value& holidays = arguments[3];
  if (!holidays.IsTime()) return WantsTime();
  for (uint32_t index = 0; index < holidays.Count(); ++index) {
    const std::optional<int32_t> day = DayHere(holidays.TimeAt(index));
    bool is_new = day.has_value() && *day >= *first && *day <= *last &&
                  (*weekdays >> WeekdayOfJulianDay(*day) & 1) == 0;
    for (uint32_t before = 0; before < index && is_new; ++before)
      is_new = DayHere(holidays.TimeAt(before)) != day;
    count -= is_new;
  }
  return Value::Number(static_cast<double>(count));
}

Value CallIsTime(Machine&, std::span<const Value> arguments) { return Value::Bool(arguments[0].IsTime()); }

Value CallWeekNumber(Machine& machine, std::span<const Value> arguments) {
  return EachTime(machine, arguments[0], [](const TIMEDATE& time) {
    const std::optional<int32_t> day = DayHere(time);
    return Value::Number(day.has_value() ? IsoWeek(*day) : kNoPart);
  });
}

// Seconds from the second time to the first.
Value CallTimeDiff(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[0].IsTime() || !arguments[1].IsTime()) return WantsTime();
  return Operate(Op::kSubtract, arguments[0], arguments[1], machine.Memory());
}

}  // namespace brynd::formula
