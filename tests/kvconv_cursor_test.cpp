// The cursors behind every list call.
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

TEST(ListIterateTest, ListIterate_EveryCommandAndPosition_AsTheTable) {
  for (uint32_t max : {0u, 1u, 2u, 5u, 0xffffffffu})
    for (uint32_t start : {0u, 1u, 2u, 4u, 5u, 6u, 0xfffffffeu, 0xffffffffu})
      for (int32_t list : {-1, 0, 1, 2, 3, 4, 5, 6, 7}) {
        uint32_t status = KVSUCCESS, expected = start;
        switch (list) {
          case 1:
          case 2:
            max == 0 ? status = KVFAIL_END_OF_DATA : expected = 1;
            break;
          case 3:
            max == 0 ? status = KVFAIL_END_OF_DATA : expected = max;
            break;
          case 4:
            start >= max ? status = KVFAIL_END_OF_DATA : expected = start + 1;
            break;
          case 5:
            start < 2 ? status = KVFAIL_END_OF_DATA : expected = start - 1;
            break;
          case 6:
            if (start == 0) status = KVFAIL_DATA_UNAVAILABLE;
            break;
          default:
            status = KVFAIL_BAD_ENUM;
        }
        uint32_t index = start;
        EXPECT_EQ(ListIterate(list, &index, max), status) << list << " " << start << " " << max;
        EXPECT_EQ(index, expected);
      }
}

class CursorTest : public kit::KavrinTest {
 protected:
  void TearDown() override {
    KVIFree(cursor_.buffer);
    kit::KavrinTest::TearDown();
  }

  // The entries as an engine list, copied into the cursor.
  uint32_t Copy(const std::vector<std::string>& entries) {
    EngMem hand = 0;
    uint16_t bytes = 0;
    EXPECT_EQ(EngListCreate(0, 0, 0, &hand, nullptr, &bytes), 0);
    for (size_t i = 0; i < entries.size(); ++i)
      EXPECT_EQ(EngListEntryAdd(hand, 0, &bytes, static_cast<uint16_t>(i), entries[i].data(),
                                static_cast<uint16_t>(entries[i].size())),
                0);
    return TextListCopy(hand, &cursor_);
  }
  std::string Entry(int32_t list, uint32_t record, uint32_t* status, uint32_t length = 15) {
    char buffer[16];
    std::memset(buffer, 'x', sizeof buffer);
    *status = TextListIterate(&cursor_, list, record, buffer, length);
    return *status == KVSUCCESS ? std::string(buffer) : std::string();
  }
  void ExpectEntry(int32_t list, uint32_t record, const std::string& entry) {
    uint32_t status;
    EXPECT_EQ(Entry(list, record, &status), entry) << list;
    EXPECT_EQ(status, KVSUCCESS) << list;
  }
  void ExpectEnd(int32_t list, uint32_t record, uint32_t expected) {
    const uint16_t index = cursor_.index;
    uint32_t status;
    Entry(list, record, &status);
    EXPECT_EQ(status, expected) << list;
    EXPECT_EQ(cursor_.index, index) << "the cursor stays";
  }

  KVTEXTLIST cursor_{};
};

TEST_F(CursorTest, TextListCopy_EngineList_CopiedAndFreed) {
  EXPECT_EQ(Copy({"one", "", "three"}), 3u);
  EXPECT_EQ(cursor_.listhand, 0u);
  EXPECT_EQ(cursor_.count, 3);
  EXPECT_EQ(cursor_.index, 0);
  EXPECT_EQ(kit::Memory().blocks, 0u);
}

TEST_F(CursorTest, TextListCopy_NoMemory_NothingKept) {
  EngMem hand = 0;
  uint16_t bytes = 0;
  ASSERT_EQ(EngListCreate(0, 0, 0, &hand, nullptr, &bytes), 0);
  ASSERT_EQ(EngListEntryAdd(hand, 0, &bytes, 0, "a", 1), 0);
  {
    kit::Fault fault = kit::Fault::Allocation(1);
    EXPECT_EQ(TextListCopy(hand, &cursor_), 0u);
    EXPECT_TRUE(fault.Hit());
  }
  EXPECT_EQ(cursor_.buffer, nullptr);
  EXPECT_EQ(kit::Memory().blocks, 0u);
  EXPECT_EQ(TextListCopy(0xffffff, &cursor_), 0u) << "a handle that names nothing";
}

TEST_F(CursorTest, TextListIterate_SingleEntries_WalkedBothWays) {
  Copy({"a", "bb", "ccc"});
  ExpectEnd(KVLIST_CURRENT, 1, KVFAIL_DATA_UNAVAILABLE);
  ExpectEnd(KVLIST_PREVIOUS, 1, KVFAIL_END_OF_DATA);
  ExpectEntry(KVLIST_NEXT, 1, "a");
  ExpectEntry(KVLIST_CURRENT, 1, "a");
  ExpectEnd(KVLIST_PREVIOUS, 1, KVFAIL_END_OF_DATA);
  ExpectEntry(KVLIST_NEXT, 1, "bb");
  ExpectEntry(KVLIST_NEXT, 1, "ccc");
  ExpectEntry(KVLIST_CURRENT, 1, "ccc");
  ExpectEnd(KVLIST_NEXT, 1, KVFAIL_END_OF_DATA);
  ExpectEntry(KVLIST_PREVIOUS, 1, "bb");
  ExpectEntry(KVLIST_PREVIOUS, 1, "a");
  ExpectEntry(KVLIST_LAST, 1, "ccc");
  ExpectEntry(KVLIST_FIRST, 1, "a");
  ExpectEntry(KVLIST_LAST, 1, "ccc");
  ExpectEntry(KVLIST_REFRESH, 1, "a");
  for (int32_t list : {-1, 0, 7}) ExpectEnd(list, 1, KVFAIL_BAD_ENUM);
}

TEST_F(CursorTest, TextListIterate_RecordsOfTwo_WholeRecords) {
  Copy({"n1", "v1", "n2", "v2", "n3", "v3"});
  ExpectEntry(KVLIST_FIRST, 2, "n1");
  ExpectEntry(KVLIST_NEXT, 2, "v1");
  ExpectEntry(KVLIST_CURRENT, 2, "n1");
  ExpectEntry(KVLIST_NEXT, 2, "v1");
  ExpectEnd(KVLIST_PREVIOUS, 2, KVFAIL_END_OF_DATA);
  ExpectEntry(KVLIST_LAST, 2, "n3");
  ExpectEntry(KVLIST_NEXT, 2, "v3");
  ExpectEnd(KVLIST_NEXT, 2, KVFAIL_END_OF_DATA);
  ExpectEntry(KVLIST_PREVIOUS, 2, "n2");
  ExpectEntry(KVLIST_NEXT, 2, "v2");
  ExpectEntry(KVLIST_PREVIOUS, 2, "n1");
}

TEST_F(CursorTest, TextListIterate_RecordsOfFour_LastAndBack) {
  Copy({"a1", "a2", "a3", "a4", "b1", "b2", "b3", "b4"});
  ExpectEntry(KVLIST_LAST, 4, "b1");
  for (const char* entry : {"b2", "b3", "b4"}) ExpectEntry(KVLIST_NEXT, 4, entry);
  ExpectEntry(KVLIST_PREVIOUS, 4, "a1");
}

TEST_F(CursorTest, TextListIterate_BinaryEntries_CopiedByLengthUpToTheLimit) {
  Copy({std::string("a\0b", 3), "abcdef"});
  char buffer[8];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(TextListIterate(&cursor_, KVLIST_FIRST, 1, buffer, 7), KVSUCCESS);
  EXPECT_EQ(std::string(buffer, 5), std::string("a\0b\0x", 5));
  for (uint32_t length : {0u, 5u, 6u, 7u}) {
    uint32_t status;
    EXPECT_EQ(Entry(KVLIST_LAST, 1, &status, length), std::string("abcdef").substr(0, length));
  }
}

TEST_F(CursorTest, TextListIterate_NoListOrNoEntries_EndOfData) {
  for (int32_t list = 0; list <= 7; ++list) ExpectEnd(list, 1, KVFAIL_END_OF_DATA);
  EXPECT_EQ(Copy({}), 0u);
  ASSERT_NE(cursor_.buffer, nullptr);
  for (int32_t list = 0; list <= 7; ++list) ExpectEnd(list, 1, KVFAIL_END_OF_DATA);
}

}  // namespace
