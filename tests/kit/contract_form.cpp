// Rows of the form, subform and field functions.
#include <cstring>

#include "brynd.h"
#include "kit/contract.h"
#include "kit/form_builder.h"

namespace kit {

static constexpr uint16_t kNoCommit = 4;

static Argument Database() { return Handle(Object::kDatabase, KVFAIL_NO_DATABASE); }

// What a row works on: records of their own names for each call, since names are found once in a database.
struct Made {
  int number = 0;
  std::string form_name, subform_name, new_name;
  uint32_t form = 0, subform = 0, page = 0;
};
static Made& Current() {
  static Made made;
  return made;
}

static void PutDatabaseBool(Scene& scene, int32_t property) {
  const int32_t on = 1;
  KVDatabaseSetProperty(scene.Handle(Object::kDatabase), property, &on);
}

// A form with fields, a shared field, a subform and a window title.
static void MakeForm(Scene& scene) {
  Made& made = Current();
  const std::string number = std::to_string(++made.number);
  made.form_name = "MadeForm" + number;
  made.subform_name = "MadePart" + number;
  made.new_name = "MadeNew" + number;
  EngDb database = 0;
  KVDatabaseGetBryndHandle(scene.Handle(Object::kDatabase), KVTOBRYND_GET_HANDLE, &database);
  PutDatabaseBool(scene, KVPROP_DB_READ_SUBF_FIELDS);
  const std::string shared = "MadeShared" + number;
  StoreSharedField(database, {.name = shared, .default_formula = "1"}, kNoCommit);
  made.subform = FormBuilder(database, made.subform_name).Subform().Field({.name = "Part"}).Store(kNoCommit);
  made.form = FormBuilder(database, made.form_name)
                  .WindowTitle("Subject")
                  .Field({.name = "Subject", .default_formula = "\"none\"", .description = "what it is"})
                  .Field({.name = shared, .flags = kFieldFlagShared})
                  .UseSubform(made.subform_name)
                  .Store(kNoCommit);
}

// And a page for a new one.
static void MakePage(Scene& scene) {
  MakeForm(scene);
  Made& made = Current();
  std::string field = FieldBytes({.name = "OnThePage", .default_formula = "1"});
  KVCDUNKNOWN record{};
  record.length = static_cast<uint32_t>(field.size());
  record.signature = kFieldRecord;
  record.buffer = field.data();
  KVCompositeCreate(scene.Handle(Object::kDocument), "", &made.page);
  KVCDRecordInsert(made.page, 0, KVCDTYPE_UNKNOWN, &record);
}

static Argument FormId() {
  return Value([](Scene&) -> uint64_t { return Current().form; });
}
static Argument SubformId() {
  return Value([](Scene&) -> uint64_t { return Current().subform; });
}
static Argument Page() {
  return Value([](Scene&) -> uint64_t { return Current().page; });
}
static Argument Name(std::string Made::*name, uint32_t null_status) {
  return Pointer([name](Scene& scene) -> const void* { return scene.Text(Current().*name); }, null_status);
}
template <typename Record>
static Argument NewRecord(const Record& record) {
  return Pointer(
      [record](Scene& scene) -> const void* {
        Record named = record;
        std::strncpy(named.name, Current().new_name.c_str(), sizeof named.name - 1);
        return scene.Copy(&named, sizeof named);
      },
      KVFAIL_NULL_PARAM);
}

static std::function<std::string(Scene&, const Words&)> ZeroAt(size_t place) {
  return [place](Scene&, const Words& words) {
    uint32_t word;
    std::memcpy(&word, reinterpret_cast<const void*>(static_cast<uintptr_t>(words[place])), sizeof word);
    return std::string(word != 0 ? "an output is not 0" : "");
  };
}

static Row FormRow(const char* function, Call call, std::vector<Argument> arguments,
                   std::vector<uint32_t> fault_statuses) {
  return {.function = function,
          .variant = "",
          .call = std::move(call),
          .session = SessionBy::kHandle,
          .needs = Needs::kDocument,
          .arguments = std::move(arguments),
          .prepare = MakeForm,
          // A subform that cannot be found has no slot, a title that cannot be read is none.
          .ignores = {"EngItemInfo", "EngDesignFind", "EngNoteOpen", "EngNoteInfoGet"},
          .fault_statuses = std::move(fault_statuses)};
}

// With the texts of formulas: one that cannot be made is none.
static Row WithTexts(Row row) {
  row.variant = "with texts";
  row.prepare = [](Scene& scene) {
    MakeForm(scene);
    PutDatabaseBool(scene, KVPROP_DB_FETCH_DESIGN_CODE);
  };
  row.ignores.push_back("EngFormulaDecompile");
  row.fault_statuses.push_back(KVSUCCESS);
  return row;
}

static Row CountRow(Row row) {
  row.result = Result::kCount;
  return row;
}

static Row CopyRow(const char* function, Call call, Argument id, uint32_t none_status) {
  Row row = FormRow(function, std::move(call),
                    {Database(), std::move(id), Handle(Object::kOtherDatabase, KVFAIL_NO_DATABASE),
                     Name(&Made::new_name, kMayBeNull), Out(4, kMayBeNull)},
                    {none_status});
  row.session = SessionBy::kThread;
  row.ignores.push_back("EngItemDelete");  // the new title replaces whatever is left of the old one
  row.undone = ZeroAt(4);
  return row;
}

template <typename Record>
static Row CreateRow(const char* function, Call call, const Record& record) {
  Row row = FormRow(function, std::move(call), {Database(), NewRecord(record), Page(), Out(4, kMayBeNull)},
                    {KVFAIL_NOT_FOUND, KVFAIL_FORMULA, KVFAIL_NAME_IN_USE, KVFAIL_NO_MEMORY});
  row.prepare = MakePage;
  row.undone = ZeroAt(3);
  return row;
}

static Row FetchRow() {
  return FormRow("KVFormFetch", ByWords(KVFormFetch),
                 {Database(), FormId(), Out(sizeof(KVFORM), KVFAIL_NULL_PARAM)},
                 {KVFAIL_NO_FORM, KVFAIL_NO_SHARED_FIELD, KVFAIL_NO_FIELD, KVFAIL_NOT_FOUND});
}

static std::vector<Row> RecordRows() {
  const uint32_t null = KVFAIL_NULL_PARAM;
  static char title[] = "Subject";
  KVFORM form = KVFORM_DEFAULT;
  form.window_title_formula = title;
  form.on_conflict = 1;
  return {
      CountRow(FormRow("KVFormLocateByName", ByWords(KVFormLocateByName),
                       {Database(), Name(&Made::form_name, null)}, {KVFAIL_NO_FORM})),
      FetchRow(),
      WithTexts(FetchRow()),
      CopyRow("KVFormCopy", ByWords(KVFormCopy), FormId(), KVFAIL_NO_FORM),
      FormRow("KVFormDelete", ByWords(KVFormDelete), {Database(), FormId()}, {}),
      CreateRow("KVFormCreate", ByWords(KVFormCreate), form),
      CountRow(FormRow("KVSubformLocateByName", ByWords(KVSubformLocateByName),
                       {Database(), Name(&Made::subform_name, null)}, {KVFAIL_NO_SUBFORM})),
      FormRow("KVSubformFetch", ByWords(KVSubformFetch),
              {Database(), SubformId(), Out(sizeof(KVSUBFORM), null)}, {KVFAIL_NO_SUBFORM}),
      CopyRow("KVSubformCopy", ByWords(KVSubformCopy), SubformId(), KVFAIL_NO_SUBFORM),
      FormRow("KVSubformDelete", ByWords(KVSubformDelete), {Database(), SubformId()}, {KVFAIL_NO_SUBFORM}),
      CreateRow("KVSubformCreate", ByWords(KVSubformCreate), KVSUBFORM{}),
  };
}

static Row FieldListRow() {
  return FormRow(
      "KVFieldList", ByWords(KVFieldList),
      {Database(), FormId(), Enum(KVLIST_FIRST, 7, KVFAIL_BAD_ENUM), Out(sizeof(KVFIELD), KVFAIL_NULL_PARAM)},
      {KVFAIL_NO_FORM});
}
static Row FieldFetchRow() {
  return FormRow(
      "KVFieldFetch", ByWords(KVFieldFetch),
      {Database(), FormId(), Text("Subject", KVFAIL_NULL_PARAM), Out(sizeof(KVFIELD), KVFAIL_NULL_PARAM)},
      {KVFAIL_NO_FORM});
}

static std::vector<Row> FieldRows() {
  return {
      CountRow(FormRow("KVFieldGetCount", ByWords(KVFieldGetCount), {Database(), FormId()}, {KVSUCCESS})),
      FieldListRow(),
      WithTexts(FieldListRow()),
      FieldFetchRow(),
      WithTexts(FieldFetchRow()),
  };
}

std::vector<Row> FormRows() {
  std::vector<Row> rows = RecordRows();
  for (Row& row : FieldRows()) rows.push_back(std::move(row));
  return rows;
}

}  // namespace kit
