// Text lists: layout, growth to the limit, damaged input, and random changes against a vector of strings.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/list.h"
#include "brynd_memory.h"
#include "brynd_text.h"

namespace brynd {
namespace {

std::string TextAt(EngMem list, uint16_t prefix, uint16_t entry) {
  char* text = nullptr;
  uint16_t text_bytes = 0;
  EXPECT_EQ(EngListEntryText(EngMemLock(list), prefix, entry, &text, &text_bytes), status::kOk);
  EngMemUnlock(list);
  return {text, text_bytes};
}

void ExpectList(EngMem list, uint16_t prefix, const std::vector<std::string>& model) {
  const void* bytes = EngMemLock(list);
  ASSERT_EQ(EngListEntryCount(bytes, prefix), model.size());
  size_t list_bytes = (prefix == 0 ? 2 : 4) + 2 * model.size();
  for (const std::string& entry : model) list_bytes += entry.size();
  EXPECT_EQ(EngListByteSize(bytes, prefix), list_bytes);
  EXPECT_EQ(EngMemUnlock(list), status::kOk);
  for (size_t index = 0; index < model.size(); ++index)
    EXPECT_EQ(TextAt(list, prefix, static_cast<uint16_t>(index)), model[index]);
}

class ListTest : public testing::TestWithParam<uint16_t> {
 protected:
  void SetUp() override {
    uint16_t list_bytes = 0;
    void* address = nullptr;
    ASSERT_EQ(EngListCreate(0, 0, GetParam(), &list, &address, &list_bytes), status::kOk);
    EXPECT_EQ(list_bytes, GetParam() == 0 ? 2 : 4);
    EXPECT_EQ(address, memory::Find(list));
  }
  void TearDown() override { EXPECT_EQ(EngMemFree(list), status::kOk); }

  EngStatus Add(uint16_t entry, const std::string& text) {
    return EngListEntryAdd(list, GetParam(), &bytes, entry, text.data(), static_cast<uint16_t>(text.size()));
  }

  EngMem list = 0;
  uint16_t bytes = 0;
};

TEST_P(ListTest, EngListEntryAdd_ThreeEntries_LayoutByteForByte) {
  ASSERT_EQ(Add(0, "bc"), status::kOk);
  ASSERT_EQ(Add(1, ""), status::kOk);
  ASSERT_EQ(Add(0, "A"), status::kOk);
  const std::string prefix = GetParam() == 0 ? std::string() : std::string("\x01\x05", 2);
  const std::string expected = prefix + std::string("\3\0\1\0\2\0\0\0Abc", 11);
  EXPECT_EQ(bytes, expected.size());
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(memory::Find(list)), bytes), expected);
}

TEST_P(ListTest, EngListEntryAdd_EntryBeyondCount_NoEntryAndListAsBefore) {
  ASSERT_EQ(Add(0, "one"), status::kOk);
  bytes = 77;
  EXPECT_EQ(Add(2, "two"), status::kNoListEntry);
  EXPECT_EQ(bytes, 77);
  ExpectList(list, GetParam(), {"one"});
}

TEST_P(ListTest, EngListEntryAdd_AroundTheLimit_FullAndListAsBefore) {
  const size_t head_bytes = GetParam() == 0 ? 2 : 4;
  const std::string rest(kListBytesMax - head_bytes - 2, 'x');
  EXPECT_EQ(Add(0, rest + "x"), status::kListFull);
  ExpectList(list, GetParam(), {});
  ASSERT_EQ(Add(0, rest), status::kOk);
  EXPECT_EQ(bytes, kListBytesMax);
  EXPECT_EQ(Add(1, ""), status::kListFull);
  ExpectList(list, GetParam(), {rest});
  ASSERT_EQ(EngListEntryRemove(list, GetParam(), &bytes, 0), status::kOk);
  ASSERT_EQ(Add(0, rest.substr(1)), status::kOk);
  EXPECT_EQ(bytes, kListBytesMax - 1);
}

TEST_P(ListTest, EngListEntryAdd_TextOutOfTheListItself_CopiedBeforeItMoves) {
  const std::string text(60, 'q');
  ASSERT_EQ(Add(0, text), status::kOk);
  char* inside = nullptr;
  uint16_t inside_bytes = 0;
  for (uint16_t entry = 1; entry < 40; ++entry) {
    ASSERT_EQ(EngListEntryText(memory::Find(list), GetParam(), 0, &inside, &inside_bytes), status::kOk);
    ASSERT_EQ(EngListEntryAdd(list, GetParam(), nullptr, entry, inside, inside_bytes), status::kOk);
  }
  ExpectList(list, GetParam(), std::vector<std::string>(40, text));
}

TEST_P(ListTest, RandomChanges_AgreeWithAVector) {
  std::mt19937 random(20240611u + GetParam());
  std::vector<std::string> model;
  for (int step = 0; step < 3000; ++step) {
    const auto entry = static_cast<uint16_t>(random() % (model.size() + 1));
    if (random() % 3 != 0) {
      const std::string text(random() % 20, static_cast<char>('a' + random() % 26));
      ASSERT_EQ(Add(entry, text), status::kOk);
      model.insert(model.begin() + entry, text);
    } else if (entry < model.size()) {
      ASSERT_EQ(EngListEntryRemove(list, GetParam(), &bytes, entry), status::kOk);
      model.erase(model.begin() + entry);
    } else {
      EXPECT_EQ(EngListEntryRemove(list, GetParam(), &bytes, entry), status::kNoListEntry);
    }
    if (step % 100 == 0) ExpectList(list, GetParam(), model);
  }
  ExpectList(list, GetParam(), model);
}

INSTANTIATE_TEST_SUITE_P(Prefix, ListTest, testing::Values(uint16_t{0}, uint16_t{1}));

TEST(ListBytesTest, CheckList_EveryCut_RefusedWithoutReadingOn) {
  const std::string whole("\2\0\1\0\3\0abcd", 10);
  for (size_t cut = 0; cut < whole.size(); ++cut) {
    const std::vector<char> bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
    EXPECT_FALSE(CheckList(BytesAt(bytes.data(), bytes.size()), ListPrefix::kNone)) << cut;
  }
  EXPECT_TRUE(CheckList(BytesOf(whole), ListPrefix::kNone));
  EXPECT_FALSE(CheckList(BytesOf(whole), ListPrefix::kTypeWord));
}

TEST(ListBytesTest, CheckList_LengthsBeyondTheLimitOfAList_Refused) {
  std::string lengths("\2\0\xff\xff\xff\xff", 6);
  lengths.append(2 * 0xffff, 'x');
  EXPECT_FALSE(CheckList(BytesOf(lengths), ListPrefix::kNone));
}

TEST(ListBytesTest, EngListEntryAdd_BlockWithoutAList_DamagedAndBlockAsBefore) {
  EngMem block = 0;
  ASSERT_EQ(EngMemAlloc(0, 6, &block), status::kOk);
  const std::string bytes("\xff\xff\1\2\3\4", 6);
  CopyBytes(memory::Find(block), bytes.data(), bytes.size());
  EXPECT_EQ(EngListEntryAdd(block, 0, nullptr, 0, "a", 1), status::kDamaged);
  EXPECT_EQ(EngListEntryRemove(block, 0, nullptr, 0), status::kDamaged);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(memory::Find(block)), 6), bytes);
  EXPECT_EQ(EngMemFree(block), status::kOk);
  EXPECT_EQ(EngListEntryAdd(block, 0, nullptr, 0, "a", 1), status::kBadHandle);
}

TEST(ListBytesTest, Accessors_NullAndBeyondTheEnd_StatusAndOutputsAlone) {
  char* text = nullptr;
  uint16_t text_bytes = 99;
  const std::string list("\1\0\1\0a", 5);
  EXPECT_EQ(EngListEntryText(nullptr, 0, 0, &text, &text_bytes), status::kBadArgument);
  EXPECT_EQ(EngListEntryText(list.data(), 0, 1, &text, &text_bytes), status::kNoListEntry);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(text_bytes, 99);
  EXPECT_EQ(EngListEntryCount(nullptr, 0), 0);
  EXPECT_EQ(EngListByteSize(nullptr, 1), 0);
  EXPECT_EQ(EngListCreate(0, 0, 0, nullptr, nullptr, nullptr), status::kBadArgument);
}

}  // namespace
}  // namespace brynd
