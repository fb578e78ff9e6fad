// Parts of texts, search and replacement. Positions and counts are characters. What takes a place in a text
// takes a text to look for instead of a number.
#include <vector>

#include "base/charset.h"
#include "base/text.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

// The start of the character of an index. Of plain text, characters are bytes.
size_t PositionOf(std::string_view text, size_t characters) {
  return IsPlainAscii(text) ? std::min(characters, text.size()) : CharacterPosition(text, characters);
}

// The same counted from the end, 0 for the end itself.
size_t PositionFromEnd(std::string_view text, size_t characters) {
  const size_t count = IsPlainAscii(text) ? text.size() : CountCharacters(text);
  return PositionOf(text, count > characters ? count - characters : 0);
}

size_t Clamp(double number) {
  return number <= 0 ? 0 : number >= kTextBytesMax ? kTextBytesMax : static_cast<size_t>(number);
}

// A function of a text and a place: by number, or by a text that is looked for; what is not found gives the
// empty text.
using ByCount = std::string_view (*)(std::string_view text, size_t characters);
using BySearch = std::string_view (*)(std::string_view text, std::string_view sought);

Value CutBy(Machine& machine, std::span<const Value> arguments, ByCount by_count, BySearch by_search) {
  const Value& place = arguments[1];
  if (!place.IsNumber() && !place.IsText()) return WantsNumber();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    return Value::Text(place.IsNumber() ? by_count(text, Clamp(place.NumberAt(0)))
                                        : by_search(text, place.TextAt(0)));
  });
}

std::string_view FirstCharacters(std::string_view text, size_t count) {
  return text.substr(0, PositionOf(text, count));
}
std::string_view LastCharacters(std::string_view text, size_t count) {
  return text.substr(PositionFromEnd(text, count));
}
std::string_view WithoutFirst(std::string_view text, size_t count) {
  return text.substr(PositionOf(text, count));
}
std::string_view WithoutLast(std::string_view text, size_t count) {
  return text.substr(0, PositionFromEnd(text, count));
}

std::string_view BeforeFirst(std::string_view text, std::string_view sought) {
  const size_t at = text.find(sought);
  return at == text.npos ? std::string_view() : text.substr(0, at);
}
std::string_view BeforeLast(std::string_view text, std::string_view sought) {
  const size_t at = text.rfind(sought);
  return at == text.npos ? std::string_view() : text.substr(0, at);
}
std::string_view AfterFirst(std::string_view text, std::string_view sought) {
  const size_t at = text.find(sought);
  return at == text.npos ? std::string_view() : text.substr(at + sought.size());
}
std::string_view AfterLast(std::string_view text, std::string_view sought) {
  const size_t at = text.rfind(sought);
  return at == text.npos ? std::string_view() : text.substr(at + sought.size());
}

// Two places: where the middle starts, and how much of it or up to where.
bool ArePlaces(std::span<const Value> arguments) {
  return (arguments[1].IsNumber() || arguments[1].IsText()) &&
         (arguments[2].IsNumber() || arguments[2].IsText());
}

std::string_view MiddleOf(std::string_view text, const Value& start, const Value& end) {
  const std::string_view rest =
      start.IsNumber() ? WithoutFirst(text, Clamp(start.NumberAt(0))) : AfterFirst(text, start.TextAt(0));
  if (end.IsNumber()) return FirstCharacters(rest, Clamp(end.NumberAt(0)));
  const size_t at = rest.find(end.TextAt(0));
  return rest.substr(0, at);
}

std::string_view MiddleBackOf(std::string_view text, const Value& start, const Value& end) {
  const std::string_view rest =
      start.IsNumber() ? WithoutLast(text, Clamp(start.NumberAt(0))) : BeforeLast(text, start.TextAt(0));
  if (end.IsNumber()) return LastCharacters(rest, Clamp(end.NumberAt(0)));
  const size_t at = rest.rfind(end.TextAt(0));
  return at == rest.npos ? rest : rest.substr(at + end.TextAt(0).size());
}

std::vector<std::string_view> WordsOf(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> words;
  if (separator.empty()) return {text};
  for (size_t at = text.find(separator); at != text.npos; at = text.find(separator)) {
    words.push_back(text.substr(0, at));
    text.remove_prefix(at + separator.size());
  }
  words.push_back(text);
  return words;
}

// True when the test holds for one element of the first list and one of the second.
template <typename Test>
Value AnyPair(std::span<const Value> arguments, Test test) {
  if (!arguments[0].IsText() || !arguments[1].IsText()) return WantsText();
  if (uint64_t{arguments[0].Count()} * arguments[1].Count() > kPairsMax)
    return Value::Error(ErrorCode::kTooManySteps);
  for (uint32_t i = 0; i < arguments[0].Count(); ++i)
    for (uint32_t j = 0; j < arguments[1].Count(); ++j)
      if (test(arguments[0].TextAt(i), arguments[1].TextAt(j))) return Value::Bool(true);
  return Value::Bool(false);
}

bool ReplaceAll(std::string* text, std::string_view from, std::string_view to) {
  if (from.empty()) return true;
  std::string changed;
  size_t begin = 0;
  for (size_t at = text->find(from); at != text->npos; at = text->find(from, begin)) {
    changed.append(*text, begin, at - begin).append(to);
    if (changed.size() > kTextBytesMax) return false;
    begin = at + from.size();
  }
  changed.append(*text, begin);
  text->swap(changed);
  return text->size() <= kTextBytesMax;
}

std::string Trimmed(std::string_view text) {
  std::string trimmed;
  for (const char letter : text)
    if (letter != ' ' || (!trimmed.empty() && trimmed.back() != ' ')) trimmed += letter;
  if (!trimmed.empty() && trimmed.back() == ' ') trimmed.pop_back();
  return trimmed;
}

// The parts of a text that is taken apart at any of the separators.
void ExplodeText(std::string_view text, std::string_view separators, bool with_empty, bool at_lines,
                 std::vector<std::string_view>* parts) {
  size_t begin = 0;
  for (size_t at = 0; at <= text.size();) {
    const bool is_end = at == text.size();
    const size_t bytes = is_end ? 1 : CharacterBytes(text, at);
    const std::string_view character = is_end ? std::string_view() : text.substr(at, bytes);
    const bool is_line =
        at_lines && (character == std::string_view("\0", 1) || character == "\n" || character == "\r");
    if (is_end || is_line || separators.find(character) != separators.npos) {
      if (with_empty || at > begin) parts->push_back(text.substr(begin, at - begin));
      begin = at + bytes;
    }
    at += bytes;
  }
}

}  // namespace

Value CallLength(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [](std::string_view text) {
    return Value::Number(static_cast<double>(CountCharacters(text)));
  });
}

Value CallLeft(Machine& machine, std::span<const Value> arguments) {
  return CutBy(machine, arguments, FirstCharacters, BeforeFirst);
}
Value CallLeftBack(Machine& machine, std::span<const Value> arguments) {
  return CutBy(machine, arguments, WithoutLast, BeforeLast);
}
Value CallRight(Machine& machine, std::span<const Value> arguments) {
  return CutBy(machine, arguments, LastCharacters, AfterFirst);
}
Value CallRightBack(Machine& machine, std::span<const Value> arguments) {
  return CutBy(machine, arguments, WithoutFirst, AfterLast);
}

Value CallMiddle(Machine& machine, std::span<const Value> arguments) {
  if (!ArePlaces(arguments)) return WantsNumber();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    return Value::Text(MiddleOf(text, arguments[1], arguments[2]));
  });
}
Value CallMiddleBack(Machine& machine, std::span<const Value> arguments) {
  if (!ArePlaces(arguments)) return WantsNumber();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    return Value::Text(MiddleBackOf(text, arguments[1], arguments[2]));
  });
}

Value CallWord(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> separator = FirstText(arguments[1]);
  const std::optional<int64_t> number = FirstWhole(arguments[2]);
  if (!separator.has_value()) return WantsText();
  if (!number.has_value()) return WantsNumber();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    const std::vector<std::string_view> words = WordsOf(text, *separator);
    const int64_t count = static_cast<int64_t>(words.size());
    const int64_t place = *number < 0 ? count + *number : *number - 1;
    const bool exists = *number != 0 && place >= 0 && place < count;
    return Value::Text(exists ? words[static_cast<size_t>(place)] : std::string_view());
  });
}

// Blanks at both ends go, others become one; empty elements go.
Value CallTrim(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[0].IsText()) return WantsText();
  const auto texts = machine.Memory().Array<std::string_view>(arguments[0].Count());
  size_t kept = 0;
  for (uint32_t index = 0; index < arguments[0].Count(); ++index) {
    texts[kept] = machine.Keep(Trimmed(arguments[0].TextAt(index)));
    kept += !texts[kept].empty();
  }
  return Value::Texts(texts.first(kept));
}

Value CallContains(Machine&, std::span<const Value> arguments) {
  return AnyPair(arguments,
                 [](std::string_view text, std::string_view part) { return text.find(part) != text.npos; });
}
Value CallBegins(Machine&, std::span<const Value> arguments) {
  return AnyPair(arguments,
                 [](std::string_view text, std::string_view part) { return text.starts_with(part); });
}
Value CallEnds(Machine&, std::span<const Value> arguments) {
  return AnyPair(arguments,
                 [](std::string_view text, std::string_view part) { return text.ends_with(part); });
}

// Each text of the second list becomes its partner in the third, one after the other.
Value CallReplaceSubstring(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[1].IsText() || !arguments[2].IsText()) return WantsText();
  return EachText(machine, arguments[0], [&](std::string_view source) {
    std::string text(source);
    for (uint32_t index = 0; index < arguments[1].Count(); ++index)
      if (!ReplaceAll(&text, arguments[1].TextAt(index), arguments[2].TextAt(index)))
        return Value::Error(ErrorCode::kTooLong);
    return machine.KeepText(text);
  });
}

// Elements of the first list that stand in the second become their partners in the third; beyond its end, the
// empty text.
Value CallReplace(Machine& machine, std::span<const Value> arguments) {
  const Value& from = arguments[1];
  const Value& to = arguments[2];
  if (!from.IsText() || !to.IsText()) return WantsText();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    for (uint32_t index = 0; index < from.Count(); ++index)
      if (from.TextAt(index) == text)
        return Value::Text(index < to.Count() ? to.TextAt(index) : std::string_view());
    return Value::Text(text);
  });
}

// A third number is the most characters that the result has.
Value CallRepeat(Machine& machine, std::span<const Value> arguments) {
  const std::optional<int64_t> times = FirstWhole(arguments[1]);
  const std::optional<int64_t> most = arguments.size() == 3 ? FirstWhole(arguments[2]) : kTextBytesMax;
  if (!times.has_value() || !most.has_value()) return WantsNumber();
  return EachText(machine, arguments[0], [&](std::string_view text) {
    std::string repeated;
    const bool is_cut = arguments.size() == 3;
    for (int64_t round = 0; round < *times && !text.empty(); ++round) {
      repeated += text;
      if (repeated.size() <= kTextBytesMax) continue;
      if (is_cut) break;
      return Value::Error(ErrorCode::kTooLong);
    }
    return machine.KeepText(FirstCharacters(repeated, static_cast<size_t>(std::max<int64_t>(*most, 0))));
  });
}

Value CallExplode(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[0].IsText()) return WantsText();
  const std::optional<std::string_view> separators = arguments.size() > 1 ? FirstText(arguments[1]) : " ,;";
  if (!separators.has_value()) return WantsText();
  bool choices[2] = {false, true};  // empty parts are kept; line ends part texts too
  for (size_t index = 2; index < arguments.size(); ++index) {
    if (!arguments[index].IsNumber()) return WantsNumber();
    choices[index - 2] = arguments[index].NumberAt(0) != 0;
  }
  std::vector<std::string_view> parts;
  for (uint32_t index = 0; index < arguments[0].Count(); ++index)
    ExplodeText(arguments[0].TextAt(index), *separators, choices[0], choices[1], &parts);
  if (parts.size() > kListElementsMax) return Value::Error(ErrorCode::kTooLong);
  const auto texts = machine.Memory().Array<std::string_view>(parts.size());
  std::copy(parts.begin(), parts.end(), texts.begin());
  return Value::Texts(texts);
}

Value CallImplode(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[0].IsText()) return WantsText();
  const std::optional<std::string_view> separator = arguments.size() > 1 ? FirstText(arguments[1]) : " ";
  if (!separator.has_value()) return WantsText();
  std::string joined;
  for (uint32_t index = 0; index < arguments[0].Count(); ++index) {
    if (index != 0) joined += *separator;
    joined += arguments[0].TextAt(index);
    if (joined.size() > kTextBytesMax) return Value::Error(ErrorCode::kTooLong);
  }
  return machine.KeepText(joined);
}

}  // namespace brynd::formula
