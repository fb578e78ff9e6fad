// Conversions that append their result to a document: what is stored, its type and flags, which old items go,
// what is copied.
#include <cstring>
#include <string>
#include <vector>

#include "kit/kit.h"
#include "kvint.h"

namespace {

constexpr uint32_t kPut = KVCONV_WRITE | KVCONV_SRC_TERMINATED | KVCONV_REPLACE;  // as item writes pass it
constexpr uint16_t kName = 4;

struct Stored {
  uint16_t type = 0;
  uint16_t flags = 0;
  std::string bytes;
};

std::string TextList(const std::vector<std::string>& entries) {
  std::string list(2 + 2 * entries.size(), 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(entries.size()));
  for (size_t i = 0; i < entries.size(); ++i) {
    KVIStore<uint16_t>(list.data() + 2 + 2 * i, static_cast<uint16_t>(entries[i].size()));
    list += entries[i];
  }
  return list;
}

std::string NumberList(const std::vector<double>& singles, const std::vector<double>& ranges = {}) {
  std::string list(4, 0);
  KVIStore<uint16_t>(list.data(), static_cast<uint16_t>(singles.size()));
  KVIStore<uint16_t>(list.data() + 2, static_cast<uint16_t>(ranges.size() / 2));
  for (const auto* values : {&singles, &ranges})
    for (double value : *values) list.append(reinterpret_cast<const char*>(&value), sizeof value);
  return list;
}

std::string NumberBytes(double number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

class WriteTest : public kit::KavrinTest {
 protected:
  void SetUp() override {
    kit::KavrinTest::SetUp();
    session_ = KVICurrentSession();
    ASSERT_EQ(EngDbOpen(MakeDatabase("write.qdb").c_str(), &dbase_.dbhand), 0);
    ASSERT_EQ(EngNoteCreate(dbase_.dbhand, &doc_.notehand), 0);
    doc_.dbase = &dbase_;
    dbase_.summary_limit = 0x2000;
  }
  void TearDown() override {
    EXPECT_EQ(EngNoteClose(doc_.notehand), 0);
    EXPECT_EQ(EngDbClose(dbase_.dbhand), 0);
    kit::KavrinTest::TearDown();
  }

  uint32_t Write(uint32_t src_type, const std::string& source, uint32_t dest_type, uint32_t flags = kPut,
                 const FORMAT* format = nullptr) {
    return _DataConvert(session_, &dbase_, &doc_, src_type, static_cast<uint32_t>(source.size()),
                        source.data(), flags, "Item", format, dest_type, 0, nullptr, nullptr);
  }

  // All items of the name, in order.
  std::vector<Stored> Items() {
    std::vector<Stored> items;
    BLOCKID item, value;
    uint32_t bytes = 0;
    uint16_t type = 0;
    EngStatus status = EngItemInfo(doc_.notehand, "Item", kName, &item, &type, &value, &bytes);
    for (; status == 0;
         status = EngItemInfoNext(doc_.notehand, item, "Item", kName, &item, &type, &value, &bytes)) {
      Stored stored;
      stored.type = type;
      uint16_t name_bytes = 0;
      char name[256];
      EXPECT_EQ(EngItemQuery(doc_.notehand, item, name, sizeof name, &name_bytes, &stored.flags, nullptr,
                             nullptr, nullptr),
                0);
      const KVLocked locked(value.pool, value.block);
      stored.bytes.assign(locked.bytes + 2, bytes - 2);
      items.push_back(stored);
    }
    return items;
  }
  void ExpectStored(uint16_t type, const std::string& bytes) {
    const std::vector<Stored> items = Items();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].type, type);
    EXPECT_EQ(items[0].bytes, bytes);
  }

  _api_session* session_ = nullptr;
  _DATABASE dbase_{};
  _DOCUMENT doc_{};
};

TEST_F(WriteTest, DataConvert_EachScalarAndText_StoredAsItIs) {
  ASSERT_EQ(Write(KVTYPE_NUMBER, NumberBytes(1.5), KVTYPE_NUMBER), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(1.5));
  ASSERT_EQ(Write(KVTYPE_DATETIME, "12345678", KVTYPE_DATETIME), KVSUCCESS);
  ExpectStored(BRTYPE_TIME, "12345678");
  ASSERT_EQ(Write(KVTYPE_TEXT, "plain", KVTYPE_TEXT), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "plain");
  ASSERT_EQ(Write(KVTYPE_NUMBER, NumberBytes(1.5), KVTYPE_TEXT), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "1.5");
  ASSERT_EQ(Write(KVTYPE_TEXT, "7 up", KVTYPE_NUMBER), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(7));
}

TEST_F(WriteTest, DataConvert_TextLengths_TerminatedOrExact) {
  ASSERT_EQ(_DataConvert(session_, &dbase_, &doc_, KVTYPE_TEXT, 0, "whole", kPut, "Item", nullptr,
                         KVTYPE_TEXT, 0, nullptr, nullptr),
            KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "whole");
  ASSERT_EQ(_DataConvert(session_, &dbase_, &doc_, KVTYPE_TEXT, 0, nullptr, KVCONV_WRITE | KVCONV_REPLACE,
                         "Item", nullptr, KVTYPE_TEXT, 0, nullptr, nullptr),
            KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "");
}

TEST_F(WriteTest, DataConvert_LineEnds_OneNulEach) {
  struct Row {
    std::string text, stored;
  };
  const Row rows[] = {{"a\r\nb", std::string("a\0b", 3)},
                      {"a\n\rb", std::string("a\0b", 3)},
                      {"a\nb", std::string("a\0b", 3)},
                      {"a\rb", std::string("a\0b", 3)},
                      {"\r\n\r\n", std::string("\0\0", 2)},
                      {"\n\n\r", std::string("\0\0", 2)},
                      {"\r\r\n\n", std::string("\0\0\0", 3)},
                      {"end\r\n", std::string("end\0", 4)},
                      {"\n", std::string("\0", 1)}};
  for (const Row& row : rows) {
    ASSERT_EQ(Write(KVTYPE_TEXT, row.text, KVTYPE_TEXT), KVSUCCESS);
    ExpectStored(BRTYPE_TEXT, row.stored);
    char* block = nullptr;
    uint32_t actual = 0;
    ASSERT_EQ(_DataConvert(session_, nullptr, nullptr, KVTYPE_TEXT, static_cast<uint32_t>(row.stored.size()),
                           row.stored.data(), KVCONV_LINES | KVCONV_ALLOC, nullptr, nullptr, KVTYPE_TEXT, 0,
                           &block, &actual),
              KVSUCCESS);
    std::string lines;
    for (char c : row.stored) c == 0 ? lines += "\r\n" : lines += c;
    EXPECT_EQ(std::string(block, actual), lines);
    KVIFree(block);
  }
}

TEST_F(WriteTest, DataConvert_TextsAroundTheSessionBuffer_SameBytesAndBlockFromItsSizeOn) {
  for (uint32_t bytes : {1u, 1022u, 1023u, 1024u, 1025u, 1026u, 5000u}) {
    std::string text(bytes, 'x');
    text[0] = '\n';
    std::string stored = text;
    stored[0] = 0;
    {
      kit::Fault fault = kit::Fault::Allocation(1);
      const bool needs_block = bytes >= 1024;
      const uint32_t status = Write(KVTYPE_TEXT, text, KVTYPE_TEXT, KVCONV_WRITE);
      const bool from_heap = fault.Hit() && fault.hit_name() == "heap";
      EXPECT_EQ(from_heap, needs_block) << bytes;
      fault.Disarm();
      if (needs_block) {
        EXPECT_EQ(status, KVFAIL_NO_MEMORY);
      }
    }
    ASSERT_EQ(Write(KVTYPE_TEXT, text, KVTYPE_TEXT), KVSUCCESS);
    ExpectStored(BRTYPE_TEXT, stored);
  }
}

TEST_F(WriteTest, DataConvert_SameType_EngineGetsTheSourceItself) {
  const std::string text = "no line ends", number = NumberBytes(1), list = TextList({"a", "b"}),
                    values = NumberList({1, 2});
  const std::pair<uint32_t, const std::string*> sources[] = {
      {KVTYPE_TEXT, &text}, {KVTYPE_NUMBER, &number}, {KVTYPE_TEXTLIST, &list}, {KVTYPE_NUMBERLIST, &values}};
  for (const auto& [type, source] : sources) {
    kit::Spy spy;
    ASSERT_EQ(Write(type, *source, type), KVSUCCESS);
    const kit::EngineCall* append = spy.Find("EngItemAppend");
    ASSERT_NE(append, nullptr);
    EXPECT_EQ(append->words[5], reinterpret_cast<uint64_t>(source->data())) << type;
    EXPECT_EQ(append->words[6], source->size());
  }
}

TEST_F(WriteTest, DataConvert_ShortTextLists_StoredAsText) {
  ASSERT_EQ(Write(KVTYPE_TEXTLIST, TextList({"a", "b"}), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT_LIST, TextList({"a", "b"}));
  ASSERT_EQ(Write(KVTYPE_TEXTLIST, TextList({"only"}), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "only");
  ASSERT_EQ(Write(KVTYPE_TEXTLIST, TextList({}), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "");
  ASSERT_EQ(Write(KVTYPE_TEXT, "a; b", KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT_LIST, TextList({"a", "b"}));
  ASSERT_EQ(Write(KVTYPE_TEXT, " only ;", KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "only");
  ASSERT_EQ(Write(KVTYPE_TEXT, " ; ", KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "");
  ASSERT_EQ(Write(KVTYPE_NUMBER, NumberBytes(3), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "3");
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({}, {1, 2}), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "1-2");
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({7}, {1, 2}), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT_LIST, TextList({"7", "1-2"}));
}

TEST_F(WriteTest, DataConvert_ShortNumberLists_StoredAsNumber) {
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({1, 2}), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER_RANGE, NumberList({1, 2}));
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({1}), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(1));
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({}, {1, 2}), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER_RANGE, NumberList({}, {1, 2}));
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList({}), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "");
  ASSERT_EQ(Write(KVTYPE_NUMBER, NumberBytes(4), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(4));
  ASSERT_EQ(Write(KVTYPE_TEXT, "5", KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(5));
  ASSERT_EQ(Write(KVTYPE_TEXT, "5-6, 7", KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER_RANGE, NumberList({7}, {5, 6}));
  ASSERT_EQ(Write(KVTYPE_DATETIMELIST, NumberList({1}), KVTYPE_DATETIMELIST), KVSUCCESS);
  ExpectStored(BRTYPE_TIME, NumberBytes(1));
  ASSERT_EQ(Write(KVTYPE_TEXTLIST, TextList({"8"}), KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER, NumberBytes(8));
}

TEST_F(WriteTest, DataConvert_LongResults_StoredWhole) {
  std::string text;
  std::vector<double> numbers;
  for (int i = 0; i < 1000; ++i) {
    text += std::to_string(i) + ",";
    numbers.push_back(i);
  }
  ASSERT_EQ(Write(KVTYPE_TEXT, text, KVTYPE_NUMBERLIST), KVSUCCESS);
  ExpectStored(BRTYPE_NUMBER_RANGE, NumberList(numbers));
  std::vector<std::string> entries;
  for (int i = 0; i < 1000; ++i) entries.push_back(std::to_string(i));
  ASSERT_EQ(Write(KVTYPE_TEXT, text, KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT_LIST, TextList(entries));
  ASSERT_EQ(Write(KVTYPE_NUMBERLIST, NumberList(numbers), KVTYPE_TEXTLIST), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT_LIST, TextList(entries));
}

TEST_F(WriteTest, DataConvert_Formula_CompiledAndNoSummary) {
  ASSERT_EQ(Write(KVTYPE_TEXT, "1 + 2", KVTYPE_FORMULA), KVSUCCESS);
  std::vector<Stored> items = Items();
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].type, BRTYPE_FORMULA);
  EXPECT_EQ(items[0].flags & kItemSummary, 0);
  const std::string formula = items[0].bytes;
  ASSERT_EQ(Write(KVTYPE_FORMULA, formula, KVTYPE_TEXT), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "1 + 2");
  ASSERT_EQ(Write(KVTYPE_FORMULA, formula, KVTYPE_FORMULA), KVSUCCESS);
  ExpectStored(BRTYPE_FORMULA, formula);
}

// Flags

TEST_F(WriteTest, DataConvert_SummaryLimit_LongerValuesStayOut) {
  for (uint32_t limit : {4u, 5u, 6u}) {
    dbase_.summary_limit = limit;
    ASSERT_EQ(Write(KVTYPE_TEXT, "abcde", KVTYPE_TEXT), KVSUCCESS);
    EXPECT_EQ(Items()[0].flags & kItemSummary, limit >= 5 ? kItemSummary : 0) << limit;
  }
  dbase_.summary_limit = 4;
  ASSERT_EQ(Write(KVTYPE_TEXTLIST, TextList({"abcd"}), KVTYPE_TEXTLIST), KVSUCCESS);
  EXPECT_EQ(Items()[0].flags & kItemSummary, kItemSummary) << "the text that is stored counts, not the list";
}

TEST_F(WriteTest, DataConvert_FlagWords_FormatThenWholeWordOrSummaryBit) {
  constexpr uint16_t kSigned = 1, kNames = 0x40;
  FORMAT format = session_->format.format;
  format.item_flags = kNames;
  struct Row {
    uint32_t flags;
    const FORMAT* format;
    uint16_t expected;
  };
  const Row rows[] = {{0, nullptr, kItemSummary},
                      {0, &format, kItemSummary | kNames},
                      {kSigned, nullptr, kItemSummary},
                      {KVCONV_ITEM_FLAGS | kSigned, nullptr, kSigned},
                      {KVCONV_ITEM_FLAGS | KVCONV_SUMMARY | kSigned, &format, kSigned},
                      {KVCONV_ITEM_FLAGS, &format, 0},
                      {KVCONV_SUMMARY, nullptr, 0},
                      {KVCONV_SUMMARY | kSigned, &format, kNames},
                      {KVCONV_SUMMARY | kItemSummary, &format, kItemSummary | kNames}};
  for (const Row& row : rows) {
    kit::Spy spy;
    ASSERT_EQ(Write(KVTYPE_TEXT, "x", KVTYPE_TEXT, kPut | row.flags, row.format), KVSUCCESS);
    EXPECT_EQ(spy.Find("EngItemAppend")->words[1], row.expected) << std::hex << row.flags;
  }
  dbase_.summary_limit = 0;
  kit::Spy spy;
  ASSERT_EQ(Write(KVTYPE_TEXT, "x", KVTYPE_TEXT, kPut | KVCONV_SUMMARY | kItemSummary), KVSUCCESS);
  EXPECT_EQ(spy.Find("EngItemAppend")->words[1], kItemSummary);
}

// Old items

TEST_F(WriteTest, DataConvert_Replace_OldItemsGoAfterTheNewOneStands) {
  for (const char* text : {"a", "b", "c"})
    ASSERT_EQ(Write(KVTYPE_TEXT, text, KVTYPE_TEXT, KVCONV_WRITE), KVSUCCESS);
  EXPECT_EQ(Items().size(), 3u) << "without the flag they stay";
  kit::Spy spy;
  ASSERT_EQ(Write(KVTYPE_TEXT, "new", KVTYPE_TEXT), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "new");
  const std::vector<std::string> names = spy.Names();
  size_t append = 0, first_delete = 0;
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == "EngItemAppend") append = i;
    if (names[i] == "EngItemDeleteByBlock" && first_delete == 0) first_delete = i;
  }
  EXPECT_LT(append, first_delete);
  EXPECT_EQ(spy.Count("EngItemAppend"), 1u);
  EXPECT_EQ(spy.Count("EngItemDeleteByBlock"), 3u);
}

TEST_F(WriteTest, DataConvert_ManyOldItems_AllReplaced) {
  for (uint32_t count : {31u, 32u, 33u, 64u, 65u, 100u}) {
    for (uint32_t i = 0; i < count; ++i)
      ASSERT_EQ(Write(KVTYPE_TEXT, "old", KVTYPE_TEXT, KVCONV_WRITE), KVSUCCESS);
    ASSERT_EQ(Write(KVTYPE_TEXT, "new", KVTYPE_TEXT), KVSUCCESS);
    ExpectStored(BRTYPE_TEXT, "new");
  }
}

TEST_F(WriteTest, DataConvert_AppendFails_StatusPassedOnAndOldItemsGone) {
  ASSERT_EQ(Write(KVTYPE_TEXT, "old", KVTYPE_TEXT), KVSUCCESS);
  {
    kit::Fault fault = kit::Fault::EngineCall(1, 0x1f6, "EngItemAppend");
    EXPECT_EQ(Write(KVTYPE_NUMBER, NumberBytes(1), KVTYPE_TEXTLIST), 0x1f6u);
  }
  EXPECT_TRUE(Items().empty());
}

TEST_F(WriteTest, DataConvert_ConversionFails_DocumentAsItWas) {
  ASSERT_EQ(Write(KVTYPE_TEXT, "old", KVTYPE_TEXT), KVSUCCESS);
  EXPECT_EQ(Write(KVTYPE_TEXT, "x", KVTYPE_NUMBERLIST), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Write(KVTYPE_TEXT, "x", KVTYPE_DATETIME), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Write(KVTYPE_TEXT, "1e999", KVTYPE_NUMBER), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(Write(KVTYPE_TEXTLIST, TextList({}), KVTYPE_NUMBER), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Write(KVTYPE_TEXT, "(", KVTYPE_FORMULA), KVFAIL_FORMULA);
  EXPECT_EQ(Write(KVTYPE_TEXTLIST, "\x09", KVTYPE_TEXTLIST, KVCONV_WRITE), KVFAIL_BAD_FORMAT) << "damaged";
  EXPECT_EQ(Write(KVTYPE_NUMBER, NumberBytes(1), KVTYPE_DATETIME), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(Write(KVTYPE_TEXT, "x", KVTYPE_COMPOSITE), kEngNotAvailable);
  ExpectStored(BRTYPE_TEXT, "old");
}

// Each engine call and each allocation of a write fails in turn.
TEST_F(WriteTest, DataConvert_EachFault_StatusAndNothingLeftBehind) {
  const std::string long_text = "\n" + std::string(3000, 'x') + ",1-2,3";
  const std::pair<uint32_t, std::string> sources[] = {{KVTYPE_TEXT, long_text},
                                                      {KVTYPE_TEXT, "1-2"},
                                                      {KVTYPE_NUMBER, NumberBytes(1)},
                                                      {KVTYPE_NUMBERLIST, NumberList({1, 2, 3})}};
  uint32_t faults = 0;
  for (const auto& [src_type, source] : sources)
    for (uint32_t dest_type : {KVTYPE_TEXT, KVTYPE_TEXTLIST, KVTYPE_NUMBERLIST, KVTYPE_FORMULA}) {
      if (convert_length[dest_type][src_type] == 0) continue;
      for (bool allocations : {false, true})
        for (uint32_t n = 1;; ++n) {
          const kit::MemoryState before = kit::Memory();
          kit::Fault fault = allocations ? kit::Fault::Allocation(n) : kit::Fault::EngineCall(n, 0x107);
          const uint32_t status = Write(src_type, source, dest_type, KVCONV_WRITE);
          fault.Disarm();
          const kit::MemoryState after = kit::Memory();
          ASSERT_EQ(after.heap_blocks, before.heap_blocks);
          ASSERT_EQ(after.locks, before.locks);
          if (!fault.Hit()) break;
          ++faults;
          if (status != KVSUCCESS) {
            ASSERT_TRUE(status == 0x107 || (status & 0x80000000) != 0) << fault.hit_name() << " " << status;
          }
          ASSERT_LT(n, 200u);
        }
    }
  std::printf("%u faults\n", faults);
  EXPECT_GT(faults, 30u);
  ASSERT_EQ(Write(KVTYPE_TEXT, "after", KVTYPE_TEXT), KVSUCCESS);
  ExpectStored(BRTYPE_TEXT, "after");
}

}  // namespace
