// Notes: opening, creating, storing, deleting, copying, and their headers.
#include "note/note.h"

#include <vector>

#include "base/boundary.h"
#include "brynd_note.h"
#include "note/reference.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::Note;
using brynd::Store;

namespace status = brynd::status;

namespace {

// Members of a note's header.
enum Member : uint16_t {
  kDatabase = 0,
  kId = 1,
  kOriginator = 2,
  kClass = 3,
  kModified = 4,
  kFlags = 7,
  kAccessed = 8,
  kParent = 10,
  kResponses = 11,
  kAdded = 13
};

brynd::store::Durability DurabilityOf(uint16_t update_word) {
  const bool lazy = (update_word & brynd::kUpdateNoCommit) != 0;
  return lazy ? brynd::store::Durability::kLazy : brynd::store::Durability::kDurable;
}

uint32_t ParentId(Note& note) {
  const uint32_t reference = note.Find("$REF");
  UNIVERSALNOTEID parent;
  if (reference == Note::kNone || !brynd::FirstReference(note.Value(reference), &parent)) return 0;
  note.Owner().Store().Refresh();
  return note.Owner().FindUnid(parent);
}

// Looks at every note: nothing else is kept about responses.
uint32_t CountResponses(Note& note) {
  Database& database = note.Owner();
  const UNIVERSALNOTEID own = brynd::UnidOf(note.Originator());
  const brynd::NameToken reference = database.Names().Lookup("$REF");
  uint32_t count = 0;
  database.Store().Refresh();
  if (note.IsNew() || reference == brynd::kNoName) return 0;
  database.Store().ScanNotes(1, [&](uint32_t, brynd::Bytes stored) {
    const std::optional<brynd::ImageView> view = database.TryView(stored);
    brynd::ImageItem item;
    UNIVERSALNOTEID parent;
    if (view && view->Find(reference, &item) && brynd::FirstReference(item.value, &parent))
      count += brynd::SameUnid(parent, own);
    return true;
  });
  return count;
}

EngDb HandleOf(const Database& database) {
  EngDb found = 0;
  brynd::Databases().ForEach([&](EngDb handle, const brynd::DatabaseEntry& entry) {
    if (entry.database.get() == &database) found = handle;
  });
  return found;
}

EngStatus GetMember(Note& note, uint16_t member, void* value) {
  const brynd::NoteHeader& header = note.Header();
  switch (member) {
    case kDatabase:
      Store<EngDb>(value, HandleOf(note.Owner()));
      return status::kOk;
    case kId:
      Store<uint32_t>(value, header.note_id);
      return status::kOk;
    case kOriginator:
      Store<ORIGINATORID>(value, note.Originator());
      return status::kOk;
    case kClass:
      Store<uint16_t>(value, header.note_class);
      return status::kOk;
    case kModified:
      Store<TIMEDATE>(value, header.modified);
      return status::kOk;
    case kFlags:
      Store<uint16_t>(value, header.note_flags);
      return status::kOk;
    case kAccessed:
      Store<TIMEDATE>(value, header.accessed);
      return status::kOk;
    case kParent:
      Store<uint32_t>(value, ParentId(note));
      return status::kOk;
    case kResponses:
      Store<uint32_t>(value, CountResponses(note));
      return status::kOk;
    case kAdded:
      Store<TIMEDATE>(value, header.added);
      return status::kOk;
    default:
      return status::kBadMember;
  }
}

EngStatus SetMember(Note& note, uint16_t member, const void* value) {
  switch (member) {
    case kDatabase:
      note.MoveTo(brynd::FindDatabase(brynd::Load<EngDb>(value)));
      return status::kOk;
    case kId:
      note.SetNoteId(brynd::Load<uint32_t>(value));
      return status::kOk;
    case kOriginator:
      note.SetOriginator(brynd::Load<ORIGINATORID>(value));
      return status::kOk;
    case kClass:
      note.SetClass(brynd::Load<uint16_t>(value));
      return status::kOk;
    case kFlags:
      note.SetFlags(brynd::Load<uint16_t>(value));
      return status::kOk;
    default:
      return status::kBadMember;
  }
}

}  // namespace

EngStatus EngNoteOpen(EngDb database, uint32_t id, uint16_t open_word, EngNote* note) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database>& owner = brynd::FindDatabase(database);
    if (note == nullptr) return status::kBadArgument;
    *note = brynd::AddNote(Note::Open(owner, id, open_word));
    return status::kOk;
  });
}

EngStatus EngNoteCreate(EngDb database, EngNote* note) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database>& owner = brynd::FindDatabase(database);
    if (note == nullptr) return status::kBadArgument;
    *note = brynd::AddNote(Note::Create(owner));
    return status::kOk;
  });
}

EngStatus EngNoteClose(EngNote note) {
  if (note == 0) return status::kOk;
  return AtBoundary([&] { brynd::CloseNote(note); });
}

EngStatus EngNoteUpdate(EngNote note, uint16_t update_word) {
  return AtBoundary([&] {
    brynd::FindNote(note).Save({.force = (update_word & brynd::kUpdateForce) != 0,
                                .keep_originator = false,
                                .durability = DurabilityOf(update_word)});
  });
}

EngStatus EngNoteDelete(EngDb database, uint32_t id, uint16_t update_word) {
  return AtBoundary(
      [&] { brynd::DeleteNote(*brynd::FindDatabase(database), id, DurabilityOf(update_word)); });
}

EngStatus EngNoteCopy(EngNote source, EngNote* note) {
  return AtBoundary([&]() -> EngStatus {
    Note& original = brynd::FindNote(source);
    if (note == nullptr) return status::kBadArgument;
    *note = brynd::AddNote(Note::CopyOf(original));
    return status::kOk;
  });
}

EngStatus EngNoteInfoGet(EngNote note, uint16_t member, void* value) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = brynd::FindNote(note);
    if (value == nullptr) return status::kBadArgument;
    return GetMember(found, member, value);
  });
}

EngStatus EngNoteInfoSet(EngNote note, uint16_t member, const void* value) {
  return AtBoundary([&]() -> EngStatus {
    Note& found = brynd::FindNote(note);
    if (value == nullptr) return status::kBadArgument;
    return SetMember(found, member, value);
  });
}

int32_t EngNoteSignStateGet(EngNote note, int32_t* is_signed, int32_t* is_sealed) {
  int32_t state = 0;
  (void)AtBoundary([&] {
    Note& found = brynd::FindNote(note);
    const bool has_signature = found.Find("$Signature") != Note::kNone,
               has_seal = found.Find("$Seal") != Note::kNone;
    if (is_signed != nullptr) Store<int32_t>(is_signed, has_signature);
    if (is_sealed != nullptr) Store<int32_t>(is_sealed, has_seal);
    state = has_signature || has_seal;
  });
  return state;
}
