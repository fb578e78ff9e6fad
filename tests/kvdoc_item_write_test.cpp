// Writing items: put, append to a list, copy between documents, delete.
#include <array>

#include "kvdoc_world.h"

namespace {

using kit::Answer;
using kit::Fault;
using kit::Spy;
using kvdoc::AddComposite;
using kvdoc::IndexDocument;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::NoteItem;
using kvdoc::NumberBytes;
using kvdoc::Record;
using kvdoc::TextList;

using Names = std::vector<std::string>;

class WriteTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = Open(StoreDocument());
    note_ = NoteOf(document_);
  }
  uint32_t Put(const std::string& name, int32_t item_type, const std::string& bytes, int32_t buffer_type,
               uint32_t item_flags = 0) const {
    return KVItemPut(document_, name.c_str(), item_type, static_cast<uint32_t>(bytes.size()), buffer_type,
                     bytes.data(), item_flags);
  }
  std::vector<NoteItem> Items(const std::string& name) const { return ItemsOf(note_, name); }
  NoteItem OnlyItem(const std::string& name) const {
    const std::vector<NoteItem> items = Items(name);
    EXPECT_EQ(items.size(), 1u) << name;
    return items.empty() ? NoteItem{} : items[0];
  }
  void ExpectClean() const { EXPECT_EQ(Record(document_)->dirty, 0); }

  uint32_t document_ = 0;
  EngNote note_ = 0;
};

// ---- Put

TEST_F(WriteTest, KVItemPut_BadArguments_InOrderAndNothingWritten) {
  EXPECT_EQ(KVItemPut(database_, nullptr, 0, 0, 0, nullptr, 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemPut(database_, "", 0, 0, 0, "x", 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemPut(database_, "Name", 0, 0, 0, nullptr, 0), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemPut(database_, "Name", 99, 0, 99, "x", 0), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVItemPut(document_, "Name", 9, 0, KVTYPE_TEXT, "x", 0), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVItemPut(document_, "Name", -1, 0, KVTYPE_TEXT, "x", 0), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVItemPut(document_, "Name", 0, 0, 10, "x", 0), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVItemPut(document_, "Name", 0, 0, -1, "x", 0), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVItemPut(document_, "Name", 0, 0, 9, "x", 0), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(KVItemPut(document_, "Name", 0, 0, 0, "x", 0), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(KVItemPut(document_, "Name", KVTYPE_TEXT, 0, 0, "x", 0), KVFAIL_ILLEGAL_CONVERSION);
  EXPECT_EQ(KVItemPut(document_, "Name", KVTYPE_NUMBER, 8, KVTYPE_DATETIME, "12345678", 0),
            KVFAIL_ILLEGAL_CONVERSION);
  ExpectError(KVFAIL_ILLEGAL_CONVERSION);
  ExpectClean();
  EXPECT_EQ(Items("Name").size(), 0u);
}

TEST_F(WriteTest, KVItemPut_CutCharacter_DroppedAndAloneItIsNoData) {
  EXPECT_EQ(Put("Text", 0, "ab\xc3", KVTYPE_TEXT), KVSUCCESS);
  uint32_t whole = 3;
  ReviseSplitCharacter(&whole, static_cast<const void*>("ab\xc3"));
  EXPECT_EQ(OnlyItem("Text").bytes, std::string("ab\xc3").substr(0, whole));
  for (int byte = 1; byte < 256; ++byte) {
    const char prefix = static_cast<char>(byte);
    uint32_t left = 1;
    ReviseSplitCharacter(&left, static_cast<const void*>(&prefix));
    EXPECT_EQ(Put("One", 0, std::string(1, prefix), KVTYPE_TEXT),
              left == 0 ? KVFAIL_DATA_UNAVAILABLE : KVSUCCESS)
        << byte;
  }
}

TEST_F(WriteTest, KVItemPut_EmptyText_WritesAnEmptyValue) {
  ASSERT_EQ(KVItemPut(document_, "Text", 0, 0, KVTYPE_TEXT, "", 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Text").type, BRTYPE_TEXT);
  EXPECT_EQ(OnlyItem("Text").bytes, "");
}

TEST_F(WriteTest, KVItemPut_LengthZero_UpToTheTerminator) {
  ASSERT_EQ(KVItemPut(document_, "Text", 0, 0, KVTYPE_TEXT, "up to\0here", 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Text").bytes, "up to");
  ASSERT_EQ(KVItemPut(document_, "Text", 0, 10, KVTYPE_TEXT, "up to\0here", 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Text").bytes, std::string("up to\0here", 10));
}

TEST_F(WriteTest, KVItemPut_EachType_StoredTypeAndBytes) {
  const struct {
    int32_t item_type, buffer_type;
    std::string bytes;
    uint16_t type;
    std::string stored;
  } rows[] = {
      {0, KVTYPE_TEXT, "text", BRTYPE_TEXT, "text"},
      {KVTYPE_TEXT, KVTYPE_TEXT, "text", BRTYPE_TEXT, "text"},
      {0, KVTYPE_NUMBER, NumberBytes(1.5), BRTYPE_NUMBER, NumberBytes(1.5)},
      {KVTYPE_TEXT, KVTYPE_NUMBER, NumberBytes(1.5), BRTYPE_TEXT, "1.5"},
      {KVTYPE_NUMBER, KVTYPE_TEXT, "1.5", BRTYPE_NUMBER, NumberBytes(1.5)},
      {0, KVTYPE_DATETIME, "12345678", BRTYPE_TIME, "12345678"},
      {0, KVTYPE_TEXTLIST, TextList({"a", "b"}), BRTYPE_TEXT_LIST, TextList({"a", "b"})},
      {0, KVTYPE_TEXTLIST, TextList({"a"}), BRTYPE_TEXT, "a"},
      {0, KVTYPE_TEXTLIST, TextList({}), BRTYPE_TEXT, ""},
      {KVTYPE_TEXTLIST, KVTYPE_TEXT, "a; b;c", BRTYPE_TEXT_LIST, TextList({"a", "b", "c"})},
      {0, KVTYPE_NUMBERLIST, std::string("\1\0\0\0", 4) + NumberBytes(2), BRTYPE_NUMBER, NumberBytes(2)},
      {0, KVTYPE_TEXT, "line\r\nline", BRTYPE_TEXT, std::string("line\0line", 9)},
  };
  for (const auto& row : rows) {
    Record(document_)->dirty = 0;
    ASSERT_EQ(Put("Item", row.item_type, row.bytes, row.buffer_type), KVSUCCESS) << row.bytes;
    EXPECT_EQ(OnlyItem("Item").type, row.type) << row.bytes;
    EXPECT_EQ(OnlyItem("Item").bytes, row.stored) << row.bytes;
    EXPECT_EQ(Record(document_)->dirty, 1);
    ExpectError(KVSUCCESS);
  }
}

TEST_F(WriteTest, KVItemPut_UnalignedValue_IsRead) {
  std::array<char, 16> bytes{};
  const double number = 2.25;
  memcpy(bytes.data() + 3, &number, sizeof number);
  ASSERT_EQ(KVItemPut(document_, "Number", 0, 8, KVTYPE_NUMBER, bytes.data() + 3, 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Number").bytes, NumberBytes(2.25));
  ASSERT_EQ(KVItemPut(document_, "Number", KVTYPE_TEXT, 8, KVTYPE_NUMBER, bytes.data() + 3, 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Number").bytes, "2.25");
}

TEST_F(WriteTest, KVItemPut_Flags_StoredOnAnUnboundItem) {
  const uint32_t rows[][2] = {{0, 4},
                              {0x4, 0x4},
                              {0x1, 0x1},
                              {0x763, 0x763},
                              {0xffffffff, 0x767},
                              {0x400, 0x400},
                              {0x98, 4},  // no bit that is looked at
                              {0xfffcf898, 4},
                              {KVITEMFLAG_REPLACE_ALL, 0},
                              {KVITEMFLAG_SET_SUMMARY, 0},
                              {KVITEMFLAG_SET_SUMMARY | 4, 4}};
  for (const auto& row : rows) {
    ASSERT_EQ(Put("Item", 0, "text", KVTYPE_TEXT, row[0]), KVSUCCESS);
    EXPECT_EQ(OnlyItem("Item").flags, row[1]) << std::hex << row[0];
  }
}

TEST_F(WriteTest, KVItemPut_SummaryLimit_LongerValuesAreNoSummary) {
  for (const uint32_t limit : {0u, 1u, 100u, 1024u, 15360u}) {
    ASSERT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_SUMMARY_LIMIT, &limit), KVSUCCESS);
    for (const int64_t difference : {-1, 0, 1}) {
      const int64_t bytes = int64_t{limit} + difference;
      if (bytes <= 0) continue;
      ASSERT_EQ(Put("Item", 0, std::string(static_cast<size_t>(bytes), 's'), KVTYPE_TEXT), KVSUCCESS);
      EXPECT_EQ(OnlyItem("Item").flags, difference > 0 ? 0 : 4) << limit << " " << difference;
    }
  }
  const uint32_t limit = 7;
  ASSERT_EQ(KVDatabaseSetProperty(database_, KVPROP_DB_SUMMARY_LIMIT, &limit), KVSUCCESS);
  ASSERT_EQ(Put("Item", 0, NumberBytes(1), KVTYPE_NUMBER), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").flags, 0);
  ASSERT_EQ(Put("Item", KVTYPE_TEXT, NumberBytes(1), KVTYPE_NUMBER), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").flags, 4);  // the length of the value that is written counts
}

TEST_F(WriteTest, KVItemPut_Formula_IsNoSummary) {
  ASSERT_EQ(Put("Item", KVTYPE_FORMULA, "1 + 1", KVTYPE_TEXT), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").flags, 0);
  EXPECT_EQ(OnlyItem("Item").type, BRTYPE_FORMULA);
  EXPECT_EQ(Put("Item", KVTYPE_FORMULA, "1 +", KVTYPE_TEXT), KVFAIL_FORMULA);
  EXPECT_EQ(Items("Item").size(), 1u);
}

TEST_F(WriteTest, KVItemPut_OverOldItems_ReplacesAllOfTheName) {
  for (const char* name : {"Item", "ITEM", "item"}) AppendText(note_, name, name);
  AppendText(note_, "Item2", "stays");
  ASSERT_EQ(Put("iTeM", 0, "new", KVTYPE_TEXT), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").bytes, "new");
  EXPECT_EQ(Items("Item2").size(), 1u);
}

TEST_F(WriteTest, KVItemPut_Success_OldItemsGoAfterTheNewOneStands) {
  AppendText(note_, "Item", "old");
  Spy spy;
  ASSERT_EQ(Put("Item", 0, "new", KVTYPE_TEXT), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngItemInfo", "EngItemInfoNext", "EngItemAppend", "EngItemDeleteByBlock"}));
}

TEST_F(WriteTest, KVItemPut_AppendFails_OldValueIsGoneAndDirtyAsItWas) {
  AppendText(note_, "Item", "old");
  {
    Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemAppend");
    EXPECT_EQ(Put("Item", 0, "new", KVTYPE_TEXT), kEngineFailure);
  }
  EXPECT_EQ(Items("Item").size(), 0u);
  ExpectClean();
  ExpectError(kEngineFailure);
}

TEST_F(WriteTest, KVItemPut_ConversionFails_OldValueStays) {
  AppendText(note_, "Item", "old");
  EXPECT_EQ(Put("Item", KVTYPE_DATETIME, "no date", KVTYPE_TEXT), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(OnlyItem("Item").bytes, "old");
  ExpectClean();
}

TEST_F(WriteTest, KVItemPut_Composite_ToldAsNotAvailable) {
  AppendText(note_, "Body", "old");
  EXPECT_EQ(Put("Body", KVTYPE_COMPOSITE, "text", KVTYPE_TEXT), 0x1ffu);
  EXPECT_EQ(OnlyItem("Body").bytes, "old");
  ExpectClean();
}

TEST_F(WriteTest, KVItemPut_NamesOfEachLength_UpToTheEnginesLimit) {
  for (const size_t bytes : {1u, 64u, 65u, 255u}) {
    const std::string name(bytes, 'n');
    ASSERT_EQ(Put(name, 0, "text", KVTYPE_TEXT), KVSUCCESS);
    EXPECT_EQ(OnlyItem(name).name, name);
  }
  Record(document_)->dirty = 0;
  for (const size_t bytes : {256u, 65535u, 65536u, 70000u}) {
    EXPECT_EQ(Put(std::string(bytes, 'n'), 0, "text", KVTYPE_TEXT), 0x224u) << bytes;
    ExpectError(0x224);
  }
  ExpectClean();
}

TEST_F(WriteTest, KVItemPut_LongValues_StoredWholeOrRefusedWhole) {
  const uint32_t sizes[] = {16381, 16382, 16383, 59999, 60000, 60001, 65533, 65534, 65535, 65536, 200000};
  for (const uint32_t bytes : sizes) {
    const std::string text(bytes, static_cast<char>('a' + bytes % 26));
    const uint32_t status = Put("Long" + std::to_string(bytes), 0, text, KVTYPE_TEXT);
    EXPECT_EQ(status, KVSUCCESS) << bytes;
  }
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  for (const uint32_t bytes : sizes) {
    const std::string name = "Long" + std::to_string(bytes);
    const std::vector<NoteItem> items = StoredItems(Record(document_)->docid, name);
    ASSERT_EQ(items.size(), 1u) << bytes;
    EXPECT_TRUE(items[0].bytes == std::string(bytes, static_cast<char>('a' + bytes % 26)));
    EXPECT_EQ(items[0].flags, 0);
    ASSERT_EQ(Put(name, 0, "short", KVTYPE_TEXT), KVSUCCESS);
  }
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  for (const uint32_t bytes : sizes)
    EXPECT_EQ(StoredItems(Record(document_)->docid, "Long" + std::to_string(bytes))[0].bytes, "short");
}

TEST_F(WriteTest, KVItemPut_ShortTextOverAnother_AllocationsCounted) {
  ASSERT_EQ(Put("Item", 0, "text", KVTYPE_TEXT), KVSUCCESS);
  // What the engine takes for its lists of items comes seldom; a put after some others takes nothing.
  for (int i = 0; i < 20; ++i) ASSERT_EQ(Put("Item", 0, "text", KVTYPE_TEXT), KVSUCCESS);
  const uint32_t count =
      kvdoc::AllocationsOf([&] { EXPECT_EQ(Put("Item", 0, "text", KVTYPE_TEXT), KVSUCCESS); });
  kvdoc::PrintAllocations("KVItemPut of a short text", count);
  EXPECT_EQ(count, 0u);
  const uint32_t number_count = kvdoc::AllocationsOf(
      [&] { EXPECT_EQ(Put("Item", KVTYPE_TEXT, NumberBytes(1.5), KVTYPE_NUMBER), KVSUCCESS); });
  kvdoc::PrintAllocations("KVItemPut of a number as text", number_count);
  EXPECT_EQ(number_count, 0u);
}

// ---- Append to a text list

TEST_F(WriteTest, KVItemAppendTextList_BadArguments_InOrder) {
  EXPECT_EQ(KVItemAppendTextList(database_, nullptr, nullptr, 0, 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemAppendTextList(database_, "", "x", 0, 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemAppendTextList(database_, "List", nullptr, 0, 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemAppendTextList(database_, "List", "", 1, 1), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemAppendTextList(database_, "List", "x", 0, 1), KVFAIL_BAD_DOCUMENT);
  ExpectClean();
}

TEST_F(WriteTest, KVItemAppendTextList_Entries_AddedInOrder) {
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "one", 0, 1), KVSUCCESS);
  EXPECT_EQ(KVItemAppendTextList(document_, "list", "two and", 3, 1), KVSUCCESS);
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "one", 0, 1), KVSUCCESS);
  EXPECT_EQ(OnlyItem("List").type, BRTYPE_TEXT_LIST);
  EXPECT_EQ(OnlyItem("List").bytes, TextList({"one", "two", "one"}));
  EXPECT_EQ(Record(document_)->dirty, 1);
}

TEST_F(WriteTest, KVItemAppendTextList_Duplicate_NameInUseAndDirtyAsItWas) {
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "one", 0, 0), KVSUCCESS);
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "two", 0, 0), KVSUCCESS);
  Record(document_)->dirty = 0;
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "ONE", 0, 0), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "two", 3, 0), KVFAIL_NAME_IN_USE);
  ExpectError(KVFAIL_NAME_IN_USE);
  ExpectClean();
  EXPECT_EQ(OnlyItem("List").bytes, TextList({"one", "two"}));
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "three", 0, 0), KVSUCCESS);
  EXPECT_EQ(Record(document_)->dirty, 1);
}

TEST_F(WriteTest, KVItemAppendTextList_TextItem_BecomesAList) {
  PutText(document_, "Item", "one");
  EXPECT_EQ(KVItemAppendTextList(document_, "Item", "two", 0, 0), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").bytes, TextList({"one", "two"}));
}

TEST_F(WriteTest, KVItemAppendTextList_CutCharacter_DroppedAndAloneItIsNoData) {
  const char prefix[] = "\x81\x81";
  uint32_t whole = 1;
  ReviseSplitCharacter(&whole, static_cast<const void*>(prefix));
  EXPECT_EQ(KVItemAppendTextList(document_, "List", prefix, 1, 1),
            whole == 0 ? KVFAIL_DATA_UNAVAILABLE : KVSUCCESS);
}

TEST_F(WriteTest, KVItemAppendTextList_Lengths_LimitIs65500) {
  const std::string text(65502, 't');
  EXPECT_EQ(KVItemAppendTextList(document_, "A", text.c_str(), 65499, 1), KVSUCCESS);
  EXPECT_EQ(KVItemAppendTextList(document_, "B", text.c_str(), 65500, 1), KVSUCCESS);
  EXPECT_EQ(OnlyItem("B").bytes.size(), 65504u);
  Record(document_)->dirty = 0;
  EXPECT_EQ(KVItemAppendTextList(document_, "C", text.c_str(), 65501, 1), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVItemAppendTextList(document_, "C", text.c_str(), 0, 1), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(Items("C").size(), 0u);
  ExpectClean();
}

TEST_F(WriteTest, KVItemAppendTextList_EngineRefuses_ItsStatusIsNotLookedAt) {
  Append(note_, {"Number", BRTYPE_NUMBER, 4, NumberBytes(1)});
  EXPECT_EQ(KVItemAppendTextList(document_, "Number", "text", 0, 1), KVSUCCESS);
  EXPECT_EQ(Record(document_)->dirty, 1);
  Record(document_)->dirty = 0;
  EXPECT_EQ(KVItemAppendTextList(document_, "Number", "text", 0, 0), KVFAIL_NAME_IN_USE);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemTextListAppend");
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "text", 0, 0), 0x222u);
  ExpectClean();
  EXPECT_EQ(OnlyItem("Number").bytes, NumberBytes(1));
}

TEST_F(WriteTest, KVItemAppendTextList_LengthCannotBeRead_EngineStatusAndDirtyAsItWas) {
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "one", 0, 1), KVSUCCESS);
  Record(document_)->dirty = 0;
  Fault fault = Fault::EngineCall(2, kEngineFailureWithFlagBits, "EngItemInfo");
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "two", 0, 0), kEngineFailure);
  ExpectClean();
}

TEST_F(WriteTest, KVItemAppendTextList_EngineCalls_LengthReadOnlyForDuplicates) {
  Spy spy;
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "one", 0, 7), KVSUCCESS);
  EXPECT_EQ(spy.Names(), Names{"EngItemTextListAppend"});
  EXPECT_EQ(spy.Find("EngItemTextListAppend")->words[4], 1u);
  spy.Clear();
  EXPECT_EQ(KVItemAppendTextList(document_, "List", "two", 0, 0), KVSUCCESS);
  EXPECT_EQ(spy.Names(), (Names{"EngItemInfo", "EngItemTextListAppend", "EngItemInfo"}));
  EXPECT_EQ(spy.Find("EngItemTextListAppend")->words[3], 3u);
}

// ---- Copy

class ItemCopyTest : public WriteTest {
 protected:
  void SetUp() override {
    WriteTest::SetUp();
    target_ = Open(StoreDocument());
    target_note_ = NoteOf(target_);
  }
  std::vector<NoteItem> TargetItems(const std::string& name) const { return ItemsOf(target_note_, name); }
  void AppendBody(int segments) {
    for (int i = 0; i < segments; ++i)
      Append(note_, {"Body", BRTYPE_COMPOSITE, 0, std::string(10, static_cast<char>('0' + i))});
  }

  uint32_t target_ = 0;
  EngNote target_note_ = 0;
};

TEST_F(ItemCopyTest, KVItemCopy_BadArguments_InOrder) {
  EXPECT_EQ(KVItemCopy(database_, nullptr, database_), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemCopy(database_, "", database_), KVFAIL_NULL_PARAM);
  Spy spy;
  EXPECT_EQ(KVItemCopy(document_, "Subject", database_), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVItemCopy(database_, "Subject", target_), KVFAIL_BAD_DOCUMENT);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(Record(target_)->dirty, 0);
}

TEST_F(ItemCopyTest, KVItemCopy_TextItem_FirstInstanceReplacesAll) {
  Append(note_, {"Item", BRTYPE_TEXT, 0x404, "first"});
  AppendText(note_, "Item", "second");
  for (const char* text : {"old", "older"}) AppendText(target_note_, "ITEM", text);
  EXPECT_EQ(KVItemCopy(document_, "item", target_), KVSUCCESS);
  const std::vector<NoteItem> items = TargetItems("Item");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].bytes, "first");
  EXPECT_EQ(items[0].flags, 0x404);
  EXPECT_EQ(Record(target_)->dirty, 1);
  ExpectClean();
  EXPECT_EQ(Items("Item").size(), 2u);
}

TEST_F(ItemCopyTest, KVItemCopy_CompositeOfSegments_AllComeOver) {
  AppendBody(3);
  AppendText(target_note_, "Body", "old");
  EXPECT_EQ(KVItemCopy(document_, "Body", target_), KVSUCCESS);
  const std::vector<NoteItem> items = TargetItems("Body");
  ASSERT_EQ(items.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(items[static_cast<size_t>(i)].bytes[0], '0' + i);
}

TEST_F(ItemCopyTest, KVItemCopy_CompositeThenText_TheTextEndsTheWalk) {
  AppendBody(2);
  AppendText(note_, "Body", "text");
  AppendBody(1);
  EXPECT_EQ(KVItemCopy(document_, "Body", target_), KVSUCCESS);
  EXPECT_EQ(TargetItems("Body").size(), 3u);
}

TEST_F(ItemCopyTest, KVItemCopy_NoSuchItem_NoItemAndOldItemsStay) {
  AppendText(target_note_, "Item", "old");
  EXPECT_EQ(KVItemCopy(document_, "Item", target_), KVFAIL_NO_ITEM);
  EXPECT_EQ(TargetItems("Item").size(), 1u);
  EXPECT_EQ(Record(target_)->dirty, 0);
  ExpectError(KVFAIL_NO_ITEM);
}

TEST_F(ItemCopyTest, KVItemCopy_OntoTheSameDocument_EachItemOnce) {
  AppendBody(3);
  EXPECT_EQ(KVItemCopy(document_, "Body", document_), KVSUCCESS);
  EXPECT_EQ(Items("Body").size(), 3u);
  EXPECT_EQ(KVItemCopy(document_, "Subject", document_), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Subject").bytes, "a subject");
}

TEST_F(ItemCopyTest, KVItemCopy_AnotherDatabase_ValueIsStoredThere) {
  const uint32_t other = OpenDatabase(MakeDatabase("other.qdb"));
  uint32_t target = 0;
  ASSERT_EQ(KVDocumentCreate(other, 0, &target), KVSUCCESS);
  const std::string text(70000, 'l');
  ASSERT_EQ(Put("Long", 0, text, KVTYPE_TEXT), KVSUCCESS);
  EXPECT_EQ(KVItemCopy(document_, "Long", target), KVSUCCESS);
  ASSERT_EQ(KVDocumentSave(target, 0), KVSUCCESS);
  const uint32_t again = OpenIn(other, Record(target)->docid);
  EXPECT_TRUE(ItemsOf(NoteOf(again))[0].bytes == text);
}

TEST_F(ItemCopyTest, KVItemCopy_CopyFails_StatusOldItemsStayAndListIsForgotten) {
  constexpr int kOld = 40;  // more than the inline list holds
  for (int i = 0; i < kOld; ++i) AppendText(target_note_, "Subject", "old");
  const kit::MemoryState before = kit::Memory();
  {
    Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemCopy");
    EXPECT_EQ(KVItemCopy(document_, "Subject", target_), kEngineFailure);
  }
  EXPECT_EQ(TargetItems("Subject").size(), kOld + 1u);
  EXPECT_EQ(Record(target_)->dirty, 0);
  EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
  EXPECT_EQ(session_->delete_bid_ptr, session_->delete_bid);
}

TEST_F(ItemCopyTest, KVItemCopy_WalkEndsInAFailure_ReportedAfterTheReplacement) {
  AppendBody(2);
  AppendText(target_note_, "Body", "old");
  {
    // The destination's walk has one step, the source's the next.
    Fault fault = Fault::EngineCall(2, kEngineFailureWithFlagBits, "EngItemInfoNext");
    EXPECT_EQ(KVItemCopy(document_, "Body", target_), kEngineFailure);
  }
  EXPECT_EQ(TargetItems("Body").size(), 1u);
  EXPECT_EQ(TargetItems("Body")[0].type, BRTYPE_COMPOSITE);
  EXPECT_EQ(Record(target_)->dirty, 1);
}

TEST_F(ItemCopyTest, KVItemCopy_HandlesOfAnotherThread_BadDocument) {
  kit::InSession([&] { EXPECT_EQ(KVItemCopy(document_, "Subject", target_), KVFAIL_BAD_DOCUMENT); });
  EXPECT_EQ(Record(target_)->dirty, 0);
}

// ---- Delete

TEST_F(WriteTest, KVItemDelete_BadArguments_InOrder) {
  EXPECT_EQ(KVItemDelete(database_, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemDelete(database_, ""), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVItemDelete(database_, "Subject"), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVItemDelete(document_, "Missing"), KVFAIL_NO_ITEM);
  ExpectError(KVFAIL_NO_ITEM);
  ExpectClean();
}

TEST_F(WriteTest, KVItemDelete_ThreeInstances_AllGo) {
  for (const char* name : {"Item", "ITEM", "item"}) AppendText(note_, name, name);
  EXPECT_EQ(KVItemDelete(document_, "iTem"), KVSUCCESS);
  EXPECT_EQ(Items("Item").size(), 0u);
  EXPECT_EQ(Items("Subject").size(), 1u);
  EXPECT_EQ(Record(document_)->dirty, 1);
}

TEST_F(WriteTest, KVItemDelete_Attachments_OnlyTheExactStartOfTheNameProtects) {
  AppendText(note_, "$FILES", "text");
  EXPECT_EQ(KVItemDelete(document_, "$FILES"), KVSUCCESS);
  Append(note_, {"$FILE", BRTYPE_OBJECT, 0, "object"});
  AppendText(note_, "$FILES", "text");
  EXPECT_EQ(KVItemDelete(document_, "$FILE"), KVFAIL_NO_ITEM);
  EXPECT_EQ(KVItemDelete(document_, "$FILES"), KVFAIL_NO_ITEM);
  EXPECT_EQ(Items("$FILE").size(), 1u);
  EXPECT_EQ(KVItemDelete(document_, "$FIL"), KVFAIL_NO_ITEM);
  EXPECT_EQ(KVItemDelete(document_, "$FILes"), KVSUCCESS);
  EXPECT_EQ(Items("$FILES").size(), 0u);
  EXPECT_EQ(KVItemDelete(document_, "$file"), KVSUCCESS);
  AppendText(note_, "$FILE", "text first");
  Append(note_, {"$FILE", BRTYPE_OBJECT, 0, "object"});
  EXPECT_EQ(KVItemDelete(document_, "$FILE"), KVSUCCESS);
}

TEST_F(WriteTest, KVItemDelete_OpenComposite_FirstOfTheNameIsReleased) {
  AppendText(note_, "Body", "text");
  AddComposite(session_, document_, "BODY", true);
  _COMPOSITE* kept = AddComposite(session_, document_, "Body2", true);
  EXPECT_EQ(KVItemDelete(document_, "Body"), KVSUCCESS);
  EXPECT_EQ(Record(document_)->complist, kept);
  EXPECT_EQ(kept->docnext, nullptr);
  AddComposite(session_, document_, "Missing", true);
  EXPECT_EQ(KVItemDelete(document_, "missing"), KVFAIL_NO_ITEM);
  EXPECT_EQ(Record(document_)->complist, kept);
}

TEST_F(WriteTest, KVItemDelete_EngineFails_StatusIsComparedWithoutAMask) {
  for (const auto& [nth, brstatus] :
       {std::pair{1u, kEngineFailureWithFlagBits}, std::pair{2u, kEngineFailure}}) {
    AppendText(note_, "Item", "text");
    Fault fault = Fault::EngineCall(nth, brstatus, "EngItemDelete");
    EXPECT_EQ(KVItemDelete(document_, "Item"), kEngineFailure);
    ExpectClean();
  }
  AppendText(note_, "Item", "text");
  Fault fault = Fault::EngineCall(2, 0x4222, "EngItemDelete");
  EXPECT_EQ(KVItemDelete(document_, "Item"), 0x222u);
  ExpectClean();
}

// ---- Documents of an index, threads

TEST_F(WriteTest, EachWrite_IndexDocument_WorksByItsHandle) {
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), Record(document_)->docid, 0, &note), 0);
  IndexDocument loaded(session_, Base(), note, Record(document_)->docid);
  PutText(loaded.handle(), "Item", "text");
  EXPECT_EQ(KVItemAppendTextList(loaded.handle(), "List", "one", 0, 0), KVSUCCESS);
  EXPECT_EQ(KVItemCopy(loaded.handle(), "Item", document_), KVSUCCESS);
  EXPECT_EQ(KVItemCopy(document_, "Item", loaded.handle()), KVSUCCESS);
  EXPECT_EQ(KVItemDelete(loaded.handle(), "Item"), KVSUCCESS);
  EXPECT_EQ(OnlyItem("Item").bytes, "text");
  EXPECT_EQ(KVItemDelete(loaded.index(), "List"), KVFAIL_BAD_DOCUMENT);
}

TEST_F(WriteTest, EachWrite_HandleOfAnotherThread_BadHandle) {
  kit::InSession([&] {
    EXPECT_EQ(KVItemPut(document_, nullptr, 0, 0, KVTYPE_TEXT, "x", 0), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVItemAppendTextList(document_, nullptr, "x", 0, 1), KVFAIL_BAD_HANDLE);
    EXPECT_EQ(KVItemDelete(document_, nullptr), KVFAIL_BAD_HANDLE);
  });
  ExpectClean();
}

// ---- Bound documents: the form is a record of the test's own, without fields

TEST_F(WriteTest, EachWrite_BoundDocument_NamesThatAreNoFieldAreRefused) {
  _FORMSPEC form{};
  const uint32_t other = New();
  Record(document_)->form = &form;
  EXPECT_EQ(Put("Item", 0, "text", KVTYPE_TEXT), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemAppendTextList(document_, "Item", "text", 0, 1), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemDelete(document_, "Subject"), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemCopy(document_, "Subject", other), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemCopy(other, "Subject", document_), KVFAIL_NO_FIELD);
  ExpectClean();
  Record(document_)->form = nullptr;
  EXPECT_EQ(Put("Item", 0, "text", KVTYPE_TEXT), KVSUCCESS);
}

}  // namespace
