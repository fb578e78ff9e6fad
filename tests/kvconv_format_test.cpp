// Display formats and the separators of lists.
#include <cstring>
#include <string>

#include "kit/kit.h"
#include "kvint.h"

namespace {

constexpr KVFORMAT kDefault = KVFORMAT_DEFAULT;

struct Internal {
  NFMT nfmt{.Digits = 91, .Format = 92, .Attributes = 93, .Unused = 94};
  TFMT tfmt{.Date = 95, .Time = 96, .Zone = 97, .Structure = 98};
  uint16_t listsep = 0x9999;
};

bool IsUnchanged(const Internal& internal) {
  const Internal fresh;
  return std::memcmp(&internal.nfmt, &fresh.nfmt, sizeof(NFMT)) == 0 &&
         std::memcmp(&internal.tfmt, &fresh.tfmt, sizeof(TFMT)) == 0 && internal.listsep == fresh.listsep;
}

uint32_t Put(const KVFORMAT& format, Internal* internal) {
  return PutFormat(&format, &internal->nfmt, &internal->tfmt, &internal->listsep);
}

FORMAT WithSeparators(uint16_t listsep) {
  FORMAT format{};
  format.listsep = listsep;
  return format;
}

TEST(FormatTest, KVFORMAT_Layout_PackedWords) {
  EXPECT_EQ(sizeof(KVFORMAT), 36u);
  EXPECT_EQ(offsetof(KVFORMAT, datetime), 12u);
  EXPECT_EQ(offsetof(KVFORMAT, listsep), 28u);
}

TEST(FormatTest, PutFormat_Default_WordsOfANewSession) {
  Internal internal;
  ASSERT_EQ(Put(kDefault, &internal), KVSUCCESS);
  EXPECT_EQ(internal.nfmt.Digits, 2);
  EXPECT_EQ(internal.nfmt.Format, 0);
  EXPECT_EQ(internal.nfmt.Attributes, 0);
  EXPECT_EQ(internal.nfmt.Unused, 0);
  EXPECT_EQ(internal.tfmt.Date, 0);
  EXPECT_EQ(internal.tfmt.Time, 0);
  EXPECT_EQ(internal.tfmt.Zone, 0);
  EXPECT_EQ(internal.tfmt.Structure, 2);
  EXPECT_EQ(internal.listsep, 0x200e);
}

// Each member below its range, at its ends, above it.
TEST(FormatTest, PutFormat_MembersOutOfRange_BadEnumAndNothingWritten) {
  struct Word {
    size_t offset;
    int32_t last;
  };
  constexpr Word kWords[] = {{4, 3}, {12, 3}, {16, 1}, {20, 2}, {24, 3}, {28, 5}};
  for (const Word& word : kWords)
    for (int32_t value : {INT32_MIN, -1, 0, word.last, word.last + 1, INT32_MAX}) {
      KVFORMAT changed = kDefault;
      std::memcpy(reinterpret_cast<char*>(&changed) + word.offset, &value, sizeof value);
      Internal internal;
      const bool good = value >= 0 && value <= word.last;
      EXPECT_EQ(Put(changed, &internal), good ? KVSUCCESS : KVFAIL_BAD_ENUM) << word.offset << " " << value;
      EXPECT_EQ(IsUnchanged(internal), !good);
      KVFORMAT back;
      if (good) {
        GetFormat(&back, &internal.nfmt, &internal.tfmt, &internal.listsep);
        EXPECT_EQ(std::memcmp(&back, &changed, sizeof back), 0) << word.offset << " " << value;
      }
    }
}

TEST(FormatTest, PutFormat_WideMembers_Masked) {
  KVFORMAT format = kDefault;
  format.number.decimal_digits = 0x1234;
  format.number.numdisp_flags = 0xffffffff;
  format.listsep.sepallow_flags = 0xffffffff;
  Internal internal;
  ASSERT_EQ(Put(format, &internal), KVSUCCESS);
  EXPECT_EQ(internal.nfmt.Digits, 0x34);
  EXPECT_EQ(internal.nfmt.Attributes, 7);
  EXPECT_EQ(internal.listsep, 0x201f);
}

TEST(FormatTest, PutFormat_PartsLeftOut_NeitherCheckedNorWritten) {
  KVFORMAT bad_number = kDefault;
  bad_number.number.number = 4;
  Internal internal;
  EXPECT_EQ(PutFormat(&bad_number, nullptr, &internal.tfmt, &internal.listsep), KVSUCCESS);
  EXPECT_EQ(internal.nfmt.Format, 92);
  EXPECT_EQ(internal.listsep, 0x200e);
  KVFORMAT bad_time = kDefault;
  bad_time.datetime.zone = 3;
  bad_time.listsep.display = 6;
  Internal second;
  EXPECT_EQ(PutFormat(&bad_time, &second.nfmt, nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(second.nfmt.Digits, 2);
  EXPECT_EQ(second.tfmt.Zone, 97);
  EXPECT_EQ(PutFormat(&bad_time, &second.nfmt, nullptr, &second.listsep), KVFAIL_BAD_ENUM);
}

TEST(FormatTest, GetFormat_StoredWords_AsTheyAre) {
  const NFMT nfmt{.Digits = 255, .Format = 200, .Attributes = 0xff, .Unused = 1};
  const TFMT tfmt{.Date = 9, .Time = 8, .Zone = 7, .Structure = 6};
  const uint16_t listsep = 0xffff;
  KVFORMAT format;
  GetFormat(&format, &nfmt, &tfmt, &listsep);
  EXPECT_EQ(format.number.decimal_digits, 255u);
  EXPECT_EQ(format.number.number, 200);
  EXPECT_EQ(format.number.numdisp_flags, 255u);
  EXPECT_EQ(format.datetime.date, 9);
  EXPECT_EQ(format.datetime.time, 8);
  EXPECT_EQ(format.datetime.zone, 7);
  EXPECT_EQ(format.datetime.datetime, 6);
  EXPECT_EQ(format.listsep.display, 15);
  EXPECT_EQ(format.listsep.sepallow_flags, 0xfffu);
}

TEST(FormatTest, GetListDispDelim_EveryNumber_ItsSeparatorElseTheFirst) {
  constexpr const char* kSeparators[] = {", ", " ", ", ", "; ", "\n", "\n\n"};
  for (uint16_t display = 0; display < 16; ++display) {
    const FORMAT format = WithSeparators(static_cast<uint16_t>(display << 12 | 0xe));
    char delim[kDispDelimBytes];
    const char* expected = display < std::size(kSeparators) ? kSeparators[display] : ", ";
    EXPECT_EQ(GetListDispDelim(&format, delim), std::strlen(expected));
    EXPECT_STREQ(delim, expected);
  }
}

TEST(FormatTest, GetListAllowDelim_EverySet_ItsCharactersElseTheDefault) {
  for (uint16_t allowed = 0; allowed < 0x1000; ++allowed) {
    const FORMAT format = WithSeparators(allowed);
    std::string expected;
    if (allowed & 1) expected += ' ';
    if (allowed & 2) expected += ',';
    if (allowed & 4) expected += ';';
    if (allowed & 8) expected += '\n';
    if (allowed & 0x10) expected += '\n';
    if (expected.empty()) expected = ";,\n";
    char delim[kAllowDelimBytes];
    ASSERT_EQ(GetListAllowDelim(&format, delim), expected.size());
    ASSERT_EQ(delim, expected);
  }
}

class SessionFormatTest : public kit::KavrinTest {};

TEST_F(SessionFormatTest, KVSetFormat_Separators_RuleConversions) {
  KVFORMAT format = kDefault;
  format.listsep.display = KVLISTDISP_SEMICOLON;
  format.listsep.sepallow_flags = KVLISTSEP_BLANK;
  ASSERT_EQ(KVSetFormat(&format), KVSUCCESS);
  char list[64], text[64];
  uint32_t actual = 0;
  ASSERT_EQ(KVConvert(KVTYPE_TEXT, 0, "a,b c", KVTYPE_TEXTLIST, 60, list, &actual), KVSUCCESS);
  ASSERT_EQ(KVConvert(KVTYPE_TEXTLIST, actual, list, KVTYPE_TEXT, 60, text, &actual), KVSUCCESS);
  EXPECT_STREQ(text, "a,b; c");
}

TEST_F(SessionFormatTest, KVSetFormat_Digits_RuleNumbers) {
  KVFORMAT format = kDefault;
  format.number.number = KVNUMFORMAT_FIXED;
  format.number.decimal_digits = 3;
  ASSERT_EQ(KVSetFormat(&format), KVSUCCESS);
  const double number = 1.5;
  char text[40];
  ASSERT_EQ(KVConvert(KVTYPE_NUMBER, 8, &number, KVTYPE_TEXT, 39, text, nullptr), KVSUCCESS);
  EXPECT_STREQ(text, "1.500");
}

}  // namespace
