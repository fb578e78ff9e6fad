// New forms and subforms: what is refused, what is stored, and that it reads back.
#include "kvform_world.h"

namespace {

using kit::Answer;
using kit::Spy;
using kvdoc::NoteItem;
using kvform::FormField;
using kvform::FormTest;
using kvform::Named;

constexpr uint16_t kEngineFailure = 0x1f7;

void Put(char* target, const std::string& text) { std::memcpy(target, text.c_str(), text.size() + 1); }

KVFORM NamedForm(const std::string& name, const std::string& menu = "", const std::string& cascade = "") {
  KVFORM form = KVFORM_DEFAULT;
  Put(form.name, name);
  Put(form.menu_name, menu);
  Put(form.cascade_name, cascade);
  return form;
}

KVSUBFORM NamedSubform(const std::string& name, const std::string& menu = "") {
  KVSUBFORM subform{};
  Put(subform.name, name);
  Put(subform.menu_name, menu);
  return subform;
}

class CreateTest : public FormTest {
 protected:
  void SetUp() override {
    FormTest::SetUp();
    page_ = Page(FieldsPage({Named("Subject"), Named("Count", BRTYPE_NUMBER)}));
  }
  uint32_t Create(const KVFORM& form, uint32_t page, uint32_t* formid = nullptr) const {
    return KVFormCreate(database_, &form, page, formid);
  }
  uint32_t Made(const KVFORM& form) const {
    uint32_t formid = 0;
    EXPECT_EQ(Create(form, page_, &formid), KVSUCCESS);
    EXPECT_NE(formid, 0u);
    return formid;
  }
  uint32_t MadeSubform(const KVSUBFORM& subform) const {
    uint32_t subformid = 0;
    EXPECT_EQ(KVSubformCreate(database_, &subform, page_, &subformid), KVSUCCESS);
    return subformid;
  }
  std::string Bytes(uint32_t id, const std::string& name) const {
    const std::vector<NoteItem> items = StoredItems(id, name);
    EXPECT_EQ(items.size(), 1u) << name;
    return items.empty() ? "" : items[0].bytes;
  }
  uint32_t page_ = 0;
};

// ---- What is stored

TEST_F(CreateTest, KVFormCreate_WholeForm_EachItemStored) {
  KVFORM form = NamedForm("Name", "Menu", "Cascade");
  form.form_flags = 0xffffffff & ~uint32_t{KVFORM_HIDDEN};
  form.type = 1;
  form.update = 2;
  form.update_trigger = 2;
  form.on_conflict = 1;
  form.formopen_flags = 6;
  form.background_color = 0x00051234;
  std::string title = "\"T: \" + Subject";
  form.window_title_formula = title.data();
  const uint32_t id = Made(form);
  EXPECT_EQ(Bytes(id, "$TITLE"), kvdoc::TextList({"Menu\\Cascade", "Name"}));
  std::string info("\x86\x18", 2);
  for (const uint16_t word : {0x1234, 0xbffb, 0, 0x0970, 0, 0, 0, 0, 0, 0, 0}) {
    info.push_back(static_cast<char>(word & 0xff));
    info.push_back(static_cast<char>(word >> 8));
  }
  EXPECT_EQ(Bytes(id, "$Info"), info);
  EXPECT_EQ(StoredItems(id, "$Info")[0].type, BRTYPE_COMPOSITE);
  EXPECT_EQ(Bytes(id, "$WindowTitle"), kit::CompiledFormula(title));
  EXPECT_EQ(StoredItems(id, "$WindowTitle")[0].type, BRTYPE_FORMULA);
  EXPECT_EQ(Bytes(id, "$Body"), FieldsPage({Named("Subject"), Named("Count", BRTYPE_NUMBER)}));
  EXPECT_EQ(Bytes(id, "$Flags"), "D");
  EXPECT_EQ(Bytes(id, "$ConflictAction"), "1");
  EXPECT_EQ(Bytes(id, "$Fields"), kvdoc::TextList({"Subject", "Count"}));
  EXPECT_EQ(StoredItems(id, "Subject")[0].flags, 0x100u);
  EngNote note = 0;
  uint16_t note_class = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), id, 0, &note), 0);
  EXPECT_EQ(EngNoteInfoGet(note, 3, &note_class), 0);
  EXPECT_EQ(EngNoteClose(note), 0);
  EXPECT_EQ(note_class, BRCLASS_FORM);
}

TEST_F(CreateTest, KVFormCreate_WholeForm_ReadsBack) {
  KVFORM form = NamedForm("Name", "Menu", "Cascade");
  form.form_flags = KVFORM_STORE_IN_DOCUMENT | KVFORM_FLAG_D | KVFORM_ANONYMOUS;
  form.type = 2;
  form.update = 3;
  form.update_trigger = 1;
  form.formopen_flags = 3;
  form.background_color = 9;
  const uint32_t id = Made(form);
  KVFORM back;
  ASSERT_EQ(KVFormFetch(database_, id, &back), KVSUCCESS);
  EXPECT_EQ(back.form_flags, form.form_flags);
  EXPECT_EQ(back.type, 2);
  EXPECT_EQ(back.update, 3);
  EXPECT_EQ(back.update_trigger, 1);
  EXPECT_EQ(back.on_conflict, 0);
  EXPECT_EQ(back.formopen_flags, 3u);
  EXPECT_EQ(back.background_color, 9u);
  EXPECT_STREQ(back.name, "Name");
  EXPECT_STREQ(back.menu_name, "Menu");
  EXPECT_STREQ(back.cascade_name, "Cascade");
  EXPECT_EQ(KVFormLocateByName(database_, "name"), id);
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"Subject", "Count"}));
}

TEST_F(CreateTest, KVFormCreate_UpdateZero_TriggerUntouched) {
  KVFORM form = NamedForm("Name");
  form.update = 0;
  form.update_trigger = 2;
  const uint32_t id = Made(form);
  EXPECT_EQ(KVILoad<uint16_t>(Bytes(id, "$Info").data() + 8) & 0x40, 0);
  KVFORM back;
  ASSERT_EQ(KVFormFetch(database_, id, &back), KVSUCCESS);
  EXPECT_EQ(back.update_trigger, 0);
}

TEST_F(CreateTest, KVFormCreate_NoFlags_LettersAreOneNul) {
  const uint32_t id = Made(NamedForm("Name"));
  EXPECT_EQ(Bytes(id, "$Flags"), std::string(1, 0));
  EXPECT_TRUE(StoredItems(id, "$ConflictAction").empty());
  EXPECT_TRUE(StoredItems(id, "$WindowTitle").empty());
  EXPECT_EQ(Bytes(id, "$TITLE"), "Name");
}

TEST_F(CreateTest, KVFormCreate_Hidden_LetterAndTitleInParentheses) {
  KVFORM form = NamedForm("Name", "Menu");
  form.form_flags = KVFORM_HIDDEN;
  const uint32_t id = Made(form);
  EXPECT_EQ(Bytes(id, "$Flags"), "C");
  EXPECT_EQ(Bytes(id, "$TITLE"), kvdoc::TextList({"(Menu)", "Name"}));
  EXPECT_EQ(SpecOf(id)->hidden, 1);
  EXPECT_STREQ(SpecOf(id)->menu_name, "Menu");
}

TEST_F(CreateTest, KVFormCreate_PageMadeByRecords_FieldsWithFormulas) {
  const uint32_t document = New();
  uint32_t page = 0;
  ASSERT_EQ(KVCompositeCreate(document, "Design", &page), KVSUCCESS);
  KVCDFIELD field = KVCDFIELD_DEFAULT;
  std::string texts = "1 + 1Total";
  field.type = KVTYPE_NUMBER;
  field.default_formula_length = 5;
  field.field_name_length = 5;
  field.buffer = texts.data();
  ASSERT_EQ(KVCDRecordInsert(page, 0, KVCDTYPE_FIELD, &field), KVSUCCESS);
  uint32_t id = 0;
  ASSERT_EQ(Create(NamedForm("Made"), page, &id), KVSUCCESS);
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  KVFIELD back;
  ASSERT_EQ(KVFieldFetch(database_, id, "Total", &back), KVSUCCESS);
  EXPECT_EQ(back.type, KVTYPE_NUMBER);
  EXPECT_EQ(kit::CompiledFormula(back.default_value_formula), kit::CompiledFormula("1 + 1"));
  // The page is still to be stored where it belongs.
  int32_t dirty = 0;
  ASSERT_EQ(KVCompositeGetProperty(page, KVPROP_COMPOSITE_DIRTY, &dirty), KVSUCCESS);
  EXPECT_EQ(dirty, 1);
  ASSERT_EQ(KVCompositeClose(page, 0), KVSUCCESS);
  EXPECT_EQ(kvdoc::ItemsOf(NoteOf(document), "Design").size(), 1u);
  EXPECT_TRUE(kvdoc::ItemsOf(NoteOf(document), "$Body").empty());
}

TEST_F(CreateTest, KVFormCreate_PageOfAnotherForm_FieldsCopied) {
  const uint32_t id = Made(NamedForm("First"));
  Set(KVPROP_DB_DOCOPEN_DESIGN, 1);
  const uint32_t document = Open(id);
  uint32_t page = 0;
  ASSERT_EQ(KVCompositeOpen(document, "$Body", &page), KVSUCCESS);
  uint32_t second = 0;
  ASSERT_EQ(Create(NamedForm("Second"), page, &second), KVSUCCESS);
  EXPECT_EQ(Bytes(second, "$Body"), Bytes(id, "$Body"));
}

TEST_F(CreateTest, KVFormCreate_LargePage_SeveralItemsAllFields) {
  std::vector<FormField> fields;
  for (int i = 0; i < 700; ++i) {
    FormField field = Named("Field" + std::to_string(i));
    field.description = std::string(60, 'd');
    fields.push_back(field);
  }
  const uint32_t document = New();
  uint32_t page = 0;
  ASSERT_EQ(KVCompositeCreate(document, "", &page), KVSUCCESS);
  for (const FormField& field : fields) {
    std::string bytes = kit::FieldBytes(field);
    KVCDUNKNOWN record{static_cast<uint32_t>(bytes.size()), kit::kFieldRecord, bytes.data()};
    ASSERT_EQ(KVCDRecordInsert(page, 0, KVCDTYPE_UNKNOWN, &record), KVSUCCESS);
  }
  uint32_t id = 0;
  ASSERT_EQ(Create(NamedForm("Large"), page, &id), KVSUCCESS);
  EXPECT_GT(StoredItems(id, "$Body").size(), 1u);
  EXPECT_EQ(KVFieldGetCount(database_, id), 700u);
  EXPECT_EQ(FieldNames(id).back(), "Field699");
}

// ---- What is refused

TEST_F(CreateTest, KVFormCreate_BadArguments_StatusesInOrder) {
  const KVFORM form = NamedForm("Name");
  uint32_t id = 77;
  EXPECT_EQ(KVFormCreate(0, nullptr, page_, &id), KVFAIL_NULL_PARAM);
  EXPECT_EQ(id, 77u);
  EXPECT_EQ(KVFormCreate(0, &form, page_, &id), KVFAIL_NO_DATABASE);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(Create(form, page_, nullptr), KVSUCCESS);
  id = 77;
  EXPECT_EQ(Create(form, page_, &id), KVFAIL_NAME_IN_USE);
  EXPECT_EQ(id, 0u);
  ExpectError(KVFAIL_NAME_IN_USE);
}

TEST_F(CreateTest, KVFormCreate_BadNames_StatusAndNothingStored) {
  struct NameRow {
    KVFORM form;
    uint32_t status;
  };
  const NameRow rows[] = {
      {NamedForm(""), KVFAIL_BAD_FORMAT},
      {NamedForm("A", "", "C"), KVFAIL_BAD_FORMAT},
      {NamedForm("A", "M(x"), KVFAIL_BAD_FORMAT},
      {NamedForm("(A"), KVFAIL_BAD_FORMAT},
      {NamedForm("A", std::string(64, 'm'), std::string(64, 'c')), KVFAIL_DATA_TOO_LONG},
  };
  for (const NameRow& row : rows) EXPECT_EQ(Create(row.form, page_), row.status) << row.form.name;
  KVFORM endless = NamedForm("A");
  std::memset(endless.name, 'n', sizeof endless.name);
  EXPECT_EQ(Create(endless, page_), KVFAIL_DATA_TOO_LONG) << "a name without an end";
  endless = NamedForm("A");
  std::memset(endless.cascade_name, 'n', sizeof endless.cascade_name);
  std::memset(endless.menu_name, 'n', sizeof endless.menu_name);
  EXPECT_EQ(Create(endless, page_), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_EnumerationsPastTheEnd_BadEnum) {
  const auto with = [&](int32_t KVFORM::*member, int32_t value) {
    KVFORM form = NamedForm("Name");
    form.*member = value;
    return Create(form, page_);
  };
  for (const int32_t wrong : {3, -1}) EXPECT_EQ(with(&KVFORM::type, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {4, -1}) EXPECT_EQ(with(&KVFORM::update, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {3, -1}) EXPECT_EQ(with(&KVFORM::update_trigger, wrong), KVFAIL_BAD_ENUM);
  for (const int32_t wrong : {2, -1}) EXPECT_EQ(with(&KVFORM::on_conflict, wrong), KVFAIL_BAD_ENUM);
  KVFORM form = NamedForm("");
  form.type = 9;
  EXPECT_EQ(Create(form, page_), KVFAIL_BAD_FORMAT) << "names come first";
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_NameOfASubform_Free) {
  Form("Both").Subform().NoInfo().Store();
  EXPECT_EQ(Create(NamedForm("Both"), page_), KVSUCCESS);
}

TEST_F(CreateTest, KVFormCreate_BadTitleFormula_FormulaErrorNearTheFault) {
  KVFORM form = NamedForm("Name");
  std::string title = "Subject + + )";
  form.window_title_formula = title.data();
  uint32_t id = 77;
  EXPECT_EQ(Create(form, page_, &id), KVFAIL_FORMULA);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(kit::LastError().status, KVFAIL_FORMULA);
  EXPECT_EQ(kit::LastError().message.substr(0, 20), "Formula error near '");
  title = std::string(70000, ' ') + "1";
  form.window_title_formula = title.data();
  EXPECT_EQ(Create(form, page_), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_NoComposite_BadComposite) {
  uint32_t id = 77;
  EXPECT_EQ(Create(NamedForm("Name"), 0, &id), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(Create(NamedForm("Name"), page_ + 100, &id), KVFAIL_BAD_COMPOSITE);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_EmptyPage_NotFound) {
  uint32_t page = 0;
  ASSERT_EQ(KVCompositeCreate(New(), "", &page), KVSUCCESS);
  EXPECT_EQ(Create(NamedForm("Name"), page), KVFAIL_NOT_FOUND);
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_FieldTwice_DuplicateFieldByVersion) {
  const uint32_t page = Page(FieldsPage({Named("A"), Named("a")}));
  EXPECT_EQ(Create(NamedForm("Name"), page), KVFAIL_DUPLICATE_FIELD);
  KVSUBFORM subform = NamedSubform("Part");
  EXPECT_EQ(KVSubformCreate(database_, &subform, page, nullptr), KVFAIL_DUPLICATE_FIELD);
  SetVersion(0x20324);
  EXPECT_EQ(KVSubformCreate(database_, &subform, page, nullptr), KVFAIL_NO_FIELD);
  SetVersion(KVAPI_VERSION);
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVFormCreate_OldProgram_Unsupported) {
  SetVersion(0x3ffff);
  EXPECT_EQ(Create(NamedForm("Name"), page_), KVFAIL_UNSUPPORTED);
  SetVersion(0x40000);
  EXPECT_EQ(Create(NamedForm("Name"), page_), KVSUCCESS);
  SetVersion(KVAPI_VERSION);
  EXPECT_EQ(CountForms(), 1u);
}

TEST_F(CreateTest, KVFormCreate_EachEngineCallFails_StatusAndNothingStored) {
  KVFORM form = NamedForm("Name", "Menu");
  form.on_conflict = 1;
  std::string title = "1";
  form.window_title_formula = title.data();
  for (const char* call : {"EngNoteCreate", "EngNoteInfoSet", "EngItemTextListAppend", "EngItemTextSet",
                           "EngItemAppend", "EngNoteUpdate"}) {
    uint32_t id = 77;
    const Answer answer(call, kEngineFailure);
    EXPECT_EQ(Create(form, page_, &id), kEngineFailure) << call;
    EXPECT_EQ(id, 0u);
  }
  EXPECT_EQ(CountForms(), 0u);
}

// ---- Subforms

TEST_F(CreateTest, KVSubformCreate_WholeSubform_StoredAndReadBack) {
  KVSUBFORM subform = NamedSubform("Part", "Menu");
  subform.subform_flags = 0xffffffff;
  const uint32_t id = MadeSubform(subform);
  EXPECT_EQ(Bytes(id, "$Flags"), "CU3ANx");
  EXPECT_EQ(Bytes(id, "$TITLE"), kvdoc::TextList({"Menu", "Part"}));
  const std::string info = Bytes(id, "$Info");
  EXPECT_EQ(KVILoad<uint16_t>(info.data() + 2), 1u);
  EXPECT_EQ(KVILoad<uint16_t>(info.data() + 4), 0x80u);
  EXPECT_EQ(KVILoad<uint16_t>(info.data() + 8), 0u);
  EXPECT_TRUE(StoredItems(id, "$ConflictAction").empty());
  EXPECT_EQ(Bytes(id, "$Fields"), kvdoc::TextList({"Subject", "Count"}));
  KVSUBFORM back;
  ASSERT_EQ(KVSubformFetch(database_, id, &back), KVSUCCESS);
  EXPECT_EQ(back.subform_flags, 7u);
  EXPECT_STREQ(back.name, "Part");
  EXPECT_STREQ(back.menu_name, "Menu");
  EXPECT_EQ(KVSubformLocateByName(database_, "part"), id);
  EXPECT_EQ(KVFieldGetCount(database_, id), 2u);
}

TEST_F(CreateTest, KVSubformCreate_EachFlag_ItsLetter) {
  const std::pair<uint32_t, const char*> rows[] = {
      {0, "CU3"}, {1, "CU3A"}, {2, "CU3N"}, {4, "CU3x"}, {8, "CU3"}};
  for (const auto& [flags, letters] : rows) {
    KVSUBFORM subform = NamedSubform("Part" + std::to_string(flags));
    subform.subform_flags = flags;
    EXPECT_EQ(Bytes(MadeSubform(subform), "$Flags"), letters);
  }
}

TEST_F(CreateTest, KVSubformCreate_PageWithASubform_NestedAndNothingStored) {
  const KVSUBFORM subform = NamedSubform("Part");
  for (const uint32_t flags : {0u, 0x10u}) {
    const uint32_t page = Page(FieldsPage({Named("A")}) +
                               kit::HotspotBytes(kit::kHotspotRecord, kit::kHotspotSubform, flags, "Name") +
                               kit::HotspotEndBytes());
    uint32_t id = 77;
    EXPECT_EQ(KVSubformCreate(database_, &subform, page, &id), KVFAIL_SUBFORM_NESTED);
    EXPECT_EQ(id, 0u);
    ExpectError(KVFAIL_SUBFORM_NESTED);
    uint32_t form = 0;
    EXPECT_EQ(Create(NamedForm("F" + std::to_string(flags)), page, &form), KVSUCCESS) << "forms may";
    EXPECT_EQ(KVFormDelete(database_, form), KVSUCCESS);
  }
  EXPECT_EQ(CountForms(), 0u);
}

TEST_F(CreateTest, KVSubformCreate_BadArguments_StatusesInOrder) {
  KVSUBFORM subform = NamedSubform("Part");
  uint32_t id = 77;
  EXPECT_EQ(KVSubformCreate(0, nullptr, page_, &id), KVFAIL_NULL_PARAM);
  EXPECT_EQ(id, 77u);
  EXPECT_EQ(KVSubformCreate(0, &subform, page_, &id), KVFAIL_NO_DATABASE);
  EXPECT_EQ(id, 0u);
  EXPECT_EQ(KVSubformCreate(database_, &subform, 0, &id), KVFAIL_BAD_COMPOSITE);
  KVSUBFORM unnamed = NamedSubform("");
  EXPECT_EQ(KVSubformCreate(database_, &unnamed, page_, &id), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(KVSubformCreate(database_, &subform, page_, nullptr), KVSUCCESS);
  EXPECT_EQ(KVSubformCreate(database_, &subform, page_, &id), KVFAIL_NAME_IN_USE);
  Form("Other").Store();
  KVSUBFORM other = NamedSubform("Other");
  EXPECT_EQ(KVSubformCreate(database_, &other, page_, &id), KVSUCCESS) << "a form's name is free";
}

TEST_F(CreateTest, KVSubformCreate_ThenUsedByAForm_FieldsInPlace) {
  MadeSubform(NamedSubform("Part"));
  const uint32_t page = Page(FieldsPage({Named("A")}) +
                             kit::HotspotBytes(kit::kHotspotRecord, kit::kHotspotSubform, 0, "Part") +
                             kit::HotspotEndBytes() + FieldsPage({Named("B")}));
  uint32_t id = 0;
  ASSERT_EQ(Create(NamedForm("F"), page, &id), KVSUCCESS);
  Set(KVPROP_DB_READ_SUBF_FIELDS, 1);
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"A", "Subject", "Count", "B"}));
}

TEST_F(CreateTest, KVFormCreate_EveryAllocationFails_NoMemoryAndNothingStored) {
  KVFORM form = NamedForm("Name", "Menu", "Cascade");
  std::string title = "1";
  form.window_title_formula = title.data();
  for (uint32_t nth = 1;; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    uint32_t id = 77;
    const uint32_t status = Create(form, page_, &id);
    fault.Disarm();
    if (status == KVSUCCESS) {
      EXPECT_NE(id, 0u);
      EXPECT_GT(nth, 5u);
      break;
    }
    EXPECT_EQ(id, 0u);
    EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == 0x107 || status == KVFAIL_FORMULA) << nth;
    EXPECT_EQ(CountForms(), 0u) << nth;
  }
}

}  // namespace
