// What a view or folder record says of its collection, taken from its items $ViewFormat, $Collation,
// $Formula, $FormulaClass and $Flags.
//
// (1) Columns sort by their own flags; $Collation counts for records without $ViewFormat alone.
// (2) Category columns come first, in column order, then the other sorted columns.
// (3) Responses stand below their parents when the formula computes $REF.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "note/database.h"

namespace brynd::collection {

constexpr uint16_t kColumnSorted = 0x1, kColumnCategory = 0x2, kColumnDescending = 0x4,
                   kColumnResponseOnly = 0x10;
constexpr uint32_t kColumnsMax = 289;   // of a view
constexpr uint32_t kSortedMax = 32;     // sorted columns
constexpr uint32_t kCategoriesMax = 8;  // category columns

// Stored in views: append, never renumber.
enum class TotalKind : uint8_t {
  kNone = 0,
  kSum = 1,
  kAverage = 2,          // per document
  kAverageOfBranch = 3,  // per subcategory
  kPercentOfParent = 4,  // of the parent category
  kPercentOfAll = 5
};

struct SortColumn {
  uint16_t item = 0;  // index in the rows' item tables
  bool descending = false;
};

struct TotalColumn {
  uint16_t item = 0;
  TotalKind kind = TotalKind::kNone;
};

struct Definition {
  std::vector<std::byte> formula;       // compiled: selection and columns
  std::vector<std::string> item_names;  // of the rows' item tables
  std::vector<SortColumn> categories;
  std::vector<SortColumn> sorts;
  std::vector<TotalColumn> totals;
  bool responses = false;
  bool is_folder = false;
  uint16_t class_mask = BRCLASS_DATA;
  UNIVERSALNOTEID unid{};
  uint64_t fingerprint = 0;  // of everything above: another one means another index
};

// Fails with kNoNote, with kBadCollection when the note is no view, its records are damaged or its formula is
// missing, with the statuses of damaged formulas.
Definition ReadDefinition(Database& database, uint32_t note_id);

}  // namespace brynd::collection
