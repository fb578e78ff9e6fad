#include "formula/operators.h"

#include <algorithm>
#include <cmath>

#include "base/collate.h"
#include "base/time.h"

namespace brynd::formula {

namespace {

constexpr double kSecondsPerDay = 86400;

bool IsPermuted(Op op) { return op >= Op::kMultiplyAll && op <= Op::kGreaterEqualAll; }
Op PlainTwin(Op op) { return IsPermuted(op) ? static_cast<Op>(static_cast<int>(op) - 20) : op; }
bool IsComparison(Op op) { return op >= Op::kEqual && op <= Op::kGreaterEqual; }

// Nothing is the empty text wherever it is not written to an item.
Value Plain(const Value& value) { return value.kind == Kind::kUnavailable ? Value() : value; }

bool Holds(Op op, int order) {
  switch (op) {
    case Op::kEqual:
      return order == 0;
    case Op::kNotEqual:
      return order != 0;
    case Op::kLess:
      return order < 0;
    case Op::kGreater:
      return order > 0;
    case Op::kLessEqual:
      return order <= 0;
    default:
      return order >= 0;
  }
}

// A comparison with a number that is none is false, but that it differs.
bool NumbersHold(Op op, double left, double right) {
  switch (op) {
    case Op::kEqual:
      return left == right;
    case Op::kNotEqual:
      return left != right;
    case Op::kLess:
      return left < right;
    case Op::kGreater:
      return left > right;
    case Op::kLessEqual:
      return left <= right;
    default:
      return left >= right;
  }
}

bool TextsHold(Op op, std::string_view left, std::string_view right) {
  if (op == Op::kEqual) return left == right;
  if (op == Op::kNotEqual) return left != right;
  return Holds(op, CompareTexts(left, right));
}

bool PairHolds(Op op, const Value& left, uint32_t left_index, const Value& right, uint32_t right_index) {
  if (left.IsNumber()) return NumbersHold(op, left.NumberAt(left_index), right.NumberAt(right_index));
  if (left.IsText()) return TextsHold(op, left.TextAt(left_index), right.TextAt(right_index));
  return Holds(op, InstantCompare(left.TimeAt(left_index), right.TimeAt(right_index)));
}

// Values of two types compare when the text among them is empty: they differ, and that is all.
Value CompareMixed(Op op, const Value& left, const Value& right) {
  const Value& text = left.IsText() ? left : right;
  if (!text.IsText()) return Value::Error(ErrorCode::kMixedTypes);
  for (uint32_t index = 0; index < text.Count(); ++index)
    if (!text.TextAt(index).empty()) return Value::Error(ErrorCode::kMixedTypes);
  return Value::Bool(op == Op::kNotEqual);
}

Value Compare(Op op, const Value& left, const Value& right, bool permuted) {
  if (left.kind != right.kind) return CompareMixed(op, left, right);
  const uint64_t left_count = left.Count(), right_count = right.Count();
  if (permuted) {
    if (left_count * right_count > kPairsMax) return Value::Error(ErrorCode::kTooManySteps);
    for (uint32_t i = 0; i < left_count; ++i)
      for (uint32_t j = 0; j < right_count; ++j)
        if (PairHolds(op, left, i, right, j)) return Value::Bool(true);
    return Value::Bool(false);
  }
  const uint64_t pairs = std::max(left_count, right_count);
  for (uint32_t index = 0; index < pairs; ++index)
    if (PairHolds(op, left, index, right, index)) return Value::Bool(true);
  return Value::Bool(false);
}

Value ComputeNumbers(Op op, double left, double right) {
  double result = 0;
  switch (op) {
    case Op::kMultiply:
      result = left * right;
      break;
    case Op::kDivide:
      if (right == 0) return Value::Error(ErrorCode::kDivision);
      result = left / right;
      break;
    case Op::kAdd:
      result = left + right;
      break;
    default:
      result = left - right;
      break;
  }
  return std::isfinite(result) ? Value::Number(result) : Value::Error(ErrorCode::kDomain);
}

Value JoinTexts(std::string_view left, std::string_view right, Arena& arena) {
  const size_t bytes = left.size() + right.size();
  if (bytes > kTextBytesMax) return Value::Error(ErrorCode::kTooLong);
  char* const target = static_cast<char*>(arena.Take(bytes));
  CopyBytes(target, left.data(), left.size());
  CopyBytes(target + left.size(), right.data(), right.size());
  return Value::Text({target, bytes});
}

Value ComputePair(Op op, const Value& left, uint32_t i, const Value& right, uint32_t j, Arena& arena) {
  if (left.IsNumber() && right.IsNumber()) return ComputeNumbers(op, left.NumberAt(i), right.NumberAt(j));
  if (op == Op::kAdd) {
    if (left.IsText() && right.IsText()) return JoinTexts(left.TextAt(i), right.TextAt(j), arena);
    if (left.IsTime() && right.IsNumber()) return AddSeconds(left.TimeAt(i), right.NumberAt(j));
    if (left.IsNumber() && right.IsTime()) return AddSeconds(right.TimeAt(j), left.NumberAt(i));
  }
  if (op == Op::kSubtract && left.IsTime() && right.IsNumber())
    return AddSeconds(left.TimeAt(i), -right.NumberAt(j));
  if (op == Op::kSubtract && left.IsTime() && right.IsTime())
    return Value::Number(static_cast<double>(InstantDiff(left.TimeAt(i), right.TimeAt(j))));
  return Value::Error(left.kind == right.kind ? ErrorCode::kWantsNumber : ErrorCode::kMixedTypes);
}

Value Compute(Op op, const Value& left, const Value& right, bool permuted, Arena& arena) {
  const uint64_t left_count = left.Count(), right_count = right.Count();
  const uint64_t results = permuted ? left_count * right_count : std::max(left_count, right_count);
  if (results == 1) return ComputePair(op, left, 0, right, 0, arena);
  if (results > kListElementsMax) return Value::Error(ErrorCode::kTooLong);
  const std::span<Value> values = arena.Array<Value>(results);
  for (uint32_t index = 0; index < results; ++index) {
    const uint32_t i = permuted ? static_cast<uint32_t>(index / right_count) : index;
    const uint32_t j = permuted ? static_cast<uint32_t>(index % right_count) : index;
    values[index] = ComputePair(op, left, i, right, j, arena);
    if (values[index].IsError()) return values[index];
  }
  return JoinAll(values, arena);
}

Value Logic(Op op, const Value& left, const Value& right) {
  if (!left.IsNumber() || !right.IsNumber()) return Value::Error(ErrorCode::kWantsNumber);
  const bool a = left.NumberAt(0) != 0, b = right.NumberAt(0) != 0;
  return Value::Bool(op == Op::kAnd ? a && b : a || b);
}

// Puts the elements of a part of a value behind those already there.
template <typename Element>
Element* Append(const Value& value, const Element* list, const Element& single, bool ranges,
                Element* target) {
  if (!value.list) {
    if (!ranges) *target++ = single;
    return target;
  }
  const uint32_t begin = ranges ? value.singles : 0;
  const uint32_t end = ranges ? value.Count() : value.singles;
  return std::copy(list + begin, list + end, target);
}

}  // namespace

Value Operate(Op op, const Value& left_value, const Value& right_value, Arena& arena) {
  if (left_value.IsError()) return left_value;
  if (right_value.IsError()) return right_value;
  const Op plain = PlainTwin(op);
  if (left_value.IsNumber() && right_value.IsNumber() && !left_value.list && !right_value.list) {
    if (IsComparison(plain)) return Value::Bool(NumbersHold(plain, left_value.number, right_value.number));
    if (plain >= Op::kMultiply && plain <= Op::kSubtract)
      return ComputeNumbers(plain, left_value.number, right_value.number);
  }
  const Value left = Plain(left_value), right = Plain(right_value);
  if (op == Op::kList) return JoinLists(left, right, arena);
  if (op == Op::kAnd || op == Op::kOr) return Logic(op, left, right);
  if (IsComparison(plain)) return Compare(plain, left, right, IsPermuted(op));
  return Compute(plain, left, right, IsPermuted(op), arena);
}

Value Negate(const Value& value, Arena& arena) {
  if (value.IsError()) return value;
  if (!value.IsNumber()) return Value::Error(ErrorCode::kWantsNumber);
  if (!value.list) return Value::Number(-value.number);
  const std::span<double> numbers = arena.Array<double>(value.Count());
  for (uint32_t index = 0; index < value.Count(); ++index) numbers[index] = -value.numbers[index];
  // The ends of a range change places, so that the lower one stays first.
  for (uint32_t index = value.singles; index + 1 < value.Count(); index += 2)
    std::swap(numbers[index], numbers[index + 1]);
  return Value::Numbers(numbers, value.ranges);
}

Value JoinLists(const Value& left, const Value& right, Arena& arena) {
  const Value both[] = {left, right};
  return JoinAll(both, arena);
}

Value JoinAll(std::span<const Value> values, Arena& arena) {
  if (values.empty()) return {};
  if (values.size() == 1) return Plain(values[0]);
  uint64_t count = 0, ranges = 0;
  const Kind kind = Plain(values[0]).kind;
  for (const Value& value : values) {
    if (value.IsError()) return value;
    if (Plain(value).kind != kind) return Value::Error(ErrorCode::kMixedTypes);
    count += value.Count();
    ranges += value.ranges;
  }
  if (count > kListElementsMax) return Value::Error(ErrorCode::kTooLong);
  const std::span<std::string_view> texts = arena.Array<std::string_view>(kind == Kind::kText ? count : 0);
  const std::span<double> numbers = arena.Array<double>(kind == Kind::kNumber ? count : 0);
  const std::span<TIMEDATE> times = arena.Array<TIMEDATE>(kind == Kind::kTime ? count : 0);
  std::string_view* text_target = texts.data();
  double* number_target = numbers.data();
  TIMEDATE* time_target = times.data();
  for (const bool of_ranges : {false, true}) {
    for (const Value& value : values) {
      if (kind == Kind::kText)
        text_target = Append(value, value.texts, Plain(value).TextAt(0), of_ranges, text_target);
      if (kind == Kind::kNumber)
        number_target = Append(value, value.numbers, value.number, of_ranges, number_target);
      if (kind == Kind::kTime) time_target = Append(value, value.times, value.time, of_ranges, time_target);
    }
  }
  if (kind == Kind::kText) return Value::Texts(texts);
  if (kind == Kind::kNumber) return Value::Numbers(numbers, static_cast<uint16_t>(ranges));
  return Value::Times(times, static_cast<uint16_t>(ranges));
}

Value ElementOf(const Value& list, uint32_t index) {
  if (!list.list) return list;
  if (list.IsNumber()) return Value::Number(list.NumberAt(index));
  if (list.IsTime()) return Value::Time(list.TimeAt(index));
  return Value::Text(list.TextAt(index));
}

bool SameElement(const Value& left, uint32_t left_index, const Value& right, uint32_t right_index) {
  return left.kind == right.kind && PairHolds(Op::kEqual, left, left_index, right, right_index);
}

int CompareTexts(std::string_view left, std::string_view right) {
  const int order = CollateText(left, right);
  return order != 0 ? order : left.compare(right);
}

int CompareElements(const Value& left, uint32_t left_index, const Value& right, uint32_t right_index) {
  if (left.IsText()) return CompareTexts(left.TextAt(left_index), right.TextAt(right_index));
  if (left.IsTime()) return InstantCompare(left.TimeAt(left_index), right.TimeAt(right_index));
  const double a = left.NumberAt(left_index), b = right.NumberAt(right_index);
  return a < b ? -1 : a > b;
}

Value AddSeconds(const TIMEDATE& time, double seconds) {
  const double days = std::trunc(seconds / kSecondsPerDay);
  if (!(std::abs(days) <= kJulianDayMax)) return Value::Error(ErrorCode::kDomain);
  TIMEDATE moved = time;
  const InstantAmounts amounts{.seconds = static_cast<int32_t>(seconds - days * kSecondsPerDay),
                               .days = static_cast<int32_t>(days)};
  if (!AdjustInstant(&moved, amounts)) return Value::Error(ErrorCode::kDomain);
  return Value::Time(moved);
}

}  // namespace brynd::formula
