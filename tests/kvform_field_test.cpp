// Fields: slots from records, shared fields, fields as programs see them, names, fields by number.
#include "kvform_world.h"

namespace {

using kit::Answer;
using kit::Spy;
using kvform::FormBuilder;
using kvform::FormField;
using kvform::FormTest;
using kvform::Named;
using kvform::Plain;

constexpr uint16_t kEngineFailure = 0x1f7;

std::string Held(const char* bytes, size_t count) {
  return bytes == nullptr ? "" : std::string(bytes, count);
}

FormField WholeField() {
  FormField field = Named("Whole", BRTYPE_NUMBER, 0x2 | kit::kFieldFlagKeywords | 0xc000);
  field.default_formula = "1 + 1";
  field.translation_formula = "Whole * 2";
  field.validation_formula = "@If(Whole > 0; @Success; @Failure(\"no\"))";
  field.description = "A description";
  field.keywords = {"one", "", "three"};
  field.number_format = {2, 1, 4, 0};
  field.time_format = {1, 1, 2, 3};
  field.list_delimiters = 0x4009;
  field.font = 0x0c030201;
  return field;
}

// ---- Slots

TEST_F(FormTest, KVIFieldGetSpec_WholeRecord_EveryMember) {
  const FormField field = WholeField();
  const std::string record = kit::FieldBytes(field);
  _FORMSPEC form{};
  FIELDSPEC slot;
  ASSERT_EQ(KVIFieldGetSpec(Base(), kit::kFieldRecord, record.data(), static_cast<uint32_t>(record.size()),
                            &form, &slot),
            KVSUCCESS);
  EXPECT_EQ(slot.psubform, nullptr);
  EXPECT_STREQ(slot.name, "Whole");
  EXPECT_EQ(slot.namelen, 5u);
  EXPECT_EQ(slot.type, KVTYPE_NUMBER);
  EXPECT_EQ(slot.flags, 0xc202u);
  EXPECT_EQ(slot.font.face, 1u);
  EXPECT_EQ(slot.font.size, 12u);
  EXPECT_EQ(slot.format.nfmt.Digits, 2u);
  EXPECT_EQ(slot.format.tfmt.Structure, 3u);
  EXPECT_EQ(slot.format.listsep, 0x4009u);
  EXPECT_EQ(slot.format.item_flags, 0u);
  EXPECT_STREQ(slot.description, "A description");
  EXPECT_EQ(slot.desclen, 13u);
  const std::string keywords = kit::TextListBytes(field.keywords);
  EXPECT_EQ(slot.keylen, keywords.size());
  EXPECT_EQ(Held(reinterpret_cast<const char*>(slot.keywords), slot.keylen), keywords);
  const std::string code = kit::CompiledFormula(field.default_formula);
  EXPECT_EQ(Held(slot.dvformula, code.size()), code);
  const std::string translation = kit::CompiledFormula(field.translation_formula);
  EXPECT_EQ(Held(slot.itformula, translation.size()), translation);
  const std::string validation = kit::CompiledFormula(field.validation_formula);
  EXPECT_EQ(Held(slot.ivformula, validation.size()), validation);
  EXPECT_EQ(slot.dvformula_string, nullptr);
  ClearField(&slot);
  EXPECT_EQ(slot.name, nullptr) << "cleared whole";
}

TEST_F(FormTest, KVIFieldGetSpec_EachItemFlag_FromItsFieldFlag) {
  const std::pair<uint16_t, uint16_t> rows[] = {{0x0001, 0x0020}, {0x0004, 0x0040}, {0x0010, 0x0400},
                                                {0x0400, 0x0200}, {0x1000, 0x0001}, {0x2000, 0x0002},
                                                {0x3415, 0x0663}, {0x0302, 0x0000}};
  for (const auto& [flags, item_flags] : rows) {
    const std::string record = kit::FieldBytes(Named("F", BRTYPE_TEXT, flags));
    _FORMSPEC form{};
    FIELDSPEC slot;
    ASSERT_EQ(KVIFieldGetSpec(Base(), kit::kFieldRecord, record.data(), static_cast<uint32_t>(record.size()),
                              &form, &slot),
              KVSUCCESS);
    EXPECT_EQ(slot.format.item_flags, item_flags) << flags;
    ClearField(&slot);
  }
}

TEST_F(FormTest, KVIFieldGetSpec_EachType_PublicType) {
  const std::pair<uint16_t, int32_t> rows[] = {{BRTYPE_TEXT, KVTYPE_TEXT},
                                               {BRTYPE_TEXT_LIST, KVTYPE_TEXTLIST},
                                               {BRTYPE_NUMBER, KVTYPE_NUMBER},
                                               {BRTYPE_NUMBER_RANGE, KVTYPE_NUMBERLIST},
                                               {BRTYPE_TIME, KVTYPE_DATETIME},
                                               {BRTYPE_TIME_RANGE, KVTYPE_DATETIMELIST},
                                               {BRTYPE_COMPOSITE, KVTYPE_COMPOSITE},
                                               {BRTYPE_FORMULA, KVTYPE_FORMULA},
                                               {0x1234, KVTYPE_NONE}};
  for (const auto& [word, type] : rows) {
    const uint32_t id = Form("T" + std::to_string(word)).Field(Named("F", word)).Store();
    EXPECT_EQ(SpecOf(id)->fieldlist[0].type, type) << word;
  }
}

TEST_F(FormTest, KVIFieldGetSpec_UserType_EditorsFlagForced) {
  const uint32_t id = Form("U").Field(Named("F", BRTYPE_USER)).Store();
  EXPECT_EQ(SpecOf(id)->fieldlist[0].flags, 0x3u);
  EXPECT_EQ(SpecOf(id)->fieldlist[0].format.item_flags, 0x20u);
  EXPECT_EQ(static_cast<uint32_t>(SpecOf(id)->fieldlist[0].type), GetKVType(BRTYPE_USER));
}

TEST_F(FormTest, KVIFieldGetSpec_OldRecord_NoKeywordsAndShorterHead) {
  FormField field = WholeField();
  field.signature = kit::kOldFieldRecord;
  const uint32_t id = Form("Old").Field(field).Store();
  const FIELDSPEC& slot = SpecOf(id)->fieldlist[0];
  EXPECT_STREQ(slot.name, "Whole");
  EXPECT_STREQ(slot.description, "A description");
  EXPECT_EQ(slot.keywords, nullptr);
  EXPECT_EQ(slot.keylen, 0u);
  KVFIELD public_field;
  ASSERT_EQ(KVFieldFetch(database_, id, "whole", &public_field), KVSUCCESS);
  EXPECT_EQ(public_field.keywords, 1) << "the flags tell, though there is no list";
  EXPECT_EQ(Plain(public_field.keyword_list), nullptr);
}

TEST_F(FormTest, KVIFieldGetSpec_EachLengthPastTheEnd_BadFormat) {
  const std::string record = kit::FieldBytes(WholeField());
  for (const size_t place : {22u, 24u, 28u, 30u, 32u, 34u}) {
    std::string damaged = record;
    damaged[place] = '\xff';
    damaged[place + 1] = '\xff';
    EXPECT_EQ(SpecStatus(Form("D" + std::to_string(place)).Record(damaged).Store()), KVFAIL_BAD_FORMAT)
        << place;
    damaged = record;
    KVIStore<uint16_t>(damaged.data() + place,
                       static_cast<uint16_t>(KVILoad<uint16_t>(record.data() + place) + 1));
    EXPECT_EQ(SpecStatus(Form("E" + std::to_string(place)).Record(damaged).Store()), KVFAIL_BAD_FORMAT)
        << place;
  }
  EXPECT_EQ(SpecStatus(Form("W").Record(record).Store()), KVSUCCESS);
}

TEST_F(FormTest, KVIFieldGetSpec_FormulaTellsMoreThanItHas_BadFormat) {
  FormField field = Named("F");
  field.default_formula = "1";
  const std::string record = kit::FieldBytes(field);
  for (const uint16_t told : {0u, 1u, 0xffffu}) {
    std::string damaged = record;
    KVIStore<uint16_t>(damaged.data() + sizeof(CDFIELD), told);
    EXPECT_EQ(SpecStatus(Form("F" + std::to_string(told)).Record(damaged).Store()), KVFAIL_BAD_FORMAT)
        << told;
  }
}

TEST_F(FormTest, KVIFieldGetSpec_KeywordListPastItsEnd_BadFormat) {
  FormField field = Named("F", BRTYPE_TEXT, 0x2 | kit::kFieldFlagKeywords);
  field.keywords = {"one", "two"};
  const std::string record = kit::FieldBytes(field);
  const size_t list = record.size() - kit::TextListBytes(field.keywords).size();
  for (const size_t place : {list, list + 2, list + 4}) {
    std::string damaged = record;
    ++damaged[place];
    EXPECT_EQ(SpecStatus(Form("K" + std::to_string(place)).Record(damaged).Store()), KVFAIL_BAD_FORMAT);
  }
}

TEST_F(FormTest, KVIFieldGetSpec_RecordShorterThanItsHead_BadFormat) {
  for (const uint16_t bytes : {4u, 34u, 35u}) {
    std::string record = std::string("\x8a\xff", 2) + std::string(bytes - 2, 0);
    KVIStore<uint16_t>(record.data() + 2, bytes);
    EXPECT_EQ(SpecStatus(Form("S" + std::to_string(bytes)).Record(record).Store()), KVFAIL_BAD_FORMAT);
  }
  std::string bare(36, 0);
  KVIStore<uint16_t>(bare.data(), kit::kFieldRecord);
  KVIStore<uint16_t>(bare.data() + 2, 36);
  const uint32_t id = Form("Bare").Record(bare).Store();
  EXPECT_STREQ(SpecOf(id)->fieldlist[0].name, "");
}

// ---- Shared fields

class SharedFieldTest : public FormTest {
 protected:
  void SetUp() override {
    FormTest::SetUp();
    FormField field = Named("Common", BRTYPE_NUMBER, 0x2);
    field.default_formula = "7";
    field.validation_formula = "Common > 0";
    field.description = "for all";
    shared_ = kit::StoreSharedField(EngineDatabase(), field);
  }
  FormField Use() const { return Named("common", BRTYPE_TEXT, kit::kFieldFlagShared); }
  uint32_t shared_ = 0;
};

TEST_F(SharedFieldTest, KVIFieldGetSpec_SharedField_DefinitionOfTheSharedRecord) {
  const uint32_t id = Form("F").Field(Use()).Store();
  const _FORMSPEC* spec = SpecOf(id);
  const FIELDSPEC& slot = spec->fieldlist[0];
  EXPECT_STREQ(slot.name, "Common");
  EXPECT_EQ(slot.type, KVTYPE_NUMBER);
  EXPECT_EQ(slot.flags, 0x802u);
  EXPECT_STREQ(slot.description, "for all");
  EXPECT_NE(slot.dvformula, nullptr);
  EXPECT_EQ(SharedFields(), 1u);
  EXPECT_EQ(Base()->dbinfo->sfields->noteid, shared_);
}

TEST_F(SharedFieldTest, KVIFieldGetSpec_TwoForms_OneDefinitionFreedOnce) {
  const uint32_t first = Form("F").Field(Use()).Store();
  const uint32_t second = Form("G").Field(Named("Own")).Field(Use()).Store();
  const _FORMSPEC* one = SpecOf(first);
  Spy spy;
  const _FORMSPEC* two = SpecOf(second);
  EXPECT_EQ(spy.Count("EngNoteOpen"), 1u) << "the form's own record alone";
  EXPECT_EQ(one->fieldlist[0].name, two->fieldlist[1].name);
  EXPECT_EQ(one->fieldlist[0].dvformula, two->fieldlist[1].dvformula);
  EXPECT_EQ(SharedFields(), 1u);
  EXPECT_EQ(one->compute_new, 1);
  EXPECT_EQ(one->compute_valid, 1);
  EXPECT_EQ(one->kv_flags, KVFORM_VALIDATES);
  EXPECT_EQ(two->compute_new, 0) << "the form that reads the definition first is told";
  EXPECT_EQ(two->compute_valid, 0);
  EXPECT_EQ(two->kv_flags, 0u);
  // The end of the test proves that what both show is freed once.
}

TEST_F(SharedFieldTest, KVFieldFetch_DesignCode_TextKeptWithTheSharedField) {
  const uint32_t first = Form("F").Field(Use()).Store();
  const uint32_t second = Form("G").Field(Use()).Store();
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  KVFIELD field, again;
  ASSERT_EQ(KVFieldFetch(database_, first, "Common", &field), KVSUCCESS);
  ASSERT_NE(Plain(field.default_value_formula), nullptr);
  ASSERT_EQ(KVFieldFetch(database_, second, "Common", &again), KVSUCCESS);
  EXPECT_EQ(Plain(field.default_value_formula), Plain(again.default_value_formula));
  EXPECT_EQ(field.field_flags, 0x2u | KVFIELD_SHARED);
}

TEST_F(SharedFieldTest, KVFormFetch_SharedFieldGone_NoSharedField) {
  const uint32_t id = Form("F").Field(Named("Gone", BRTYPE_TEXT, kit::kFieldFlagShared)).Store();
  KVFORM form;
  EXPECT_EQ(KVFormFetch(database_, id, &form), KVFAIL_NO_SHARED_FIELD);
  ExpectError(KVFAIL_NO_SHARED_FIELD);
  EXPECT_EQ(ListedSpecs(), 0u);
}

TEST_F(SharedFieldTest, KVFormFetch_SharedRecordWithoutField_NoField) {
  FormBuilder(EngineDatabase(), "NoBody").Class(BRCLASS_FIELD).NoInfo().NoBody().Store();
  FormBuilder(EngineDatabase(), "NoField").Class(BRCLASS_FIELD).NoInfo().Text("t").Store();
  FormBuilder(EngineDatabase(), "NoPage")
      .Class(BRCLASS_FIELD)
      .NoInfo()
      .NoBody()
      .Item("$Body", BRTYPE_TEXT, "text")
      .Store();
  FormBuilder(EngineDatabase(), "Second")
      .Class(BRCLASS_FIELD)
      .NoInfo()
      .Text("t")
      .NextItem()
      .Field(Named("Second"))
      .Store();
  FormField old = Named("OldOnly");
  old.signature = kit::kOldFieldRecord;
  kit::StoreSharedField(EngineDatabase(), old);
  for (const char* name : {"NoBody", "NoField", "NoPage", "Second", "OldOnly"}) {
    const uint32_t id =
        Form(std::string("F") + name).Field(Named(name, BRTYPE_TEXT, kit::kFieldFlagShared)).Store();
    EXPECT_EQ(SpecStatus(id), KVFAIL_NO_FIELD) << name;
  }
  EXPECT_EQ(SharedFields(), 0u);
}

TEST_F(SharedFieldTest, KVIFieldGetSpec_PageOfTheSharedRecordCannotBeRead_NoField) {
  const std::string record = kit::FieldBytes(Use());
  _FORMSPEC form{};
  FIELDSPEC slot{};
  const Answer answer("EngItemInfo", kEngineFailure);
  EXPECT_EQ(KVIFieldGetSpec(Base(), kit::kFieldRecord, record.data(), static_cast<uint32_t>(record.size()),
                            &form, &slot),
            KVFAIL_NO_FIELD);
  EXPECT_EQ(slot.name, nullptr);
  EXPECT_EQ(SharedFields(), 0u);
}

TEST_F(SharedFieldTest, KVFormFetch_SharedRecordDamaged_BadFormat) {
  std::string record = kit::FieldBytes(Named("Hurt"));
  record[30] = '\x7f';
  FormBuilder(EngineDatabase(), "Hurt").Class(BRCLASS_FIELD).NoInfo().Record(record).Store();
  const uint32_t id = Form("F").Field(Named("Hurt", BRTYPE_TEXT, kit::kFieldFlagShared)).Store();
  EXPECT_EQ(SpecStatus(id), KVFAIL_BAD_FORMAT);
}

TEST_F(SharedFieldTest, KVFormFetch_SharedRecordDoesNotOpen_EngineStatus) {
  const uint32_t id = Form("F").Field(Use()).Store();
  const Answer answer("EngDesignFind", [](const std::vector<uint64_t>& words) -> uint64_t {
    const uint32_t no_note = 0x3ffffff0;
    std::memcpy(reinterpret_cast<void*>(static_cast<uintptr_t>(words[3])), &no_note, sizeof no_note);
    return 0;
  });
  EXPECT_EQ(SpecStatus(id), 0x227u);
}

TEST_F(SharedFieldTest, KVIFieldGetSpec_OldRecordRefersToNewOne_LayoutOfTheOldOne) {
  FormField use = Use();
  use.signature = kit::kOldFieldRecord;
  const uint32_t id = Form("F").Field(use).Store();
  // The shared record is read with the shorter head: its formula starts two bytes early, which shows as
  // damage.
  EXPECT_EQ(SpecStatus(id), KVFAIL_BAD_FORMAT);
  kit::StoreSharedField(EngineDatabase(), Named("Plain"));
  use.name = "Plain";
  const uint32_t plain = Form("G").Field(use).Store();
  EXPECT_EQ(std::string(SpecOf(plain)->fieldlist[0].name, 5), std::string("\0\0Pla", 5));
}

TEST_F(SharedFieldTest, KVIFieldGetSpec_SharedRecordIsShared_NoFurtherLookup) {
  kit::StoreSharedField(EngineDatabase(), Named("Loop", BRTYPE_TEXT, kit::kFieldFlagShared | 0x2));
  const uint32_t id = Form("F").Field(Named("Loop", BRTYPE_TEXT, kit::kFieldFlagShared)).Store();
  EXPECT_EQ(SpecOf(id)->fieldlist[0].flags, 0x802u);
}

// ---- Fields as programs see them

TEST_F(FormTest, KVFieldFetch_WholeField_EveryMember) {
  const uint32_t id = Form("F").Field(WholeField()).Store();
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 0);
  KVFIELD field;
  ASSERT_EQ(KVFieldFetch(database_, id, "WHOLE", &field), KVSUCCESS);
  EXPECT_EQ(field.type, KVTYPE_NUMBER);
  EXPECT_EQ(field.field_flags, 0x2u);
  EXPECT_EQ(field.keywords, 1);
  EXPECT_EQ(field.font.face, 1u);
  EXPECT_EQ(field.font.size, 12u);
  EXPECT_EQ(field.format.number.decimal_digits, 2u);
  EXPECT_EQ(field.format.number.number, 1);
  EXPECT_EQ(field.format.number.numdisp_flags, 4u);
  EXPECT_EQ(field.format.datetime.date, 1);
  EXPECT_EQ(field.format.datetime.datetime, 3);
  EXPECT_EQ(field.format.listsep.display, 4);
  EXPECT_EQ(field.format.listsep.sepallow_flags, 9u);
  EXPECT_STREQ(field.description, "A description");
  EXPECT_EQ(KVTextListGetCount(field.keyword_list), 3u);
  EXPECT_EQ(Plain(field.default_value_formula), nullptr);
  EXPECT_EQ(Plain(field.input_translate_formula), nullptr);
  EXPECT_EQ(Plain(field.input_validate_formula), nullptr);
  EXPECT_STREQ(field.name, "Whole");
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  ASSERT_EQ(KVFieldFetch(database_, id, "Whole", &field), KVSUCCESS);
  const FormField whole = WholeField();
  EXPECT_EQ(kit::CompiledFormula(field.default_value_formula), kit::CompiledFormula(whole.default_formula));
  EXPECT_EQ(kit::CompiledFormula(field.input_translate_formula),
            kit::CompiledFormula(whole.translation_formula));
  EXPECT_EQ(kit::CompiledFormula(field.input_validate_formula),
            kit::CompiledFormula(whole.validation_formula));
  const char* text = field.default_value_formula;
  Spy spy;
  ASSERT_EQ(KVFieldFetch(database_, id, "Whole", &field), KVSUCCESS);
  EXPECT_EQ(Plain(field.default_value_formula), text);
  EXPECT_TRUE(spy.calls().empty()) << "texts are made once";
}

TEST_F(FormTest, KVFieldFetch_EachKindOfKeywords_ItsNumber) {
  const std::pair<uint16_t, int32_t> rows[] = {
      {0x200, 2}, {0xc200, 1}, {0x8200, 4}, {0x4200, 3}, {0xc000, 0}};
  for (const auto& [flags, keywords] : rows) {
    FormField keyed = Named("F", BRTYPE_TEXT, flags);
    keyed.keywords = {"a"};
    const uint32_t id = Form("K" + std::to_string(flags)).Field(keyed).Store();
    KVFIELD field;
    ASSERT_EQ(KVFieldFetch(database_, id, "F", &field), KVSUCCESS);
    EXPECT_EQ(field.keywords, keywords) << flags;
    EXPECT_EQ(field.keyword_list != nullptr, keywords != 0);
  }
}

TEST_F(FormTest, KVFieldFetch_FlagsOutsideTheMask_NotTold) {
  const uint32_t id = Form("F").Field(Named("A", BRTYPE_TEXT, 0xf7ff)).Store();
  KVFIELD field;
  ASSERT_EQ(KVFieldFetch(database_, id, "A", &field), KVSUCCESS);
  EXPECT_EQ(field.field_flags, 0xf7ffu & KVFIELD_FLAGS_MASK);
}

TEST_F(FormTest, KVFieldFetch_NoFormulasAtAll_NullTexts) {
  const uint32_t id = Form("F").Field(Named("A")).Store();
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  KVFIELD field;
  ASSERT_EQ(KVFieldFetch(database_, id, "A", &field), KVSUCCESS);
  EXPECT_EQ(Plain(field.default_value_formula), nullptr);
  EXPECT_EQ(Plain(field.description), nullptr);
  EXPECT_EQ(Plain(field.keyword_list), nullptr);
}

TEST_F(FormTest, KVFieldFetch_FormulaThatIsNone_NullText) {
  FormField wrong = Named("A");
  wrong.default_formula = "1";
  std::string record = kit::FieldBytes(wrong);
  for (size_t place = sizeof(CDFIELD) + 2; place + 1 < record.size(); ++place) record[place] = '\xee';
  const uint32_t id = Form("F").Record(record).Store();
  Set(KVPROP_DB_FETCH_DESIGN_CODE, 1);
  KVFIELD field;
  EXPECT_EQ(KVFieldList(database_, id, KVLIST_FIRST, &field), KVSUCCESS);
  EXPECT_EQ(Plain(field.default_value_formula), nullptr);
}

TEST_F(FormTest, KVFieldFetch_NameInTheRecordItself_Works) {
  const uint32_t id = Form("F").Field(Named("Alpha")).Field(Named("Beta")).Store();
  KVFIELD field;
  std::strcpy(field.name, "beta");
  ASSERT_EQ(KVFieldFetch(database_, id, field.name, &field), KVSUCCESS);
  EXPECT_STREQ(field.name, "Beta");
  ASSERT_EQ(KVFieldFetch(database_, id, field.name, &field), KVSUCCESS);
  EXPECT_STREQ(field.name, "Beta");
}

TEST_F(FormTest, KVFieldFetch_NameInTheRecordAndFormWithSubform_Works) {
  Form("Part").Subform().NoInfo().Field(Named("P")).Store();
  const uint32_t id = Form("F").UseSubform("Part").Field(Named("Beta")).Store();
  KVFIELD field;
  std::strcpy(field.name, "Beta");  // reading the form looks for the subform by name
  ASSERT_EQ(KVFieldFetch(database_, id, field.name, &field), KVSUCCESS);
  EXPECT_STREQ(field.name, "Beta");
}

TEST_F(FormTest, KVFieldFetch_BadArguments_StatusesInOrder) {
  const uint32_t id = Form("F").Field(Named("A")).Store();
  KVFIELD field;
  EXPECT_EQ(KVFieldFetch(database_, id, nullptr, &field), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFieldFetch(database_, id, "", &field), KVFAIL_NULL_PARAM);
  EXPECT_EQ(KVFieldFetch(database_, id, "A", nullptr), KVFAIL_NULL_PARAM);
  std::memset(static_cast<void*>(&field), 0x5a, sizeof field);
  EXPECT_EQ(KVFieldFetch(0, id, "A", &field), KVFAIL_NO_DATABASE);
  const KVFIELD zero{};
  EXPECT_EQ(std::memcmp(&field, &zero, sizeof field), 0) << "cleared before the database is looked for";
  EXPECT_EQ(KVFieldFetch(database_, id + 100, "A", &field), KVFAIL_NO_FORM);
  EXPECT_EQ(KVFieldFetch(database_, id, "B", &field), KVFAIL_NO_FIELD);
  ExpectError(KVFAIL_NO_FIELD);
}

TEST_F(FormTest, KVFieldFetch_SubformById_ItsFields) {
  const uint32_t id = Form("Part").Subform().NoInfo().Field(Named("P")).Field(Named("Q")).Store();
  KVFIELD field;
  EXPECT_EQ(KVFieldFetch(database_, id, "Q", &field), KVSUCCESS);
  EXPECT_EQ(KVFieldGetCount(database_, id), 2u);
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"P", "Q"}));
}

TEST_F(FormTest, KVFieldFetch_LongStoredName_Cut) {
  const std::string name(100, 'n');
  const uint32_t id = Form("F").Field(Named(name)).Store();
  KVFIELD field;
  ASSERT_EQ(KVFieldList(database_, id, KVLIST_FIRST, &field), KVSUCCESS);
  EXPECT_EQ(std::string(field.name), std::string(64, 'n'));
}

TEST_F(FormTest, KVFieldFetch_OldProgram_ShorterNameAndRecord) {
  const std::string name(64, 'n');
  const uint32_t id = Form("F").Field(Named(name)).Store();
  constexpr size_t kOldBytes = sizeof(KVFIELD) - 31;
  for (const uint32_t version : {0x20305u, 0x20306u}) {
    SetVersion(version);
    const size_t bytes = version < 0x20306 ? kOldBytes : sizeof(KVFIELD);
    std::vector<char> record(sizeof(KVFIELD) + 8, 0x5a);
    auto* field = reinterpret_cast<KVFIELD*>(record.data());
    ASSERT_EQ(KVFieldFetch(database_, id, name.c_str(), field), KVSUCCESS);
    EXPECT_EQ(field->type, KVTYPE_TEXT);
    EXPECT_EQ(std::string(record.data() + offsetof(KVFIELD, name)),
              std::string(version < 0x20306 ? 33 : 64, 'n'));
    EXPECT_EQ(std::string(record.data() + bytes, record.size() - bytes),
              std::string(record.size() - bytes, 0x5a));
    ASSERT_EQ(KVFieldList(database_, id, KVLIST_FIRST, field), KVSUCCESS);
    EXPECT_EQ(record[bytes], 0x5a);
  }
  SetVersion(KVAPI_VERSION);
}

TEST_F(FormTest, KVFieldFetch_NameInTheRecordWithoutNul_ReadNoFurtherThanTheRecord) {
  const uint32_t id = Form("F").Field(Named(std::string(64, 'n'))).Store();
  SetVersion(0x20305);
  std::vector<char> record(sizeof(KVFIELD), 'n');
  auto* field = reinterpret_cast<KVFIELD*>(record.data());
  EXPECT_EQ(KVFieldFetch(database_, id, field->name, field), KVFAIL_NO_FIELD);
  SetVersion(KVAPI_VERSION);
}

TEST_F(FormTest, KVFieldFetch_FirstOfTwoEqualNames_Wins) {
  const uint32_t id = Form("F").Field(Named("A", BRTYPE_TEXT)).Field(Named("a", BRTYPE_NUMBER)).Store();
  KVFIELD field;
  ASSERT_EQ(KVFieldFetch(database_, id, "A", &field), KVSUCCESS);
  EXPECT_EQ(field.type, KVTYPE_TEXT);
}

// ---- Lists and counts

TEST_F(FormTest, KVFieldList_EachDirection_TheFieldOrTheStatus) {
  const uint32_t id = Form("F").Field(Named("A")).Field(Named("B")).Field(Named("C")).Store();
  struct StepRow {
    int32_t list;
    uint32_t status;
    const char* name;
  };
  const StepRow steps[] = {{KVLIST_CURRENT, KVFAIL_DATA_UNAVAILABLE, ""},
                           {KVLIST_FIRST, KVSUCCESS, "A"},
                           {KVLIST_NEXT, KVSUCCESS, "B"},
                           {KVLIST_CURRENT, KVSUCCESS, "B"},
                           {KVLIST_LAST, KVSUCCESS, "C"},
                           {KVLIST_NEXT, KVFAIL_END_OF_DATA, ""},
                           {KVLIST_REFRESH, KVSUCCESS, "A"},
                           {KVLIST_PREVIOUS, KVFAIL_END_OF_DATA, ""},
                           {7, KVFAIL_BAD_ENUM, ""},
                           {0, KVFAIL_BAD_ENUM, ""}};
  for (const StepRow& step : steps) {
    KVFIELD field;
    EXPECT_EQ(KVFieldList(database_, id, step.list, &field), step.status) << step.list;
    EXPECT_STREQ(field.name, step.name);
    ExpectError(step.status);
  }
}

TEST_F(FormTest, KVFieldList_TwoHandles_OnePlace) {
  const uint32_t id = Form("F").Field(Named("A")).Field(Named("B")).Store();
  const uint32_t other = OpenDatabase(path_);
  KVFIELD field;
  ASSERT_EQ(KVFieldList(database_, id, KVLIST_FIRST, &field), KVSUCCESS);
  ASSERT_EQ(KVFieldList(other, id, KVLIST_NEXT, &field), KVSUCCESS);
  EXPECT_STREQ(field.name, "B");
}

TEST_F(FormTest, KVFieldList_BadArguments_StatusesInOrder) {
  const uint32_t id = Form("F").Store();
  KVFIELD field;
  EXPECT_EQ(KVFieldList(0, id, KVLIST_FIRST, nullptr), KVFAIL_NULL_PARAM);
  std::memset(static_cast<void*>(&field), 0x5a, sizeof field);
  EXPECT_EQ(KVFieldList(0, id, KVLIST_FIRST, &field), KVFAIL_NO_DATABASE);
  const KVFIELD zero{};
  EXPECT_EQ(std::memcmp(&field, &zero, sizeof field), 0);
  EXPECT_EQ(KVFieldList(database_, 1, KVLIST_FIRST, &field), KVFAIL_NO_FORM);
  EXPECT_EQ(KVFieldList(database_, id, KVLIST_FIRST, &field), KVFAIL_END_OF_DATA);
}

TEST_F(FormTest, KVFieldGetCount_NoSuchFormOrDatabase_Zero) {
  EXPECT_EQ(KVFieldGetCount(database_, 1), 0u);
  ExpectError(KVSUCCESS);
  EXPECT_EQ(KVFieldGetCount(0, 1), 0u);
  ExpectError(KVFAIL_NO_DATABASE);
}

TEST_F(FormTest, KVIFormSpecGetFieldSpec_EachNumber_SlotOrNull) {
  Form("Part").Subform().NoInfo().Field(Named("P1")).Field(Named("P2")).Store();
  Form("Empty").Subform().NoInfo().Store();
  const uint32_t id =
      Form("F").UseSubform("Part").Field(Named("A")).UseSubform("Empty").UseSubform("Part").Store();
  _FORMSPEC* spec = SpecOf(id);
  ASSERT_EQ(spec->total_fieldcount, 5u);
  const auto names = [&] {
    std::string all;
    for (uint32_t index = 0; index <= 6; ++index) {
      const FIELDSPEC* slot = KVIFormSpecGetFieldSpec(spec, index);
      all += slot == nullptr ? "-" : slot->name;
      all += " ";
    }
    EXPECT_EQ(KVIFormSpecGetFieldSpec(spec, 0xffffffff), nullptr);
    return all;
  };
  Set(KVPROP_DB_READ_SUBF_FIELDS, 1);
  EXPECT_EQ(names(), "- P1 P2 A P1 P2 - ");
  Set(KVPROP_DB_READ_SUBF_FIELDS, 0);
  EXPECT_EQ(names(), "- A - - - - - ");
}

// ---- Names

TEST(KVIFieldValidateName, Names_GoodAndBad) {
  const auto is_good = [](const std::string& name) {
    return KVIFieldValidateName(name.c_str(), static_cast<uint32_t>(name.size()));
  };
  for (const std::string& name :
       {std::string("A"), std::string("z9"), std::string("$x"), std::string("_x"), std::string(".x"),
        std::string(64, 'n'), std::string("\xe4rger"), std::string("\x10\x80\x81x"), std::string("a-b+c")})
    EXPECT_EQ(is_good(name), 1) << name;
  for (const std::string& name :
       {std::string(""), std::string("9a"), std::string(" a"), std::string("a b"), std::string("a\t"),
        std::string("a\nb"), std::string("a\rb"), std::string("a\vb"), std::string("a\fb"),
        std::string(65, 'n'), std::string("-a"), std::string("@a"), std::string("[a"), std::string("`a"),
        std::string("{a"), std::string("\x7fx")})
    EXPECT_EQ(is_good(name), 0) << name;
  EXPECT_EQ(KVIFieldValidateName(nullptr, 3), 0);
}

TEST_F(FormTest, KVFieldFetch_EngineFailsWhileTheFormIsRead_NoForm) {
  const uint32_t id = Form("F").Field(Named("A")).Store();
  const Answer answer("EngNoteOpen", kEngineFailure);
  KVFIELD field;
  EXPECT_EQ(KVFieldFetch(database_, id, "A", &field), KVFAIL_NO_FORM);
}

}  // namespace
