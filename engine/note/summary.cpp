#include "note/summary.h"

#include "base/boundary.h"
#include "base/text.h"
#include "note/note.h"

namespace brynd {

namespace {

constexpr size_t kHeadBytes = sizeof(ITEM_TABLE);
constexpr size_t kItemHeadBytes = sizeof(ITEM);

void PutBytes(std::vector<std::byte>* target, Bytes bytes) {
  target->insert(target->end(), bytes.begin(), bytes.end());
}

void PutWord(std::vector<std::byte>* target, uint16_t word) {
  target->push_back(static_cast<std::byte>(word));
  target->push_back(static_cast<std::byte>(word >> 8));
}

template <class Value>
bool AddValue(SummaryBuilder* builder, std::string_view name, uint16_t type, const Value& value) {
  std::byte stored[kTypeWordBytes + sizeof value];
  Store<uint16_t>(stored, type);
  Store<Value>(stored + kTypeWordBytes, value);
  return builder->Add(name, stored);
}

}  // namespace

void SummaryBuilder::Clear() noexcept {
  heads_.clear();
  content_.clear();
}

// The longest start of a value that is one too; no bytes when it has none.
Bytes SummaryBuilder::CutToFit(Bytes value) {
  arena_.Reset();
  const formula::ItemView item{LoadU16(value.data()), value.subspan(kTypeWordBytes)};
  const formula::Value whole = formula::ReadItem(item, arena_);
  if (whole.IsError()) return {};
  const formula::Value cut = formula::CutValue(whole, kSummaryValueBytesMax, arena_);
  cut_.resize(formula::StoredBytes(cut));
  formula::StoreValue(cut, cut_.data());
  return cut_.size() <= kSummaryValueBytesMax ? cut_ : Bytes();
}

bool SummaryBuilder::Add(std::string_view name, Bytes value) {
  if (value.size() > kSummaryValueBytesMax) {
    value = CutToFit(value);
    if (value.empty()) return true;
  }
  if (kHeadBytes + heads_.size() + kItemHeadBytes + content_.size() + name.size() + value.size() >
      kSummaryBytesMax)
    return false;
  PutWord(&heads_, static_cast<uint16_t>(name.size()));
  PutWord(&heads_, static_cast<uint16_t>(value.size()));
  PutBytes(&content_, BytesOf(name));
  PutBytes(&content_, value);
  return true;
}

bool SummaryBuilder::AddText(std::string_view name, std::string_view text) {
  std::vector<std::byte> value;
  PutWord(&value, BRTYPE_TEXT);
  PutBytes(&value, BytesOf(text));
  return Add(name, value);
}

bool SummaryBuilder::AddNumber(std::string_view name, double number) {
  return AddValue(this, name, BRTYPE_NUMBER, number);
}

bool SummaryBuilder::AddTime(std::string_view name, const TIMEDATE& time) {
  return AddValue(this, name, BRTYPE_TIME, time);
}

Bytes SummaryBuilder::Finish() {
  table_.clear();
  PutWord(&table_, static_cast<uint16_t>(kHeadBytes + heads_.size() + content_.size()));
  PutWord(&table_, static_cast<uint16_t>(heads_.size() / kItemHeadBytes));
  PutBytes(&table_, heads_);
  PutBytes(&table_, content_);
  return table_;
}

void AddSummaryItems(Database& database, const ImageView& view, SummaryBuilder* builder) {
  NoteImage::Cursor items = view.Image().Items();
  for (ImageItem item; items.Next(&item);) {
    if ((item.item_flags & kItemSummary) == 0) continue;
    std::vector<std::byte> fetched;
    if (item.external != 0) {
      const EngStatus outcome = AtBoundary([&] {
        fetched.resize(item.length);
        database.LoadExternal(view.NoteId(), item.external, fetched);
      });
      if (outcome != status::kOk) continue;
    }
    if (!builder->Add(view.NameOf(item), item.external != 0 ? Bytes(fetched) : item.value)) return;
  }
}

std::optional<Bytes> FindInSummary(Bytes table, std::string_view name) {
  ByteReader in(table);
  const uint16_t table_bytes = in.U16(), item_count = in.U16();
  if (in.Failed() || table_bytes < kHeadBytes || table_bytes > table.size()) return std::nullopt;
  ByteReader heads(table.first(table_bytes)), content(table.first(table_bytes));
  heads.Seek(kHeadBytes);
  content.Seek(kHeadBytes + size_t{item_count} * kItemHeadBytes);
  for (uint16_t i = 0; i < item_count; ++i) {
    const uint16_t name_bytes = heads.U16(), value_bytes = heads.U16();
    const std::string_view item_name = content.Text(name_bytes);
    const Bytes value = content.Take(value_bytes);
    if (heads.Failed() || content.Failed()) return std::nullopt;
    if (EqualFold(item_name, name)) return value;
  }
  return Bytes();
}

}  // namespace brynd
