// The calendar: days are counted in cycles of 400 years, each year starting in March, so that leap days come
// last.
#include "base/time.h"

namespace brynd {
namespace {

constexpr int32_t kDaysPerEra = 146097, kYearsPerEra = 400;
constexpr int32_t kJulianDayOfEra = 1721120;  // 0000-03-01

constexpr int32_t FloorDiv(int32_t value, int32_t divisor) noexcept {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}
constexpr bool IsLeap(int32_t year) noexcept { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

}  // namespace

int32_t JulianDay(int32_t year, int32_t month, int32_t day) noexcept {
  const int32_t march_year = month > 2 ? year : year - 1, march_month = month > 2 ? month - 3 : month + 9;
  const int32_t era = FloorDiv(march_year, kYearsPerEra), year_of_era = march_year - era * kYearsPerEra;
  const int32_t day_of_year = (153 * march_month + 2) / 5 + day - 1;
  return kJulianDayOfEra + era * kDaysPerEra + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 +
         day_of_year;
}

CalendarDate DateOfJulianDay(int32_t julian_day) noexcept {
  const int32_t days = julian_day - kJulianDayOfEra;
  const int32_t era = FloorDiv(days, kDaysPerEra), day_of_era = days - era * kDaysPerEra;
  const int32_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int32_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int32_t march_month = (5 * day_of_year + 2) / 153;
  const int32_t month = march_month < 10 ? march_month + 3 : march_month - 9;
  const int32_t year = year_of_era + era * kYearsPerEra + (month <= 2 ? 1 : 0);
  return {year, month, day_of_year - (153 * march_month + 2) / 5 + 1};
}

int32_t DaysInMonth(int32_t year, int32_t month) noexcept {
  constexpr int32_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

bool IsDate(int32_t year, int32_t month, int32_t day) noexcept {
  return year >= kYearMin && year <= kYearMax && month >= 1 && month <= 12 && day >= 1 &&
         day <= DaysInMonth(year, month);
}

}  // namespace brynd
