// Stored words of views and the public values that stand for them, in both directions.
#include "kvview_world.h"

namespace {

template <typename Word>
using Translate = uint32_t (*)(int direction, int32_t* value, Word* flags);

template <typename Word>
struct Pair {
  int32_t value;
  Word bits;
};

constexpr uint16_t kUnread = 0x14, kOther = 0x8080;

template <typename Word, size_t Count>
void ExpectBothWays(Translate<Word> translate, const Pair<Word> (&pairs)[Count]) {
  for (const auto& pair : pairs) {
    int32_t value = pair.value;
    Word flags = kOther;
    EXPECT_EQ(translate(kTranslateWrite, &value, &flags), KVSUCCESS) << pair.value;
    EXPECT_EQ(flags, kOther | pair.bits) << pair.value;
    value = -77;
    EXPECT_EQ(translate(kTranslateRead, &value, &flags), KVSUCCESS);
    EXPECT_EQ(value, pair.value);
    EXPECT_EQ(flags, kOther | pair.bits);
  }
}

template <typename Word>
void ExpectRefused(Translate<Word> translate, std::initializer_list<int32_t> values, uint32_t status) {
  for (int32_t value : values) {
    Word flags = kOther;
    EXPECT_EQ(translate(kTranslateWrite, &value, &flags), status) << value;
    EXPECT_EQ(flags, kOther) << value;
  }
}

TEST(ViewTableTest, ViewTranslations_EachValue_BitsAndBack) {
  ExpectBothWays<uint32_t>(KVIViewTranslateOpen, {{1, 0}, {2, 0x20}, {3, 0x40}});
  ExpectBothWays<uint32_t>(KVIViewTranslateRefresh, {{1, 0}, {2, 0x3000}, {3, 0x1000}, {4, 0x2000}});
  ExpectBothWays<uint32_t>(KVIViewTranslateHeading, {{1, 0}, {2, 0x400}, {3, 0x100}});
  ExpectBothWays<uint32_t>(KVIViewTranslateUnread, {{0, 0}, {1, 0x10}, {2, 4}});
}

TEST(ViewTableTest, ColumnTranslations_EachValue_BitsAndBack) {
  ExpectBothWays<uint16_t>(KVIColumnTranslateColSort, {{0, 0}, {1, 1}, {3, 5}, {4, 3}, {7, 7}});
  ExpectBothWays<uint16_t>(KVIColumnTranslateSecondColSort, {{0, 0}, {1, 0x1000}, {3, 0x3000}});
  ExpectBothWays<uint16_t>(KVIColumnTranslateAction,
                           {{0, 0}, {0x100, 0x100}, {0x200, 0x200}, {0x300, 0x300}, {0x800, 0x800}});
  ExpectBothWays<uint16_t>(KVIColumnTranslateAlignment, {{0, 0}, {1, 1}, {2, 2}});
}

TEST(ViewTableTest, Translations_UnknownValues_BadEnumOrPassedOver) {
  ExpectRefused<uint32_t>(KVIViewTranslateOpen, {0, 4, -1}, KVFAIL_BAD_ENUM);
  ExpectRefused<uint32_t>(KVIViewTranslateRefresh, {0, 5, -1}, KVFAIL_BAD_ENUM);
  ExpectRefused<uint32_t>(KVIViewTranslateHeading, {0, 4, -1}, KVFAIL_BAD_ENUM);
  ExpectRefused<uint32_t>(KVIViewTranslateUnread, {3, -1}, KVSUCCESS);
  ExpectRefused<uint16_t>(KVIColumnTranslateColSort, {2, 5, 6, 8}, KVFAIL_BAD_ENUM);
  ExpectRefused<uint16_t>(KVIColumnTranslateSecondColSort, {2, 4}, KVFAIL_BAD_ENUM);
  ExpectRefused<uint16_t>(KVIColumnTranslateAction, {0x900, 1}, KVSUCCESS);
  ExpectRefused<uint16_t>(KVIColumnTranslateAlignment, {3, -1}, KVFAIL_BAD_ENUM);
}

TEST(ViewTableTest, Translations_BitsOfNoRow_FirstRowWithin) {
  int32_t value = -77;
  uint32_t flags = 0x60;
  EXPECT_EQ(KVIViewTranslateOpen(kTranslateRead, &value, &flags), KVSUCCESS);
  EXPECT_EQ(value, 2);
  flags = kUnread;
  EXPECT_EQ(KVIViewTranslateUnread(kTranslateRead, &value, &flags), KVSUCCESS);
  EXPECT_EQ(value, 1);
  uint16_t word = 0x900;
  EXPECT_EQ(KVIColumnTranslateAction(kTranslateRead, &value, &word), KVSUCCESS);
  EXPECT_EQ(value, 0x100);
  for (uint16_t unsorted : {2, 4, 6}) {
    EXPECT_EQ(KVIColumnTranslateColSort(kTranslateRead, &value, &unsorted), KVSUCCESS);
    EXPECT_EQ(value, 0) << unsorted;
  }
}

TEST(ViewTableTest, KVIViewTranslateSpacing_Limits_OneMoreThanStored) {
  for (uint8_t byte = 0; byte < 5; ++byte) {
    int32_t spacing = 0;
    uint8_t stored = byte;
    EXPECT_EQ(KVIViewTranslateSpacing(kTranslateRead, &spacing, &stored), KVSUCCESS);
    EXPECT_EQ(spacing, byte + 1);
    stored = 99;
    EXPECT_EQ(KVIViewTranslateSpacing(kTranslateWrite, &spacing, &stored), KVSUCCESS);
    EXPECT_EQ(stored, byte);
  }
  int32_t spacing = 77;
  for (uint8_t stored : {uint8_t{5}, uint8_t{255}})
    EXPECT_EQ(KVIViewTranslateSpacing(kTranslateRead, &spacing, &stored), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(spacing, 77);
  uint8_t stored = 9;
  for (int32_t wrong : {0, -1})
    EXPECT_EQ(KVIViewTranslateSpacing(kTranslateWrite, &wrong, &stored), KVFAIL_BAD_ENUM);
  EXPECT_EQ(stored, 9);
}

}  // namespace
