// Folders: records whose documents are chosen by hand.
#include "collection/folder.h"

#include "base/boundary.h"
#include "base/idtable.h"
#include "brynd_collection.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::FindDatabase;
using brynd::IdTableOf;
using brynd::Store;

namespace status = brynd::status;
namespace collection = brynd::collection;

namespace {

// Folders lie in the database of their documents: another one is not offered.
EngStatus InOne(EngDb database, EngDb folder_database) {
  return folder_database == 0 || folder_database == database ? status::kOk : status::kBadArgument;
}

}  // namespace

EngStatus EngFolderNew(EngDb database, EngDb folder_database, uint32_t source, EngDb source_database,
                       const char* name, uint16_t name_bytes, uint16_t is_private, uint32_t,
                       uint32_t* folder) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> target = FindDatabase(database);
    const std::shared_ptr<Database> origin = source_database == 0 ? target : FindDatabase(source_database);
    if (name == nullptr || name_bytes == 0 || folder == nullptr || is_private > 1)
      return status::kBadArgument;
    brynd::Check(InOne(database, folder_database));
    const uint32_t made = collection::NewFolder(target, {.database = origin, .note_id = source},
                                                {name, name_bytes}, is_private != 0, false);
    Store<uint32_t>(folder, made);
    return status::kOk;
  });
}

EngStatus EngFolderDuplicate(EngDb database, EngDb folder_database, uint32_t source, const char* name,
                             uint16_t name_bytes, uint32_t, uint32_t* folder) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> target = FindDatabase(database);
    if (name == nullptr || name_bytes == 0 || folder == nullptr) return status::kBadArgument;
    brynd::Check(InOne(database, folder_database));
    const uint32_t made = collection::NewFolder(target, {.database = target, .note_id = source},
                                                {name, name_bytes}, false, true);
    Store<uint32_t>(folder, made);
    return status::kOk;
  });
}

EngStatus EngFolderRemove(EngDb database, EngDb folder_database, uint32_t folder, uint32_t) {
  return AtBoundary([&] {
    Database& target = *FindDatabase(database);
    brynd::Check(InOne(database, folder_database));
    collection::RemoveFolder(target, folder);
  });
}

EngStatus EngFolderEntriesAdd(EngDb database, EngDb folder_database, uint32_t folder, EngIdTable table,
                              uint32_t) {
  return AtBoundary([&] {
    const std::shared_ptr<Database> target = FindDatabase(database);
    brynd::Check(InOne(database, folder_database));
    collection::ChangeMembers(target, folder, IdTableOf(table), true);
  });
}

EngStatus EngFolderEntriesRemove(EngDb database, EngDb folder_database, uint32_t folder, EngIdTable table,
                                 uint32_t) {
  return AtBoundary([&] {
    const std::shared_ptr<Database> target = FindDatabase(database);
    brynd::Check(InOne(database, folder_database));
    collection::ChangeMembers(target, folder, IdTableOf(table), false);
  });
}

EngStatus EngFolderEntriesRemoveAll(EngDb database, EngDb folder_database, uint32_t folder, uint32_t) {
  return AtBoundary([&] {
    const std::shared_ptr<Database> target = FindDatabase(database);
    brynd::Check(InOne(database, folder_database));
    collection::ChangeMembers(target, folder, collection::MembersOf(*target, folder), false);
  });
}

EngStatus EngFolderEntriesCount(EngDb database, EngDb folder_database, uint32_t folder, uint32_t,
                                uint32_t* count) {
  return AtBoundary([&]() -> EngStatus {
    Database& target = *FindDatabase(database);
    if (count == nullptr) return status::kBadArgument;
    brynd::Check(InOne(database, folder_database));
    Store<uint32_t>(count, collection::CountMembers(target, folder));
    return status::kOk;
  });
}
