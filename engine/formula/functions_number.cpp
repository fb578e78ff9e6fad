// Numbers. What has no value, or none that is finite, is an error.
#include <cmath>
#include <numbers>

#include "base/process.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

constexpr double kFloatEqDefault = 0.0001;

Value Finite(double number) {
  return std::isfinite(number) ? Value::Number(number) : Value::Error(ErrorCode::kDomain);
}

// Half away from zero, of the decimals that people write: 0.145 is a little less than it looks, so a quotient
// within a rounding error of a half counts as one.
double RoundHalfAway(double number) {
  constexpr double kRoundingError = 4.5e-16;
  return std::round(number + number * kRoundingError);
}

Value RoundTo(double number, double unit) {
  if (unit == 0) return Value::Error(ErrorCode::kDivision);
  const double size = std::abs(unit);
  // A unit such as 0.01 is not exact, its inverse is.
  const double inverse = std::round(1 / size);
  const bool is_fraction = size < 1 && std::abs(inverse * size - 1) < 1e-12;
  return Finite(is_fraction ? RoundHalfAway(number * inverse) / inverse
                            : RoundHalfAway(number / size) * size);
}

template <typename Take>
Value Fold(std::span<const Value> arguments, double* count, Take take) {
  for (const Value& value : arguments) {
    if (!value.IsNumber()) return WantsNumber();
    for (uint32_t index = 0; index < value.Count(); ++index) take(value.NumberAt(index));
    *count += value.Count();
  }
  return Value::Number(0);
}

// One list: its greatest element. Two: the greater of each pair.
Value Extreme(Machine& machine, std::span<const Value> arguments, bool greatest) {
  const auto better = [greatest](double left, double right) {
    return greatest ? left > right : left < right;
  };
  if (arguments.size() == 2)
    return EachPair(machine, arguments[0], arguments[1], [&](double left, double right) {
      return Value::Number(better(right, left) ? right : left);
    });
  if (!arguments[0].IsNumber()) return WantsNumber();
  double best = arguments[0].NumberAt(0);
  for (uint32_t index = 1; index < arguments[0].Count(); ++index)
    if (better(arguments[0].NumberAt(index), best)) best = arguments[0].NumberAt(index);
  return Value::Number(best);
}

template <double (*kFunction)(double)>
Value Each(Machine& machine, std::span<const Value> arguments) {
  return EachNumber(machine, arguments[0], [](double number) { return Finite(kFunction(number)); });
}

double SignOf(double number) { return number > 0 ? 1 : number < 0 ? -1 : 0; }

// A function with one result for a number that is not positive would have none: its logarithm is an error.
Value Logarithm(Machine& machine, std::span<const Value> arguments, double (*function)(double)) {
  return EachNumber(machine, arguments[0], [function](double number) {
    return number > 0 ? Finite(function(number)) : Value::Error(ErrorCode::kDomain);
  });
}

}  // namespace

Value CallAbs(Machine& machine, std::span<const Value> arguments) {
  return Each<std::fabs>(machine, arguments);
}
Value CallSign(Machine& machine, std::span<const Value> arguments) {
  return Each<SignOf>(machine, arguments);
}
Value CallInteger(Machine& machine, std::span<const Value> arguments) {
  return Each<std::trunc>(machine, arguments);
}

Value CallRound(Machine& machine, std::span<const Value> arguments) {
  if (arguments.size() == 2) return EachPair(machine, arguments[0], arguments[1], RoundTo);
  return EachNumber(machine, arguments[0], [](double number) { return Value::Number(std::round(number)); });
}

Value CallModulo(Machine& machine, std::span<const Value> arguments) {
  return EachPair(machine, arguments[0], arguments[1], [](double left, double right) {
    return right == 0 ? Value::Error(ErrorCode::kDivision) : Finite(std::fmod(left, right));
  });
}

Value CallPower(Machine& machine, std::span<const Value> arguments) {
  return EachPair(machine, arguments[0], arguments[1],
                  [](double left, double right) { return Finite(std::pow(left, right)); });
}

Value CallSqrt(Machine& machine, std::span<const Value> arguments) {
  return Each<std::sqrt>(machine, arguments);
}
Value CallExp(Machine& machine, std::span<const Value> arguments) {
  return Each<std::exp>(machine, arguments);
}
Value CallLn(Machine& machine, std::span<const Value> arguments) {
  return Logarithm(machine, arguments, std::log);
}
Value CallLog(Machine& machine, std::span<const Value> arguments) {
  return Logarithm(machine, arguments, std::log10);
}
Value CallPi(Machine&, std::span<const Value>) { return Value::Number(std::numbers::pi); }
Value CallSin(Machine& machine, std::span<const Value> arguments) {
  return Each<std::sin>(machine, arguments);
}
Value CallCos(Machine& machine, std::span<const Value> arguments) {
  return Each<std::cos>(machine, arguments);
}
Value CallTan(Machine& machine, std::span<const Value> arguments) {
  return Each<std::tan>(machine, arguments);
}
Value CallASin(Machine& machine, std::span<const Value> arguments) {
  return Each<std::asin>(machine, arguments);
}
Value CallACos(Machine& machine, std::span<const Value> arguments) {
  return Each<std::acos>(machine, arguments);
}
Value CallATan(Machine& machine, std::span<const Value> arguments) {
  return Each<std::atan>(machine, arguments);
}

// The angle of the point (x; y).
Value CallATan2(Machine& machine, std::span<const Value> arguments) {
  return EachPair(machine, arguments[0], arguments[1],
                  [](double x, double y) { return Value::Number(std::atan2(y, x)); });
}

Value CallMax(Machine& machine, std::span<const Value> arguments) {
  return Extreme(machine, arguments, true);
}
Value CallMin(Machine& machine, std::span<const Value> arguments) {
  return Extreme(machine, arguments, false);
}

Value CallSum(Machine&, std::span<const Value> arguments) {
  double count = 0, sum = 0;
  const Value fault = Fold(arguments, &count, [&](double number) { sum += number; });
  return fault.IsError() ? fault : Finite(sum);
}

Value CallAverage(Machine&, std::span<const Value> arguments) {
  double count = 0, sum = 0;
  const Value fault = Fold(arguments, &count, [&](double number) { sum += number; });
  return fault.IsError() ? fault : Finite(sum / count);
}

// From 0 up to, but not 1.
Value CallRandom(Machine&, std::span<const Value>) {
  return Value::Number(static_cast<double>(Process().random->U64() >> 11) * 0x1p-53);
}

Value CallFloatEq(Machine& machine, std::span<const Value> arguments) {
  const std::optional<double> range = arguments.size() == 3 ? FirstNumber(arguments[2]) : kFloatEqDefault;
  if (!range.has_value()) return WantsNumber();
  return EachPair(machine, arguments[0], arguments[1],
                  [&](double left, double right) { return Value::Bool(std::abs(left - right) <= *range); });
}

Value CallIsNumber(Machine&, std::span<const Value> arguments) {
  return Value::Bool(arguments[0].IsNumber());
}

}  // namespace brynd::formula
