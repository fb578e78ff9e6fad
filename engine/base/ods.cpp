#include "base/ods.h"

#include <algorithm>
#include <iterator>

#include "base/bytes.h"

namespace brynd {

namespace {

constexpr OdsRow kOds[] = {
    {0, "w"},                        // one word
    {1, "d"},                        // one double word
    {3, "b"},                        // bytes
    {10, "q"},                       // a time
    {15, "q"},                       // a time that names a database
    {21, "w"},                       // head of a compiled formula: its length
    {27, "w d"},                     // OBJECT_DESCRIPTOR: type, object
    {29, "2b 4w"},                   // VIEW_TABLE_FORMAT: version, style, columns, flags
    {30, "7w d w 4b 4b 2w"},         // VIEW_COLUMN_FORMAT: sizes, font, flags, formats, separators
    {43, "3w 3d 3w 2b w 2b 4w"},     // VIEW_TABLE_FORMAT2: colours, fonts, interval, lines, spare
    {59, "2w 2b"},                   // COLLATION: size, items, flags, signature
    {60, "3b 2w"},                   // COLLATE_DESCRIPTOR: flags, signature, key type, name offset and length
    {109, "2b"},                     // CDPARAGRAPH: signature, length
    {110, "2w 9w 20w w d w"},        // CDPABDEFINITION: head, measures, tabs, flags, tab types, more flags
    {111, "2b w"},                   // CDPABREFERENCE: head, paragraph style
    {113, "2w d"},                   // CDTEXT: head, font
    {114, "2b 6w 5w"},               // CDDOCUMENT: head, colours and flags, spare
    {118, "2w 3w 4b 4b d 7w"},       // CDFIELD: head, flags, formats, font, lengths
    {119, "2w 3w 4b 4b d 6w"},       // CDFIELD_PRE_36: the same without the length of the choices
    {230, "2w w d w"},               // CDHOTSPOTBEGIN: head, type, flags, data length
    {316, "2b"},                     // head of an agent's action list
    {332, "3w d"},                   // a formula action: signature, length, operation, formula length
    {374, "2w"},                     // head of an agent's run list: entries, spare
    {375, "2w 2d"},                  // an entry of it: kind, flags, object or offset, length
    {428, "w d 16b 2w 5d"},          // VIEW_COLUMN_FORMAT2: signature, font, view, column
    {0x7001, "5w 2d 2q d 64b"},      // when an agent runs: kinds, ticks, start, end, flags
    {0x7002, "q d 2q d 16b"},        // how it ran last: time, documents, ids, exit code
};

constexpr size_t FieldBytes(char letter) {
  switch (letter) {
    case 'b': return 1;
    case 'w': return 2;
    case 'd': return 4;
    case 'q': return 8;
    default: return 0;
  }
}

// Calls field(letter, repeat) for each field of a row.
template <class Field>
constexpr void ForEachField(std::string_view fields, Field&& field) {
  size_t repeat = 0;
  for (const char letter : fields) {
    if (letter >= '0' && letter <= '9') {
      repeat = repeat * 10 + static_cast<size_t>(letter - '0');
    } else if (letter != ' ') {
      field(letter, repeat == 0 ? size_t{1} : repeat);
      repeat = 0;
    }
  }
}

constexpr size_t Width(std::string_view fields) {
  size_t width = 0;
  ForEachField(fields, [&](char letter, size_t repeat) { width += FieldBytes(letter) * repeat; });
  return width;
}

constexpr bool WellFormed(const OdsRow& row) {
  bool whole = true;
  ForEachField(row.fields, [&](char letter, size_t) { whole = whole && FieldBytes(letter) != 0; });
  return whole && Width(row.fields) != 0;
}

constexpr const OdsRow* FindRow(uint16_t type) {
  const OdsRow* row = std::ranges::lower_bound(kOds, type, {}, &OdsRow::type);
  return row != std::end(kOds) && row->type == type ? row : nullptr;
}

constexpr size_t WidthOf(uint16_t type) {
  const OdsRow* row = FindRow(type);
  return row == nullptr ? 0 : Width(row->fields);
}

static_assert(std::ranges::is_sorted(kOds, {}, &OdsRow::type), "looked up by halving");
static_assert(std::ranges::adjacent_find(kOds, {}, &OdsRow::type) == std::end(kOds), "a code has one row");
static_assert(std::ranges::all_of(kOds, WellFormed), "known letters only");
static_assert(WidthOf(29) == 10 && WidthOf(30) == 32, "view formats");
static_assert(WidthOf(43) == 38 && WidthOf(428) == 46, "view formats, second part");
static_assert(WidthOf(59) == 6 && WidthOf(60) == 7, "collations");
static_assert(WidthOf(110) == 70 && WidthOf(114) == 24 && WidthOf(118) == 36, "composite records");
static_assert(WidthOf(119) == 34 && WidthOf(230) == 12, "composite records, later and older ones");
static_assert(WidthOf(332) == 10 && WidthOf(374) + WidthOf(375) == 16, "agent actions and runs");
static_assert(WidthOf(0x7001) == 102 && WidthOf(0x7002) == 48, "agent schedules");

}  // namespace

std::span<const OdsRow> OdsRows() noexcept { return kOds; }

size_t OdsLength(uint16_t type) noexcept { return WidthOf(type); }

// The stored byte order is the machine's (bytes.h asserts it), so that fields need no turning and a record
// moves whole.
size_t OdsRead(const void* stored, uint16_t type, void* record, size_t count) noexcept {
  const size_t byte_count = OdsLength(type) * count;
  CopyBytes(record, stored, byte_count);
  return byte_count;
}

size_t OdsWrite(void* stored, uint16_t type, const void* record, size_t count) noexcept {
  return OdsRead(record, type, stored, count);
}

}  // namespace brynd
