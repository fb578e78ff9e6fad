// The formulas of forms: what each event computes, what failures leave behind, and validation.
#include "kvdoc_forms.h"

namespace {

using kvdoc::Computed;
using kvdoc::Defaulted;
using kvdoc::Display;
using kvdoc::Editable;
using kvdoc::ItemsOf;
using kvdoc::kEngineFailure;
using kvdoc::kEngineFailureWithFlagBits;
using kvdoc::kUntouched;
using kvdoc::NoteItem;
using kvdoc::Record;
using kvdoc::Translated;
using kvdoc::Validated;

constexpr char kNone[] = "(none)";
constexpr int32_t kEvents[] = {KVCOMPUTE_CREATE, KVCOMPUTE_OPEN, KVCOMPUTE_AFTER_SAVE,
                               KVCOMPUTE_STORE,  KVCOMPUTE_SAVE, KVCOMPUTE_CLOSE};

class ComputeTest : public kvdoc::BoundTest {
 protected:
  // One field of each kind.
  uint32_t StoreKinds() const {
    return Form("Kinds")
        .Field(Defaulted("Default", "\"default\""))
        .Field(Translated("Translate", "@UpperCase(Translate)"))
        .Field(Computed("Compute", "\"computed\""))
        .Field(Display("Display", "\"shown\""))
        .Field(Editable("Plain"))
        .Store();
  }
  // A document of that form whose note is empty, as a stored one or as a new one.
  uint32_t Empty(uint32_t formid, int32_t is_new) const {
    const uint32_t document = CreateOn(formid);
    for (const std::string& name : NamesIn(NoteOf(document)))
      EXPECT_EQ(EngItemDelete(NoteOf(document), name.c_str(), static_cast<uint16_t>(name.size())), 0);
    Record(document)->new_ = is_new;
    return document;
  }
  uint32_t Compute(uint32_t document, int32_t event) const {
    return _DocCompute(session_, Record(document), event);
  }
  static std::vector<std::string> Values(uint32_t document) {
    std::vector<std::string> values;
    for (const char* name : {"Default", "Translate", "Compute", "Display", "Plain"})
      values.push_back(TextIn(NoteOf(document), name));
    return values;
  }
};

// ---- The events

TEST_F(ComputeTest, DocCompute_EachEventOnAnEmptyNote_EveryFieldByItsRule) {
  const uint32_t formid = StoreKinds();
  const std::vector<std::string> created{"default", kNone, "computed", "shown", kNone};
  const std::vector<std::string> read{"", "", "", "shown", ""};
  const std::vector<std::string> stored{"", "", "computed", kNone, ""};
  for (const int32_t event : kEvents) {
    for (const int32_t is_new : {0, 1}) {
      const uint32_t document = Empty(formid, is_new);
      EXPECT_EQ(Compute(document, event), KVSUCCESS);
      const bool creates = is_new != 0 || event == KVCOMPUTE_CREATE;
      EXPECT_EQ(Values(document), creates                   ? created
                                  : event < KVCOMPUTE_STORE ? read
                                                            : stored)
          << "event " << event << " new " << is_new;
      EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
    }
  }
}

TEST_F(ComputeTest, DocCompute_EachEventOnFullNote_OnlyFormulasChangeValues) {
  const uint32_t formid = StoreKinds();
  const std::vector<std::string> read{"old", "old", "old", "shown", "old"};
  const std::vector<std::string> stored{"old", "OLD", "computed", kNone, "old"};
  for (const int32_t event : kEvents) {
    if (event == KVCOMPUTE_CREATE) continue;
    const uint32_t document = Empty(formid, 0);
    for (const char* name : {"Default", "Translate", "Compute", "Display", "Plain"})
      AppendText(NoteOf(document), name, "old");
    EXPECT_EQ(Compute(document, event), KVSUCCESS);
    EXPECT_EQ(Values(document), event < KVCOMPUTE_STORE ? read : stored) << "event " << event;
    EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  }
}

TEST_F(ComputeTest, DocCompute_EachSetting_OnlyAFormThatAsksComputes) {
  const uint32_t document = Empty(StoreKinds(), 0);
  _DOCUMENT* doc = Record(document);
  _FORMSPEC* form = doc->form;
  const struct {
    int32_t sb_compute, has_form, compute, compute_new, is_new, event;
    bool computes;
  } rows[] = {{1, 0, 1, 1, 1, KVCOMPUTE_CREATE, false}, {0, 1, 1, 1, 1, KVCOMPUTE_CREATE, false},
              {1, 1, 0, 1, 0, KVCOMPUTE_CREATE, true},  {1, 1, 1, 0, 0, KVCOMPUTE_CREATE, false},
              {1, 1, 1, 0, 0, KVCOMPUTE_OPEN, true},    {1, 1, 0, 1, 0, KVCOMPUTE_OPEN, false},
              {1, 1, 0, 1, 1, KVCOMPUTE_SAVE, true},    {1, 1, 1, 0, 1, KVCOMPUTE_SAVE, false}};
  for (const auto& row : rows) {
    doc->sb_compute = row.sb_compute;
    doc->form = row.has_form ? form : nullptr;
    form->compute = row.compute;
    form->compute_new = row.compute_new;
    doc->new_ = row.is_new;
    kit::Spy spy;
    EXPECT_EQ(_DocCompute(session_, doc, row.event), KVSUCCESS);
    EXPECT_EQ(spy.Count("EngComputeBegin") != 0, row.computes) << &row - rows;
    EXPECT_EQ(spy.calls().empty(), !row.computes) << &row - rows;
  }
  doc->form = form;
}

TEST_F(ComputeTest, DocCompute_DisplayFields_RemovedFromTheFirstOnAndReadByOthersBefore) {
  const uint32_t formid = Form("F")
                              .Field(Computed("Early", "@If(@IsAvailable(Shown); \"seen\"; \"unseen\")"))
                              .Field(Display("Shown", "\"shown\""))
                              .Field(Computed("Late", "Shown + \"!\""))
                              .Field(Display("Second", "Late + \"?\""))
                              .Store();
  const uint32_t document = Empty(formid, 0);
  EXPECT_EQ(Compute(document, KVCOMPUTE_SAVE), KVSUCCESS);
  EXPECT_EQ(NamesIn(NoteOf(document)), (std::vector<std::string>{"Early", "Late"}));
  EXPECT_EQ(TextIn(NoteOf(document), "Early"), "unseen");
  EXPECT_EQ(TextIn(NoteOf(document), "Late"), "shown!");
  EXPECT_EQ(Compute(document, KVCOMPUTE_AFTER_SAVE), KVSUCCESS);
  EXPECT_EQ(TextIn(NoteOf(document), "Second"), "shown!?");
}

TEST_F(ComputeTest, DocCompute_FieldsOfSubforms_ComputedInTheirPlace) {
  Form("Part").Subform().Field(Computed("Inner", "Own + \"-inner\"")).Field(Display("Seen", "Inner")).Store();
  const uint32_t formid = Form("Whole")
                              .Field(Computed("Own", "\"own\""))
                              .UseSubform("Part")
                              .Field(Computed("Last", "Inner + \"-last\""))
                              .Store();
  const uint32_t document = Empty(formid, 0);
  EXPECT_EQ(Compute(document, KVCOMPUTE_SAVE), KVSUCCESS);
  EXPECT_EQ(NamesIn(NoteOf(document)), (std::vector<std::string>{"Own", "Inner", "Last"}));
  EXPECT_EQ(TextIn(NoteOf(document), "Last"), "own-inner-last");
  SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 0);
  const uint32_t without = Empty(formid, 0);
  EXPECT_EQ(Compute(without, KVCOMPUTE_SAVE), KVSUCCESS);
  EXPECT_EQ(NamesIn(NoteOf(without)), (std::vector<std::string>{"Own", "Last"}));
}

// ---- What a form wants in its documents

TEST_F(ComputeTest, DocCompute_Marks_WrittenOnceWhenTheFormWantsThem) {
  const uint32_t plain = Form("Plain").Field(Computed("A", "1")).Store();
  const uint32_t marked =
      Form("Marked").Info(0x80, kvdoc::kAnonymousForm).ConflictAction("1").Field(Computed("A", "1")).Store();
  const uint32_t none = Empty(plain, 0);
  EXPECT_EQ(Compute(none, KVCOMPUTE_OPEN), KVSUCCESS);
  EXPECT_EQ(NamesIn(NoteOf(none)), (std::vector<std::string>{"A"}));
  const uint32_t document = Empty(marked, 0);
  AppendText(NoteOf(document), "$ANONYMOUS", "0");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Compute(document, KVCOMPUTE_OPEN), KVSUCCESS);
    EXPECT_EQ(TextIn(NoteOf(document), "$Anonymous"), "0");
    EXPECT_EQ(TextIn(NoteOf(document), "$ConflictAction"), "1");
  }
  const uint32_t created = CreateOn(Form("New")
                                        .Info(0x80, kvdoc::kAnonymousForm)
                                        .ConflictAction("1")
                                        .Field(Computed("A", "1"))
                                        .Field(Defaulted("B", "1"))
                                        .Store());
  EXPECT_EQ(TextIn(NoteOf(created), "$Anonymous"), "1");
}

TEST_F(ComputeTest, Marks_CannotBeWritten_CreateAndSaveFailAndOpenDoesNot) {
  const uint32_t formid = Form("Marked")
                              .Info(0x80, kvdoc::kAnonymousForm)
                              .Field(Computed("A", "\"a\""))
                              .Field(Defaulted("B", "\"b\""))
                              .Store();
  const uint32_t document = CreateOn(formid);
  const uint32_t docid = Keep(CreateOn(formid));
  EngNote note = 0;
  ASSERT_EQ(EngNoteOpen(EngineDatabase(), docid, 0, &note), 0);
  ASSERT_EQ(EngItemDelete(note, "$Anonymous", 10), 0);
  ASSERT_EQ(EngNoteUpdate(note, 0), 0);
  ASSERT_EQ(EngNoteClose(note), 0);
  ASSERT_EQ(EngItemDelete(NoteOf(document), "$Anonymous", 10), 0);

  uint32_t created = kUntouched;
  {
    // The first text that a create sets is the name of the form.
    kit::Fault fault = kit::Fault::EngineCall(2, kEngineFailureWithFlagBits, "EngItemTextSet");
    EXPECT_EQ(KVDocumentCreate(database_, formid, &created), kEngineFailure);
    EXPECT_EQ(created, 0u);
  }
  {
    kit::Spy spy;
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemTextSet");
    EXPECT_EQ(KVDocumentSave(document, 0), kEngineFailure);
    EXPECT_EQ(Record(document)->dirty, 1);
    EXPECT_EQ(spy.Count("EngNoteUpdate"), 0u);
  }
  {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemTextSet");
    EXPECT_EQ(KVDocumentClose(document, 0), kEngineFailure);
    ExpectError(kEngineFailure);
  }
  kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngItemTextSet");
  EXPECT_EQ(KVDocumentOpen(database_, docid, 0, &created), KVSUCCESS);
  EXPECT_TRUE(fault.Hit());
}

// ---- Failing fields

TEST_F(ComputeTest, DocCompute_FormulaThatFails_EmptyValueAndSuccess) {
  const uint32_t formid = Form("F")
                              .Field(Computed("Date", "\"no date\"", BRTYPE_TIME))
                              .Field(Computed("After", "\"after\""))
                              .Field(Translated("Typed", "\"no date\"", BRTYPE_TIME))
                              .Store();
  const uint32_t document = Empty(formid, 0);
  AppendText(NoteOf(document), "Typed", "old");
  AppendText(NoteOf(document), "Typed", "older");
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  for (const char* name : {"Date", "Typed"}) {
    EXPECT_EQ(TextIn(NoteOf(document), name), "") << name;
    EXPECT_EQ(ItemsOf(NoteOf(document), name).front().flags, 4);
  }
  EXPECT_EQ(StoredText(Record(document)->docid, "Date"), "");
  EXPECT_EQ(StoredText(Record(document)->docid, "After"), "after");
}

TEST_F(ComputeTest, DocCompute_EachEngineCallFails_TheFieldIsEmptyTheOthersAreNot) {
  const uint32_t formid =
      Form("F").Field(Computed("Bad", "\"bad\"")).Field(Computed("Good", "\"good\"")).Store();
  for (const char* call : {"EngComputeBegin", "EngComputeEvaluate"}) {
    const uint32_t document = Empty(formid, 0);
    {
      kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
      EXPECT_EQ(Compute(document, KVCOMPUTE_SAVE), KVSUCCESS);
      EXPECT_TRUE(fault.Hit());
    }
    EXPECT_EQ(TextIn(NoteOf(document), "Bad"), "") << call;
    EXPECT_EQ(TextIn(NoteOf(document), "Good"), "good") << call;
  }
}

uint32_t CountFailure(uint32_t, int32_t, char*, void* count) {
  ++*static_cast<int*>(count);
  return 0;
}

TEST_F(ComputeTest, DocCompute_FormulaTextThatDoesNotCompile_TheSaveTellsNothingOfIt) {
  int failure_count = 0;
  KVErrorSetProcedure(CountFailure, &failure_count);
  const uint32_t formid = Form("F").Field(Computed("Code", "\"1 +\"", BRTYPE_FORMULA)).Store();
  const uint32_t document = Empty(formid, 0);
  EXPECT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(kit::LastError().status, KVSUCCESS);
  EXPECT_EQ(TextIn(NoteOf(document), "Code"), "");
  EXPECT_EQ(failure_count, 0);
  // A later failure of the same call is told as itself.
  EngItemDelete(NoteOf(document), "Code", 4);
  Record(document)->dirty = 1;
  kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteUpdate");
  EXPECT_EQ(KVDocumentSave(document, 0), kEngineFailure);
  ExpectError(kEngineFailure);
  EXPECT_EQ(failure_count, 1);
  KVErrorSetProcedure(nullptr, nullptr);
}

TEST_F(ComputeTest, ItemCompute_Statuses_TellWhatFailed) {
  const uint32_t document = Empty(Form("F")
                                      .Field(Computed("Number", "\"12\"", BRTYPE_NUMBER))
                                      .Field(Computed("Date", "\"no date\"", BRTYPE_TIME))
                                      .Store(),
                                  0);
  _DOCUMENT* doc = Record(document);
  const FIELDSPEC* number = GetFieldspec(doc->form, "Number");
  const FIELDSPEC* date = GetFieldspec(doc->form, "Date");
  AppendText(doc->notehand, "Number", "old");
  EXPECT_EQ(_ItemCompute(session_, doc, number, number->dvformula), KVSUCCESS);
  const std::vector<NoteItem> items = ItemsOf(doc->notehand, "Number");
  ASSERT_EQ(items.size(), 1u) << "earlier items of the name go";
  EXPECT_EQ(items[0].bytes, kvdoc::NumberBytes(12));
  EXPECT_EQ(_ItemCompute(session_, doc, date, date->dvformula), KVFAIL_BAD_FORMAT);
  for (const char* call : {"EngComputeBegin", "EngComputeEvaluate", "EngItemAppend"}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
    EXPECT_EQ(_ItemCompute(session_, doc, number, number->dvformula) & 0x3fff, kEngineFailure) << call;
  }
}

TEST_F(ComputeTest, ItemCompute_FieldsFormat_ItsFlagsAreTheItems) {
  auto field = Computed("Editors", "\"One\" : \"Two\"", BRTYPE_TEXT_LIST);
  field.flags |= 0x1;
  const uint32_t document = Empty(Form("F").Field(field).Store(), 0);
  EXPECT_EQ(Compute(document, KVCOMPUTE_SAVE), KVSUCCESS);
  const std::vector<NoteItem> items = ItemsOf(NoteOf(document), "Editors");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].flags, 0x24);
  EXPECT_EQ(items[0].bytes, kvdoc::TextList({"One", "Two"}));
}

// ---- Whole lives of documents

TEST_F(ComputeTest, Cycle_CreateSaveOpenClose_EachKindOfFieldAsItShouldBe) {
  const uint32_t formid = Form("Order")
                              .WindowTitle("\"Order \" + Number")
                              .Field(Defaulted("Number", "\"new\""))
                              .Field(Translated("Mail", "@LowerCase(@Trim(Mail))"))
                              .Field(Editable("Price", BRTYPE_NUMBER))
                              .Field(Computed("Total", "Price * 2", BRTYPE_NUMBER))
                              .Field(Display("Shown", "Number + \": \" + @Text(Total)"))
                              .Store();
  const uint32_t document = CreateOn(formid);
  EXPECT_EQ(TextIn(NoteOf(document), "Number"), "new");
  PutText(document, "Number", "7");
  PutText(document, "Mail", "  One@Example.ORG ");
  PutText(document, "Price", "21");
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  const uint32_t docid = Get<uint32_t>(document, KVPROP_DOC_ID);
  EXPECT_EQ(StoredText(docid, "Shown"), kNone) << "never stored";
  EXPECT_EQ(StoredText(docid, "Mail"), "one@example.org");
  EXPECT_EQ(FetchText(document, "Shown"), "7: 42") << "there for the open document all the same";
  EXPECT_EQ(TextIn(NoteOf(document), "Shown"), "7: 42");
  EXPECT_EQ(Get(document, KVPROP_DOC_DIRTY), 0);
  ASSERT_EQ(KVDocumentClose(document, 0), KVSUCCESS);

  Reopen();
  const uint32_t opened = Open(docid);
  EXPECT_EQ(TextIn(NoteOf(opened), "Shown"), "7: 42");
  EXPECT_EQ(Get(opened, KVPROP_DOC_DIRTY), 0);
  PutText(opened, "Price", "4");
  kit::Spy spy;
  ASSERT_EQ(KVDocumentClose(opened, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngNoteUpdate"), 1u);
  EXPECT_EQ(StoredText(docid, "Shown"), kNone);
  const std::vector<NoteItem> total = StoredItems(docid, "Total");
  ASSERT_EQ(total.size(), 1u);
  EXPECT_EQ(total[0].bytes, kvdoc::NumberBytes(8));
}

TEST_F(ComputeTest, Cycle_ComputeOff_NothingComputesAndTheBindingHolds) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND_COMPUTE, 0);
  const uint32_t formid = StoreKinds();
  const uint32_t document = CreateOn(formid);
  EXPECT_EQ(Values(document), (std::vector<std::string>{kNone, kNone, kNone, kNone, kNone}));
  PutText(document, "Translate", "lower");
  EXPECT_EQ(KVItemPut(document, "Other", 0, 0, KVTYPE_TEXT, "x", 0), KVFAIL_NO_FIELD);
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(Values(document), (std::vector<std::string>{kNone, "lower", kNone, kNone, kNone}));
  ASSERT_EQ(SetCompute(document, 5), KVSUCCESS);
  PutText(document, "Plain", "x");
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(Values(document), (std::vector<std::string>{"", "LOWER", "computed", "shown", "x"}));
}

TEST_F(ComputeTest, KVDocumentSave_UnboundDocument_NothingComputes) {
  const uint32_t document = CreateOn(StoreKinds());
  ASSERT_EQ(Bind(document, 0), KVSUCCESS);
  PutText(document, "Translate", "lower");
  kit::Spy spy;
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
  EXPECT_EQ(TextIn(NoteOf(document), "Translate"), "lower");
}

TEST_F(ComputeTest, KVDocumentSave_BoundDocument_NewEndsWithTheFirstOne) {
  const uint32_t document = CreateOn(StoreKinds());
  kit::Spy spy;
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  PutText(document, "Plain", "x");
  ASSERT_EQ(KVDocumentSave(document, 0), KVSUCCESS);
  ASSERT_EQ(spy.Count("EngNoteUpdate"), 2u);
  EXPECT_EQ(spy.Find("EngNoteUpdate", 0)->words[1], 0x100u);
  EXPECT_EQ(spy.Find("EngNoteUpdate", 1)->words[1], 0u);
  EXPECT_EQ(Record(document)->new_, 0);
}

TEST_F(ComputeTest, KVDocumentSave_UpdateFails_AfterSaveStillComputes) {
  const uint32_t document = CreateOn(StoreKinds());
  kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, "EngNoteUpdate");
  EXPECT_EQ(KVDocumentSave(document, 0), kEngineFailure);
  fault.Disarm();
  EXPECT_EQ(TextIn(NoteOf(document), "Display"), "shown");
  EXPECT_EQ(Record(document)->dirty, 0);
}

TEST_F(ComputeTest, KVDocumentClose_Discarded_NothingComputes) {
  const uint32_t document = CreateOn(StoreKinds());
  kit::Spy spy;
  EXPECT_EQ(KVDocumentClose(document, KVDOCWRITE_DISCARD), KVSUCCESS);
  EXPECT_EQ(spy.Count("EngComputeBegin"), 0u);
}

TEST_F(ComputeTest, KVDocumentClose_Changed_StoredAsASaveStoresIt) {
  const uint32_t docid = Keep(CreateOn(StoreKinds()));
  const uint32_t document = Open(docid);
  PutText(document, "Translate", "lower");
  EXPECT_EQ(KVDocumentClose(document, 0), KVSUCCESS);
  EXPECT_EQ(StoredText(docid, "Translate"), "LOWER");
  EXPECT_EQ(StoredText(docid, "Display"), kNone);
  EXPECT_EQ(StoredText(docid, "Plain"), "") << "every field exists in the note";
}

// ---- Validation

class ValidateTest : public ComputeTest {
 protected:
  struct Verdict {
    uint32_t status;
    int32_t is_valid;
    std::string failure, fieldname;
  };
  static Verdict Validate(uint32_t document, uint32_t length = 200) {
    int32_t is_valid = 77;
    char failure[201];
    char fieldname[65];
    memset(failure, '#', sizeof failure);
    memset(fieldname, '#', sizeof fieldname);
    const uint32_t status = KVDocumentValidate(document, length, &is_valid, failure, fieldname);
    return {status, is_valid, failure, fieldname};
  }
  static void ExpectValid(uint32_t document) {
    const Verdict verdict = Validate(document);
    EXPECT_EQ(verdict.status, KVSUCCESS);
    EXPECT_EQ(verdict.is_valid, 1);
    EXPECT_EQ(verdict.failure, "");
    EXPECT_EQ(verdict.fieldname, "");
  }
};

constexpr char kNeedsSubject[] = "@If(Subject = \"\"; @Failure(\"A subject is needed\"); @Success)";

TEST_F(ValidateTest, KVDocumentValidate_NoForm_Valid) {
  SetDatabaseBool(database_, KVPROP_DB_STRICT_BIND, 0);
  ExpectValid(New());
  const uint32_t unbound = CreateOn(Form("F").Field(Validated("Subject", kNeedsSubject)).Store());
  ExpectValid(unbound);
  ASSERT_EQ(Bind(unbound, 1), KVSUCCESS);
  EXPECT_EQ(Validate(unbound).is_valid, 0);
}

TEST_F(ValidateTest, KVDocumentValidate_Arguments_CheckedInOrderAndOutputsCleared) {
  char failure[10] = "untouched";
  char fieldname[10] = "untouched";
  int32_t is_valid = 5;
  const uint32_t document = CreateOn(StoreMemo());
  EXPECT_EQ(KVDocumentValidate(document, 9, nullptr, failure, fieldname), KVFAIL_NULL_PARAM);
  EXPECT_STREQ(failure, "untouched");
  EXPECT_EQ(KVDocumentValidate(database_, 9, &is_valid, failure, fieldname), KVFAIL_BAD_DOCUMENT);
  EXPECT_EQ(is_valid, 0);
  EXPECT_STREQ(failure, "");
  EXPECT_STREQ(fieldname, "");
  EXPECT_STREQ(failure + 1, "ntouched");
  EXPECT_EQ(KVDocumentValidate(document, 0, &is_valid, nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(is_valid, 1);
}

TEST_F(ValidateTest, KVDocumentValidate_FieldThatFails_TellsTheFirst) {
  const uint32_t document = CreateOn(
      Form("F")
          .Field(Validated("Subject", kNeedsSubject))
          .Field(Validated("Price", "@If(Price < 0; @Failure(\"No gifts\"); @Success)", BRTYPE_NUMBER))
          .Store());
  Validate(document);
  const Verdict first = Validate(document);
  EXPECT_EQ(first.status, KVSUCCESS);
  EXPECT_EQ(first.is_valid, 0);
  EXPECT_EQ(first.failure, "A subject is needed");
  EXPECT_EQ(first.fieldname, "Subject");
  PutText(document, "Subject", "text");
  PutText(document, "Price", "-1");
  EXPECT_EQ(Validate(document).failure, "No gifts");
  EXPECT_EQ(Validate(document).fieldname, "Price");
  int32_t is_valid = 5;
  EXPECT_EQ(KVDocumentValidate(document, 0, &is_valid, nullptr, nullptr), KVSUCCESS);
  EXPECT_EQ(is_valid, 0);
  PutText(document, "Price", "1");
  ExpectValid(document);
}

TEST_F(ValidateTest, KVDocumentValidate_FailureText_NeverLongerThanItsRoom) {
  const uint32_t document = CreateOn(Form("F").Field(Validated("Subject", kNeedsSubject)).Store());
  const std::string whole = "A subject is needed";
  EXPECT_EQ(Validate(document, 0).failure, whole) << "0 sets no limit";
  EXPECT_EQ(Validate(document, 19).failure, whole);
  EXPECT_EQ(Validate(document, 18).failure, "");
  EXPECT_EQ(Validate(document, 18).status, KVSUCCESS);
  EXPECT_EQ(Validate(document, 1).fieldname, "Subject");
  const int32_t on = 1;
  ASSERT_EQ(KVSetProperty(KVPROP_SESS_TRUNCATE_TEXT, &on), KVSUCCESS);
  EXPECT_EQ(Validate(document, 9).failure, "A subject");
}

TEST_F(ValidateTest, KVDocumentValidate_ResultThatIsNoText_ToldAsText) {
  const uint32_t document = CreateOn(Form("F").Field(Validated("Subject", "0")).Store());
  EXPECT_EQ(Validate(document).is_valid, 0);
  EXPECT_EQ(Validate(document).failure, "0");
}

TEST_F(ValidateTest, KVDocumentValidate_FieldThatUsersDoNotType_NotAsked) {
  auto computed = Computed("Subject", "\"\"");
  computed.validation_formula = "@Failure(\"never\")";
  const uint32_t document = CreateOn(Form("F").Field(computed).Field(Validated("Other", "@Success")).Store());
  ExpectValid(document);
  Record(document)->form->fieldlist[0].flags |= 2;
  EXPECT_EQ(Validate(document).failure, "never");
  Record(document)->form->compute_valid = 0;
  ExpectValid(document);
}

TEST_F(ValidateTest, KVDocumentValidate_FieldOfASubform_AskedWhenTheDatabaseReadsThem) {
  Form("Part").Subform().Field(Validated("Inner", "@Failure(\"inner\")")).Store();
  const uint32_t document =
      CreateOn(Form("Whole").Field(Validated("Own", "@Success")).UseSubform("Part").Store());
  EXPECT_EQ(Validate(document).fieldname, "Inner");
  SetDatabaseBool(database_, KVPROP_DB_READ_SUBF_FIELDS, 0);
  ExpectValid(document);
}

TEST_F(ValidateTest, KVDocumentValidate_LongFieldName_CutAtSixtyFour) {
  for (const size_t bytes : {63u, 64u, 65u, 200u}) {
    const std::string name(bytes, 'n');
    const uint32_t document =
        CreateOn(Form("F" + std::to_string(bytes)).Field(Validated(name, "@Failure(\"x\")")).Store());
    EXPECT_EQ(Validate(document).fieldname, name.substr(0, 64));
  }
}

TEST_F(ValidateTest, KVDocumentValidate_FormulaCannotRun_EngineStatusAndInvalid) {
  const uint32_t document = CreateOn(Form("F").Field(Validated("Subject", "@Success")).Store());
  for (const char* call : {"EngComputeBegin", "EngComputeEvaluate"}) {
    kit::Fault fault = kit::Fault::EngineCall(1, kEngineFailureWithFlagBits, call);
    const Verdict verdict = Validate(document);
    EXPECT_EQ(verdict.status, kEngineFailure) << call;
    EXPECT_EQ(verdict.is_valid, 0);
    EXPECT_EQ(verdict.failure, "");
    EXPECT_EQ(verdict.fieldname, "");
  }
}

TEST_F(ValidateTest, KVDocumentValidate_ComputeOff_AsksAllTheSame) {
  const uint32_t document = CreateOn(Form("F").Field(Validated("Subject", kNeedsSubject)).Store());
  ASSERT_EQ(SetCompute(document, 0), KVSUCCESS);
  EXPECT_EQ(Validate(document).is_valid, 0);
}

}  // namespace
