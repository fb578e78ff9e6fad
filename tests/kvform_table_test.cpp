// Slots that a form record needs, and the items that name its fields.
#include "kvform_world.h"

namespace {

using kit::Answer;
using kvform::FormBuilder;
using kvform::FormField;
using kvform::FormTest;
using kvform::Named;

constexpr uint16_t kEngineFailure = 0x1f7;

class TableTest : public FormTest {
 protected:
  void SetUp() override {
    FormTest::SetUp();
    ASSERT_EQ(EngNoteCreate(EngineDatabase(), &note_), 0);
  }
  void TearDown() override {
    EXPECT_EQ(EngNoteClose(note_), 0);
    FormTest::TearDown();
  }
  uint32_t Size(const FormBuilder& builder, uint32_t expected_status = KVSUCCESS) {
    EXPECT_EQ(EngNoteClose(note_), 0);
    EXPECT_EQ(EngNoteCreate(EngineDatabase(), &note_), 0);
    builder.AppendTo(note_);
    uint32_t count = 77;
    EXPECT_EQ(KVIFormNoteSizeofFieldTable(note_, &count), expected_status);
    return count;
  }
  uint32_t Append(const FormBuilder& builder) {
    EXPECT_EQ(EngNoteClose(note_), 0);
    EXPECT_EQ(EngNoteCreate(EngineDatabase(), &note_), 0);
    builder.AppendTo(note_);
    return _KVIFormNoteAppendFieldNameTables(session_, note_);
  }
  std::vector<std::string> Fields() const {
    std::vector<std::string> names;
    for (uint16_t entry = 0; entry < EngItemTextListCount(note_, "$Fields"); ++entry) {
      char name[300];
      names.emplace_back(name, EngItemTextListEntry(note_, "$Fields", entry, name, sizeof name));
    }
    return names;
  }
  EngNote note_ = 0;
};

TEST_F(TableTest, KVIFormNoteSizeofFieldTable_Pages_Slots) {
  EXPECT_EQ(Size(Form("x")), 0u);
  EXPECT_EQ(Size(Form("x").Text("t").Field(Named("A")).NextItem().Field(Named("B"))), 2u);
  FormField old = Named("O");
  old.signature = kit::kOldFieldRecord;
  EXPECT_EQ(Size(Form("x").Field(old)), 1u);
  EXPECT_EQ(Size(Form("x").Field(Named("A")).UseSubform("P")), 2u);
  EXPECT_EQ(Size(Form("x").SubformBegin("P").Field(Named("In")).End().Field(Named("B"))), 2u);
  EXPECT_EQ(Size(Form("x").SubformBegin("P", 0x10).Field(Named("In")).End()), 1u);
  EXPECT_EQ(Size(Form("x").Subform().SubformBegin("P").Field(Named("In")).End()), 1u);
  EXPECT_EQ(Size(Form("x").Record(kit::HotspotBytes(kit::kHotspotRecord, 13, 0, "")).Field(Named("A"))), 1u);
  EXPECT_EQ(Size(Form("x").SubformBegin("P").SubformBegin("Q").End().UseSubform("R")), 2u)
      << "the first end ends it";
}

TEST_F(TableTest, KVIFormNoteSizeofFieldTable_NoBody_NotFoundAndZero) {
  EXPECT_EQ(Size(Form("x").NoBody(), KVFAIL_NOT_FOUND), 0u);
}

TEST_F(TableTest, KVIFormNoteSizeofFieldTable_Damaged_BadFormatAndZero) {
  EXPECT_EQ(Size(Form("x").Field(Named("A")).RawBody("z"), KVFAIL_BAD_FORMAT), 0u);
}

TEST_F(TableTest, KVIFormNoteSizeofFieldTable_EngineFails_ThatStatus) {
  const Answer answer("EngItemInfoNext", kEngineFailure);
  EXPECT_EQ(Size(Form("x").Field(Named("A")), kEngineFailure), 0u);
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_Fields_ListAndPlaceholders) {
  ASSERT_EQ(Append(Form("x").Field(Named("One")).Text("t").NextItem().Field(Named("Two"))), KVSUCCESS);
  EXPECT_EQ(Fields(), (std::vector<std::string>{"One", "Two"}));
  for (const char* name : {"One", "Two"}) {
    const auto items = kvdoc::ItemsOf(note_, name);
    ASSERT_EQ(items.size(), 1u) << name;
    EXPECT_EQ(items[0].flags, 0x100u);
    EXPECT_EQ(items[0].type, 0u);
    EXPECT_EQ(items[0].bytes, "");
  }
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_OldRecord_NameShiftedByTwo) {
  FormField old = Named("Shifted");
  old.signature = kit::kOldFieldRecord;
  old.description = "xy";
  ASSERT_EQ(Append(Form("x").Field(old)), KVSUCCESS);
  EXPECT_EQ(Fields(), std::vector<std::string>{"iftedxy"});
  old.description = "";
  EXPECT_EQ(Append(Form("x").Field(old)), KVFAIL_BAD_FORMAT) << "past the end of the item";
  old.name = "Shiftd";
  ASSERT_EQ(Append(Form("x").Field(old).Text("t")), KVSUCCESS);
  EXPECT_EQ(Fields(), std::vector<std::string>{"iftd" + kit::TextBytes("t").substr(0, 2)})
      << "two bytes of what follows";
  EXPECT_EQ(Append(Form("x").Field(old).NextItem().Text("t")), KVFAIL_BAD_FORMAT);
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_NameTwice_DuplicateField) {
  const FormBuilder twice = Form("x").Field(Named("One")).Field(Named("ONE")).Field(Named("Two"));
  EXPECT_EQ(Append(twice), KVFAIL_DUPLICATE_FIELD);
  EXPECT_EQ(Fields().size(), 3u) << "all names are listed before the first is compared";
  EXPECT_TRUE(kvdoc::ItemsOf(note_, "Two").empty()) << "the clash ends it";
  SetVersion(0x20324);
  EXPECT_EQ(Append(twice), KVFAIL_NO_FIELD);
  SetVersion(0x20325);
  EXPECT_EQ(Append(twice), KVFAIL_DUPLICATE_FIELD);
  SetVersion(KVAPI_VERSION);
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_NameOfADesignItem_DuplicateField) {
  for (const char* name : {"$Body", "$title", "$Fields", "$Info"})
    EXPECT_EQ(Append(Form("x").Field(Named(name))), KVFAIL_DUPLICATE_FIELD) << name;
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_NoBody_NotFound) {
  EXPECT_EQ(Append(Form("x").NoBody()), KVFAIL_NOT_FOUND);
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_NoFields_NoItems) {
  EXPECT_EQ(Append(Form("x").Text("t")), KVSUCCESS);
  EXPECT_TRUE(Fields().empty());
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_DamagedOrBadName_Status) {
  EXPECT_EQ(Append(Form("x").Field(Named("A")).RawBody("z")), KVFAIL_BAD_FORMAT);
  std::string record = kit::FieldBytes(Named("Field"));
  record[30] = '\x40';
  EXPECT_EQ(Append(Form("x").Record(record)), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(Append(Form("x").Field(Named(""))) & 0xff00, 0x0200u) << "an item needs a name";
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_NameOf65Characters_PlaceholderOf64) {
  ASSERT_EQ(Append(Form("x").Field(Named(std::string(65, 'n')))), KVSUCCESS);
  EXPECT_EQ(kvdoc::ItemsOf(note_, std::string(64, 'n')).size(), 1u);
}

TEST_F(TableTest, _KVIFormNoteAppendFieldNameTables_EngineFails_ThatStatus) {
  for (const char* call : {"EngItemTextListAppend", "EngItemAppend", "EngItemInfoNext"}) {
    const FormBuilder builder = Form("x").Field(Named("A"));
    EXPECT_EQ(EngNoteClose(note_), 0);
    EXPECT_EQ(EngNoteCreate(EngineDatabase(), &note_), 0);
    builder.AppendTo(note_);
    const Answer answer(call, kEngineFailure);
    EXPECT_EQ(_KVIFormNoteAppendFieldNameTables(session_, note_), kEngineFailure) << call;
  }
}

}  // namespace
