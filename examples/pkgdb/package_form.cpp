#include "package_form.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct FieldRow {
  const char* field;
  const char* item;
  int32_t type;
  bool is_dependency;
};
constexpr FieldRow kFields[] = {
    {"Installed-Size", "InstalledSize", KVTYPE_NUMBER, false},
    {"Size", "Size", KVTYPE_NUMBER, false},
    {"Depends", "Depends", KVTYPE_TEXTLIST, true},
    {"Pre-Depends", "PreDepends", KVTYPE_TEXTLIST, true},
    {"Recommends", "Recommends", KVTYPE_TEXTLIST, true},
    {"Suggests", "Suggests", KVTYPE_TEXTLIST, true},
    {"Provides", "Provides", KVTYPE_TEXTLIST, true},
    {"Tag", "Tag", KVTYPE_TEXTLIST, false},
};

constexpr char kSubform[] = "Dependencies";

// The name stays as it was written; the address is told in small letters, without blanks around it.
constexpr char kMaintainer[] =
    "@If(@Contains(Maintainer; \"<\"); "
    "@Left(Maintainer; \"<\") + \"<\" + @LowerCase(@Trim(@Right(Maintainer; \"<\"))); "
    "@Trim(Maintainer))";
constexpr char kHomepage[] =
    "@If(Homepage = \"\" | @Begins(Homepage; \"http\"); @Success; "
    "@Failure(\"The home page is no web page\"))";
constexpr char kInstalledSize[] =
    "@If(!@IsNumber(InstalledSize); @Failure(\"The installed size is missing\"); "
    "InstalledSize <= 0; @Failure(\"The installed size is nothing\"); @Success)";
constexpr char kSizeClass[] =
    "@If(!@IsNumber(InstalledSize); \"unknown\"; InstalledSize < 100; \"small\"; "
    "InstalledSize < 10000; \"medium\"; InstalledSize < 100000; \"large\"; \"huge\")";
constexpr char kSummary[] = "Package + \" \" + Version + \", \" + SizeClass";

void Check(const char* what, uint32_t status) {
  if (status == KVSUCCESS) return;
  char message[256] = "";
  KVErrorFetch(nullptr, nullptr, message);
  fprintf(stderr, "%s: status 0x%x %s\n", what, status, message);
  exit(1);
}

void PutField(uint32_t body, const FormField& field) {
  KVCDFIELD record = KVCDFIELD_DEFAULT;
  record.type = field.type;
  record.field_flags = field.flags;
  record.default_formula_length = static_cast<uint32_t>(field.default_formula.size());
  record.input_trans_formula_length = static_cast<uint32_t>(field.translation.size());
  record.input_valid_formula_length = static_cast<uint32_t>(field.validation.size());
  record.field_name_length = static_cast<uint32_t>(field.name.size());
  std::string texts = field.default_formula + field.translation + field.validation + field.name;
  record.buffer = texts.data();
  Check(field.name.c_str(), KVCDRecordInsert(body, 0, KVCDTYPE_FIELD, &record));
}

// A subform is a record that names it, and one that ends it.
void PutSubform(uint32_t body, const std::string& name) {
  constexpr uint16_t kBegin = 0xffad;
  constexpr uint16_t kKindSubform = 14;
  const auto name_bytes = static_cast<uint16_t>(name.size() + 1);
  const uint16_t head[] = {kBegin, static_cast<uint16_t>(12 + name_bytes), kKindSubform, 0, 0, name_bytes};
  std::string begin(reinterpret_cast<const char*>(head), sizeof head);
  begin.append(name.c_str(), name_bytes);
  std::string end("\xae\x02", 2);
  for (std::string* bytes : {&begin, &end}) {
    KVCDUNKNOWN record{};
    record.length = static_cast<uint32_t>(bytes->size());
    record.buffer = bytes->data();
    Check("the subform's place", KVCDRecordInsert(body, 0, KVCDTYPE_UNKNOWN, &record));
  }
}

// A page with the fields, open on a document that is never stored.
struct Page {
  Page(uint32_t database, const std::vector<FormField>& fields, const std::string& subform) {
    Check("KVDocumentCreate", KVDocumentCreate(database, 0, &document));
    Check("KVCompositeCreate", KVCompositeCreate(document, nullptr, &body));
    for (const FormField& field : fields) PutField(body, field);
    if (!subform.empty()) PutSubform(body, subform);
  }
  ~Page() { KVDocumentClose(document, KVDOCWRITE_DISCARD); }
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;

  uint32_t document = 0;
  uint32_t body = 0;
};

void CopyName(char* target, size_t target_bytes, const std::string& name) {
  snprintf(target, target_bytes, "%s", name.c_str());
}

}  // namespace

ItemOfField ItemFor(std::string_view field) {
  for (const FieldRow& row : kFields)
    if (field == row.field) return {row.item, row.type, row.is_dependency};
  std::string name(field);
  std::erase(name, '-');
  return {name, KVTYPE_TEXT, false};
}

uint32_t StoreForm(uint32_t database, const std::string& name, const std::string& window_title,
                   const std::vector<FormField>& fields, const std::string& subform) {
  const Page page(database, fields, subform);
  KVFORM form = KVFORM_DEFAULT;
  std::string title = window_title;
  form.window_title_formula = title.empty() ? nullptr : title.data();
  CopyName(form.name, sizeof form.name, name);
  uint32_t formid = 0;
  Check("KVFormCreate", KVFormCreate(database, &form, page.body, &formid));
  return formid;
}

void StoreSubform(uint32_t database, const std::string& name, const std::vector<FormField>& fields) {
  const Page page(database, fields, {});
  KVSUBFORM subform{};
  CopyName(subform.name, sizeof subform.name, name);
  Check("KVSubformCreate", KVSubformCreate(database, &subform, page.body, nullptr));
}

uint32_t StorePackageForm(uint32_t database, const std::set<std::string>& index_fields) {
  std::vector<FormField> own;
  std::vector<FormField> dependencies;
  for (const std::string& index_field : index_fields) {
    const ItemOfField item = ItemFor(index_field);
    FormField field{.name = item.name, .type = item.type};
    if (item.name == "Maintainer") field.translation = kMaintainer;
    if (item.name == "Homepage") field.validation = kHomepage;
    if (item.name == "InstalledSize") field.validation = kInstalledSize;
    (item.is_dependency ? dependencies : own).push_back(field);
  }
  own.push_back({.name = "Loaded", .type = KVTYPE_DATETIME});
  own.push_back({.name = "SizeClass", .flags = kComputedField, .default_formula = kSizeClass});
  own.push_back({.name = "Summary", .flags = kDisplayField, .default_formula = kSummary});
  StoreSubform(database, kSubform, dependencies);
  return StoreForm(database, "Package", "\"Package \" + Package", own, kSubform);
}
