// Columns of a selection formula: which summary items it yields, and what computes each.
#pragma once

#include <string_view>
#include <vector>

#include "formula/program.h"

namespace brynd::formula {

// Adds a column that is the item of that name; one that is there already stays as it is.
EngStatus AddSummaryItem(const Program& formula, std::string_view name, std::vector<std::byte>* merged);

// Adds the columns of one formula to a selection. The code of the source computes the column of its own item
// name, and when it has none, the first of its columns; a column that both have takes the code of the source.
// A source with SELECT, or an empty one, gives its columns alone.
EngStatus Merge(const Program& source, const Program& selection, std::vector<std::byte>* merged);

// The text of column `index` can be had by Decompile(formula, formula.Columns()[index].part).

}  // namespace brynd::formula
