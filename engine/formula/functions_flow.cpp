// Flow: what decides, assigns, and ends. @If, @IfError, @Return, the loops and @Transform are instructions of
// their own.
#include "formula/functions.h"

namespace brynd::formula {

Value CallDo(Machine&, std::span<const Value> arguments) { return arguments.back(); }

// A number beyond the values takes the last.
Value CallSelect(Machine&, std::span<const Value> arguments) {
  const std::optional<int64_t> place = FirstWhole(arguments[0]);
  if (!place.has_value()) return WantsNumber();
  if (*place < 1) return BadArgument();
  return arguments[std::min<uint64_t>(static_cast<uint64_t>(*place), arguments.size() - 1)];
}

Value CallSet(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> name = FirstText(arguments[0]);
  if (!name.has_value()) return WantsText();
  machine.SetVariable(*name, arguments[1]);
  return arguments[1];
}

Value CallSetField(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> name = FirstText(arguments[0]);
  if (!name.has_value()) return WantsText();
  return machine.WriteField(*name, arguments[1]);
}

Value CallGetField(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> name = FirstText(arguments[0]);
  if (!name.has_value()) return WantsText();
  return machine.ReadName(*name);
}

Value CallDeleteField(Machine&, std::span<const Value>) { return Value::Unavailable(); }
Value CallUnavailable(Machine&, std::span<const Value>) { return Value::Unavailable(); }
Value CallNothing(Machine&, std::span<const Value>) { return Value::Unavailable(); }

Value CallIsError(Machine&, std::span<const Value> arguments) { return Value::Bool(arguments[0].IsError()); }
Value CallError(Machine&, std::span<const Value>) { return Value::Error(ErrorCode::kGiven); }

// A validation formula selects by its value: 1 passes, a text is the message of what failed.
Value CallSuccess(Machine&, std::span<const Value>) { return Value::Bool(true); }
Value CallFailure(Machine&, std::span<const Value> arguments) {
  return arguments[0].IsText() ? arguments[0] : WantsText();
}

Value CallTrue(Machine&, std::span<const Value>) { return Value::Bool(true); }
Value CallFalse(Machine&, std::span<const Value>) { return Value::Bool(false); }
Value CallYes(Machine&, std::span<const Value>) { return Value::Bool(true); }
Value CallNo(Machine&, std::span<const Value>) { return Value::Bool(false); }

Value CallEval(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> text = FirstText(arguments[0]);
  return text.has_value() ? machine.EvaluateText(*text) : WantsText();
}

}  // namespace brynd::formula
