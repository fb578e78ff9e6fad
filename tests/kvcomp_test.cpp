// Composite handles: create, open, close, properties, copies, merges.
#include "kvcomp_world.h"

namespace {

using kit::Spy;
using kvcomp::Joined;
using kvcomp::PabRef;
using kvcomp::Padded;
using kvcomp::Paragraph;
using kvcomp::ShortRecord;
using kvcomp::TextRecord;
using kvdoc::kUntouched;
using kvdoc::Record;

using Strings = std::vector<std::string>;

class HandleTest : public kvcomp::CompositeTest {
 protected:
  static int32_t DirtyOf(uint32_t composite) {
    int32_t dirty = -1;
    EXPECT_EQ(KVCompositeGetProperty(composite, KVPROP_COMPOSITE_DIRTY, &dirty), KVSUCCESS);
    return dirty;
  }
  const Strings four_ = {TextRecord("one"), Paragraph(), TextRecord("three"), PabRef(4)};
};

// ---- Create

TEST_F(HandleTest, KVCompositeCreate_Named_ReplacesItemsAndMarksDocument) {
  AppendItem(four_);
  AppendItem(four_, "Other");
  Record(document_)->dirty = 0;
  uint32_t composite = 0;
  ASSERT_EQ(KVCompositeCreate(document_, "body", &composite), KVSUCCESS);
  EXPECT_NE(composite, 0u);
  EXPECT_EQ(Items(), Strings{});
  EXPECT_EQ(Items("Other").size(), 1u);
  EXPECT_EQ(Record(document_)->dirty, 1);
  EXPECT_EQ(DirtyOf(composite), 1);
  EXPECT_EQ(KVCDRecordGetCount(composite), 0u);
  EXPECT_EQ(CompOf(composite)->nodelist, nullptr);
}

TEST_F(HandleTest, KVCompositeCreate_OpenCompositeOfThatName_OtherHandleDies) {
  AppendItem(four_);
  const uint32_t open = OpenBody();
  const uint32_t unnamed = Create();
  const uint32_t made = Create("BODY");
  EXPECT_EQ(KVCompositeClose(open, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(InsertText(open, "x"), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeClose(unnamed, 0), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(made, 0), KVSUCCESS);
}

TEST_F(HandleTest, KVCompositeCreate_EmptyName_IsUnnamedAndNeverStored) {
  AppendItem(four_);
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    const uint32_t composite = Create(name);
    ASSERT_EQ(InsertText(composite, "text"), KVSUCCESS);
    char stored_name[65] = "x";
    EXPECT_EQ(KVCompositeGetProperty(composite, KVPROP_COMPOSITE_ITEMNAME, stored_name), KVSUCCESS);
    EXPECT_STREQ(stored_name, "");
    Spy spy;
    EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngItemAppend"), 0u);
    EXPECT_EQ(spy.Count("EngItemDeleteByBlock"), 0u);
  }
  EXPECT_EQ(Items().size(), 1u);
}

TEST_F(HandleTest, KVCompositeCreate_BadArguments_StatusesInOrder) {
  uint32_t composite = kUntouched;
  EXPECT_EQ(KVCompositeCreate(database_, "Body", nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeCreate(database_, "Body", &composite), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(composite, 0u);
  ExpectError(KVFAIL_BAD_DOCUMENT);
}

// ---- Open

TEST_F(HandleTest, KVCompositeOpen_Items_OneNodeEachNothingRead) {
  AppendItem(four_);
  AppendText(note_, "Body", "no composite");
  AppendItem({});
  AppendItem({Paragraph()});
  uint32_t composite = 0;
  Spy spy;
  ASSERT_EQ(KVCompositeOpen(document_, "Body", &composite), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngOdsRead"), 0u);
  EXPECT_EQ(spy.Count("EngMemLock"), 1u);  // the first value, while the items are walked
  ASSERT_EQ(NodeCount(composite), 2u);
  const _COMPNODE* node = CompOf(composite)->nodelist;
  EXPECT_EQ(node->value_offset, 2u);
  EXPECT_EQ(node->value_len, Joined(four_).size());
  EXPECT_EQ(node->field_count, kCompNotCounted);
  EXPECT_EQ(node->alloc, 0);
  EXPECT_EQ(DirtyOf(composite), 0);
  EXPECT_EQ(CompOf(composite)->format, nullptr);
  EXPECT_EQ(KVCDRecordGetCount(composite), 5u);
}

TEST_F(HandleTest, KVCompositeOpen_TenMegabytes_ReadsNoRecord) {
  const Strings records(600, TextRecord(std::string(90, 't')));
  for (int i = 0; i < 175; ++i) AppendItem(records);
  uint32_t composite = 0;
  {
    Spy spy;
    ASSERT_EQ(KVCompositeOpen(document_, "Body", &composite), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngOdsRead"), 0u);
    EXPECT_EQ(spy.Count("EngMemLock"), 1u);
    EXPECT_EQ(spy.Count("EngItemInfoNext"), 175u);
  }
  EXPECT_EQ(NodeCount(composite), 175u);
  EXPECT_EQ(KVCDRecordGetCount(composite), 175u * 600u);
  Spy spy;
  EXPECT_EQ(KVCDRecordGetCount(composite), 175u * 600u);  // counted once
  EXPECT_EQ(spy.calls().size(), 0u);
}

TEST_F(HandleTest, KVCompositeOpen_BadArguments_StatusesInOrder) {
  AppendItem(four_);
  AppendText(note_, "Text", "text");
  uint32_t composite = kUntouched;
  EXPECT_EQ(KVCompositeOpen(document_, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeOpen(database_, nullptr, &composite), KVFAIL_NULL_PARAM);
  EXPECT_EQ(composite, 0u);
  EXPECT_EQ(KVCompositeOpen(document_, "", &composite), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeOpen(database_, "Body", &composite), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVCompositeOpen(document_, "None", &composite), KVFAIL_NO_ITEM);
  EXPECT_EQ(KVCompositeOpen(document_, "Text", &composite), KVFAIL_NO_ITEM);
  EXPECT_EQ(composite, 0u);
}

TEST_F(HandleTest, KVCompositeOpen_ThreadSession_OnlyCreatedHandlesAreFoundAgain) {
  kit::InSession([&] {
    const uint32_t database = OpenDatabase(path_);
    uint32_t document = 0, created = 0, opened = 0, copied = 0, count = 0;
    ASSERT_EQ(KVDocumentCreate(database, 0, &document), KVSUCCESS);
    ASSERT_EQ(KVCompositeCreate(document, "Body", &created), KVSUCCESS);
    ASSERT_EQ(InsertText(created, "text"), KVSUCCESS);
    EXPECT_EQ(KVCDRecordGetCount(created), 1u);
    EXPECT_EQ(created >> kHandleNumberBits, KVICurrentSession()->tidKV);
    ASSERT_EQ(KVCompositeCopy(created, document, "Copy", &copied), KVSUCCESS);
    EXPECT_EQ(copied >> kHandleNumberBits, 0u);
    EXPECT_EQ(KVCompositeClose(copied, 0), KVFAIL_BAD_HANDLE);
    ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
    ASSERT_EQ(KVCompositeOpen(document, "Body", &opened), KVSUCCESS);
    EXPECT_EQ(opened >> kHandleNumberBits, KVICurrentSession()->tidKV);
    count = KVCDRecordGetCount(opened);
    EXPECT_EQ(count, 0u);
    ExpectError(KVFAIL_BAD_COMPOSITE);
    EXPECT_EQ(KVCompositeClose(created, 0), KVSUCCESS);
    EXPECT_EQ(KVDatabaseClose(database, 0), KVSUCCESS);
  });
}

// ---- Close

TEST_F(HandleTest, KVCompositeClose_NotDirty_TouchesNoItem) {
  AppendItem(four_);
  const uint32_t composite = OpenBody();
  Spy spy;
  EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(spy.calls().size(), 0u);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(Record(document_)->complist, nullptr);
}

TEST_F(HandleTest, KVCompositeClose_Discard_DropsChanges) {
  AppendItem(four_);
  const uint32_t composite = OpenBody();
  ASSERT_EQ(InsertText(composite, "more"), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(composite, KVCOMPWRITE_DISCARD | 0x10), KVSUCCESS);
  EXPECT_EQ(Items(), Strings{Joined(four_)});
}

TEST_F(HandleTest, KVCompositeClose_EmptyDirty_ItemVanishes) {
  AppendItem(four_);
  const uint32_t composite = OpenBody();
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 4), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(Items(), Strings{});
}

TEST_F(HandleTest, KVCompositeClose_WriteFails_StaysOpenAndCanBeClosedAgain) {
  AppendItem(four_);
  const uint32_t composite = OpenBody();
  ASSERT_EQ(InsertText(composite, "more"), KVSUCCESS);
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kvdoc::kEngineFailureWithFlagBits, "EngItemAppend");
    EXPECT_EQ(KVCompositeClose(composite, 0), kvdoc::kEngineFailure);
  }
  ExpectError(kvdoc::kEngineFailure);
  EXPECT_EQ(Items(), Strings{Joined(four_)});
  EXPECT_EQ(DirtyOf(composite), 1);
  EXPECT_EQ(KVCDRecordGetCount(composite), 5u);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  Strings five = four_;
  five.push_back(TextRecord("more"));
  EXPECT_EQ(Items(), Strings{Joined(five)});
}

TEST_F(HandleTest, KVCompositeClose_LaterHotspotWithOldEnd_EndIsPaired) {
  const std::string old_end = ShortRecord(kCdHotspotEnd, ""), new_end = ShortRecord(kCdHotspotEndLater, "");
  const std::string begin = kvcomp::WordRecord(kCdHotspotBeginLater, std::string(8, '\0'));
  const std::string old_begin = kvcomp::WordRecord(kCdHotspotBegin, std::string(8, '\0'));
  const uint32_t composite = Create("Body");
  for (const std::string& record : {old_begin, old_end, begin, TextRecord("t"), old_end, old_end})
    ASSERT_EQ(InsertRaw(composite, record), KVSUCCESS);
  ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(Items(), Strings{Joined({old_begin, old_end, begin, TextRecord("t"), new_end, old_end})});
}

TEST_F(HandleTest, KVDocumentClose_OpenComposites_AreStoredAndGone) {
  const uint32_t composite = Create("Body");
  const uint32_t unnamed = Create();
  ASSERT_EQ(InsertText(composite, "text"), KVSUCCESS);
  ASSERT_EQ(InsertText(unnamed, "text"), KVSUCCESS);
  ASSERT_EQ(KVDocumentSave(document_, 0), KVSUCCESS);
  const uint32_t docid = Record(document_)->docid;
  EXPECT_EQ(DirtyOf(composite), 0);
  EXPECT_EQ(Records(composite), Strings{TextRecord("text")});  // it looks at what was stored now
  ASSERT_EQ(InsertText(composite, "more"), KVSUCCESS);
  ASSERT_EQ(KVDocumentClose(document_, 0), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeClose(unnamed, 0), KVFAIL_BAD_COMPOSITE);
  const auto stored = StoredItems(docid, "Body");
  ASSERT_EQ(stored.size(), 1u);
  EXPECT_EQ(stored[0].bytes, Joined({TextRecord("text"), TextRecord("more")}));
}

TEST_F(HandleTest, KVDatabaseClose_OpenComposites_AreFreed) {
  const uint32_t composite = Create("Body");
  ASSERT_EQ(InsertText(composite, "text"), KVSUCCESS);
  ASSERT_EQ(List(composite, KVLIST_FIRST, nullptr), KVSUCCESS);
  ASSERT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_BAD_COMPOSITE);
}

// ---- Properties

TEST_F(HandleTest, KVCompositeGetProperty_Each_Told) {
  const std::string name(80, 'n');
  const uint32_t composite = Create(name.c_str());
  uint32_t document = 0, database = 0;
  EXPECT_EQ(KVCompositeGetProperty(composite, KVPROP_COMPOSITE_DOCUMENT, &document), KVSUCCESS);
  EXPECT_EQ(KVCompositeGetProperty(composite, KVPROP_COMPOSITE_DATABASE, &database), KVSUCCESS);
  EXPECT_EQ(document, document_);
  EXPECT_EQ(database, database_);
  char text[66];
  for (const auto& [version, length] : {std::pair{0x20305u, 33u}, {0x20306u, 64u}, {0x40106u, 64u}}) {
    std::memset(text, 'x', sizeof text);
    session_->kvprog_version = version;
    EXPECT_EQ(KVCompositeGetProperty(composite, KVPROP_COMPOSITE_ITEMNAME, text), KVSUCCESS);
    EXPECT_EQ(std::string(text), std::string(length, 'n'));
    EXPECT_EQ(text[length + 1], 'x');
  }
  for (const int32_t property : {0, 5, -1})
    EXPECT_EQ(KVCompositeGetProperty(composite, property, text), KVFAIL_BAD_PROPERTY);
  EXPECT_EQ(KVCompositeGetProperty(document_, 9, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeGetProperty(document_, 9, text), KVFAIL_BAD_COMPOSITE);
}

// ---- Copies

TEST_F(HandleTest, KVCompositeCopy_UnsavedChanges_CopiesContentNotItem) {
  AppendItem(four_);
  const uint32_t source = OpenBody();
  ASSERT_EQ(InsertText(source, "new", 2), KVSUCCESS);
  const Strings content = Records(source);
  const uint32_t other = New();
  Record(other)->dirty = 0;
  uint32_t copy = 0;
  ASSERT_EQ(KVCompositeCopy(source, other, "Copy", &copy), KVSUCCESS);
  EXPECT_EQ(Record(other)->dirty, 1);
  EXPECT_EQ(DirtyOf(copy), 1);
  EXPECT_EQ(KVCompositeClose(source, KVCOMPWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(Records(copy), content);
  EXPECT_EQ(KVCompositeClose(copy, 0), KVSUCCESS);
  const auto items = kvdoc::ItemsOf(NoteOf(other), "Copy");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].bytes, Joined(content));
}

TEST_F(HandleTest, KVCompositeCopy_OntoItsOwnName_SourceDiesCopyHoldsContent) {
  AppendItem(four_);
  const uint32_t source = OpenBody();
  uint32_t copy = 0;
  ASSERT_EQ(KVCompositeCopy(source, document_, "Body", &copy), KVSUCCESS);
  EXPECT_EQ(KVCompositeClose(source, 0), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(Items(), Strings{});
  EXPECT_EQ(Records(copy), four_);
}

TEST_F(HandleTest, KVCompositeCopy_BadArguments_StatusesInOrder) {
  const uint32_t source = Create();
  uint32_t copy = kUntouched;
  EXPECT_EQ(KVCompositeCopy(document_, database_, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeCopy(document_, database_, nullptr, &copy), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(copy, 0u);
  EXPECT_EQ(KVCompositeCopy(source, database_, nullptr, &copy), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVCompositeCopySubset(document_, 0, 0, database_, nullptr, nullptr), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVCompositeCopySubset(document_, 0, 0, database_, nullptr, &copy), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeCopySubset(source, 0, 0, database_, nullptr, &copy), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(KVCompositeCopySubset(source, 1, 0, document_, nullptr, &copy), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(InsertText(source, "t"), KVSUCCESS);
  EXPECT_EQ(KVCompositeCopySubset(source, 0, 1, document_, nullptr, &copy), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(HandleTest, KVCompositeCopySubset_EachRange_TheRecordsOfTheRange) {
  Strings all;
  for (int item = 0; item < 3; ++item) {
    Strings records;
    for (int i = 0; i < 3; ++i)
      records.push_back(TextRecord(std::string(static_cast<size_t>(item * 3 + i), 't')));
    AppendItem(records);
    all.insert(all.end(), records.begin(), records.end());
  }
  const uint32_t source = OpenBody();
  for (uint32_t first = 1; first <= 9; ++first)
    for (uint32_t count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 0xffffffffu}) {
      uint32_t copy = 0;
      ASSERT_EQ(KVCompositeCopySubset(source, first, count, document_, nullptr, &copy), KVSUCCESS);
      const size_t end = std::min<uint64_t>(9, uint64_t{first} - 1 + count);
      EXPECT_EQ(Records(copy), Strings(all.begin() + first - 1, all.begin() + static_cast<ptrdiff_t>(end)))
          << first << " " << count;
      EXPECT_EQ(KVCompositeClose(copy, 0), KVSUCCESS);
    }
  EXPECT_EQ(DirtyOf(source), 0);
}

// ---- Merging

TEST_F(HandleTest, KVCompositeMerge_EachPlace_RecordsInOrderAddedOneIntact) {
  const Strings added = {TextRecord("a"), TextRecord("bb")};
  AppendItem(added, "Add");
  for (uint32_t place = 0; place <= 5; ++place) {
    while (EngItemDelete(note_, "Body", 4) == 0) {
    }
    AppendItem({four_[0], four_[1]});
    AppendItem({four_[2], four_[3]});
    const uint32_t main = OpenBody(), add = OpenBody("Add");
    Record(document_)->dirty = 0;
    ASSERT_EQ(KVCompositeMerge(main, place, add), KVSUCCESS);
    EXPECT_EQ(Record(document_)->dirty, 1);
    EXPECT_EQ(DirtyOf(main), 1);
    EXPECT_EQ(DirtyOf(add), 0);
    Strings expected = four_;
    expected.insert(place == 0 ? expected.end() : expected.begin() + place - 1, added.begin(), added.end());
    for (uint32_t index = 6; index >= 1; --index) EXPECT_EQ(RecordAt(main, index), expected[index - 1]);
    EXPECT_EQ(Records(main), expected) << place;
    EXPECT_EQ(Records(add), added);
    EXPECT_EQ(KVCompositeClose(add, 0), KVSUCCESS);
    EXPECT_EQ(Records(main), expected) << place;
    EXPECT_EQ(KVCompositeClose(main, KVCOMPWRITE_DISCARD), KVSUCCESS);
  }
}

TEST_F(HandleTest, KVCompositeMerge_BadArguments_Statuses) {
  const uint32_t main = Create(), add = Create();
  EXPECT_EQ(KVCompositeMerge(document_, 0, document_), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeMerge(main, 0, document_), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeMerge(document_, 0, add), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCompositeMerge(main, 0, main), KVFAIL_NAME_IN_USE);
  CompOf(main)->dirty = 0;
  EXPECT_EQ(KVCompositeMerge(main, 99, add), KVSUCCESS);  // nothing to add
  EXPECT_EQ(DirtyOf(main), 0);
  ASSERT_EQ(InsertText(add, "t"), KVSUCCESS);
  EXPECT_EQ(KVCompositeMerge(main, 2, add), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(DirtyOf(main), 0);
  EXPECT_EQ(KVCompositeMerge(main, 1, add), KVSUCCESS);
  EXPECT_EQ(Records(main), Strings{TextRecord("t")});
}

// The listing goes on by the records of the node before the place and of the inserted nodes; by none at the
// head.
TEST_F(HandleTest, KVCompositeMerge_WhileListing_NumberGoesOnByTheNodesFromBeforeThePlace) {
  struct Case {
    uint32_t listed, place, expected;
  };
  for (const Case& each : {Case{3, 2, 3 + 1 + 2}, Case{2, 2, 2 + 1 + 2}, Case{1, 2, 1}, Case{1, 1, 1},
                           Case{3, 3, 3 + 2 + 2}, Case{2, 0, 2 + 4 + 2}}) {
    const uint32_t main = Create(), add = Create();
    for (const std::string& record : four_) ASSERT_EQ(InsertRaw(main, record), KVSUCCESS);
    for (const char* text : {"a", "b"}) ASSERT_EQ(InsertText(add, text), KVSUCCESS);
    uint32_t listed = 0;
    for (uint32_t i = 0; i < each.listed; ++i)
      ASSERT_EQ(List(main, i == 0 ? KVLIST_FIRST : KVLIST_NEXT, &listed), KVSUCCESS);
    ASSERT_EQ(listed, each.listed);
    ASSERT_EQ(KVCompositeMerge(main, each.place, add), KVSUCCESS);
    EXPECT_EQ(CompOf(main)->current_index, each.expected) << each.listed << " " << each.place;
    EXPECT_EQ(List(main, KVLIST_CURRENT, &listed), each.expected <= 6 ? KVSUCCESS : KVFAIL_DATA_UNAVAILABLE);
  }
}

// A number that a merge has moved past the end still goes on by one for each record inserted before it.
TEST_F(HandleTest, KVCDRecordInsert_AtTheEndByNumber_MovesAListingBeyondIt) {
  const uint32_t main = Create(), add = Create();
  for (const std::string& record : four_) ASSERT_EQ(InsertRaw(main, record), KVSUCCESS);
  ASSERT_EQ(InsertText(add, "a"), KVSUCCESS);
  ASSERT_EQ(List(main, KVLIST_FIRST, nullptr), KVSUCCESS);
  ASSERT_EQ(List(main, KVLIST_NEXT, nullptr), KVSUCCESS);
  ASSERT_EQ(KVCompositeMerge(main, 0, add), KVSUCCESS);
  ASSERT_EQ(CompOf(main)->current_index, 2u + 4 + 1);
  ASSERT_EQ(InsertText(main, "b", 6), KVSUCCESS);
  EXPECT_EQ(CompOf(main)->current_index, 8u);
  ASSERT_EQ(InsertText(main, "c"), KVSUCCESS);  // at no number
  EXPECT_EQ(CompOf(main)->current_index, 8u);
  ASSERT_EQ(InsertText(main, "d", 8), KVSUCCESS);
  EXPECT_EQ(CompOf(main)->current_index, 9u);
  Strings expected = four_;
  for (const char* text : {"a", "b", "c", "d"}) expected.push_back(TextRecord(text));
  EXPECT_EQ(Records(main), expected);
  uint32_t listed = 0;
  EXPECT_EQ(List(main, KVLIST_NEXT, &listed), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(HandleTest, KVCompositeMerge_ParagraphStyles_NumbersAboveAllButTheFirstRecord) {
  const uint32_t main = Create(), add = Create();
  for (const uint32_t pabid : {90u, 7u, 3u}) ASSERT_EQ(InsertRaw(main, PabRef(pabid)), KVSUCCESS);
  for (const uint32_t pabid : {1u, 2u}) ASSERT_EQ(InsertRaw(add, PabRef(pabid)), KVSUCCESS);
  ASSERT_EQ(KVCompositeMerge(main, 2, add), KVSUCCESS);
  EXPECT_EQ(Records(main), (Strings{PabRef(90), PabRef(8), PabRef(9), PabRef(7), PabRef(3)}));
  ASSERT_EQ(KVCompositeMerge(main, 0, add), KVSUCCESS);
  EXPECT_EQ(Records(main),
            (Strings{PabRef(90), PabRef(8), PabRef(9), PabRef(7), PabRef(3), PabRef(10), PabRef(11)}));
  EXPECT_EQ(Records(add), (Strings{PabRef(1), PabRef(2)}));
}

// A refused allocation at any step leaves both composites as they were.
TEST_F(HandleTest, KVCompositeMerge_EachAllocationFails_NothingChanged) {
  AppendItem(four_);
  AppendItem(four_);
  const uint32_t add = Create();
  for (int i = 0; i < 3; ++i) ASSERT_EQ(InsertText(add, std::string(1100, 'x')), KVSUCCESS);
  for (uint32_t nth = 1;; ++nth) {
    const uint32_t main = OpenBody();
    ASSERT_LT(nth, 50u);
    kit::Fault fault = kit::Fault::Allocation(nth);
    const uint32_t status = KVCompositeMerge(main, 3, add);
    fault.Disarm();
    const uint32_t count = KVCDRecordGetCount(main);
    EXPECT_EQ(KVCompositeClose(main, KVCOMPWRITE_DISCARD), KVSUCCESS);
    if (!fault.Hit()) break;
    EXPECT_EQ(status, KVFAIL_NO_MEMORY) << nth;
    EXPECT_EQ(count, 8u) << nth;
  }
}

}  // namespace
