#include "base/charset.h"

#include <unicode/ustring.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "base/bytes.h"
#include "base/status.h"
#include "base/text.h"

namespace brynd {
namespace {

constexpr char32_t kEngineSingleSequenceMax = 0x1ffff, kCharacterMax = 0x10ffff;

constexpr unsigned ByteAt(std::string_view text, size_t position) noexcept {
  return static_cast<unsigned char>(text[position]);
}
constexpr bool IsHighHalf(char32_t unit) noexcept { return (unit & 0xfffffc00u) == 0xd800; }
constexpr bool IsLowHalf(char32_t unit) noexcept { return (unit & 0xfffffc00u) == 0xdc00; }
constexpr bool IsHalf(char32_t unit) noexcept { return (unit & 0xfffff800u) == 0xd800; }
constexpr char32_t Joined(char32_t high, char32_t low) noexcept {
  return 0x10000 + ((high & 0x3ff) << 10 | (low & 0x3ff));
}

// True for the bytes that stand for themselves both here and in UTF-8.
constexpr bool IsShared(unsigned byte) noexcept {
  return (byte >= 0x20 && byte < 0x80) || byte == '\t' || byte == '\n' || byte == '\r' || byte == 0;
}

// How many bytes at the start of a text are 0x20 to 0x7f, in steps of eight.
size_t PlainRun(const char* text, size_t byte_count) noexcept {
  constexpr uint64_t kOnes = 0x0101010101010101u, kHigh = 0x80 * kOnes;
  size_t position = 0;
  while (byte_count - position >= 8) {
    const uint64_t word = LoadU64(text + position);
    if ((word & kHigh) != 0 || ((word + 0x60 * kOnes) & kHigh) != kHigh) break;
    position += 8;
  }
  return position;
}

// The code unit of the three-byte sequence at a position, or kUnknownCharacter when it is not one.
char32_t SequenceUnit(std::string_view text, size_t position) noexcept {
  if (text.size() - position < 3) return kUnknownCharacter;
  const unsigned first = ByteAt(text, position), second = ByteAt(text, position + 1),
                 third = ByteAt(text, position + 2);
  if ((first & 0xf8) != 0x10 || second < 0x80 || third < 0x80) return kUnknownCharacter;
  const char32_t unit = (first & 7) << 14 | (second & 0x7f) << 7 | (third & 0x7f);
  return unit == 0 ? kUnknownCharacter : unit;  // a hidden NUL would end texts where nobody expects it
}

char32_t NextSequence(std::string_view text, size_t* position) noexcept {
  const char32_t unit = SequenceUnit(text, *position);
  *position += CharacterBytes(text, *position);
  if (!IsHalf(unit)) return unit;
  if (!IsHighHalf(unit) || *position == text.size()) return kUnknownCharacter;
  const char32_t second = SequenceUnit(text, *position);
  if (!IsLowHalf(second)) return kUnknownCharacter;
  *position += 3;
  return Joined(unit, second);
}

// The length of the valid UTF-8 sequence of two to four bytes at a position, or 0.
size_t Utf8SequenceBytes(std::string_view text, size_t position, char32_t* character) noexcept {
  const unsigned first = ByteAt(text, position);
  const size_t width = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
  if (width == 0 || text.size() - position < width) return 0;
  char32_t value = first & (0x7fu >> width);
  for (size_t index = 1; index < width; ++index) {
    const unsigned byte = ByteAt(text, position + index);
    if ((byte & 0xc0) != 0x80) return 0;
    value = value << 6 | (byte & 0x3f);
  }
  constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < kLeast[width] || value > kCharacterMax || IsHalf(value)) return 0;
  *character = value;
  return width;
}

size_t PutSequence(char32_t unit, char* target) noexcept {
  target[0] = static_cast<char>(0x10 + (unit >> 14));
  target[1] = static_cast<char>(0x80 | ((unit >> 7) & 0x7f));
  target[2] = static_cast<char>(0x80 | (unit & 0x7f));
  return 3;
}

using NextFunction = char32_t (*)(std::string_view, size_t*) noexcept;
using PutFunction = size_t (*)(char32_t, char*) noexcept;

// Both directions: runs of shared bytes are copied, other characters read by next and written by put.
template <NextFunction kNext, PutFunction kPut, size_t kCharacterBytesMax>
size_t Change(std::string_view source, char* target, size_t target_bytes) noexcept {
  size_t position = 0, written = 0;
  while (position < source.size()) {
    const size_t run =
        PlainRun(source.data() + position, std::min(source.size() - position, target_bytes - written));
    CopyBytes(target + written, source.data() + position, run);
    position += run;
    written += run;
    if (position == source.size()) break;
    if (IsShared(ByteAt(source, position))) {
      if (written == target_bytes) break;
      target[written++] = source[position++];
      continue;
    }
    char character[kCharacterBytesMax];
    const size_t character_bytes = kPut(kNext(source, &position), character);
    if (character_bytes > target_bytes - written) break;
    CopyBytes(target + written, character, character_bytes);
    written += character_bytes;
  }
  return written;
}

// No byte of a source becomes more than three: a Latin-1 byte two of UTF-8, a cut-off prefix three; a UTF-8
// sequence of two bytes three.
constexpr size_t kGrowth = 3;

template <auto kChange>
std::string Changed(std::string_view source) {
  if (source.size() > std::numeric_limits<size_t>::max() / kGrowth) Fail(status::kNoMemory);
  std::string target(source.size() * kGrowth, '\0');
  target.resize(kChange(source, target.data(), target.size()));
  return target;
}

using CaseFunction = int32_t (*)(UChar*, int32_t, const UChar*, int32_t, const char*, UErrorCode*);

std::string ChangeCase(std::string_view text, CaseFunction change) {
  const std::u16string source = Utf16FromEngine(text);
  if (source.size() > std::numeric_limits<int32_t>::max() / 3) Fail(status::kTextTooLong);
  std::u16string target(source.size() * 3, u'\0');  // no character becomes more than three
  UErrorCode error = U_ZERO_ERROR;
  const int32_t target_units = change(target.data(), static_cast<int32_t>(target.size()), source.data(),
                                      static_cast<int32_t>(source.size()), "", &error);
  if (U_FAILURE(error)) Fail(status::kInternal);
  return EngineFromUtf16(std::u16string_view(target.data(), static_cast<size_t>(target_units)));
}

}  // namespace

char32_t NextEngineCharacter(std::string_view text, size_t* position) noexcept {
  if (SequenceBytes(text[*position]) != 1) return NextSequence(text, position);
  return ByteAt(text, (*position)++);
}

char32_t NextUtf8Character(std::string_view text, size_t* position) noexcept {
  char32_t character = ByteAt(text, *position);
  const size_t width = character < 0x80 ? 1 : Utf8SequenceBytes(text, *position, &character);
  *position += width == 0 ? 1 : width;
  return character;
}

char32_t NextCharacter(std::string_view text, size_t* position) noexcept {
  return ByteAt(text, *position) < 0x80 ? NextEngineCharacter(text, position)
                                        : NextUtf8Character(text, position);
}

size_t PutEngineCharacter(char32_t character, char* target) noexcept {
  if (character > kCharacterMax || IsHalf(character)) character = kUnknownCharacter;
  if (character < 0x100 && (character >= 0x80 || IsShared(character))) {
    target[0] = static_cast<char>(character);
    return 1;
  }
  if (character <= kEngineSingleSequenceMax) return PutSequence(character, target);
  const char32_t above = character - 0x10000;
  PutSequence(0xd800 | above >> 10, target);
  PutSequence(0xdc00 | (above & 0x3ff), target + 3);
  return 6;
}

size_t PutUtf8Character(char32_t character, char* target) noexcept {
  if (character > kCharacterMax || IsHalf(character)) character = kUnknownCharacter;
  if (character < 0x80) {
    target[0] = static_cast<char>(character);
    return 1;
  }
  const size_t width = character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
  constexpr unsigned kFirst[] = {0, 0, 0xc0, 0xe0, 0xf0};
  for (size_t index = width - 1; index > 0; --index, character >>= 6)
    target[index] = static_cast<char>(0x80 | (character & 0x3f));
  target[0] = static_cast<char>(kFirst[width] | character);
  return width;
}

size_t CountCharacters(std::string_view text) noexcept {
  size_t count = 0;
  for (size_t position = 0; position < text.size(); ++count) NextCharacter(text, &position);
  return count;
}

size_t CharacterPosition(std::string_view text, size_t character_index) noexcept {
  size_t position = 0;
  while (character_index-- != 0 && position < text.size()) NextCharacter(text, &position);
  return position;
}

size_t Utf8ToEngine(std::string_view source, char* target, size_t target_bytes) noexcept {
  return Change<NextUtf8Character, PutEngineCharacter, kEngineCharacterBytesMax>(source, target,
                                                                                 target_bytes);
}

size_t EngineToUtf8(std::string_view source, char* target, size_t target_bytes) noexcept {
  return Change<NextEngineCharacter, PutUtf8Character, kUtf8CharacterBytesMax>(source, target, target_bytes);
}

std::string EngineFromUtf8(std::string_view utf8) { return Changed<Utf8ToEngine>(utf8); }
std::string Utf8FromEngine(std::string_view text) { return Changed<EngineToUtf8>(text); }

std::u16string Utf16FromEngine(std::string_view text) {
  std::u16string utf16;
  utf16.reserve(text.size());
  for (size_t position = 0; position < text.size();) {
    const char32_t character = NextCharacter(text, &position);
    if (character < 0x10000) {
      utf16.push_back(static_cast<char16_t>(character));
    } else {
      utf16.push_back(static_cast<char16_t>(0xd800 | (character - 0x10000) >> 10));
      utf16.push_back(static_cast<char16_t>(0xdc00 | (character & 0x3ff)));
    }
  }
  return utf16;
}

std::string EngineFromUtf16(std::u16string_view utf16) {
  std::string text;
  text.reserve(utf16.size());
  for (size_t index = 0; index < utf16.size(); ++index) {
    char32_t character = utf16[index];
    if (IsHighHalf(character) && index + 1 < utf16.size() && IsLowHalf(utf16[index + 1]))
      character = Joined(character, utf16[++index]);
    char bytes[kEngineCharacterBytesMax];
    text.append(bytes, PutEngineCharacter(character, bytes));
  }
  return text;
}

bool IsPlainAscii(std::string_view text) noexcept {
  const size_t run = PlainRun(text.data(), text.size());
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(run), text.end(),
                     [](char byte) { return IsShared(static_cast<unsigned char>(byte)); });
}

std::string UpperCase(std::string_view text) {
  if (!IsPlainAscii(text)) return ChangeCase(text, u_strToUpper);
  std::string upper(text);
  for (char& byte : upper) byte = UpperByte(byte);
  return upper;
}

std::string LowerCase(std::string_view text) {
  return IsPlainAscii(text) ? Folded(text) : ChangeCase(text, u_strToLower);
}

}  // namespace brynd
