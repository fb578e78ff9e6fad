#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "base/status.h"
#include "engine/test_random.h"
#include "note/names.h"

using namespace brynd;

namespace {

EngStatus StatusOf(const auto& body) {
  try {
    body();
  } catch (const Failure& failure) {
    return failure.status();
  }
  return 0;
}

TEST(NameDictionaryTest, Lookup_IgnoresCase_FindsOneCanonicalToken) {
  NameDictionary names;
  EXPECT_EQ(kNoName, names.Lookup("Subject"));
  const NameToken first = names.Intern("Subject"), second = names.Intern("SUBJECT");
  EXPECT_NE(first, second);
  EXPECT_EQ(first, names.Canonical(second));
  EXPECT_EQ(first, names.Lookup("sUBJECT"));
  EXPECT_EQ("Subject", names.Spelling(first));
  EXPECT_EQ("SUBJECT", names.Spelling(second));
  EXPECT_EQ(second, names.Intern("SUBJECT"));
  EXPECT_EQ(kNoName, names.Lookup("Subject2"));
}

TEST(NameDictionaryTest, Lookup_LettersBeyondAsciiCountAsTheyAre) {
  NameDictionary names;
  const NameToken lower = names.Intern("\xe4");
  EXPECT_EQ(kNoName, names.Lookup("\xc4"));
  EXPECT_EQ(lower, names.Lookup("\xe4"));
  // `[` and `{` differ by the bit that tells upper from lower letters.
  names.Intern("a[b");
  EXPECT_EQ(kNoName, names.Lookup("a{b"));
}

TEST(NameDictionaryTest, Intern_LengthLimits) {
  NameDictionary names;
  EXPECT_EQ(status::kBadItemName, StatusOf([&] { names.Intern(""); }));
  EXPECT_EQ(0, StatusOf([&] { names.Intern(std::string(255, 'x')); }));
  EXPECT_EQ(status::kBadItemName, StatusOf([&] { names.Intern(std::string(256, 'x')); }));
}

// Names of each length that differ in one place only, met in turn: none is taken for another.
TEST(NameDictionaryTest, Lookup_NamesThatDifferInOneByte_AreToldApart) {
  NameDictionary names;
  for (size_t bytes = 1; bytes <= 34; ++bytes) {
    std::vector<std::string> spellings{std::string(bytes, 'a')};
    for (size_t place = 0; place < bytes; ++place) {
      for (const char other : {'b', '\0', '\xff'}) {
        spellings.emplace_back(bytes, 'a');
        spellings.back()[place] = other;
      }
      spellings.emplace_back(bytes, 'a');
      spellings.back()[place] = 'A';  // the same name in another spelling
    }
    std::vector<NameToken> tokens;
    for (const std::string& spelling : spellings) tokens.push_back(names.Intern(spelling));
    for (int round = 0; round < 2; ++round) {
      for (size_t i = 0; i < spellings.size(); ++i) {
        ASSERT_EQ(tokens[i], names.Intern(spellings[i])) << bytes << " bytes, spelling " << i;
        ASSERT_EQ(spellings[i], names.Spelling(tokens[i]));
        const bool same = spellings[i].find('A') != std::string::npos;
        ASSERT_EQ(same ? tokens[0] : tokens[i], names.Lookup(spellings[i]))
            << bytes << " bytes, spelling " << i;
      }
    }
  }
}

TEST(NameDictionaryTest, Intern_AgainstAModel_EveryNameStays) {
  TestRandom random(SeedOfRun());
  NameDictionary names;
  std::vector<std::pair<std::string, NameToken>> model;
  for (int i = 0; i < 5000; ++i) {
    std::string name = "n" + std::to_string(random.Below(3000));
    if (random.Below(3) == 0) name[0] = 'N';
    model.emplace_back(name, names.Intern(name));
  }
  for (const auto& [name, token] : model) {
    EXPECT_EQ(name, names.Spelling(token));
    EXPECT_EQ(names.Canonical(token), names.Lookup(name));
  }
}

TEST(NameDictionaryTest, Learn_NamesInOrder_HaveDenseIds) {
  NameDictionary names;
  names.Learn("a");
  names.Learn("B");
  names.Learn("b");
  EXPECT_EQ(3u, names.StoredCount());
  EXPECT_EQ("B", names.Spelling(names.OfStored(1)));
  EXPECT_TRUE(names.IsStoredName(2, names.Lookup("B")));
  EXPECT_EQ(status::kDamaged, StatusOf([&] { names.Learn("b"); })) << "a spelling has one id";
  EXPECT_EQ(status::kDamaged, StatusOf([&] { names.Learn(""); }));
}

TEST(NameDictionaryTest, Forget_AfterAFailedWrite_IdsGoAndComeAgain) {
  NameDictionary names;
  names.Learn("a");
  const NameToken b = names.Intern("b"), upper = names.Intern("A");
  EXPECT_EQ(1, names.Assign(b));
  EXPECT_EQ(2, names.Assign(upper));
  names.Forget(1);
  EXPECT_EQ(1u, names.StoredCount());
  EXPECT_EQ(kNotStored, names.StoredId(b));
  EXPECT_EQ(kNotStored, names.StoredId(upper));
  EXPECT_EQ(0u, names.StoredId(names.Lookup("a")));
  names.Learn("c");
  EXPECT_EQ(1u, names.StoredId(names.Lookup("c")));
  EXPECT_EQ(2, names.Assign(b));
}

TEST(NameDictionaryTest, Assign_AtTheLimit_TooManyNames) {
  NameDictionary names;
  for (uint32_t i = 0; i < kStoredNamesMax; ++i) names.Assign(names.Intern("n" + std::to_string(i)));
  EXPECT_EQ(status::kTooManyNames, StatusOf([&] { names.Assign(names.Intern("one more")); }));
  EXPECT_EQ(kStoredNamesMax, names.StoredCount());
  EXPECT_EQ(0xffefu, names.StoredId(names.Lookup("N65519")));
}

TEST(NameDictionaryTest, FindIn_NameWithTwoStoredSpellings_FirstInOrder) {
  NameDictionary names;
  names.Learn("x");
  names.Learn("y");
  names.Learn("X");
  ImageBuilder builder;
  ASSERT_TRUE(builder.Begin({.item_count = 3, .external_count = 0, .inline_bytes = 6}));
  builder.SetItem(0, 1, 0, 2);
  builder.SetItem(1, 2, 0, 2);
  builder.SetItem(2, 0, 0, 2);
  std::memset(builder.AddValues(6), 0, 6);
  const std::optional<NoteImage> image = NoteImage::Check(builder.Finish({}));
  ASSERT_TRUE(image);
  EXPECT_EQ(1u, names.FindIn(*image, names.Lookup("x")));
  EXPECT_EQ(2u, names.FindIn(*image, names.Lookup("x"), 2));
  EXPECT_EQ(0u, names.FindIn(*image, names.Lookup("Y")));
  EXPECT_EQ(NoteImage::kNone, names.FindIn(*image, names.Intern("z")));
  names.Forget(2);
  EXPECT_EQ(2u, names.FindIn(*image, names.Lookup("x")));
}

TEST(NameDictionaryTest, Lookup_WhileAnotherThreadAdds_AlwaysFindsWhatIsThere) {
  NameDictionary names;
  std::atomic<uint32_t> added{0};
  std::thread writer([&] {
    for (uint32_t i = 0; i < 20000; ++i) {
      names.Intern("name" + std::to_string(i));
      added.store(i + 1, std::memory_order_release);
    }
  });
  uint32_t missing = 0;
  while (added.load(std::memory_order_acquire) < 20000) {
    const uint32_t known = added.load(std::memory_order_acquire);
    for (uint32_t i = known > 50 ? known - 50 : 0; i < known; ++i) {
      missing += names.Lookup("NAME" + std::to_string(i)) == kNoName;
    }
  }
  writer.join();
  EXPECT_EQ(0u, missing);
}

TEST(NameDictionaryTest, Edition_RisesWithNewNamesAlone) {
  NameDictionary names, other;
  EXPECT_NE(names.Identity(), other.Identity());
  const uint64_t before = names.Edition();
  names.Intern("a");
  const uint64_t after = names.Edition();
  EXPECT_GT(after, before);
  names.Intern("A");
  names.Lookup("b");
  EXPECT_EQ(after, names.Edition());
}

}  // namespace
