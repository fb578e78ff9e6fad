#include "collection/build.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "base/status.h"

namespace brynd::collection {

namespace {
constexpr size_t kBlockBytes = size_t{1} << 20;
}

Bytes IndexBuild::Keep(std::string_view text) {
  if (text.size() > block_left_) {
    block_left_ = std::max(kBlockBytes, text.size());
    blocks_.emplace_back().reserve(block_left_);
  }
  std::vector<std::byte>& block = blocks_.back();
  const size_t at = block.size();
  block.insert(block.end(), BytesOf(text).begin(), BytesOf(text).end());
  block_left_ -= text.size();
  return Bytes(block).subspan(at);
}

bool IndexBuild::Takes(const ImageView& view) const {
  if (!definition_.is_folder) return true;
  const std::string key = MemberKey(view_id_, view.NoteId());
  return database_.Store().ReadRecord(kHeadSpace, BytesOf(key), [](Bytes) {});
}

void IndexBuild::Collect() {
  Row row;
  database_.Store().ScanNotes(1, [&](store::NoteId note_id, Bytes stored) {
    const std::optional<ImageView> view = database_.TryView(stored);
    if (view && view->NoteId() == note_id && Takes(*view) && maker_.Make(*view, &row)) AddDocument(row);
    return true;
  });
}

void IndexBuild::AddDocument(const Row& row) {
  Document& document = documents_.emplace_back();
  document.note_id = row.note_id;
  document.is_response = row.entry.is_response;
  document.unid = row.entry.unid;
  document.parent = row.parent;
  document.order = Keep(row.order);
  document.payload = Keep(DocumentPayload(row.entry));
  document.numbers = numbers_.size();
  numbers_.insert(numbers_.end(), row.numbers.begin(), row.numbers.end());
  for (const CategoryPath& path : row.paths) {
    const uint32_t category = CategoryFor(path);
    if (std::ranges::find(document.categories, category) == document.categories.end())
      document.categories.push_back(category);
  }
}

// Index + 1 of the category that a path leads to; made when it is met first.
uint32_t IndexBuild::CategoryFor(const CategoryPath& path) {
  uint32_t parent = 0;
  uint32_t level = 0;
  for (const CategoryPiece& piece : path) {
    // Most values were met before just as they are.
    sought_.assign(reinterpret_cast<const char*>(&parent), sizeof parent);
    sought_.push_back(static_cast<char>(piece.kind));
    sought_.append(piece.value);
    uint32_t& found = category_of_value_[sought_];
    if (found == 0) {
      const Place parent_place = parent == 0 ? kTopPlace : categories_[parent - 1].place;
      std::string key = EntryKey(parent_place, piece.kind, piece.Order());
      uint32_t& same = category_of_key_[key];
      if (same == 0) {
        if (categories_.size() == kCategoryNumberMax) Fail(status::kDatabaseTooLarge);
        Category& made = categories_.emplace_back();
        same = static_cast<uint32_t>(categories_.size());
        made.entry.id = CategoryId(level, same);
        made.entry.column = piece.column;
        made.entry.depth = piece.depth;
        made.entry.value = piece.value;
        made.entry.sums.resize(definition_.totals.size());
        made.place = PlaceOfCategory(made.entry.id);
        made.parent = parent_place;
        made.parent_index = static_cast<int32_t>(parent) - 1;
        made.key = std::move(key);
        CategoryEntry& above = parent == 0 ? total_ : categories_[parent - 1].entry;
        ++above.child_categories;
      }
      found = same;
    }
    parent = found;
    ++level;
  }
  return parent;
}

void IndexBuild::LinkResponses() {
  struct Less {
    bool operator()(const UNIVERSALNOTEID& left, const UNIVERSALNOTEID& right) const {
      return std::memcmp(&left, &right, sizeof left) < 0;
    }
  };
  std::map<UNIVERSALNOTEID, uint32_t, Less> by_unid;
  if (std::ranges::none_of(documents_, &Document::is_response)) return;
  for (uint32_t i = 0; i < documents_.size(); ++i) by_unid.emplace(documents_[i].unid, i);
  for (uint32_t i = 0; i < documents_.size(); ++i) {
    if (!documents_[i].is_response) continue;
    const auto parent = by_unid.find(documents_[i].parent);
    if (parent != by_unid.end()) documents_[parent->second].responses.push_back(i);
  }
}

// Enters a row and those of its responses; how many there are.
uint32_t IndexBuild::Stand(uint32_t number, Place parent, uint32_t category, uint32_t level) {
  Document& document = documents_[number];
  const uint32_t category_number =
      category == 0 ? 0 : IdOf(categories_[category - 1].place) & kCategoryNumberMax;
  const size_t place = entries_.size();
  entries_.push_back(
      {Keep(EntryKey(parent, EntryKind::kDocument, TextOf(document.order))), document.payload, 1});
  document.stands.emplace_back(parent, category);
  uint32_t weight = 1;
  if (level < kLevelMax) {
    for (const uint32_t response : document.responses)
      weight += Stand(response, PlaceOf(category_number, document.note_id), category, level + 1);
  }
  entries_[place].weight = weight;
  return weight;
}

// Weights, numbers of documents and sums of categories and of the whole.
void IndexBuild::Count() {
  total_.sums.resize(definition_.totals.size());
  for (uint32_t number = 0; number < documents_.size(); ++number) {
    Document& document = documents_[number];
    if (document.is_response) continue;
    for (const uint32_t category : document.categories) {
      const Place parent = category == 0 ? kTopPlace : categories_[category - 1].place;
      const uint32_t level = category == 0 ? 0 : (categories_[category - 1].entry.id >> 24 & 0x3f) + 1;
      const uint32_t weight = Stand(number, parent, category, level);
      if (category != 0) categories_[category - 1].weight += weight;
    }
  }
  for (size_t i = categories_.size(); i-- != 0;) {
    const Category& category = categories_[i];
    if (category.parent_index >= 0)
      categories_[static_cast<size_t>(category.parent_index)].weight += category.weight;
  }
  const auto count = [&](CategoryEntry* entry, const Document& document) {
    ++entry->documents;
    for (size_t i = 0; i < entry->sums.size(); ++i) {
      const double number = numbers_[document.numbers + i];
      if (!std::isnan(number)) entry->sums[i].Add(number);
    }
  };
  for (uint32_t number = 0; number < documents_.size(); ++number) {
    const Document& document = documents_[number];
    if (document.stands.empty()) continue;
    count(&total_, document);
    for (const auto& [parent, category] : document.stands) {
      for (int32_t at = static_cast<int32_t>(category) - 1; at >= 0;
           at = categories_[static_cast<size_t>(at)].parent_index) {
        Category& counted = categories_[static_cast<size_t>(at)];
        if (std::exchange(counted.last_document, number) != number) count(&counted.entry, document);
      }
    }
  }
}

void IndexBuild::WriteRows(store::Write& write, Head* head) {
  for (const Category& category : categories_) {
    if (category.weight > UINT32_MAX) Fail(status::kDatabaseTooLarge);
    entries_.push_back({BytesOf(category.key), Keep(CategoryPayload(category.entry)),
                        static_cast<uint32_t>(category.weight)});
  }
  if (!definition_.totals.empty()) {
    total_.id = kTotalId;
    entries_.push_back({Keep(EntryKey(kTopPlace, EntryKind::kTotal, {})), Keep(CategoryPayload(total_)), 1});
  }
  std::ranges::sort(
      entries_, [](const Entry& left, const Entry& right) { return CompareKeys(left.key, right.key) < 0; });
  TreeBuilder builder(write, {head->collection, kRowTree}, &head->next_node);
  for (const Entry& entry : entries_) builder.Add(entry.key, entry.weight, entry.payload);
  head->rows = builder.Finish();
}

void IndexBuild::WriteFinder(store::Write& write, Head* head) {
  TreeBuilder builder(write, {head->collection, kFinderTree}, &head->next_node);
  for (uint32_t i = 0; i < categories_.size(); ++i) {
    builder.Add(BytesOf(CategoryKey(i + 1)), 1, BytesOf(categories_[i].key));
  }
  std::vector<std::string> responses;
  NoteRecord record;
  for (const Document& document : documents_) {
    record.is_response = document.is_response;
    record.unid = document.unid;
    record.parent = document.parent;
    record.numbers.assign(
        numbers_.begin() + static_cast<ptrdiff_t>(document.numbers),
        numbers_.begin() + static_cast<ptrdiff_t>(document.numbers + definition_.totals.size()));
    record.stands.clear();
    for (const auto& [parent, category] : document.stands) {
      NoteRecord::Stand& stand = record.stands.emplace_back();
      stand.parent = parent;
      stand.rest.push_back(static_cast<char>(EntryKind::kDocument));
      stand.rest.append(TextOf(document.order));
    }
    builder.Add(BytesOf(NoteKey(document.note_id)), 1, BytesOf(WriteNoteRecord(record)));
    if (document.is_response) responses.push_back(ResponseKey(document.parent, document.note_id));
    head->documents += !document.stands.empty();
  }
  std::ranges::sort(responses);
  for (const std::string& key : responses) builder.Add(BytesOf(key), 1, {});
  head->finder = builder.Finish();
}

void IndexBuild::Run(store::Write& write, Head* head) {
  Collect();
  LinkResponses();
  Count();
  head->last_category = static_cast<uint32_t>(categories_.size());
  head->documents = 0;
  WriteRows(write, head);
  WriteFinder(write, head);
}

}  // namespace brynd::collection
