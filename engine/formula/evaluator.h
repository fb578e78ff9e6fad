// Computing a formula for documents: what search, collections and the boundary use.
#pragma once

#include <memory>
#include <vector>

#include "formula/host.h"
#include "formula/program.h"

namespace brynd::formula {

class Machine;

constexpr size_t kSummaryValueBytesMax = 15 * 1024;  // longer values are cut in item tables

// The form of an item table: plain lengths, or records with the names of the columns.
enum class TableForm : uint8_t { kValues, kNamed };

struct Evaluation {
  Bytes value;  // type word first; good until the next evaluation. See value.h for errors and "no value".
  bool selected = false;
  bool deleted = false;
  bool modified = false;
};

// One formula made ready, for one thread and any number of documents. Names are bound once for each
// dictionary. A value that cannot be computed is an error value; what throws is a failing host, or more
// memory than an evaluation may take.
class Evaluator {
 public:
  explicit Evaluator(Program program);
  ~Evaluator();
  Evaluator(Evaluator&&) noexcept;
  Evaluator& operator=(Evaluator&&) noexcept;

  Evaluation Evaluate(Host& host);

  // Whether the formula selects the document. Takes no memory for single values.
  bool Selects(Host& host);

  // The columns of a merged formula, in order, as an item table of at most 65,535 bytes: the
  // columns from the one that would make it longer stay empty. Selected tells whether the selection takes the
  // document, without which the table is empty. Good until the next evaluation.
  struct Table {
    bool selected = false;
    Bytes bytes;
  };
  Table Columns(Host& host, TableForm form);

  // The value of one column, type word first; no bytes when its item is missing. Good until the next
  // evaluation.
  Bytes ColumnValue(Host& host, size_t column);

  // Fewer rounds of loops than kStepsMax, for a caller that cannot wait so long.
  void LimitSteps(uint32_t steps);

  const Program& Formula() const { return *program_; }

 private:
  std::unique_ptr<const Program> program_;
  std::unique_ptr<Machine> machine_;
  std::vector<std::byte> output_;
};

}  // namespace brynd::formula
