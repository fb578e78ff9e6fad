#include "collection/index_update.h"

#include <algorithm>
#include <cmath>

#include "base/status.h"

namespace brynd::collection {

namespace {

constexpr int kWalkMax = 2 * static_cast<int>(kLevelMax) + 2;  // a longer way up is damage

uint32_t NoteOfKey(Bytes key) { return __builtin_bswap32(LoadU32(key.data() + key.size() - 4)); }

}  // namespace

IndexUpdate::IndexUpdate(Index& index, DatabaseWrite& write, const Lag& lag)
    : index_(index),
      write_(write),
      head_(index.Now()),
      row_source_(index.Rows()),
      finder_source_(index.Finder()),
      rows_(row_source_, head_.rows, &head_.next_node),
      finder_(finder_source_, head_.finder, &head_.next_node) {
  head_.sequence = lag.sequence;
  head_.changes = lag.changes;
}

void IndexUpdate::Finish(WriteReport* report) {
  head_.rows = rows_.Write(write_.Records(), report);
  head_.finder = finder_.Write(write_.Records(), report);
  PutHead(write_.Records(), index_.key_, head_);
}

// --- the finder

std::optional<NoteRecord> IndexUpdate::FindRecord(uint32_t note_id) {
  const std::optional<TreeEdit::Found> found = finder_.Find(BytesOf(NoteKey(note_id)));
  if (!found) return std::nullopt;
  NoteRecord record;
  if (!ReadNoteRecord(found->payload, index_.Design().totals.size(), &record)) Fail(status::kDamaged);
  return record;
}

void IndexUpdate::PutRecord(uint32_t note_id, const NoteRecord& record) {
  const std::string key = NoteKey(note_id), stored = WriteNoteRecord(record);
  const std::optional<TreeEdit::Found> found = finder_.Find(BytesOf(key));
  if (found && SameBytes(found->payload, BytesOf(stored))) return;
  finder_.Put(BytesOf(key), 1, BytesOf(stored));
}

std::string IndexUpdate::CategoryKeyOf(uint32_t number) {
  const std::optional<TreeEdit::Found> found = finder_.Find(BytesOf(CategoryKey(number)));
  if (!found || found->payload.size() <= kEntryHeadBytes) Fail(status::kDamaged);
  return std::string(TextOf(found->payload));
}

// --- ways up

template <class Visit>
void IndexUpdate::WalkUp(Place place, Visit&& visit) {
  for (int steps = 0; place != kTopPlace; ++steps) {
    if (steps == kWalkMax) Fail(status::kDamaged);
    std::string key;
    if (IsCategory(place)) {
      key = CategoryKeyOf(CategoryOf(place));
    } else {
      const std::optional<NoteRecord> record = FindRecord(IdOf(place));
      if (!record) Fail(status::kDamaged);
      const auto stand = std::ranges::find(record->stands, CategoryOf(place), &Stand::Category);
      if (stand == record->stands.end()) Fail(status::kDamaged);
      key = KeyOf(*stand);
    }
    visit(place, key);
    place = ParentOf(BytesOf(key));
  }
}

void IndexUpdate::AddWeightUp(Place place, int64_t more) {
  WalkUp(place, [&](Place above, const std::string& key) {
    rows_.AddWeight(BytesOf(key), more);
    if (IsCategory(above)) touched_.insert(CategoryOf(above));
  });
}

// Of what stands below the place.
uint32_t IndexUpdate::LevelOf(Place place) {
  uint32_t level = 0;
  WalkUp(place, [&](Place, const std::string&) { ++level; });
  return level;
}

bool IndexUpdate::IsBelow(Place place, uint32_t note_id) {
  bool below = false;
  WalkUp(place,
         [&](Place above, const std::string&) { below |= !IsCategory(above) && IdOf(above) == note_id; });
  return below;
}

// --- where a note belongs

bool IndexUpdate::Selects(const ImageView& view, Row* row) {
  if (index_.Design().is_folder) {
    const std::string key = MemberKey(index_.ViewId(), view.NoteId());
    if (!index_.Data().Store().ReadRecord(kHeadSpace, BytesOf(key), [](Bytes) {})) return false;
  }
  return index_.Maker().Make(view, row);
}

Place IndexUpdate::MakeCategory(Place parent, uint32_t level, const CategoryPiece& piece,
                                const std::string& key) {
  if (head_.last_category >= kCategoryNumberMax) Fail(status::kDatabaseTooLarge);
  CategoryEntry made;
  made.id = CategoryId(level, ++head_.last_category);
  made.column = piece.column;
  made.depth = piece.depth;
  made.value = piece.value;
  made.sums.resize(index_.Design().totals.size());
  rows_.Put(BytesOf(key), 1, BytesOf(CategoryPayload(made)));
  finder_.Put(BytesOf(CategoryKey(head_.last_category)), 1, BytesOf(key));
  AddWeightUp(parent, 1);
  CountChild(parent, 1);
  touched_.insert(head_.last_category);
  return PlaceOfCategory(made.id);
}

Place IndexUpdate::CategoryPlace(const CategoryPath& path) {
  Place parent = kTopPlace;
  uint32_t level = 0;
  for (const CategoryPiece& piece : path) {
    const std::string key = EntryKey(parent, piece.kind, piece.Order());
    const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(key));
    CategoryEntry entry;
    if (!found)
      parent = MakeCategory(parent, level, piece, key);
    else if (ReadCategory(found->payload, index_.Design().totals.size(), &entry))
      parent = PlaceOfCategory(entry.id);
    else
      Fail(status::kDamaged);
    ++level;
  }
  return parent;
}

std::vector<Place> IndexUpdate::PlacesFor(const Row& row) {
  std::vector<Place> places;
  const auto add = [&](Place place) {
    if (std::ranges::find(places, place) == places.end()) places.push_back(place);
  };
  if (!row.entry.is_response) {
    for (const CategoryPath& path : row.paths) add(CategoryPlace(path));
    return places;
  }
  const uint32_t parent = index_.Data().FindUnid(row.parent);
  const std::optional<NoteRecord> record = parent == 0 ? std::nullopt : FindRecord(parent);
  if (!record || parent == row.note_id) return places;
  for (const Stand& stand : record->stands) {
    const Place place = PlaceOf(stand.Category(), parent);
    if (LevelOf(place) <= kLevelMax && !IsBelow(place, row.note_id)) add(place);
  }
  return places;
}

NoteRecord IndexUpdate::RecordOf(const Row& row) {
  NoteRecord record;
  record.is_response = row.entry.is_response;
  record.unid = row.entry.unid;
  if (row.entry.is_response) record.parent = row.parent;
  record.numbers = row.numbers;
  std::string rest(1, static_cast<char>(EntryKind::kDocument));
  rest += row.order;
  for (const Place place : PlacesFor(row)) record.stands.push_back({place, rest});
  return record;
}

// --- counts and sums

std::set<uint32_t> IndexUpdate::CategoriesOf(const std::vector<Stand>& stands) {
  std::set<uint32_t> categories;
  for (const Stand& stand : stands) {
    uint32_t number = stand.Category();
    for (int steps = 0; number != 0 && categories.insert(number).second; ++steps) {
      if (steps == kWalkMax) Fail(status::kDamaged);
      number = CategoryOf(ParentOf(BytesOf(CategoryKeyOf(number))));
    }
  }
  return categories;
}

void IndexUpdate::ContributeTo(const std::string& key, const NoteRecord& record, int sign) {
  const size_t total_count = index_.Design().totals.size();
  const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(key));
  CategoryEntry entry;
  if (!found || !ReadCategory(found->payload, total_count, &entry)) Fail(status::kDamaged);
  entry.documents += static_cast<uint32_t>(sign);
  for (size_t i = 0; i < total_count; ++i)
    if (!std::isnan(record.numbers[i])) entry.sums[i].Add(sign * record.numbers[i]);
  rows_.Put(BytesOf(key), found->weight, BytesOf(CategoryPayload(entry)));
}

void IndexUpdate::Contribute(const NoteRecord& record, int sign) {
  if (record.stands.empty()) return;
  head_.documents += static_cast<uint32_t>(sign);
  for (const uint32_t number : CategoriesOf(record.stands)) {
    ContributeTo(CategoryKeyOf(number), record, sign);
    touched_.insert(number);
  }
  if (!index_.Design().totals.empty()) ContributeTo(EntryKey(kTopPlace, EntryKind::kTotal, {}), record, sign);
}

void IndexUpdate::CountChild(Place parent, int more) {
  const bool is_top = parent == kTopPlace;
  if (is_top && index_.Design().totals.empty()) return;
  const std::string key =
      is_top ? EntryKey(kTopPlace, EntryKind::kTotal, {}) : CategoryKeyOf(CategoryOf(parent));
  const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(key));
  CategoryEntry entry;
  if (!found || !ReadCategory(found->payload, index_.Design().totals.size(), &entry)) Fail(status::kDamaged);
  entry.child_categories += static_cast<uint32_t>(more);
  rows_.Put(BytesOf(key), found->weight, BytesOf(CategoryPayload(entry)));
}

void IndexUpdate::DropEmptyCategories() {
  while (!touched_.empty()) {
    const uint32_t number = *touched_.rbegin();
    touched_.erase(number);
    if (!finder_.Find(BytesOf(CategoryKey(number)))) continue;
    const std::string key = CategoryKeyOf(number);
    const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(key));
    if (!found) Fail(status::kDamaged);
    if (found->weight != 1) continue;
    const Place parent = ParentOf(BytesOf(key));
    rows_.Erase(BytesOf(key));
    finder_.Erase(BytesOf(CategoryKey(number)));
    CountChild(parent, -1);
    AddWeightUp(parent, -1);
  }
}

// --- changes

void IndexUpdate::Apply(uint32_t note_id, const ImageView* view) {
  const std::optional<NoteRecord> known = FindRecord(note_id);
  const bool selected = view != nullptr && Selects(*view, &row_);
  if (!known && !selected) return;
  const NoteRecord old = known.value_or(NoteRecord{});
  const NoteRecord now = selected ? RecordOf(row_) : NoteRecord{};
  const bool same_sums =
      old.stands == now.stands && std::ranges::equal(old.numbers, now.numbers, [](double left, double right) {
        return left == right || (std::isnan(left) && std::isnan(right));
      });
  const bool stays_response =
      known && selected && old.is_response && now.is_response && SameUnid(old.parent, now.parent);
  if (known && !same_sums) Contribute(old, -1);
  if (known && old.is_response && !stays_response) finder_.Erase(BytesOf(ResponseKey(old.parent, note_id)));
  std::vector<uint32_t> fresh;
  const std::string payload = selected ? DocumentPayload(row_.entry) : std::string();
  RemoveStands(note_id, old, now);
  if (selected) PutRecord(note_id, now);
  MoveStands(old, now, payload, &fresh);
  if (!selected) finder_.Erase(BytesOf(NoteKey(note_id)));
  if (selected && now.is_response && !stays_response)
    finder_.Put(BytesOf(ResponseKey(now.parent, note_id)), 1, {});
  if (selected && !same_sums) Contribute(now, 1);
  for (const uint32_t category : fresh) AddResponses(note_id, now.unid, category);
  DropEmptyCategories();
}

// While the record still says where the note stood: its responses find their way up by it.
void IndexUpdate::RemoveStands(uint32_t note_id, const NoteRecord& old, const NoteRecord& now) {
  for (const Stand& stand : old.stands) {
    const auto kept = std::ranges::find(now.stands, stand.Category(), &Stand::Category);
    if (kept != now.stands.end()) continue;
    RemoveResponses(note_id, stand.Category());
    if (!rows_.Erase(BytesOf(KeyOf(stand)))) Fail(status::kDamaged);
    AddWeightUp(stand.parent, -1);
  }
}

void IndexUpdate::MoveStands(const NoteRecord& old, const NoteRecord& now, const std::string& payload,
                             std::vector<uint32_t>* fresh) {
  for (const Stand& stand : now.stands) {
    const auto former = std::ranges::find(old.stands, stand.Category(), &Stand::Category);
    const std::string key = KeyOf(stand);
    if (former == old.stands.end()) {
      rows_.Put(BytesOf(key), 1, BytesOf(payload));
      AddWeightUp(stand.parent, 1);
      fresh->push_back(stand.Category());
      continue;
    }
    const std::string former_key = KeyOf(*former);
    const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(former_key));
    if (!found) Fail(status::kDamaged);
    const uint32_t weight = found->weight;
    if (former_key == key) {
      if (!SameBytes(found->payload, BytesOf(payload))) rows_.Put(BytesOf(key), weight, BytesOf(payload));
      continue;
    }
    rows_.Erase(BytesOf(former_key));
    rows_.Put(BytesOf(key), weight, BytesOf(payload));
    if (former->parent == stand.parent) continue;
    AddWeightUp(former->parent, -int64_t{weight});
    AddWeightUp(stand.parent, weight);
  }
}

// --- responses

void IndexUpdate::RemoveResponses(uint32_t note_id, uint32_t category, uint32_t depth) {
  if (depth > kLevelMax) Fail(status::kDamaged);
  const Place place = PlaceOf(category, note_id);
  for (;;) {
    const std::optional<TreeEdit::Place> next = rows_.Next(BytesOf(ParentKey(place)));
    if (!next || next->key.size() < kEntryHeadBytes + kTieBytes || ParentOf(next->key) != place) return;
    const uint32_t response = NoteOfKey(next->key);
    std::optional<NoteRecord> record = FindRecord(response);
    if (!record) Fail(status::kDamaged);
    const auto stand = std::ranges::find(record->stands, category, &Stand::Category);
    if (stand == record->stands.end()) Fail(status::kDamaged);
    RemoveResponses(response, category, depth + 1);
    const std::string key = KeyOf(*stand);
    if (!rows_.Erase(BytesOf(key))) Fail(status::kDamaged);
    AddWeightUp(place, -1);
    Contribute(*record, -1);
    record->stands.erase(stand);
    PutRecord(response, *record);
    Contribute(*record, 1);
  }
}

void IndexUpdate::AddResponses(uint32_t note_id, const UNIVERSALNOTEID& unid, uint32_t category) {
  const std::string prefix = ResponsePrefix(unid);
  std::string from = prefix;
  for (;;) {
    const std::optional<TreeEdit::Place> next = finder_.Next(BytesOf(from));
    if (!next || next->key.size() != prefix.size() + 4 || !TextOf(next->key).starts_with(prefix)) return;
    AddResponse(NoteOfKey(next->key), PlaceOf(category, note_id));
    from = std::string(TextOf(next->key)) + '\0';
  }
}

void IndexUpdate::AddResponse(uint32_t note_id, Place parent) {
  std::optional<NoteRecord> record = FindRecord(note_id);
  if (!record || LevelOf(parent) > kLevelMax || IsBelow(parent, note_id)) return;
  const uint32_t category = CategoryOf(parent);
  if (std::ranges::find(record->stands, category, &Stand::Category) != record->stands.end()) return;
  std::string payload, rest;
  if (!record->stands.empty()) {
    rest = record->stands.front().rest;
    const std::optional<TreeEdit::Found> found = rows_.Find(BytesOf(KeyOf(record->stands.front())));
    if (!found) Fail(status::kDamaged);
    payload = TextOf(found->payload);
  } else {
    // It stood nowhere: its row is made now. When the note itself has changed, its own turn comes too.
    Row row;
    bool selected = false;
    index_.Data().Store().ReadNote(note_id, [&](Bytes stored) {
      const std::optional<ImageView> view = index_.Data().TryView(stored);
      selected =
          view && Selects(*view, &row) && row.entry.is_response && SameUnid(row.parent, record->parent);
      if (selected) payload = DocumentPayload(row.entry);
    });
    if (!selected) return;
    record->numbers = row.numbers;
    rest.assign(1, static_cast<char>(EntryKind::kDocument));
    rest += row.order;
  }
  Contribute(*record, -1);
  record->stands.push_back({parent, rest});
  PutRecord(note_id, *record);
  rows_.Put(BytesOf(KeyOf(record->stands.back())), 1, BytesOf(payload));
  AddWeightUp(parent, 1);
  Contribute(*record, 1);
  AddResponses(note_id, record->unid, category);
}

}  // namespace brynd::collection
