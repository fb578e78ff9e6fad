// Databases: what is said of the whole, its space, its replica settings.
#include "base/boundary.h"
#include "base/idtable.h"
#include "base/process.h"
#include "base/time.h"
#include "brynd_db.h"
#include "note/copy.h"
#include "note/database.h"
#include "note/directory.h"
#include "note/info.h"
#include "note/note.h"
#include "note/path.h"
#include "note/search.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::FindDatabase;
using brynd::Load;
using brynd::Store;

namespace status = brynd::status;

namespace {

constexpr uint32_t kDeletedMark = 0x80000000;  // in a table of changed notes, on the ids of deleted ones

uint32_t Clamp32(uint64_t bytes) { return bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes); }

std::string_view InfoText(const char* info) { return {info, strnlen(info, brynd::kInfoBytes)}; }

// Any text as a whole buffer of 128 bytes.
void PutInfo(char* info, std::string_view text) {
  std::memset(info, 0, brynd::kInfoBytes);
  brynd::CopyBytes(info, text.data(), std::min(text.size(), brynd::kInfoBytes - 1));
}

TIMEDATE SinceOf(const TIMEDATE* since) {
  return since == nullptr ? brynd::kWildcardTime : Load<TIMEDATE>(since);
}

}  // namespace

EngStatus EngDbInfoGet(EngDb database, char* info) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (info == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    PutInfo(info, brynd::ReadInfo(found));
    return status::kOk;
  });
}

EngStatus EngDbInfoSet(EngDb database, const char* info) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (info == nullptr) return status::kBadArgument;
    brynd::WriteInfo(found, InfoText(info).substr(0, brynd::kInfoBytes - 1));
    return status::kOk;
  });
}

EngStatus EngDbInfoFieldGet(const char* info, uint16_t field, char* text, uint16_t text_limit) {
  return AtBoundary([&]() -> EngStatus {
    if (info == nullptr || text == nullptr || field >= brynd::kInfoFieldCount) return status::kBadArgument;
    const std::string value = brynd::ParseInfo(InfoText(info))[field];
    const size_t bytes = std::min<size_t>(value.size(), text_limit);
    brynd::CopyBytes(text, value.data(), bytes);
    text[bytes] = 0;
    return status::kOk;
  });
}

EngStatus EngDbInfoFieldSet(char* info, uint16_t field, const char* text) {
  return AtBoundary([&]() -> EngStatus {
    if (info == nullptr || field >= brynd::kInfoFieldCount) return status::kBadArgument;
    brynd::InfoFields fields = brynd::ParseInfo(InfoText(info));
    fields[field] = text == nullptr ? "" : text;
    PutInfo(info, brynd::BuildInfo(fields));
    return status::kOk;
  });
}

EngStatus EngDbReplicaInfoGet(EngDb database, DBREPLICAINFO* info) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (info == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    Store<DBREPLICAINFO>(info, found.ReplicaInfo());
    return status::kOk;
  });
}

EngStatus EngDbReplicaInfoSet(EngDb database, const DBREPLICAINFO* info) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (info == nullptr) return status::kBadArgument;
    found.SetReplicaInfo(Load<DBREPLICAINFO>(info));
    return status::kOk;
  });
}

EngStatus EngDbLocateByReplica(EngDb directory, uint16_t file_class, const TIMEDATE* replica, char* path,
                               uint16_t path_bytes) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(directory);
    if (replica == nullptr || path == nullptr || !found.IsDirectory()) return status::kBadArgument;
    const std::string located = brynd::FindReplica(found, file_class, Load<TIMEDATE>(replica));
    if (located.empty()) return status::kNotFound;
    if (located.size() + 1 > path_bytes) return status::kBufferTooSmall;
    brynd::CopyBytes(path, located.c_str(), located.size() + 1);
    return status::kOk;
  });
}

EngStatus EngDbModifiedTimeGet(EngDb database, TIMEDATE* data, TIMEDATE* other) {
  return AtBoundary([&] {
    const brynd::ModifiedTimes times = brynd::LastModified(*FindDatabase(database));
    if (data != nullptr) Store<TIMEDATE>(data, times.data);
    if (other != nullptr) Store<TIMEDATE>(other, times.other);
  });
}

EngStatus EngDbSpaceUsageGet(EngDb database, uint32_t* used, uint32_t* unused) {
  return AtBoundary([&] {
    Database& found = *FindDatabase(database);
    found.Store().Refresh();
    const brynd::store::SizeInfo sizes = found.Store().Sizes();
    if (used != nullptr) Store<uint32_t>(used, Clamp32(sizes.file_bytes - sizes.free_bytes));
    if (unused != nullptr) Store<uint32_t>(unused, Clamp32(sizes.free_bytes));
  });
}

EngStatus EngDbModifiedTableGet(EngDb database, uint16_t class_mask, const TIMEDATE* since, TIMEDATE* until,
                                EngIdTable* table) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (table == nullptr) return status::kBadArgument;
    const TIMEDATE now = brynd::Process().clock->Now();
    brynd::MemoryBlock block = brynd::MakeIdTable();
    brynd::IdTable& ids = brynd::IdTableOf(block.handle());
    brynd::VisitChangedSince(found, class_mask, SinceOf(since), [&](const brynd::ImageView& view) {
      ids.Insert(view.IsStub() ? view.NoteId() | kDeletedMark : view.NoteId());
    });
    ids.time = now;
    if (until != nullptr) Store<TIMEDATE>(until, now);
    Store<EngIdTable>(table, block.Release());
    return status::kOk;
  });
}

EngStatus EngDbDeleteIds(EngDb database, EngIdTable table, uint16_t update_word) {
  return AtBoundary([&] {
    Database& found = *FindDatabase(database);
    const brynd::IdTable& ids = brynd::IdTableOf(table);
    brynd::DatabaseWrite write(found);
    ids.ForEach([&](uint32_t note_id) {
      if (note_id != 0 && note_id <= brynd::store::kNoteIdMax) brynd::DeleteNoteInto(write, note_id);
      return true;
    });
    write.Commit((update_word & brynd::kUpdateNoCommit) != 0 ? brynd::store::Durability::kLazy
                                                             : brynd::store::Durability::kDurable);
  });
}

EngStatus EngDbCopy(EngDb source, EngDb destination, const TIMEDATE* since, uint16_t class_mask) {
  return AtBoundary([&] {
    const std::shared_ptr<Database> from = FindDatabase(source), to = FindDatabase(destination);
    brynd::CopyNotes(from, to, SinceOf(since), class_mask);
  });
}

EngStatus EngDbCompact(const char* path, uint32_t, DBCOMPACTSIZES* sizes) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    const brynd::DatabasePath found = brynd::ResolveDatabasePath(path);
    if (found.kind == brynd::PathKind::kMissing) return status::kNoFile;
    if (found.kind == brynd::PathKind::kDirectory) return status::kIsDirectory;
    const std::unique_ptr<brynd::store::Database> store = brynd::store::Open(found.system_path);
    const brynd::store::CompactReport report = store->Compact();
    store->Close();
    if (sizes != nullptr)
      Store<DBCOMPACTSIZES>(sizes, {Clamp32(report.bytes_before), Clamp32(report.bytes_after)});
    return status::kOk;
  });
}
