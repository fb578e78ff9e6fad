#include "collection/page.h"

#include <algorithm>

#include "base/status.h"

namespace brynd::collection {

namespace {

constexpr size_t kLengthBytes = sizeof(uint16_t);

// Visits the values of a table of plain lengths; false when the table is not whole.
template <class Visit>
bool ForEachValue(Bytes table, Visit&& visit) {
  ByteReader heads(table), content(table);
  heads.Skip(2);
  const uint16_t count = heads.U16();
  content.Seek(sizeof(ITEM_TABLE) + size_t{count} * kLengthBytes);
  for (uint16_t i = 0; i < count; ++i) {
    const Bytes value = content.Take(heads.U16());
    if (heads.Failed() || content.Failed()) return false;
    visit(i, value);
  }
  return true;
}

// Makes a table of values; those that would make it longer than the limit stay empty, and all behind them.
template <class ValueAt>
void MakeTable(size_t count, size_t bytes_max, ValueAt&& value_at, std::vector<std::byte>* table) {
  table->assign(sizeof(ITEM_TABLE) + count * kLengthBytes, std::byte{0});
  for (size_t i = 0; i < count; ++i) {
    const Bytes value = value_at(i);
    if (table->size() + value.size() > bytes_max) break;
    StoreU16(table->data() + sizeof(ITEM_TABLE) + i * kLengthBytes, static_cast<uint16_t>(value.size()));
    table->insert(table->end(), value.begin(), value.end());
  }
  StoreU16(table->data(), static_cast<uint16_t>(table->size()));
  StoreU16(table->data() + 2, static_cast<uint16_t>(count));
}

}  // namespace

void PageWriter::AddStatistics() {
  const Tree& rows = walk_.Rows();
  const std::string total = EntryKey(kTopPlace, EntryKind::kTotal, {});
  Put(static_cast<uint32_t>(rows.Seek(BytesOf(total)).Rank()));
  Put(uint32_t{0});
}

bool PageWriter::AddRow() {
  const size_t before = page_->size();
  bool added;
  if (walk_.IsDocument()) {
    DocumentEntry entry;
    if (!ReadDocument(walk_.Payload(), &entry)) Fail(status::kDamaged);
    added = AddDocument(entry);
  } else {
    added = AddCategory();
  }
  added = added && page_->size() <= kPageBytesMax;
  if (!added) page_->resize(before);
  row_count_ += added;
  return added;
}

bool PageWriter::AddDocument(const DocumentEntry& entry) {
  AddFields(walk_.NoteId(), &entry);
  if ((mask_ & kSummary) != 0 && !AddTable(entry.table)) return false;
  return (mask_ & kNamedSummary) == 0 || AddNamedTable(entry.table);
}

bool PageWriter::AddCategory() {
  if (!ReadCategory(walk_.Payload(), index_.Design().totals.size(), &category_)) Fail(status::kDamaged);
  AddFields(category_.id, nullptr);
  if ((mask_ & (kSummary | kNamedSummary)) == 0) return true;
  const Bytes table = CategoryTable(category_);
  if ((mask_ & kSummary) != 0 && !AddTable(table)) return false;
  return (mask_ & kNamedSummary) == 0 || AddNamedTable(table);
}

void PageWriter::AddFields(uint32_t id, const DocumentEntry* document) {
  const bool is_unread = document != nullptr && unread_ != nullptr && unread_->Contains(id);
  if ((mask_ & kNoteId) != 0) Put(id);
  if ((mask_ & kUnid) != 0) Put(document != nullptr ? document->unid : UNIVERSALNOTEID{});
  if ((mask_ & kClass) != 0) Put(document != nullptr ? document->note_class : uint16_t{0});
  if ((mask_ & kSiblings) != 0) Put(static_cast<uint32_t>(walk_.SiblingCount()));
  if ((mask_ & kChildren) != 0) Put(static_cast<uint32_t>(walk_.ChildCount()));
  if ((mask_ & kDescendants) != 0) Put(walk_.Weight() - 1);
  if ((mask_ & kAnyUnread) != 0) Put(uint16_t{is_unread || AnyUnread()});
  if ((mask_ & kIndent) != 0)
    Put(static_cast<uint16_t>(document != nullptr ? walk_.ResponseDepth() : category_.depth));
  if ((mask_ & kScore) != 0) Put(uint16_t{0});
  if ((mask_ & kUnread) != 0) Put(uint16_t{is_unread});
  if ((mask_ & kPosition) == 0) return;
  Put(static_cast<uint16_t>(walk_.Level()));
  Put(uint16_t{0});
  for (uint32_t level = 0; level <= walk_.Level(); ++level) Put(walk_.Ordinal(level));
}

// Whether something unread stands below the row; looks at one row after the other until it is found.
bool PageWriter::AnyUnread() {
  if (unread_ == nullptr || unread_->IsEmpty() || walk_.Weight() == 1) return false;
  const uint64_t row = walk_.RowNumber(), end = row + walk_.Weight();
  bool found = false;
  while (!found && walk_.RowNumber() + 1 < end && walk_.Move(kNext, 1) == 1)
    found = walk_.IsDocument() && unread_->Contains(walk_.NoteId());
  walk_.ToRow(row);
  return found;
}

bool PageWriter::AddTable(Bytes table) {
  const size_t room = kPageBytesMax - std::min(kPageBytesMax, page_->size());
  if (table.size() > room) {
    if (row_count_ != 0) return false;
    std::vector<Bytes> values;
    if (!ForEachValue(table, [&](uint16_t, Bytes value) { values.push_back(value); })) Fail(status::kDamaged);
    std::vector<std::byte> cut;
    MakeTable(
        values.size(), room, [&](size_t i) { return values[i]; }, &cut);
    page_->insert(page_->end(), cut.begin(), cut.end());
    return true;
  }
  page_->insert(page_->end(), table.begin(), table.end());
  return true;
}

bool PageWriter::AddNamedTable(Bytes table) {
  const std::vector<std::string>& names = index_.Design().item_names;
  named_.Clear();
  const bool whole = ForEachValue(table, [&](uint16_t i, Bytes value) {
    if (i < names.size()) named_.Add(names[i], value);
  });
  if (!whole) Fail(status::kDamaged);
  const Bytes content = named_.Finish();
  if (content.size() + page_->size() > kPageBytesMax && row_count_ == 0) named_.Clear();
  const Bytes shown = row_count_ == 0 ? named_.Finish() : content;
  page_->insert(page_->end(), shown.begin(), shown.end());
  return true;
}

// --- categories and totals

const CategoryEntry& PageWriter::GrandTotal() {
  if (grand_total_) return *grand_total_;
  Cursor cursor;
  CategoryEntry total;
  const std::string key = EntryKey(kTopPlace, EntryKind::kTotal, {});
  if (!walk_.Rows().Find(BytesOf(key), &cursor) ||
      !ReadCategory(cursor.Payload(), index_.Design().totals.size(), &total))
    Fail(status::kDamaged);
  return grand_total_.emplace(std::move(total));
}

double PageWriter::TotalOf(const CategoryEntry& entry, size_t total) {
  const bool is_grand = entry.id == kTotalId;
  const double sum = entry.sums[total].Value();
  const auto share = [&](double whole) { return is_grand ? 100 : whole == 0 ? 0 : sum / whole * 100; };
  switch (index_.Design().totals[total].kind) {
    case TotalKind::kAverageOfBranch:
      if (entry.child_categories != 0) return sum / entry.child_categories;
      return entry.documents == 0 ? 0 : sum / entry.documents;
    case TotalKind::kAverage:
      return entry.documents == 0 ? 0 : sum / entry.documents;
    case TotalKind::kPercentOfParent: {
      CategoryEntry parent;
      const Bytes above = walk_.ParentPayload();
      if (above.empty()) return share(is_grand ? sum : GrandTotal().sums[total].Value());
      if (!ReadCategory(above, index_.Design().totals.size(), &parent)) Fail(status::kDamaged);
      return share(parent.sums[total].Value());
    }
    case TotalKind::kPercentOfAll:
      return share(is_grand ? sum : GrandTotal().sums[total].Value());
    default:
      return sum;
  }
}

Bytes PageWriter::CategoryTable(const CategoryEntry& entry) {
  const Definition& design = index_.Design();
  const size_t count = design.item_names.size();
  std::vector<std::string> values(count);
  for (size_t i = 0; i < design.totals.size(); ++i) {
    std::string& value = values[design.totals[i].item];
    value.assign(kTypeWordBytes + sizeof(double), '\0');
    StoreU16(value.data(), BRTYPE_NUMBER);
    StoreF64(value.data() + kTypeWordBytes, TotalOf(entry, i));
  }
  if (entry.id != kTotalId && entry.column < design.categories.size())
    values[design.categories[entry.column].item] = entry.value;
  MakeTable(
      count, kPageBytesMax, [&](size_t i) { return BytesOf(values[i]); }, &table_);
  return table_;
}

}  // namespace brynd::collection
