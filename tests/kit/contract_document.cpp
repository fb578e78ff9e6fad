// Rows of the document functions.
#include <cstring>

#include "brynd.h"
#include "kit/contract.h"
#include "kit/form_builder.h"

namespace kit {

static Argument Database() { return Handle(Object::kDatabase, KVFAIL_NO_DATABASE); }
static Argument Document() { return Handle(Object::kDocument, KVFAIL_BAD_DOCUMENT); }
static Argument DocumentId() {
  return Value([](Scene& scene) -> uint64_t { return scene.docid(); });
}

static void MakeDirty(Scene& scene) {
  KVItemPut(scene.Handle(Object::kDocument), "Changed", 0, 0, KVTYPE_TEXT, "more", 0);
}

static uint32_t WordAt(uint64_t address) {
  uint32_t word;
  std::memcpy(&word, reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), sizeof word);
  return word;
}

// A call that failed must have left 0 in the word whose address is the argument at place.
static std::function<std::string(Scene&, const Words&)> ZeroAt(size_t place) {
  return [place](Scene&, const Words& words) {
    return std::string(WordAt(words[place]) != 0 ? "an output is not 0" : "");
  };
}

// The note of a released document belongs to the caller, also when its last save failed.
static void CloseNote(Scene&, const Words& words) { EngNoteClose(WordAt(words[2])); }

static Row Release() {
  return {
      .function = "KVDocumentGetBryndHandle",
      .variant = "release",
      .call = ByWords(KVDocumentGetBryndHandle),
      .session = SessionBy::kHandle,
      .needs = Needs::kDocument,
      .arguments = {Document(), Plain(KVTOBRYND_RELEASE | KVDOCWRITE_NOCOMMIT), Out(4, KVFAIL_NULL_PARAM)},
      .prepare = MakeDirty,
      .finish = CloseNote,
      .undone = [](Scene& scene, const Words& words) {
        CloseNote(scene, words);
        return std::string();
      }};
}

static Row WriteRow(const char* function, const char* variant, Call call, Argument first, uint32_t flags) {
  return {.function = function,
          .variant = variant,
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kDocument,
          .arguments = {std::move(first), Plain(flags)}};
}

static std::vector<Row> VariantRows() {
  return {
      WriteRow("KVDocumentSave", "without changes", ByWords(KVDocumentSave), Document(), 0),
      WriteRow("KVDocumentSave", "discard", ByWords(KVDocumentSave), Document(), KVDOCWRITE_DISCARD),
      WriteRow("KVDocumentClose", "discard", ByWords(KVDocumentClose), Document(), KVDOCWRITE_DISCARD),
      Release(),
  };
}

static std::vector<Row> MainRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  return {
      {.function = "KVDocumentCreate",
       .variant = "",
       .call = ByWords(KVDocumentCreate),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Plain(0), Out(4, null)},
       .undone = ZeroAt(2)},
      {.function = "KVDocumentOpen",
       .variant = "",
       .call = ByWords(KVDocumentOpen),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), DocumentId(), Plain(0), Out(4, null)},
       // A class that cannot be read is not that of a data document.
       .fault_statuses = {KVFAIL_NON_DATA_DOCUMENT},
       .undone = ZeroAt(3)},
      {.function = "KVDocumentSave",
       .variant = "",
       .call = ByWords(KVDocumentSave),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(KVDOCWRITE_NOCOMMIT)},
       .prepare = MakeDirty},
      {.function = "KVDocumentClose",
       .variant = "",
       .call = ByWords(KVDocumentClose),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(KVDOCWRITE_NOCOMMIT)},
       .prepare = MakeDirty},
      {"KVDocumentDelete",
       "",
       ByWords(KVDocumentDelete),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Database(), DocumentId(), Plain(KVDOCDELETE_NOCOMMIT)}},
      {.function = "KVDocumentCopy",
       .variant = "",
       .call = ByWords(KVDocumentCopy),
       .needs = Needs::kDocument,
       .arguments = {Database(), DocumentId(), Handle(Object::kOtherDatabase, KVFAIL_NO_DATABASE),
                     Out(4, kMayBeNull)},
       .ignores = {"EngNoteInfoGet"},
       .undone = ZeroAt(3)},
      {"KVDocumentGetBryndHandle",
       "",
       ByWords(KVDocumentGetBryndHandle),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Document(), Plain(KVTOBRYND_GET_HANDLE), Out(4, null)}},
      {.function = "KVDocumentLocateByUnid",
       .variant = "",
       .call = ByWords(KVDocumentLocateByUnid),
       .result = Result::kCount,
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Value([](Scene& scene) -> uint64_t {
                       return reinterpret_cast<uintptr_t>(scene.Copy(scene.unid(), sizeof(KVUNID)));
                     })},
       .ignores = {"EngDbUnidInfoGet", "EngDbIdInfoGet"}},
  };
}

// ---- Documents that are bound to a form

static constexpr uint16_t kMarked = 0x0100;    // second flag word: documents do not name their editors
static constexpr uint16_t kInDocument = 0x20;  // first flag word: documents carry the form
static constexpr uint32_t kBindOn = 1;

// A form with a field of each kind, of its own for each call.
static uint32_t StoreForm(Scene& scene, uint16_t form_flags) {
  static int number = 0;
  EngDb database = 0;
  KVDatabaseGetBryndHandle(scene.Handle(Object::kDatabase), KVTOBRYND_GET_HANDLE, &database);
  return FormBuilder(database, "Form" + std::to_string(++number))
      .Info(form_flags, kMarked)
      .WindowTitle("\"About \" + Subject")
      .Field({.name = "Subject",
              .default_formula = "\"a subject\"",
              .translation_formula = "@UpperCase(Subject)",
              .validation_formula = "@If(Subject = \"\"; @Failure(\"none\"); @Success)"})
      .Field({.name = "Kept", .flags = kFieldFlagComputed, .default_formula = "Subject + \"!\""})
      .Field({.name = "Shown", .flags = kFieldFlagDisplay, .default_formula = "Kept + \"?\""})
      .Store();
}
static Argument FormId(uint16_t form_flags) {
  return Value([form_flags](Scene& scene) -> uint64_t {
    KVDatabaseSetProperty(scene.Handle(Object::kDatabase), KVPROP_DB_STRICT_BIND, &kBindOn);
    return StoreForm(scene, form_flags);
  });
}
static uint32_t CreateBound(Scene& scene) {
  uint32_t document = 0;
  KVDatabaseSetProperty(scene.Handle(Object::kDatabase), KVPROP_DB_STRICT_BIND, &kBindOn);
  KVDocumentCreate(scene.Handle(Object::kDatabase), StoreForm(scene, 0), &document);
  return document;
}
static Argument BoundDocument() {
  return Value([](Scene& scene) -> uint64_t { return CreateBound(scene); });
}
static Argument BoundDocumentId() {
  return Value([](Scene& scene) -> uint64_t {
    uint32_t docid = 0;
    const uint32_t document = CreateBound(scene);
    KVDocumentSave(document, KVDOCWRITE_NOCOMMIT);
    KVDocumentGetProperty(document, KVPROP_DOC_ID, &docid);
    KVDocumentClose(document, 0);
    return docid;
  });
}

// A field that cannot be computed is empty, and nothing else comes of it; so is a form that cannot be sought
// in one way sought in another.
static Row Tolerant(Row row, std::vector<uint32_t> fault_statuses = {KVSUCCESS}) {
  row.ignores = {"EngComputeBegin", "EngComputeEvaluate", "EngItemInfo",    "EngItemInfoNext",
                 "EngItemAppend",   "EngItemDelete",      "EngItemTextGet", "EngMemLock"};
  row.fault_statuses = std::move(fault_statuses);
  return row;
}

static std::vector<Row> BoundRows() {
  const auto row = [](const char* function, const char* variant, Call call, std::vector<Argument> arguments) {
    return Row{.function = function,
               .variant = variant,
               .call = std::move(call),
               .session = SessionBy::kHandle,
               .needs = Needs::kDocument,
               .arguments = std::move(arguments)};
  };
  const auto create = [&](const char* variant, uint16_t form_flags) {
    Row made = row("KVDocumentCreate", variant, ByWords(KVDocumentCreate),
                   {Database(), FormId(form_flags), Out(4, KVFAIL_NULL_PARAM)});
    made.undone = ZeroAt(2);
    return Tolerant(std::move(made), {KVSUCCESS, KVFAIL_NO_FORM, KVFAIL_STRICT_NO_FORM});
  };
  Row title = row("KVDocumentGetProperty", "title of a form", ByWords(KVDocumentGetProperty),
                  {BoundDocument(), Plain(KVPROP_DOC_TITLE), Out(100, KVFAIL_NULL_PARAM)});
  title.fault_statuses = {KVSUCCESS};  // the text keeps a block that is larger than it needs
  return {
      create("on a form", 0),
      create("on a form that it carries", kInDocument),
      Tolerant(row("KVDocumentOpen", "bound", ByWords(KVDocumentOpen),
                   {Database(), BoundDocumentId(), Plain(0), Out(4, KVFAIL_NULL_PARAM)}),
               {KVSUCCESS, KVFAIL_STRICT_NO_FORM, KVFAIL_NON_DATA_DOCUMENT}),
      Tolerant(row("KVDocumentSave", "bound", ByWords(KVDocumentSave),
                   {BoundDocument(), Plain(KVDOCWRITE_NOCOMMIT)})),
      Tolerant(row("KVDocumentClose", "bound", ByWords(KVDocumentClose),
                   {BoundDocument(), Plain(KVDOCWRITE_NOCOMMIT)})),
      row("KVDocumentValidate", "bound", ByWords(KVDocumentValidate),
          {BoundDocument(), Plain(100), Out(4, KVFAIL_NULL_PARAM), Out(101, kMayBeNull),
           Out(65, kMayBeNull)}),
      title,
  };
}

// ---- Properties, formulas

static Row GetProperty(const char* variant, uint64_t property, size_t bytes) {
  return {"KVDocumentGetProperty",
          variant,
          ByWords(KVDocumentGetProperty),
          Result::kStatus,
          SessionBy::kHandle,
          Needs::kDocument,
          {Document(), Enum(property, 23, KVFAIL_BAD_PROPERTY), Out(bytes, KVFAIL_NULL_PARAM)}};
}
static Row SetProperty(const char* variant, uint64_t property, Argument value) {
  return {"KVDocumentSetProperty",
          variant,
          ByWords(KVDocumentSetProperty),
          Result::kStatus,
          SessionBy::kHandle,
          Needs::kDocument,
          {Document(), Enum(property, 23, KVFAIL_BAD_PROPERTY), std::move(value)}};
}

static std::vector<Row> PropertyRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  const int32_t word = 1;
  const KVUNID parent{{{1, 2}}, {{3, 4}}};
  return {
      GetProperty("", KVPROP_DOC_ID, 4),
      GetProperty("identity", KVPROP_DOC_OID, 28),
      GetProperty("time", KVPROP_DOC_INFO_4, 8),
      GetProperty("flag", KVPROP_DOC_FLAG_1, 4),
      GetProperty("attachments", KVPROP_DOC_ATTACHMENT_COUNT, 4),
      GetProperty("title", KVPROP_DOC_TITLE, 1),
      GetProperty("has parent", KVPROP_DOC_HAS_PARENT, 4),
      SetProperty("", KVPROP_DOC_STRICT_BIND_COMPUTE, In(word, null)),
      SetProperty("class", KVPROP_DOC_CLASS, In(word, null)),
      SetProperty("parent", KVPROP_DOC_PARENT_UNID, In(parent, null)),
      {.function = "KVDocumentSetProperty",
       .variant = "strict bind",
       .call = ByWords(KVDocumentSetProperty),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(KVPROP_DOC_STRICT_BIND), In(word, null)},
       .valid_status = KVFAIL_STRICT_NO_FORM,
       .ignores = {"EngItemInfo", "EngDbSpecialIdGet"}},
      {.function = "KVDocumentLocateByClass",
       .variant = "",
       .call = ByWords(KVDocumentLocateByClass),
       .result = Result::kCount,
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Database(), Plain(16)},
       .ignores = {"EngDbSpecialIdGet"}},
  };
}

static std::vector<Row> FormulaRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  return {
      {"KVDocumentValidate",
       "",
       ByWords(KVDocumentValidate),
       Result::kStatus,
       SessionBy::kHandle,
       Needs::kDocument,
       {Document(), Plain(100), Out(4, null), Out(101, kMayBeNull), Out(65, kMayBeNull)}},
      {.function = "KVDocumentExecute",
       .variant = "",
       .call = ByWords(KVDocumentExecute),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Text("FIELD Added := Subject + \"!\"; Number > 1", KVFAIL_DATA_UNAVAILABLE),
                     Out(4, kMayBeNull)},
       .fault_statuses = {KVFAIL_FORMULA}},
      {.function = "KVDocumentExecute",
       .variant = "once more",
       .call = ByWords(KVDocumentExecute),
       .session = SessionBy::kHandle,
       .needs = Needs::kDocument,
       .arguments = {Document(), Plain(0), Out(4, kMayBeNull)},
       .prepare =
           [](Scene& scene) { KVDocumentExecute(scene.Handle(Object::kDocument), "Subject", nullptr); }},
  };
}

std::vector<Row> DocumentRows() {
  std::vector<Row> rows = MainRows();
  for (const auto& part : {VariantRows, BoundRows, PropertyRows, FormulaRows})
    for (Row& row : part()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
