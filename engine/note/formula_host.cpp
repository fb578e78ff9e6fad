// What formulas see of notes.
#include "note/formula_host.h"

#include <algorithm>
#include <set>

#include "note/reference.h"

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

}  // namespace

formula::DocumentFacts FactsOfImage(const ImageView& view) {
  formula::DocumentFacts facts = FactsOfHeader(view.Image().Header());
  ImageItem reference;
  UNIVERSALNOTEID parent;
  facts.is_response = view.Find("$REF", &reference) && FirstReference(reference.value, &parent);
  facts.length =
      kImageHeaderBytes + kImageItemBytes * uint64_t{view.Image().ItemCount()} + view.Image().ValueBytes();
  return facts;
}

formula::DocumentFacts FactsOfNote(Note& note) {
  formula::DocumentFacts facts = FactsOfHeader(note.Header());
  facts.length = kImageHeaderBytes + kImageItemBytes * uint64_t{note.ItemCount()};
  for (uint32_t index = 0; index < note.ItemCount(); ++index) facts.length += note.At(index).length;
  const uint32_t reference = note.Find("$REF");
  UNIVERSALNOTEID parent;
  facts.is_response = reference != Note::kNone && FirstReference(note.Value(reference), &parent);
  return facts;
}

formula::DatabaseFacts FactsOfDatabase(Database& database) {
  formula::DatabaseFacts facts;
  facts.path = database.GivenPath();
  if (!database.IsOpen() || database.IsDirectory()) return facts;
  facts.replica_id = database.ReplicaInfo().ID;
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

}  // namespace brynd
