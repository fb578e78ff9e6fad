// Heads of records, walks over flat runs and items, counting, listing.
#include "kvcomp_world.h"

namespace {

using kit::Spy;
using kvcomp::Joined;
using kvcomp::Long;
using kvcomp::LongRecord;
using kvcomp::PabRef;
using kvcomp::Padded;
using kvcomp::Paragraph;
using kvcomp::ShortRecord;
using kvcomp::TextRecord;
using kvcomp::Word;
using kvcomp::WordRecord;

using Strings = std::vector<std::string>;

class WalkTest : public kvcomp::CompositeTest {
 protected:
  static Strings WalkRun(const std::string& run, bool* is_damaged) {
    Strings records;
    CDRUN walk{run.data(), run.size()};
    while (KVICDNextRecord(&walk)) records.emplace_back(walk.record, walk.header.length);
    *is_damaged = walk.is_damaged;
    return records;
  }
};

TEST_F(WalkTest, KVICDReadHeader_EachForm_LengthSignatureAndStep) {
  struct Case {
    std::string record;
    uint16_t signature, header_bytes;
    uint32_t length, step;
  };
  for (const Case& each :
       {Case{ShortRecord(0x81, ""), 0x81, 2, 2, 2}, Case{ShortRecord(0x83, "abc"), 0x83, 2, 5, 6},
        Case{ShortRecord(0x01, std::string(252, 'x')), 0x01, 2, 254, 254},
        Case{WordRecord(0xff85, "abcd1"), 0xff85, 4, 9, 10}, Case{LongRecord(0x0097, "a"), 0x0097, 6, 7, 8},
        Case{LongRecord(0x0001, std::string(70000, 'x')), 1, 6, 70006, 70006}}) {
    const std::string bytes = Padded(each.record);
    CDHEADER header{};
    ASSERT_TRUE(KVICDReadHeader(bytes.data(), bytes.size(), &header));
    EXPECT_EQ(header.signature, each.signature);
    EXPECT_EQ(header.header_bytes, each.header_bytes);
    EXPECT_EQ(header.length, each.length);
    EXPECT_EQ(header.step, each.step);
    ASSERT_TRUE(KVICDReadHeader(bytes.data(), each.length, &header));  // without its pad
    EXPECT_EQ(header.step, each.length);
    uint32_t length = 0;
    uint16_t signature = 0;
    KVICDGetSigLen(bytes.data(), &length, &signature);
    EXPECT_EQ(length, each.length);
    EXPECT_EQ(signature, each.signature);
    for (size_t left = 0; left < std::min<size_t>(each.length, 300); ++left) {
      const std::string cut(bytes.data(), left);  // its own block: a read behind it is seen
      CDHEADER untouched{1, 2, 3, 4};
      EXPECT_FALSE(KVICDReadHeader(cut.data(), left, &untouched));
      EXPECT_EQ(untouched.length, 3u);
    }
  }
  KVICDGetSigLen(nullptr, nullptr, nullptr);  // reads nothing
}

TEST_F(WalkTest, KVICDReadHeader_LengthBelowHead_Refused) {
  CDHEADER header{};
  for (const std::string& bytes : {std::string("\x81\x01", 2), Word(0xff85) + Word(0), Word(0xff85) + Word(3),
                                   Word(0x0081) + Long(0), Word(0x0081) + Long(5)})
    EXPECT_FALSE(KVICDReadHeader((bytes + "00000000").data(), bytes.size() + 8, &header));
}

TEST_F(WalkTest, KVICDNextRecord_Runs_RecordsAndDamage) {
  const Strings records = {TextRecord("odd"), Paragraph(), LongRecord(0x9, "x"), PabRef(1)};
  bool is_damaged = true;
  EXPECT_EQ(WalkRun(Joined(records), &is_damaged), records);
  EXPECT_FALSE(is_damaged);
  EXPECT_EQ(WalkRun("", &is_damaged), Strings{});
  EXPECT_FALSE(is_damaged);
  const std::string run = Joined(records);
  for (size_t bytes = 1; bytes < run.size(); ++bytes) {
    const std::string cut(run.data(), bytes);
    const Strings found = WalkRun(cut, &is_damaged);
    ASSERT_LE(found.size(), records.size());
    for (size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], records[i]);
    EXPECT_EQ(is_damaged, Joined(found).size() != bytes && Joined(found).size() != bytes + 1) << bytes;
  }
}

TEST_F(WalkTest, KVICDNextItemRecord_SeveralItems_AllRecordsLocksGivenBack) {
  AppendItem({TextRecord("one"), Paragraph()});
  AppendItem({});
  AppendItem({PabRef(2)});
  const kit::MemoryState before = kit::Memory();
  CDITEMWALK walk = KVICDWalkItems(note_, "Body", 4);
  Strings found;
  while (KVICDNextItemRecord(&walk)) found.emplace_back(walk.run.record, walk.run.header.length);
  EXPECT_FALSE(KVICDNextItemRecord(&walk));
  EXPECT_EQ(found, (Strings{TextRecord("one"), Paragraph(), PabRef(2)}));
  EXPECT_EQ(walk.brstatus, 0x222);
  EXPECT_EQ(walk.item_count, 3u);
  EXPECT_FALSE(walk.is_damaged || walk.is_other_type);
  KVICDEndWalk(&walk);
  EXPECT_EQ(kit::Memory().locks, before.locks);
  walk = KVICDWalkItems(note_, "Body", 4);
  EXPECT_TRUE(KVICDNextItemRecord(&walk));
  KVICDEndWalk(&walk);  // early
  EXPECT_EQ(kit::Memory().locks, before.locks);
  walk = KVICDWalkItems(note_, "None", 4);
  EXPECT_FALSE(KVICDNextItemRecord(&walk));
  EXPECT_EQ(walk.item_count, 0u);
}

TEST_F(WalkTest, KVICompositeItemCountFields_Items_BothKindsCounted) {
  uint32_t count = 9;
  EXPECT_EQ(KVICompositeItemCountFields(note_, "Body", &count), KVSUCCESS);
  EXPECT_EQ(count, 0u);
  const std::string field = WordRecord(kCdField, std::string(32, '\0'));
  const std::string older = WordRecord(kCdFieldPre36, std::string(30, '\0'));
  AppendItem({field, TextRecord("t"), older});
  AppendItem({field});
  EXPECT_EQ(KVICompositeItemCountFields(note_, "Body", &count), KVSUCCESS);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(KVICompositeItemCountBRCD(note_, "Body", kCdText, &count), KVSUCCESS);
  EXPECT_EQ(count, 1u);
  AppendRun(Padded(field) + std::string(4, '\0') + field);  // a record of length 0 ends its item
  AppendItem({field});
  EXPECT_EQ(KVICompositeItemCountBRCD(note_, "Body", kCdField, &count), KVSUCCESS);
  EXPECT_EQ(count, 4u);
  {
    kit::Fault fault = kit::Fault::EngineCall(2, kvdoc::kEngineFailure, "EngItemInfoNext");
    EXPECT_EQ(KVICompositeItemCountFields(note_, "Body", &count), kvdoc::kEngineFailure);
    EXPECT_EQ(count, 0u);
  }
  AppendText(note_, "Body", "text");
  EXPECT_EQ(KVICompositeItemCountFields(note_, "Body", &count), KVSUCCESS);
  EXPECT_EQ(count, 0u);  // an item of another type makes the count 0
}

// ---- Count

TEST_F(WalkTest, KVCDRecordGetCount_NewAndOpened_CountsEachNodeOnce) {
  const uint32_t empty = Create();
  {
    Spy spy;
    EXPECT_EQ(KVCDRecordGetCount(empty), 0u);
    EXPECT_EQ(spy.calls().size(), 0u);
  }
  AppendItem({TextRecord("a"), TextRecord("b")});
  AppendItem({Paragraph()});
  const uint32_t composite = OpenBody();
  {
    Spy spy;
    EXPECT_EQ(KVCDRecordGetCount(composite), 3u);
    EXPECT_EQ(spy.Count("EngMemLock"), 2u);
    EXPECT_EQ(spy.Count("EngMemUnlock"), 2u);
  }
  Spy spy;
  EXPECT_EQ(KVCDRecordGetCount(composite), 3u);
  EXPECT_EQ(spy.calls().size(), 0u);
  EXPECT_EQ(KVCDRecordGetCount(document_), 0u);
  ExpectError(KVFAIL_BAD_COMPOSITE);
}

TEST_F(WalkTest, AnyCall_DamagedNode_BadFormatNeverALoop) {
  const std::string good = Joined({TextRecord("good")});
  for (const std::string& damage :
       {std::string(1, '\x81'), std::string(2, '\0'), std::string(8, '\0'), Word(0xff85) + Word(0),
        Word(0xff85) + Word(2), Word(0xff85) + Word(0xffff) + "short", Word(0x0085) + Long(0xffffffff) + "xx",
        Word(0x0085) + Long(1), std::string("\x83\x01", 2), Word(0xff85) + Word(9)}) {
    while (EngItemDelete(note_, "Body", 4) == 0) {
    }
    AppendRun(good);
    AppendRun(good + damage);
    const uint32_t composite = OpenBody(), good_one = Create();
    ASSERT_EQ(InsertText(good_one, "t"), KVSUCCESS);
    EXPECT_EQ(KVCDRecordGetCount(composite), KVFAIL_BAD_FORMAT);
    ExpectError(KVFAIL_BAD_FORMAT);
    uint32_t index = 0;
    EXPECT_EQ(List(composite, KVLIST_FIRST, &index), KVSUCCESS);
    EXPECT_EQ(List(composite, KVLIST_NEXT, &index), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(List(composite, KVLIST_LAST, &index), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(RecordAt(composite, 1), TextRecord("good"));
    int32_t cdtype = 0;
    EXPECT_EQ(KVCDRecordGetInfo(composite, 2, &cdtype, nullptr), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(InsertText(composite, "x"), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(KVCompositeMerge(composite, 0, good_one), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(KVCDRecordDelete(composite, 1, 2), KVFAIL_BAD_FORMAT);
    uint32_t copy = 0;
    EXPECT_EQ(KVCompositeCopy(composite, document_, nullptr, &copy), KVSUCCESS);  // copies without reading
    EXPECT_EQ(KVCompositeCopySubset(composite, 1, 2, document_, nullptr, &copy), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(KVCompositeClose(composite, KVCOMPWRITE_DISCARD), KVSUCCESS);
  }
}

// ---- List

TEST_F(WalkTest, KVCDRecordList_Directions_AsTold) {
  AppendItem({TextRecord("a"), Paragraph()});
  AppendItem({TextRecord("b"), PabRef(3), Paragraph()});
  const uint32_t composite = OpenBody();
  uint32_t index = 9;
  EXPECT_EQ(List(composite, KVLIST_CURRENT, &index), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(index, 0u);
  int32_t cdtype = 0;
  for (const int32_t start : {KVLIST_FIRST, KVLIST_REFRESH}) {
    cdtype = 0;
    EXPECT_EQ(List(composite, start, &index, &cdtype), KVSUCCESS);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(cdtype, KVCDTYPE_TEXT);
  }
  for (const auto& [number, type] : {std::pair{2u, KVCDTYPE_PARAGRAPH},
                                     {3u, KVCDTYPE_TEXT},
                                     {4u, KVCDTYPE_PABREF},
                                     {5u, KVCDTYPE_PARAGRAPH}}) {
    cdtype = 0;
    ASSERT_EQ(List(composite, KVLIST_NEXT, &index, &cdtype), KVSUCCESS);
    EXPECT_EQ(index, number);
    EXPECT_EQ(cdtype, type);
    cdtype = 0;
    ASSERT_EQ(List(composite, KVLIST_CURRENT, &index, &cdtype), KVSUCCESS);
    EXPECT_EQ(index, number);
    EXPECT_EQ(cdtype, type);
  }
  EXPECT_EQ(List(composite, KVLIST_NEXT, &index), KVFAIL_END_OF_DATA);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(CompOf(composite)->current_index, 0u);
  EXPECT_EQ(List(composite, KVLIST_PREVIOUS, &index), KVFAIL_NO_ACTION);
  for (const int32_t list : {0, 7, -1}) EXPECT_EQ(List(composite, list, &index), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVCDRecordList(document_, 0, nullptr, &index), KVFAIL_NULL_PARAM);
  index = 9;
  EXPECT_EQ(List(document_, 0, &index), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(index, 0u);
  cdtype = 11;
  EXPECT_EQ(List(composite, KVLIST_FIRST, &index, &cdtype), KVFAIL_BAD_ENUM);
  cdtype = 20;
  EXPECT_EQ(List(composite, KVLIST_FIRST, &index, &cdtype), KVFAIL_BAD_ENUM);
  cdtype = 0;
  EXPECT_EQ(KVCDRecordList(composite, KVLIST_FIRST, &cdtype, nullptr), KVSUCCESS);
}

TEST_F(WalkTest, KVCDRecordList_WantedType_OnlyThose) {
  AppendItem({TextRecord("a"), Paragraph(), TextRecord("b")});
  AppendItem({WordRecord(0xff99, ""), TextRecord("c"), Paragraph()});
  const uint32_t composite = OpenBody();
  uint32_t index = 0;
  Strings found;
  int32_t text = KVCDTYPE_TEXT;
  for (int32_t list = KVLIST_FIRST; List(composite, list, &index, &text) == KVSUCCESS; list = KVLIST_NEXT)
    found.push_back(RecordAt(composite, index));
  EXPECT_EQ(found, (Strings{TextRecord("a"), TextRecord("b"), TextRecord("c")}));
  int32_t cdtype = KVCDTYPE_UNKNOWN;
  EXPECT_EQ(List(composite, KVLIST_FIRST, &index, &cdtype), KVSUCCESS);
  EXPECT_EQ(index, 4u);
  cdtype = KVCDTYPE_TEXT;
  EXPECT_EQ(List(composite, KVLIST_CURRENT, &index, &cdtype), KVFAIL_DATA_UNAVAILABLE);
  cdtype = KVCDTYPE_PARAGRAPH;
  EXPECT_EQ(List(composite, KVLIST_LAST, &index, &cdtype), KVSUCCESS);
  EXPECT_EQ(index, 6u);
  cdtype = 0;
  EXPECT_EQ(List(composite, KVLIST_NEXT, &index, &cdtype), KVFAIL_END_OF_DATA);
  cdtype = KVCDTYPE_TEXT;
  EXPECT_EQ(List(composite, KVLIST_LAST, &index, &cdtype), KVSUCCESS);
  EXPECT_EQ(index, 5u);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 6u);
  cdtype = KVCDTYPE_PABDEF;
  EXPECT_EQ(List(composite, KVLIST_LAST, &index, &cdtype), KVFAIL_DATA_UNAVAILABLE);
}

TEST_F(WalkTest, KVCDRecordList_Empty_EndOfDataAndUnavailable) {
  const uint32_t composite = Create();
  uint32_t index = 0;
  EXPECT_EQ(List(composite, KVLIST_NEXT, &index), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(composite, KVLIST_FIRST, &index), KVFAIL_END_OF_DATA);
  EXPECT_EQ(List(composite, KVLIST_LAST, &index), KVFAIL_DATA_UNAVAILABLE);
  ASSERT_EQ(InsertText(composite, "now"), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 1u);
}

TEST_F(WalkTest, KVCDRecordList_AfterTheEnd_GoesOnWithWhatWasAppended) {
  AppendItem({TextRecord("a"), TextRecord("b")});
  const uint32_t composite = OpenBody();
  EXPECT_EQ(Listed(composite, KVLIST_LAST), 2u);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 0u);
  ASSERT_EQ(InsertText(composite, "c"), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 3u);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 0u);
  ASSERT_EQ(InsertText(composite, "first", 1), KVSUCCESS);  // the end is still the end
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 0u);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 1), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 0u);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 9), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 0u);
  ASSERT_EQ(InsertText(composite, "d"), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 1u);
}

TEST_F(WalkTest, KVCDRecordList_ChangesBeforeTheCursor_SameRecordUnderItsNewNumber) {
  AppendItem({TextRecord("a"), TextRecord("b"), TextRecord("c")});
  AppendItem({TextRecord("d"), TextRecord("e")});
  const uint32_t composite = OpenBody();
  ASSERT_EQ(Listed(composite, KVLIST_FIRST), 1u);
  ASSERT_EQ(Listed(composite, KVLIST_NEXT), 2u);
  ASSERT_EQ(InsertText(composite, "x", 1), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_CURRENT), 3u);
  EXPECT_EQ(RecordAt(composite, 3), TextRecord("b"));
  ASSERT_EQ(InsertText(composite, "y", 4), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 4u);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 2), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 3u);
  EXPECT_EQ(RecordAt(composite, 3), TextRecord("c"));
  ASSERT_EQ(UpdateRaw(composite, TextRecord("new c"), 3), KVSUCCESS);
  EXPECT_EQ(Listed(composite, KVLIST_CURRENT), 3u);
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 4u);
  EXPECT_EQ(RecordAt(composite, 4), TextRecord("d"));
  ASSERT_EQ(KVCDRecordDelete(composite, 4, 1), KVSUCCESS);  // the one listed
  EXPECT_EQ(Listed(composite, KVLIST_NEXT), 4u);
  EXPECT_EQ(RecordAt(composite, 4), TextRecord("e"));
  ASSERT_EQ(KVCDRecordDelete(composite, 3, 100), KVSUCCESS);  // the count as given is taken from the number
  uint32_t index = 0;
  EXPECT_EQ(List(composite, KVLIST_NEXT, &index), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(Listed(composite, KVLIST_FIRST), 1u);
}

TEST_F(WalkTest, KVCDRecordList_BetweenCalls_OneLockIsHeld) {
  AppendItem({TextRecord("a"), TextRecord("b")});
  AppendItem({TextRecord("c")});
  const kit::MemoryState before = kit::Memory();
  const uint32_t composite = OpenBody();
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(Listed(composite, KVLIST_NEXT), 0u);
    EXPECT_EQ(kit::Memory().locks, before.locks + 1);
  }
  (void)Records(composite);
  EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(kit::Memory().locks, before.locks);
}

// ---- Positions

TEST_F(WalkTest, CompGetRecord_Ascending_EachRecordsHeadIsReadOnce) {
  constexpr uint32_t kItems = 4, kRecords = 250;
  for (uint32_t i = 0; i < kItems; ++i) AppendItem(Strings(kRecords, TextRecord("some text")));
  const uint32_t composite = OpenBody();
  Spy spy;
  for (uint32_t index = 1; index <= kItems * kRecords; ++index)
    ASSERT_EQ(CompGetRecord(CompOf(composite), index, 0), KVSUCCESS);
  // Two words a head; a head is read when its node is counted, when the cursor comes to it, and when the
  // cursor leaves it.
  EXPECT_LE(spy.Count("EngOdsRead"), 2u * 3u * kItems * kRecords);
}

TEST_F(WalkTest, CompGetRecord_EndAndRelease_AsTold) {
  AppendItem({TextRecord("a"), TextRecord("odd")});
  AppendItem({TextRecord("c")});
  _COMPOSITE* comp = CompOf(OpenBody());
  EXPECT_EQ(CompGetRecord(comp, 0, 0), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(CompGetRecord(comp, 4, 0), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(CompGetRecord(comp, 5, 1), KVFAIL_DATA_UNAVAILABLE);
  for (const uint32_t index : {0u, 4u}) {
    ASSERT_EQ(CompGetRecord(comp, index, 1), KVSUCCESS);
    EXPECT_EQ(comp->comprec.comp_index, 4u);
    EXPECT_EQ(comp->comprec.node_index, 2u);
    EXPECT_EQ(comp->comprec.length, 0u);
    EXPECT_EQ(comp->comprec.node->isbidlocked, 0);
  }
  EXPECT_EQ(CompGetRecord(comp, kCompRelease, 0), KVFAIL_END_OF_DATA);
  EXPECT_EQ(comp->comprec.node, nullptr);
  EXPECT_EQ(comp->comprec.comp_index, 4u);
  ASSERT_EQ(CompGetRecord(comp, 2, 0), KVSUCCESS);
  EXPECT_EQ(comp->comprec.length, TextRecord("odd").size());
  EXPECT_EQ(comp->comprec.align, 1);
}

TEST_F(WalkTest, Records_LastPadMissing_NextNodeFollows) {
  const std::string odd = TextRecord("odd");
  ASSERT_EQ(odd.size() % 2, 1u);
  AppendRun(odd);  // an item that ends without the pad
  AppendItem({TextRecord("next")});
  const uint32_t composite = OpenBody();
  EXPECT_EQ(Records(composite), (Strings{odd, TextRecord("next")}));
  ASSERT_EQ(InsertText(composite, "mid", 2), KVSUCCESS);
  ASSERT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  EXPECT_EQ(Items(), Strings{Joined({odd, TextRecord("mid"), TextRecord("next")})});
}

TEST_F(WalkTest, AnyCall_ItemDeletedUnderneath_StatusNoCrash) {
  AppendItem({TextRecord("a"), TextRecord("b")});
  const uint32_t composite = OpenBody();
  ASSERT_EQ(Listed(composite, KVLIST_FIRST), 1u);
  ASSERT_EQ(KVCDRecordGetCount(composite), 2u);
  CompOf(composite)->nodelist->isbidlocked = 0;
  EngMemUnlock(CompOf(composite)->nodelist->value_bid.pool);
  CompOf(composite)->nodelist->value_bid.pool = 0x7fffffff;  // a block that is gone
  uint32_t index = 0;
  EXPECT_EQ(List(composite, KVLIST_NEXT, &index), KVFAIL_INTERNAL);
  EXPECT_EQ(List(composite, KVLIST_CURRENT, &index), KVFAIL_INTERNAL);
  int32_t cdtype = 0;
  EXPECT_EQ(KVCDRecordGetInfo(composite, 1, &cdtype, nullptr), KVFAIL_INTERNAL);
  EXPECT_EQ(KVCDRecordDelete(composite, 1, 1), KVFAIL_INTERNAL);
  EXPECT_EQ(InsertText(composite, "x"), KVFAIL_INTERNAL);
  uint32_t copy = 0;
  EXPECT_EQ(KVCompositeCopy(composite, document_, nullptr, &copy), KVFAIL_INTERNAL);
  CompOf(composite)->dirty = 1;
  EXPECT_EQ(KVCompositeClose(composite, 0), KVFAIL_INTERNAL);
  EXPECT_EQ(Items().size(), 1u);
}

}  // namespace
