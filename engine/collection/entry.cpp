#include "collection/entry.h"

#include <cmath>

#include "base/checksum.h"
#include "base/collate.h"
#include "base/time.h"
#include "formula/value.h"

namespace brynd::collection {

namespace {

template <class Number>
void AppendHigh(Number number, std::string* text) {
  for (size_t shift = sizeof number * 8; shift != 0; shift -= 8)
    text->push_back(static_cast<char>(number >> (shift - 8)));
}

template <class Record>
void AppendRecord(const Record& record, std::string* text) {
  text->append(reinterpret_cast<const char*>(&record), sizeof record);
}

constexpr size_t kTextUsedMax = 200;  // bytes of a text that decide its order
constexpr CollationStrength kTertiary{}, kSecondary{.ignore_case = true, .ignore_accents = false};

// A cut key keeps a mark of the whole text, so that two categories never become one by their length.
void AppendTextOrder(std::string_view text, CollationStrength strength, bool marked, std::string* order) {
  const size_t begin = order->size();
  AppendSortKey(text.substr(0, kTextUsedMax), strength, order);
  const bool is_cut = text.size() > kTextUsedMax || order->size() - begin > KeyLimits::kColumnBytesMax;
  if (order->size() - begin > KeyLimits::kColumnBytesMax) order->resize(begin + KeyLimits::kColumnBytesMax);
  if (!is_cut || !marked) return;
  const std::string whole = SortKey(text, strength);
  uint64_t mark = Checksum64(BytesOf(whole));
  order->push_back('\x01');
  for (int i = 0; i < 16; ++i, mark >>= 4) order->push_back(static_cast<char>(0x10 + (mark & 0xf)));
}

}  // namespace

std::string EntryKey(Place parent, EntryKind kind, std::string_view order) {
  std::string key;
  key.reserve(kEntryHeadBytes + order.size());
  AppendHigh(parent, &key);
  key.push_back(static_cast<char>(kind));
  key.append(order);
  return key;
}

std::string ParentKey(Place parent) {
  std::string key;
  AppendHigh(parent, &key);
  return key;
}

std::string ParentEnd(Place parent) { return ParentKey(parent + 1); }

void ExactSum::Add(double number) noexcept {
  const double sum = high + number;
  const double back = sum - high;
  low += (high - (sum - back)) + (number - back);
  high = sum + low;
  low -= high - sum;
}

// --- documents

void WriteDocumentHead(const DocumentEntry& entry, std::byte* target) noexcept {
  StoreU16(target, entry.note_class);
  Store<UNIVERSALNOTEID>(target + 2, entry.unid);
  target[18] = std::byte{entry.is_response};
}

std::string DocumentPayload(const DocumentEntry& entry) {
  std::string payload(kDocumentHeadBytes, '\0');
  WriteDocumentHead(entry, reinterpret_cast<std::byte*>(payload.data()));
  payload.append(TextOf(entry.table));
  return payload;
}

bool ReadDocument(Bytes payload, DocumentEntry* entry) noexcept {
  if (payload.size() < kDocumentHeadBytes + sizeof(ITEM_TABLE)) return false;
  entry->note_class = LoadU16(payload.data());
  entry->unid = Load<UNIVERSALNOTEID>(payload.data() + 2);
  entry->is_response = payload[18] != std::byte{0};
  entry->table = payload.subspan(kDocumentHeadBytes);
  return LoadU16(entry->table.data()) == entry->table.size();
}

// --- categories

std::string CategoryPayload(const CategoryEntry& entry) {
  ByteBuilder out;
  out.U32(entry.id);
  out.U32(entry.documents);
  out.U32(entry.child_categories);
  out.U8(entry.column);
  out.U8(entry.depth);
  out.U32(static_cast<uint32_t>(entry.value.size()));
  out.Text(entry.value);
  for (const ExactSum& sum : entry.sums) {
    out.F64(sum.high);
    out.F64(sum.low);
  }
  return std::string(TextOf(out.View()));
}

bool ReadCategory(Bytes payload, size_t total_count, CategoryEntry* entry) {
  ByteReader in(payload);
  entry->id = in.U32();
  entry->documents = in.U32();
  entry->child_categories = in.U32();
  entry->column = in.U8();
  entry->depth = in.U8();
  entry->value = in.Text(in.U32());
  entry->sums.clear();
  for (size_t i = 0; i < total_count; ++i) {
    const double high = in.F64(), low = in.F64();
    entry->sums.push_back({high, low});
  }
  return !in.Failed() && in.Left() == 0 && (entry->id & kCategoryIdBit) != 0;
}

// --- the finder

std::string WriteNoteRecord(const NoteRecord& record) {
  ByteBuilder out;
  out.U8(record.is_response ? 1 : 0);
  out.Write<UNIVERSALNOTEID>(record.unid);
  if (record.is_response) out.Write<UNIVERSALNOTEID>(record.parent);
  for (const double number : record.numbers) out.F64(number);
  for (const NoteRecord::Stand& stand : record.stands) {
    out.U64(stand.parent);
    out.U16(static_cast<uint16_t>(stand.rest.size()));
    out.Text(stand.rest);
  }
  return std::string(TextOf(out.View()));
}

bool ReadNoteRecord(Bytes stored, size_t total_count, NoteRecord* record) {
  ByteReader in(stored);
  record->is_response = in.U8() != 0;
  record->unid = in.Read<UNIVERSALNOTEID>();
  if (record->is_response) record->parent = in.Read<UNIVERSALNOTEID>();
  record->numbers.clear();
  for (size_t i = 0; i < total_count; ++i) record->numbers.push_back(in.F64());
  record->stands.clear();
  while (!in.Failed() && in.Left() != 0) {
    const Place parent = in.U64();
    record->stands.push_back({parent, std::string(in.Text(in.U16()))});
  }
  return !in.Failed();
}

std::string NoteKey(uint32_t note_id) {
  std::string key = "N";
  AppendHigh(note_id, &key);
  return key;
}

std::string ResponsePrefix(const UNIVERSALNOTEID& parent) {
  std::string key = "R";
  AppendRecord(parent, &key);
  return key;
}

std::string ResponseKey(const UNIVERSALNOTEID& parent, uint32_t note_id) {
  std::string key = ResponsePrefix(parent);
  AppendHigh(note_id, &key);
  return key;
}

std::string CategoryKey(uint32_t number) {
  std::string key = "C";
  AppendHigh(number, &key);
  return key;
}

// --- order

void Invert(std::string* order, size_t begin) noexcept {
  for (size_t i = begin; i < order->size(); ++i) (*order)[i] = static_cast<char>(~(*order)[i]);
}

void AppendNumberOrder(double number, std::string* order) {
  if (number == 0) number = 0;  // minus zero is zero
  uint64_t bits = std::bit_cast<uint64_t>(number);
  bits = (bits >> 63) != 0 ? ~bits : bits | uint64_t{1} << 63;
  order->push_back(kOrderNumber);
  AppendHigh(bits, order);
}

void AppendTimeOrder(const TIMEDATE& time, std::string* order) {
  order->push_back(kOrderTime);
  AppendHigh(InstantKey(time), order);
}

void AppendColumnOrder(Bytes value, bool descending, std::string* order) {
  const size_t begin = order->size();
  thread_local formula::Arena arena;
  arena.Reset();
  formula::Value read = formula::Value::Text({});
  if (value.size() >= kTypeWordBytes)
    read = formula::ReadItem({LoadU16(value.data()), value.subspan(kTypeWordBytes)}, arena);
  for (uint32_t i = 0; i < read.Count() && order->size() - begin < KeyLimits::kColumnBytesMax; ++i) {
    if (read.IsNumber() && !std::isnan(read.NumberAt(i))) {
      AppendNumberOrder(read.NumberAt(i), order);
    } else if (read.IsTime()) {
      AppendTimeOrder(read.TimeAt(i), order);
    } else if (read.IsText()) {
      order->push_back(kOrderText);
      AppendTextOrder(read.TextAt(i), kTertiary, false, order);
      order->push_back('\0');
    } else {
      order->push_back(kOrderOther);
      break;
    }
  }
  order->push_back('\0');
  if (descending) Invert(order, begin);
}

std::string CategoryOrder(Bytes value, bool descending) {
  std::string order;
  if (value.empty()) {
    order.push_back('\0');  // no value stands first, whichever way the column goes
    return order;
  }
  const uint16_t type = LoadU16(value.data());
  const Bytes content = value.subspan(kTypeWordBytes);
  if (type == BRTYPE_NUMBER && content.size() == sizeof(double)) {
    AppendNumberOrder(LoadF64(content.data()), &order);
  } else if (type == BRTYPE_TIME && content.size() == sizeof(TIMEDATE)) {
    AppendTimeOrder(Load<TIMEDATE>(content.data()), &order);
  } else {
    order.push_back(kOrderText);
    AppendTextOrder(TextOf(content), kSecondary, true, &order);
    order.push_back('\0');
  }
  if (descending) Invert(&order, 0);
  return order;
}

void AppendTie(const TIMEDATE& created, uint32_t note_id, std::string* order) {
  const uint64_t day = DayOf(created) == kNoDay ? 0 : DayOf(created);
  const uint64_t ticks = HasTime(created) ? uint64_t{TicksOf(created)} + 1 : 0;
  const uint64_t moment = day * (uint64_t{1} << 24) + std::min<uint64_t>(ticks, 0xffffff);
  for (int shift = 40; shift >= 0; shift -= 8) order->push_back(static_cast<char>(moment >> shift));
  AppendHigh(note_id, order);
}

}  // namespace brynd::collection
