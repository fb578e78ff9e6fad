// The functions of the formula language: one row each. Numbers are stored in compiled formulas and are never
// reused.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "formula/value.h"

namespace brynd::formula {

class Machine;

using FunctionCall = Value (*)(Machine& machine, std::span<const Value> arguments);

// How the compiler writes a function.
enum class Form : uint8_t {
  kCall,  // arguments in order, then the call
  kIf,    // only the branch taken is computed
  kIfError,
  kReturn,
  kWhile,
  kDoWhile,
  kFor,
  kTransform,
  kAvailable,  // the argument is a name, not a value
};

enum Trait : uint16_t {
  kWrites = 1,         // changes the document, other documents or the settings
  kClock = 2,          // depends on the time of the evaluation
  kHierarchy = 4,      // asks for parents, children or the place in a view
  kTakesErrors = 8,    // gets error values as arguments; others pass them through
  kNotInColumns = 16,  // refused by the compiler in a formula that computes a column
  kNamedSets = 32,
  kOddCount = 64,       // takes an odd number of arguments
  kTakesNothing = 128,  // gets @Nothing as it is; others get the empty text
};

struct FunctionRow {
  uint16_t number;
  std::string_view name;  // without the @
  uint8_t least;
  uint8_t most;
  Form form;
  uint16_t traits;
  FunctionCall call;  // null for special forms

  bool Takes(size_t count) const {
    return count >= least && count <= most && ((traits & kOddCount) == 0 || count % 2 == 1);
  }
};

constexpr uint16_t kFunctionAll = 102, kFunctionDocNumber = 146;

std::span<const FunctionRow> Functions();
const FunctionRow* FindFunction(uint16_t number);
const FunctionRow* FindFunction(std::string_view name);  // without regard to case; knows @TOUT

// The code of the functions, by group. Arguments are never errors unless the row says so.
#define BRYND_FORMULA_FUNCTION(name) Value Call##name(Machine& machine, std::span<const Value> arguments);
#include "formula/function_names.def"
#undef BRYND_FORMULA_FUNCTION

}  // namespace brynd::formula
