#include "collection/folder.h"

#include <algorithm>

#include "base/process.h"
#include "collection/index_update.h"
#include "note/copy.h"
#include "note/design_index.h"
#include "note/note.h"

namespace brynd::collection {

namespace {

// Flags that a folder keeps of the record it was made from, and its own.
std::string FolderFlags(Note& note) {
  std::string flags;
  const uint32_t item = note.Find("$Flags");
  if (item != Note::kNone && note.At(item).type == BRTYPE_TEXT)
    flags = TextOf(note.Value(item).subspan(kTypeWordBytes));
  std::erase(flags, '\0');
  if (flags.find('F') == std::string::npos) flags += 'F';
  return flags;
}

void SetText(Note& note, std::string_view name, std::string_view text, uint16_t item_flags) {
  note.DeleteAll(name);
  note.Append(name, item_flags, BRTYPE_TEXT, BytesOf(text));
}

void CheckFolder(Database& database, uint32_t folder) {
  if (!ReadDefinition(database, folder).is_folder) Fail(status::kBadCollection);
}

std::string UserName() { return Process().settings->Get("UserName").value_or(""); }

void CheckNameFree(Database& database, std::string_view name, bool is_private) {
  database.Store().Refresh();
  const uint32_t found = is_private ? design_index::FindPrivate(database, name, BRCLASS_VIEW, UserName())
                                    : design_index::Find(database, name, BRCLASS_VIEW);
  if (found != 0) Fail(status::kNameExists);
}

// What makes a record one user's own.
void SetOwner(Note& note, std::string_view owner) {
  SetText(note, "$Authors", owner, kItemSign | kItemSummary | kItemWriters);
  SetText(note, "$Readers", owner, kItemSign | kItemSummary | kItemReaders);
  SetText(note, "$UpdatedBy", owner, kItemSummary | kItemNames);
}

}  // namespace

uint32_t NewFolder(const std::shared_ptr<Database>& database, const FolderSource& source,
                   std::string_view name, bool is_private, bool with_entries) {
  source.database->Store().Refresh();
  const uint32_t source_id = source.database->PlainNoteId(source.note_id);
  const Definition design = ReadDefinition(*source.database, source_id);
  if (with_entries && !design.is_folder) Fail(status::kBadCollection);
  CheckNameFree(*database, name, is_private);
  const std::unique_ptr<Note> original = Note::Open(source.database, source_id, 0);
  const std::unique_ptr<Note> note = Note::CopyOf(*original);
  if (source.database != database) note->MoveTo(database);
  note->SetNoteId(0);
  note->SetOriginator(database->NewOriginator());
  note->SetClass(is_private ? BRCLASS_VIEW | BRCLASS_PRIVATE : BRCLASS_VIEW);
  SetText(*note, "$TITLE", name, kItemSummary);
  SetText(*note, "$Flags", FolderFlags(*note), kItemSummary);
  if (is_private) SetOwner(*note, UserName());
  DatabaseWrite write(*database);
  note->SaveInto(write, {});
  const uint32_t folder = database->Store().LastNoteId();  // a new note's id is above all others
  if (with_entries) {
    const IdTable members = MembersOf(*database, source_id);
    members.ForEach([&](uint32_t note_id) {
      write.Records().PutRecord(kHeadSpace, BytesOf(MemberKey(folder, note_id)), {});
      return true;
    });
  }
  write.Commit(store::Durability::kDurable);
  return folder;
}

void RemoveFolder(Database& database, uint32_t folder) {
  database.Store().Refresh();
  CheckFolder(database, folder);
  DatabaseWrite write(database);
  const std::string head_key = HeadKey(0, folder);
  if (const std::optional<Head> head = ReadHead(database, head_key)) {
    const NodeKey from = KeyOfNode({head->collection, 0}, 0), to = KeyOfNode({head->collection + 1, 0}, 0);
    write.Records().RemoveRange(kNodeSpace, from, Bytes(to));
    write.Records().RemoveRecord(kHeadSpace, BytesOf(head_key));
  }
  write.Records().RemoveRange(kHeadSpace, BytesOf(MemberKey(folder, 0)), BytesOf(MemberKey(folder + 1, 0)));
  if (!DeleteNoteInto(write, folder)) Fail(status::kNoNote);
  write.Commit(store::Durability::kDurable);
}

void ChangeMembers(const std::shared_ptr<Database>& database, uint32_t folder, const IdTable& notes,
                   bool add) {
  database->Store().Refresh();
  CheckFolder(*database, folder);
  Index index(database, database, folder);
  DatabaseWrite write(*database);
  notes.ForEach([&](uint32_t note_id) {
    const std::string key = MemberKey(folder, note_id);
    if (note_id == 0 || note_id > store::kNoteIdMax) return true;
    if (add)
      write.Records().PutRecord(kHeadSpace, BytesOf(key), {});
    else
      write.Records().RemoveRecord(kHeadSpace, BytesOf(key));
    return true;
  });
  index.TakeIn(write, notes);
  write.Commit(store::Durability::kDurable);
}

IdTable MembersOf(Database& database, uint32_t folder) {
  database.Store().Refresh();
  CheckFolder(database, folder);
  IdTable members;
  const std::string from = MemberKey(folder, 0), to = MemberKey(folder + 1, 0);
  database.Store().ScanRecords(kHeadSpace, BytesOf(from), BytesOf(to), [&](Bytes key, Bytes) {
    if (key.size() == from.size()) members.Insert(__builtin_bswap32(LoadU32(key.data() + 5)));
    return true;
  });
  return members;
}

uint32_t CountMembers(Database& database, uint32_t folder) {
  uint32_t count = 0;
  MembersOf(database, folder).ForEach([&](uint32_t note_id) {
    database.Store().ReadNote(note_id, [&](Bytes stored) {
      const std::optional<ImageView> view = database.TryView(stored);
      count += view && !view->IsStub();
    });
    return true;
  });
  return count;
}

}  // namespace brynd::collection
