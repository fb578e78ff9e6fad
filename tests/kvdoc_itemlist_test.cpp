// The item table and the count of items.
#include <array>

#include "kvdoc_world.h"

namespace {

using kit::Fault;
using kit::Spy;
using kvdoc::IndexDocument;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::NumberBytes;
using kvdoc::Record;
using kvdoc::TextList;

class ItemListTest : public kvdoc::DocumentTest {
 protected:
  void SetUp() override {
    DocumentTest::SetUp();
    document_ = New();
    note_ = NoteOf(document_);
  }
  void AppendNumbered(int count) {
    for (int i = 0; i < count; ++i) AppendText(note_, "Item" + std::to_string(i), std::to_string(i));
  }
  uint32_t List(int32_t list, int32_t get_pointer = 0) {
    memset(static_cast<void*>(&item_), '#', sizeof item_);
    return KVItemList(document_, list, get_pointer, &item_);
  }
  std::string Name() const { return item_.name; }
  void ExpectZeroed() const {
    const KVITEM zero{};
    EXPECT_EQ(memcmp(&item_, &zero, sizeof zero), 0);
  }
  std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (uint32_t status = List(KVLIST_REFRESH); status == KVSUCCESS && item_.name[0] != 0;
         status = List(KVLIST_NEXT))
      names.emplace_back(item_.name);
    return names;
  }

  uint32_t document_ = 0;
  EngNote note_ = 0;
  KVITEM item_{};
};

// ---- Count

TEST_F(ItemListTest, KVItemGetCount_UnknownDocument_ZeroAndRecorded) {
  EXPECT_EQ(KVItemGetCount(database_), 0u);
  ExpectError(KVFAIL_BAD_DOCUMENT);
  kit::InSession([&] {
    EXPECT_EQ(KVItemGetCount(document_), 0u);
    EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  });
}

TEST_F(ItemListTest, KVItemGetCount_EachKindOfItem_CountedOrNot) {
  EXPECT_EQ(KVItemGetCount(document_), 0u);
  AppendText(note_, "Text", "");
  AppendText(note_, "Text", "again");
  Append(note_, {"Number", BRTYPE_NUMBER, 0, NumberBytes(1)});
  Append(note_, {"User", BRTYPE_USER, 0, "12345678"});
  Append(note_, {"Formula", BRTYPE_FORMULA, 0, std::string("\x02\0", 2)});
  AppendText(note_, "$FILES", "seen");
  EXPECT_EQ(KVItemGetCount(document_), 6u);
  AppendText(note_, "$FILE", "hidden");
  AppendText(note_, "$file", "hidden");
  AppendText(note_, "$Ref", "hidden");
  Append(note_, {"Odd", 0x502, 0, "no public type"});
  Append(note_, {"Object", BRTYPE_OBJECT, 0, "no public type"});
  EXPECT_EQ(KVItemGetCount(document_), 6u);
  ExpectError(KVSUCCESS);
}

TEST_F(ItemListTest, KVItemGetCount_CompositeSegments_OneForEachRunOfAName) {
  const auto append = [&](const std::string& name) { Append(note_, {name, BRTYPE_COMPOSITE, 0, "segment"}); };
  append("Body");
  append("BODY");
  append("Body");
  EXPECT_EQ(KVItemGetCount(document_), 1u);
  append("Other");
  EXPECT_EQ(KVItemGetCount(document_), 2u);
  append("Body");
  EXPECT_EQ(KVItemGetCount(document_), 3u);
  AppendText(note_, "Text", "between");
  append("Body");  // the name is remembered over other items
  EXPECT_EQ(KVItemGetCount(document_), 4u);
}

TEST_F(ItemListTest, KVItemGetCount_LongCompositeNames_ComparedByTheir65FirstCharacters) {
  const std::string same(65, 'n');
  Append(note_, {same + "one", BRTYPE_COMPOSITE, 0, "segment"});
  Append(note_, {same + "two", BRTYPE_COMPOSITE, 0, "segment"});
  EXPECT_EQ(KVItemGetCount(document_), 1u);
  Append(note_, {std::string(64, 'n') + "m", BRTYPE_COMPOSITE, 0, "segment"});
  EXPECT_EQ(KVItemGetCount(document_), 2u);
}

TEST_F(ItemListTest, KVItemGetCount_ScanFails_ZeroAndNotRecorded) {
  AppendNumbered(3);
  Fault fault = Fault::EngineCall(1, kEngineFailure, "EngItemScan");
  EXPECT_EQ(KVItemGetCount(document_), 0u);
  ExpectError(KVSUCCESS);
}

TEST_F(ItemListTest, KVItemGetCount_BoundDocument_FieldsOfTheFormAlone) {
  AppendNumbered(3);
  _FORMSPEC form{};
  Record(document_)->form = &form;
  EXPECT_EQ(KVItemGetCount(document_), 0u);
  Record(document_)->form = nullptr;
  EXPECT_EQ(KVItemGetCount(document_), 3u);
}

// ---- List

TEST_F(ItemListTest, KVItemList_BadArguments_InOrderAndRecordZeroed) {
  EXPECT_EQ(KVItemList(database_, KVLIST_FIRST, 0, nullptr), KVFAIL_NULL_PARAM);
  memset(static_cast<void*>(&item_), '#', sizeof item_);
  EXPECT_EQ(KVItemList(database_, 99, 0, &item_), KVFAIL_BAD_DOCUMENT);
  ExpectZeroed();
  AppendNumbered(1);
  for (const int32_t list : {0, 7, -1, 1000}) {
    EXPECT_EQ(List(list), KVFAIL_BAD_ENUM) << list;
    ExpectZeroed();
    ExpectError(KVFAIL_BAD_ENUM);
  }
}

TEST_F(ItemListTest, KVItemList_EachItem_TypeFlagsLengthInStoredOrder) {
  AppendText(note_, "Text", "text");
  Append(note_, {"Number", BRTYPE_NUMBER, 0x404, NumberBytes(1)});
  AppendText(note_, "$File", "hidden");
  Append(note_, {"User", BRTYPE_USER, 1, "12345678user"});
  Append(note_, {"Odd", 0x502, 2, "no public type"});
  AppendText(note_, "$REF", "hidden");
  AppendText(note_, "Text", "again!");
  const struct {
    const char* name;
    int32_t type;
    uint32_t flags, length;
  } rows[] = {{"Text", KVTYPE_TEXT, 4, 4},
              {"Number", KVTYPE_NUMBER, 0x404, 8},
              {"User", KVTYPE_TEXT, 1, 12},
              {"Odd", KVTYPE_NONE, 2, 14},
              {"Text", KVTYPE_TEXT, 4, 6}};
  int32_t list = KVLIST_NEXT;  // a fresh cursor stands before the first entry
  for (const auto& row : rows) {
    ASSERT_EQ(List(list), KVSUCCESS) << row.name;
    EXPECT_EQ(Name(), row.name);
    EXPECT_EQ(KVILoad<int32_t>(&item_.type), row.type);
    EXPECT_EQ(KVILoad<uint32_t>(&item_.item_flags), row.flags);
    EXPECT_EQ(KVILoad<uint32_t>(&item_.length), row.length);
    EXPECT_EQ(KVILoad<void*>(&item_.value), nullptr);
  }
  EXPECT_EQ(List(list), KVFAIL_END_OF_DATA);
  ExpectZeroed();
}

TEST_F(ItemListTest, KVItemList_EachDirection_EntryAndCursor) {
  AppendNumbered(4);
  const struct {
    int32_t list;
    const char* name;  // null: the status below
    uint32_t status;
  } steps[] = {
      {KVLIST_CURRENT, nullptr, KVFAIL_DATA_UNAVAILABLE},
      {KVLIST_PREVIOUS, nullptr, KVFAIL_END_OF_DATA},
      {KVLIST_FIRST, "Item0", 0},
      {KVLIST_CURRENT, "Item0", 0},
      {KVLIST_PREVIOUS, nullptr, KVFAIL_END_OF_DATA},
      {KVLIST_NEXT, "Item1", 0},
      {KVLIST_NEXT, "Item2", 0},
      {KVLIST_PREVIOUS, "Item1", 0},
      {KVLIST_LAST, "Item3", 0},
      {KVLIST_NEXT, nullptr, KVFAIL_END_OF_DATA},
      {KVLIST_CURRENT, "Item3", 0},
      {7, nullptr, KVFAIL_BAD_ENUM},
      {KVLIST_CURRENT, "Item3", 0},
      {KVLIST_PREVIOUS, "Item2", 0},
      {KVLIST_REFRESH, "Item0", 0},
      {KVLIST_NEXT, "Item1", 0},
  };
  for (const auto& step : steps) {
    EXPECT_EQ(List(step.list), step.status) << step.list;
    if (step.name != nullptr) {
      EXPECT_EQ(Name(), step.name);
    } else {
      ExpectZeroed();
      ExpectError(step.status);
    }
  }
}

TEST_F(ItemListTest, KVItemList_ChangedDocument_TableIsASnapshotUntilRefresh) {
  AppendNumbered(2);
  EXPECT_EQ(List(KVLIST_FIRST), KVSUCCESS);
  AppendText(note_, "New", "item");
  ASSERT_EQ(KVItemDelete(document_, "Item0"), KVSUCCESS);
  EXPECT_EQ(List(KVLIST_FIRST), KVSUCCESS);
  EXPECT_EQ(Name(), "Item0");
  EXPECT_EQ(List(KVLIST_LAST), KVSUCCESS);
  EXPECT_EQ(Name(), "Item1");
  EXPECT_EQ(Names(), (std::vector<std::string>{"Item1", "New"}));
  ASSERT_EQ(KVItemDelete(document_, "Item1"), KVSUCCESS);
  ASSERT_EQ(KVItemDelete(document_, "New"), KVSUCCESS);
  EXPECT_EQ(List(KVLIST_REFRESH), KVSUCCESS);
  ExpectZeroed();
}

TEST_F(ItemListTest, KVItemList_NoVisibleItem_ZeroedEntryThenNothing) {
  AppendText(note_, "$FILE", "hidden");
  EXPECT_EQ(List(KVLIST_LAST), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_NEXT), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_PREVIOUS), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_CURRENT), KVFAIL_DATA_UNAVAILABLE);
  for (const int32_t get_pointer : {0, 1}) {
    EXPECT_EQ(List(KVLIST_REFRESH, get_pointer), KVSUCCESS);
    ExpectZeroed();
  }
  // The cursor stands behind the end of the empty table: a new table alone goes on.
  for (int32_t list = KVLIST_FIRST; list <= KVLIST_CURRENT + 1; ++list)
    EXPECT_EQ(List(list), KVFAIL_DATA_TOO_LONG) << list;
  AppendText(note_, "Text", "text");
  EXPECT_EQ(List(KVLIST_REFRESH), KVSUCCESS);
  EXPECT_EQ(Name(), "Text");
}

TEST_F(ItemListTest, KVItemList_TableSizes_GrowsByTen) {
  for (const int count : {1, 9, 10, 11, 20, 21, 105}) {
    document_ = New();
    note_ = NoteOf(document_);
    AppendNumbered(count);
    const std::vector<std::string> names = Names();
    ASSERT_EQ(names.size(), static_cast<size_t>(count));
    EXPECT_EQ(names.back(), "Item" + std::to_string(count - 1));
    EXPECT_EQ(Record(document_)->itemlist->nCount, static_cast<uint32_t>(count));
  }
}

TEST_F(ItemListTest, KVItemList_LongNames_CutTo64Characters) {
  for (const size_t bytes : {1u, 63u, 64u, 65u, 255u}) AppendText(note_, std::string(bytes, 'n'), "text");
  size_t expected[] = {1, 63, 64, 64, 64};
  for (const size_t bytes : expected) {
    ASSERT_EQ(List(KVLIST_NEXT), KVSUCCESS);
    EXPECT_EQ(Name(), std::string(bytes, 'n'));
  }
}

TEST_F(ItemListTest, KVItemList_PointerOfALongName_TheCutNameNamesNoItem) {
  AppendText(note_, std::string(64, 'n'), "whole");
  AppendText(note_, std::string(65, 'm'), "cut");
  ASSERT_EQ(List(KVLIST_FIRST, 1), KVSUCCESS);
  EXPECT_STREQ(static_cast<const char*>(KVILoad<void*>(&item_.value)), "whole");
  EXPECT_EQ(List(KVLIST_NEXT, 1), KVFAIL_NO_ITEM);
  ExpectZeroed();
}

TEST_F(ItemListTest, KVItemList_Composites_JoinOnlyWhenNamesOfOneLengthDiffer) {
  const auto append = [&](const std::string& name, uint16_t type, size_t bytes) {
    Append(note_, {name, type, 0, std::string(bytes, 'c')});
  };
  append("Body", BRTYPE_COMPOSITE, 10);
  append("Body", BRTYPE_COMPOSITE, 20);  // the same name: an entry of its own
  append("Text", BRTYPE_COMPOSITE, 30);  // joins the entry before
  append("TEXT", BRTYPE_COMPOSITE, 1);   // joins too: that entry has the name "Body"
  append("Longer", BRTYPE_COMPOSITE, 40);
  append("Differ", BRTYPE_TEXT, 5);  // no composite
  append("Dif2er", BRTYPE_COMPOSITE, 6);
  const struct {
    const char* name;
    uint32_t length;
  } rows[] = {{"Body", 10}, {"Body", 51}, {"Longer", 40}, {"Differ", 5}, {"Dif2er", 6}};
  for (const auto& row : rows) {
    ASSERT_EQ(List(KVLIST_NEXT, 1), KVSUCCESS);
    EXPECT_EQ(Name(), row.name);
    EXPECT_EQ(KVILoad<uint32_t>(&item_.length), row.length);
    EXPECT_NE(KVILoad<void*>(&item_.value), nullptr);
  }
  EXPECT_EQ(List(KVLIST_NEXT), KVFAIL_END_OF_DATA);
}

TEST_F(ItemListTest, KVItemList_Pointers_CopiesOwnedByTheDocument) {
  AppendText(note_, "Text", "text");
  Append(note_, {"Number", BRTYPE_NUMBER, 4, NumberBytes(2.5)});
  Append(note_, {"List", BRTYPE_TEXT_LIST, 4, TextList({"a", "b"})});
  AppendText(note_, "Empty", "");
  ASSERT_EQ(List(KVLIST_FIRST, 1), KVSUCCESS);
  const auto* text = static_cast<const char*>(KVILoad<void*>(&item_.value));
  EXPECT_STREQ(text, "text");
  const _DATAFIELD* field = Record(document_)->fieldlist;
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->buffer, text);
  EXPECT_EQ(field->type, KVTYPE_TEXT);
  EXPECT_EQ(field->form_type, KVTYPE_TEXT);
  EXPECT_EQ(field->length, 4u);
  EXPECT_EQ(field->in_form, 0);
  ASSERT_EQ(List(KVLIST_NEXT, 7), KVSUCCESS);
  EXPECT_EQ(KVILoad<double>(KVILoad<void*>(&item_.value)), 2.5);
  ASSERT_EQ(List(KVLIST_NEXT, -1), KVSUCCESS);
  EXPECT_EQ(memcmp(KVILoad<void*>(&item_.value), TextList({"a", "b"}).data(), 8), 0);
  ASSERT_EQ(List(KVLIST_NEXT, 1), KVSUCCESS);
  EXPECT_STREQ(static_cast<const char*>(KVILoad<void*>(&item_.value)), "");
  EXPECT_STREQ(text, "text");
  ASSERT_EQ(List(KVLIST_CURRENT, 0), KVSUCCESS);
  EXPECT_EQ(KVILoad<void*>(&item_.value), nullptr);
}

TEST_F(ItemListTest, KVItemList_PointerOfSeveralOfOneName_ValueOfTheFirst) {
  AppendText(note_, "Text", "first");
  AppendText(note_, "Text", "second, longer");
  ASSERT_EQ(List(KVLIST_LAST, 1), KVSUCCESS);
  EXPECT_EQ(KVILoad<uint32_t>(&item_.length), 14u);
  const auto* value = static_cast<const char*>(KVILoad<void*>(&item_.value));
  EXPECT_EQ(std::string(value, 14), std::string("first") + std::string(9, '\0'));
}

TEST_F(ItemListTest, KVItemList_PointerOfAnItemThatIsGone_NoItemAndRecordZeroed) {
  AppendNumbered(2);
  ASSERT_EQ(List(KVLIST_FIRST), KVSUCCESS);
  ASSERT_EQ(KVItemDelete(document_, "Item0"), KVSUCCESS);
  EXPECT_EQ(List(KVLIST_CURRENT, 1), KVFAIL_NO_ITEM);
  ExpectZeroed();
  EXPECT_EQ(Record(document_)->fieldlist, nullptr);
  Fault fault = Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemInfo");
  EXPECT_EQ(List(KVLIST_NEXT, 1), kEngineFailure);
  ExpectZeroed();
}

TEST_F(ItemListTest, KVItemList_BoundDocument_EachDirectionPassesOverOtherItems) {
  AppendNumbered(3);
  ASSERT_EQ(List(KVLIST_LAST), KVSUCCESS);
  _FORMSPEC form{};
  Record(document_)->form = &form;
  EXPECT_EQ(List(KVLIST_CURRENT), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(List(KVLIST_REFRESH), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_FIRST), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_LAST), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_NEXT), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(KVLIST_PREVIOUS), KVFAIL_END_OF_DATA);
  ExpectZeroed();
  Record(document_)->form = nullptr;
}

TEST_F(ItemListTest, KVItemList_UnalignedRecord_IsWritten) {
  AppendText(note_, "Text", "text");
  std::array<char, sizeof(KVITEM) + 2> bytes;
  bytes.fill('#');
  auto* item = reinterpret_cast<KVITEM*>(bytes.data() + 1);
  EXPECT_EQ(KVItemList(document_, KVLIST_FIRST, 1, item), KVSUCCESS);
  EXPECT_STREQ(bytes.data() + 1 + offsetof(KVITEM, name), "Text");
  EXPECT_EQ(bytes[0], '#');
  EXPECT_EQ(bytes.back(), '#');
}

TEST_F(ItemListTest, KVItemList_IndexDocument_HasItsOwnTable) {
  AppendNumbered(2);
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), Record(document_)->docid, 0, &note), 0);
  IndexDocument loaded(session_, Base(), note, Record(document_)->docid);
  EXPECT_EQ(KVItemList(loaded.handle(), KVLIST_LAST, 1, &item_), KVSUCCESS);
  EXPECT_EQ(Name(), "Item1");
  EXPECT_EQ(Record(document_)->itemlist, nullptr);
  EXPECT_EQ(KVItemGetCount(loaded.handle()), 2u);
}

// ---- Failures

TEST_F(ItemListTest, KVItemList_ScanFails_StatusAndNoTableThenAWholeOne) {
  AppendNumbered(12);
  const struct {
    uint16_t brstatus;
    uint32_t status;
  } rows[] = {{0x107, KVFAIL_NO_MEMORY}, {kEngineFailureWithFlagBits, kEngineFailure}, {0x4107, 0x107}};
  for (const auto& row : rows) {
    Fault fault = Fault::EngineCall(1, row.brstatus, "EngItemScan");
    EXPECT_EQ(List(KVLIST_FIRST), row.status);
    EXPECT_EQ(Record(document_)->itemlist, nullptr);
    ExpectZeroed();
  }
  EXPECT_EQ(List(KVLIST_LAST), KVSUCCESS);
  for (const auto& row : rows) {
    {
      Fault fault = Fault::EngineCall(1, row.brstatus, "EngItemScan");
      EXPECT_EQ(List(KVLIST_REFRESH), row.status);
    }
    ExpectZeroed();
    EXPECT_EQ(List(KVLIST_NEXT), KVSUCCESS);
    EXPECT_EQ(Name(), "Item0");
    EXPECT_EQ(List(KVLIST_LAST), KVSUCCESS);
    EXPECT_EQ(Name(), "Item11");
  }
}

TEST_F(ItemListTest, KVItemList_NoMemory_NoTableAndNothingLost) {
  AppendNumbered(25);
  for (const int32_t list : {KVLIST_FIRST, KVLIST_REFRESH}) {
    uint32_t count = 0;
    for (uint32_t nth = 1;; ++nth) {
      Fault fault = Fault::Allocation(nth);
      const uint32_t status = List(list, 1);
      if (!fault.Hit()) break;
      ++count;
      EXPECT_EQ(status, KVFAIL_NO_MEMORY) << nth;
      ExpectZeroed();
    }
    kvdoc::PrintAllocations(list == KVLIST_FIRST ? "KVItemList, first" : "KVItemList, anew", count);
    EXPECT_GE(count, list == KVLIST_FIRST ? 5u : 6u);
  }
}

// ---- Programs below 2.3.6

class OldItemListTest : public kit::KavrinTest {
 protected:
  void SetUp() override {}
  // Name and bytes behind the record that a listing gives to a program of that version.
  static void Run(const kit::DataDirectory& directory, uint32_t version, const std::string& name,
                  size_t name_bytes) {
    ASSERT_EQ(kit::StartLibrary(directory.ini(), version), KVSUCCESS);
    const std::string path = directory.File(std::to_string(version) + ".qdb");
    ASSERT_EQ(EngDbCreate(path.c_str(), 0xff01, 0, 0, 0, 1), 0);
    uint32_t database = 0;
    uint32_t document = 0;
    ASSERT_EQ(KVDatabaseOpen(nullptr, path.c_str(), 0, &database), KVSUCCESS);
    ASSERT_EQ(KVDocumentCreate(database, 0, &document), KVSUCCESS);
    ASSERT_EQ(KVItemPut(document, name.c_str(), 0, 5, KVTYPE_TEXT, "value", 0x404), KVSUCCESS);
    const size_t item_bytes = 4 + name_bytes + 4 + 4 + sizeof(void*);
    std::vector<char> record(item_bytes + 8, '#');
    EXPECT_EQ(KVItemList(document, KVLIST_FIRST, 1, reinterpret_cast<KVITEM*>(record.data())), KVSUCCESS);
    EXPECT_EQ(KVILoad<int32_t>(record.data()), KVTYPE_TEXT);
    EXPECT_EQ(std::string(record.data() + 4), name.substr(0, name_bytes - 1));
    const char* behind = record.data() + 4 + name_bytes;
    EXPECT_EQ(KVILoad<uint32_t>(behind), 0x404u);
    EXPECT_EQ(KVILoad<uint32_t>(behind + 4), 5u);
    EXPECT_STREQ(static_cast<const char*>(KVILoad<void*>(behind + 8)), "value");
    EXPECT_EQ(std::string(record.data() + item_bytes, 8), "########");
    std::fill(record.begin(), record.end(), '#');
    EXPECT_EQ(KVItemList(document, KVLIST_NEXT, 1, reinterpret_cast<KVITEM*>(record.data())),
              KVFAIL_END_OF_DATA);
    EXPECT_EQ(std::string(record.data(), item_bytes + 8),
              std::string(item_bytes, '\0') + std::string(8, '#'));
    EXPECT_EQ(KVTerm(0), KVSUCCESS);
  }
};

TEST_F(OldItemListTest, KVItemList_EachVersion_ShapeOfTheRecord) {
  for (const size_t length : {5u, 33u, 34u, 64u}) {
    const kit::DataDirectory fresh;
    const std::string name(length, 'n');
    Run(fresh, 0x20000, name, 34);
    Run(fresh, 0x20305, name, 34);
    Run(fresh, 0x20306, name, 65);
    Run(fresh, KVAPI_VERSION, name, 65);
  }
}

// ---- The table by itself

TEST_F(ItemListTest, KVIItemList_NullArguments_NullParam) {
  _DOC_ITEMLIST* list = nullptr;
  uint32_t cursor = 0;
  KVITEM* entry = nullptr;
  EXPECT_EQ(KVIItemListCreate(nullptr, &list), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIItemListCreate(Record(document_), nullptr), KVFAIL_NULL_PARAM);
  ASSERT_EQ(KVIItemListCreate(Record(document_), &list), KVSUCCESS);
  EXPECT_EQ(KVIItemListIterate(nullptr, &cursor, KVLIST_FIRST, &entry), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIItemListIterate(list, nullptr, KVLIST_FIRST, &entry), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVIItemListIterate(list, &cursor, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  cursor = 1;
  EXPECT_EQ(KVIItemListIterate(list, &cursor, KVLIST_NEXT, &entry), KVFAIL_DATA_TOO_LONG);
  KVIItemListDestroy(&list);
  EXPECT_EQ(list, nullptr);
  KVIItemListDestroy(&list);
  KVIItemListDestroy(nullptr);
}

}  // namespace
