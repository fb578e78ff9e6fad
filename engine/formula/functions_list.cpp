// Lists: places, membership, order. Equality is exact everywhere but in the order that @Sort makes.
#include <cstring>
#include <numeric>
#include <vector>

#include "base/process.h"
#include "base/text.h"
#include "base/time.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

// Any strict order in which equal elements stand together; of values of one type.
bool StandsBefore(const Value& left, uint32_t i, const Value& right, uint32_t j) {
  if (left.IsText()) return left.TextAt(i) < right.TextAt(j);
  if (left.IsTime()) return InstantCompare(left.TimeAt(i), right.TimeAt(j)) < 0;
  return left.NumberAt(i) < right.NumberAt(j);
}

// The elements of a list, to be asked whether it has one.
class Members {
 public:
  explicit Members(const Value& list) : list_(list), order_(list.Count()) {
    std::iota(order_.begin(), order_.end(), 0);
    std::stable_sort(order_.begin(), order_.end(),
                     [&](uint32_t left, uint32_t right) { return StandsBefore(list, left, list, right); });
  }
  bool Has(const Value& value, uint32_t index) const {
    if (value.kind != list_.kind) return false;
    const auto place = std::lower_bound(order_.begin(), order_.end(), index, [&](uint32_t entry, uint32_t) {
      return StandsBefore(list_, entry, value, index);
    });
    return place != order_.end() && SameElement(list_, *place, value, index);
  }
  std::span<const uint32_t> Order() const { return order_; }

 private:
  const Value& list_;
  std::vector<uint32_t> order_;
};

// How many elements of the first list the second has.
uint32_t CountMembers(const Value& values, const Value& list) {
  uint32_t count = 0;
  if (!values.list) {
    for (uint32_t index = 0; index < list.Count() && count == 0; ++index)
      count = SameElement(values, 0, list, index) ? 1 : 0;
    return count;
  }
  const Members members(list);
  for (uint32_t index = 0; index < values.Count(); ++index) count += members.Has(values, index);
  return count;
}

Value KeepMembers(Machine& machine, const Value& values, const Value& list, bool wanted) {
  const Members members(list);
  std::vector<uint32_t> places;
  for (uint32_t index = 0; index < values.Count(); ++index)
    if (members.Has(values, index) == wanted) places.push_back(index);
  return Pick(machine, values, places);
}

constexpr std::string_view kWordSeparators = " ,;:.?!()[]{}<>\"'\t\r\n";

bool HasWord(std::string_view text, std::string_view word, std::string_view separators) {
  const auto is_separator = [&](char letter) {
    return letter == 0 || separators.find(letter) != separators.npos;
  };
  for (size_t at = text.find(word); at != text.npos && !word.empty(); at = text.find(word, at + 1)) {
    const size_t end = at + word.size();
    if ((at == 0 || is_separator(text[at - 1])) && (end == text.size() || is_separator(text[end])))
      return true;
  }
  return false;
}

}  // namespace

Value Pick(Machine& machine, const Value& list, std::span<const uint32_t> places) {
  if (places.empty()) return {};
  if (list.IsText()) {
    const auto texts = machine.Memory().Array<std::string_view>(places.size());
    for (size_t index = 0; index < places.size(); ++index) texts[index] = list.TextAt(places[index]);
    return Value::Texts(texts);
  }
  if (list.IsTime()) {
    const auto times = machine.Memory().Array<TIMEDATE>(places.size());
    for (size_t index = 0; index < places.size(); ++index) times[index] = list.TimeAt(places[index]);
    return Value::Times(times);
  }
  const auto numbers = machine.Memory().Array<double>(places.size());
  for (size_t index = 0; index < places.size(); ++index) numbers[index] = list.NumberAt(places[index]);
  return Value::Numbers(numbers);
}

// A missing item has no elements.
Value CallElements(Machine&, std::span<const Value> arguments) {
  return Value::Number(arguments[0].IsEmptyText() ? 0 : arguments[0].Count());
}

Value CallCount(Machine&, std::span<const Value> arguments) { return Value::Number(arguments[0].Count()); }

Value CallSubset(Machine& machine, std::span<const Value> arguments) {
  const std::optional<int64_t> wanted = FirstWhole(arguments[1]);
  if (!wanted.has_value()) return WantsNumber();
  const int64_t count = arguments[0].Count();
  const int64_t kept = std::min(count, std::abs(*wanted));
  std::vector<uint32_t> places(static_cast<size_t>(kept));
  std::iota(places.begin(), places.end(), static_cast<uint32_t>(*wanted < 0 ? count - kept : 0));
  return Pick(machine, arguments[0], places);
}

Value CallNth(Machine&, std::span<const Value> arguments) {
  const std::optional<int64_t> place = FirstWhole(arguments[1]);
  if (!place.has_value()) return WantsNumber();
  if (*place < 1 || *place > arguments[0].Count()) return {};
  return ElementOf(arguments[0], static_cast<uint32_t>(*place - 1));
}

Value CallMember(Machine&, std::span<const Value> arguments) {
  for (uint32_t index = 0; index < arguments[1].Count(); ++index)
    if (SameElement(arguments[0], 0, arguments[1], index)) return Value::Number(index + 1);
  return Value::Number(0);
}

// Of several values, all must be there; none may be for the other function.
Value CallIsMember(Machine&, std::span<const Value> arguments) {
  return Value::Bool(CountMembers(arguments[0], arguments[1]) == arguments[0].Count());
}
Value CallIsNotMember(Machine&, std::span<const Value> arguments) {
  return Value::Bool(CountMembers(arguments[0], arguments[1]) == 0);
}

Value CallIntersection(Machine& machine, std::span<const Value> arguments) {
  return KeepMembers(machine, arguments[0], arguments[1], true);
}
Value CallDifference(Machine& machine, std::span<const Value> arguments) {
  return KeepMembers(machine, arguments[0], arguments[1], false);
}

// The first of equal elements stays, in its place. Without an argument, a text that no other call gives.
Value CallUnique(Machine& machine, std::span<const Value> arguments) {
  if (arguments.empty()) {
    const uint64_t random = Process().random->U64();
    return machine.KeepText(HexOfTime(Load<TIMEDATE>(&random)));
  }
  const Members members(arguments[0]);
  std::vector<uint32_t> places;
  for (size_t index = 0; index < members.Order().size(); ++index) {
    const uint32_t place = members.Order()[index];
    if (index == 0 || !SameElement(arguments[0], members.Order()[index - 1], arguments[0], place))
      places.push_back(place);
  }
  std::sort(places.begin(), places.end());
  return Pick(machine, arguments[0], places);
}

// A second text that starts with D, as "descending", turns the order around.
Value CallSort(Machine& machine, std::span<const Value> arguments) {
  const Value& list = arguments[0];
  std::vector<uint32_t> places(list.Count());
  std::iota(places.begin(), places.end(), 0);
  std::stable_sort(places.begin(), places.end(), [&](uint32_t left, uint32_t right) {
    return CompareElements(list, left, list, right) < 0;
  });
  if (arguments.size() == 2) {
    const std::optional<std::string_view> order = FirstText(arguments[1]);
    if (!order.has_value()) return WantsText();
    if (StartsWithFold(*order, "D") || StartsWithFold(*order, "[D"))
      std::reverse(places.begin(), places.end());
  }
  return Pick(machine, list, places);
}

Value CallKeywords(Machine& machine, std::span<const Value> arguments) {
  const Value& texts = arguments[0];
  const Value& words = arguments[1];
  if (!texts.IsText() || !words.IsText()) return WantsText();
  const std::optional<std::string_view> given =
      arguments.size() == 3 ? FirstText(arguments[2]) : kWordSeparators;
  if (!given.has_value()) return WantsText();
  std::vector<uint32_t> places;
  for (uint32_t word = 0; word < words.Count(); ++word) {
    bool found = false;
    for (uint32_t text = 0; text < texts.Count() && !found; ++text)
      found = HasWord(texts.TextAt(text), words.TextAt(word), *given);
    if (found) places.push_back(word);
  }
  return Pick(machine, words, places);
}

Value CallIsNull(Machine&, std::span<const Value> arguments) {
  if (!arguments[0].IsText()) return Value::Bool(false);
  for (uint32_t index = 0; index < arguments[0].Count(); ++index)
    if (!arguments[0].TextAt(index).empty()) return Value::Bool(false);
  return Value::Bool(true);
}

Value CallIsText(Machine&, std::span<const Value> arguments) { return Value::Bool(arguments[0].IsText()); }

Value CallList(Machine& machine, std::span<const Value> arguments) {
  return JoinAll(arguments, machine.Memory());
}

}  // namespace brynd::formula
