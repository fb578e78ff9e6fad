// Pages of forms from any bytes: what is read of them can be told to programs, counted and named; a form that
// cannot be read leaves nothing. The database has a subform "P", a shared field "S" and a shared field "Q"
// that has no field.
//
// Input: a byte that says where the rest goes (1 the page's properties, 2 its window title, 4 a further item
// of the page, 8 the record is a subform), then the rest, which is the page too.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "kvint.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

struct World {
  _api_session* session = nullptr;
  _DATABASE* dbase = nullptr;
};

void Append(EngNote note, const char* name, uint16_t type, const std::string& bytes) {
  Require(EngItemAppend(note, 0, name, static_cast<uint16_t>(std::strlen(name)), type, bytes.data(),
                        static_cast<uint32_t>(bytes.size())) == 0);
}

std::string Field(const std::string& name) {
  CDFIELD field{};
  field.Signature = kCdField;
  field.Length = static_cast<uint16_t>(sizeof field + name.size());
  field.Flags = KVFIELD_EDITABLE;
  field.DataType = BRTYPE_TEXT;
  field.NameLength = static_cast<uint16_t>(name.size());
  return std::string(reinterpret_cast<const char*>(&field), sizeof field) + name;
}

void Store(EngDb database, uint16_t note_class, const char* title, const char* letters,
           const std::string& page) {
  EngNote note = 0;
  Require(EngNoteCreate(database, &note) == 0);
  Require(EngNoteInfoSet(note, 3, &note_class) == 0);
  Append(note, "$TITLE", BRTYPE_TEXT, title);
  Append(note, "$Flags", BRTYPE_TEXT, letters);
  Append(note, "$Body", BRTYPE_COMPOSITE, page);
  Require(EngNoteUpdate(note, 0) == 0);
  Require(EngNoteClose(note) == 0);
}

World& TheWorld() {
  static World world = [] {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kavrin-form-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::string ini = (folder / "BRYND.INI").string();
    std::ofstream(ini) << "Directory=" << folder.string() << "\n";
    Require(_KVInit(KVAPI_VERSION, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data())) == KVSUCCESS);
    const std::string path = (folder / "forms.qdb").string();
    Require(EngDbCreate(path.c_str(), 0xff01, 1, 0, 0, 1) == 0);
    uint32_t database = 0;
    Require(KVDatabaseOpen(nullptr, path.c_str(), 0, &database) == KVSUCCESS);
    std::atexit([] { KVTerm(0); });  // closes the database
    World made;
    made.session = KVICurrentSession();
    made.dbase = _GetDatabase(made.session, database);
    made.dbase->fetch_design_code = 1;
    made.dbase->read_subf_fields = 1;
    Store(made.dbase->dbhand, BRCLASS_FORM, "P", "CU3", Field("Part"));
    Store(made.dbase->dbhand, BRCLASS_FIELD, "S", "", Field("S"));
    Store(made.dbase->dbhand, BRCLASS_FIELD, "Q", "", "");
    return made;
  }();
  return world;
}

EngNote MakeNote(const World& world, uint8_t places, const std::string& bytes) {
  EngNote note = 0;
  Require(EngNoteCreate(world.dbase->dbhand, &note) == 0);
  Append(note, "$TITLE", BRTYPE_TEXT, "Fuzz");
  const std::string info = std::string("\x86\x18", 2) + std::string(22, '\0');
  Append(note, "$Info", BRTYPE_COMPOSITE, (places & 1) ? bytes : info);
  if (places & 2) Append(note, "$WindowTitle", BRTYPE_FORMULA, bytes);
  if (places & 8) Append(note, "$Flags", BRTYPE_TEXT, "CU3");
  const size_t cut = (places & 4) ? bytes.size() / 4 * 2 : bytes.size();
  Append(note, "$Body", BRTYPE_COMPOSITE, bytes.substr(0, cut));
  if (places & 4) Append(note, "$Body", BRTYPE_COMPOSITE, bytes.substr(cut));
  return note;
}

// All of a form that programs can ask for.
void ReadForm(World& world, _FORMSPEC* spec) {
  KVFORM form{};
  KVIFormGetFORMFromSpec(world.dbase, spec, &form);
  uint32_t fields = 0;
  for (uint32_t slot = 0; slot < spec->fieldcount; ++slot) {
    const FIELDSPEC& field = spec->fieldlist[slot];
    Require((field.psubform == nullptr) != (field.name == nullptr));
    fields += field.psubform != nullptr ? field.psubform->fieldcount : 1;
  }
  Require(fields == spec->total_fieldcount);
  for (uint32_t index = 1; index <= fields; ++index) {
    FIELDSPEC* field = KVIFormSpecGetFieldSpec(spec, index);
    Require(field != nullptr && field->name != nullptr);
    KVFIELD told{};
    KVIFieldGetFIELDFromSpec(world.dbase, &told, field, kFieldNameBytesMax);
    Require(std::strlen(told.name) <= kFieldNameBytesMax);
    if (told.keyword_list != nullptr && field->keylen != 0) KVTextListGetCount(told.keyword_list);
    if (field->namelen != 0 && std::memchr(field->name, 0, field->namelen) == nullptr)
      Require(GetFieldspec(spec, field->name) != nullptr);
  }
  Require(KVIFormSpecGetFieldSpec(spec, fields + 1) == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 4000) return 0;
  World& world = TheWorld();
  world.session->errcode = 0;
  _DOCUMENT doc{};
  doc.dbase = world.dbase;
  doc.notehand = MakeNote(world, data[0], std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  uint32_t counted = 0;
  const uint32_t size_status = KVIFormNoteSizeofFieldTable(doc.notehand, &counted);
  _FORMSPEC* spec = nullptr;
  const uint32_t status = _KVIFormGetSpec(world.session, world.dbase, 0x3fffff00, &doc, &spec);
  Require((status == KVSUCCESS) == (spec != nullptr));
  if (spec != nullptr) {
    Require(size_status == KVSUCCESS);
    ReadForm(world, spec);
    ClearForm(spec);
  }
  (void)_KVIFormNoteAppendFieldNameTables(world.session, doc.notehand);
  Require(EngNoteClose(doc.notehand) == 0);
  return 0;
}
