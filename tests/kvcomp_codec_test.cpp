// Public records and stored ones, there and back: all types but fields.
//
// A plus in front of a member copies it: members of packed records lie at any address, and the macros of
// tests take references.
#include "kvcomp_world.h"

namespace {

using kvcomp::Long;
using kvcomp::LongRecord;
using kvcomp::PabRef;
using kvcomp::Paragraph;
using kvcomp::ShortRecord;
using kvcomp::TextRecord;
using kvcomp::Word;
using kvcomp::WordRecord;
using kvdoc::kUntouched;

class CodecTest : public kvcomp::CompositeTest {
 protected:
  void SetUp() override {
    CompositeTest::SetUp();
    composite_ = Create();
  }
  uint32_t Insert(int32_t cdtype, void* record) const {
    return KVCDRecordInsert(composite_, 0, cdtype, record);
  }
  std::string Last() const { return RecordAt(composite_, KVCDRecordGetCount(composite_)); }
  uint32_t FetchLast(int32_t* cdtype, void* record) const {
    return KVCDRecordFetch(composite_, KVCDRecordGetCount(composite_), cdtype, record);
  }

  uint32_t composite_ = 0;
};

KVCDPABDEF SomePabDef() {
  KVCDPABDEF pabdef = KVCDPABDEF_DEFAULT;
  pabdef.pabid = 0x10007;
  pabdef.justify = 3;
  pabdef.line_spacing = 1;
  pabdef.lines_before_para = 2;
  pabdef.lines_after_para = 3;
  pabdef.right_margin_twips = 9;
  pabdef.tab_count = 20;
  for (int i = 0; i < 20; ++i) pabdef.tab_twips[i] = i % 2 ? -i : i * 100;
  return pabdef;
}

TEST_F(CodecTest, Defaults_AsTold) {
  const KVCDPABDEF pabdef = KVCDPABDEF_DEFAULT;
  EXPECT_EQ(+pabdef.left_margin_twips, 1440u);
  EXPECT_EQ(+pabdef.first_left_margin_twips, 1440u);
  EXPECT_EQ(+pabdef.tab_twips[0], 720);
  EXPECT_EQ(+pabdef.tab_twips[1], 0);
  EXPECT_EQ(+pabdef.right_margin_twips, 0u);
  EXPECT_EQ(+pabdef.tab_count, 0u);
  const KVFONTSTYLE font = KVFONTSTYLE_DEFAULT;
  EXPECT_EQ(+font.face, 1);
  EXPECT_EQ(+font.size, 10);
  EXPECT_EQ(font.font_flags + font.color, 0);
  const KVCDFIELD field = KVCDFIELD_DEFAULT;
  EXPECT_EQ(+field.type, KVTYPE_TEXT);
  EXPECT_EQ(+field.field_flags, 2u);
  EXPECT_EQ(+field.format.number.decimal_digits, 1u);
  EXPECT_EQ(+field.format.datetime.datetime, 2);
  EXPECT_EQ(+field.format.listsep.display, 2);
  EXPECT_EQ(+field.format.listsep.sepallow_flags, 14u);
  EXPECT_EQ(+field.buffer, nullptr);
}

TEST_F(CodecTest, PabDef_EachField_StoredAndReadBack) {
  KVCDPABDEF pabdef = SomePabDef();
  ASSERT_EQ(Insert(KVCDTYPE_PABDEF, &pabdef), KVSUCCESS);
  std::string expected =
      Word(7) + Word(3) + Word(1) + Word(2) + Word(3) + Word(1440) + Word(9) + Word(1440) + Word(20);
  for (int i = 0; i < 20; ++i) expected += Word(static_cast<uint16_t>(pabdef.tab_twips[i]));
  expected += Word(0) + Long(0) + Word(0);
  EXPECT_EQ(Last(), WordRecord(0xff82, expected));
  int32_t cdtype = 0;
  KVCDPABDEF back{};
  ASSERT_EQ(FetchLast(&cdtype, &back), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_PABDEF);
  pabdef.pabid = 7;
  EXPECT_EQ(memcmp(&back, &pabdef, sizeof back), 0);
}

TEST_F(CodecTest, PabDef_FlagsAndLists_Translated) {
  struct Case {
    uint32_t pab_flags;
    int32_t list_format;
    uint32_t stored;
    int32_t list_back;
  };
  for (const Case& each : {Case{0xffffffff, 0, 0x6bff, 0}, Case{0, 1, 0x400, 1}, Case{0, 2, 0x1000, 2},
                           Case{0x800, 0, 0x900, 0}, Case{0x1000, 1, 0x400, 1}}) {
    KVCDPABDEF pabdef = SomePabDef();
    pabdef.pab_flags = each.pab_flags;
    pabdef.list_format = each.list_format;
    ASSERT_EQ(Insert(KVCDTYPE_PABDEF, &pabdef), KVSUCCESS);
    EXPECT_EQ(KVILoad<uint16_t>(Last().data() + 62), each.stored);
    KVCDPABDEF back{};
    ASSERT_EQ(FetchLast(nullptr, &back), KVSUCCESS);
    EXPECT_EQ(+back.pab_flags, each.stored);
    EXPECT_EQ(+back.list_format, each.list_back);
  }
}

TEST_F(CodecTest, PabDef_MembersOutOfRange_Refused) {
  const auto status_of = [&](auto change) {
    KVCDPABDEF pabdef = SomePabDef();
    change(&pabdef);
    return Insert(KVCDTYPE_PABDEF, &pabdef);
  };
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->justify = 5; }), KVFAIL_BAD_ENUM);
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->justify = -1; }), KVFAIL_BAD_ENUM);
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->tab_count = 21; }), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->list_format = 3; }), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->list_format = -1; }), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(status_of([](KVCDPABDEF* p) { p->justify = 4; }), KVSUCCESS);
  EXPECT_EQ(KVCDRecordGetCount(composite_), 1u);
}

TEST_F(CodecTest, PabDef_OlderCaller_WithoutListFormat) {
  session_->kvprog_version = 0x3ffff;
  struct Older {
    uint32_t words[10];
    int32_t tabs[20];
  };
  static_assert(sizeof(Older) == 120);
  Older older{{7, 0x200, 1, 2, 2, 1, 11, 12, 13, 2}, {100, -5}};
  ASSERT_EQ(Insert(KVCDTYPE_PABDEF, &older), KVSUCCESS);
  struct {
    Older record;
    uint32_t behind;
  } back{{}, kUntouched};
  ASSERT_EQ(FetchLast(nullptr, &back.record), KVSUCCESS);
  EXPECT_EQ(memcmp(&back.record, &older, sizeof older), 0);
  EXPECT_EQ(+back.behind, kUntouched);
  session_->kvprog_version = 0x40000;
  KVCDPABDEF pabdef{};
  ASSERT_EQ(FetchLast(nullptr, &pabdef), KVSUCCESS);
  EXPECT_EQ(+pabdef.list_format, 0);
  EXPECT_EQ(+pabdef.line_spacing, 2u);
  EXPECT_EQ(+pabdef.tab_twips[1], -5);
  for (const auto& [list_format, flag] : {std::pair{1, 0x400u}, {2, 0x1000u}}) {
    pabdef.list_format = list_format;
    session_->kvprog_version = 0x40000;
    ASSERT_EQ(Insert(KVCDTYPE_PABDEF, &pabdef), KVSUCCESS);
    session_->kvprog_version = 0x3ffff;
    ASSERT_EQ(FetchLast(nullptr, &back.record), KVSUCCESS);
    EXPECT_EQ(+back.record.words[1], 0x200 | flag);  // the list is still told by the flags
  }
}

TEST_F(CodecTest, BCKWCDRecordConvert_SourceIsTarget_RightData) {
  KVCDPABDEF record = SomePabDef();
  record.list_format = 2;
  const KVCDPABDEF before = record;
  ASSERT_EQ(BCKWCDRecordConvertNewToOld(0x30000, KVCDTYPE_PABDEF, &record, &record), KVSUCCESS);
  ASSERT_EQ(BCKWCDRecordConvertOldToNew(0x30000, KVCDTYPE_PABDEF, &record, &record), KVSUCCESS);
  EXPECT_EQ(+record.list_format, 0);
  record.list_format = 2;
  EXPECT_EQ(memcmp(&record, &before, sizeof record), 0);
  EXPECT_EQ(BCKWCDRecordConvertOldToNew(0x30000, KVCDTYPE_TEXT, &record, &record), KVFAIL_NO_ACTION);
  EXPECT_EQ(BCKWCDRecordConvertNewToOld(0x30000, KVCDTYPE_TEXT, &record, &record), KVFAIL_NO_ACTION);
}

TEST_F(CodecTest, PabRefAndParagraph_StoredAndReadBack) {
  KVCDPABREF pabref{0x1fffe};
  ASSERT_EQ(Insert(KVCDTYPE_PABREF, &pabref), KVSUCCESS);
  EXPECT_EQ(Last(), PabRef(0xfffe));
  KVCDPABREF back{};
  int32_t cdtype = 0;
  ASSERT_EQ(FetchLast(&cdtype, &back), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_PABREF);
  EXPECT_EQ(+back.pabid, 0xfffeu);
  ASSERT_EQ(Insert(KVCDTYPE_PARAGRAPH, nullptr), KVSUCCESS);
  EXPECT_EQ(Last(), Paragraph());
  cdtype = 0;
  uint32_t untouched = kUntouched;
  ASSERT_EQ(FetchLast(&cdtype, &untouched), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_PARAGRAPH);
  EXPECT_EQ(untouched, kUntouched);
}

TEST_F(CodecTest, Text_FontAndLength_StoredAndReadBack) {
  char bytes[] = "odd";
  KVCDTEXT text{{2, 0x47, 3, 12}, 3, bytes};
  ASSERT_EQ(Insert(KVCDTYPE_TEXT, &text), KVSUCCESS);
  EXPECT_EQ(+text.font.font_flags, 0x07);  // cleared in the caller's structure too
  EXPECT_EQ(Last(), TextRecord("odd", 0x0c030702));
  const _COMPNODE* node = CompOf(composite_)->nodelist;
  EXPECT_EQ(node->value_len, 12u);
  EXPECT_EQ(node->value_ptr[11], 0);  // the pad
  KVCDTEXT empty{KVFONTSTYLE_DEFAULT, 0, nullptr};
  EXPECT_EQ(Insert(KVCDTYPE_TEXT, &empty), KVSUCCESS);
  EXPECT_EQ(Last(), TextRecord(""));
  KVCDTEXT missing{KVFONTSTYLE_DEFAULT, 1, nullptr};
  EXPECT_EQ(Insert(KVCDTYPE_TEXT, &missing), KVFAIL_NULL_PARAM);
}

TEST_F(CodecTest, Text_LongestAndTooLong_NoLengthThatLies) {
  std::string bytes(70000, 't');
  for (const uint32_t length : {65526u, 65527u}) {
    KVCDTEXT text{KVFONTSTYLE_DEFAULT, length, bytes.data()};
    ASSERT_EQ(Insert(KVCDTYPE_TEXT, &text), KVSUCCESS);
    EXPECT_EQ(Last().size(), length + 8);
  }
  for (const uint32_t length : {65528u, 70000u}) {
    KVCDTEXT text{KVFONTSTYLE_DEFAULT, length, bytes.data()};
    EXPECT_EQ(Insert(KVCDTYPE_TEXT, &text), KVFAIL_DATA_TOO_LONG);
  }
  EXPECT_EQ(KVCDRecordGetCount(composite_), 2u);
}

TEST_F(CodecTest, Unknown_EachForm_CopiedThrough) {
  for (const std::string& record : {ShortRecord(0x99, "abc"), ShortRecord(0x99, std::string(252, 'x')),
                                    WordRecord(0xff99, "odd"), LongRecord(0x99, std::string(70000, 'y'))}) {
    ASSERT_EQ(InsertRaw(composite_, record), KVSUCCESS);
    EXPECT_EQ(Last(), record);
    uint32_t bytes = 0;
    int32_t cdtype = 0;
    EXPECT_EQ(KVCDRecordGetInfo(composite_, KVCDRecordGetCount(composite_), &cdtype, &bytes), KVSUCCESS);
    EXPECT_EQ(cdtype, KVCDTYPE_UNKNOWN);
    EXPECT_EQ(bytes, record.size());
  }
}

TEST_F(CodecTest, Unknown_BytesThatAreNoRecord_Refused) {
  std::string bytes = WordRecord(0xff99, "1234");
  KVCDUNKNOWN record{8, 0xff99, bytes.data()};
  EXPECT_EQ(Insert(KVCDTYPE_UNKNOWN, &record), KVSUCCESS);
  record.signature = 0xff98;
  EXPECT_EQ(Insert(KVCDTYPE_UNKNOWN, &record), KVFAIL_BAD_FORMAT);
  record.signature = 0;
  for (const uint32_t length : {0u, 1u, 3u, 7u, 9u}) {
    record.length = length;
    EXPECT_EQ(Insert(KVCDTYPE_UNKNOWN, &record), KVFAIL_BAD_FORMAT) << length;
  }
  record = {8, 0, nullptr};
  EXPECT_EQ(Insert(KVCDTYPE_UNKNOWN, &record), KVFAIL_NULL_PARAM);
  record = {0xffffffff, 0, bytes.data()};
  EXPECT_EQ(Insert(KVCDTYPE_UNKNOWN, &record), KVFAIL_DATA_TOO_LONG);
}

// A record of a known signature that is shorter than its fixed part can be had as bytes alone.
TEST_F(CodecTest, Read_TruncatedFixedParts_BadFormat) {
  const std::string truncated[] = {
      WordRecord(kCdText, "123"), WordRecord(kCdPabDefinition, std::string(65, '\0')),
      ShortRecord(kCdPabReference, "1"), WordRecord(kCdField, std::string(31, '\0')),
      WordRecord(kCdFieldPre36, std::string(29, '\0'))};
  for (const std::string& record : truncated) {
    ASSERT_EQ(InsertRaw(composite_, record), KVSUCCESS);
    EXPECT_EQ(Last(), record);
    int32_t cdtype = 0;
    COMPDATA data{};
    EXPECT_EQ(FetchLast(&cdtype, &data), KVFAIL_BAD_FORMAT);
    EXPECT_EQ(FetchLast(nullptr, nullptr), KVFAIL_BAD_FORMAT);
  }
  ASSERT_EQ(InsertText(composite_, "good"), KVSUCCESS);
  uint32_t index = 0;
  for (size_t i = 0; i < std::size(truncated); ++i)
    EXPECT_EQ(List(composite_, i == 0 ? KVLIST_FIRST : KVLIST_NEXT, &index), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(List(composite_, KVLIST_NEXT, &index), KVSUCCESS);  // a listing gets past them
  EXPECT_EQ(index, std::size(truncated) + 1);
}

TEST_F(CodecTest, Records_AtOddAddresses_ReadAndWritten) {
  alignas(8) char room[sizeof(COMPDATA) + 1];
  KVCDTEXT text{KVFONTSTYLE_DEFAULT, 2, const_cast<char*>("ab")};
  std::memcpy(room + 1, &text, sizeof text);
  ASSERT_EQ(Insert(KVCDTYPE_TEXT, room + 1), KVSUCCESS);
  ASSERT_EQ(KVCDRecordGetPointer(composite_, 1, nullptr, room + 1), KVSUCCESS);
  EXPECT_EQ(std::string(KVILoad<KVCDTEXT>(room + 1).buffer, 2), "ab");
}

}  // namespace
