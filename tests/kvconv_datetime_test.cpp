// Exported functions on single date-times.
#include <cstdlib>
#include <cstring>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::LastError;

constexpr KVDATETIMESUMM kFilled{7, 7, 7, 7, 7, 7, 7, 7, 7, 7};

bool IsZero(const KVDATETIME& datetime) { return datetime.innards[0] == 0 && datetime.innards[1] == 0; }

class DatetimeTest : public kit::KavrinTest {
 protected:
  // Greenwich is here, without daylight saving, so that every machine computes alike.
  void SetUp() override {
    setenv("TZ", "UTC0", 1);
    kit::KavrinTest::SetUp();
  }
  static KVDATETIME Make(int32_t year, int32_t month, int32_t day, int32_t hour = 0, int32_t minute = 0,
                         int32_t second = 0, int32_t hundredth = 0, int32_t zone = 0) {
    const KVDATETIMESUMM parts{year, month, day, 0, hour, minute, second, hundredth, 0, zone};
    KVDATETIME datetime{{9, 9}};
    EXPECT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVSUCCESS);
    return datetime;
  }
  static int32_t Diff(const KVDATETIME& first, const KVDATETIME& second, int32_t unit) {
    return KVDatetimeGetDiff(&first, &second, unit);
  }
};

TEST_F(DatetimeTest, KVDatetimeGetCurrent_Now_BetweenEngineTimes) {
  KVDATETIME before, now, after;
  EngTimedateNow(reinterpret_cast<TIMEDATE*>(&before));
  ASSERT_EQ(KVDatetimeGetCurrent(&now), KVSUCCESS);
  EngTimedateNow(reinterpret_cast<TIMEDATE*>(&after));
  EXPECT_LE(KVDatetimeCompare(&before, &now), 0);
  EXPECT_LE(KVDatetimeCompare(&now, &after), 0);
  EXPECT_EQ(KVDatetimeGetCurrent(nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
}

TEST_F(DatetimeTest, KVDatetimeCreate_ThenFetch_PartsComeBackWithTheTrueWeekday) {
  KVDATETIMESUMM parts{1997, 3, 4, 99, 5, 6, 7, 8, 0, 0};
  KVDATETIME datetime;
  ASSERT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVSUCCESS);
  KVDATETIMESUMM back = kFilled;
  ASSERT_EQ(KVDatetimeFetch(&datetime, &back), KVSUCCESS);
  parts.weekday = 3;  // a Tuesday
  EXPECT_EQ(std::memcmp(&parts, &back, sizeof parts), 0) << back.weekday;
}

TEST_F(DatetimeTest, KVDatetimeCreate_ZoneAndDaylightSaving_ToldAsHere) {
  for (int32_t summer : {0, 1, 1234, -1}) {
    const KVDATETIMESUMM parts{1997, 7, 4, 0, 5, 6, 7, 8, summer, 5};
    KVDATETIME datetime;
    ASSERT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVSUCCESS);
    KVDATETIMESUMM back = kFilled;
    ASSERT_EQ(KVDatetimeFetch(&datetime, &back), KVSUCCESS);
    EXPECT_EQ(back.hour, summer == 0 ? 10 : 9) << "five hours west of here";
    EXPECT_EQ(back.zone, 0);
    EXPECT_EQ(back.dst_in_effect, 0);
  }
}

TEST_F(DatetimeTest, KVDatetimeCreate_LocalZone_OwnZoneHasNoEffect) {
  KVDATETIMESUMM parts{1997, 3, 4, 0, 5, 6, 7, 8, 0, 5};
  KVDATETIME first, second;
  ASSERT_EQ(KVDatetimeCreate(&parts, 1, &first), KVSUCCESS);
  parts.zone = -3;
  parts.dst_in_effect = 1;
  ASSERT_EQ(KVDatetimeCreate(&parts, -1, &second), KVSUCCESS);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof first), 0);
  int32_t zone = 99, summer = 99;
  EngTimeZoneGet(&zone, &summer);
  parts.zone = zone;
  parts.dst_in_effect = summer;
  ASSERT_EQ(KVDatetimeCreate(&parts, 0, &second), KVSUCCESS);
  EXPECT_EQ(std::memcmp(&first, &second, sizeof first), 0);
}

TEST_F(DatetimeTest, KVDatetimeCreate_PartsThatMakeNoDate_BadDatetimeAndZero) {
  constexpr KVDATETIMESUMM kBad[] = {{1997, 13, 1, 0, 0, 0, 0, 0, 0, 0},  {1997, 2, 29, 0, 0, 0, 0, 0, 0, 0},
                                     {1997, 1, 0, 0, 0, 0, 0, 0, 0, 0},   {1997, 1, 1, 0, 24, 0, 0, 0, 0, 0},
                                     {1997, 1, 1, 0, 0, 60, 0, 0, 0, 0},  {1997, 1, 1, 0, 0, 0, 60, 0, 0, 0},
                                     {1997, 1, 1, 0, 0, 0, 0, 100, 0, 0}, {0, 1, 1, 0, 0, 0, 0, 0, 0, 0}};
  for (const KVDATETIMESUMM& parts : kBad) {
    KVDATETIME datetime{{7, 7}};
    EXPECT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVFAIL_BAD_DATETIME)
        << parts.month << " " << parts.hundredth;
    EXPECT_TRUE(IsZero(datetime));
    EXPECT_EQ(LastError().status, KVFAIL_BAD_DATETIME);
  }
}

TEST_F(DatetimeTest, KVDatetimeCreate_PartsLeftOut_DateOrTimeAlone) {
  const KVDATETIMESUMM date{1997, 3, 4, 0, -1, -1, -1, -1, 0, 0};
  const KVDATETIMESUMM time{-1, -1, -1, 0, 5, 6, 7, 8, 0, 0};
  for (const KVDATETIMESUMM& parts : {date, time}) {
    KVDATETIME datetime;
    ASSERT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVSUCCESS);
    KVDATETIMESUMM back = kFilled;
    ASSERT_EQ(KVDatetimeFetch(&datetime, &back), KVSUCCESS);
    EXPECT_EQ(back.year, parts.year);
    EXPECT_EQ(back.day, parts.day);
    EXPECT_EQ(back.hour, parts.hour);
    EXPECT_EQ(back.hundredth, parts.hundredth);
  }
}

TEST_F(DatetimeTest, KVDatetimeFetch_EngineRefuses_BadDatetimeAndZeroParts) {
  const KVDATETIME datetime = Make(1997, 3, 4);
  KVDATETIMESUMM parts = kFilled;
  {
    kit::Fault fault = kit::Fault::EngineCall(1, 0x501, "EngTimeToLocal");
    EXPECT_EQ(KVDatetimeFetch(&datetime, &parts), KVFAIL_BAD_DATETIME);
  }
  const KVDATETIMESUMM zero{};
  EXPECT_EQ(std::memcmp(&parts, &zero, sizeof parts), 0);
}

TEST_F(DatetimeTest, KVDatetimeFetch_HostileBytes_NeverMoreThanAStatus) {
  KVDATETIMESUMM parts;
  for (uint32_t first : {0u, 1u, 8639999u, 8640000u, 0x7fffffffu, 0xfffffffeu, 0xffffffffu})
    for (uint32_t second :
         {0u, 1u, 0xffffffu, 0xfffffeu, 0x7fffffffu, 0x80000000u, 0xffffffffu, 0x3f25d9eeu}) {
      const KVDATETIME datetime{{first, second}};
      const uint32_t status = KVDatetimeFetch(&datetime, &parts);
      EXPECT_TRUE(status == KVSUCCESS || status == KVFAIL_BAD_DATETIME);
      for (int32_t unit = -1; unit <= 9; ++unit) {
        const KVDATETIME other = Make(1997, 3, 4);
        KVDatetimeGetDiff(&datetime, &other, unit);
        KVDatetimeGetDiff(&other, &datetime, unit);
      }
      KVDATETIME moved = datetime;
      const KVDATETIMESUMM far{INT32_MAX, INT32_MIN, INT32_MAX, 0, INT32_MIN, INT32_MAX, INT32_MIN, 0, 0, 0};
      KVDatetimeAdjust(&far, &moved);
    }
}

TEST_F(DatetimeTest, KVDatetimeConstant_EachConstant_EngineSpecialElseBadEnum) {
  for (int32_t constant = 1; constant <= 3; ++constant) {
    KVDATETIME datetime{{7, 7}};
    ASSERT_EQ(KVDatetimeConstant(constant, &datetime), KVSUCCESS);
    TIMEDATE special;
    ASSERT_EQ(EngTimeSpecial(static_cast<uint16_t>(constant - 1), &special), 0);
    EXPECT_EQ(std::memcmp(&datetime, &special, sizeof special), 0);
  }
  for (int32_t constant : {INT32_MIN, -1, 0, 4, 65537, INT32_MAX}) {
    KVDATETIME datetime{{7, 7}};
    EXPECT_EQ(KVDatetimeConstant(constant, &datetime), KVFAIL_BAD_ENUM);
    EXPECT_TRUE(IsZero(datetime));
  }
  EXPECT_EQ(KVDatetimeConstant(4, nullptr), KVFAIL_NULL_PARAM);
}

TEST_F(DatetimeTest, KVDatetimeGetProperty_JulianAndTicks_AsTheEngineTells) {
  const KVDATETIME datetime = Make(2000, 1, 1, 12, 0, 0, 5);
  char room[5];
  ASSERT_EQ(KVDatetimeGetProperty(&datetime, KVPROP_DT_JULIAN_DATE, room + 1), KVSUCCESS);
  EXPECT_EQ(KVILoad<uint32_t>(room + 1), 2451545u);
  ASSERT_EQ(KVDatetimeGetProperty(&datetime, KVPROP_DT_TICKS, room + 1), KVSUCCESS);
  EXPECT_EQ(KVILoad<uint32_t>(room + 1), 12u * 360000 + 5);
}

TEST_F(DatetimeTest, KVDatetimeGetProperty_OrderOfChecks_ValueThenPropertyThenDatetime) {
  const KVDATETIME datetime = Make(2000, 1, 1);
  uint32_t value = 7;
  EXPECT_EQ(KVDatetimeGetProperty(nullptr, 3, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatetimeGetProperty(nullptr, 3, &value), KVFAIL_BAD_PROPERTY);
  EXPECT_EQ(KVDatetimeGetProperty(nullptr, 1, &value), KVFAIL_NULL_PARAM);
  for (int32_t property : {INT32_MIN, -1, 0, 3, INT32_MAX})
    EXPECT_EQ(KVDatetimeGetProperty(&datetime, property, &value), KVFAIL_BAD_PROPERTY);
  EXPECT_EQ(value, 7u);
}

TEST_F(DatetimeTest, KVDatetimeCompare_Order_SignsAndNulls) {
  const KVDATETIME early = Make(1997, 3, 4, 1), late = Make(1997, 3, 4, 2);
  EXPECT_LT(KVDatetimeCompare(&early, &late), 0);
  EXPECT_GT(KVDatetimeCompare(&late, &early), 0);
  EXPECT_EQ(KVDatetimeCompare(&late, &late), 0);
  EXPECT_EQ(KVDatetimeCompare(nullptr, &late), static_cast<int32_t>(KVFAIL_NULL_PARAM));
  EXPECT_EQ(KVDatetimeCompare(&late, nullptr), static_cast<int32_t>(KVFAIL_NULL_PARAM));
  EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
}

TEST_F(DatetimeTest, KVDatetimeGetDiff_EachUnit_FirstMinusSecond) {
  const KVDATETIME first = Make(2001, 5, 9, 13, 30, 15, 40), second = Make(1999, 12, 8, 12, 45, 10, 90);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_YEARS), 2);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_MONTHS), 2 * 12 + 5 - 12);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_DAYS), 518);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_WEEKDAYS), 0);
  EXPECT_EQ(Diff(first, Make(2001, 5, 7), KVDTUNIT_WEEKDAYS), 2);
  const int32_t seconds = 518 * 86400 + 45 * 60 + 5;
  EXPECT_EQ(Diff(first, second, KVDTUNIT_SECONDS), seconds);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_MINUTES), seconds / 60);
  EXPECT_EQ(Diff(first, second, KVDTUNIT_HOURS), seconds / 3600);
  EXPECT_EQ(Diff(second, first, KVDTUNIT_HOURS), -(seconds / 3600)) << "toward zero";
  EXPECT_EQ(Diff(second, first, KVDTUNIT_MINUTES), -(seconds / 60));
  EXPECT_EQ(Diff(Make(2001, 5, 9, 0, 0, 1, 40), Make(2001, 5, 9, 0, 0, 0, 90), KVDTUNIT_HUNDREDTHS), 50);
  EXPECT_EQ(Diff(Make(2001, 5, 9, 0, 0, 0, 0, 5), Make(2001, 5, 9, 0, 0, 0, 0, -3), KVDTUNIT_ZONES), 0)
      << "both are taken apart here";
}

TEST_F(DatetimeTest, KVDatetimeGetDiff_LaterDayInTheSecond_OneMonthLess) {
  EXPECT_EQ(Diff(Make(2001, 6, 1), Make(2001, 5, 31), KVDTUNIT_MONTHS), 0);
  EXPECT_EQ(Diff(Make(2001, 6, 30), Make(2001, 5, 30), KVDTUNIT_MONTHS), 1);
  EXPECT_EQ(Diff(Make(2001, 5, 30), Make(2001, 6, 1), KVDTUNIT_MONTHS), -1);
}

TEST_F(DatetimeTest, KVDatetimeGetDiff_BeyondTheResultsRange_HeldAtItsEnd) {
  const KVDATETIME late = Make(2001, 1, 1), early = Make(1, 1, 1);
  EXPECT_EQ(Diff(late, early, KVDTUNIT_SECONDS), INT32_MAX);
  EXPECT_EQ(Diff(early, late, KVDTUNIT_SECONDS), INT32_MIN);
  EXPECT_EQ(Diff(late, Make(2000, 1, 1), KVDTUNIT_HUNDREDTHS), INT32_MAX);
  EXPECT_EQ(Diff(Make(2000, 1, 1), late, KVDTUNIT_HUNDREDTHS), INT32_MIN);
  EXPECT_EQ(Diff(Make(2001, 1, 2), late, KVDTUNIT_HUNDREDTHS), 8640000);
}

TEST_F(DatetimeTest, KVDatetimeGetDiff_OtherUnitsAndFailures_ZeroWithoutError) {
  const KVDATETIME first = Make(2001, 1, 1), second = Make(2000, 1, 1);
  for (int32_t unit : {INT32_MIN, -1, 9, INT32_MAX}) {
    EXPECT_EQ(Diff(first, second, unit), 0);
    EXPECT_EQ(LastError().status, KVSUCCESS);
  }
  for (uint32_t n : {1u, 2u}) {
    kit::Fault fault = kit::Fault::EngineCall(n, 0x501, "EngTimeToLocal");
    EXPECT_EQ(Diff(first, second, KVDTUNIT_YEARS), 0);
    EXPECT_TRUE(fault.Hit());
    EXPECT_EQ(LastError().status, KVSUCCESS);
  }
  EXPECT_EQ(KVDatetimeGetDiff(nullptr, &second, 99), static_cast<int32_t>(KVFAIL_NULL_PARAM));
  EXPECT_EQ(KVDatetimeGetDiff(&first, nullptr, 99), static_cast<int32_t>(KVFAIL_NULL_PARAM));
}

TEST_F(DatetimeTest, KVDatetimeAdjust_SignedAmounts_Added) {
  KVDATETIME datetime = Make(2000, 1, 31, 23, 59, 59);
  const KVDATETIMESUMM second{0, 0, 0, 77, 0, 0, 1, 77, 77, 77};
  ASSERT_EQ(KVDatetimeAdjust(&second, &datetime), KVSUCCESS);
  const KVDATETIME next = Make(2000, 2, 1);
  EXPECT_EQ(KVDatetimeCompare(&datetime, &next), 0);
  const KVDATETIMESUMM back{-1, 0, -1, 0, -1, -1, 0, 0, 0, 0};
  ASSERT_EQ(KVDatetimeAdjust(&back, &datetime), KVSUCCESS);
  KVDATETIMESUMM parts;
  ASSERT_EQ(KVDatetimeFetch(&datetime, &parts), KVSUCCESS);
  EXPECT_EQ(parts.year, 1999);
  EXPECT_EQ(parts.minute, 59);
}

TEST_F(DatetimeTest, KVDatetimeAdjust_EngineRefuses_BadDatetimeAndUnchanged) {
  KVDATETIME datetime = Make(2000, 1, 31);
  const KVDATETIME before = datetime;
  const KVDATETIMESUMM far{INT32_MAX, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(KVDatetimeAdjust(&far, &datetime), KVFAIL_BAD_DATETIME);
  EXPECT_EQ(std::memcmp(&before, &datetime, sizeof before), 0);
  EXPECT_EQ(KVDatetimeAdjust(nullptr, &datetime), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVDatetimeAdjust(&far, nullptr), KVFAIL_NULL_PARAM);
}

TEST_F(DatetimeTest, AllFunctions_NoSession_StatusOrZero) {
  kit::InThread([] {
    KVDATETIME datetime{};
    KVDATETIMESUMM parts{};
    uint32_t value;
    EXPECT_EQ(KVDatetimeGetCurrent(nullptr), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeCreate(&parts, 0, &datetime), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeFetch(&datetime, &parts), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeConstant(1, &datetime), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeGetProperty(&datetime, 1, &value), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeAdjust(&parts, &datetime), KVFAIL_THREAD_NOT_INITIALIZED);
    EXPECT_EQ(KVDatetimeCompare(nullptr, nullptr), 0);
    EXPECT_EQ(KVDatetimeGetDiff(nullptr, nullptr, 1), 0);
  });
}

}  // namespace
