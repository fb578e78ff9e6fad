#include "collection/definition.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "base/checksum.h"
#include "base/text.h"
#include "formula/program.h"

namespace brynd::collection {

namespace {

constexpr size_t kTableHeadBytes = 10, kColumnRecordBytes = 32;
constexpr uint16_t kColumnSignature = 0x4356;
constexpr size_t kCollationHeadBytes = 6, kDescriptorBytes = 7;
constexpr uint8_t kCollationSignature = 0x44, kDescriptorSignature = 0x66;
constexpr uint8_t kDescriptorDescending = 1, kDescriptorCategory = 7;

using Items = std::map<std::string_view, std::vector<std::byte>>;

// The values of the items that matter, type word first, those too that lie by themselves.
Items ReadItems(Database& database, const ImageView& view) {
  Items items;
  for (const std::string_view name : {"$ViewFormat", "$Collation", "$Formula", "$FormulaClass", "$Flags"}) {
    ImageItem item;
    if (!view.Find(name, &item)) continue;
    std::vector<std::byte>& value = items[name];
    if (item.external != 0) {
      value.resize(item.length);
      database.LoadExternal(view.NoteId(), item.external, value);
    } else {
      value.assign(item.value.begin(), item.value.end());
    }
    if (value.size() < kTypeWordBytes) items.erase(name);
  }
  return items;
}

Bytes ContentOf(const Items& items, std::string_view name) {
  const auto found = items.find(name);
  return found == items.end() ? Bytes() : Bytes(found->second).subspan(kTypeWordBytes);
}

// Where the items of a name stand in the rows' tables; no column of the formula: nothing is there to sort by.
uint32_t ItemNamed(const Definition& definition, std::string_view name) {
  for (uint32_t i = 0; i < definition.item_names.size(); ++i)
    if (EqualFold(definition.item_names[i], name)) return i;
  return UINT32_MAX;
}

void AddSort(Definition* definition, uint32_t item, bool category, bool descending) {
  if (item == UINT32_MAX) return;
  std::vector<SortColumn>& into = category ? definition->categories : definition->sorts;
  into.push_back({static_cast<uint16_t>(item), descending});
  if (definition->categories.size() > kCategoriesMax || definition->sorts.size() > kSortedMax)
    Fail(status::kBadCollection);
}

void ReadViewFormat(Bytes content, Definition* definition) {
  ByteReader in(content);
  in.Skip(2);
  const uint16_t column_count = in.U16();
  if (!in || column_count > kColumnsMax) Fail(status::kBadCollection);
  ByteReader records(content), texts(content);
  records.Seek(kTableHeadBytes);
  texts.Seek(kTableHeadBytes + column_count * kColumnRecordBytes);
  for (uint16_t i = 0; i < column_count; ++i) {
    ByteReader record(records.Take(kColumnRecordBytes));
    const uint16_t signature = record.U16(), flags = record.U16(), name_bytes = record.U16(),
                   title_bytes = record.U16(), formula_bytes = record.U16(), constant_bytes = record.U16();
    record.Skip(2 + 4);
    const uint16_t more_flags = record.U16();
    const std::string_view name = texts.Text(name_bytes);
    texts.Skip(size_t{title_bytes} + formula_bytes + constant_bytes);
    if (records.Failed() || texts.Failed() || signature != kColumnSignature) Fail(status::kBadCollection);
    if (constant_bytes != 0) continue;
    const uint32_t item = ItemNamed(*definition, name);
    if ((flags & kColumnSorted) != 0)
      AddSort(definition, item, (flags & kColumnCategory) != 0, (flags & kColumnDescending) != 0);
    const auto kind = static_cast<uint8_t>(more_flags >> 2 & 0xf);
    if (kind != 0 && kind <= static_cast<uint8_t>(TotalKind::kPercentOfAll) && item != UINT32_MAX)
      definition->totals.push_back({static_cast<uint16_t>(item), static_cast<TotalKind>(kind)});
  }
}

void ReadCollation(Bytes content, Definition* definition) {
  ByteReader in(content);
  in.Skip(2);
  const uint16_t count = in.U16();
  in.Skip(1);
  if (in.U8() != kCollationSignature || count > kSortedMax) Fail(status::kBadCollection);
  const size_t names_at = kCollationHeadBytes + count * kDescriptorBytes;
  for (uint16_t i = 0; i < count; ++i) {
    const uint8_t flags = in.U8(), signature = in.U8(), key_type = in.U8();
    const uint16_t name_offset = in.U16(), name_bytes = in.U16();
    ByteReader names(content);
    names.Seek(names_at + name_offset);
    const std::string_view name = names.Text(name_bytes);
    if (in.Failed() || names.Failed() || signature != kDescriptorSignature) Fail(status::kBadCollection);
    AddSort(definition, ItemNamed(*definition, name), key_type == kDescriptorCategory,
            (flags & kDescriptorDescending) != 0);
  }
}

uint16_t ReadClassMask(const Items& items) {
  const std::string_view text = TextOf(ContentOf(items, "$FormulaClass"));
  uint16_t mask = BRCLASS_DATA;
  std::from_chars(text.data(), text.data() + text.size(), mask);
  return mask;
}

Definition Parse(const Items& items, bool is_view) {
  Definition definition;
  const Bytes formula = ContentOf(items, "$Formula");
  if (formula.empty()) Fail(status::kBadCollection);
  definition.formula.assign(formula.begin(), formula.end());
  const formula::Program program = formula::Program::Load(definition.formula);
  for (const formula::Column& column : program.Columns())
    definition.item_names.emplace_back(program.Names()[column.name]);
  if (definition.item_names.size() > kColumnsMax) Fail(status::kBadCollection);
  definition.responses = ItemNamed(definition, "$REF") != UINT32_MAX;
  definition.class_mask = ReadClassMask(items);
  const std::string_view flags = TextOf(ContentOf(items, "$Flags"));
  definition.is_folder = is_view && flags.find('F') != std::string_view::npos;
  if (items.contains("$ViewFormat"))
    ReadViewFormat(ContentOf(items, "$ViewFormat"), &definition);
  else if (items.contains("$Collation"))
    ReadCollation(ContentOf(items, "$Collation"), &definition);
  uint64_t fingerprint = definition.is_folder ? 2 : 1;
  for (const auto& [name, value] : items)
    if (name != "$Flags") fingerprint = Checksum64(value, Checksum64(BytesOf(name), fingerprint));
  definition.fingerprint = fingerprint;
  return definition;
}

}  // namespace

Definition ReadDefinition(Database& database, uint32_t note_id) {
  Definition definition;
  note_id = database.PlainNoteId(note_id);
  const bool found = database.VisitNote(note_id, [&](const ImageView& view) {
    if (view.IsStub()) Fail(status::kNoNote);
    const bool is_view = (view.NoteClass() & BRCLASS_VIEW) != 0;
    if (!is_view && (view.NoteClass() & BRCLASS_DESIGN) == 0) Fail(status::kBadCollection);
    definition = Parse(ReadItems(database, view), is_view);
    definition.unid = view.Image().Unid();
  });
  if (!found) Fail(status::kNoNote);
  return definition;
}

}  // namespace brynd::collection
