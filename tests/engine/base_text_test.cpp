#include <gtest/gtest.h>

#include <unordered_map>

#include "base/text.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

std::string PlainFold(std::string_view text) {
  std::string folded;
  for (const char byte : text) folded += byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
  return folded;
}

TEST(TextTest, FoldWord_EveryByteInEveryPlace) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (unsigned place = 0; place < 8; ++place) {
      const uint64_t around = 0x5b40ff7a6141005au & ~(uint64_t{0xff} << place * 8);
      const uint64_t folded = FoldWord(around | uint64_t{byte} << place * 8);
      EXPECT_EQ(static_cast<unsigned char>(FoldByte(static_cast<char>(byte))), (folded >> place * 8) & 0xff)
          << byte << " at " << place;
    }
  }
}

TEST(TextTest, EqualFoldHashFoldCompareFold_AgreeWithAPlainModel) {
  TestRandom random(SeedOfRun());
  const std::string_view alphabet("aAbBzZ@[`{\x80\xc1\xe1\x00", 14);
  for (int round = 0; round < 20000; ++round) {
    std::string left, right;
    const uint32_t size = random.Below(30);
    for (uint32_t index = 0; index < size; ++index) left += alphabet[random.Below(14)];
    right = left;
    for (char& byte : right)
      if (random.Below(3) == 0) byte = random.Below(2) == 0 ? FoldByte(byte) : UpperByte(byte);
    if (random.Below(3) == 0 && !right.empty()) right[random.Below(size)] = alphabet[random.Below(14)];
    if (random.Below(5) == 0) right += 'a';
    const std::string a = PlainFold(left), b = PlainFold(right);
    ASSERT_EQ(a == b, EqualFold(left, right));
    if (a == b) {
      ASSERT_EQ(HashFold(left), HashFold(right));
    }
    const int expected = a.compare(b);
    ASSERT_EQ(expected < 0 ? -1 : expected > 0, CompareFold(left, right));
    ASSERT_EQ(b.substr(0, a.size()) == a, StartsWithFold(right, left));
  }
}

TEST(TextTest, HashFold_TellsNamesApart) {
  std::unordered_map<uint64_t, std::string> seen;
  for (int number = 0; number < 100000; ++number) {
    const std::string name = "Field" + std::to_string(number);
    ASSERT_TRUE(seen.emplace(HashFold(name), name).second) << name << " and " << seen[HashFold(name)];
  }
}

TEST(TextTest, FoldMap_LooksUpByView) {
  std::unordered_map<std::string, int, FoldHash, FoldEqual> map;
  map.emplace("Form", 1);
  ASSERT_NE(map.end(), map.find(std::string_view("FORM")));
  EXPECT_EQ(map.end(), map.find(std::string_view("FORMS")));
}

TEST(TextTest, SequenceBytes_MatchesTheClassesOfPrefixes) {
  for (unsigned byte = 0; byte < 256; ++byte) {
    unsigned expected = 1;
    if ((byte >= 1 && byte <= 8) || byte == 0x0b || byte == 0x0c || byte == 0x0e || byte == 0x0f)
      expected = 2;
    if (byte >= 0x18 && byte <= 0x1f) expected = 2;
    if (byte >= 0x10 && byte <= 0x17) expected = 3;
    EXPECT_EQ(expected, SequenceBytes(static_cast<char>(byte))) << byte;
  }
}

TEST(TextTest, CutText_NeverHalfASequence) {
  const std::string text =
      "ab\x13\x81\x82"
      "c\x01\x41"
      "d";
  const size_t kept[] = {0, 1, 2, 2, 2, 5, 6, 6, 8, 9, 9};
  for (size_t limit = 0; limit < std::size(kept); ++limit)
    EXPECT_EQ(kept[limit], CutText(text, limit).size());
  EXPECT_EQ(1u, CutText("\x13", 1).size()) << "a text that fits is not looked into";
}

TEST(TextTest, FindCharacter_StepsOverSequences) {
  const std::string text =
      "\x01"
      "aa";
  EXPECT_EQ(2u, FindCharacter(text, 'a'));
  EXPECT_EQ(std::string_view::npos, FindCharacter("\x10\x80", 'a'));
  EXPECT_EQ(std::string_view::npos, FindCharacter("", 'a'));
  EXPECT_EQ(3u, FindCharacter("a;b;c", ';', 2));
}

TEST(TextTest, TrimBlanks_BothEnds) {
  EXPECT_EQ("a b", TrimBlanks(" \t a b\r\n"));
  EXPECT_EQ("", TrimBlanks(" \t"));
}

TEST(TextTest, FieldText_FullFieldWithoutNul) {
  const char full[5] = {'a', 'b', 'c', 'd', 'e'};
  const char half[5] = {'a', 0, 'c', 0, 0};
  EXPECT_EQ("abcde", FieldText(full));
  EXPECT_EQ("a", FieldText(half));
}

}  // namespace
