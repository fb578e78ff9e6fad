// Reading forms and subforms into specs, and the list that keeps them.
#include "kvform_world.h"

namespace {

using kit::Answer;
using kit::Spy;
using kvform::FormBuilder;
using kvform::FormTest;
using kvform::Named;

constexpr uint16_t kEngineFailure = 0x1f7;
constexpr uint16_t kEngineNoMemory = 0x107;

std::string NameAt(const _FORMSPEC* spec, uint32_t slot) { return spec->fieldlist[slot].name; }

// ---- Specs

TEST_F(FormTest, _KVIFormGetSpec_WholeRecord_AllFields) {
  const uint32_t id = Form("Menu\\Cascade|Name")
                          .Flags("CD")
                          .Info(0x20, 0x0900, 7)
                          .WindowTitle("Subject")
                          .ConflictAction("1")
                          .Text("Subject: ")
                          .Field(Named("Subject"))
                          .Field(Named("Count", BRTYPE_NUMBER))
                          .Store();
  const _FORMSPEC* spec = SpecOf(id);
  EXPECT_EQ(spec->pdbase, Base());
  EXPECT_EQ(spec->pdoc, nullptr);
  EXPECT_EQ(spec->formid, id);
  EXPECT_EQ(spec->design_flags, KVDESIGN_FORM);
  EXPECT_STREQ(spec->name, "Name");
  EXPECT_STREQ(spec->menu_name, "Menu");
  EXPECT_STREQ(spec->cascade_name, "Cascade");
  EXPECT_EQ(spec->namelen, 4u);
  EXPECT_EQ(spec->index, 0u);
  EXPECT_EQ(spec->flags, 0x09000020u);
  EXPECT_EQ(spec->kv_flags, KVFORM_HIDDEN | KVFORM_FLAG_D | KVFORM_FLAG_0800 | KVFORM_ANONYMOUS);
  EXPECT_EQ(spec->conflict, 1);
  EXPECT_EQ(spec->color, 7u);
  EXPECT_EQ(spec->hidden, 1);
  EXPECT_EQ(spec->subformcount, 0u);
  EXPECT_EQ(spec->fieldcount, 2u);
  EXPECT_EQ(spec->total_fieldcount, 2u);
  EXPECT_EQ(NameAt(spec, 0), "Subject");
  EXPECT_EQ(NameAt(spec, 1), "Count");
  const std::string title = kit::CompiledFormula("Subject");
  ASSERT_NE(spec->title_formula, nullptr);
  EXPECT_EQ(std::memcmp(spec->title_formula, title.data(), title.size()), 0);
  EXPECT_EQ(spec->title_formula_string, nullptr);
  EXPECT_EQ(spec->deleted, 0);
}

TEST_F(FormTest, KVFormFetch_Twice_RecordIsReadOnce) {
  const uint32_t id = Form("Once").Field(Named("A")).Store();
  KVFORM form;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  Spy spy;
  ASSERT_EQ(KVFormFetch(database_, id, &form), KVSUCCESS);
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
  EXPECT_EQ(KVFieldGetCount(database_, id), 1u);
  EXPECT_TRUE(spy.calls().empty()) << spy.Names().front();
  EXPECT_EQ(ListedSpecs(), 1u);
}

TEST_F(FormTest, KVFormFetch_SecondHandleOfTheDatabase_SameSpecNoEngineCall) {
  const uint32_t id = Form("Shared").Field(Named("A")).Store();
  const _FORMSPEC* spec = SpecOf(id);
  const uint32_t other = OpenDatabase(path_);
  Spy spy;
  KVFORM form;
  ASSERT_EQ(KVFormFetch(other, id, &form), KVSUCCESS);
  EXPECT_TRUE(spy.calls().empty());
  EXPECT_EQ(spec->pdbase, Base());
  // The first handle goes: what was read through it is used through the other one.
  ASSERT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  database_ = other;
  EXPECT_EQ(spec->pdbase, Base());
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
}

TEST_F(FormTest, KVFormFetch_DatabaseClosedAndOpened_ReadAnew) {
  const uint32_t id = Form("Anew").Field(Named("A")).Store();
  SpecOf(id);
  ASSERT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
  database_ = OpenDatabase(path_);
  EXPECT_EQ(ListedSpecs(), 0u);
  SpecOf(id);
  EXPECT_EQ(ListedSpecs(), 1u);
}

TEST_F(FormTest, KVFormFetch_BadArguments_StatusesInOrder) {
  const uint32_t id = Form("Checked").Store();
  KVFORM form;
  EXPECT_EQ(KVFormFetch(0, id, nullptr), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVFormFetch(database_, id, nullptr), KVFAIL_NULL_PARAM);
  std::memset(static_cast<void*>(&form), 0x5a, sizeof form);
  EXPECT_EQ(KVFormFetch(database_, id + 100, &form), KVFAIL_NO_FORM);
  const KVFORM zero{};
  EXPECT_EQ(std::memcmp(&form, &zero, sizeof form), 0) << "cleared before the form is looked for";
  ExpectError(KVFAIL_NO_FORM);
}

TEST_F(FormTest, KVFormFetch_RecordsThatAreNoForms_NoForm) {
  const uint32_t view = StoreNote(BRCLASS_VIEW, {{"$TITLE", BRTYPE_TEXT, 4, "View"}});
  const uint32_t subform = Form("Part").Subform().NoInfo().Store();
  KVFORM form;
  for (const uint32_t id : {0u, view, subform, StoreDocument()})
    EXPECT_EQ(KVFormFetch(database_, id, &form), KVFAIL_NO_FORM) << id;
}

TEST_F(FormTest, KVFormFetch_OldProgram_ClearedThenUnsupported) {
  const uint32_t id = Form("Old").Store();
  constexpr size_t kPointer = sizeof(char*);
  struct VersionRow {
    uint32_t version;
    size_t cleared;
  };
  for (const VersionRow& row : {VersionRow{0x20305, 148 + kPointer}, VersionRow{0x20306, 276 + kPointer},
                                VersionRow{0x3ffff, 276 + kPointer}}) {
    SetVersion(row.version);
    std::vector<char> record(sizeof(KVFORM) + 1, 0x5a);
    EXPECT_EQ(KVFormFetch(database_, id, reinterpret_cast<KVFORM*>(record.data())), KVFAIL_UNSUPPORTED);
    EXPECT_EQ(std::string(record.data(), row.cleared), std::string(row.cleared, 0)) << row.version;
    EXPECT_EQ(record[row.cleared], 0x5a) << row.version;
  }
  SetVersion(KVAPI_VERSION);
}

TEST_F(FormTest, _KVIFormGetSpec_RecordOrTitleCannotBeRead_NoFormWhateverFailed) {
  const uint32_t id = Form("x").Store();
  for (const char* call : {"EngNoteOpen", "EngItemInfo"})
    for (const uint16_t failure : {kEngineNoMemory, kEngineFailure}) {
      const Answer answer(call, failure);
      EXPECT_EQ(SpecStatus(id), KVFAIL_NO_FORM) << call << failure;
    }
  EXPECT_EQ(SpecStatus(id), KVSUCCESS);
}

TEST_F(FormTest, _KVIFormGetSpec_NoTitle_NoForm) {
  EXPECT_EQ(SpecStatus(Form("x").NoTitle().Store()), KVFAIL_NO_FORM);
}

TEST_F(FormTest, _KVIFormGetSpec_InfoMissingOrWrong_NoForm) {
  EXPECT_EQ(SpecStatus(Form("missing").NoInfo().Store()), KVFAIL_NO_FORM);
  EXPECT_EQ(SpecStatus(Form("text").NoInfo().Item("$Info", BRTYPE_TEXT, std::string(24, 'x')).Store()),
            KVFAIL_NO_FORM);
  const std::string whole = std::string("\x86\x18", 2) + std::string(22, 0);
  EXPECT_EQ(SpecStatus(Form("cut").NoInfo().Item("$Info", BRTYPE_COMPOSITE, whole.substr(0, 23)).Store()),
            KVFAIL_NO_FORM);
  EXPECT_EQ(SpecStatus(Form("empty").NoInfo().Item("$Info", BRTYPE_COMPOSITE, "").Store()), KVFAIL_NO_FORM);
  EXPECT_EQ(SpecStatus(
                Form("other").NoInfo().Item("$Info", BRTYPE_COMPOSITE, "\x81\x18" + whole.substr(2)).Store()),
            KVFAIL_NO_FORM);
  EXPECT_EQ(SpecStatus(Form("whole").NoInfo().Item("$Info", BRTYPE_COMPOSITE, whole).Store()), KVSUCCESS);
  EXPECT_EQ(SpecStatus(Form("longer").NoInfo().Item("$Info", BRTYPE_COMPOSITE, whole + "more").Store()),
            KVSUCCESS);
  EXPECT_EQ(ListedSpecs(), 2u) << "what cannot be read is not kept";
}

TEST_F(FormTest, _KVIFormGetSpec_WindowTitleDamaged_BadFormat) {
  const auto with = [&](const std::string& name, const std::string& bytes, uint16_t type = BRTYPE_FORMULA) {
    return SpecStatus(Form(name).Item("$WindowTitle", type, bytes).Store());
  };
  EXPECT_EQ(with("empty", ""), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(with("one", "x"), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(with("zero", std::string(4, 0)), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(with("long", std::string("\x05\x00xx", 4)), KVFAIL_BAD_FORMAT);
  EXPECT_EQ(with("text", "title", BRTYPE_TEXT), KVSUCCESS) << "another type is no title";
}

TEST_F(FormTest, _KVIFormGetSpec_ConflictAction_OnlyABeginningOne) {
  EXPECT_EQ(SpecOf(Form("a").ConflictAction("1").Store())->conflict, 1);
  EXPECT_EQ(SpecOf(Form("b").ConflictAction("1 and more").Store())->conflict, 1);
  EXPECT_EQ(SpecOf(Form("c").ConflictAction("01").Store())->conflict, 0);
  EXPECT_EQ(SpecOf(Form("d").Store())->conflict, 0);
}

TEST_F(FormTest, _KVIFormGetSpec_LettersBehindTheLimit_NotSeen) {
  EXPECT_EQ(SpecOf(Form("a").Flags(std::string(30, '-') + "C").Store())->hidden, 1);
  EXPECT_EQ(SpecOf(Form("b").Flags(std::string(31, '-') + "C").Store())->hidden, 0);
}

TEST_F(FormTest, _KVIFormGetSpec_NoBody_NotFound) {
  EXPECT_EQ(SpecStatus(Form("x").NoBody().Store()), KVFAIL_NOT_FOUND);
  EXPECT_EQ(ListedSpecs(), 0u);
}

TEST_F(FormTest, _KVIFormGetSpec_SeveralItems_FieldsOfAll) {
  const uint32_t id = Form("x").Field(Named("A")).NextItem().Text("t").NextItem().Field(Named("B")).Store();
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"A", "B"}));
}

// ---- Passes

TEST_F(FormTest, _KVIFormGetSpec_Passes_ToldByTheFields) {
  struct PassRow {
    uint16_t flags;
    const char *default_formula, *translation, *validation;
    int compute, compute_new, compute_valid;
  };
  const PassRow rows[] = {
      {0x2, "", "", "", 0, 0, 0},    {0x2, "1", "", "", 0, 1, 0},     {0x2, "", "1", "", 1, 0, 0},
      {0x2, "", "", "1", 0, 0, 1},   {0x0, "1", "1", "1", 0, 0, 0},   {0x108, "1", "", "", 1, 0, 0},
      {0x100, "1", "", "", 0, 0, 0}, {0x8, "1", "", "", 0, 1, 0},     {0x10a, "", "", "", 0, 0, 0},
      {0xa, "", "", "", 0, 0, 0},    {0x10a, "1", "1", "1", 1, 1, 1},
  };
  int number = 0;
  for (const PassRow& row : rows) {
    kit::FormField field = Named("F", BRTYPE_TEXT, row.flags);
    field.default_formula = row.default_formula;
    field.translation_formula = row.translation;
    field.validation_formula = row.validation;
    const _FORMSPEC* spec = SpecOf(Form("Pass" + std::to_string(++number)).Field(field).Store());
    EXPECT_EQ(spec->compute, row.compute) << number;
    EXPECT_EQ(spec->compute_new, row.compute_new) << number;
    EXPECT_EQ(spec->compute_valid, row.compute_valid) << number;
    EXPECT_EQ((spec->kv_flags & KVFORM_VALIDATES) != 0, row.compute_valid != 0) << number;
  }
}

// ---- Subforms in their place

class SubformTest : public FormTest {
 protected:
  void SetUp() override {
    FormTest::SetUp();
    part_ =
        Form("Menu|Part").Subform().NoInfo().Field(Named("P1")).Field(Named("P2")).Field(Named("P3")).Store();
  }
  uint32_t part_ = 0;
};

TEST_F(SubformTest, KVFieldList_SubformAmongOwnFields_InOrderWhenRead) {
  const uint32_t id = Form("F").Field(Named("A")).UseSubform("Part").Field(Named("B")).Store();
  Set(KVPROP_DB_READ_SUBF_FIELDS, 0);
  uint32_t end = 0;
  EXPECT_EQ(KVFieldGetCount(database_, id), 2u);
  EXPECT_EQ(FieldNames(id, &end), (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(end, KVFAIL_END_OF_DATA);
  Set(KVPROP_DB_READ_SUBF_FIELDS, 1);
  EXPECT_EQ(KVFieldGetCount(database_, id), 5u);
  EXPECT_EQ(FieldNames(id, &end), (std::vector<std::string>{"A", "P1", "P2", "P3", "B"}));
  EXPECT_EQ(end, KVFAIL_END_OF_DATA);
  const _FORMSPEC* spec = SpecOf(id);
  EXPECT_EQ(spec->fieldcount, 3u);
  EXPECT_EQ(spec->subformcount, 1u);
  EXPECT_EQ(spec->total_fieldcount, 5u);
  EXPECT_EQ(spec->fieldlist[1].psubform, SubformOf(part_));
  EXPECT_EQ(spec->fieldlist[1].name, nullptr);
}

TEST_F(SubformTest, _KVIFormGetSpec_UnknownSubform_LosesItsSlot) {
  const uint32_t id = Form("F").Field(Named("A")).UseSubform("Nowhere").Field(Named("B")).Store();
  const _FORMSPEC* spec = SpecOf(id);
  EXPECT_EQ(spec->fieldcount, 2u);
  EXPECT_EQ(spec->subformcount, 0u);
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"A", "B"}));
}

TEST_F(SubformTest, _KVIFormGetSpec_NamesOfSubforms_AsTheyMayBeGiven) {
  struct NameRow {
    std::string name;
    uint32_t subforms;
  };
  const NameRow rows[] = {{"part", 1},
                          {"Anything\\Else|Part", 1},
                          {std::string("Part\0", 5), 1},
                          {"Menu", 1},
                          {"Menu|", 0},
                          {"F0", 0},
                          {"", 0},
                          {std::string(131, 'x'), 0},
                          {std::string(126, ' ') + "|Part", 0},
                          {std::string(125, ' ') + "|Part", 1}};
  uint32_t number = 0;
  for (const NameRow& row : rows) {
    const uint32_t id = Form("F" + std::to_string(number++)).UseSubform(row.name).Store();
    EXPECT_EQ(SpecOf(id)->subformcount, row.subforms) << row.name;
    EXPECT_EQ(SpecOf(id)->fieldcount, row.subforms) << row.name;
  }
}

TEST_F(SubformTest, _KVIFormGetSpec_SubformCannotBeRead_LosesItsSlot) {
  kit::FormField shared = Named("Gone", BRTYPE_TEXT, kit::kFieldFlagShared);
  Form("Bad").Subform().NoInfo().Field(shared).Store();
  const uint32_t id = Form("F").UseSubform("Bad").Field(Named("A")).Store();
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
  EXPECT_EQ(SpecOf(id)->subformcount, 0u);
}

TEST_F(SubformTest, _KVIFormGetSpec_EngineFailsInTheSubform_ThatStatusAndNothingKept) {
  const uint32_t id = Form("F").UseSubform("Part").Field(Named("A")).Store();
  for (uint32_t nth = 1; nth < 6; ++nth) {
    const kit::Fault fault = kit::Fault::EngineCall(nth, kEngineFailure, "EngItemInfoNext");
    const uint32_t status = SpecStatus(id);
    EXPECT_EQ(status, fault.Hit() ? kEngineFailure : KVSUCCESS) << nth;
    if (!fault.Hit()) break;
  }
  EXPECT_EQ(SpecOf(id)->subformcount, 1u);
}

TEST_F(SubformTest, _KVIFormGetSpec_NoMemoryForTheSubform_ThatStatusAndNothingKept) {
  const uint32_t id = Form("F").UseSubform("Part").Field(Named("A")).Store();
  {
    const Answer answer("EngDesignFind", kEngineNoMemory);
    EXPECT_EQ(SpecStatus(id), kEngineNoMemory);
  }
  {
    const kit::Fault fault = kit::Fault::EngineCall(2, kEngineNoMemory, "EngNoteOpen");
    EXPECT_EQ(SpecStatus(id), kEngineNoMemory);
    EXPECT_TRUE(fault.Hit());
  }
  EXPECT_EQ(ListedSpecs(), 0u);
  EXPECT_EQ(SpecOf(id)->subformcount, 1u);
}

TEST_F(SubformTest, _KVIFormGetSpec_ComputedSubform_NoSlotAndItsFieldsTaken) {
  const uint32_t id =
      Form("F").SubformBegin("Part", 0x10).Field(Named("Inside")).End().Field(Named("B")).Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 0u);
  EXPECT_EQ(FieldNames(id), (std::vector<std::string>{"Inside", "B"}));
}

TEST_F(SubformTest, _KVIFormGetSpec_FieldsInsideANamedSubform_TheTableGrows) {
  FormBuilder builder = Form("F").SubformBegin("Part");
  for (int i = 0; i < 40; ++i) builder.Field(Named("In" + std::to_string(i)));
  const uint32_t id = builder.End().Field(Named("B")).Store();
  const _FORMSPEC* spec = SpecOf(id);
  EXPECT_EQ(spec->fieldcount, 42u);
  EXPECT_EQ(spec->subformcount, 1u);
  EXPECT_EQ(spec->total_fieldcount, 44u);
  Set(KVPROP_DB_READ_SUBF_FIELDS, 0);
  EXPECT_EQ(FieldNames(id).size(), 41u);
  EXPECT_EQ(FieldNames(id).back(), "B");
}

TEST_F(SubformTest, _KVIFormGetSpec_HotspotsInsideASubform_NestUntilItsOwnEnd) {
  // A begin of another kind inside nests; the subform hidden in it is none, and the one behind it all is one.
  const uint32_t id = Form("F")
                          .SubformBegin("Part")
                          .Record(kit::HotspotBytes(kit::kHotspotRecord, 3, 0, "x"))
                          .SubformBegin("Part")
                          .End()
                          .End()
                          .End()
                          .UseSubform("Part")
                          .Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 2u);
  const uint32_t open = Form("G").SubformBegin("Part").SubformBegin("Part").End().UseSubform("Part").Store();
  EXPECT_EQ(SpecOf(open)->subformcount, 1u) << "the first one never ended";
}

TEST_F(SubformTest, _KVIFormGetSpec_OtherHotspotsAndEnds_NoSubforms) {
  const uint32_t id = Form("F")
                          .Record(kit::HotspotBytes(kit::kHotspotRecord, 13, 0, "Part"))
                          .End()
                          .Record(kit::HotspotBytes(kit::kOldHotspotRecord, kit::kHotspotSubform, 0, "Part"))
                          .End(0xaa)
                          .Field(Named("A"))
                          .Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 0u);
  EXPECT_EQ(SpecOf(id)->fieldcount, 1u);
}

TEST_F(SubformTest, _KVIFormGetSpec_NameLongerThanItsRecord_NoSubform) {
  std::string hotspot = kit::HotspotBytes(kit::kHotspotRecord, kit::kHotspotSubform, 0, "Part");
  hotspot[10] = 100;  // bytes of the name
  const uint32_t id = Form("F").Record(hotspot).End().Field(Named("A")).Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 0u);
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
  const uint32_t stub = Form("G").Record(std::string("\xad\xff\x06\x00\x0e\x00", 6)).Store();
  EXPECT_EQ(SpecOf(stub)->fieldcount, 0u);
}

TEST_F(SubformTest, _KVIFormGetSpec_SubformThatNamesItself_OneLevel) {
  Form("Self").Subform().NoInfo().UseSubform("Self").Field(Named("S")).Store();
  const uint32_t id = Form("F").UseSubform("Self").Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 1u);
  EXPECT_EQ(SpecOf(id)->total_fieldcount, 1u);
  EXPECT_EQ(SpecOf(id)->fieldlist[0].psubform->fieldcount, 1u);
}

TEST_F(SubformTest, _KVIFormGetSpec_FormThatNamesItself_NoSlot) {
  const uint32_t id = Form("Own").UseSubform("Own").Field(Named("A")).Store();
  EXPECT_EQ(SpecOf(id)->subformcount, 0u);
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
}

TEST_F(SubformTest, _KVIFormGetSpec_IdOfAListedSubform_ThatSpec) {
  EXPECT_EQ(SpecStatus(part_), KVFAIL_NO_FORM);
  const _FORMSPEC* subform = SubformOf(part_);
  EXPECT_EQ(SpecOf(part_), subform) << "the id alone counts";
}

TEST_F(SubformTest, KVISubformGetSpec_SecondForm_SameSpecRecordReadOnce) {
  const uint32_t first = Form("F").UseSubform("Part").Store();
  const uint32_t second = Form("G").UseSubform("Part").Store();
  const _FORMSPEC* spec = SpecOf(first);
  Spy spy;
  EXPECT_EQ(SpecOf(second)->fieldlist[0].psubform, spec->fieldlist[0].psubform);
  EXPECT_EQ(spy.Count("EngNoteOpen"), 1u) << "the form's own record alone";
}

TEST_F(SubformTest, KVISubformGetSpec_OtherRecords_NoSubform) {
  const uint32_t form = Form("F").Store();
  SpecOf(form);
  for (const uint32_t id : {0u, form, StoreDocument(), part_ + 1000})
    EXPECT_EQ(SubformStatus(id), KVFAIL_NO_SUBFORM) << id;
  EXPECT_EQ(SubformStatus(Form("x").Subform().NoTitle().Store()), KVFAIL_NO_SUBFORM);
}

TEST_F(SubformTest, KVISubformGetSpec_NoBodyOrNoComposite_NoFields) {
  EXPECT_EQ(SubformOf(Form("none").Subform().NoBody().Store())->fieldcount, 0u);
  const uint32_t text = Form("text").Subform().NoBody().Item("$Body", BRTYPE_TEXT, "text").Store();
  EXPECT_EQ(SubformOf(text)->fieldcount, 0u);
}

TEST_F(SubformTest, _KVISubformGetSpecByName_LengthZero_NameEndsWithNul) {
  _FORMSPEC* spec = nullptr;
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), "Part", 0, &spec), KVSUCCESS);
  EXPECT_EQ(spec, SubformOf(part_));
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), "Partial", 4, &spec), KVSUCCESS);
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), "Partial", 0, &spec), KVFAIL_NOT_FOUND);
  EXPECT_EQ(spec, nullptr);
  const std::string name(131, 'x');
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), name.c_str(), 131, &spec), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), name.c_str(), 0, &spec), KVFAIL_DATA_TOO_LONG);
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), name.c_str(), 130, &spec), KVFAIL_NOT_FOUND);
  const uint32_t form = Form("F").Store();
  EXPECT_NE(form, 0u);
  EXPECT_EQ(_KVISubformGetSpecByName(session_, Base(), "F", 0, &spec), KVFAIL_NO_SUBFORM);
}

TEST_F(SubformTest, KVSubformFetch_BadArguments_StatusesInOrder) {
  KVSUBFORM subform;
  EXPECT_EQ(KVSubformFetch(0, part_, nullptr), KVFAIL_NO_DATABASE);
  EXPECT_EQ(KVSubformFetch(database_, part_, nullptr), KVFAIL_NULL_PARAM);
  std::memset(static_cast<void*>(&subform), 0x5a, sizeof subform);
  EXPECT_EQ(KVSubformFetch(database_, 1, &subform), KVFAIL_NO_SUBFORM);
  const KVSUBFORM zero{};
  EXPECT_EQ(std::memcmp(&subform, &zero, sizeof subform), 0);
  SetVersion(0x20000);
  EXPECT_EQ(KVSubformFetch(database_, part_, &subform), KVSUCCESS) << "one layout for all versions";
  EXPECT_STREQ(subform.name, "Part");
  SetVersion(KVAPI_VERSION);
}

// ---- Forms of documents

TEST_F(FormTest, _KVIFormGetSpec_DocumentWithItsOwnForm_ReadFromItAndNotListed) {
  const uint32_t document = New();
  Form("Inside").Field(Named("A")).AppendTo(NoteOf(document));
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  _DOCUMENT* doc = kvdoc::Record(document);
  _FORMSPEC* spec = nullptr;
  Spy spy;
  ASSERT_EQ(_KVIFormGetSpec(session_, Base(), doc->docid, doc, &spec), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteOpen"), 0u);
  EXPECT_EQ(spy.Count("EngNoteClose"), 0u) << "the document's note stays open";
  EXPECT_EQ(spec->pdoc, doc);
  EXPECT_EQ(spec->formid, doc->docid);
  EXPECT_STREQ(spec->name, "Inside");
  EXPECT_EQ(NameAt(spec, 0), "A");
  EXPECT_EQ(ListedSpecs(), 0u);
  // By the id alone it is found through the open document.
  _FORMSPEC* by_id = nullptr;
  EXPECT_EQ(_KVIFormGetSpec(session_, Base(), doc->docid, nullptr, &by_id), KVFAIL_NO_FORM);
  doc->form = spec;
  EXPECT_EQ(_KVIFormGetSpec(session_, Base(), doc->docid, nullptr, &by_id), KVFAIL_NO_FORM);
  doc->embedded_form = 1;
  EXPECT_EQ(_KVIFormGetSpec(session_, Base(), doc->docid, nullptr, &by_id), KVSUCCESS);
  EXPECT_EQ(by_id, spec);
  EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);  // frees its form
}

TEST_F(FormTest, _KVIFormGetSpec_DocumentWithoutInfo_TheRecordOfTheId) {
  const uint32_t document = New();
  const uint32_t id = Form("Elsewhere").Field(Named("A")).Store();
  _FORMSPEC* spec = nullptr;
  ASSERT_EQ(_KVIFormGetSpec(session_, Base(), id, kvdoc::Record(document), &spec), KVSUCCESS);
  EXPECT_EQ(spec->pdoc, kvdoc::Record(document));
  EXPECT_EQ(ListedSpecs(), 0u);
  ClearForm(spec);
  EXPECT_EQ(_KVIFormGetSpec(session_, Base(), id + 100, kvdoc::Record(document), &spec), 0x227u);
  EXPECT_EQ(spec, nullptr);
}

// ---- Damage

TEST_F(FormTest, _KVIFormGetSpec_DamagedPages_BadFormat) {
  const std::string field = kit::FieldBytes(Named("Field"));
  const std::pair<const char*, std::string> pages[] = {
      {"one byte", "x"},
      {"half a head", std::string("\x8a\xff\x30", 3)},
      {"length zero", std::string("\x85\xff\x00\x00", 4)},
      {"length below its head", std::string("\x85\xff\x03\x00", 4)},
      {"short length below its head", std::string("\x81\x01", 2)},
      {"longer than the page", std::string("\x85\xff\xff\xff", 4)},
      {"long form past the end", std::string("\x85\x00\xff\xff\xff\xff", 6)},
      {"a field cut short", field.substr(0, field.size() - 2)},
      {"a field and a stray word", field + std::string(1 + field.size() % 2, 0) + "z"},
  };
  int number = 0;
  for (const auto& [what, bytes] : pages) {
    const std::string title = "Damaged" + std::to_string(++number);
    EXPECT_EQ(SpecStatus(Form(title).RawBody(bytes).Store()), KVFAIL_BAD_FORMAT) << what;
    EXPECT_EQ(SubformStatus(Form(title + "s").Subform().RawBody(bytes).Store()), KVFAIL_BAD_FORMAT) << what;
  }
  EXPECT_EQ(ListedSpecs(), 0u);
}

TEST_F(FormTest, _KVIFormGetSpec_LastPadByteMissing_Whole) {
  const std::string field = kit::FieldBytes(Named("Fie"));
  ASSERT_EQ(field.size() % 2, 1u);
  EXPECT_EQ(SpecOf(Form("F").RawBody(field).Store())->fieldcount, 1u);
}

TEST_F(FormTest, _KVIFormGetSpec_LongFormRecords_SteppedOver) {
  const std::string record = std::string("\x55\x00\x0a\x00\x00\x00", 6) + "data";
  EXPECT_EQ(SpecOf(Form("F").RawBody(record).Field(Named("A")).Store())->fieldcount, 1u);
}

TEST_F(FormTest, _KVIFormGetSpec_LaterBodyOfAnotherType_EndsThePage) {
  const uint32_t id = Form("F")
                          .Field(Named("A"))
                          .Item("$Body", BRTYPE_TEXT, "no page")
                          .Item("$Body", BRTYPE_COMPOSITE, kit::FieldBytes(Named("BB")))
                          .Store();
  EXPECT_EQ(FieldNames(id), std::vector<std::string>{"A"});
}

TEST_F(FormTest, _KVIFormGetSpec_EngineFailsInTheWalk_ThatStatus) {
  const uint32_t id = Form("F").Field(Named("A")).Store();
  const Answer answer("EngItemInfoNext", kEngineFailure);
  EXPECT_EQ(SpecStatus(id), kEngineFailure);
  EXPECT_EQ(ListedSpecs(), 0u);
}

TEST_F(FormTest, KVFormFetch_EveryAllocationFails_NoMemoryAndNothingKept) {
  kit::FormField field = Named("A");
  field.default_formula = field.translation_formula = field.validation_formula = "1";
  field.description = "text";
  Form("Part").Subform().NoInfo().Field(Named("P")).Store();
  const uint32_t id =
      Form("Menu|F").WindowTitle("1").Field(field).UseSubform("Part").Field(Named("B")).Store();
  KVFORM form;
  for (uint32_t nth = 1;; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    const uint32_t status = KVFormFetch(database_, id, &form);
    fault.Disarm();
    if (!fault.Hit()) {
      EXPECT_EQ(status, KVSUCCESS);
      EXPECT_GT(nth, 10u);
      break;
    }
    if (status == KVSUCCESS) {  // something that could do without
      EXPECT_EQ(SpecOf(id)->fieldcount, 3u) << nth;
      ASSERT_EQ(KVDatabaseClose(database_, 0), KVSUCCESS);
      database_ = OpenDatabase(path_);
      continue;
    }
    // The form's own record and title answer with one status, whatever failed.
    EXPECT_TRUE(status == KVFAIL_NO_MEMORY || status == kEngineNoMemory || status == KVFAIL_NO_FORM)
        << nth << ": " << status;
  }
  EXPECT_EQ(SpecOf(id)->fieldcount, 3u);
}

}  // namespace
