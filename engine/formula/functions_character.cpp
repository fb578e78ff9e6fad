// Characters and encodings: case, comparison, patterns, codes, paths.
#include <sodium.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>

#include "base/charset.h"
#include "base/collate.h"
#include "base/text.h"
#include "formula/functions.h"
#include "formula/pattern.h"

namespace brynd::formula {

namespace {

constexpr std::string_view kPathSigns = "/\\:";
constexpr char kHexDigits[] = "0123456789ABCDEF";

template <typename Change>
Value ChangeText(Machine& machine, const Value& value, Change change) {
  return EachText(machine, value, [&](std::string_view text) { return machine.KeepText(change(text)); });
}

void AppendCharacter(char32_t character, std::string* text) {
  char bytes[kEngineCharacterBytesMax];
  text->append(bytes, PutEngineCharacter(character, bytes));
}

// Letters behind letters are small, the others capital. An apostrophe belongs to its word.
std::string ProperCased(std::string_view text) {
  std::string changed;
  bool inside = false;
  for (size_t at = 0; at < text.size();) {
    const char32_t character = NextCharacter(text, &at);
    const UChar32 point = static_cast<UChar32>(character);
    const UChar32 cased = inside ? u_tolower(point) : u_totitle(point);
    inside = u_isalnum(point) || (inside && (character == U'\'' || character == 0x2019));
    AppendCharacter(static_cast<char32_t>(cased), &changed);
  }
  return changed;
}

// Letters without their accents; what is still no ASCII becomes a question mark.
std::string AsciiOf(std::string_view text) {
  UErrorCode code = U_ZERO_ERROR;
  const UNormalizer2* normalizer = unorm2_getNFKDInstance(&code);
  const std::u16string source = Utf16FromEngine(text);
  std::u16string apart(source.size() * 18 + 1, u'\0');  // no character comes apart into more
  const int32_t units = U_FAILURE(code)
                            ? 0
                            : unorm2_normalize(normalizer, source.data(), static_cast<int32_t>(source.size()),
                                               apart.data(), static_cast<int32_t>(apart.size()), &code);
  std::string ascii;
  for (int32_t at = 0; at < units && U_SUCCESS(code); ++at) {
    const char16_t unit = apart[static_cast<size_t>(at)];
    const bool is_mark = u_charType(unit) == U_NON_SPACING_MARK || (unit >= 0xdc00 && unit <= 0xdfff);
    if (!is_mark) ascii += unit < 0x80 ? static_cast<char>(unit) : '?';
  }
  return ascii;
}

// The code of a letter: groups of consonants that sound alike; 0 parts equal codes, '-' does not.
char SoundexCode(char letter) {
  constexpr std::string_view kCodes = "01230120022455012623010202";
  const char lower = FoldByte(letter);
  if (lower == 'h' || lower == 'w') return '-';
  return lower >= 'a' && lower <= 'z' ? kCodes[static_cast<size_t>(lower - 'a')] : '0';
}

std::string SoundexOf(std::string_view text) {
  const std::string ascii = AsciiOf(text);
  std::string code;
  char last = '0';
  for (const char letter : ascii) {
    const char lower = FoldByte(letter);
    if (lower < 'a' || lower > 'z') continue;
    const char digit = SoundexCode(letter);
    if (code.empty())
      code += UpperByte(letter);
    else if (digit != '0' && digit != '-' && digit != last)
      code += digit;
    if (digit != '-') last = digit;
    if (code.size() == 4) break;
  }
  if (!code.empty()) code.resize(4, '0');
  return code;
}

std::string UrlEncoded(std::string_view text) {
  std::string encoded;
  for (const char letter : Utf8FromEngine(text)) {
    const unsigned char byte = static_cast<unsigned char>(letter);
    const bool is_plain = IsDigit(letter) || (FoldByte(letter) >= 'a' && FoldByte(letter) <= 'z') ||
                          std::string_view("-_.~").find(letter) != std::string_view::npos;
    if (is_plain)
      encoded += letter;
    else
      encoded += {'%', kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  }
  return encoded;
}

int HexDigit(char letter) {
  if (IsDigit(letter)) return letter - '0';
  const char lower = FoldByte(letter);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string UrlDecoded(std::string_view text) {
  std::string decoded;
  for (size_t at = 0; at < text.size(); ++at) {
    const int high = at + 2 < text.size() ? HexDigit(text[at + 1]) : -1;
    const int low = at + 2 < text.size() ? HexDigit(text[at + 2]) : -1;
    const bool is_code = text[at] == '%' && high >= 0 && low >= 0;
    if (is_code) {
      decoded += static_cast<char>(high * 16 + low);
      at += 2;
    } else {
      decoded += text[at] == '+' ? ' ' : text[at];
    }
  }
  return EngineFromUtf8(decoded);
}

std::string Base64Of(std::string_view text) {
  const std::string utf8 = Utf8FromEngine(text);
  std::string encoded(sodium_base64_ENCODED_LEN(utf8.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
  sodium_bin2base64(encoded.data(), encoded.size(), reinterpret_cast<const unsigned char*>(utf8.data()),
                    utf8.size(), sodium_base64_VARIANT_ORIGINAL);
  encoded.pop_back();  // its NUL
  return encoded;
}

std::string HashOf(std::string_view text) {
  const std::string utf8 = Utf8FromEngine(text);
  unsigned char hash[crypto_hash_sha256_BYTES];
  crypto_hash_sha256(hash, reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size());
  std::string digits;
  for (const unsigned char byte : hash) digits += {kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  return digits;
}

std::string_view FileNameOf(std::string_view path) {
  const size_t sign = path.find_last_of(kPathSigns);
  return sign == path.npos ? path : path.substr(sign + 1);
}

}  // namespace

Value CallUpperCase(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], UpperCase);
}
Value CallLowerCase(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], LowerCase);
}
Value CallProperCase(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], ProperCased);
}
Value CallAscii(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], AsciiOf);
}
Value CallSoundex(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], SoundexOf);
}

// Case and accents count unless an option says otherwise: "ignorecase", "ignoreaccents".
Value CallCompare(Machine& machine, std::span<const Value> arguments) {
  if (!arguments[0].IsText() || !arguments[1].IsText()) return WantsText();
  CollationStrength strength;
  if (arguments.size() == 3) {
    if (!arguments[2].IsText()) return WantsText();
    strength.ignore_case = HasOption(arguments[2], "ignorecase");
    strength.ignore_accents = HasOption(arguments[2], "ignoreaccents");
  }
  return MakeEach(machine, std::max(arguments[0].Count(), arguments[1].Count()), [&](uint32_t index) {
    const std::string_view left = arguments[0].TextAt(index), right = arguments[1].TextAt(index);
    int order = CollateText(left, right, strength);
    if (order == 0 && !strength.ignore_case && !strength.ignore_accents) order = left.compare(right);
    return Value::Number(order < 0 ? -1 : order > 0 ? 1 : 0);
  });
}

Value CallMatches(Machine&, std::span<const Value> arguments) {
  if (!arguments[0].IsText() || !arguments[1].IsText()) return WantsText();
  if (uint64_t{arguments[0].Count()} * arguments[1].Count() > kPairsMax)
    return Value::Error(ErrorCode::kTooManySteps);
  for (uint32_t i = 0; i < arguments[0].Count(); ++i) {
    for (uint32_t j = 0; j < arguments[1].Count(); ++j) {
      const Match match = MatchPattern(arguments[0].TextAt(i), arguments[1].TextAt(j));
      if (match == Match::kBadPattern) return BadArgument();
      if (match == Match::kYes) return Value::Bool(true);
    }
  }
  return Value::Bool(false);
}

Value CallLike(Machine&, std::span<const Value> arguments) {
  if (!arguments[0].IsText() || !arguments[1].IsText()) return WantsText();
  char32_t escape = 0;
  if (arguments.size() == 3) {
    const std::optional<std::string_view> given = FirstText(arguments[2]);
    if (!given.has_value()) return WantsText();
    size_t at = 0;
    if (!given->empty()) escape = NextCharacter(*given, &at);
  }
  if (uint64_t{arguments[0].Count()} * arguments[1].Count() > kPairsMax)
    return Value::Error(ErrorCode::kTooManySteps);
  for (uint32_t i = 0; i < arguments[0].Count(); ++i)
    for (uint32_t j = 0; j < arguments[1].Count(); ++j)
      if (LikePattern(arguments[0].TextAt(i), arguments[1].TextAt(j), escape)) return Value::Bool(true);
  return Value::Bool(false);
}

Value CallChar(Machine& machine, std::span<const Value> arguments) {
  return EachNumber(machine, arguments[0], [&](double number) {
    const bool is_character = number >= 0 && number <= 0x10ffff && !(number >= 0xd800 && number < 0xe000);
    if (!is_character) return BadArgument();
    std::string text;
    AppendCharacter(static_cast<char32_t>(number), &text);
    return machine.KeepText(text);
  });
}

// The code point of the first character; 0 for the empty text.
Value CallCode(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [](std::string_view text) {
    size_t at = 0;
    return Value::Number(text.empty() ? 0 : NextCharacter(text, &at));
  });
}

// Lines of a text are kept apart by NUL.
Value CallNewLine(Machine&, std::span<const Value>) { return Value::Text(std::string_view("\0", 1)); }

Value CallURLEncode(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], UrlEncoded);
}
Value CallURLDecode(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], UrlDecoded);
}

// Encodings and hashes are those of the text as UTF-8.
Value CallBase64Encode(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], Base64Of);
}
Value CallBase64Decode(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [&](std::string_view text) {
    std::string decoded(text.size(), '\0');
    size_t decoded_bytes = 0;
    const int result =
        sodium_base642bin(reinterpret_cast<unsigned char*>(decoded.data()), decoded.size(), text.data(),
                          text.size(), " \r\n\t", &decoded_bytes, nullptr, sodium_base64_VARIANT_ORIGINAL);
    if (result != 0) return BadArgument();
    return machine.KeepText(EngineFromUtf8({decoded.data(), decoded_bytes}));
  });
}
Value CallHash(Machine& machine, std::span<const Value> arguments) {
  return ChangeText(machine, arguments[0], HashOf);
}

Value CallFileName(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [](std::string_view path) { return Value::Text(FileNameOf(path)); });
}
Value CallFileExtension(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [](std::string_view path) {
    const std::string_view name = FileNameOf(path);
    const size_t point = name.rfind('.');
    return Value::Text(point == name.npos ? std::string_view() : name.substr(point + 1));
  });
}
Value CallFileFolder(Machine& machine, std::span<const Value> arguments) {
  return EachText(machine, arguments[0], [](std::string_view path) {
    const size_t sign = path.find_last_of(kPathSigns);
    return Value::Text(sign == path.npos ? std::string_view() : path.substr(0, sign));
  });
}

}  // namespace brynd::formula
