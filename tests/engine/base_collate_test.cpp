#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "base/charset.h"
#include "base/collate.h"
#include "engine/test_random.h"

using namespace brynd;

namespace {

constexpr CollationStrength kExact{}, kNoCase{true, false}, kNoAccent{false, true}, kNeither{true, true};

TEST(CollateTest, CollateText_LettersBeforeCaseAndAccents) {
  EXPECT_LT(CollateText("a", "B"), 0) << "not the order of bytes";
  EXPECT_LT(CollateText("a", "A"), 0);
  EXPECT_LT(CollateText("e", "\xe9"), 0);
  EXPECT_LT(CollateText("\xe9", "f"), 0) << "an accented letter stands beside its letter";
  EXPECT_EQ(0, CollateText("\xe9", "\xc3\xa9")) << "Latin-1 and UTF-8 are the same letter";
  EXPECT_LT(CollateText("", "a"), 0);
}

TEST(CollateTest, CollateText_Strengths) {
  EXPECT_NE(0, CollateText("abc", "ABC", kExact));
  EXPECT_EQ(0, CollateText("abc", "ABC", kNoCase));
  EXPECT_NE(0, CollateText("e", "\xe9", kNoCase));
  EXPECT_EQ(0, CollateText("e", "\xe9", kNoAccent));
  EXPECT_NE(0, CollateText("e", "E", kNoAccent));
  EXPECT_EQ(0, CollateText("e", "\xc9", kNeither));
}

TEST(CollateTest, SortKey_OrderOfKeysIsTheOrderOfTexts) {
  TestRandom random(SeedOfRun());
  const std::string_view pieces[] = {"a", "B", "\xe9",         "e",        "E",  " ",
                                     "-", "1", "\x10\xc1\xac", "\xc3\x9f", "ss", "z"};
  for (const CollationStrength strength : {kExact, kNoCase, kNoAccent, kNeither}) {
    for (int round = 0; round < 2000; ++round) {
      std::string left, right;
      for (uint32_t count = random.Below(6); count != 0; --count) left += pieces[random.Below(12)];
      for (uint32_t count = random.Below(6); count != 0; --count) right += pieces[random.Below(12)];
      const int keys = SortKey(left, strength).compare(SortKey(right, strength));
      const int texts = CollateText(left, right, strength);
      ASSERT_EQ((texts > 0) - (texts < 0), (keys > 0) - (keys < 0)) << left << " | " << right;
    }
  }
}

TEST(CollateTest, AppendSortKey_AppendsAndHoldsNoNul) {
  std::string key = "prefix";
  AppendSortKey("hello", {}, &key);
  EXPECT_EQ("prefix" + SortKey("hello"), key);
  EXPECT_EQ(std::string::npos, SortKey("hello world").find('\0'));
  EXPECT_EQ(SortKey(std::string(20000, 'x')), SortKey(std::string(20000, 'x')));
  EXPECT_GT(SortKey(std::string(20000, '\xe9')).size(), SortKey("\xe9").size());
}

TEST(CollateTest, CollationVersion_IsStable) { EXPECT_EQ(CollationVersion(), CollationVersion()); }

TEST(CollateTest, Threads_MakeKeysAtOnce) {
  const std::string expected = SortKey("Caf\xe9");
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] {
      for (int round = 0; round < 500; ++round)
        if (SortKey("Caf\xe9") != expected) ++failures;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}

}  // namespace
