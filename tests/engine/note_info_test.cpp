#include <string>

#include "engine/data_fixture.h"
#include "engine/test_random.h"
#include "note/info.h"

using namespace brynd;

namespace {

class InfoTest : public DataFixture {
 protected:
  static std::string RandomText(TestRandom& random, size_t bytes_max, std::string_view alphabet) {
    std::string text;
    for (size_t bytes = random.Below(static_cast<uint32_t>(bytes_max) + 1); bytes != 0; --bytes)
      text += alphabet[random.Below(static_cast<uint32_t>(alphabet.size()))];
    return text;
  }
};

TEST_F(InfoTest, BuildInfo_TextAsTheFormatSays) {
  EXPECT_EQ("", BuildInfo({}));
  EXPECT_EQ("Title", BuildInfo({"Title", "", "", ""}));
  EXPECT_EQ("Title\nA,B", BuildInfo({"Title", "A,B", "", ""}));
  EXPECT_EQ("Title\n\n#1Own", BuildInfo({"Title", "", "Own", ""}));
  EXPECT_EQ("\n\n#2From", BuildInfo({"", "", "", "From"}));
  EXPECT_EQ("T\nC\n#1Own\n#2From", BuildInfo({"T", "C", "Own", "From"}));
  EXPECT_EQ("T a\nC b", BuildInfo({"T\na", "C\nb", "", ""})) << "a field is one line";
}

TEST_F(InfoTest, ParseInfo_EachLineInItsField) {
  EXPECT_EQ((InfoFields{"T", "C", "Own", "From"}), ParseInfo("T\nC\n#1Own\n#2From"));
  EXPECT_EQ((InfoFields{"T", "C", "Own", "From"}), ParseInfo("T\nC\n#2From\n#1Own"));
  EXPECT_EQ((InfoFields{"T", "#1C", "", ""}), ParseInfo("T\n#1C")) << "the second line is the categories";
  EXPECT_EQ((InfoFields{"#1T", "", "", ""}), ParseInfo("#1T"));
  EXPECT_EQ((InfoFields{"T", "", "", ""}), ParseInfo("T\n\nstray\n#\n#3x"));
  EXPECT_EQ((InfoFields{"T", "", "", ""}), ParseInfo(std::string_view("T\0\nC\n#1O", 8)));
  EXPECT_EQ(InfoFields{}, ParseInfo(""));
}

TEST_F(InfoTest, BuildThenParse_FieldsThatFit_AreTheSame) {
  TestRandom random(SeedOfRun());
  constexpr size_t kMarks = 1 + 3 + 3;
  for (int round = 0; round < 2000; ++round) {
    InfoFields fields;
    size_t left = kInfoBytes - 1 - kMarks;
    for (std::string& field : fields) {
      field = RandomText(random, left / 2, "ab#12 \\|,\xe9");
      left -= field.size();
    }
    ASSERT_EQ(fields, ParseInfo(BuildInfo(fields)));
  }
}

TEST_F(InfoTest, ParseThenBuild_AnyBytes_AtMost127AndStable) {
  TestRandom random(SeedOfRun());
  for (int round = 0; round < 2000; ++round) {
    const std::string text =
        BuildInfo(ParseInfo(RandomText(random, 300, std::string_view("a#12\n\n\x11\x80\0b", 10))));
    ASSERT_LE(text.size(), kInfoBytes - 1);
    ASSERT_EQ(text, BuildInfo(ParseInfo(text)));
  }
}

TEST_F(InfoTest, BuildInfo_TooLong_LastFieldsAreCutFirst) {
  const std::string title(100, 't'), categories(20, 'c');
  const InfoFields cut = ParseInfo(BuildInfo({title, categories, "Own template", "Inherited"}));
  EXPECT_EQ((InfoFields{title, categories, "Own", ""}), cut) << "127 - 100 - 1 - 20 - 3 bytes are left";
  EXPECT_EQ(std::string(127, 'x'), BuildInfo({std::string(127, 'x'), "c", "", ""}));
  EXPECT_EQ(std::string(127, 'x'), BuildInfo({std::string(128, 'x'), "", "", ""}));
  // A character of three bytes that would be cut through stays out whole.
  const std::string three = "\x12\x95\x90";
  EXPECT_EQ(std::string(125, 'x'), BuildInfo({std::string(125, 'x') + three, "", "", ""}));
  EXPECT_EQ(std::string(124, 'x') + three, BuildInfo({std::string(124, 'x') + three, "", "", ""}));
}

TEST_F(InfoTest, WriteInfo_ReadBackAfterReopen) {
  EXPECT_EQ("", ReadInfo(Owner())) << "a fresh database has none";
  WriteInfo(Owner(), "Title\nCategory");
  Reopen();
  EXPECT_EQ("Title\nCategory", ReadInfo(Owner()));
}

TEST_F(InfoTest, ReadInfo_HarmedRecord_Damaged) {
  WriteInfo(Owner(), "Title");
  const Record whole = RawOf(Owner(), space::kDatabase, BytesOf("info"));
  int harms = 0;
  ForEachHarm(whole, [&](const Record& harmed) {
    PutRaw(Owner(), space::kDatabase, BytesOf("info"), harmed);
    const EngStatus outcome = AtBoundary([&] { ReadInfo(Owner()); });
    // The three zero bytes behind the version are nobody's.
    if (outcome == status::kOk) {
      EXPECT_EQ("Title", ReadInfo(Owner()));
    } else {
      EXPECT_EQ(status::kDamaged, outcome);
      ++harms;
    }
  });
  EXPECT_GE(harms, static_cast<int>(4 * (whole.size() - 3)));
}

TEST_F(InfoTest, ReadInfo_LongerThanABuffer_Damaged) {
  PutFact(Owner(), "info", Record(kInfoBytes - 1, std::byte{'x'}));
  EXPECT_EQ(std::string(kInfoBytes - 1, 'x'), ReadInfo(Owner()));
  PutFact(Owner(), "info", Record(kInfoBytes, std::byte{'x'}));
  EXPECT_EQ(status::kDamaged, AtBoundary([&] { ReadInfo(Owner()); }));
  char info[kInfoBytes] = "untouched";
  EXPECT_EQ(status::kDamaged, EngDbInfoGet(db_, info));
  EXPECT_STREQ("untouched", info);
}

}  // namespace
