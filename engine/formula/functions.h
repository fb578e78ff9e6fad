// What the code of the functions shares: taking arguments, working element by element.
#pragma once

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/text.h"
#include "formula/function_table.h"
#include "formula/machine.h"
#include "formula/operators.h"

namespace brynd::formula {

// The first element of an argument, when it is of that type.
inline std::optional<double> FirstNumber(const Value& value) {
  if (!value.IsNumber()) return std::nullopt;
  return value.NumberAt(0);
}
inline std::optional<std::string_view> FirstText(const Value& value) {
  if (!value.IsText()) return std::nullopt;
  return value.TextAt(0);
}
inline std::optional<TIMEDATE> FirstTime(const Value& value) {
  if (!value.IsTime()) return std::nullopt;
  return value.TimeAt(0);
}

inline Value WantsNumber() { return Value::Error(ErrorCode::kWantsNumber); }
inline Value WantsText() { return Value::Error(ErrorCode::kWantsText); }
inline Value WantsTime() { return Value::Error(ErrorCode::kWantsTime); }
inline Value BadArgument() { return Value::Error(ErrorCode::kBadArgument); }

// A whole number of reasonable size, cut towards zero; none for what is no number.
inline std::optional<int64_t> FirstWhole(const Value& value) {
  const std::optional<double> number = FirstNumber(value);
  if (!number.has_value() || !(*number > -1e15 && *number < 1e15)) return std::nullopt;
  return static_cast<int64_t>(*number);
}

// An option without the brackets that it may stand in, and whether a text or list of texts names one.
inline std::string_view OptionName(std::string_view option) {
  const bool has_brackets = option.size() > 2 && option.front() == '[' && option.back() == ']';
  return has_brackets ? option.substr(1, option.size() - 2) : option;
}
inline bool HasOption(const Value& options, std::string_view wanted) {
  for (uint32_t index = 0; index < options.Count(); ++index)
    if (EqualFold(OptionName(options.TextAt(index)), wanted)) return true;
  return false;
}

// Calls make(index) for so many elements and joins what it gives; ends at the first error.
template <typename Make>
Value MakeEach(Machine& machine, uint64_t count, Make make) {
  if (count == 1) return make(uint32_t{0});
  if (count > kListElementsMax) return Value::Error(ErrorCode::kTooLong);
  const std::span<Value> values = machine.Memory().Array<Value>(count);
  for (uint32_t index = 0; index < count; ++index) {
    values[index] = make(index);
    if (values[index].IsError()) return values[index];
  }
  return JoinAll(values, machine.Memory());
}

// Every element of a text, number or time through make(element).
template <typename Make>
Value EachText(Machine& machine, const Value& value, Make make) {
  if (!value.IsText()) return WantsText();
  return MakeEach(machine, value.Count(), [&](uint32_t index) { return make(value.TextAt(index)); });
}
template <typename Make>
Value EachNumber(Machine& machine, const Value& value, Make make) {
  if (!value.IsNumber()) return WantsNumber();
  return MakeEach(machine, value.Count(), [&](uint32_t index) { return make(value.NumberAt(index)); });
}
template <typename Make>
Value EachTime(Machine& machine, const Value& value, Make make) {
  if (!value.IsTime()) return WantsTime();
  return MakeEach(machine, value.Count(), [&](uint32_t index) { return make(value.TimeAt(index)); });
}

// Pairs of numbers, the shorter list repeating its last element.
template <typename Make>
Value EachPair(Machine& machine, const Value& left, const Value& right, Make make) {
  if (!left.IsNumber() || !right.IsNumber()) return WantsNumber();
  return MakeEach(machine, std::max(left.Count(), right.Count()),
                  [&](uint32_t index) { return make(left.NumberAt(index), right.NumberAt(index)); });
}

// Some elements of a list, by their places; the list must have them.
Value Pick(Machine& machine, const Value& list, std::span<const uint32_t> places);

// One value as text, in a format of @Text; an error when the format is none.
Value ValueText(Machine& machine, const Value& value, uint32_t index, std::string_view format);

// A list of copies of texts, the empty text when there are none.
Value TextsOf(Machine& machine, std::span<const std::string> texts);

// The first item of that name as it is in the document, whatever variables are called.
Value ItemOf(Machine& machine, Host& host, std::string_view name);

// Universal ids as texts: 32 hexadecimal digits.
std::string HexOfUnid(const UNIVERSALNOTEID& unid);
bool UnidOfHex(std::string_view digits, UNIVERSALNOTEID* unid);

// Sixteen upper-case hexadecimal digits of the two words of a time, the later word first, and a colon between
// them.
std::string HexOfTime(const TIMEDATE& time);

}  // namespace brynd::formula
