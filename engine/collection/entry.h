// What the two trees of a collection hold. The first has the rows, the second leads from notes and categories
// to their rows. Numbers in keys stand high byte first.
//
// Rows (tree 1):
//   parent place 8 | kind 1 | order | ...          kinds in EntryKind
//     a document: order is the sort key, then created 6, note id 4
//     a category: order is the key of its value
//   A document's payload: class 2, universal id 16, flags 1 (1 a response), then its item table.
//   A category's, and the total's: category id 4, documents 4, child categories 4, column 1, depth 1 (within
//   its column), value bytes 4, the value with its type word, then for each total the sum as two doubles.
// The weight of an entry is 1 and that of all entries below it.
//
// Finder (tree 2):
//   'N' note id 4                  a note that is selected: NoteRecord
//   'R' universal id 16, note id 4 a selected response of that parent, whether the parent is there or not;
//   empty 'C' category number 4          the parent place 8 and the rest of the category's key
//
// A place names an entry as parent: 0 the top; of a category its number and its id; of a document the number
// of the category it stands in (0: none), and the note id. So whatever moves above a document in its
// category, the keys of its responses stay.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "collection/definition.h"

namespace brynd::collection {

using Place = uint64_t;
constexpr Place kTopPlace = 0;
constexpr uint32_t kCategoryIdBit = 0x80000000, kTotalId = 0xc0000000;
constexpr uint32_t kCategoryNumberMax = 0x00ffffff;
constexpr uint32_t kLevelMax = 31;  // of an entry, 0 at the top

inline uint32_t CategoryOf(Place place) noexcept { return static_cast<uint32_t>(place >> 32); }
inline uint32_t IdOf(Place place) noexcept { return static_cast<uint32_t>(place); }
inline bool IsCategory(Place place) noexcept { return (IdOf(place) & kCategoryIdBit) != 0; }
inline Place PlaceOf(uint32_t category, uint32_t id) noexcept { return Place{category} << 32 | id; }
inline uint32_t CategoryId(uint32_t level, uint32_t number) noexcept {
  return kCategoryIdBit | level << 24 | number;
}
inline Place PlaceOfCategory(uint32_t category_id) noexcept {
  return PlaceOf(category_id & kCategoryNumberMax, category_id);
}

// The order of kinds is the order of rows below one parent. Stored: append, never renumber.
enum class EntryKind : uint8_t { kDocument = 1, kCategory = 2, kSubcategory = 3, kTotal = 9 };

std::string EntryKey(Place parent, EntryKind kind, std::string_view order);
std::string ParentKey(Place parent);  // where the rows below a parent begin
std::string ParentEnd(Place parent);  // where those of the next parent may begin
inline Place ParentOf(Bytes key) noexcept { return __builtin_bswap64(LoadU64(key.data())); }
inline EntryKind KindOf(Bytes key) noexcept { return static_cast<EntryKind>(key[8]); }
constexpr size_t kEntryHeadBytes = 8 + 1;
constexpr size_t kTieBytes = 6 + 4;

// A sum that does not lose what was added when something else is taken away again: two doubles.
struct ExactSum {
  double high = 0, low = 0;
  void Add(double number) noexcept;
  double Value() const noexcept { return high + low; }
};

struct DocumentEntry {
  uint16_t note_class = 1;
  UNIVERSALNOTEID unid{};
  bool is_response = false;
  Bytes table;
};
constexpr size_t kDocumentHeadBytes = 2 + 16 + 1;
void WriteDocumentHead(const DocumentEntry& entry, std::byte* target) noexcept;
std::string DocumentPayload(const DocumentEntry& entry);
bool ReadDocument(Bytes payload, DocumentEntry* entry) noexcept;

struct CategoryEntry {
  uint32_t id = 0;
  uint32_t documents = 0;
  uint32_t child_categories = 0;
  uint8_t column = 0;  // among the category columns
  uint8_t depth = 0;   // 0: the first piece of the column's value
  std::string value;   // type word first; empty for no value
  std::vector<ExactSum> sums;
};
std::string CategoryPayload(const CategoryEntry& entry);
bool ReadCategory(Bytes payload, size_t total_count, CategoryEntry* entry);

// Where a note stands, what it adds to totals.
struct NoteRecord {
  struct Stand {
    Place parent = 0;
    std::string rest;  // of the key, behind the parent
    uint32_t Category() const noexcept { return CategoryOf(parent); }
    friend bool operator==(const Stand&, const Stand&) = default;
  };
  bool is_response = false;
  UNIVERSALNOTEID unid{};
  UNIVERSALNOTEID parent{};  // of a response
  std::vector<double> numbers;
  std::vector<Stand> stands;
};
std::string WriteNoteRecord(const NoteRecord& record);
bool ReadNoteRecord(Bytes stored, size_t total_count, NoteRecord* record);

std::string NoteKey(uint32_t note_id);
std::string ResponseKey(const UNIVERSALNOTEID& parent, uint32_t note_id);
std::string ResponsePrefix(const UNIVERSALNOTEID& parent);
std::string CategoryKey(uint32_t number);

// Sort keys of values.
struct KeyLimits {
  static constexpr size_t kColumnBytesMax = 300;  // of one column; longer values share their beginnings
  static constexpr size_t kKeyBytesMax = 1200;    // of all
};
// The order of a value of one column, type word first: numbers, then times, then texts.
void AppendColumnOrder(Bytes value, bool descending, std::string* order);
// The order of a category's value: texts that differ in case alone have one; no bytes stand first.
std::string CategoryOrder(Bytes value, bool descending);
// Inverts the bytes from `begin` on.
void Invert(std::string* order, size_t begin) noexcept;
void AppendTie(const TIMEDATE& created, uint32_t note_id, std::string* order);

// Sorting of texts as the keys have it, without their end: what all keys of equal texts begin with.
constexpr char kOrderNumber = 1, kOrderTime = 2, kOrderText = 3, kOrderOther = 4;
void AppendNumberOrder(double number, std::string* order);
void AppendTimeOrder(const TIMEDATE& time, std::string* order);

}  // namespace brynd::collection
