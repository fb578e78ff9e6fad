// From a stored note to its rows: what a view's formula makes of it.
// (1) A note whose formula cannot be computed, or that is damaged, has no row: it must not hide all others.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "collection/entry.h"
#include "formula/evaluator.h"
#include "formula/value.h"
#include "note/formula_host.h"

namespace brynd::collection {

constexpr size_t kCategoryLevelsMax = 24;  // below one another; deeper pieces of a value stay together
constexpr size_t kStandsMax = 1000;        // rows of one document

struct CategoryPiece {
  EntryKind kind = EntryKind::kCategory;
  uint8_t column = 0;
  uint8_t depth = 0;
  bool descending = false;
  std::string value;  // type word first; empty for no value
  std::string Order() const { return CategoryOrder(BytesOf(value), descending); }
};
using CategoryPath = std::vector<CategoryPiece>;

struct Row {
  uint32_t note_id = 0;
  DocumentEntry entry;  // its table is good until the next row is made
  UNIVERSALNOTEID parent{};
  std::string order;                // sort columns and tie
  std::vector<double> numbers;      // of the totals; not a number: none
  std::vector<CategoryPath> paths;  // one empty path for a document that stands at the top
};

class RowMaker {
 public:
  RowMaker(Database& database, const Definition& definition);
  // False when the view does not take the note.
  bool Make(const ImageView& view, Row* row);

 private:
  bool Compute(const ImageView& view);
  void FolderTable();
  void SetOrder(Row* row, const TIMEDATE& created) const;
  void SetNumbers(Row* row);
  void SetPaths(Row* row);
  std::vector<CategoryPath> PathsOfColumn(size_t column);

  const Definition& definition_;
  ImageHost host_;
  formula::Evaluator evaluator_;
  Bytes table_;
  std::vector<std::byte> own_table_;
  std::vector<Bytes> values_;  // of the table
  formula::Arena arena_;
};

}  // namespace brynd::collection
