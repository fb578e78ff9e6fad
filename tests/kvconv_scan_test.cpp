// Values read off text and written back, and texts that a limit has cut.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

class ScanTest : public kit::KavrinTest {
 protected:
  const API_FORMAT* format() { return &KVICurrentSession()->format; }

  struct Scanned {
    uint32_t status;
    uint32_t index;
    double number;
  };
  // Scans a number; the text is an exact copy, so that a checker sees any byte read behind it.
  Scanned Number(const std::string& text, uint32_t index = 0, const FORMAT* own = nullptr) {
    const std::vector<char> exact(text.begin(), text.end());
    Scanned scanned{0, index, -99};
    scanned.status = ScanString(exact.data(), static_cast<uint32_t>(exact.size()), KVTYPE_NUMBERLIST, own,
                                format(), &scanned.index, &scanned.number);
    return scanned;
  }
};

void ExpectScan(const std::string& text, uint32_t from, double number, uint32_t stop,
                const API_FORMAT* format) {
  uint32_t index = from;
  double read = -99;
  EXPECT_EQ(ScanString(text.data(), static_cast<uint32_t>(text.size()), KVTYPE_NUMBERLIST, nullptr, format,
                       &index, &read),
            KVSUCCESS)
      << text;
  EXPECT_EQ(read, number) << text;
  EXPECT_EQ(index, stop) << text;
}

TEST_F(ScanTest, ScanString_Numbers_ValueAndWhereReadingStopped) {
  struct Row {
    const char* text;
    uint32_t from;
    double number;
    uint32_t stop;
  };
  constexpr Row kRows[] = {
      {"1", 0, 1, 1},      {"1,2", 0, 1, 1},   {"1,2", 2, 2, 3},        {"1-5", 0, 1, 1},
      {"1 - 5", 0, 1, 2},  {"  7;8", 0, 7, 3}, {"-1.5e2x", 0, -150, 6}, {"+3", 0, 3, 2},
      {".5", 0, .5, 2},    {"5.", 0, 5, 2},    {"1e", 0, 1, 1},         {"1e+", 0, 1, 1},
      {"1e+2", 0, 100, 4}, {"0x10", 0, 0, 1},  {"1 \t ,2", 0, 1, 4},    {"1\n2", 0, 1, 1},
      {"abc", 0, 0, 0},    {" abc", 0, 0, 1},  {"nan", 0, 0, 0},        {" inf", 0, 0, 1},
      {"1e-400", 0, 0, 6}, {"0e999", 0, 0, 5}, {"1.2.3", 0, 1.2, 3},    {"12e5e", 0, 12e5, 4}};
  for (const Row& row : kRows) ExpectScan(row.text, row.from, row.number, row.stop, format());
}

TEST_F(ScanTest, ScanString_NothingLeft_EndOfDataAndIndexKept) {
  for (const char* text : {"", " ", " \t\n\r "}) {
    const Scanned scanned = Number(text);
    EXPECT_EQ(scanned.status, KVFAIL_END_OF_DATA);
    EXPECT_EQ(scanned.index, 0u);
    EXPECT_EQ(scanned.number, -99);
  }
  const Scanned behind = Number("1, ", 2);
  EXPECT_EQ(behind.status, KVFAIL_END_OF_DATA);
  EXPECT_EQ(behind.index, 2u);
  EXPECT_EQ(Number("1", 5).status, KVFAIL_END_OF_DATA);
}

TEST_F(ScanTest, ScanString_NumberOutOfRange_TooLongAndIndexZero) {
  for (const char* text : {" 1e309", "-1e9999", "1e99999999999999999999",
                           "179769313486231580793728971405303415079934132710037826936173"
                           "778980444968292764750946649017977587207096330286416692887910946555547851940402630"
                           "657488671505820681908902000708"
                           "383676273854845817711531764475730270069855571366959622842914819860834936475292719"
                           "074168444365510704342711559699508"
                           "093042880177904174497792"}) {
    const Scanned scanned = Number(text);
    EXPECT_EQ(scanned.status, KVFAIL_DATA_TOO_LONG) << text;
    EXPECT_EQ(scanned.index, 0u);
  }
  EXPECT_EQ(Number("0.000000001e-400").status, KVSUCCESS);
  EXPECT_EQ(Number("100000000000000000e-400").status, KVSUCCESS);
  EXPECT_EQ(Number("0.0000000000000001e400").status, KVFAIL_DATA_TOO_LONG);
}

TEST_F(ScanTest, ScanString_LongNumber_ReadWhole) {
  const std::string digits = std::string(90, '1') + "," + std::string(3, '2');
  const Scanned scanned = Number(digits);
  EXPECT_EQ(scanned.number, std::strtod(digits.c_str(), nullptr))
      << "longer than the workspace for short ones";
  EXPECT_EQ(scanned.index, 90u);
}

TEST_F(ScanTest, ScanString_BlankSeparates_BlankEndsTheValueAndStays) {
  FORMAT blank{};
  blank.listsep = KVLISTSEP_BLANK;
  const Scanned scanned = Number("1\t 2", 0, &blank);
  EXPECT_EQ(scanned.index, 2u) << "the tab is stepped over, the blank is the separator";
  EXPECT_EQ(Number("1,2 3", 0, &blank).index, 1u) << "a comma ends the number all the same";
}

TEST_F(ScanTest, ScanString_NoValueAskedFor_SameIndex) {
  uint32_t index = 0;
  EXPECT_EQ(ScanString("12;", 3, KVTYPE_NUMBERLIST, nullptr, format(), &index, nullptr), KVSUCCESS);
  EXPECT_EQ(index, 2u);
}

TEST_F(ScanTest, ScanString_Dates_ReadUpToTheSeparator) {
  const char text[] = "3/4/1997, 5/6/1998 10:00";
  uint32_t index = 0;
  char value[8];
  ASSERT_EQ(ScanString(text, sizeof text - 1, KVTYPE_DATETIMELIST, nullptr, format(), &index, value),
            KVSUCCESS);
  EXPECT_EQ(index, 8u);
  index = 9;
  ASSERT_EQ(ScanString(text, sizeof text - 1, KVTYPE_DATETIMELIST, nullptr, format(), &index, value),
            KVSUCCESS);
  EXPECT_EQ(index, sizeof text - 1);
  index = 0;
  EXPECT_EQ(ScanString("never", 5, KVTYPE_DATETIMELIST, nullptr, format(), &index, value),
            KVFAIL_END_OF_DATA);
  EXPECT_EQ(index, 0u) << "a letter promises a date, and none begins there";
  index = 0;
  EXPECT_EQ(ScanString("12", 2, KVTYPE_DATETIMELIST, nullptr, format(), &index, value), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(index, 0u);
}

// Lists of text through the public call

std::vector<double> NumbersOf(const std::string& text, uint32_t* singles, uint32_t* status) {
  std::vector<char> list(65536);
  uint32_t actual = 0;
  *status = KVConvert(KVTYPE_TEXT, static_cast<uint32_t>(text.size()), text.data(), KVTYPE_NUMBERLIST, 65536,
                      list.data(), &actual);
  if (*status != KVSUCCESS) return {};
  *singles = KVILoad<uint16_t>(list.data());
  EXPECT_EQ(actual, 4 + (*singles + 2u * KVILoad<uint16_t>(list.data() + 2)) * 8);
  std::vector<double> numbers((actual - 4) / 8);
  std::memcpy(numbers.data(), list.data() + 4, actual - 4);
  return numbers;
}

TEST_F(ScanTest, KVConvert_TextToNumberList_SinglesFirstThenRanges) {
  struct Row {
    const char* text;
    uint32_t singles;
    std::vector<double> numbers;
  };
  const Row rows[] = {{"1-5, 7", 1, {7, 1, 5}},
                      {"5-1", 0, {5, 1}},
                      {"1 - 5;2--3", 0, {1, 5, 2, -3}},
                      {"1;2\n3,4", 4, {1, 2, 3, 4}},
                      {"1-5-7", 1, {7, 1, 5}},
                      {"1,,2", 3, {1, 0, 2}},
                      {"1,", 1, {1}},
                      {"1, ", 1, {1}},
                      {" abc", 3, {0, 0, 0}},
                      {"1 xy", 2, {1, 0}}};
  for (const Row& row : rows) {
    uint32_t singles = 0, status = 0;
    EXPECT_EQ(NumbersOf(row.text, &singles, &status), row.numbers) << row.text;
    EXPECT_EQ(status, KVSUCCESS) << row.text;
    EXPECT_EQ(singles, row.singles) << row.text;
  }
}

TEST_F(ScanTest, KVConvert_TextThatIsNoList_BadFormatOrTooLong) {
  struct Row {
    const char* text;
    uint32_t status;
  };
  constexpr Row kRows[] = {{"abc", KVFAIL_BAD_FORMAT},          {"1-", KVFAIL_BAD_FORMAT},
                           {"1- ", KVFAIL_BAD_FORMAT},          {"-", KVFAIL_BAD_FORMAT},
                           {"1, 2-", KVFAIL_BAD_FORMAT},        {"1e999", KVFAIL_DATA_TOO_LONG},
                           {"1,2-1e999", KVFAIL_DATA_TOO_LONG}, {",", KVFAIL_BAD_FORMAT}};
  for (const Row& row : kRows) {
    uint32_t singles = 0, status = 0;
    NumbersOf(row.text, &singles, &status);
    EXPECT_EQ(status, row.status) << row.text;
    EXPECT_EQ(kit::LastError().status, row.status);
  }
}

// One value as text

TEST_F(ScanTest, ListType2String_TargetTypes_NulForTextAlone) {
  const double number = 12.5;
  char text[kDatetimeTextMax + 1];
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_NUMBERLIST, KVTYPE_TEXT, &format()->format, format()), 4);
  EXPECT_STREQ(text, "12.5");
  std::memset(text, 'x', sizeof text);
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_NUMBERLIST, KVTYPE_TEXTLIST, &format()->format, format()),
            4);
  EXPECT_EQ(std::string(text, 5), "12.5x");
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_NUMBERLIST, KVTYPE_NUMBER, &format()->format, format()), 0);
  EXPECT_EQ(text[0], 0);
  text[0] = 'x';
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_TEXT, KVTYPE_TEXT, &format()->format, format()), 0);
  EXPECT_EQ(text[0], 0);
  text[0] = 'x';
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_TEXT, KVTYPE_TEXTLIST, &format()->format, format()), 0);
  EXPECT_EQ(text[0], 'x');
}

TEST_F(ScanTest, ListType2String_EngineFails_Empty) {
  const double number = 12.5;
  char text[kDatetimeTextMax + 1] = "x";
  kit::Fault fault = kit::Fault::EngineCall(1, 0x501, "EngNumberToText");
  EXPECT_EQ(ListType2String(&number, text, KVTYPE_NUMBERLIST, KVTYPE_TEXT, &format()->format, format()), 0);
  EXPECT_TRUE(fault.Hit());
  EXPECT_STREQ(text, "");
}

// Cut characters

// The length left of a text, by its last three bytes: 0 a single byte, 2 and 3 prefixes.
uint32_t Revised(uint32_t bytes, int last, int before, int third) {
  if (last != 0) return bytes >= 2 && before == 3 ? bytes - 2 : bytes - 1;
  if (bytes >= 2 && before == 3) return bytes >= 3 && third == 3 ? bytes : bytes - 2;
  return bytes;
}

TEST_F(ScanTest, ReviseSplitCharacter_EveryEnding_WholeCharactersLeft) {
  const auto byte_of = [](int kind) { return kind == 2 ? '\x05' : kind == 3 ? '\x12' : 'a'; };
  for (uint32_t bytes = 1; bytes <= 4; ++bytes)
    for (int third : {0, 2, 3})
      for (int before : {0, 2, 3})
        for (int last : {0, 2, 3}) {
          char text[5] = {'a', byte_of(third), byte_of(before), byte_of(last), '!'};
          char* start = text + 4 - bytes;
          const uint32_t expected = Revised(bytes, last, before, third);
          uint32_t length = bytes;
          EXPECT_TRUE(ReviseSplitCharacter(&length, static_cast<const void*>(start)));
          EXPECT_EQ(length, expected) << bytes << third << before << last;
          const std::string untouched(text, 5);
          length = bytes;
          EXPECT_TRUE(ReviseSplitCharacter(&length, start, 0));
          EXPECT_EQ(length, expected);
          EXPECT_EQ(std::string(text, 5), untouched);
          length = bytes;
          EXPECT_TRUE(ReviseSplitCharacter(&length, start, 1));
          EXPECT_EQ(length, expected);
          if (expected != bytes) {
            EXPECT_EQ(start[expected], 0);
          } else {
            EXPECT_EQ(std::string(text, 5), untouched);
          }
        }
}

TEST_F(ScanTest, ReviseSplitCharacter_NothingToLookAt_False) {
  uint32_t length = 0;
  char text[] = "a";
  EXPECT_FALSE(ReviseSplitCharacter(nullptr, text, 1));
  EXPECT_FALSE(ReviseSplitCharacter(&length, text, 1));
  length = 1;
  EXPECT_FALSE(ReviseSplitCharacter(&length, static_cast<char*>(nullptr), 1));
  EXPECT_EQ(length, 1u);
}

}  // namespace
