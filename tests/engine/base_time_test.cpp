#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "base/intl.h"
#include "base/process.h"
#include "base/time.h"
#include "brynd_text.h"
#include "brynd_time.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

// Local time is that of a zone for the life of the guard.
class ZoneGuard {
 public:
  explicit ZoneGuard(const char* zone) {
    const char* former = std::getenv("TZ");
    if (former != nullptr) former_ = former;
    had_ = former != nullptr;
    Set(zone);
  }
  ~ZoneGuard() {
    if (had_)
      Set(former_.c_str());
    else
      ::unsetenv("TZ");
    ReloadLocalZone();
  }

 private:
  static void Set(const char* zone) {
    ::setenv("TZ", zone, 1);
    ReloadLocalZone();
  }
  std::string former_;
  bool had_ = false;
};

class FixedClock : public Clock {
 public:
  explicit FixedClock(int64_t unix_seconds) : nanoseconds(unix_seconds * 1'000'000'000) {}
  int64_t UnixNanoseconds() override { return nanoseconds; }
  uint64_t MonotonicNanoseconds() override { return 0; }
  void SleepMilliseconds(uint32_t) override {}
  int64_t nanoseconds;
};

constexpr int32_t kBerlinWinter = -1;        // hours west of GMT
constexpr int64_t kSummer2024 = 1720000000;  // 2024-07-03 09:46:40 GMT
constexpr const char* kZones[] = {"UTC",          "Europe/Berlin",       "America/New_York",
                                  "Asia/Kolkata", "Australia/Lord_Howe", "America/St_Johns",
                                  "Pacific/Apia", "Asia/Kathmandu",      "Europe/Dublin"};

TIME Fields(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute, int32_t second,
            int32_t hundredth = 0, int32_t dst = 0, int32_t zone = 0) {
  return {year, month, day, 0, hour, minute, second, hundredth, dst, zone, {{0, 0}}};
}
TIMEDATE Instant(TIME fields) {
  EXPECT_TRUE(TimeFromFields(&fields));
  return fields.GM;
}
bool SameInstant(const TIMEDATE& left, const TIMEDATE& right) {
  return std::memcmp(&left, &right, sizeof left) == 0;
}

std::string Text(const TIMEDATE& time, TFMT format = {0, 0, 0, 2}, const INTLFORMAT& intl = DefaultIntl()) {
  char room[kTimeTextBytesMax];
  size_t bytes = 0;
  const EngStatus failure = TimeToText(intl, format, time, room, &bytes);
  return failure == 0 ? std::string(room, bytes) : "status " + std::to_string(failure);
}

TEST(TimeTest, JulianDay_KnownDays) {
  EXPECT_EQ(2440588, JulianDay(1970, 1, 1));
  EXPECT_EQ(2451545, JulianDay(2000, 1, 1));
  EXPECT_EQ(kJulianDayMin, JulianDay(1, 1, 1));
  EXPECT_EQ(kJulianDayMax, JulianDay(32767, 12, 31));
  EXPECT_EQ(7, WeekdayOfJulianDay(JulianDay(2000, 1, 1))) << "a Saturday";
  EXPECT_EQ(1, WeekdayOfJulianDay(JulianDay(2024, 3, 3))) << "a Sunday";
}

TEST(TimeTest, JulianDay_EveryDayOfTheCalendar_ThereAndBackInOrder) {
  CalendarDate model{1, 1, 1};  // stepped on day by day
  for (int32_t day = kJulianDayMin; day <= kJulianDayMax; ++day) {
    const CalendarDate date = DateOfJulianDay(day);
    ASSERT_TRUE(date.year == model.year && date.month == model.month && date.day == model.day) << day;
    ASSERT_EQ(day, JulianDay(date.year, date.month, date.day));
    if (++model.day > DaysInMonth(model.year, model.month)) {
      model.day = 1;
      if (++model.month > 12) model = {model.year + 1, 1, 1};
    }
  }
}

TEST(TimeTest, IsDate_LimitsOfTheCalendar) {
  EXPECT_TRUE(IsDate(2024, 2, 29));
  EXPECT_FALSE(IsDate(2023, 2, 29));
  EXPECT_FALSE(IsDate(1900, 2, 29));
  EXPECT_TRUE(IsDate(2000, 2, 29));
  EXPECT_FALSE(IsDate(2024, 4, 31));
  EXPECT_FALSE(IsDate(2024, 0, 1));
  EXPECT_FALSE(IsDate(2024, 13, 1));
  EXPECT_FALSE(IsDate(2024, 1, 0));
  EXPECT_FALSE(IsDate(0, 1, 1));
  EXPECT_TRUE(IsDate(1, 1, 1));
  EXPECT_TRUE(IsDate(32767, 12, 31));
  EXPECT_FALSE(IsDate(32768, 1, 1));
}

TEST(TimeTest, EngTimeFromLocal_LaysOutTheWords) {
  TIME time = Fields(1970, 1, 1, 1, 2, 3, 4, 0, kBerlinWinter);
  ASSERT_EQ(0, EngTimeFromLocal(&time));
  EXPECT_EQ(2u * 6000 + 3 * 100 + 4, time.GM.Innards[0]);
  EXPECT_EQ(0x41000000u | 2440588, time.GM.Innards[1]) << "east, one hour";
  time = Fields(2024, 7, 1, 0, 30, 0, 0, 1, kBerlinWinter);
  ASSERT_EQ(0, EngTimeFromLocal(&time));
  EXPECT_EQ(22u * 360000 + 30 * 6000, time.GM.Innards[0]) << "two hours earlier, the day before";
  EXPECT_EQ(0xc1000000u | static_cast<uint32_t>(JulianDay(2024, 6, 30)), time.GM.Innards[1]);
  time = Fields(2024, 1, 1, 0, 0, 0, 0, 0, -3005);  // five hours and thirty minutes east
  ASSERT_EQ(0, EngTimeFromLocal(&time));
  EXPECT_EQ(18u * 360000 + 30 * 6000, time.GM.Innards[0]);
  EXPECT_EQ(0x65u, time.GM.Innards[1] >> 24);
  time = Fields(2024, 1, 1, 0, 0, 0, 0, 0, 3003);  // three and a half hours west
  ASSERT_EQ(0, EngTimeFromLocal(&time));
  EXPECT_EQ(3u * 360000 + 30 * 6000, time.GM.Innards[0]);
  EXPECT_EQ(0x23u, time.GM.Innards[1] >> 24);
}

TEST(TimeTest, EngTimeFromLocal_PartialValues_HaveNoZone) {
  TIME date = Fields(2024, 5, 6, -1, -1, -1, -1, 1, -5);
  ASSERT_EQ(0, EngTimeFromLocal(&date));
  EXPECT_EQ(kNoTicks, date.GM.Innards[0]);
  EXPECT_EQ(static_cast<uint32_t>(JulianDay(2024, 5, 6)), date.GM.Innards[1]);
  TIME time = Fields(-1, -1, -1, 23, 59, 59, 99, 1, 7);
  ASSERT_EQ(0, EngTimeFromLocal(&time));
  EXPECT_EQ(kTicksPerDay - 1, time.GM.Innards[0]);
  EXPECT_EQ(kNoDay, time.GM.Innards[1]);
}

TEST(TimeTest, EngTimeFromLocal_BadFields_StatusAndRecordAlone) {
  const TIME bad[] = {Fields(2024, 2, 30, 0, 0, 0),
                      Fields(2024, 1, 1, 24, 0, 0),
                      Fields(2024, 1, 1, 0, 60, 0),
                      Fields(2024, 1, 1, 0, 0, 60),
                      Fields(2024, 1, 1, 0, 0, 0, 100),
                      Fields(2024, 1, 1, -1, 0, 0),
                      Fields(-1, 1, 1, 0, 0, 0),
                      Fields(2024, -1, -1, 0, 0, 0),
                      Fields(0, 1, 1, 0, 0, 0),
                      Fields(32768, 1, 1, 0, 0, 0),
                      Fields(-1, -1, -1, -1, -1, -1, -1),
                      Fields(2024, 1, 1, 0, 0, 0, 0, 0, 24),
                      Fields(2024, 1, 1, 0, 0, 0, 0, 0, -6000),
                      Fields(1, 1, 1, 0, 0, 0, 0, 0, -1),
                      Fields(32767, 12, 31, 23, 59, 59, 99, 0, 1),
                      Fields(2024, 1, 1, 0, 0, 0, -1),
                      Fields(2024, 1, 1, 0, 0, 0, 0, 0, INT32_MIN),
                      Fields(INT32_MAX, INT32_MAX, INT32_MIN, 0, 0, 0)};
  for (const TIME& row : bad) {
    TIME time = row;
    EXPECT_EQ(status::kBadTime, EngTimeFromLocal(&time)) << row.year << ' ' << row.hour << ' ' << row.zone;
    EXPECT_EQ(0, std::memcmp(&row, &time, sizeof time));
  }
  EXPECT_EQ(status::kBadArgument, EngTimeFromLocal(nullptr));
}

TEST(TimeTest, EngTimeToLocal_DamagedOrEmpty_StatusAndRecordAlone) {
  const TIMEDATE bad[] = {{{kTicksPerDay, 2440588}}, {{0, 0}},
                          {{0, kJulianDayMax + 1}},  {{0xfffffffe, 2440588}},
                          {{kNoTicks, kNoDay}},      {{kNoTicks, 0xffffffff}}};
  for (const TIMEDATE& value : bad) {
    TIME time = Fields(1, 2, 3, 4, 5, 6, 7, 1, 3);
    time.GM = value;
    const TIME before = time;
    EXPECT_EQ(status::kBadTime, EngTimeToLocal(&time));
    EXPECT_EQ(status::kBadTime, EngTimeToLocalZone(&time));
    EXPECT_EQ(0, std::memcmp(&before, &time, sizeof time));
  }
}

TEST(TimeTest, EngTimeToLocal_FollowsDaylightSavingOfTheInstant) {
  const ZoneGuard zone("Europe/Berlin");
  struct Row {
    int32_t month, day, hour, minute;  // GMT, 2024
    int32_t local_hour, dst;
  };
  const Row rows[] = {{3, 31, 0, 59, 1, 0}, {3, 31, 1, 0, 3, 1},   {10, 27, 0, 59, 2, 1},
                      {10, 27, 1, 0, 2, 0}, {1, 15, 12, 0, 13, 0}, {7, 15, 12, 0, 14, 1}};
  for (const Row& row : rows) {
    TIME time = {};
    time.GM = Instant(Fields(2024, row.month, row.day, row.hour, row.minute, 0));
    ASSERT_EQ(0, EngTimeToLocal(&time));
    EXPECT_EQ(row.local_hour, time.hour) << row.month;
    EXPECT_EQ(row.dst, time.dst);
    EXPECT_EQ(kBerlinWinter, time.zone);
    EXPECT_EQ(row.minute, time.minute);
  }
}

TEST(TimeTest, EngTimeToLocal_EveryTransitionSecond_AgreesWithLibc) {
  for (const char* name : kZones) {
    const ZoneGuard zone(name);
    // Around the turns of each half hour near transitions, and on a grid over 60 years.
    for (int64_t moment = 0; moment < int64_t{60} * 365 * 86400; moment += 86400 * 3 + 1799) {
      const auto seconds = static_cast<time_t>(moment);
      struct tm expected = {};
      ASSERT_NE(nullptr, ::localtime_r(&seconds, &expected));
      if (expected.tm_gmtoff % 60 != 0) continue;
      TIME time = {};
      time.GM = TimedateOfUnixHundredths(moment * 100, 0);
      ASSERT_TRUE(TimeToLocalFields(&time));
      ASSERT_EQ(expected.tm_year + 1900, time.year) << name << ' ' << moment;
      ASSERT_EQ(expected.tm_yday, JulianDay(time.year, time.month, time.day) - JulianDay(time.year, 1, 1));
      ASSERT_EQ(expected.tm_wday + 1, time.weekday);
      ASSERT_EQ(expected.tm_hour, time.hour) << name << ' ' << moment;
      ASSERT_EQ(expected.tm_min, time.minute);
      ASSERT_EQ(expected.tm_sec, time.second);
      ASSERT_EQ(expected.tm_isdst > 0 ? 1 : 0, time.dst);
    }
  }
}

TEST(TimeTest, LocalOffsetAt_CachedAnswers_AgreeWithLibcAroundTransitions) {
  const ZoneGuard zone("America/St_Johns");  // once changed its clocks one minute past midnight
  for (int64_t moment = 1143945000; moment < 1143955000; moment += 7) {  // 2006-04-02
    const auto seconds = static_cast<time_t>(moment);
    struct tm expected = {};
    ::localtime_r(&seconds, &expected);
    for (int again = 0; again < 2; ++again)
      ASSERT_EQ(expected.tm_gmtoff / 60, LocalOffsetAt(moment).offset_minutes);
  }
}

TEST(TimeTest, RandomInstants_ThereAndBackInEveryZone) {
  TestRandom random(SeedOfRun());
  for (const char* name : kZones) {
    const ZoneGuard zone(name);
    for (int round = 0; round < 3000; ++round) {
      // Two days of distance from the ends, which local time may not pass.
      const TIMEDATE instant = {
          {static_cast<uint32_t>(random.Below(kTicksPerDay)),
           static_cast<uint32_t>(random.Between(kJulianDayMin + 2, kJulianDayMax - 2))}};
      TIME time = {};
      time.GM = instant;
      ASSERT_TRUE(TimeToLocalFields(&time)) << name;
      TIME again = time;
      again.GM = {{1, 1}};
      ASSERT_TRUE(TimeFromFields(&again));
      ASSERT_EQ(instant.Innards[0], again.GM.Innards[0]) << name;
      ASSERT_EQ(instant.Innards[1], again.GM.Innards[1] & kDayMask) << name;
      TIME same = time;
      ASSERT_TRUE(TimeToZoneFields(&same));
      ASSERT_EQ(0, std::memcmp(&time, &same, sizeof time)) << "the same zone gives the same fields";
    }
  }
}

TEST(TimeTest, ZoneCodes_ThereAndBack) {
  for (int32_t quarters = -63; quarters <= 63; ++quarters) {
    for (const bool daylight : {false, true}) {
      const ZoneOffset offset{quarters * 15 + (daylight ? 60 : 0), daylight};
      EXPECT_EQ(offset, OffsetOfZoneByte(ZoneByte(offset)));
      EXPECT_EQ(offset, OffsetOfZoneNumber(ZoneNumber(offset), daylight).value());
    }
  }
  EXPECT_EQ(-3005, ZoneNumber({330, false}));
  EXPECT_EQ(3003, ZoneNumber({-210, false}));
  EXPECT_EQ(5, ZoneNumber({-240, true}));
  EXPECT_EQ(0x4f | 0x30, ZoneByte({20 * 60, false})) << "no more than the byte can say";
  for (const int32_t zone : {24, -24, 6000, -6000, 5930, INT32_MIN, INT32_MAX})
    EXPECT_FALSE(OffsetOfZoneNumber(zone, false)) << zone;
}

TEST(TimeTest, EngTimeZoneGet_NowAndHere) {
  FixedClock clock(kSummer2024);
  const SeamGuard seam(Process().clock, static_cast<Clock*>(&clock));
  const ZoneGuard zone("Europe/Berlin");
  int32_t number = 99, dst = 99;
  EngTimeZoneGet(&number, &dst);
  EXPECT_EQ(-1, number);
  EXPECT_EQ(1, dst);
  TIMEDATE now = {};
  EngTimedateNow(&now);
  EXPECT_EQ("07/03/2024 11:46:40", Text(now));
  EXPECT_EQ(0xc1u, now.Innards[1] >> 24);
  EngTimeZoneGet(nullptr, nullptr);
  EngTimedateNow(nullptr);
}

TEST(TimeTest, EngTimeSpecial_SmallestLargestWildcard) {
  TIMEDATE smallest = {}, largest = {}, wildcard = {}, untouched = {{7, 7}};
  ASSERT_EQ(0, EngTimeSpecial(0, &smallest));
  ASSERT_EQ(0, EngTimeSpecial(1, &largest));
  ASSERT_EQ(0, EngTimeSpecial(2, &wildcard));
  EXPECT_EQ(status::kBadArgument, EngTimeSpecial(3, &untouched));
  EXPECT_EQ(7u, untouched.Innards[0]);
  EXPECT_TRUE(IsWildcard(wildcard));
  EXPECT_LT(EngInstantCompare(&smallest, &largest), 0);
  EXPECT_LT(EngInstantCompare(&wildcard, &smallest), 0) << "as a since-time it takes everything";
  const ZoneGuard zone("UTC");
  EXPECT_EQ("01/01/0001 00:00:00", Text(smallest));
  EXPECT_EQ("12/31/32767 23:59:59", Text(largest));
  EXPECT_EQ("", Text(wildcard));
  TIMEDATE all_ones = {{0xffffffff, 0xffffffff}};
  EXPECT_TRUE(IsWildcard(all_ones));
  EXPECT_EQ("", Text(all_ones));
}

TEST(TimeTest, EngInstantCompareDiff_AgreeWithHundredths) {
  TestRandom random(SeedOfRun() + 1);
  const auto any = [&] {
    return TIMEDATE{{random.Below(kTicksPerDay), static_cast<uint32_t>(random.Between(2440000, 2440003)) |
                                                     static_cast<uint32_t>(random.Below(256)) << 24}};
  };
  for (int round = 0; round < 20000; ++round) {
    const TIMEDATE left = any(), right = any();
    const int64_t a = UnixHundredths(left), b = UnixHundredths(right);
    ASSERT_EQ((a > b) - (a < b), EngInstantCompare(&left, &right)) << "the zone does not matter";
    ASSERT_EQ(a - b, EngInstantDiff(&left, &right) * 100 + left.Innards[0] % 100 - right.Innards[0] % 100);
  }
}

TIMEDATE Adjusted(TIMEDATE time, InstantAmounts amounts) {
  EXPECT_EQ(0, EngInstantAdjust(&time, amounts.seconds, amounts.minutes, amounts.hours, amounts.days,
                                amounts.months, amounts.years));
  return time;
}

TEST(TimeTest, EngInstantAdjust_CalendarThenClock) {
  const ZoneGuard zone("UTC");
  const TIMEDATE january = Instant(Fields(2024, 1, 31, 12, 0, 0));
  EXPECT_EQ("02/29/2024 12:00:00", Text(Adjusted(january, {.months = 1}))) << "the month's last day";
  EXPECT_EQ("01/31/2023 12:00:00", Text(Adjusted(january, {.years = -1})));
  EXPECT_EQ("12/31/2023 12:00:00", Text(Adjusted(january, {.months = -1})));
  EXPECT_EQ("03/01/2024 12:00:00", Text(Adjusted(january, {.days = 30})));
  EXPECT_EQ("02/28/2023 12:00:00", Text(Adjusted(january, {.months = 1, .years = -1})));
  EXPECT_EQ("02/01/2024 13:01:01", Text(Adjusted(january, {.seconds = 1, .minutes = 61, .hours = 24})));
  EXPECT_EQ("01/31/2024 11:59:59", Text(Adjusted(january, {.seconds = -1})));
  EXPECT_EQ("03/01/2024 11:59:59", Text(Adjusted(january, {.seconds = -1, .days = 1, .months = 1})));
}

TEST(TimeTest, EngInstantAdjust_KeepsTheZoneItWasMadeIn) {
  const TIMEDATE evening = Instant(Fields(2024, 1, 31, 23, 0, 0, 0, 0, -5));  // 18:00 GMT
  const TIMEDATE moved = Adjusted(evening, {.months = 1});
  TIME fields = Fields(0, 0, 0, 0, 0, 0, 0, 0, -5);
  fields.GM = moved;
  ASSERT_TRUE(TimeToZoneFields(&fields));
  EXPECT_EQ(29, fields.day);
  EXPECT_EQ(23, fields.hour);
  EXPECT_EQ(ZoneByteOf(evening), ZoneByteOf(moved));
}

TEST(TimeTest, EngInstantAdjust_PartialValues) {
  const TIMEDATE date = Instant(Fields(2024, 1, 31, -1, -1, -1, -1));
  EXPECT_EQ("02/29/2024", Text(Adjusted(date, {.seconds = 5, .hours = 48, .months = 1})));
  const TIMEDATE time = Instant(Fields(-1, -1, -1, 23, 0, 0));
  EXPECT_EQ("01:00:30", Text(Adjusted(time, {.seconds = 30, .hours = 2, .days = 4, .years = 9})));
  EXPECT_EQ("22:00:00", Text(Adjusted(time, {.hours = -1})));
}

TEST(TimeTest, EngInstantAdjust_BeyondTheCalendar_StatusAndValueAlone) {
  const TIMEDATE smallest = kSmallestTime, largest = kLargestTime;
  const std::pair<TIMEDATE, InstantAmounts> rows[] = {{smallest, {.seconds = -1}},
                                                      {smallest, {.days = -1}},
                                                      {smallest, {.months = -1}},
                                                      {smallest, {.years = -1}},
                                                      {largest, {.seconds = 1}},
                                                      {largest, {.days = 1}},
                                                      {largest, {.months = 1}},
                                                      {largest, {.years = 1}},
                                                      {largest, {.years = INT32_MAX}},
                                                      {smallest, {.years = INT32_MIN}},
                                                      {largest, {.months = INT32_MAX}},
                                                      {largest, {.days = INT32_MAX}},
                                                      {largest, {.hours = INT32_MAX}},
                                                      {smallest, {.hours = INT32_MIN}},
                                                      {kWildcardTime, {.days = 1}},
                                                      {{{kTicksPerDay, 2440588}}, {}},
                                                      {{{0, 5}}, {}}};
  for (const auto& [value, amounts] : rows) {
    TIMEDATE time = value;
    EXPECT_EQ(status::kBadTime, EngInstantAdjust(&time, amounts.seconds, amounts.minutes, amounts.hours,
                                                 amounts.days, amounts.months, amounts.years));
    EXPECT_TRUE(SameInstant(value, time));
  }
  TIMEDATE back = largest;
  EXPECT_EQ(0, EngInstantAdjust(&back, 0, 0, 0, 0, 0, -32766));
  EXPECT_EQ(0, EngInstantAdjust(&back, 0, 0, 0, -364, 0, 0));
  EXPECT_EQ(static_cast<uint32_t>(kJulianDayMin), DayOf(back));
}

TEST(TimeTest, EngInstantAdjust_RandomSeconds_AgreeWithDiff) {
  TestRandom random(SeedOfRun() + 2);
  for (int round = 0; round < 5000; ++round) {
    const TIMEDATE time = {
        {random.Below(kTicksPerDay), static_cast<uint32_t>(random.Between(2400000, 2500000))}};
    const auto seconds = static_cast<int32_t>(random.Between(-2000000000, 2000000000));
    const TIMEDATE moved = Adjusted(time, {.seconds = seconds});
    ASSERT_EQ(seconds, InstantDiff(moved, time));
    ASSERT_TRUE(SameInstant(time, Adjusted(moved, {.seconds = -seconds})));
  }
}

TEST(TimeTest, EngTimedateJulianTicks_AreTheWords) {
  const TIMEDATE time = {{1234, 0xc1000000u | 2440588}};
  EXPECT_EQ(2440588u, EngTimedateJulian(&time));
  EXPECT_EQ(1234u, EngTimedateTicks(&time));
}

INTLFORMAT With(uint16_t set, uint16_t clear) {
  INTLFORMAT intl = DefaultIntl();
  intl.Flags = static_cast<uint16_t>((intl.Flags & ~clear) | set);
  return intl;
}

TEST(TimeTest, TimeToText_EveryDateStyleInEveryOrder) {
  FixedClock clock(kSummer2024);
  const SeamGuard seam(Process().clock, static_cast<Clock*>(&clock));
  const ZoneGuard zone("UTC");
  const TIMEDATE time = Instant(Fields(2024, 3, 4, 5, 6, 7)), earlier = Instant(Fields(97, 3, 4, 5, 6, 7));
  constexpr uint16_t kOrders = BRINTL_DATE_MDY | BRINTL_DATE_DMY | BRINTL_DATE_YMD;
  struct Row {
    uint16_t order;
    const char* text[4];
    const char* earlier;  // style 1 of another year
  };
  const Row rows[] = {{BRINTL_DATE_MDY, {"03/04/2024", "03/04", "03/04", "03/2024"}, "03/04/0097"},
                      {BRINTL_DATE_DMY, {"04/03/2024", "04/03", "04/03", "03/2024"}, "04/03/0097"},
                      {BRINTL_DATE_YMD, {"2024/03/04", "03/04", "03/04", "2024/03"}, "0097/03/04"},
                      {kOrders, {"03/04/2024", "03/04", "03/04", "03/2024"}, "03/04/0097"},
                      {0, {"03/04/2024", "03/04", "03/04", "03/2024"}, "03/04/0097"}};
  for (const Row& row : rows) {
    const INTLFORMAT intl = With(row.order, kOrders);
    for (uint8_t style = 0; style < 4; ++style) {
      EXPECT_EQ(row.text[style], Text(time, {style, 0, 0, 0}, intl)) << row.order;
      EXPECT_EQ(std::string(row.text[style]) + " 05:06:07", Text(time, {style, 0, 0, 2}, intl));
    }
    EXPECT_EQ(row.earlier, Text(earlier, {1, 0, 0, 0}, intl));
  }
}

TEST(TimeTest, TimeToText_ClocksAndSeparators) {
  const ZoneGuard zone("UTC");
  const INTLFORMAT half = With(0, BRINTL_CLOCK_24);
  const std::pair<int32_t, const char*> hours[] = {{0, "12:30:05 AM"},  {1, "01:30:05 AM"},
                                                   {11, "11:30:05 AM"}, {12, "12:30:05 PM"},
                                                   {13, "01:30:05 PM"}, {23, "11:30:05 PM"}};
  for (const auto& [hour, text] : hours)
    EXPECT_EQ(text, Text(Instant(Fields(2024, 1, 1, hour, 30, 5)), {0, 0, 0, 1}, half));
  INTLFORMAT other = With(0, 0);
  std::strcpy(other.DateString, ".");
  std::strcpy(other.TimeString, "h");
  EXPECT_EQ("01.02.2024 13h30", Text(Instant(Fields(2024, 1, 2, 13, 30, 5)), {0, 1, 0, 2}, other));
  std::memset(other.DateString, 'd', 5);
  other.TimeString[0] = 0;
  EXPECT_EQ("01ddddd02ddddd2024 13:30", Text(Instant(Fields(2024, 1, 2, 13, 30, 5)), {0, 1, 0, 2}, other));
}

TEST(TimeTest, TimeToText_Structures_WholeAndPartialValues) {
  FixedClock clock(kSummer2024);
  const SeamGuard seam(Process().clock, static_cast<Clock*>(&clock));
  const ZoneGuard zone("UTC");
  const TIMEDATE whole = Instant(Fields(2024, 3, 4, 5, 6, 7)),
                 date = Instant(Fields(2024, 3, 4, -1, -1, -1, -1)),
                 time = Instant(Fields(-1, -1, -1, 5, 6, 7));
  const char* expected[][4] = {{"03/04/2024", "05:06:07", "03/04/2024 05:06:07", "03/04/2024 05:06:07"},
                               {"03/04/2024", "", "03/04/2024", "03/04/2024"},
                               {"", "05:06:07", "05:06:07", "05:06:07"}};
  const TIMEDATE values[] = {whole, date, time};
  for (size_t value = 0; value < 3; ++value) {
    for (uint8_t structure = 0; structure < 4; ++structure) {
      // Partial values have no zone, even where it is always asked for.
      EXPECT_EQ(expected[value][structure],
                Text(values[value], {0, 0, static_cast<uint8_t>(value == 0 ? 0 : 2), structure}))
          << value;
    }
  }
}

TEST(TimeTest, TimeToText_WordsForDaysBesideToday) {
  FixedClock clock(kSummer2024);
  const SeamGuard seam(Process().clock, static_cast<Clock*>(&clock));
  const ZoneGuard zone("America/New_York");
  const char* words[] = {"07/01/2024", "Yesterday", "Today", "Tomorrow", "07/05/2024"};
  for (int32_t day = 1; day <= 5; ++day) {
    const TIMEDATE noon = Instant(Fields(2024, 7, day, 12, 0, 0, 0, 1, 5));
    EXPECT_EQ(std::string(words[day - 1]) + " 12:00", Text(noon, {0, 1, 0, 3}));
    EXPECT_EQ(words[day - 1], Text(Instant(Fields(2024, 7, day, -1, -1, -1, -1)), {0, 1, 0, 3}));
  }
  // Still the third here, but the fourth in GMT.
  EXPECT_EQ("Today 23:30", Text(Instant(Fields(2024, 7, 4, 3, 30, 0)), {0, 1, 0, 3}));
  INTLFORMAT silent = With(0, 0);
  std::memset(silent.TodayString, 0, sizeof silent.TodayString);
  EXPECT_EQ("07/03", Text(Instant(Fields(2024, 7, 3, -1, -1, -1, -1)), {1, 1, 0, 3}, silent));
}

TEST(TimeTest, TimeToText_ZoneNeverWhenOtherAlways) {
  const ZoneGuard zone("Europe/Berlin");
  const TIMEDATE here = Instant(Fields(2024, 7, 3, 12, 0, 0, 0, 1, -1)),
                 india = Instant(Fields(2024, 7, 3, 12, 0, 0, 0, 0, -3005)),
                 west = Instant(Fields(2024, 7, 3, 23, 0, 0, 0, 1, 8)),
                 gmt = Instant(Fields(2024, 7, 3, 12, 0, 0));
  EXPECT_EQ("07/03/2024 12:00", Text(here, {0, 1, 0, 2}));
  EXPECT_EQ("07/03/2024 12:00", Text(here, {0, 1, 1, 2}));
  EXPECT_EQ("07/03/2024 12:00 GMT+02:00", Text(here, {0, 1, 2, 2}));
  EXPECT_EQ("07/03/2024 08:30", Text(india, {0, 1, 0, 2}));
  EXPECT_EQ("07/03/2024 12:00 GMT+05:30", Text(india, {0, 1, 1, 2}));
  EXPECT_EQ("07/04/2024 08:00", Text(west, {0, 1, 0, 2}));
  EXPECT_EQ("07/03/2024 23:00 GMT-07:00", Text(west, {0, 1, 2, 2}));
  EXPECT_EQ("12:00 GMT", Text(gmt, {0, 1, 1, 1}));
  EXPECT_EQ("07/03/2024", Text(india, {0, 1, 2, 0})) << "no zone beside a date alone";
}

TEST(TimeTest, EngTimedateToText_EveryStyle_FitsOrIsRefusedAtEveryLimit) {
  TestRandom random(SeedOfRun() + 3);
  const ZoneGuard zone("Asia/Kathmandu");
  for (int round = 0; round < 3000; ++round) {
    TIMEDATE time = {
        {random.Below(kTicksPerDay), static_cast<uint32_t>(random.Between(kJulianDayMin, kJulianDayMax)) |
                                         static_cast<uint32_t>(random.Below(256)) << 24}};
    if (random.Below(5) == 0) time.Innards[0] = kNoTicks;
    if (random.Below(5) == 0) time.Innards[1] |= kNoDay;
    const TFMT format{static_cast<uint8_t>(random.Below(4)), static_cast<uint8_t>(random.Below(2)),
                      static_cast<uint8_t>(random.Below(3)), static_cast<uint8_t>(random.Below(4))};
    const INTLFORMAT intl = With(static_cast<uint16_t>(random.Below(256)), 0xff);
    const std::string whole = Text(time, format, intl);
    ASSERT_EQ(std::string::npos, whole.find("status")) << whole;
    char room[100];
    std::memset(room, '#', sizeof room);
    const auto limit = static_cast<uint16_t>(random.Below(50));
    uint16_t length = 999;
    const EngStatus failure = EngTimedateToText(&intl, &format, &time, room, limit, &length);
    ASSERT_EQ('#', room[limit]);
    ASSERT_EQ(limit < whole.size() ? status::kTextTooLong : 0, failure);
    if (failure == 0) {
      ASSERT_EQ(whole, std::string(room, length));
    } else {
      ASSERT_EQ(999, length);
    }
  }
}

TEST(TimeTest, EngTimedateToText_BadFormatTimeOrArgument_StatusAndOutputsAlone) {
  const TIMEDATE good = {{0, 2440588}}, bad = {{kTicksPerDay, 2440588}};
  const TFMT formats[] = {{4, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 3, 0}, {0, 0, 0, 4}}, plain{};
  char room[80] = "#";
  uint16_t length = 7;
  for (const TFMT& format : formats)
    EXPECT_EQ(status::kBadFormat, EngTimedateToText(nullptr, &format, &good, room, 79, &length));
  EXPECT_EQ(status::kBadTime, EngTimedateToText(nullptr, &plain, &bad, room, 79, &length));
  EXPECT_EQ(status::kBadArgument, EngTimedateToText(nullptr, &plain, nullptr, room, 79, &length));
  EXPECT_EQ(status::kBadArgument, EngTimedateToText(nullptr, &plain, &good, nullptr, 79, &length));
  EXPECT_EQ(status::kBadArgument, EngTimedateToText(nullptr, &plain, &good, room, 79, nullptr));
  EXPECT_EQ(7, length);
  EXPECT_EQ('#', room[0]);
}

class MapSettings : public SettingsStore {
 public:
  std::optional<std::string> Get(std::string_view name) override {
    for (const auto& [key, value] : values)
      if (key == name) return value;
    return std::nullopt;
  }
  void Set(std::string_view, std::string_view) override {}
  std::vector<std::pair<std::string, std::string>> values;
};

TEST(TimeTest, EngIntlSettingsGet_DefaultsAndSettings) {
  FixedClock clock(kSummer2024);
  const SeamGuard seam(Process().clock, static_cast<Clock*>(&clock));
  MapSettings settings;
  const SeamGuard settings_seam(Process().settings, static_cast<SettingsStore*>(&settings));
  const ZoneGuard zone("America/New_York");
  INTLFORMAT intl = {};
  ASSERT_EQ(0, EngIntlSettingsGet(&intl, sizeof intl));
  EXPECT_EQ(BRINTL_DATE_MDY | BRINTL_CLOCK_24 | BRINTL_LEADING_ZERO | BRINTL_DAYLIGHT, intl.Flags);
  EXPECT_EQ(2, intl.CurrencyDigits);
  EXPECT_EQ(139, intl.Length);
  EXPECT_EQ(5, intl.TimeZone);
  EXPECT_STREQ("AM", intl.AMString);
  EXPECT_STREQ("/", intl.DateString);
  EXPECT_STREQ("Tomorrow", intl.TomorrowString);
  settings.values = {{"DateOrder", "ymd"},      {"DateSeparator", "-"},
                     {"Clock", "12"},           {"CurrencySymbol", "\xe2\x82\xac"},
                     {"CurrencyDigits", "0"},   {"CurrencyPosition", "behind"},
                     {"CurrencySpace", "1"},    {"LeadingZero", "0"},
                     {"Today", "Heute"},        {"PM", "too long"},
                     {"DecimalSeparator", ","}, {"ThousandSeparator", ""}};
  const ZoneGuard utc("UTC");
  ASSERT_EQ(0, EngIntlSettingsGet(&intl, sizeof intl));
  EXPECT_EQ(BRINTL_DATE_YMD | BRINTL_CURRENCY_SUFFIX | BRINTL_CURRENCY_SPACE, intl.Flags);
  EXPECT_EQ(0, intl.CurrencyDigits);
  EXPECT_EQ(0, intl.TimeZone);
  EXPECT_STREQ("\x10\xc1\xac", intl.CurrencyString) << "engine text";
  EXPECT_STREQ("Heute", intl.TodayString);
  EXPECT_STREQ("PM", intl.PMString) << "what does not fit is passed over";
  EXPECT_STREQ("", intl.ThousandString);
  char small[12];
  std::memset(small, '#', sizeof small);
  ASSERT_EQ(0, EngIntlSettingsGet(reinterpret_cast<INTLFORMAT*>(small), 10));
  EXPECT_EQ('#', small[10]) << "no more than was asked for";
  EXPECT_EQ(status::kBadArgument, EngIntlSettingsGet(nullptr, 139));
}

TEST(TimeTest, Threads_AskForLocalTimeAtOnce) {
  const ZoneGuard zone("Europe/Berlin");
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      for (int64_t round = 0; round < 3000; ++round) {
        const bool summer = round % 2 == 0;
        const int64_t moment = (summer ? 1720000000 : 1705000000) + round % 100;
        if (LocalOffsetAt(moment).offset_minutes != (summer ? 120 : 60)) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}

}  // namespace
