#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/intl.h"
#include "base/number.h"
#include "brynd_text.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

constexpr uint8_t kGeneral = 0, kFixed = 1, kScientific = 2, kCurrency = 3;

std::string Text(double number, NFMT format = {}, const INTLFORMAT& intl = DefaultIntl()) {
  char room[700];
  size_t bytes = 0;
  const EngStatus failure = NumberToText(intl, format, number, room, &bytes);
  return failure == 0 ? std::string(room, bytes) : "status " + std::to_string(failure);
}

TEST(NumberTest, General_FifteenDigitsWithoutTrailingZeros) {
  EXPECT_EQ("0", Text(0));
  EXPECT_EQ("0", Text(-0.0));
  EXPECT_EQ("1", Text(1));
  EXPECT_EQ("-17", Text(-17));
  EXPECT_EQ("0.1", Text(0.1));
  EXPECT_EQ("0.3", Text(0.1 + 0.2)) << "17 digits would show 0.30000000000000004";
  EXPECT_EQ("0.333333333333333", Text(1.0 / 3));
  EXPECT_EQ("0.666666666666667", Text(2.0 / 3));
  EXPECT_EQ("1234.5", Text(1234.5));
  EXPECT_EQ("100", Text(99.9999999999999999));
  EXPECT_EQ("100", Text(100 - 1e-14)) << "rounds up to a further digit";
  EXPECT_EQ("999999999999999", Text(999999999999999.0));
  EXPECT_EQ("1E+15", Text(1e15));
  EXPECT_EQ("-1.5E+20", Text(-1.5e20));
  EXPECT_EQ("9.00719925474099E+15", Text(9007199254740993.0));
  EXPECT_EQ("0.0001", Text(0.0001));
  EXPECT_EQ("1E-05", Text(0.00001));
  EXPECT_EQ("1.79769313486232E+308", Text(DBL_MAX));
  EXPECT_EQ("2.2250738585072E-308", Text(DBL_MIN));
  EXPECT_EQ("4.94065645841247E-324", Text(5e-324));
  EXPECT_EQ("Infinity", Text(std::numeric_limits<double>::infinity()));
  EXPECT_EQ("-Infinity", Text(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ("NaN", Text(std::nan("")));
  EXPECT_EQ("NaN", Text(-std::nan("")));
}

TEST(NumberTest, Fixed_DigitsAndRounding) {
  EXPECT_EQ("3.14", Text(3.14159, {2, kFixed, 0, 0}));
  EXPECT_EQ("3", Text(3.14159, {0, kFixed, 0, 0}));
  EXPECT_EQ("2", Text(2.5, {0, kFixed, 0, 0})) << "an exact half goes to the even digit";
  EXPECT_EQ("4", Text(3.5, {0, kFixed, 0, 0}));
  EXPECT_EQ("1.000", Text(1, {3, kFixed, 0, 0}));
  EXPECT_EQ("0.00", Text(-0.001, {2, kFixed, 0, 0})) << "nothing left to be negative";
  EXPECT_EQ("-0.01", Text(-0.009, {2, kFixed, 0, 0}));
  EXPECT_EQ("0.000000000000001", Text(1e-15, {15, kFixed, 0, 0}));
  EXPECT_EQ(309u + 1 + 255, Text(DBL_MAX, {255, kFixed, 0, 0}).size());
  EXPECT_EQ("Infinity", Text(INFINITY, {2, kFixed, 1, 0}));
}

TEST(NumberTest, Scientific_OneDigitBeforeThePoint) {
  EXPECT_EQ("1.23E+05", Text(123456, {2, kScientific, 0, 0}));
  EXPECT_EQ("1E+05", Text(123456, {0, kScientific, 0, 0}));
  EXPECT_EQ("-4.9E-324", Text(-5e-324, {1, kScientific, 0, 0}));
  EXPECT_EQ("0.00E+00", Text(0, {2, kScientific, 0, 0}));
  EXPECT_EQ("1.23E+05", Text(123456, {2, kScientific, kNumberThousands, 0}))
      << "no thousands beside an exponent";
}

TEST(NumberTest, Currency_SymbolPlaceAndDigits) {
  EXPECT_EQ("$1234.50", Text(1234.5, {0, kCurrency, 0, 0})) << "the place's digits, not the format's";
  EXPECT_EQ("-$1234.50", Text(-1234.5, {9, kCurrency, 0, 0}));
  EXPECT_EQ("($1,234.50)", Text(-1234.5, {2, kCurrency, kNumberThousands | kNumberParentheses, 0}));
  INTLFORMAT intl = DefaultIntl();
  intl.CurrencyDigits = 3;
  std::strcpy(intl.CurrencyString, "EUR");
  std::strcpy(intl.DecimalString, ",");
  std::strcpy(intl.ThousandString, ".");
  intl.Flags |= BRINTL_CURRENCY_SUFFIX | BRINTL_CURRENCY_SPACE;
  EXPECT_EQ("1.234.567,125 EUR", Text(1234567.125, {2, kCurrency, kNumberThousands, 0}, intl));
  EXPECT_EQ("(7,000 EUR)", Text(-7, {2, kCurrency, kNumberParentheses, 0}, intl));
  intl.Flags &= static_cast<uint16_t>(~BRINTL_CURRENCY_SUFFIX);
  EXPECT_EQ("EUR 7,000", Text(7, {2, kCurrency, 0, 0}, intl));
  intl.Flags &= static_cast<uint16_t>(~BRINTL_CURRENCY_SPACE);
  EXPECT_EQ("EUR7,000", Text(7, {2, kCurrency, 0, 0}, intl));
}

TEST(NumberTest, Attributes_ThousandsParenthesesPercent) {
  EXPECT_EQ("1", Text(1, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("123", Text(123, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("1,234", Text(1234, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("12,345", Text(12345, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("123,456", Text(123456, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("-1,234,567.25", Text(-1234567.25, {0, kGeneral, kNumberThousands, 0}));
  EXPECT_EQ("(5)", Text(-5, {0, kGeneral, kNumberParentheses, 0}));
  EXPECT_EQ("5", Text(5, {0, kGeneral, kNumberParentheses, 0}));
  EXPECT_EQ("12.5%", Text(0.125, {0, kGeneral, kNumberPercent, 0}));
  EXPECT_EQ("7%", Text(0.07, {0, kGeneral, kNumberPercent, 0}));
  EXPECT_EQ("(12.50%)", Text(-0.125, {2, kFixed, kNumberPercent | kNumberParentheses, 0}));
  EXPECT_EQ("Infinity%", Text(DBL_MAX, {0, kGeneral, kNumberPercent, 0}));
}

TEST(NumberTest, LeadingZero_IsTheFlagOfThePlace) {
  INTLFORMAT intl = DefaultIntl();
  intl.Flags &= static_cast<uint16_t>(~BRINTL_LEADING_ZERO);
  EXPECT_EQ(".5", Text(0.5, {}, intl));
  EXPECT_EQ("-.25", Text(-0.25, {2, kFixed, 0, 0}, intl));
  EXPECT_EQ("0", Text(0, {}, intl));
  EXPECT_EQ(".00", Text(0, {2, kFixed, 0, 0}, intl));
  EXPECT_EQ("10.5", Text(10.5, {}, intl));
}

TEST(NumberTest, Conventions_WithoutTerminatorsOrEmpty_AreSurvived) {
  INTLFORMAT intl = DefaultIntl();
  std::memset(intl.DecimalString, 'd', sizeof intl.DecimalString);
  std::memset(intl.ThousandString, 't', sizeof intl.ThousandString);
  EXPECT_EQ("1ttttt000ddddd5", Text(1000.5, {0, kGeneral, kNumberThousands, 0}, intl));
  std::memset(intl.DecimalString, 0, sizeof intl.DecimalString);
  std::memset(intl.ThousandString, 0, sizeof intl.ThousandString);
  EXPECT_EQ("1000.5", Text(1000.5, {0, kGeneral, kNumberThousands, 0}, intl));
}

TEST(NumberTest, EngNumberToText_EveryFormatAndAttribute_FitsOrIsRefusedAtEveryLimit) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 4000; ++round) {
    const uint64_t bits = random.U64();
    double number = 0;
    std::memcpy(&number, &bits, 8);
    if (random.Below(2) == 0) number = static_cast<double>(random.Between(-100000000, 100000000)) / 100;
    const NFMT format{static_cast<uint8_t>(random.Below(16)), static_cast<uint8_t>(random.Below(4)),
                      static_cast<uint8_t>(random.Below(8)), 0};
    const std::string whole = Text(number, format);
    ASSERT_EQ(std::string::npos, whole.find("status"));
    char room[700];
    const auto limit = static_cast<uint16_t>(random.Below(static_cast<uint32_t>(whole.size()) + 3));
    std::memset(room, '#', sizeof room);
    uint16_t length = 9999;
    const EngStatus failure = EngNumberToText(nullptr, &format, &number, room, limit, &length);
    ASSERT_EQ('#', room[limit]);
    if (limit < whole.size()) {
      ASSERT_EQ(status::kTextTooLong, failure);
      ASSERT_EQ(9999, length);
    } else {
      ASSERT_EQ(0, failure);
      ASSERT_EQ(whole, std::string(room, length));
    }
  }
}

TEST(NumberTest, EngNumberToText_BadArguments_StatusAndOutputsAlone) {
  char room[40] = "#";
  uint16_t length = 5;
  const double number = 1;
  const NFMT bad{0, 4, 0, 0};
  EXPECT_EQ(status::kBadFormat, EngNumberToText(nullptr, &bad, &number, room, 39, &length));
  EXPECT_EQ(status::kBadArgument, EngNumberToText(nullptr, nullptr, nullptr, room, 39, &length));
  EXPECT_EQ(status::kBadArgument, EngNumberToText(nullptr, nullptr, &number, nullptr, 39, &length));
  EXPECT_EQ(status::kBadArgument, EngNumberToText(nullptr, nullptr, &number, room, 39, nullptr));
  EXPECT_EQ(5, length);
  EXPECT_EQ('#', room[0]);
}

// The slow plain version: printf to 15 digits.
std::string PrintfGeneral(double number) {
  char room[64];
  std::snprintf(room, sizeof room, "%.15g", number);
  std::string text = room;
  for (char& letter : text) letter = letter == 'e' ? 'E' : letter;
  return text == "-0" ? "0" : text;
}

TEST(NumberTest, General_RandomNumbers_AgreeWithPrintf) {
  TestRandom random(SeedOfRun() + 1);
  for (int round = 0; round < 200000; ++round) {
    const uint64_t bits = random.U64();
    double number = 0;
    std::memcpy(&number, &bits, 8);
    if (round % 4 == 1) number = static_cast<double>(random.Between(-1000000000, 1000000000)) / 1000;
    if (round % 4 == 2) number = static_cast<double>(static_cast<int64_t>(bits) >> random.Below(60));
    if (round % 4 == 3)
      number = std::ldexp(static_cast<double>(bits >> 11), static_cast<int>(random.Below(120)) - 100);
    if (!std::isfinite(number)) continue;
    ASSERT_EQ(PrintfGeneral(number), Text(number));
    char room[kGeneralNumberBytesMax];
    ASSERT_EQ(PrintfGeneral(number), std::string(room, GeneralNumberText(number, room)));
  }
}

TEST(NumberTest, General_DecimalsOfFifteenDigits_ReadBackAsTheSameNumber) {
  TestRandom random(SeedOfRun() + 2);
  for (int round = 0; round < 50000; ++round) {
    char decimal[64];
    std::snprintf(decimal, sizeof decimal, "%lldE%lld",
                  static_cast<long long>(random.Between(-99999999999999, 99999999999999)),
                  static_cast<long long>(random.Between(-250, 250)));
    double number = 0, back = 0;
    size_t used = 0;
    ASSERT_EQ(NumberParse::kNumber, ParseNumber(decimal, &number, &used));
    const std::string text = Text(number);
    ASSERT_EQ(NumberParse::kNumber, ParseNumber(text, &back, &used));
    ASSERT_EQ(text.size(), used);
    ASSERT_EQ(number, back) << decimal;
  }
}

TEST(NumberTest, ParseNumber_PlainDecimalsOnly) {
  struct Row {
    std::string_view text;
    NumberParse parse;
    double number;
    size_t used;
  };
  const Row rows[] = {{"12", NumberParse::kNumber, 12, 2},
                      {"-1.5x", NumberParse::kNumber, -1.5, 4},
                      {"+3", NumberParse::kNumber, 3, 2},
                      {".5", NumberParse::kNumber, 0.5, 2},
                      {"5.", NumberParse::kNumber, 5, 2},
                      {"1e3", NumberParse::kNumber, 1000, 3},
                      {"1E-2,", NumberParse::kNumber, 0.01, 4},
                      {"1e", NumberParse::kNumber, 1, 1},
                      {"1e+", NumberParse::kNumber, 1, 1},
                      {"0x10", NumberParse::kNumber, 0, 1},
                      {"1.2.3", NumberParse::kNumber, 1.2, 3},
                      {"", NumberParse::kNone, 0, 0},
                      {"-", NumberParse::kNone, 0, 0},
                      {".", NumberParse::kNone, 0, 0},
                      {"-.e1", NumberParse::kNone, 0, 0},
                      {" 1", NumberParse::kNone, 0, 0},
                      {"abc", NumberParse::kNone, 0, 0},
                      {"inf", NumberParse::kNone, 0, 0},
                      {"nan", NumberParse::kNone, 0, 0},
                      {"--1", NumberParse::kNone, 0, 0},
                      {"+-1", NumberParse::kNone, 0, 0},
                      {"1e400", NumberParse::kOverflow, INFINITY, 5},
                      {"-1e400", NumberParse::kOverflow, -INFINITY, 6},
                      {"1e-400", NumberParse::kNumber, 0, 6},
                      {"0e999999999999999999999", NumberParse::kNumber, 0, 23},
                      {"0.0000001e310", NumberParse::kNumber, 1e303, 13},
                      {"1e99999999999999999999", NumberParse::kOverflow, INFINITY, 22},
                      {"1e-99999999999999999999", NumberParse::kNumber, 0, 23},
                      {"4.9e-324", NumberParse::kNumber, 5e-324, 8}};
  for (const Row& row : rows) {
    double number = 99;
    size_t used = 99;
    EXPECT_EQ(row.parse, ParseNumber(row.text, &number, &used)) << row.text;
    EXPECT_EQ(row.number, number) << row.text;
    EXPECT_EQ(row.used, used) << row.text;
  }
  const std::string many(400, '9');
  double number = 0;
  size_t used = 0;
  EXPECT_EQ(NumberParse::kOverflow, ParseNumber(many, &number, &used));
  EXPECT_EQ(400u, used);
}

TEST(NumberTest, ParseWhole_AllOrNothing) {
  EXPECT_EQ(12.5, ParseWholeNumber(" 12.5 ").value());
  EXPECT_FALSE(ParseWholeNumber("12.5 x"));
  EXPECT_FALSE(ParseWholeNumber(""));
  EXPECT_FALSE(ParseWholeNumber("1e999"));
  EXPECT_EQ(255u, ParseWholeUnsigned("255", 255).value());
  EXPECT_FALSE(ParseWholeUnsigned("256", 255));
  EXPECT_FALSE(ParseWholeUnsigned("-1", 255));
  EXPECT_FALSE(ParseWholeUnsigned("", 255));
  EXPECT_FALSE(ParseWholeUnsigned("1 ", 255));
  EXPECT_FALSE(ParseWholeUnsigned("99999999999999999999999", UINT64_MAX));
}

}  // namespace
