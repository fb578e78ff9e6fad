// Binding of documents to forms: where a form comes from, which items it allows and of what type.
#include <random>

#include "engine/test_random.h"
#include "kvdoc_forms.h"

namespace {

using kvdoc::Display;
using kvdoc::Editable;
using kvdoc::FormBuilder;
using kvdoc::FormField;
using kvdoc::ItemsOf;
using kvdoc::kUntouched;
using kvdoc::NoteItem;
using kvdoc::Record;

struct Answer {
  uint32_t status;
  int32_t form_type;
  FORMAT* format;
  FIELDSPEC* fieldspec;
};

Answer Ask(_FORMSPEC* form, const char* itemname, const int32_t* itemtype,
           const _DATAFIELD* datafield = nullptr) {
  static FORMAT no_format;
  static FIELDSPEC no_field;
  Answer answer{0, 99, &no_format, &no_field};
  answer.status = GetItemTypeInfo(form, itemname, itemtype, &answer.form_type, datafield, &answer.format,
                                  &answer.fieldspec);
  return answer;
}

TEST(BindTest, GetItemTypeInfo_NoForm_TypePassesThrough) {
  for (int32_t type = KVTYPE_NONE; type <= KVTYPE_FORMULA; ++type) {
    const Answer answer = Ask(nullptr, "Any", &type);
    EXPECT_EQ(answer.status, KVSUCCESS);
    EXPECT_EQ(answer.form_type, type);
    EXPECT_EQ(answer.format, nullptr);
    EXPECT_EQ(answer.fieldspec, nullptr);
  }
  EXPECT_EQ(Ask(nullptr, "Any", nullptr).form_type, 0);
  EXPECT_EQ(Ask(nullptr, "Any", nullptr).status, KVSUCCESS);
}

TEST(BindTest, GetItemTypeInfo_NoFormAndTypeOutOfRange_BadEnumAndZero) {
  for (const int32_t type : {9, 10, 1000, -1, INT32_MIN, INT32_MAX}) {
    const Answer answer = Ask(nullptr, "Any", &type);
    EXPECT_EQ(answer.status, KVFAIL_BAD_ENUM);
    EXPECT_EQ(answer.form_type, 0);
  }
}

TEST(BindTest, GetItemTypeInfo_NoField_Refused) {
  _FORMSPEC form{};
  const int32_t type = KVTYPE_TEXT;
  for (const char* name : {"Any", "$$KVDocExecute", "$$KVDocExecute!!", ""}) {
    for (const int32_t* itemtype : {static_cast<const int32_t*>(nullptr), &type}) {
      const Answer answer = Ask(&form, name, itemtype);
      EXPECT_EQ(answer.status, KVFAIL_NO_FIELD);
      EXPECT_EQ(answer.form_type, 0);
      EXPECT_EQ(answer.format, nullptr);
      EXPECT_EQ(answer.fieldspec, nullptr);
    }
  }
}

TEST(BindTest, GetItemTypeInfo_ExecuteResult_NeedsNoFieldInAnyCase) {
  _FORMSPEC form{};
  for (const char* name : {"$$KVDocExecute!", "$$kvdocexecute!", "$$KVDOCEXECUTE!"}) {
    for (int32_t type = KVTYPE_NONE; type <= KVTYPE_FORMULA; ++type) {
      EXPECT_EQ(Ask(&form, name, &type).status, KVSUCCESS);
      EXPECT_EQ(Ask(&form, name, &type).form_type, type);
    }
    EXPECT_EQ(Ask(&form, name, nullptr).status, KVSUCCESS);
    EXPECT_EQ(Ask(&form, name, nullptr).form_type, 0);
    for (const int32_t type : {9, -1, INT32_MAX}) {
      EXPECT_EQ(Ask(&form, name, &type).status, KVFAIL_BAD_ENUM);
      EXPECT_EQ(Ask(&form, name, &type).form_type, 0);
    }
  }
}

TEST(BindTest, GetItemTypeInfo_ValueHeldInAForm_GivesItsFieldAndChecksTheType) {
  _FORMSPEC form{};
  FIELDSPEC field{};
  const _DATAFIELD held{.name = nullptr,
                        .namelen = 0,
                        .form_type = KVTYPE_TEXT,
                        .in_form = 1,
                        .fieldspec = &field,
                        .type = KVTYPE_TEXT,
                        .length = 0,
                        .buffer = nullptr,
                        .blockid = {},
                        .next = nullptr};
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).status, KVSUCCESS);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).form_type, KVTYPE_TEXT);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).fieldspec, &field);
  EXPECT_EQ(Ask(&form, "Any", nullptr, &held).format, nullptr);
  for (int32_t type = -1; type <= 10; ++type) {
    const bool fits = type == KVTYPE_NONE || type == KVTYPE_TEXT || type == KVTYPE_TEXTLIST;
    EXPECT_EQ(Ask(&form, "Any", &type, &held).status, fits ? KVSUCCESS : KVFAIL_NO_FIELD) << type;
    EXPECT_EQ(Ask(&form, "Any", &type, &held).form_type, fits ? KVTYPE_TEXT : 0);
  }
  _DATAFIELD unbound = held;
  unbound.in_form = 0;
  EXPECT_EQ(Ask(&form, "Any", nullptr, &unbound).status, KVFAIL_NO_FIELD);
  EXPECT_EQ(Ask(nullptr, "Any", nullptr, &held).form_type, 0);
}

// ---- Fields of a form

char* Chars(const char* text) { return const_cast<char*>(text); }

FIELDSPEC Field(const char* name, int32_t type) {
  FIELDSPEC field{};
  field.name = Chars(name);
  field.namelen = static_cast<uint16_t>(strlen(name));
  field.type = type;
  return field;
}

// Two own fields around a subform with two.
struct HandMadeForm {
  HandMadeForm() {
    fields[1].psubform = &subform;
    subform.fieldlist = inner;
    subform.fieldcount = 2;
    form.pdbase = &dbase;
    form.fieldlist = fields;
    form.fieldcount = 3;
  }
  _DATABASE dbase{};
  FIELDSPEC inner[2] = {Field("Inner", KVTYPE_NUMBER), Field("Both", KVTYPE_DATETIME)};
  FIELDSPEC fields[3] = {Field("First", KVTYPE_TEXT), FIELDSPEC{}, Field("Both", KVTYPE_TEXTLIST)};
  _FORMSPEC subform{}, form{};
};

TEST(BindTest, GetFieldspec_NoForm_NoField) { EXPECT_EQ(GetFieldspec(nullptr, "First"), nullptr); }

TEST(BindTest, GetFieldspec_Names_ComparedWholeAndWithoutCase) {
  HandMadeForm made;
  for (const char* name : {"First", "first", "FIRST"})
    EXPECT_EQ(GetFieldspec(&made.form, name), &made.fields[0]);
  for (const char* name : {"", "Firs", "First ", "First1", "irst"})
    EXPECT_EQ(GetFieldspec(&made.form, name), nullptr) << name;
}

TEST(BindTest, GetFieldspec_Subform_SearchedWhenTheDatabaseReadsThem) {
  HandMadeForm made;
  EXPECT_EQ(GetFieldspec(&made.form, "Inner"), nullptr);
  EXPECT_EQ(GetFieldspec(&made.form, "both"), &made.fields[2]);
  made.dbase.read_subf_fields = 1;
  EXPECT_EQ(GetFieldspec(&made.form, "inner"), &made.inner[0]);
  EXPECT_EQ(GetFieldspec(&made.form, "both"), &made.inner[1]) << "the first in order wins";
  EXPECT_EQ(GetFieldspec(&made.form, "First"), &made.fields[0]);
  EXPECT_EQ(GetFieldspec(&made.form, "Outer"), nullptr);
}

TEST(BindTest, GetItemTypeInfo_Field_ItsTypeItsFormatAndItself) {
  HandMadeForm made;
  const Answer answer = Ask(&made.form, "first", nullptr);
  EXPECT_EQ(answer.status, KVSUCCESS);
  EXPECT_EQ(answer.form_type, KVTYPE_TEXT);
  EXPECT_EQ(answer.format, &made.fields[0].format);
  EXPECT_EQ(answer.fieldspec, &made.fields[0]);
}

TEST(BindTest, GetItemTypeInfo_FieldAndEveryType_OnlyTheFittingOnesPass) {
  for (int32_t field_type = KVTYPE_NUMBER; field_type <= KVTYPE_FORMULA; ++field_type) {
    HandMadeForm made;
    made.fields[0].type = field_type;
    for (int32_t type = -1; type <= 10; ++type) {
      const bool known = type > KVTYPE_NONE && type <= KVTYPE_FORMULA;
      const bool fits = type == KVTYPE_NONE || (known && implicit_convert[type][field_type] != 0);
      const Answer answer = Ask(&made.form, "First", &type);
      EXPECT_EQ(answer.status, fits ? KVSUCCESS : KVFAIL_NO_FIELD) << field_type << " " << type;
      EXPECT_EQ(answer.form_type, fits ? field_type : 0);
    }
  }
}

TEST(BindTest, GetItemTypeInfo_FieldWithoutAType_Refused) {
  HandMadeForm made;
  made.fields[0].type = KVTYPE_NONE;
  EXPECT_EQ(Ask(&made.form, "First", nullptr).status, KVFAIL_NO_FIELD);
}

TEST(BindTest, GetItemTypeInfo_HeldValue_GoesBeforeTheFieldOfTheName) {
  HandMadeForm made;
  _DATAFIELD held{};
  held.form_type = KVTYPE_NUMBER;
  held.in_form = 1;
  EXPECT_EQ(Ask(&made.form, "First", nullptr, &held).form_type, KVTYPE_NUMBER);
  EXPECT_EQ(Ask(&made.form, "First", nullptr, &held).fieldspec, nullptr);
  held.in_form = 0;
  EXPECT_EQ(Ask(&made.form, "First", nullptr, &held).fieldspec, &made.fields[0]);
}

TEST(BindTest, KVIDbGetFormspecByFormName_Names_FirstOfTheNameInAnyCase) {
  _KVDBINFO dbinfo{};
  _DATABASE dbase{};
  dbase.dbinfo = &dbinfo;
  _FORMSPEC specs[3] = {};
  const char* names[] = {"Memo", "Reply", "MEMO"};
  for (size_t i = 0; i < 3; ++i) {
    specs[i].name = Chars(names[i]);
    specs[i].namelen = static_cast<uint16_t>(strlen(names[i]));
    specs[i].next = i < 2 ? &specs[i + 1] : nullptr;
  }
  _FORMSPEC* found = &specs[1];
  EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, "Memo", &found), KVFAIL_NOT_FOUND);
  EXPECT_EQ(found, nullptr);
  dbinfo.forms = specs;
  EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, "memo", &found), KVSUCCESS);
  EXPECT_EQ(found, &specs[0]);
  EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, "REPLY", &found), KVSUCCESS);
  EXPECT_EQ(found, &specs[1]);
  for (const char* name : {"", "Mem", "Memos"}) {
    EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, name, &found), KVFAIL_NOT_FOUND);
    EXPECT_EQ(found, nullptr);
  }
  specs[0].deleted = 1;
  EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, "Memo", &found), KVSUCCESS);
  EXPECT_EQ(found, &specs[2]) << "not the one that was deleted";
  specs[2].design_flags = KVDESIGN_SUBFORM;
  EXPECT_EQ(KVIDbGetFormspecByFormName(&dbase, "Memo", &found), KVFAIL_NOT_FOUND);
}

// ---- What a bound document allows

class DocumentBindTest : public kvdoc::BoundTest {};

TEST_F(DocumentBindTest, KVItemPut_UnknownName_RefusedWhileBound) {
  const uint32_t document = CreateOn(StoreMemo());
  PutText(document, "Subject", "text");
  EXPECT_EQ(KVItemPut(document, "Other", 0, 0, KVTYPE_TEXT, "text", 0), KVFAIL_NO_FIELD);
  ExpectError(KVFAIL_NO_FIELD);
  ASSERT_EQ(Bind(document, 0), KVSUCCESS);
  EXPECT_EQ(KVItemPut(document, "Other", 0, 0, KVTYPE_TEXT, "text", 0), KVSUCCESS);
  ASSERT_EQ(Bind(document, 1), KVSUCCESS);
  EXPECT_EQ(KVItemPut(document, "Other", 0, 0, KVTYPE_TEXT, "text", 0), KVFAIL_NO_FIELD);
  EXPECT_EQ(FetchText(document, "Subject"), "text");
}

TEST_F(DocumentBindTest, KVItemPut_Field_StoredWithTheFieldsTypeAndFlags) {
  auto names = Editable("Editors", BRTYPE_TEXT_LIST);
  names.flags |= 0x1;  // names that may edit
  const uint32_t document =
      CreateOn(Form("Typed").Field(Editable("Count", BRTYPE_NUMBER)).Field(names).Store());
  PutText(document, "count", "42.5");
  PutText(document, "Editors", "One, Two");
  const std::vector<NoteItem> count = ItemsOf(NoteOf(document), "Count");
  ASSERT_EQ(count.size(), 1u);
  EXPECT_EQ(count[0].type, BRTYPE_NUMBER);
  EXPECT_EQ(count[0].bytes, kvdoc::NumberBytes(42.5));
  EXPECT_EQ(count[0].flags, 4);
  const std::vector<NoteItem> editors = ItemsOf(NoteOf(document), "Editors");
  ASSERT_EQ(editors.size(), 1u);
  EXPECT_EQ(editors[0].type, BRTYPE_TEXT_LIST);
  EXPECT_EQ(editors[0].bytes, kvdoc::TextList({"One", "Two"}));
  EXPECT_EQ(editors[0].flags, 0x24);
}

TEST_F(DocumentBindTest, KVItemPut_FlagsOnAField_OnlyTheTwoThatSayWhatTheyDo) {
  const uint32_t document = CreateOn(StoreMemo());
  const struct {
    uint32_t item_flags, expected;
  } rows[] = {{0x20, 4},
              {KVITEMFLAG_REPLACE_ALL | 0x20, 0x20},
              {KVITEMFLAG_SET_SUMMARY, 0},
              {KVITEMFLAG_SET_SUMMARY | 4, 4}};
  for (const auto& row : rows) {
    ASSERT_EQ(KVItemPut(document, "Subject", 0, 0, KVTYPE_TEXT, "x", row.item_flags), KVSUCCESS);
    EXPECT_EQ(ItemsOf(NoteOf(document), "Subject").at(0).flags, row.expected) << row.item_flags;
  }
}

TEST_F(DocumentBindTest, KVItemPut_TypeThatDoesNotFitTheField_Refused) {
  const uint32_t document = CreateOn(StoreMemo());
  const double number = 1;
  EXPECT_EQ(KVItemPut(document, "Subject", KVTYPE_NUMBER, 8, KVTYPE_NUMBER, &number, 0), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemPut(document, "Subject", KVTYPE_TEXTLIST, 0, KVTYPE_TEXT, "one", 0), KVSUCCESS);
  EXPECT_EQ(TextIn(NoteOf(document), "Subject"), "one");
  EXPECT_EQ(KVItemPut(document, "Subject", 77, 0, KVTYPE_TEXT, "one", 0), KVFAIL_NO_FIELD);
}

TEST_F(DocumentBindTest, KVItemPut_DisplayField_SucceedsAndWritesNothing) {
  const uint32_t document = CreateOn(Form("F").Field(Display("Shown", "\"computed\"")).Store());
  ASSERT_EQ(SetCompute(document, 0), KVSUCCESS);
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  const std::vector<std::string> before = NamesIn(NoteOf(document));
  EXPECT_EQ(KVItemPut(document, "Shown", 0, 0, KVTYPE_TEXT, "put", 0), KVSUCCESS);
  EXPECT_EQ(Record(document)->dirty, 0);
  EXPECT_EQ(NamesIn(NoteOf(document)), before);
}

TEST_F(DocumentBindTest, KVItemFetch_ComputedFieldThatIsNotInTheNote_FormulaGivesTheValue) {
  const uint32_t document = CreateOn(Form("F")
                                         .Field(Editable("Subject"))
                                         .Field(Display("Shown", "Subject + \"!\""))
                                         .Field(kvdoc::Computed("Kept", "Subject + \"?\""))
                                         .Field(kvdoc::Defaulted("Plain", "\"default\""))
                                         .Store());
  ASSERT_EQ(SetCompute(document, 0), KVSUCCESS);
  for (const char* name : {"Shown", "Kept", "Plain"}) EngItemDelete(NoteOf(document), name, 5);
  EngItemDelete(NoteOf(document), "Kept", 4);
  PutText(document, "Subject", "text");
  EXPECT_EQ(FetchText(document, "Shown"), "text!");
  EXPECT_EQ(FetchText(document, "Kept"), "text?");
  char buffer[20];
  EXPECT_EQ(KVItemFetch(document, "Plain", nullptr, nullptr, nullptr, buffer), KVFAIL_NO_ITEM);
  uint32_t length = 0;
  uint32_t flags = 9;
  int32_t type = 0;
  EXPECT_EQ(KVItemGetInfo(document, "Shown", &type, &flags, &length), KVSUCCESS);
  EXPECT_EQ(type, KVTYPE_TEXT);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(length, 5u);
  // The formula gives a text, which is no number; the field's own type asks first.
  type = KVTYPE_NUMBER;
  EXPECT_EQ(KVItemFetch(document, "Shown", &type, nullptr, nullptr, buffer), KVFAIL_NO_FIELD);
}

TEST_F(DocumentBindTest, KVItemFetch_ComputedValueOfAnotherType_NoItem) {
  const uint32_t document =
      CreateOn(Form("F").Field(Display("Shown", "1 + 1", BRTYPE_TIME)).Field(Editable("Subject")).Store());
  ASSERT_EQ(SetCompute(document, 0), KVSUCCESS);
  EngItemDelete(NoteOf(document), "Shown", 5);
  char buffer[20];
  EXPECT_EQ(KVItemFetch(document, "Shown", nullptr, nullptr, nullptr, buffer), KVFAIL_NO_ITEM);
}

TEST_F(DocumentBindTest, KVItemListAndCount_BoundDocument_FieldsAlone) {
  const uint32_t document = CreateOn(StoreMemo());
  PutText(document, "Subject", "text");
  AppendText(NoteOf(document), "Stranger", "text");
  PutText(document, "Count", "1");
  const auto names = [&] {
    std::vector<std::string> all;
    KVITEM item;
    for (int32_t list = KVLIST_REFRESH; KVItemList(document, list, 0, &item) == KVSUCCESS; list = KVLIST_NEXT)
      all.push_back(item.name);
    return all;
  };
  EXPECT_EQ(names(), (std::vector<std::string>{"Subject", "Count"}));
  EXPECT_EQ(KVItemGetCount(document), 2u);
  ASSERT_EQ(Bind(document, 0), KVSUCCESS);
  EXPECT_EQ(names(), (std::vector<std::string>{"Form", "Subject", "Stranger", "Count"}));
  EXPECT_EQ(KVItemGetCount(document), 4u);
}

TEST_F(DocumentBindTest, KVItemDelete_NoFieldOfTheForm_RefusedWhileBound) {
  const uint32_t document = CreateOn(StoreMemo());
  AppendText(NoteOf(document), "Stranger", "text");
  EXPECT_EQ(KVItemDelete(document, "Stranger"), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemDelete(document, "Subject"), KVFAIL_NO_ITEM);
  ASSERT_EQ(Bind(document, 0), KVSUCCESS);
  EXPECT_EQ(KVItemDelete(document, "Stranger"), KVSUCCESS);
}

TEST_F(DocumentBindTest, KVItemAppendTextList_BoundDocument_OnlyFieldsOfText) {
  const uint32_t document = CreateOn(StoreMemo());
  EXPECT_EQ(KVItemAppendTextList(document, "Count", "one", 0, 1), KVFAIL_NO_ITEM);
  EXPECT_EQ(KVItemAppendTextList(document, "Other", "one", 0, 1), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemAppendTextList(document, "Subject", "one", 0, 1), KVSUCCESS);
}

TEST_F(DocumentBindTest, KVItemCopy_BoundDocuments_BothFormsMustAllowIt) {
  const uint32_t memo = StoreMemo();
  const uint32_t dates = Form("Dates").Field(Editable("Subject", BRTYPE_TIME)).Store();
  const uint32_t source = CreateOn(memo);
  PutText(source, "Subject", "text");
  EXPECT_EQ(KVItemCopy(source, "Count", CreateOn(dates)), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemCopy(source, "Subject", CreateOn(dates)), KVFAIL_NO_ITEM) << "a text is no date";
  const uint32_t target = CreateOn(memo);
  EXPECT_EQ(KVItemCopy(source, "Subject", target), KVSUCCESS);
  EXPECT_EQ(FetchText(target, "Subject"), "text");
}

TEST_F(DocumentBindTest, KVItemFetch_BoundDocument_ExecuteResultIsReadAllTheSame) {
  const uint32_t document = CreateOn(StoreMemo());
  ASSERT_EQ(KVDocumentExecute(document, "\"result\"", nullptr), KVSUCCESS);
  EXPECT_EQ(FetchText(document, "$$KVDocExecute!"), "result");
  uint32_t length = kUntouched;
  char buffer[20];
  EXPECT_EQ(KVItemFetch(document, "Other", nullptr, &length, nullptr, buffer), KVFAIL_NO_FIELD);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(KVItemFetch(document, "$$kvdocexecute!", nullptr, nullptr, nullptr, buffer), KVFAIL_NO_ITEM);
  void* pointer = this;
  EXPECT_EQ(KVItemGetPointer(document, "Other", nullptr, nullptr, nullptr, &pointer), KVFAIL_NO_FIELD);
  EXPECT_EQ(pointer, nullptr);
  EXPECT_EQ(KVItemGetLength(document, "Other", nullptr, nullptr, &length), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemGetInfo(document, "Other", nullptr, nullptr, &length), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemGetPointer(document, "$$KVDocExecute!", nullptr, nullptr, nullptr, &pointer), KVSUCCESS);
  EXPECT_EQ(Record(document)->fieldlist->in_form, 1);
}

TEST_F(DocumentBindTest, Subforms_FieldsCountWhenTheDatabaseReadsThem) {
  Form("Part").Subform().Field(Editable("Inner")).Store();
  const uint32_t formid = Form("Whole").Field(Editable("Own")).UseSubform("Part").Store();
  const uint32_t document = CreateOn(formid);
  PutText(document, "Own", "a");
  PutText(document, "Inner", "b");
  SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 0);
  EXPECT_EQ(KVItemPut(document, "Inner", 0, 0, KVTYPE_TEXT, "c", 0), KVFAIL_NO_FIELD);
  EXPECT_EQ(KVItemGetCount(document), 1u);
  SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 1);
  EXPECT_EQ(KVItemGetCount(document), 2u);
}

// ---- Documents that are made on a form

TEST_F(DocumentBindTest, KVDocumentCreate_Form_NamesItAndBindsWhenTheDatabaseDoes) {
  const uint32_t formid = StoreMemo();
  const uint32_t bound = CreateOn(formid);
  EXPECT_EQ(TextIn(NoteOf(bound), "Form"), "Memo");
  EXPECT_EQ(ItemsOf(NoteOf(bound)).front().flags, 4);
  EXPECT_EQ(Get<uint32_t>(bound, KVPROP_DOC_FORM_ID), formid);
  EXPECT_EQ(Get(bound, KVPROP_DOC_STRICT_BIND), 1);
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  const uint32_t free_one = CreateOn(formid);
  EXPECT_EQ(TextIn(NoteOf(free_one), "Form"), "Memo");
  EXPECT_EQ(Get(free_one, KVPROP_DOC_STRICT_BIND), 0);
  EXPECT_EQ(Get<uint32_t>(free_one, KVPROP_DOC_FORM_ID), 0u);
  EXPECT_EQ(Record(free_one)->form_save, Record(bound)->form) << "one spec for all of its documents";
  EXPECT_EQ(Bind(free_one, 1), KVSUCCESS);
  EXPECT_EQ(Get<uint32_t>(free_one, KVPROP_DOC_FORM_ID), formid);
}

TEST_F(DocumentBindTest, KVDocumentCreate_NoFormOfThatId_NoNoteIsMade) {
  const uint32_t subform = Form("Part").Subform().Field(Editable("Inner")).Store();
  const uint32_t data_document = Keep(CreateOn(StoreMemo()));
  for (const uint32_t formid : {subform, data_document, 0x12345u, 0xffffffffu}) {
    kit::Spy spy;
    uint32_t document = kUntouched;
    EXPECT_EQ(KVDocumentCreate(database_, formid, &document), KVFAIL_NO_FORM) << formid;
    EXPECT_EQ(document, 0u);
    ExpectError(KVFAIL_NO_FORM);
    EXPECT_EQ(spy.Count("EngNoteCreate"), 0u);
  }
}

TEST_F(DocumentBindTest, KVDocumentCreate_SubformThatIsCached_NoForm) {
  const uint32_t subform = Form("Part").Subform().Field(Editable("Inner")).Store();
  CreateOn(Form("Whole").UseSubform("Part").Store());
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentCreate(database_, subform, &document), KVFAIL_NO_FORM);
  EXPECT_EQ(document, 0u);
}

TEST_F(DocumentBindTest, KVDocumentCreate_NameCannotBeStored_EngineStatusAndNoDocument) {
  const uint32_t formid = StoreMemo();
  for (const uint32_t nth : {1u}) {
    kit::Fault fault = kit::Fault::EngineCall(nth, kvdoc::kEngineFailureWithFlagBits, "EngItemTextSet");
    uint32_t document = kUntouched;
    EXPECT_EQ(KVDocumentCreate(database_, formid, &document), kvdoc::kEngineFailure);
    EXPECT_EQ(document, 0u);
    EXPECT_TRUE(fault.Hit());
  }
}

// ---- The form of a stored document

TEST_F(DocumentBindTest, KVDocumentOpen_FormItem_FoundByNameAndReadOnce) {
  StoreMemo();
  const uint32_t docid = StoreNote(1, {{"Form", BRTYPE_TEXT, 4, "mEmO"}, {"Subject", BRTYPE_TEXT, 4, "x"}});
  kit::Spy spy;
  const uint32_t first = Open(docid);
  EXPECT_EQ(spy.Count("EngDesignFind"), 1u);
  spy.Clear();
  const uint32_t second = Open(docid);
  EXPECT_EQ(spy.Count("EngDesignFind"), 0u);
  EXPECT_EQ(spy.Count("EngNoteOpen"), 1u) << "the document's own";
  EXPECT_EQ(Record(first)->form, Record(second)->form);
  EXPECT_EQ(Get(first, KVPROP_DOC_EMBEDDED_FORM), 0);
}

TEST_F(DocumentBindTest, KVDocumentOpen_NoFormOfThatName_StrictNoForm) {
  Form("Part").Subform().Field(Editable("Inner")).Store();
  for (const std::string& name :
       {std::string("Missing"), std::string("Part"), std::string(129, 'n'), std::string(400, 'n')}) {
    const uint32_t docid = StoreNote(1, {{"Form", BRTYPE_TEXT, 4, name}, {"$TITLE", BRTYPE_TEXT, 4, "x"}});
    uint32_t document = kUntouched;
    EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), KVFAIL_STRICT_NO_FORM) << name;
    EXPECT_EQ(document, 0u);
    ExpectError(KVFAIL_STRICT_NO_FORM);
  }
}

TEST_F(DocumentBindTest, KVDocumentOpen_NoFormItem_TheDefaultForm) {
  const uint32_t docid = StoreNote(1, {{"Subject", BRTYPE_TEXT, 4, "x"}});
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), KVFAIL_STRICT_NO_FORM);
  const uint32_t formid =
      Form("Default").Class(BRCLASS_FORM | BRCLASS_DEFAULT).Field(Editable("Subject")).Store();
  document = Open(docid);
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_FORM_ID), formid);
  EXPECT_EQ(FetchText(document, "Subject"), "x");
}

TEST_F(DocumentBindTest, KVDocumentOpen_DatabaseDoesNotBind_NoFormIsSought) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  StoreMemo();
  const uint32_t docid = StoreNote(1, {{"Form", BRTYPE_TEXT, 4, "Memo"}});
  kit::Spy spy;
  const uint32_t document = Open(docid);
  EXPECT_EQ(spy.Count("EngItemTextGet"), 0u);
  EXPECT_EQ(Get(document, KVPROP_DOC_STRICT_BIND), 0);
  EXPECT_EQ(Bind(document, 1), KVSUCCESS);
  EXPECT_EQ(Get(document, KVPROP_DOC_STRICT_BIND), 1);
}

TEST_F(DocumentBindTest, KVDocumentOpen_FormIsGone_OpenDocumentsKeepItAndNewOnesFail) {
  const uint32_t formid = StoreMemo();
  const uint32_t document = CreateOn(formid);
  PutText(document, "Subject", "text");
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  const uint32_t docid = Record(document)->docid;
  ASSERT_EQ(EngNoteDelete(EngineDatabase(), formid, 0), 0);
  PutText(document, "Subject", "changed");
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  Reopen();
  uint32_t reopened = kUntouched;
  EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &reopened), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(reopened, 0u);
  EXPECT_EQ(StoredText(docid, "Subject"), "changed");
}

TEST_F(DocumentBindTest, KVDocumentOpen_FormThatCannotBeRead_StrictNoFormAndNothingIsLeft) {
  StoreMemo();
  const uint32_t docid = StoreNote(1, {{"Form", BRTYPE_TEXT, 4, "Memo"}});
  for (uint32_t nth = 1;; ++nth) {
    kit::Fault fault = kit::Fault::Allocation(nth);
    uint32_t document = kUntouched;
    const uint32_t status = KVDocumentOpen(database_, docid, 0, &document);
    const bool hit = fault.Hit();
    fault.Disarm();
    if (status == KVSUCCESS) {
      EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
      if (!hit) break;
      Reopen();
      continue;
    }
    EXPECT_EQ(document, 0u);
    Reopen();
  }
}

// ---- Binding and unbinding one document

TEST_F(DocumentBindTest, StrictBind_OffAndOn_TheFormIsKeptAside) {
  const uint32_t document = CreateOn(StoreMemo());
  const _FORMSPEC* form = Record(document)->form;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Bind(document, 0), KVSUCCESS);
    EXPECT_EQ(Bind(document, 0), KVSUCCESS);
    EXPECT_EQ(Record(document)->form, nullptr);
    EXPECT_EQ(Record(document)->form_save, form);
    EXPECT_EQ(Bind(document, round == 0 ? 1 : -7), KVSUCCESS);
    EXPECT_EQ(Record(document)->form, form);
    EXPECT_EQ(Record(document)->form_save, nullptr);
  }
}

TEST_F(DocumentBindTest, StrictBind_DesignDocument_StrictNoForm) {
  SetDatabaseBool(database_, KVPROP_DB_DOCOPEN_DESIGN, 1);
  const uint32_t document = Open(StoreMemo());
  EXPECT_EQ(Bind(document, 1), KVFAIL_STRICT_NO_FORM);
  ExpectError(KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(Bind(document, 0), KVSUCCESS);
}

TEST_F(DocumentBindTest, StrictBind_NoFormToBeFound_StrictNoForm) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  const uint32_t document = New();
  EXPECT_EQ(Bind(document, 1), KVFAIL_STRICT_NO_FORM);
  PutText(document, "Form", "Missing");
  EXPECT_EQ(Bind(document, 1), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(Get(document, KVPROP_DOC_STRICT_BIND), 0);
  StoreMemo("Missing");
  EXPECT_EQ(Bind(document, 1), KVSUCCESS);
}

TEST_F(DocumentBindTest, StrictBind_BoundDocumentThatNamesAnotherForm_Changes) {
  const uint32_t document = CreateOn(StoreMemo());
  const uint32_t other = StoreMemo("Other");
  ASSERT_EQ(EngItemTextSet(NoteOf(document), "Form", "Other", 5), 0);
  EXPECT_EQ(Bind(document, 1), KVSUCCESS);
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_FORM_ID), other);
}

// ---- Forms in documents

class EmbeddedFormTest : public kvdoc::BoundTest {
 protected:
  // A form that wants to be in its documents.
  FormBuilder Carried(const std::string& title = "Carried") const {
    return std::move(Form(title).Info(kvdoc::kInDocument).Field(Editable("Subject")));
  }
  uint32_t StoreCarrying() const {
    const uint32_t document = CreateOn(Carried().Store());
    PutText(document, "Subject", "text");
    return Keep(document);
  }
};

TEST_F(EmbeddedFormTest, KVDocumentCreate_FormThatIsStoredInDocuments_ItsItemsAreCopied) {
  const uint32_t formid = Carried()
                              .WindowTitle("\"title\"")
                              .NextItem()
                              .Field(Editable("Second"))
                              .NextItem()
                              .Field(Editable("Third"))
                              .Item("$Readers", BRTYPE_TEXT_LIST, kit::TextListBytes({"me"}))
                              .Item("$FormLinks", BRTYPE_TEXT, "links")
                              .Item("$Fonts", BRTYPE_COMPOSITE, "")
                              .Item("Unrelated", BRTYPE_TEXT, "x")
                              .Store();
  const uint32_t document = CreateOn(formid);
  EXPECT_EQ(NamesIn(NoteOf(document)),
            (std::vector<std::string>{"$Info", "$TITLE", "$WindowTitle", "$Body", "$Body", "$Body", "$Fonts",
                                      "$FormLinks", "$Readers"}));
  EXPECT_EQ(Get(document, KVPROP_DOC_EMBEDDED_FORM), 0) << "bound to the form that it was made on";
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_FORM_ID), formid);
}

TEST_F(EmbeddedFormTest, KVDocumentCreate_EachItemOfTheForm_RequiredOrNot) {
  const struct {
    FormBuilder form;
    const char* name;
    uint32_t status;
  } rows[] = {{Carried("One"), "$WindowTitle", KVSUCCESS},
              {Carried("Two").WindowTitle("1"), "$Fonts", KVSUCCESS}};
  for (const auto& row : rows) CreateOn(row.form.Store());
  // A title that cannot be copied, at each of its calls.
  const uint32_t formid = Carried("Three").Store();
  CreateOn(formid);
  for (const char* call : {"EngDesignFind", "EngItemCopy", "EngNoteOpen"}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kvdoc::kEngineFailureWithFlagBits, call);
    uint32_t document = kUntouched;
    const uint32_t expected = call[3] == 'D' ? KVFAIL_STRICT_NO_FORM : uint32_t{kvdoc::kEngineFailure};
    EXPECT_EQ(KVDocumentCreate(database_, formid, &document), expected) << call;
    EXPECT_EQ(document, 0u);
    EXPECT_TRUE(fault.Hit()) << call;
  }
}

TEST_F(EmbeddedFormTest, EmbedForm_MissingItems_OnlyRequiredOnesCount) {
  const struct {
    FormBuilder form;
    uint32_t status;
  } rows[] = {{Form("NoInfo").NoInfo().Field(Editable("A")), 0x222},
              {Form("NoBody").NoBody(), KVSUCCESS},
              {Carried("Files").Item("$FILE", BRTYPE_OBJECT, std::string(6, '\0')), kEngNotAvailable}};
  const char* names[] = {"NoInfo", "NoBody", "Files"};
  for (size_t i = 0; i < std::size(rows); ++i) {
    rows[i].form.Store();
    EngNote note = 0;
    ASSERT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
    EXPECT_EQ(EmbedForm(Base(), note, names[i]), rows[i].status) << names[i];
    EXPECT_EQ(EngNoteClose(note), 0);
  }
}

TEST_F(EmbeddedFormTest, EmbedForm_NoSuchForm_StrictNoForm) {
  EngNote note = 0;
  ASSERT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
  EXPECT_EQ(EmbedForm(Base(), note, "Missing"), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(EmbeddedFormTest, EmbedForm_NoteThatNamesAForm_TheNameGoes) {
  Carried().Store();
  EngNote note = 0;
  ASSERT_EQ(EngNoteCreate(EngineDatabase(), &note), 0);
  AppendText(note, "Form", "Carried");
  EXPECT_EQ(EmbedForm(Base(), note, "Carried"), KVSUCCESS);
  EXPECT_EQ(NamesIn(note), (std::vector<std::string>{"$Info", "$TITLE", "$Body"}));
  EXPECT_EQ(EngNoteClose(note), 0);
}

TEST_F(EmbeddedFormTest, KVDocumentOpen_FormInTheDocument_BoundToItsOwn) {
  const uint32_t docid = StoreCarrying();
  Reopen();
  const uint32_t document = Open(docid);
  EXPECT_EQ(Get(document, KVPROP_DOC_EMBEDDED_FORM), 1);
  EXPECT_EQ(Get<uint32_t>(document, KVPROP_DOC_FORM_ID), docid);
  EXPECT_EQ(Record(document)->form->pdoc, Record(document));
  EXPECT_EQ(Base()->dbinfo->forms, nullptr) << "it is in no cache";
  EXPECT_EQ(FetchText(document, "Subject"), "text");
  EXPECT_EQ(KVItemPut(document, "Other", 0, 0, KVTYPE_TEXT, "x", 0), KVFAIL_NO_FIELD);
  PutText(document, "Subject", "changed");
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  // Closing frees it, bound or not; the end of the test proves that.
  EXPECT_EQ(Bind(document, 0), KVSUCCESS);
  EXPECT_EQ(Get(document, KVPROP_DOC_EMBEDDED_FORM), 1);
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  const uint32_t second = Open(docid);
  EXPECT_EQ(Bind(second, 0), KVSUCCESS);
  EXPECT_EQ(Bind(second, 1), KVSUCCESS);
  EXPECT_EQ(Bind(second, 1), KVSUCCESS) << "bound already";
  EXPECT_EQ(Get(second, KVPROP_DOC_EMBEDDED_FORM), 1);
  EXPECT_EQ(KVDocumentClose(second, 0), KVSUCCESS);
  EXPECT_EQ(StoredText(docid, "Subject"), "changed");
}

TEST_F(EmbeddedFormTest, KVDocumentOpen_TitleWithoutAForm_StrictNoForm) {
  const uint32_t docid = StoreNote(1, {{"$TITLE", BRTYPE_TEXT, 4, "Memo"}});
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &document), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(document, 0u);
}

TEST_F(EmbeddedFormTest, StrictBind_UnsavedDocumentWithItsForm_HasNoIdToReadItBy) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  const uint32_t document = New();
  PutText(document, "$TITLE", "Carried");
  EXPECT_EQ(Bind(document, 1), KVFAIL_STRICT_NO_FORM);
  EXPECT_EQ(Get(document, KVPROP_DOC_EMBEDDED_FORM), 0);
}

TEST_F(EmbeddedFormTest, KVDocumentCreate_FormOfAnOpenDocument_OutlivesThatDocument) {
  const uint32_t docid = StoreCarrying();
  Reopen();
  const uint32_t owner = Open(docid);
  const uint32_t first = CreateOn(docid);
  const uint32_t second = CreateOn(docid);
  EXPECT_EQ(Record(first)->form, Record(owner)->form);
  EXPECT_EQ(KVDocumentClose(owner, 0), KVSUCCESS);
  PutText(first, "Subject", "one");
  EXPECT_EQ(KVItemPut(first, "Other", 0, 0, KVTYPE_TEXT, "x", 0), KVFAIL_NO_FIELD);
  EXPECT_EQ(Bind(second, 0), KVSUCCESS);
  EXPECT_EQ(KVDocumentClose(first, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(Bind(second, 1), KVSUCCESS);
  PutText(second, "Subject", "two");
  EXPECT_EQ(KVDocumentClose(second, KVDOCWRITE_DISCARD), KVSUCCESS);
  uint32_t document = kUntouched;
  EXPECT_EQ(KVDocumentCreate(database_, docid, &document), KVFAIL_NO_FORM) << "nobody has it open";
}

// ---- Damaged forms: a document's own form comes with the document, from wherever that came

TEST_F(EmbeddedFormTest, Lives_DamagedFormsInDocuments_StatusesAndNothingElse) {
  const FormField fields[] = {kvdoc::Computed("Kept", "\"kept\" + Subject"),
                              kvdoc::Display("Shown", "Kept + \"!\""),
                              kvdoc::Translated("Subject", "@UpperCase(Subject)"),
                              kvdoc::Validated("Other", "@If(Other = \"\"; @Failure(\"none\"); @Success)")};
  std::string body;
  for (const FormField& field : fields) {
    body += kit::FieldBytes(field);
    if (body.size() % 2 != 0) body.push_back('\0');
  }
  const std::string title = kit::CompiledFormula("\"About \" + Subject");
  std::mt19937 random(static_cast<uint32_t>(SeedOfRun()));
  std::string text(0x40000, 0);
  for (int round = 0; round < 300; ++round) {
    std::string damaged = body;
    for (uint32_t left = round % 5; left != 0; --left)
      damaged[random() % damaged.size()] = static_cast<char>(random());
    if (round % 7 == 6) damaged.resize(random() % damaged.size());
    std::string damaged_title = title;
    if (round % 3 == 1) damaged_title[random() % title.size()] = static_cast<char>(random());
    std::string info{static_cast<char>(0x86), 24};
    info.resize(24);
    const uint32_t docid = StoreNote(1, {{"$TITLE", BRTYPE_TEXT, 4, "Own"},
                                         {"$Info", BRTYPE_COMPOSITE, 0, info},
                                         {"$WindowTitle", BRTYPE_FORMULA, 0, damaged_title},
                                         {"$Body", BRTYPE_COMPOSITE, 0, damaged},
                                         {"Subject", BRTYPE_TEXT, 4, "subject"}});
    uint32_t document = 0;
    const uint32_t status = KVDocumentOpen(database_, docid, 0, &document);
    EXPECT_TRUE(status == KVSUCCESS || status == KVFAIL_STRICT_NO_FORM) << status;
    if (round == 0) {
      EXPECT_EQ(FetchText(document, "Shown"), "!");
    }
    if (status != KVSUCCESS) continue;
    int32_t is_valid = 0;
    (void)KVDocumentValidate(document, 1000, &is_valid, text.data(), nullptr);
    (void)KVDocumentGetProperty(document, KVPROP_DOC_TITLE, text.data());
    KVITEM item;
    for (int32_t list = KVLIST_FIRST; KVItemList(document, list, 1, &item) == KVSUCCESS;) list = KVLIST_NEXT;
    (void)KVItemPut(document, "Subject", 0, 0, KVTYPE_TEXT, "changed", 0);
    EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  }
}

}  // namespace
