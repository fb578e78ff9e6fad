// The instructions of compiled formulas, and how a compiled formula lies in memory. Numbers are
// little-endian.
//
// | offset | size | meaning                                                                    |
// |      0 |    2 | length of the whole formula in bytes                                       |
// |      2 |    2 | magic and version                                                          |
// |      4 |    2 | flags                                                                      |
// |      6 |    2 | count of columns                                                           |
// |      8 |    2 | bytes of code of the main part; it stands first in the code                |
// |     10 |    2 | bytes of code of all parts                                                 |
// |     12 |    2 | bytes of constants                                                         |
// |     14 |    2 | count of names                                                             |
// |     16 |    2 | bytes of names                                                             |
// |     18 |    2 | own item name: number of a name, 0xffff for none                           |
// |     20 |  6*n | columns: number of the name, offset in the code, bytes of code             |
// |        |      | code; constants, texts back to back; names, a length byte and the name     |
// |        |      | each; four zero bytes                                                      |
//
// (1) A formula of two bytes, its length alone, is the empty one: no code, no columns.
// (2) A column without code is the item of its name.
// (3) Operands are offsets and numbers within the formula, jumps are relative: it may lie anywhere.
// (4) Instructions and functions are stored by number: append, never renumber.
// (5) The zeros at the end mean nothing, so that no caller who patches the last bytes can harm a formula.
#pragma once

#include <cstddef>
#include <cstdint>

namespace brynd::formula {

constexpr uint16_t kMagic = 0xf501;
constexpr uint16_t kEmptyBytes = 2;
constexpr size_t kHeaderBytes = 20;
constexpr size_t kColumnBytes = 6;
constexpr size_t kTrailerBytes = 4;
constexpr size_t kFormulaBytesMax = 65535;
constexpr uint16_t kNoName = 0xffff;
constexpr size_t kNameBytesMax = 255;

constexpr int kNestingMax = 100;            // parentheses, arguments and prefix operators in each other
constexpr int kStackValuesMax = 512;        // values waiting at one moment, when evaluating
constexpr uint32_t kStepsMax = 10'000'000;  // rounds of loops in one evaluation; long bodies count more
constexpr int kEvalDepthMax = 4;            // formulas within formulas, by @Eval
constexpr int kArgumentsMax = 255;

enum Flag : uint16_t {
  kFlagSelection = 1,   // has a SELECT
  kFlagWrites = 2,      // may write items or settings
  kFlagTime = 4,        // depends on the clock
  kFlagHierarchy = 8,   // asks for parents, children or the place in a view
  kFlagNamedSets = 16,  // sets variables by computed names
};
constexpr uint16_t kFlagsAll = 31;

enum class Op : uint8_t {
  kNumber = 1,        // 8 bytes
  kInteger = 2,       // 2 bytes, signed
  kText = 3,          // offset and length in the constants
  kTime = 4,          // 8 bytes
  kName = 5,          // name: the variable, or else the item
  kAssign = 6,        // name :=
  kField = 7,         // FIELD name :=
  kDefaultTest = 8,   // name, jump: when the name has a value, push it and jump
  kDefault = 9,       // DEFAULT name :=
  kEnvironment = 10,  // ENVIRONMENT name :=
  kSelect = 11,
  kRemark = 12,       // offset and length in the constants
  kEnd = 13,          // of a statement: its value is the result so far
  kParenthesis = 14,  // does nothing; kept for decompiling
  kNegate = 15,
  kPlus = 16,
  kNot = 17,

  kList = 20,
  kMultiply = 21,
  kDivide = 22,
  kAdd = 23,
  kSubtract = 24,
  kEqual = 25,
  kNotEqual = 26,
  kLess = 27,
  kGreater = 28,
  kLessEqual = 29,
  kGreaterEqual = 30,
  kAnd = 31,
  kOr = 32,

  kMultiplyAll = 41,  // the permuted twins
  kDivideAll = 42,
  kAddAll = 43,
  kSubtractAll = 44,
  kEqualAll = 45,
  kNotEqualAll = 46,
  kLessAll = 47,
  kGreaterAll = 48,
  kLessEqualAll = 49,
  kGreaterEqualAll = 50,

  kIfTest = 60,       // jump when false, jump when an error
  kIfElse = 61,       // jump
  kIfEnd = 62,        // count of arguments; does nothing
  kIfErrorTest = 63,  // jump when no error
  kIfErrorEnd = 64,   // count of arguments; does nothing
  kReturn = 65,
  kLoopTest = 66,        // jump when false, jump when an error
  kLoopDrop = 67,        // jump when an error
  kLoopSkip = 68,        // jump
  kLoopBack = 69,        // jump back
  kLoopEnd = 70,         // function, count of arguments; pushes true
  kIsAvailable = 71,     // name
  kIsUnavailable = 72,   // name
  kTransformBegin = 73,  // name of the variable, jump when an error: takes the list
  kTransformNext = 74,   // jump when the list is at its end: gives the variable its next element
  kTransformKeep = 75,   // jump when an error, jump back: adds to what was collected
  kTransformEnd = 76,    // name of the variable: pushes what was collected

  kCall = 80,  // function, count of arguments
};

// A jump is counted from the end of its instruction. Operands: b byte, w word, d 8 bytes, n number of a name,
// c place of a constant (offset and length), j jump ahead, r jump back, f function.
struct OpRow {
  Op op;
  const char* operands;
  int8_t pops;
  int8_t pushes;  // where execution goes on behind the instruction
};

constexpr OpRow kOps[] = {
    {Op::kNumber, "d", 0, 1},
    {Op::kInteger, "w", 0, 1},
    {Op::kText, "c", 0, 1},
    {Op::kTime, "d", 0, 1},
    {Op::kName, "n", 0, 1},
    {Op::kAssign, "n", 1, 1},
    {Op::kField, "n", 1, 1},
    {Op::kDefaultTest, "nj", 0, 0},
    {Op::kDefault, "n", 1, 1},
    {Op::kEnvironment, "n", 1, 1},
    {Op::kSelect, "", 1, 1},
    {Op::kRemark, "c", 0, 0},
    {Op::kEnd, "", 1, 0},
    {Op::kParenthesis, "", 1, 1},
    {Op::kNegate, "", 1, 1},
    {Op::kPlus, "", 1, 1},
    {Op::kNot, "", 1, 1},
    {Op::kList, "", 2, 1},
    {Op::kMultiply, "", 2, 1},
    {Op::kDivide, "", 2, 1},
    {Op::kAdd, "", 2, 1},
    {Op::kSubtract, "", 2, 1},
    {Op::kEqual, "", 2, 1},
    {Op::kNotEqual, "", 2, 1},
    {Op::kLess, "", 2, 1},
    {Op::kGreater, "", 2, 1},
    {Op::kLessEqual, "", 2, 1},
    {Op::kGreaterEqual, "", 2, 1},
    {Op::kAnd, "", 2, 1},
    {Op::kOr, "", 2, 1},
    {Op::kMultiplyAll, "", 2, 1},
    {Op::kDivideAll, "", 2, 1},
    {Op::kAddAll, "", 2, 1},
    {Op::kSubtractAll, "", 2, 1},
    {Op::kEqualAll, "", 2, 1},
    {Op::kNotEqualAll, "", 2, 1},
    {Op::kLessAll, "", 2, 1},
    {Op::kGreaterAll, "", 2, 1},
    {Op::kLessEqualAll, "", 2, 1},
    {Op::kGreaterEqualAll, "", 2, 1},
    {Op::kIfTest, "jj", 1, 0},
    {Op::kIfElse, "j", 1, 0},
    {Op::kIfEnd, "b", 1, 1},
    {Op::kIfErrorTest, "j", 1, 0},
    {Op::kIfErrorEnd, "b", 1, 1},
    {Op::kReturn, "", 1, 1},
    {Op::kLoopTest, "jj", 1, 0},
    {Op::kLoopDrop, "j", 1, 0},
    {Op::kLoopSkip, "j", 0, 0},
    {Op::kLoopBack, "r", 0, 0},
    {Op::kLoopEnd, "fb", 0, 1},
    {Op::kIsAvailable, "n", 0, 1},
    {Op::kIsUnavailable, "n", 0, 1},
    {Op::kCall, "fb", 0, 1},
    {Op::kTransformBegin, "nj", 1, 0},
    {Op::kTransformNext, "j", 0, 0},
    {Op::kTransformKeep, "jr", 1, 0},
    {Op::kTransformEnd, "n", 0, 1},
};

// Bytes of an operand by its letter.
constexpr size_t OperandBytes(char letter) {
  switch (letter) {
    case 'b':
      return 1;
    case 'd':
      return 8;
    case 'c':
      return 4;
    default:
      return 2;
  }
}

// Row of an instruction by its number, null for a number that is none.
const OpRow* FindOp(uint8_t number);

// Bytes of an instruction, the number included.
size_t OpBytes(const OpRow& row);

}  // namespace brynd::formula
