// Field records: formulas compiled and told as text, the six parts, the older form, damage.
//
// A plus in front of a member copies it: members of packed records lie at any address, and the macros of
// tests take references.
#include "kvcomp_world.h"

namespace {

using kvcomp::Long;
using kvcomp::Word;
using kvcomp::WordRecord;

class FieldRecordTest : public kvcomp::CompositeTest {
 protected:
  void SetUp() override {
    CompositeTest::SetUp();
    composite_ = Create();
  }
  // A field with six parts; parts[3] is the name.
  static KVCDFIELD Field(const std::vector<std::string>& parts, std::string* buffer) {
    KVCDFIELD field = KVCDFIELD_DEFAULT;
    buffer->clear();
    for (const std::string& part : parts) *buffer += part;
    const auto bytes = [&](size_t i) { return static_cast<uint32_t>(parts[i].size()); };
    field.default_formula_length = bytes(0);
    field.input_trans_formula_length = bytes(1);
    field.input_valid_formula_length = bytes(2);
    field.field_name_length = bytes(3);
    field.field_desc_length = bytes(4);
    field.field_keywords_length = bytes(5);
    field.buffer = buffer->data();
    return field;
  }
  uint32_t Insert(KVCDFIELD* field) const { return KVCDRecordInsert(composite_, 0, KVCDTYPE_FIELD, field); }
  uint32_t Last() const { return KVCDRecordGetCount(composite_); }
  CDFIELD Stored() const { return KVILoad<CDFIELD>(RecordAt(composite_, Last()).data()); }

  uint32_t composite_ = 0;
  std::string buffer_;
};

const std::vector<std::string> kParts = {"1 + 2", "@Trim(Name)", "@Success", "Name", "a description", "keys"};

TEST_F(FieldRecordTest, Field_AllParts_StoredAndReadBackAsText) {
  KVCDFIELD field = Field(kParts, &buffer_);
  field.type = KVTYPE_NUMBER;
  field.field_flags = 0xffffffff;
  field.font = {2, 0x41, 3, 12};
  ASSERT_EQ(Insert(&field), KVSUCCESS);
  EXPECT_EQ(+field.font.font_flags, 1);
  const CDFIELD stored = Stored();
  EXPECT_EQ(+stored.Signature, 0xff8a);
  EXPECT_EQ(+stored.Length, RecordAt(composite_, 1).size());
  EXPECT_EQ(+stored.Flags, 0x3dbf);
  EXPECT_EQ(+stored.DataType, 0x300);
  EXPECT_EQ(+stored.ListDelim, 2 << 12 | 14);
  EXPECT_EQ(+stored.NumberFormat.Digits, 1);
  EXPECT_EQ(+stored.TimeFormat.Structure, 2);
  EXPECT_EQ(+stored.FontID, 0x0c030102u);
  EXPECT_EQ(+stored.NameLength, 4);
  EXPECT_EQ(+stored.DescLength, 13);
  EXPECT_EQ(+stored.TextValueLength, 4);
  EXPECT_EQ(stored.Unused1, 0);
  EXPECT_EQ(+stored.Length, 36 + stored.DVLength + stored.ITLength + stored.IVLength + 4 + 13 + 4);
  EXPECT_EQ(RecordAt(composite_, 1).substr(stored.Length - 21u), "Namea descriptionkeys");

  uint32_t bytes = 0;
  int32_t cdtype = KVCDTYPE_FIELD;
  ASSERT_EQ(KVCDRecordGetInfo(composite_, 1, &cdtype, &bytes), KVSUCCESS);
  std::string copy(bytes + 1, '#');
  KVCDFIELD back{};
  back.buffer = copy.data();
  ASSERT_EQ(KVCDRecordFetch(composite_, 1, &cdtype, &back), KVSUCCESS);
  EXPECT_EQ(+back.type, KVTYPE_NUMBER);
  EXPECT_EQ(+back.field_flags, 0x3d3fu);
  EXPECT_EQ(+back.format.number.decimal_digits, 1u);
  const uint32_t texts =
      back.default_formula_length + back.input_trans_formula_length + back.input_valid_formula_length;
  EXPECT_EQ(texts + 21, bytes);
  EXPECT_EQ(copy.substr(0, back.default_formula_length), "1 + 2");
  EXPECT_EQ(copy.substr(back.default_formula_length, back.input_trans_formula_length), "@Trim(Name)");
  EXPECT_EQ(copy.substr(texts), "Namea descriptionkeys#");  // no NUL behind
  KVCDFIELD again = back;
  ASSERT_EQ(Insert(&again), KVSUCCESS);
  EXPECT_EQ(RecordAt(composite_, 2), RecordAt(composite_, 1));
}

TEST_F(FieldRecordTest, KVCDRecordGetPointer_Field_CompiledAsStored) {
  KVCDFIELD field = Field(kParts, &buffer_);
  ASSERT_EQ(Insert(&field), KVSUCCESS);
  const CDFIELD stored = Stored();
  KVCDFIELD back{};
  kit::Spy spy;
  ASSERT_EQ(KVCDRecordGetPointer(composite_, 1, nullptr, &back), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngFormulaDecompile"), 0u);
  EXPECT_EQ(+back.default_formula_length, stored.DVLength);
  EXPECT_EQ(+back.input_trans_formula_length, stored.ITLength);
  EXPECT_EQ(+back.input_valid_formula_length, stored.IVLength);
  EXPECT_EQ(std::string(back.buffer + stored.DVLength + stored.ITLength + stored.IVLength, 4), "Name");
  back = {};
  EXPECT_EQ(KVCDRecordFetch(composite_, 1, nullptr, &back), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(+back.default_formula_length, stored.DVLength);
  EXPECT_EQ(+back.field_name_length, 4u);
}

// A listing sizes each record it passes, formulas included; one that cannot be told ends the call, not the
// listing.
TEST_F(FieldRecordTest, KVCDRecordList_FormulaCannotBeTold_ItsStatusThenTheNextRecord) {
  KVCDFIELD field = Field(kParts, &buffer_);
  ASSERT_EQ(Insert(&field), KVSUCCESS);
  ASSERT_EQ(InsertText(composite_, "behind"), KVSUCCESS);
  uint32_t index = 9;
  const kit::MemoryState before = kit::Memory();
  for (uint32_t nth = 1; nth <= 3; ++nth) {
    kit::Fault fault = kit::Fault::EngineCall(nth, kvdoc::kEngineFailure, "EngFormulaDecompile");
    EXPECT_EQ(List(composite_, KVLIST_FIRST, &index), kvdoc::kEngineFailure) << nth;
    ExpectError(kvdoc::kEngineFailure);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(kit::Memory().blocks, before.blocks);
  }
  EXPECT_EQ(Listed(composite_, KVLIST_NEXT), 2u);
  kit::Spy spy;
  EXPECT_EQ(KVCDRecordFetch(composite_, 1, nullptr, nullptr), KVSUCCESS);  // no record to fill: sized too
  EXPECT_EQ(spy.Count("EngFormulaDecompile"), 3u);
}

TEST_F(FieldRecordTest, Field_Keywords_StoredBitsAndTheirReading) {
  struct Case {
    int32_t keywords;
    uint16_t bits;
    int32_t back;
  };
  for (const Case& each :
       {Case{0, 0, 0}, Case{1, 0xc200, 3}, Case{2, 0x200, 2}, Case{3, 0x4200, 3}, Case{4, 0x8200, 2}}) {
    KVCDFIELD field = Field(kParts, &buffer_);
    field.keywords = each.keywords;
    field.field_flags = 0;
    ASSERT_EQ(Insert(&field), KVSUCCESS);
    EXPECT_EQ(Stored().Flags, each.bits | 0x80);
    KVCDFIELD back{};
    ASSERT_EQ(KVCDRecordGetPointer(composite_, Last(), nullptr, &back), KVSUCCESS);
    EXPECT_EQ(+back.keywords, each.back);
  }
}

TEST_F(FieldRecordTest, Field_Refused_StatusesInOrder) {
  const auto status_of = [&](std::vector<std::string> parts, auto change) {
    KVCDFIELD field = Field(parts, &buffer_);
    change(&field);
    return Insert(&field);
  };
  const auto same = [](KVCDFIELD*) {};
  std::vector<std::string> parts = kParts;
  parts[3] = "";
  EXPECT_EQ(status_of(parts, same), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(status_of(kParts, [](KVCDFIELD* field) { field->buffer = nullptr; }), KVFAIL_BAD_FORMAT);
  parts[3] = "a b";
  EXPECT_EQ(status_of(parts, [](KVCDFIELD* field) { field->keywords = 5; }), KVFAIL_BAD_FIELD_NAME);
  session_->kvprog_version = 0x3ffff;
  EXPECT_EQ(status_of(parts, same), KVFAIL_NO_FIELD);
  session_->kvprog_version = 0x40106;
  parts[3] = std::string(65, 'n');
  EXPECT_EQ(status_of(parts, same), KVFAIL_BAD_FIELD_NAME);
  EXPECT_EQ(status_of(kParts, [](KVCDFIELD* field) { field->keywords = 5; }), KVFAIL_BAD_ENUM);
  EXPECT_EQ(status_of(kParts, [](KVCDFIELD* field) { field->keywords = -1; }), KVFAIL_BAD_ENUM);
  EXPECT_EQ(status_of(kParts, [](KVCDFIELD* field) { field->type = 9; }), KVFAIL_BAD_ENUM);
  EXPECT_EQ(status_of(kParts, [](KVCDFIELD* field) { field->format.number.number = 9; }), KVFAIL_BAD_ENUM);
  parts = kParts;
  parts[2] = "1 + ) 2";
  EXPECT_EQ(status_of(parts, [](KVCDFIELD* field) { field->type = 9; }), KVFAIL_FORMULA);
  parts = kParts;
  parts[5] = std::string(65535 - 36 - 4 - 13, 'k');
  EXPECT_EQ(status_of(parts, same), KVFAIL_DATA_TOO_LONG);  // with its formulas
  parts[5] += "k";
  EXPECT_EQ(status_of(parts, same), KVFAIL_DATA_TOO_LONG);
  parts = {std::string(70000, '1'), "", "", "Name", "", ""};
  EXPECT_EQ(status_of(parts, same), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(KVCDRecordGetCount(composite_), 0u);
}

TEST_F(FieldRecordTest, Field_BadFormula_ErrorTextAndNothingLeft) {
  for (size_t bad = 0; bad < 3; ++bad) {
    std::vector<std::string> parts = kParts;
    parts[bad] = "1 + ) 2";
    KVCDFIELD field = Field(parts, &buffer_);
    const kit::MemoryState before = kit::Memory();
    EXPECT_EQ(Insert(&field), KVFAIL_FORMULA);
    EXPECT_NE(kit::LastError().message.find(')'), std::string::npos) << kit::LastError().message;
    EXPECT_EQ(kit::Memory().blocks, before.blocks);
    EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
  }
}

TEST_F(FieldRecordTest, Field_EachFault_NothingLeftNothingChanged) {
  for (const bool is_allocation : {true, false})
    for (uint32_t nth = 1;; ++nth) {
      ASSERT_LT(nth, 100u);
      const uint32_t composite = Create();
      KVCDFIELD field = Field(kParts, &buffer_);
      const kit::MemoryState before = kit::Memory();
      kit::Fault fault =
          is_allocation ? kit::Fault::Allocation(nth) : kit::Fault::EngineCall(nth, kvdoc::kEngineFailure);
      const uint32_t status = KVCDRecordInsert(composite, 0, KVCDTYPE_FIELD, &field);
      fault.Disarm();
      if (status != KVSUCCESS) {
        EXPECT_EQ(CompOf(composite)->nodelist, nullptr);
        EXPECT_EQ(kit::Memory().blocks, before.blocks) << fault.hit_name();
        EXPECT_EQ(kit::Memory().heap_blocks, before.heap_blocks);
      }
      EXPECT_EQ(KVCompositeClose(composite, 0), KVSUCCESS);
      if (!fault.Hit()) break;
    }
}

TEST_F(FieldRecordTest, OlderForm_Fetched_NoKeywordsStoredAgainAsTheLaterForm) {
  const std::string older = WordRecord(kCdFieldPre36, Word(0x200) + Word(0x500) + Word(0x200e) + Long(0) +
                                                          Long(0) + Long(0x0a000001) + Word(0) + Word(0) +
                                                          Word(0) + Word(0) + Word(3) + Word(4) + "Oldtext");
  ASSERT_EQ(InsertRaw(composite_, older), KVSUCCESS);
  uint32_t bytes = 0;
  int32_t cdtype = 0;
  ASSERT_EQ(KVCDRecordGetInfo(composite_, 1, &cdtype, &bytes), KVSUCCESS);
  EXPECT_EQ(cdtype, KVCDTYPE_FIELD);
  EXPECT_EQ(bytes, 7u);
  char buffer[8] = {};
  KVCDFIELD field{};
  field.buffer = buffer;
  ASSERT_EQ(KVCDRecordFetch(composite_, 1, &cdtype, &field), KVSUCCESS);
  EXPECT_EQ(+field.field_keywords_length, 0u);
  EXPECT_EQ(+field.field_name_length, 3u);
  EXPECT_STREQ(buffer, "Oldtext");
  ASSERT_EQ(Insert(&field), KVSUCCESS);
  EXPECT_EQ(Stored().Signature, kCdField);
  EXPECT_EQ(Stored().TextValueLength, 0);
}

TEST_F(FieldRecordTest, Read_LengthsThatPassTheRecord_BadFormat) {
  KVCDFIELD field = Field(kParts, &buffer_);
  ASSERT_EQ(Insert(&field), KVSUCCESS);
  const std::string good = RecordAt(composite_, 1);
  for (const size_t offset : {22u, 24u, 28u, 30u, 32u, 34u})
    for (const uint16_t length : {uint16_t{200}, uint16_t{0xffff}}) {
      std::string bad = good;
      KVIStore<uint16_t>(bad.data() + offset, length);
      ASSERT_EQ(UpdateRaw(composite_, bad, 1), KVSUCCESS);
      KVCDFIELD back{};
      EXPECT_EQ(KVCDRecordGetPointer(composite_, 1, nullptr, &back), KVFAIL_BAD_FORMAT) << offset;
      uint32_t bytes = 0;
      EXPECT_EQ(KVCDRecordGetInfo(composite_, 1, nullptr, &bytes), KVFAIL_BAD_FORMAT);
    }
  for (const uint16_t length : {uint16_t{1}, uint16_t{0}, uint16_t{0xffff}}) {  // the formula's own length
    std::string bad = good;
    KVIStore<uint16_t>(bad.data() + 36, length);
    ASSERT_EQ(UpdateRaw(composite_, bad, 1), KVSUCCESS);
    uint32_t bytes = 0;
    EXPECT_NE(KVCDRecordGetInfo(composite_, 1, nullptr, &bytes), KVSUCCESS) << length;
    uint32_t index = 0;
    EXPECT_NE(List(composite_, KVLIST_FIRST, &index), KVSUCCESS) << length;
    EXPECT_EQ(index, 0u);
  }
}

}  // namespace
