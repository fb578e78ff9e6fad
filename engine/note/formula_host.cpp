// What formulas see of notes.
#include "note/formula_host.h"

#include <algorithm>
#include <set>

#include "base/boundary.h"
#include "base/text.h"
#include "note/acl.h"
#include "note/file_object.h"
#include "note/info.h"
#include "note/path.h"
#include "note/reference.h"
#include "note/user_names.h"

namespace brynd {

namespace {

formula::DocumentFacts FactsOfHeader(const NoteHeader& header) {
  formula::DocumentFacts facts;
  facts.note_id = header.note_id;
  facts.note_class = header.note_class;
  facts.is_new = header.note_id == 0;
  if (facts.is_new) return facts;
  facts.originator = header.originator;
  facts.created = header.created;
  facts.modified = header.originator.SequenceTime;
  facts.accessed = header.accessed;
  facts.added = header.added;
  return facts;
}

void SetParent(Bytes reference, formula::DocumentFacts* facts) {
  facts->is_response = FirstReference(reference, &facts->parent);
}

void AddFile(Bytes value, std::vector<formula::AttachedFile>* files) {
  FileObject file;
  if (ReadFileObject(value, &file)) files->push_back({std::string(file.name), file.file_bytes});
}

// A stored document that outlives the visit: the image is copied.
class StoredHost final : public ImageHost {
 public:
  StoredHost(brynd::Database& database, std::vector<std::byte> stored)
      : ImageHost(database), stored_(std::move(stored)) {
    Show(database.View(stored_));
  }

 private:
  const std::vector<std::byte> stored_;
};

std::unique_ptr<formula::Host> StoredDocument(Database& database, const UNIVERSALNOTEID& unid) {
  const uint32_t note_id = database.FindUnid(unid);
  if (note_id == 0) return nullptr;
  std::vector<std::byte> stored;
  const bool found =
      database.Store().ReadNote(note_id, [&](Bytes image) { stored.assign(image.begin(), image.end()); });
  return found ? std::make_unique<StoredHost>(database, std::move(stored)) : nullptr;
}

bool IsDatabaseFile(std::string_view path) {
  bool is_database = false;
  AtBoundary([&] {
    const DatabasePath resolved = ResolveDatabasePath(path);
    is_database = resolved.kind == PathKind::kFile && store::Inspect(resolved.system_path).is_database;
  });
  return is_database;
}

std::vector<std::string> RolesOf(const Acl& acl, const AclEntry& entry) {
  std::vector<std::string> roles;
  for (size_t role = 0; role < std::min(acl.roles.size(), kAclRolesMax); ++role) {
    const bool has_role = (std::to_integer<unsigned>(entry.roles[role / 8]) >> (role % 8) & 1) != 0;
    const std::string& name = acl.roles[role];
    if (has_role && !name.empty()) roles.push_back(name.front() == '[' ? name : "[" + name + "]");
  }
  return roles;
}

const AclEntry* FindEntry(const Acl& acl, std::string_view compared) {
  for (const AclEntry& entry : acl.entries)
    if (EqualFold(ComparedName(entry.name), compared)) return &entry;
  return nullptr;
}

}  // namespace

formula::AccessFacts AccessOf(Database& database, std::string_view user) {
  formula::AccessFacts facts;
  facts.user_names = NamesOfUser(user);
  if (!database.IsOpen() || database.IsDirectory()) return facts;
  const std::optional<Acl> acl = ParseAcl(ReadAcl(database));
  if (!acl) Fail(status::kBadAcl);
  const AclEntry* own = nullptr;
  for (size_t index = 0; index < facts.user_names.size() && own == nullptr; ++index)
    own = FindEntry(*acl, ComparedName(facts.user_names[index]));
  if (own == nullptr) own = FindEntry(*acl, kAclDefaultName);
  if (own != nullptr) {
    facts.level = static_cast<uint8_t>(own->level);
    facts.user_roles = RolesOf(*acl, *own);
  }
  for (const AclEntry& entry : acl->entries)
    if (entry.level == AclLevel::kManager) facts.managers.push_back(entry.name);
  return facts;
}

uint64_t ResponseCounts::Of(Database& database, const ORIGINATORID& originator) {
  if (!counts_) {
    counts_.emplace();
    database.Store().ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
      const std::optional<ImageView> view = database.TryView(stored);
      ImageItem reference;
      UNIVERSALNOTEID parent;
      const bool is_response = view && view->NoteId() == note_id && !view->IsStub() &&
                               (view->NoteClass() & BRCLASS_DATA) != 0 && view->Find("$REF", &reference) &&
                               FirstReference(reference.value, &parent);
      if (is_response) ++(*counts_)[UnidKey(parent)];
      return true;
    });
  }
  const auto found = counts_->find(UnidKey(UnidOf(originator)));
  return found == counts_->end() ? 0 : found->second;
}

formula::DocumentFacts FactsOfImage(const ImageView& view) {
  formula::DocumentFacts facts = FactsOfHeader(view.Image().Header());
  ImageItem reference;
  if (view.Find("$REF", &reference)) SetParent(reference.value, &facts);
  facts.length =
      kImageHeaderBytes + kImageItemBytes * uint64_t{view.Image().ItemCount()} + view.Image().ValueBytes();
  return facts;
}

formula::DocumentFacts FactsOfNote(Note& note) {
  formula::DocumentFacts facts = FactsOfHeader(note.Header());
  facts.length = kImageHeaderBytes + kImageItemBytes * uint64_t{note.ItemCount()};
  for (uint32_t index = 0; index < note.ItemCount(); ++index) facts.length += note.At(index).length;
  const uint32_t reference = note.Find("$REF");
  if (reference != Note::kNone) SetParent(note.Value(reference), &facts);
  return facts;
}

formula::DatabaseFacts FactsOfDatabase(Database& database) {
  formula::DatabaseFacts facts;
  facts.path = database.GivenPath();
  if (!database.IsOpen() || database.IsDirectory()) return facts;
  facts.replica_id = database.ReplicaInfo().ID;
  facts.title = ParseInfo(ReadInfo(database))[static_cast<size_t>(InfoField::kTitle)];
  if (!facts.title.empty()) return facts;
  const uint32_t icon = database.SpecialId(BRCLASS_ICON);
  if (icon == 0) return facts;
  database.VisitNote(icon, [&](const ImageView& view) {
    ImageItem title;
    if (!view.Find("$TITLE", &title) || title.type != BRTYPE_TEXT || title.external != 0) return;
    const std::string_view info = TextOf(title.value.subspan(kTypeWordBytes));
    facts.title = info.substr(0, std::min(info.find('\n'), info.find('\0')));
  });
  return facts;
}

// --- stored notes

formula::NameScope ImageHost::Scope() const {
  return {database_.Names().Identity(), database_.Names().Edition()};
}

formula::NameToken ImageHost::Bind(std::string_view name) {
  static_assert(kNoName == formula::kNoToken);
  return database_.Names().Lookup(name);
}

bool ImageHost::Find(formula::NameToken token, formula::ItemView* item) {
  ImageItem stored;
  if (token == formula::kNoToken || !view_ || !view_->Find(token, &stored)) return false;
  if (stored.external != 0) return FindExternal(stored, item);
  item->type = stored.type;
  item->value = stored.value.subspan(kTypeWordBytes);
  return true;
}

bool ImageHost::FindExternal(const ImageItem& stored, formula::ItemView* item) {
  auto [place, fresh] = fetched_.try_emplace(stored.external);
  if (fresh) {
    std::vector<std::byte> value(stored.length);
    database_.LoadExternal(view_->NoteId(), stored.external, value);
    place->second = std::move(value);
  }
  if (place->second.size() != stored.length) Fail(status::kDamaged);  // an earlier fetch did not end well
  item->type = stored.type;
  item->value = Bytes(place->second).subspan(kTypeWordBytes);
  return true;
}

void ImageHost::ItemNames(std::vector<std::string>* names) {
  if (!view_) return;
  std::set<NameToken> seen;
  NoteImage::Cursor cursor = view_->Image().Items();
  for (ImageItem item; cursor.Next(&item);) {
    if (seen.insert(view_->CanonicalOf(item)).second) names->emplace_back(view_->NameOf(item));
  }
}

void ImageHost::Document(formula::DocumentFacts* facts) {
  if (view_) *facts = FactsOfImage(*view_);
}

void ImageHost::Database(formula::DatabaseFacts* facts) { *facts = FactsOfDatabase(database_); }

void ImageHost::Attachments(std::vector<formula::AttachedFile>* files) {
  const NameToken name = database_.Names().Lookup(kFileItemName);
  if (!view_ || name == kNoName) return;
  NoteImage::Cursor cursor = view_->Image().Items();
  for (ImageItem item; cursor.Next(&item);)
    if (view_->CanonicalOf(item) == name) AddFile(item.value, files);
}

void ImageHost::Access(formula::AccessFacts* facts) { *facts = AccessOf(database_, UserName()); }

std::unique_ptr<formula::Host> ImageHost::Stored(const UNIVERSALNOTEID& unid) {
  return StoredDocument(database_, unid);
}

uint64_t ImageHost::ResponseCount() {
  return view_ ? responses_.Of(database_, view_->Image().Originator()) : 0;
}

bool ImageHost::DatabaseExists(std::string_view path) { return IsDatabaseFile(path); }

// --- open notes

formula::NameScope NoteHost::Scope() const {
  const NameDictionary& names = note_.Owner().Names();
  return {names.Identity(), names.Edition()};
}

formula::NameToken NoteHost::Bind(std::string_view name) { return note_.Owner().Names().Lookup(name); }

bool NoteHost::Find(formula::NameToken token, formula::ItemView* item) {
  const uint32_t index = token == formula::kNoToken ? Note::kNone : note_.Find(token);
  if (index == Note::kNone) return false;
  const Bytes value = note_.Value(index);
  item->type = note_.At(index).type;
  item->value = value.subspan(kTypeWordBytes);
  return true;
}

void NoteHost::ItemNames(std::vector<std::string>* names) {
  std::set<NameToken> seen;
  for (uint32_t index = 0; index < note_.ItemCount(); ++index) {
    if (!note_.IsHidden(index) && seen.insert(note_.Canonical(index)).second)
      names->emplace_back(note_.NameOf(index));
  }
}

bool NoteHost::WriteItem(std::string_view name, const formula::ItemView& item) {
  const uint16_t flags = item.value.size() + kTypeWordBytes <= kSummaryValueBytesMax ? kItemSummary : 0;
  note_.DeleteOthers(note_.Append(name, flags, item.type, item.value));
  return true;
}

bool NoteHost::DeleteItem(std::string_view name) {
  note_.DeleteAll(name);
  return true;
}

void NoteHost::Document(formula::DocumentFacts* facts) { *facts = FactsOfNote(note_); }

void NoteHost::Database(formula::DatabaseFacts* facts) { *facts = FactsOfDatabase(note_.Owner()); }

void NoteHost::Attachments(std::vector<formula::AttachedFile>* files) {
  for (uint32_t index = note_.Find(kFileItemName); index != Note::kNone;
       index = note_.Find(kFileItemName, index + 1))
    AddFile(note_.Value(index), files);
}

void NoteHost::Access(formula::AccessFacts* facts) { *facts = AccessOf(note_.Owner(), UserName()); }

std::unique_ptr<formula::Host> NoteHost::Stored(const UNIVERSALNOTEID& unid) {
  note_.Owner().Store().Refresh();
  return StoredDocument(note_.Owner(), unid);
}

uint64_t NoteHost::ResponseCount() {
  if (note_.IsNew()) return 0;
  note_.Owner().Store().Refresh();
  return responses_.Of(note_.Owner(), note_.Header().originator);
}

bool NoteHost::DatabaseExists(std::string_view path) { return IsDatabaseFile(path); }

formula::Answer NoteHost::WriteStored(const UNIVERSALNOTEID& unid, std::string_view name,
                                      const formula::ItemView* item) {
  note_.Owner().Store().Refresh();
  const uint32_t note_id = note_.Owner().FindUnid(unid);
  if (note_id == 0) return formula::Answer::kNothing;
  const std::unique_ptr<Note> other = Note::Open(note_.OwnerPointer(), note_id, 0);
  NoteHost writer(*other);
  if (item != nullptr)
    writer.WriteItem(name, *item);
  else
    writer.DeleteItem(name);
  other->Save({});
  return formula::Answer::kDone;
}

}  // namespace brynd
