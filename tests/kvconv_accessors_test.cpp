// Access to the values of lists in place.
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

using kit::LastError;

std::string TextList(const std::vector<std::string>& entries) {
  std::string list(2 + 2 * entries.size(), 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(entries.size()));
  for (size_t i = 0; i < entries.size(); ++i) {
    KVIStore<uint16_t>(list.data() + 2 + 2 * i, static_cast<uint16_t>(entries[i].size()));
    list += entries[i];
  }
  return list;
}

// Values 1, 2, 3 ... in the bytes of a list; as date-times they are opaque words.
std::string RangeList(uint16_t singles, uint16_t ranges) {
  std::string list(4, 0);
  KVIStore<uint16_t>(list.data(), singles);
  KVIStore<uint16_t>(list.data() + 2, ranges);
  for (int i = 1; i <= singles + 2 * ranges; ++i) {
    const double value = i;
    list.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  return list;
}

double AsNumber(const void* bytes) { return KVILoad<double>(bytes); }

class ListTest : public kit::KavrinTest {
 protected:
  // The list at an odd address, with nothing behind it.
  const char* AtOddAddress(const std::string& list) {
    room_.assign(list.size() + 1, 0);
    std::memcpy(room_.data() + 1, list.data(), list.size());
    return room_.data() + 1;
  }
  std::vector<char> room_;
};

TEST_F(ListTest, KVTextList_EveryEntry_LengthTextAndPlace) {
  const std::vector<std::string> entries = {"one", "", "three", "4"};
  const char* list = AtOddAddress(TextList(entries));
  EXPECT_EQ(KVTextListGetCount(list), 4u);
  EXPECT_EQ(KVTextListGetLength(list, 0), 2u + 8 + 9);
  for (uint32_t i = 1; i <= 4; ++i) {
    EXPECT_EQ(KVTextListGetLength(list, i), entries[i - 1].size());
    char buffer[16];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(KVTextListFetch(list, i, 0, buffer), entries[i - 1].size());
    EXPECT_EQ(buffer, entries[i - 1]);
    uint32_t length = 99;
    const char* text = KVTextListGetPointer(list, i, &length);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text, length), entries[i - 1]);
    EXPECT_EQ(KVTextListGetPointer(list, i, nullptr), text);
  }
}

TEST_F(ListTest, KVTextList_BeyondTheEnds_ZeroWithoutFailure) {
  const std::string list = TextList({"a", "b"});
  for (uint32_t index : {0u, 3u, 0xffffu, 0xffffffffu}) {
    char buffer[4] = "x";
    uint32_t length = 99;
    EXPECT_EQ(KVTextListFetch(list.data(), index, 0, buffer), 0u);
    EXPECT_STREQ(buffer, "x");
    EXPECT_EQ(LastError().status, KVSUCCESS);
    EXPECT_EQ(KVTextListGetPointer(list.data(), index, &length), nullptr);
    EXPECT_EQ(length, 99u);
    if (index != 0) {
      EXPECT_EQ(KVTextListGetLength(list.data(), index), 0u);
    }
    EXPECT_EQ(LastError().status, KVSUCCESS);
  }
  EXPECT_EQ(KVTextListGetCount(TextList({}).data()), 0u);
  EXPECT_EQ(KVTextListGetLength(TextList({}).data(), 0), 2u);
}

TEST_F(ListTest, KVTextListFetch_BufferLengths_RoomForTheNul) {
  const std::string list = TextList({"abcde"});
  for (uint32_t length : {4u, 5u, 6u}) {
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(KVTextListFetch(list.data(), 1, length, buffer), length == 6 ? 5u : 0u);
    EXPECT_STREQ(buffer, length == 6 ? "abcde" : "xxxxxxx");
    EXPECT_EQ(LastError().status, length == 6 ? KVSUCCESS : KVFAIL_DATA_TOO_LONG);
  }
}

TEST_F(ListTest, KVTextListFetch_Truncation_WholeCharactersLeft) {
  const int32_t truncate = 1;
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_TRUNCATE_TEXT, &truncate), KVSUCCESS);
  const std::string list =
      TextList({"ab\x10\x90\x91"
                "cd"});
  constexpr uint32_t kCopied[] = {7, 0, 1, 2, 2, 2, 5, 6, 7, 7};
  for (uint32_t length = 0; length < std::size(kCopied); ++length) {
    char buffer[9];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(KVTextListFetch(list.data(), 1, length, buffer), kCopied[length]) << length;
    EXPECT_EQ(std::strlen(buffer), kCopied[length]);
    EXPECT_EQ(LastError().status, KVSUCCESS);
  }
}

TEST_F(ListTest, KVNumberList_SinglesAndRanges_OneEntryEach) {
  const char* list = AtOddAddress(RangeList(3, 2));
  EXPECT_EQ(KVNumberListGetCount(list), 5u);
  EXPECT_EQ(KVNumberListGetLength(list, 0), 4u + 3 * 8 + 2 * 16);
  for (uint32_t i = 1; i <= 6; ++i) {
    const uint32_t bytes = i <= 3 ? 8 : i <= 5 ? 16 : 0;
    EXPECT_EQ(KVNumberListGetLength(list, i), bytes);
    uint32_t length = 99;
    const void* value = KVNumberListGetPointer(list, i, &length);
    EXPECT_EQ(value == nullptr, bytes == 0);
    EXPECT_EQ(length, bytes == 0 ? 99u : bytes);
    const double first = i <= 3 ? i : 4 + 2 * (i - 4.0);
    if (bytes != 0) {
      EXPECT_EQ(AsNumber(value), first);
    }
    if (bytes == 16) {
      EXPECT_EQ(AsNumber(static_cast<const char*>(value) + 8), first + 1);
    }
    char number[9];
    KVIStore<double>(number + 1, -1);
    void* odd = number + 1;
    EXPECT_EQ(KVNumberListFetch(list, i, static_cast<double*>(odd)), i <= 3 ? 8u : 0u)
        << "a range is not fetched";
    EXPECT_EQ(AsNumber(number + 1), i <= 3 ? first : -1);
    EXPECT_EQ(LastError().status, KVSUCCESS);
  }
  EXPECT_EQ(KVNumberListGetPointer(list, 0, nullptr), nullptr);
  double untouched = -1;
  EXPECT_EQ(KVNumberListFetch(list, 0, &untouched), 0u);
  EXPECT_EQ(untouched, -1);
}

TEST_F(ListTest, KVDatetimeList_SinglesAndRanges_BothFetched) {
  const char* list = AtOddAddress(RangeList(2, 2));
  uint32_t ranges = 99;
  EXPECT_EQ(KVDatetimeListGetCount(list, &ranges), 4u);
  EXPECT_EQ(ranges, 2u);
  EXPECT_EQ(KVDatetimeListGetCount(list, nullptr), 4u);
  EXPECT_EQ(KVDatetimeListGetLength(list, 0), 4u + 6 * 8);
  for (uint32_t i = 0; i <= 5; ++i) {
    const bool there = i >= 1 && i <= 4, range = i >= 3 && there;
    KVDATETIME low{{7, 7}}, high{{7, 7}};
    EXPECT_EQ(KVDatetimeListFetch(list, i, &low, &high), !there ? 0u : range ? 16u : 8u);
    if (there) {
      EXPECT_EQ(AsNumber(&low), range ? 3 + 2 * (i - 3.0) : i);
      EXPECT_EQ(KVDatetimeListGetLength(list, i), range ? 16u : 8u);
    } else {
      EXPECT_EQ(low.innards[0], 7u);
      EXPECT_EQ(KVDatetimeListGetPointer(list, i, nullptr), nullptr);
    }
    if (range) {
      EXPECT_EQ(AsNumber(&high), 4 + 2 * (i - 3.0));
    } else {
      EXPECT_EQ(high.innards[0], 7u) << "untouched";
    }
    KVDATETIME alone;
    EXPECT_EQ(KVDatetimeListFetch(list, i, &alone, nullptr), there ? 8u : 0u);
    uint32_t length = 99;
    const void* value = KVDatetimeListGetPointer(list, i, &length);
    EXPECT_EQ(length, !there ? 99u : range ? 16u : 8u);
    EXPECT_EQ(value != nullptr, there);
  }
}

TEST_F(ListTest, AllAccessors_Nulls_ReportedAndZero) {
  const std::string list = RangeList(1, 0);
  const auto expect_reported = [](auto result) {
    EXPECT_TRUE(result == 0);
    EXPECT_EQ(LastError().status, KVFAIL_NULL_PARAM);
  };
  char text[4];
  double number;
  KVDATETIME datetime;
  expect_reported(KVTextListGetCount(nullptr));
  expect_reported(KVTextListGetLength(nullptr, 0));
  expect_reported(KVTextListFetch(nullptr, 1, 0, text));
  expect_reported(KVTextListFetch(list.data(), 1, 0, nullptr));
  expect_reported(KVTextListGetPointer(nullptr, 1, nullptr));
  expect_reported(KVNumberListGetCount(nullptr));
  expect_reported(KVNumberListGetLength(nullptr, 0));
  expect_reported(KVNumberListFetch(nullptr, 1, &number));
  expect_reported(KVNumberListFetch(list.data(), 1, nullptr));
  expect_reported(KVNumberListGetPointer(nullptr, 1, nullptr));
  expect_reported(KVDatetimeListGetCount(nullptr, nullptr));
  expect_reported(KVDatetimeListGetLength(nullptr, 0));
  expect_reported(KVDatetimeListFetch(nullptr, 1, &datetime, nullptr));
  expect_reported(KVDatetimeListFetch(list.data(), 1, nullptr, &datetime));
  expect_reported(KVDatetimeListGetPointer(nullptr, 1, nullptr));
}

TEST_F(ListTest, AllAccessors_NoSession_Zero) {
  const std::string texts = TextList({"a"}), values = RangeList(1, 1);
  kit::InThread([&] {
    char text[4] = "x";
    double number = 7;
    KVDATETIME datetime{{7, 7}};
    uint32_t ranges = 7;
    EXPECT_EQ(KVTextListGetCount(texts.data()), 0u);
    EXPECT_EQ(KVTextListGetLength(texts.data(), 1), 0u);
    EXPECT_EQ(KVTextListFetch(texts.data(), 1, 0, text), 0u);
    EXPECT_EQ(KVTextListGetPointer(texts.data(), 1, nullptr), nullptr);
    EXPECT_EQ(KVNumberListGetCount(values.data()), 0u);
    EXPECT_EQ(KVNumberListGetLength(values.data(), 1), 0u);
    EXPECT_EQ(KVNumberListFetch(values.data(), 1, &number), 0u);
    EXPECT_EQ(KVNumberListGetPointer(values.data(), 1, nullptr), nullptr);
    EXPECT_EQ(KVDatetimeListGetCount(values.data(), &ranges), 0u);
    EXPECT_EQ(KVDatetimeListGetLength(values.data(), 1), 0u);
    EXPECT_EQ(KVDatetimeListFetch(values.data(), 1, &datetime, nullptr), 0u);
    EXPECT_EQ(KVDatetimeListGetPointer(values.data(), 1, nullptr), nullptr);
    EXPECT_STREQ(text, "x");
    EXPECT_EQ(number, 7);
    EXPECT_EQ(ranges, 7u);
  });
}

TEST_F(ListTest, KVDatetimeList_LargestCounts_NoOverflow) {
  std::string list = RangeList(0, 0);
  list.resize(4 + 3 * 65535 * 8);
  KVIStore<uint16_t>(list.data(), 0xffff);
  KVIStore<uint16_t>(list.data() + 2, 0xffff);
  EXPECT_EQ(KVDatetimeListGetCount(list.data(), nullptr), 131070u);
  EXPECT_EQ(KVDatetimeListGetLength(list.data(), 0), list.size());
  uint32_t length = 0;
  const void* last = KVDatetimeListGetPointer(list.data(), 131070, &length);
  EXPECT_EQ(static_cast<const char*>(last) + length, list.data() + list.size());
}

}  // namespace
