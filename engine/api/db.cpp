// Databases: opening, closing, making, deleting; identity, class, ids of notes.
#include "base/boundary.h"
#include "base/message.h"
#include "brynd_db.h"
#include "note/database.h"
#include "note/path.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::DatabasePath;
using brynd::FindDatabase;
using brynd::PathKind;
using brynd::Store;

namespace status = brynd::status;

namespace {

constexpr uint16_t kModeDatabase = 1, kModeDirectory = 2;  // what a handle is open on
constexpr uint32_t kCreateEncrypted = 1;                   // flag of EngDbCreate

std::shared_ptr<Database> OpenPath(const std::string& path) {
  const DatabasePath found = brynd::ResolveDatabasePath(path);
  if (found.kind == PathKind::kDirectory) return Database::OpenDirectory(found.system_path, path);
  return Database::OpenFile(found.system_path, path);
}

struct HeadOutputs {
  ORIGINATORID* originator;
  TIMEDATE* modified;
  uint16_t* note_class;
};

// What the head of a note says; a deleted one is no note.
void PutHead(Database& database, uint32_t note_id, const HeadOutputs& outputs) {
  bool found = false;
  database.VisitNote(note_id, [&](const brynd::ImageView& view) {
    if (view.IsStub()) return;
    found = true;
    if (outputs.originator != nullptr) Store<ORIGINATORID>(outputs.originator, view.Image().Originator());
    if (outputs.modified != nullptr) Store<TIMEDATE>(outputs.modified, view.Image().Modified());
    if (outputs.note_class != nullptr) Store<uint16_t>(outputs.note_class, view.NoteClass());
  });
  if (!found) brynd::Fail(status::kNoNote);
}

}  // namespace

EngStatus EngDbOpen(const char* path, EngDb* database) {
  return EngDbOpenEx(path, 0, 0, nullptr, database, nullptr, nullptr);
}

EngStatus EngDbOpenEx(const char* path, uint32_t, EngMem, const TIMEDATE*, EngDb* database,
                      TIMEDATE* data_modified, TIMEDATE* other_modified) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr || database == nullptr) return status::kBadArgument;
    const EngDb opened = brynd::AddDatabase(OpenPath(path));
    if (data_modified != nullptr || other_modified != nullptr) {
      const EngStatus outcome = EngDbModifiedTimeGet(opened, data_modified, other_modified);
      if (outcome != status::kOk) {
        brynd::CloseDatabase(opened);
        return outcome;
      }
    }
    Store<EngDb>(database, opened);
    return status::kOk;
  });
}

EngStatus EngDbReopen(EngDb source, EngDb* database) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> original = FindDatabase(source);
    if (database == nullptr) return status::kBadArgument;
    std::shared_ptr<Database> opened =
        original->IsDirectory() ? Database::OpenDirectory(original->FilePath(), original->GivenPath())
                                : Database::OpenFile(original->FilePath(), original->GivenPath());
    Store<EngDb>(database, brynd::AddDatabase(std::move(opened)));
    return status::kOk;
  });
}

EngStatus EngDbClose(EngDb database) {
  if (database == 0) return status::kOk;
  return AtBoundary([&] { brynd::CloseDatabase(database); });
}

EngStatus EngDbSessionClose(EngDb database) { return EngDbClose(database); }

EngStatus EngDbCreate(const char* path, uint16_t db_class, int32_t overwrite, uint32_t flags,
                      uint16_t encryption, uint32_t size_limit) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    // A file that was asked to be encrypted must not lie there in clear text.
    if ((flags & kCreateEncrypted) != 0 && encryption != 0) return status::kNotAvailable;
    const DatabasePath found = brynd::ResolveDatabasePath(path, brynd::PathUse::kMake);
    if (found.kind == PathKind::kDirectory) return status::kIsDirectory;
    if (found.kind == PathKind::kFile && overwrite == 0) return status::kFileExists;
    Database::Create(found.system_path,
                     {.file_class = db_class, .overwrite = overwrite != 0, .size_limit = size_limit});
    return status::kOk;
  });
}

EngStatus EngDbDelete(const char* path) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    const DatabasePath found = brynd::ResolveDatabasePath(path);
    if (found.kind == PathKind::kDirectory) return status::kIsDirectory;
    brynd::store::Remove(found.system_path);
    return status::kOk;
  });
}

EngStatus EngDbModeGet(EngDb database, uint16_t* mode) {
  return AtBoundary([&]() -> EngStatus {
    const bool directory = FindDatabase(database)->IsDirectory();
    if (mode == nullptr) return status::kBadArgument;
    Store<uint16_t>(mode, directory ? kModeDirectory : kModeDatabase);
    return status::kOk;
  });
}

EngStatus EngDbClassGet(EngDb database, uint16_t* db_class) {
  return AtBoundary([&]() -> EngStatus {
    const uint16_t found = FindDatabase(database)->FileClass();
    if (db_class == nullptr) return status::kBadArgument;
    Store<uint16_t>(db_class, found);
    return status::kOk;
  });
}

EngStatus EngDbBuildVersionGet(EngDb database, uint16_t* build) {
  return AtBoundary([&]() -> EngStatus {
    FindDatabase(database);
    if (build == nullptr) return status::kBadArgument;
    Store<uint16_t>(build, brynd::kEngineBuildNumber);
    return status::kOk;
  });
}

EngStatus EngDbIdGet(EngDb database, TIMEDATE* id) {
  return AtBoundary([&]() -> EngStatus {
    const TIMEDATE found = FindDatabase(database)->InstanceId();
    if (id == nullptr) return status::kBadArgument;
    Store<TIMEDATE>(id, found);
    return status::kOk;
  });
}

EngStatus EngDbOidGenerate(EngDb database, ORIGINATORID* originator) {
  return AtBoundary([&]() -> EngStatus {
    const ORIGINATORID made = FindDatabase(database)->NewOriginator();
    if (originator == nullptr) return status::kBadArgument;
    Store<ORIGINATORID>(originator, made);
    return status::kOk;
  });
}

EngStatus EngDbIdInfoGet(EngDb database, uint32_t id, ORIGINATORID* originator, TIMEDATE* modified,
                         uint16_t* note_class) {
  return AtBoundary([&] {
    Database& found = *FindDatabase(database);
    found.Store().Refresh();
    PutHead(found, found.PlainNoteId(id), {originator, modified, note_class});
  });
}

EngStatus EngDbUnidInfoGet(EngDb database, const UNIVERSALNOTEID* unid, uint32_t* id,
                           ORIGINATORID* originator, TIMEDATE* modified, uint16_t* note_class) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (unid == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    brynd::store::Database::Hold hold(found.Store());
    const uint32_t note_id = found.FindUnid(brynd::Load<UNIVERSALNOTEID>(unid));
    if (note_id == 0) return status::kNoNote;
    PutHead(found, note_id, {originator, modified, note_class});
    if (id != nullptr) Store<uint32_t>(id, note_id);
    return status::kOk;
  });
}

EngStatus EngDbSpecialIdGet(EngDb database, uint16_t note_class, uint32_t* id) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (id == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    const uint32_t special = found.SpecialId(note_class);
    if (special == 0) return status::kNotFound;
    Store<uint32_t>(id, special);
    return status::kOk;
  });
}
