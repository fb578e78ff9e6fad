// Dates and times read off text, in the conventions of each kind of settings.
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

constexpr int32_t kNone = -1;
constexpr uint16_t kMonthFirst = 0x20;
constexpr uint16_t kDayFirst = 0x40;
constexpr uint16_t kYearFirst = 0x80;

struct Fields {
  int32_t year, month, day, hour, minute, second, hundredth;
  bool operator==(const Fields&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Fields& f) {
  return out << f.year << "/" << f.month << "/" << f.day << " " << f.hour << ":" << f.minute << ":"
             << f.second << "." << f.hundredth;
}

class DateTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    kit::KavrinTest::SetUp();
    format_ = KVICurrentSession()->format;
    SetOrder(kMonthFirst);
    SetWords("/", ":", "AM", "PM");
  }

  void SetOrder(uint16_t order) { format_.intl.Flags = order; }
  void SetWords(const char* date, const char* time, const char* morning, const char* afternoon) {
    INTLFORMAT& intl = format_.intl;
    std::strcpy(intl.DateString, date);
    std::strcpy(intl.TimeString, time);
    std::strcpy(intl.AMString, morning);
    std::strcpy(intl.PMString, afternoon);
    format_.datesep_len = static_cast<uint16_t>(std::strlen(date));
    format_.timesep_len = static_cast<uint16_t>(std::strlen(time));
    format_.amstring_len = static_cast<uint16_t>(std::strlen(morning));
    format_.pmstring_len = static_cast<uint16_t>(std::strlen(afternoon));
  }

  int32_t PresentYear() {
    TIME now{};
    EngTimedateNow(&now.GM);
    int32_t zone = 0, summer = 0;
    EngTimeZoneGet(&zone, &summer);
    now.zone = zone;
    now.dst = summer;
    EXPECT_EQ(EngTimeToLocalZone(&now), 0);
    return now.year;
  }
  int32_t InCentury(int32_t year) { return PresentYear() / 100 * 100 + year; }

  // The date-time that fields in the local zone make, as the reader fills them.
  TIMEDATE Make(const Fields& f) {
    int32_t zone = 0, summer = 0;
    EngTimeZoneGet(&zone, &summer);
    TIME time{};
    time.year = f.year, time.month = f.month, time.day = f.day;
    time.hour = f.hour, time.minute = f.minute, time.second = f.second, time.hundredth = f.hundredth;
    time.zone = f.year == kNone ? 0 : zone;
    time.dst = f.hour == kNone ? 0 : summer;
    EXPECT_EQ(EngTimeFromLocal(&time), 0) << f;
    return time.GM;
  }

  void ExpectDate(const std::string& text, const Fields& fields, size_t stop = std::string::npos) {
    TIMEDATE date{};
    const char* end = nullptr;
    ASSERT_EQ(String2Date(text.c_str(), &format_, &date, &end), KVSUCCESS) << text;
    const TIMEDATE expected = Make(fields);
    EXPECT_EQ(std::memcmp(&date, &expected, sizeof date), 0) << text << ": " << fields;
    EXPECT_EQ(end - text.c_str(), static_cast<ptrdiff_t>(stop == std::string::npos ? text.size() : stop))
        << text;
  }
  void ExpectFailure(const std::string& text, uint32_t status) {
    TIMEDATE date{{1, 2}};
    const char* end = nullptr;
    EXPECT_EQ(String2Date(text.c_str(), &format_, &date, &end), status) << text;
    EXPECT_EQ(end, text.c_str()) << text;
  }

  API_FORMAT format_;
};

constexpr Fields Day(int32_t year, int32_t month, int32_t day) {
  return {year, month, day, kNone, kNone, kNone, kNone};
}
constexpr Fields Clock(int32_t hour, int32_t minute, int32_t second = 0, int32_t hundredth = 0) {
  return {kNone, kNone, kNone, hour, minute, second, hundredth};
}

TEST_F(DateTest, String2Date_NumericDates_ByTheOrderOfTheSettings) {
  ExpectDate("3/4/1997", Day(1997, 3, 4));
  ExpectDate(" 3 / 4/1997", Day(1997, 3, 4));
  ExpectDate("3-4/1997", Day(1997, 3, 4));
  ExpectDate("3/4/97", Day(InCentury(97), 3, 4));
  SetOrder(kDayFirst);
  ExpectDate("3/4/1997", Day(1997, 4, 3));
  SetOrder(kYearFirst);
  ExpectDate("1997/3/4", Day(1997, 3, 4));
  SetOrder(kDayFirst | kYearFirst);
  ExpectDate("3/4/1997", Day(1997, 4, 3));
  SetOrder(0);
  ExpectDate("3/4/1997", Day(1997, 3, 4));
}

TEST_F(DateTest, String2Date_YearsLeftOutOrShort_CenturyAndYearOfToday) {
  ExpectDate("1/2/0", Day(PresentYear(), 1, 2));
  ExpectDate("1/2/", Day(PresentYear(), 1, 2));
  ExpectDate("1/2/99", Day(InCentury(99), 1, 2));
  ExpectDate("1/2/100", Day(100, 1, 2));
  ExpectDate("Mar 4", Day(PresentYear(), 3, 4));
  ExpectDate("4 Mar", Day(PresentYear(), 3, 4));
}

TEST_F(DateTest, String2Date_NumericDatesThatAreNone_BadFormat) {
  for (const char* text : {"3/4", "3/", "0/1/1997", "3/4 1997", "Mar-4"})
    ExpectFailure(text, KVFAIL_BAD_FORMAT);
  ExpectFailure("/3/4/97", KVFAIL_END_OF_DATA);
}

TEST_F(DateTest, String2Date_DaysThatAreNone_BadFormatBehindTheText) {
  for (const char* text :
       {"13/1/1997", "2/30/1997", "1/0/1997", "3/4/99999", "3/4/99999999999999", "May 98,1997", "0 5 Mar"}) {
    TIMEDATE date{{1, 2}};
    const char* end = nullptr;
    EXPECT_EQ(String2Date(text, &format_, &date, &end), KVFAIL_BAD_FORMAT) << text;
    EXPECT_EQ(date.Innards[0], 1u);
  }
}

TEST_F(DateTest, String2Date_MonthNames_EitherOrder) {
  ExpectDate("4 March 97", Day(InCentury(97), 3, 4));
  ExpectDate("4March1997", Day(1997, 3, 4));
  ExpectDate("March 4, 1997", Day(1997, 3, 4));
  ExpectDate("March, 4 1997", Day(1997, 3, 4));
  ExpectDate("March 1997", Day(1997, 3, 1));
  ExpectDate("mar. 4", Day(PresentYear(), 3, 4));
  ExpectDate("MAR 4", Day(PresentYear(), 3, 4));
  ExpectDate("Sept 4", Day(PresentYear(), 9, 4));
  ExpectDate("september 4", Day(PresentYear(), 9, 4));
  ExpectDate("May 100", Day(100, 5, 1));
}

TEST_F(DateTest, String2Date_MonthNamesThatAreNone_Refused) {
  ExpectFailure("SEPTEMBER 4", KVFAIL_BAD_FORMAT);
  ExpectDate("4 SEPTEMBRE", Day(PresentYear(), 9, 4), 5);
  ExpectFailure("Foo 4", KVFAIL_END_OF_DATA);
  ExpectFailure("5 pm", KVFAIL_BAD_FORMAT);
  ExpectFailure("ma", KVFAIL_END_OF_DATA);
  ExpectFailure("March", KVFAIL_BAD_FORMAT);
  ExpectFailure("March, x", KVFAIL_BAD_FORMAT);
}

TEST_F(DateTest, String2Date_Times_WithAndWithoutSecondsAndHundredths) {
  ExpectDate("12:30", Clock(12, 30));
  ExpectDate(" 3 : 4 : 5 ", Clock(3, 4, 5));
  ExpectDate("3:04:05.06", Clock(3, 4, 5, 6));
  ExpectDate("3:04:05:06", Clock(3, 4, 5, 6));
  ExpectDate("3:04:05.5", Clock(3, 4, 5, 5));
  ExpectDate("3:04:05.123", Clock(3, 4, 5, 12));
  ExpectDate("3:04:05.99999999999999", Clock(3, 4, 5, 99));
  ExpectDate("0:0:0", Clock(0, 0));
  ExpectDate("23:59:59.99", Clock(23, 59, 59, 99));
}

TEST_F(DateTest, String2Date_AfternoonAndMorning_NoonAsApplicationsKnowIt) {
  ExpectDate("5:00 pm", Clock(17, 0));
  ExpectDate("5:00PM", Clock(17, 0));
  ExpectDate("11:59 pm", Clock(23, 59));
  ExpectDate("12:01 pm", Clock(12, 1));
  ExpectDate("12:00:01 pm", Clock(12, 0, 1));
  ExpectDate("12:00:00.01 pm", Clock(12, 0, 0, 1));
  ExpectDate("12:00 am", Clock(12, 0));
  ExpectDate("13:00 pm", Clock(13, 0));
  ExpectDate("0:30 pm", Clock(12, 30));
  ExpectFailure("12:00 pm", KVFAIL_BAD_FORMAT);
}

TEST_F(DateTest, String2Date_TimesThatAreNone_Refused) {
  for (const char* text : {"24:00", "1:60", "1:00:60", "1:", "1:2:", "1:2:3.", "1:2:3.x", "999999999999:00"})
    ExpectFailure(text, KVFAIL_BAD_FORMAT);
  ExpectFailure(":30", KVFAIL_END_OF_DATA);
}

TEST_F(DateTest, String2Date_DateAndTime_EitherOrder) {
  ExpectDate("1/2/1997 3:04:05.06", {1997, 1, 2, 3, 4, 5, 6});
  ExpectDate("3:04 1/2/1997", {1997, 1, 2, 3, 4, 0, 0});
  ExpectDate("3:04 pm 2 Jan 1997", {1997, 1, 2, 15, 4, 0, 0});
  ExpectDate("Mar 4 10:30", {PresentYear(), 3, 4, 10, 30, 0, 0});
  ExpectDate("Mar 4, 1997 10 pm", {1997, 3, 4, 22, 0, 0, 0});
  ExpectDate("3/4/1997 5", {1997, 3, 4, 5, 0, 0, 0});
  ExpectFailure("1/2/1997 25:00", KVFAIL_BAD_FORMAT);
  ExpectFailure("3:04 1/2", KVFAIL_BAD_FORMAT);
}

TEST_F(DateTest, String2Date_TextBehind_StopsBeforeIt) {
  ExpectDate("3/4/1997 xyz", Day(1997, 3, 4), 8);
  ExpectDate("3/4/1997-5/6/1997", Day(1997, 3, 4), 8);
  ExpectDate("12:30 xyz", Clock(12, 30), 6);
}

TEST_F(DateTest, String2Date_NothingThatDecides_BadFormatAndOnes) {
  for (const char* text : {"", "12", " 1 2 3", "...", ",;"}) {
    TIMEDATE date{};
    EXPECT_EQ(String2Date(text, &format_, &date, nullptr), KVFAIL_BAD_FORMAT) << text;
    EXPECT_EQ(date.Innards[0], 0xffffffffu);
    EXPECT_EQ(date.Innards[1], 0xffffffffu);
  }
}

TEST_F(DateTest, String2Date_OwnSeparators_Taken) {
  SetWords(".", "h", "vorm", "nach");
  SetOrder(kDayFirst);
  ExpectDate("3.4.1997 5h06", {1997, 4, 3, 5, 6, 0, 0});
  ExpectDate("5h06 nach", Clock(17, 6));
  SetWords("--", "::", "AM", "PM");
  ExpectDate("5::06", Clock(5, 6));
  SetWords("", "", "", "");
  ExpectDate("5:06", Clock(5, 6));
  ExpectDate("3/4/1997", Day(1997, 4, 3));
  ExpectFailure("1997", KVFAIL_BAD_FORMAT);
}

TEST_F(DateTest, GetMonth_NamesAndShortNames_SteppedOver) {
  struct Row {
    const char* text;
    uint32_t month;
    size_t stop;
  };
  constexpr Row kRows[] = {{"january", 1, 7}, {"Feb.", 2, 4},    {"marching", 3, 5}, {"aprx", 4, 3},
                           {"May", 5, 3},     {"JUNE", 6, 3},    {"july..", 7, 5},   {"aug 1", 8, 3},
                           {"Sept", 9, 4},    {"octobe", 10, 6}, {"nov9", 11, 3},    {"december1", 12, 8},
                           {"ja", 0, 0},      {"", 0, 0},        {"foo", 0, 0},      {" jan", 0, 0}};
  for (const Row& row : kRows) {
    const char* data = row.text;
    EXPECT_EQ(GetMonth(&data), row.month) << row.text;
    EXPECT_EQ(data - row.text, static_cast<ptrdiff_t>(row.stop)) << row.text;
  }
}

TEST_F(DateTest, GetDate_GetTime_OutputsOnSuccessAlone) {
  TIME time{};
  time.year = 2042;
  const char* end = nullptr;
  EXPECT_EQ(GetDate("7/8/9 x", &format_, &time, &end), KVSUCCESS);
  EXPECT_EQ(time.year, 2009);
  EXPECT_EQ(time.month, 7);
  EXPECT_EQ(time.day, 8);
  EXPECT_EQ(time.weekday, 0);
  EXPECT_STREQ(end, " x");
  const char* const kept = end;
  EXPECT_EQ(GetDate("x", &format_, &time, &end), KVFAIL_END_OF_DATA);
  EXPECT_EQ(GetTime("x", &format_, &time, &end), KVFAIL_END_OF_DATA);
  EXPECT_EQ(GetTime("25", &format_, &time, &end), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(end, kept);
  EXPECT_EQ(GetTime("7 pm.", &format_, &time, &end), KVSUCCESS);
  EXPECT_EQ(time.hour, 19);
  EXPECT_STREQ(end, ".");
}

TEST_F(DateTest, KVConvert_TextToDatetime_AnyFailureIsBadFormat) {
  for (const char* text : {"", "12", "Foo 4", "24:00", "3/4"}) {
    KVDATETIME datetime{{7, 7}};
    EXPECT_EQ(KVConvert(KVTYPE_TEXT, 0, text, KVTYPE_DATETIME, 8, &datetime, nullptr), KVFAIL_BAD_FORMAT)
        << text;
    EXPECT_EQ(datetime.innards[0], 0u);
    EXPECT_EQ(datetime.innards[1], 0u);
  }
}

TEST_F(DateTest, KVConvert_TextToDatetimeList_SinglesAndRanges) {
  const char text[] = "3/4/1997 - 5/4/1997; 1:00-2:00, 6/4/1997";
  char list[128];
  uint32_t actual = 0;
  ASSERT_EQ(KVConvert(KVTYPE_TEXT, 0, text, KVTYPE_DATETIMELIST, 127, list, &actual), KVSUCCESS);
  EXPECT_EQ(actual, 4u + 5 * 8);
  EXPECT_EQ(KVILoad<uint16_t>(list), 1);
  EXPECT_EQ(KVILoad<uint16_t>(list + 2), 2);
  const TIMEDATE single = Make(Day(1997, 6, 4)), low = Make(Day(1997, 3, 4)), high = Make(Day(1997, 5, 4));
  EXPECT_EQ(std::memcmp(list + 4, &single, 8), 0);
  EXPECT_EQ(std::memcmp(list + 12, &low, 8), 0);
  EXPECT_EQ(std::memcmp(list + 20, &high, 8), 0);
}

}  // namespace
