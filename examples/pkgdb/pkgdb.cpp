// Stores the package index of this system in a database, one document a package, and uses it: reads,
// converts, searches, compacts, and verifies every record against its source. Then stores it once more, each
// document bound to a form that computes, translates and validates.
//
//   pkgdb [database]      the database and one beside it are made anew; default: packages.QDB in a folder of
//   its own below the temporary one
#include <kavrin.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "package_form.h"
#include "package_index.h"

namespace {

constexpr char kFormula[] = "Section = \"games\" & InstalledSize > 1000";

class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

[[noreturn]] void Stop(const char* what, uint32_t status) {
  char message[256] = "";
  KVErrorGetInfo(status, nullptr, message);
  fprintf(stderr, "pkgdb: %s: status 0x%x %s\n", what, status, message);
  exit(1);
}
void Check(const char* what, uint32_t status) {
  if (status != KVSUCCESS) Stop(what, status);
}

void PutFields(uint32_t document, const Record& record) {
  for (const Field& field : record.fields) {
    if (field.value.empty()) continue;
    const ItemOfField item = ItemFor(field.name);
    Check("KVItemPut",
          KVItemPut(document, item.name.c_str(), item.type, static_cast<uint32_t>(field.value.size()),
                    KVTYPE_TEXT, field.value.data(), 0));
  }
}

// What validation had against the records.
struct Verdicts {
  size_t failed = 0;
  std::map<std::string, size_t> reasons;
};

void Validate(uint32_t document, Verdicts* verdicts) {
  int32_t is_valid = 0;
  char failure[201];
  char field[65];
  Check("KVDocumentValidate", KVDocumentValidate(document, sizeof failure - 1, &is_valid, failure, field));
  if (is_valid) return;
  ++verdicts->failed;
  ++verdicts->reasons[std::string(field) + ": " + failure];
}

uint32_t StoreRecord(uint32_t database, uint32_t formid, const Record& record, const KVDATETIME& loaded,
                     Verdicts* verdicts) {
  uint32_t document = 0;
  uint32_t docid = 0;
  Check("KVDocumentCreate", KVDocumentCreate(database, formid, &document));
  PutFields(document, record);
  Check("KVItemPut",
        KVItemPut(document, "Loaded", KVTYPE_DATETIME, sizeof loaded, KVTYPE_DATETIME, &loaded, 0));
  if (formid != 0) Validate(document, verdicts);
  Check("KVDocumentSave", KVDocumentSave(document, KVDOCWRITE_NOCOMMIT));
  Check("KVDocumentGetProperty", KVDocumentGetProperty(document, KVPROP_DOC_ID, &docid));
  Check("KVDocumentClose", KVDocumentClose(document, KVDOCWRITE_DISCARD));
  return docid;
}

struct Load {
  std::vector<uint32_t> docids;
  Verdicts verdicts;
  double seconds = 0;
};

Load LoadIndex(uint32_t database, uint32_t formid, std::string_view text) {
  KVDATETIME loaded;
  Check("KVDatetimeGetCurrent", KVDatetimeGetCurrent(&loaded));
  Load load;
  Record record;
  const Stopwatch watch;
  while (NextRecord(&text, &record)) {
    load.docids.push_back(StoreRecord(database, formid, record, loaded, &load.verdicts));
    if (load.docids.size() % 20000 == 0)
      printf("  %zu documents, %.2f s\n", load.docids.size(), watch.Seconds());
  }
  load.seconds = watch.Seconds();
  const auto count = static_cast<double>(load.docids.size());
  printf("Stored %zu documents in %.2f s, %.0f a second.\n", load.docids.size(), load.seconds,
         count / load.seconds);
  return load;
}

// The maintainer as the form's translation leaves it.
std::string ExpectedMaintainer(std::string_view value) {
  const size_t bracket = value.find('<');
  std::string expected(value);
  if (bracket == std::string_view::npos) return expected;
  for (size_t i = bracket; i < expected.size(); ++i)
    if (expected[i] >= 'A' && expected[i] <= 'Z') expected[i] = static_cast<char>(expected[i] - 'A' + 'a');
  return expected;
}

// How an item reads as text when it was made of this field.
std::string Expected(const Field& field, const ItemOfField& item, bool is_bound) {
  if (is_bound && item.name == "Maintainer") return ExpectedMaintainer(field.value);
  if (item.type != KVTYPE_TEXTLIST) return std::string(field.value);
  std::string expected;
  std::string_view rest = field.value;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find_first_of(",;\n"), rest.size());
    std::string_view entry = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    while (!entry.empty() && isspace(static_cast<unsigned char>(entry.front()))) entry.remove_prefix(1);
    while (!entry.empty() && isspace(static_cast<unsigned char>(entry.back()))) entry.remove_suffix(1);
    if (entry.empty()) continue;
    if (!expected.empty()) expected += ", ";
    expected += entry;
  }
  return expected;
}

bool SameField(uint32_t document, const Field& field, bool is_bound) {
  static std::vector<char> buffer(1 << 20);
  const ItemOfField item = ItemFor(field.name);
  int32_t text = KVTYPE_TEXT;
  auto length = static_cast<uint32_t>(buffer.size() - 1);
  if (KVItemFetch(document, item.name.c_str(), nullptr, &length, &text, buffer.data()) != KVSUCCESS)
    return false;
  std::string_view stored(buffer.data(), length);
  const std::string expected = Expected(field, item, is_bound);
  if (item.type != KVTYPE_TEXT || expected.find('\n') == std::string::npos) return stored == expected;
  // Lines of text are told with the session's line end.
  std::string lines(stored);
  std::erase(lines, '\r');
  return lines == expected;
}

// Reads every record back; returns how many differ.
size_t Verify(uint32_t database, std::string_view text, const std::vector<uint32_t>& docids, bool is_bound) {
  size_t different = 0;
  size_t item_count = 0;
  Record record;
  const Stopwatch watch;
  for (const uint32_t docid : docids) {
    NextRecord(&text, &record);
    uint32_t document = 0;
    Check("KVDocumentOpen", KVDocumentOpen(database, docid, 0, &document));
    bool same = true;
    for (const Field& field : record.fields) {
      if (field.value.empty()) continue;
      same = SameField(document, field, is_bound) && same;
      ++item_count;
    }
    if (!same) ++different;
    Check("KVDocumentClose", KVDocumentClose(document, KVDOCWRITE_DISCARD));
  }
  printf("Read %zu documents and %zu items back in %.2f s: %zu differ.\n", docids.size(), item_count,
         watch.Seconds(), different);
  return different;
}

// The documents that a formula selects, in the order of their ids.
std::vector<uint32_t> Search(uint32_t database, std::string formula) {
  uint32_t index = 0;
  Check("KVIndexOpen", KVIndexOpen(database, &index));
  const Stopwatch watch;
  Check("KVIndexSearch", KVIndexSearch(index, formula.data(), 0, nullptr));
  std::vector<uint32_t> found;
  for (uint32_t docid = 0; KVIndexNavigate(index, KVNAV_NEXT, 0, &docid, nullptr) == KVSUCCESS;)
    found.push_back(docid);
  printf("%s: %u documents in %.0f ms.\n", formula.c_str(), KVIndexGetCount(index), watch.Seconds() * 1000);
  Check("KVIndexClose", KVIndexClose(index));
  return found;
}

void ShowDocument(uint32_t database, uint32_t docid) {
  uint32_t document = 0;
  Check("KVDocumentOpen", KVDocumentOpen(database, docid, 0, &document));
  printf("Document %u has %u items:\n", docid, KVItemGetCount(document));
  KVITEM item;
  for (int32_t list = KVLIST_FIRST; KVItemList(document, list, 0, &item) == KVSUCCESS; list = KVLIST_NEXT) {
    char value[61] = "";
    uint32_t length = sizeof value - 1;
    int32_t text = KVTYPE_TEXT;
    const uint32_t status = KVItemFetch(document, item.name, nullptr, &length, &text, value);
    printf("  %-16s %5u bytes  %s%s\n", item.name, item.length, value,
           status || length == sizeof value - 1 ? "..." : "");
  }
  Check("KVDocumentClose", KVDocumentClose(document, KVDOCWRITE_DISCARD));
}

double Megabytes(const std::string& path) {
  return static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

uint32_t Open(const std::string& path) {
  uint32_t database = 0;
  Check("KVDatabaseOpen", KVDatabaseOpen(nullptr, path.c_str(), 0, &database));
  return database;
}

// Documents follow no form until one is made, and long texts are shown cut.
void SetUpSession() {
  const int32_t off = 0;
  const int32_t on = 1;
  Check("KVSetProperty", KVSetProperty(KVPROP_SESS_STRICT_BIND, &off));
  Check("KVSetProperty", KVSetProperty(KVPROP_SESS_TRUNCATE_TEXT, &on));
}

void Create(const std::string& path) {
  Check("KVDatabaseCreate", KVDatabaseCreate(nullptr, path.c_str(), "Packages", nullptr, nullptr, nullptr, 0,
                                             KVDBCREATE_OVERWRITE));
}

// Documents that follow no form: what is put is what is there. How many differ, and how long the load took.
size_t RunFree(const std::string& path, const IndexText& index, double* seconds) {
  Create(path);
  uint32_t database = Open(path);
  printf("Reading %s into %s.\n", index.source.c_str(), path.c_str());
  const Load load = LoadIndex(database, 0, index.text);
  *seconds = load.seconds;
  Check("KVDatabaseClose", KVDatabaseClose(database, 0));
  printf("The database has %.1f MB; the index has %.1f MB.\n", Megabytes(path),
         static_cast<double>(index.text.size()) / 1e6);

  database = Open(path);
  const std::vector<uint32_t> games = Search(database, kFormula);
  ShowDocument(database, games.empty() ? load.docids.front() : games.front());
  size_t different = Verify(database, index.text, load.docids, false);
  Check("KVDatabaseClose", KVDatabaseClose(database, 0));

  uint32_t before = 0;
  uint32_t after = 0;
  Check("KVDatabaseCompact", KVDatabaseCompact(nullptr, path.c_str(), &before, &after));
  printf("Compacted: %.1f MB before, %.1f MB after.\n", before / 1e6, after / 1e6);
  database = Open(path);
  different += Verify(database, index.text, load.docids, false);
  Check("KVDatabaseClose", KVDatabaseClose(database, 0));
  return different;
}

std::set<std::string> FieldNames(std::string_view text) {
  std::set<std::string> names;
  Record record;
  while (NextRecord(&text, &record))
    for (const Field& field : record.fields) names.insert(std::string(field.name));
  return names;
}

void PrintVerdicts(const Verdicts& verdicts) {
  printf("%zu documents are not valid:\n", verdicts.failed);
  for (const auto& [reason, count] : verdicts.reasons) printf("  %6zu  %s\n", count, reason.c_str());
}

void ShowComputed(uint32_t database, uint32_t docid) {
  uint32_t document = 0;
  Check("KVDocumentOpen", KVDocumentOpen(database, docid, 0, &document));
  uint32_t title_bytes = 0;
  Check("title", KVDocumentGetProperty(document, KVPROP_DOC_TITLE_LENGTH, &title_bytes));
  std::string title(title_bytes + 1, 0);
  Check("title", KVDocumentGetProperty(document, KVPROP_DOC_TITLE, title.data()));
  printf("%s:\n", title.c_str());
  for (const char* name : {"InstalledSize", "SizeClass", "Summary", "Maintainer"}) {
    char value[101] = "";
    uint32_t length = sizeof value - 1;
    int32_t text = KVTYPE_TEXT;
    Check(name, KVItemFetch(document, name, nullptr, &length, &text, value));
    printf("  %-16s %s\n", name, value);
  }
  const uint32_t refused = KVItemPut(document, "NoSuchField", 0, 0, KVTYPE_TEXT, "text", 0);
  printf("  an item that the form does not know: status 0x%x\n", refused);
  Check("KVDocumentClose", KVDocumentClose(document, KVDOCWRITE_DISCARD));
}

// The same records, each bound to a form with all the fields of the index. How many differ.
size_t RunBound(const std::string& path, const IndexText& index, double free_seconds) {
  const int32_t on = 1;
  Create(path);
  uint32_t database = Open(path);
  const std::set<std::string> names = FieldNames(index.text);
  const uint32_t formid = StorePackageForm(database, names);
  Check("KVDatabaseSetProperty", KVDatabaseSetProperty(database, KVPROP_DB_STRICT_BIND, &on));
  printf("\nOnce more, bound to a form with %u fields, a subform for the dependencies among them.\n",
         KVFieldGetCount(database, formid));
  const Load load = LoadIndex(database, formid, index.text);
  const auto count = static_cast<double>(load.docids.size());
  printf(
      "Binding, computing, translating and validating cost %.1f us a document, %.2f times the free load.\n",
      (load.seconds - free_seconds) / count * 1e6, load.seconds / free_seconds);
  PrintVerdicts(load.verdicts);
  const std::vector<uint32_t> games = Search(database, "Section = \"games\" & SizeClass = \"huge\"");
  ShowComputed(database, games.empty() ? load.docids.front() : games.front());
  const size_t different = Verify(database, index.text, load.docids, true);
  Check("KVDatabaseClose", KVDatabaseClose(database, 0));
  return different;
}

int Run(const std::string& path, const IndexText& index) {
  SetUpSession();
  double free_seconds = 0;
  const size_t different = RunFree(path, index, &free_seconds);
  std::filesystem::path bound_path(path);
  bound_path.replace_filename("bound-" + bound_path.filename().string());
  return different + RunBound(bound_path.string(), index, free_seconds) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "kavrin-pkgdb";
  std::filesystem::create_directories(folder);
  const std::string settings = (folder / "BRYND.INI").string();
  std::ofstream(settings) << "Directory=" << folder.string() << "\nUserName=CN=Package Reader/O=Example\n";
  const std::string path = argc > 1 ? argv[1] : (folder / "packages.QDB").string();
  const IndexText index = ReadSystemIndex(PKGDB_SHIPPED_INDEX);
  // The initialisation file is named instead of being looked for.
  const uint32_t status =
      KVInit(KVINIT_INI_FILE, 0, const_cast<char**>(reinterpret_cast<char* const*>(settings.c_str())));
  if (status != KVSUCCESS) {
    fprintf(stderr, "pkgdb: KVInit: status 0x%x\n", status);
    return 1;
  }
  const int result = Run(path, index);
  KVTerm(0);
  return result;
}
