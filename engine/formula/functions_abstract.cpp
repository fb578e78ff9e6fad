// @Abstract: the beginning of what fields say, shortened.
#include <string>

#include "base/bytes.h"
#include "base/charset.h"
#include "formula/functions.h"

namespace brynd::formula {

namespace {

// Records of composite values: a signature whose high byte says where the length stands.
constexpr uint16_t kTextRecord = 0xff85;
constexpr uint8_t kParagraphRecord = 0x81;  // with its length in the high byte
constexpr uint8_t kWordLength = 0xff, kLongLength = 0x00;
constexpr size_t kTextRecordHeadBytes = 8;
constexpr uint16_t kWordComposite = 1;

// The text of a composite value, paragraphs parted by line ends; what is damaged ends it.
void AddCompositeText(Bytes value, std::string* text) {
  while (value.size() >= 2 && text->size() <= kTextBytesMax) {
    ByteReader in(value);
    const uint16_t signature = in.U16();
    const uint8_t form = static_cast<uint8_t>(signature >> 8);
    const size_t length = form == kWordLength ? in.U16() : form == kLongLength ? in.U32() : form;
    if (in.Failed() || length < 2 || length > value.size()) return;
    const bool is_text = signature == kTextRecord && length > kTextRecordHeadBytes;
    if (is_text)
      text->append(TextOf(value.subspan(kTextRecordHeadBytes, length - kTextRecordHeadBytes)));
    else if ((signature & 0xff) == kParagraphRecord && form != kWordLength && form != kLongLength)
      text->push_back('\0');
    value = value.subspan(std::min(length + length % 2, value.size()));
  }
}

// The text of a field; other values as @Text gives them.
std::string FieldText(Machine& machine, std::string_view name) {
  Host& host = machine.Document();
  const NameToken token = host.Bind(name);
  ItemView item;
  if (name.empty() || token == kNoToken || !host.Find(token, &item)) return {};
  std::string text;
  if (item.type == kWordComposite) {
    AddCompositeText(item.value, &text);
    return text;
  }
  const Value value = ReadItem(item, machine.Memory());
  if (value.IsError()) return {};
  for (uint32_t index = 0; index < value.Count() && text.size() <= kTextBytesMax; ++index) {
    const Value element = ValueText(machine, value, index, {});
    if (index != 0) text += ' ';
    if (element.IsText()) text += element.TextAt(0);
  }
  return text;
}

bool IsLineEnd(char letter) { return letter == '\0' || letter == '\n' || letter == '\r'; }

std::string OneLine(std::string_view text) {
  std::string line;
  for (size_t at = 0; at < text.size();) {
    const size_t bytes = CharacterBytes(text, at);
    if (IsBlank(text[at]) || IsLineEnd(text[at])) {
      if (!line.empty() && line.back() != ' ') line += ' ';
    } else {
      line += text.substr(at, bytes);
    }
    at += bytes;
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

// Copies the characters that `keeps(letter, is_first_of_word)` keeps; characters of several bytes stay.
template <typename Keeps>
std::string KeepCharacters(std::string_view text, Keeps keeps) {
  std::string kept;
  bool is_first = true;
  for (size_t at = 0; at < text.size();) {
    const size_t bytes = CharacterBytes(text, at);
    if (bytes > 1 || keeps(text[at], is_first)) kept += text.substr(at, bytes);
    is_first = IsBlank(text[at]) || IsLineEnd(text[at]);
    at += bytes;
  }
  return kept;
}

bool IsPunctuation(char letter) {
  return std::string_view(".,;:!?\"'()[]{}").find(letter) != std::string_view::npos;
}
bool IsVowel(char letter) { return std::string_view("aeiouAEIOU").find(letter) != std::string_view::npos; }

size_t Characters(std::string_view text) { return CountCharacters(text); }

struct Shortening {
  std::string_view option;
  std::string (*apply)(std::string_view text);
};

// In the order in which they are applied.
constexpr Shortening kShortenings[] = {
    {"TrimWhite", OneLine},
    {"TrimPunct",
     [](std::string_view text) {
       return KeepCharacters(text, [](char letter, bool) { return !IsPunctuation(letter); });
     }},
    {"DropVowels",
     [](std::string_view text) {
       return KeepCharacters(text, [](char letter, bool is_first) { return is_first || !IsVowel(letter); });
     }},
    {"DropFirstVowel",
     [](std::string_view text) {
       return KeepCharacters(text, [](char letter, bool is_first) { return !is_first || !IsVowel(letter); });
     }},
};

}  // namespace

// Options, most characters of the result, its beginning, names of the fields whose texts follow.
Value CallAbstract(Machine& machine, std::span<const Value> arguments) {
  const Value &options = arguments[0], &fields = arguments[3];
  const std::optional<int64_t> size = FirstWhole(arguments[1]);
  const std::optional<std::string_view> begin = FirstText(arguments[2]);
  if (!options.IsText() || !begin.has_value() || !fields.IsText()) return WantsText();
  if (!size.has_value()) return WantsNumber();
  if (*size < 0) return BadArgument();
  std::string text;
  for (uint32_t index = 0; index < fields.Count(); ++index) {
    const std::string more = FieldText(machine, fields.TextAt(index));
    if (!text.empty() && !more.empty()) text += ' ';
    text += more;
    if (text.size() > kTextBytesMax) break;
  }
  const size_t most = static_cast<size_t>(*size);
  const size_t left = most - std::min(most, Characters(*begin));
  const bool try_fit = HasOption(options, "TryFit");
  for (const Shortening& shortening : kShortenings) {
    if (!HasOption(options, shortening.option) || (try_fit && Characters(text) <= left)) continue;
    text = shortening.apply(text);
  }
  text.insert(0, *begin);
  return machine.KeepText(std::string_view(text).substr(0, CharacterPosition(text, most)));
}

}  // namespace brynd::formula
