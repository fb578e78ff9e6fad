// Records by number: told, read, inserted, replaced, deleted.
#include "kvcomp_world.h"

namespace {

using kit::Spy;
using kvcomp::Joined;
using kvcomp::PabRef;
using kvcomp::Paragraph;
using kvcomp::TextRecord;
using kvcomp::WordRecord;
using kvdoc::Record;

using Strings = std::vector<std::string>;

class RecordTest : public kvcomp::CompositeTest {
 protected:
  uint32_t OpenThree() {
    AppendItem({TextRecord("one"), Paragraph()});
    AppendItem({PabRef(7)});
    const uint32_t composite = OpenBody();
    Record(document_)->dirty = 0;
    return composite;
  }
  bool IsDirty(uint32_t composite) { return CompOf(composite)->dirty && Record(document_)->dirty; }
};

// ---- Reading

TEST_F(RecordTest, KVCDRecordGetInfo_EachRecord_TypeAndBytes) {
  const uint32_t composite = OpenThree();
  struct Case {
    uint32_t index;
    int32_t cdtype;
    uint32_t bytes;
  };
  for (const Case& each :
       {Case{1, KVCDTYPE_TEXT, 3}, Case{2, KVCDTYPE_PARAGRAPH, 0}, Case{3, KVCDTYPE_PABREF, 0}}) {
    int32_t cdtype = 0;
    uint32_t bytes = 99;
    EXPECT_EQ(KVCDRecordGetInfo(composite, each.index, &cdtype, &bytes), KVSUCCESS);
    EXPECT_EQ(cdtype, each.cdtype);
    EXPECT_EQ(bytes, each.bytes);
    EXPECT_EQ(KVCDRecordGetInfo(composite, each.index, nullptr, nullptr), KVSUCCESS);
    EXPECT_EQ(KVCDRecordGetInfo(composite, each.index, &cdtype, nullptr), KVSUCCESS);  // insists on its type
    cdtype = KVCDTYPE_UNKNOWN;
    EXPECT_EQ(KVCDRecordGetInfo(composite, each.index, &cdtype, &bytes), KVSUCCESS);
    EXPECT_EQ(cdtype, KVCDTYPE_UNKNOWN);
    EXPECT_EQ(bytes, RecordAt(composite, each.index).size());
  }
}

TEST_F(RecordTest, KVCDRecordGetInfo_Refused_StatusesAndClearedOutputs) {
  const uint32_t composite = OpenThree();
  struct Case {
    uint32_t composite, index;
    int32_t cdtype;
    uint32_t status;
  };
  for (const Case& each :
       {Case{document_, 1, 0, KVFAIL_BAD_COMPOSITE}, Case{composite, 0, 0, KVFAIL_DATA_UNAVAILABLE},
        Case{composite, 4, 0, KVFAIL_DATA_UNAVAILABLE}, Case{composite, 0xffffffff, 0, KVFAIL_END_OF_DATA},
        Case{composite, 1, KVCDTYPE_FIELD, KVFAIL_ILLEGAL_CONVERSION},
        Case{composite, 3, KVCDTYPE_TEXT, KVFAIL_ILLEGAL_CONVERSION}, Case{composite, 1, 11, KVFAIL_BAD_ENUM},
        Case{composite, 1, 20, KVFAIL_BAD_ENUM}, Case{composite, 1, -1, KVFAIL_BAD_ENUM}}) {
    int32_t cdtype = each.cdtype;
    uint32_t bytes = 99;
    EXPECT_EQ(KVCDRecordGetInfo(each.composite, each.index, &cdtype, &bytes), each.status);
    ExpectError(each.status);
    EXPECT_EQ(cdtype, 0);
    EXPECT_EQ(bytes, 0u);
    KVCDTEXT text{};
    cdtype = each.cdtype;
    EXPECT_EQ(KVCDRecordFetch(each.composite, each.index, &cdtype, &text), each.status);
    EXPECT_EQ(cdtype, 0);
    cdtype = each.cdtype;
    EXPECT_EQ(KVCDRecordGetPointer(each.composite, each.index, &cdtype, &text), each.status);
    EXPECT_EQ(cdtype, 0);
    EXPECT_EQ(text.length, 0u);
  }
}

TEST_F(RecordTest, KVCDRecordFetch_Text_CopiedWithNulOrTooLongWithoutBuffer) {
  const uint32_t composite = OpenThree();
  char buffer[] = "xxxxxxx";
  KVCDTEXT text{{}, 0, buffer};
  int32_t cdtype = 0;
  ASSERT_EQ(KVCDRecordFetch(composite, 1, &cdtype, &text), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_TEXT);
  EXPECT_EQ(text.length, 3u);
  EXPECT_STREQ(buffer, "one");
  EXPECT_EQ(buffer[4], 'x');
  EXPECT_EQ(text.font.face, 1);
  EXPECT_EQ(text.font.size, 10);
  text = {};
  EXPECT_EQ(KVCDRecordFetch(composite, 1, nullptr, &text), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(text.length, 3u);
  EXPECT_EQ(KVCDRecordFetch(composite, 1, nullptr, nullptr), KVSUCCESS);
}

TEST_F(RecordTest, KVCDRecordGetPointer_Text_PointsIntoTheStoredBytes) {
  const uint32_t composite = OpenThree();
  KVCDTEXT text{};
  Spy spy;
  ASSERT_EQ(KVCDRecordGetPointer(composite, 1, nullptr, &text), KVSUCCESS);
  EXPECT_EQ(std::string(text.buffer, text.length), "one");
  const _COMPNODE* node = CompOf(composite)->nodelist;
  const auto* start = static_cast<char*>(EngMemLock(node->value_bid.pool)) + node->value_bid.block + 2;
  EXPECT_EQ(text.buffer, start + 8);
  EngMemUnlock(node->value_bid.pool);
}

TEST_F(RecordTest, KVCDRecordFetch_UnknownSignature_RawBytesWithoutNul) {
  const std::string strange = WordRecord(0xffac, "later kind");
  AppendItem({strange}, "Strange");
  const uint32_t composite = OpenBody("Strange");
  char buffer[20];
  std::memset(buffer, 'x', sizeof buffer);
  KVCDUNKNOWN record{0, 0, buffer};
  int32_t cdtype = 0;
  ASSERT_EQ(KVCDRecordFetch(composite, 1, &cdtype, &record), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_UNKNOWN);
  EXPECT_EQ(record.signature, 0xffacu);
  EXPECT_EQ(std::string(buffer, record.length), strange);
  EXPECT_EQ(buffer[strange.size()], 'x');
  const uint32_t copy = Create();
  ASSERT_EQ(KVCDRecordInsert(copy, 0, KVCDTYPE_UNKNOWN, &record), KVSUCCESS);
  EXPECT_EQ(Records(copy), Strings{strange});
}

// ---- Inserting

TEST_F(RecordTest, KVCDRecordInsert_EachPlace_RecordAndDirtyWords) {
  for (uint32_t place = 0; place <= 4; ++place) {
    while (EngItemDelete(note_, "Body", 4) == 0) {
    }
    const uint32_t composite = OpenThree();
    Strings expected = Records(composite);
    ASSERT_EQ(InsertText(composite, "new", place), KVSUCCESS);
    expected.insert(place == 0 ? expected.end() : expected.begin() + place - 1, TextRecord("new"));
    EXPECT_EQ(Records(composite), expected) << place;
    EXPECT_TRUE(IsDirty(composite));
    EXPECT_EQ(KVCompositeClose(composite, KVCOMPWRITE_DISCARD), KVSUCCESS);
  }
}

TEST_F(RecordTest, KVCDRecordInsert_Refused_StatusesAndNothingChanged) {
  const uint32_t composite = OpenThree();
  const Strings before = Records(composite);
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, 1, const_cast<char*>("t")};
  EXPECT_EQ(KVCDRecordInsert(document_, 9, 99, nullptr), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCDRecordInsert(composite, 5, 99, nullptr), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVCDRecordInsert(composite, 0xffffffff, KVCDTYPE_TEXT, &text), KVFAIL_END_OF_DATA);
  for (const int32_t cdtype : {0, 11, 20, -1})
    EXPECT_EQ(KVCDRecordInsert(composite, 0, cdtype, &text), KVFAIL_BAD_ENUM);
  for (const int32_t cdtype : {6, 7, 8, 9, 10, 13, 14, 15, 16, 17, 18, 19})
    EXPECT_EQ(KVCDRecordInsert(composite, 0, cdtype, &text), KVFAIL_UNSUPPORTED);
  for (const int32_t cdtype : {1, 2, 3, 5, 12})
    EXPECT_EQ(KVCDRecordInsert(composite, 0, cdtype, nullptr), KVFAIL_NULL_PARAM) << cdtype;
  EXPECT_EQ(KVCDRecordUpdate(document_, 9, 99, nullptr), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCDRecordUpdate(composite, 0, KVCDTYPE_TEXT, &text), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVCDRecordUpdate(composite, 4, KVCDTYPE_TEXT, &text), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVCDRecordUpdate(composite, 1, 11, &text), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVCDRecordDelete(document_, 9, 0), KVFAIL_NO_ACTION);
  EXPECT_EQ(KVCDRecordDelete(document_, 9, 1), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(KVCDRecordDelete(composite, 0, 1), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(KVCDRecordDelete(composite, 4, 1), KVFAIL_DATA_UNAVAILABLE);
  EXPECT_EQ(Records(composite), before);
  EXPECT_FALSE(CompOf(composite)->dirty || Record(document_)->dirty);
  session_->kvprog_version = 0x20305;
  for (const int32_t cdtype : {14, 16, 17, 18, 19})
    EXPECT_EQ(KVCDRecordInsert(composite, 0, cdtype, &text), KVFAIL_BAD_ENUM);
  session_->kvprog_version = 0x40105;
  EXPECT_EQ(KVCDRecordInsert(composite, 0, 19, &text), KVFAIL_BAD_ENUM);
  EXPECT_EQ(KVCDRecordInsert(composite, 0, 18, &text), KVFAIL_UNSUPPORTED);
}

TEST_F(RecordTest, KVCDRecordInsert_TextWithLineEnd_StoredWithoutOneLineEnd) {
  const uint32_t composite = Create();
  const std::pair<std::string, std::string> cases[] = {{"text\n", "text"},
                                                       {"text\r", "text"},
                                                       {"text\r\n", "text"},
                                                       {"text\n\r", "text"},
                                                       {"text\n\n", "text\n"},
                                                       {"a\nb", "a\nb"},
                                                       {"\n", ""},
                                                       {"", ""},
                                                       {"\r\n\r\n", "\r\n"},
                                                       {"cut\x02", "cut"},
                                                       {"cut\x10\x02", "cut"},
                                                       {"line\n\x02", "line"}};
  for (const auto& [text, stored] : cases) {
    KVCDTEXT record{KVFONTSTYLE_DEFAULT, static_cast<uint32_t>(text.size()), const_cast<char*>(text.data())};
    ASSERT_EQ(KVCDRecordInsert(composite, 0, KVCDTYPE_TEXT, &record), KVSUCCESS);
    EXPECT_EQ(record.length, text.size());  // the caller's structure stays
    EXPECT_EQ(RecordAt(composite, KVCDRecordGetCount(composite)), TextRecord(stored));
    ASSERT_EQ(KVCDRecordUpdate(composite, 1, KVCDTYPE_TEXT, &record), KVSUCCESS);
    EXPECT_EQ(RecordAt(composite, 1), TextRecord(stored));
  }
}

// ---- Replacing

TEST_F(RecordTest, KVCDRecordUpdate_EachRecord_OthersStay) {
  const Strings records = {TextRecord("a"), TextRecord("b"), TextRecord("c"), PabRef(1)};
  for (uint32_t place = 1; place <= 4; ++place)
    for (const std::string& update : {Paragraph(), TextRecord("b"), TextRecord(std::string(3000, 'x'))}) {
      while (EngItemDelete(note_, "Body", 4) == 0) {
      }
      AppendItem({records[0], records[1], records[2]});
      AppendItem({records[3]});
      const uint32_t composite = OpenBody();
      Record(document_)->dirty = 0;
      ASSERT_EQ(UpdateRaw(composite, update, place), KVSUCCESS);
      Strings expected = records;
      expected[place - 1] = update;
      EXPECT_EQ(Records(composite), expected) << place;
      EXPECT_TRUE(IsDirty(composite));
      EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
      EXPECT_EQ(Items(), Strings{Joined(expected)});
    }
}

TEST_F(RecordTest, KVCDRecordUpdate_EachAllocationFails_OldRecordStands) {
  AppendItem({TextRecord("a"), TextRecord("b"), TextRecord("c")});
  const uint32_t source = OpenBody();
  uint32_t hits = 0;
  for (uint32_t nth = 1;; ++nth) {
    uint32_t composite = 0;
    ASSERT_EQ(KVCompositeCopy(source, document_, nullptr, &composite), KVSUCCESS);
    const Strings before = Records(composite);
    kit::Fault fault = kit::Fault::Allocation(nth);
    const uint32_t status = UpdateRaw(composite, TextRecord("new"), 2);
    fault.Disarm();
    if (!fault.Hit()) break;
    ++hits;
    EXPECT_EQ(status, KVFAIL_NO_MEMORY);
    EXPECT_EQ(Records(composite), before) << nth;
    EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
  }
  EXPECT_EQ(hits, 4u);  // node and bytes of the record, tail of the split, count of the storage
}

// ---- Deleting

TEST_F(RecordTest, KVCDRecordDelete_EachRange_RestInOrder) {
  const Strings records = {TextRecord("a"), Paragraph(),       TextRecord("c"),
                           PabRef(1),       TextRecord("eee"), Paragraph()};
  for (uint32_t first = 1; first <= 6; ++first)
    for (const uint32_t count : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 0xffffffffu}) {
      while (EngItemDelete(note_, "Body", 4) == 0) {
      }
      AppendItem({records[0], records[1]});
      AppendItem({records[2], records[3], records[4]});
      AppendItem({records[5]});
      const uint32_t composite = OpenBody();
      Record(document_)->dirty = 0;
      ASSERT_EQ(KVCDRecordDelete(composite, first, count), KVSUCCESS);
      Strings expected = records;
      const auto end = std::min<uint64_t>(6, uint64_t{first} - 1 + count);
      expected.erase(expected.begin() + first - 1, expected.begin() + static_cast<ptrdiff_t>(end));
      EXPECT_EQ(Records(composite), expected) << first << " " << count;
      EXPECT_TRUE(IsDirty(composite));
      EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
      EXPECT_EQ(Items(), expected.empty() ? Strings{} : Strings{Joined(expected)});
    }
}

TEST_F(RecordTest, KVCDRecordInsert_ExactOnlyRecordOfANode_CountsStayRight) {
  const uint32_t composite = Create();
  ASSERT_EQ(InsertText(composite, "only"), KVSUCCESS);
  ASSERT_EQ(UpdateRaw(composite, Paragraph(), 1), KVSUCCESS);
  EXPECT_EQ(KVCDRecordGetCount(composite), 1u);
  ASSERT_EQ(KVCDRecordDelete(composite, 1, 1), KVSUCCESS);
  EXPECT_EQ(KVCDRecordGetCount(composite), 0u);
  EXPECT_EQ(CompOf(composite)->nodelist, nullptr);
  ASSERT_EQ(InsertText(composite, "again"), KVSUCCESS);
  EXPECT_EQ(Records(composite), Strings{TextRecord("again")});
}

}  // namespace
