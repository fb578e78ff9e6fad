// Text of the engine as bytes: folding of case, comparison and hashing of names, walking over characters.
// A character is one byte, or a sequence that a prefix byte below 0x20 opens (see SequenceBytes).
// Names are compared by ASCII folding: bytes from 0x80 on, and so the insides of sequences, stand for
// themselves.
#ifndef BRYND_BASE_TEXT_H
#define BRYND_BASE_TEXT_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace brynd {

// Lower case of one ASCII letter; any other byte as it is.
constexpr char FoldByte(char byte) noexcept {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
}
constexpr char UpperByte(char byte) noexcept {
  return byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - ('a' - 'A')) : byte;
}

// FoldByte on eight bytes at once.
inline uint64_t FoldWord(uint64_t word) noexcept {
  constexpr uint64_t kOnes = 0x0101010101010101u;
  const uint64_t low = word & (0x7f * kOnes);
  const uint64_t from_a = low + (0x80 - 'A') * kOnes;      // bit 7: at least 'A'
  const uint64_t past_z = low + (0x80 - 'Z' - 1) * kOnes;  // bit 7: above 'Z'
  const uint64_t letters = (from_a & ~past_z & ~word) & (0x80 * kOnes);
  return word | (letters >> 2);  // 0x20 makes lower case
}

// The last bytes of a text, fewer than 8, as one word with zeros behind them.
inline uint64_t LoadTail(const char* source, size_t byte_count) noexcept {
  if (byte_count >= 4) {
    const uint64_t high = LoadU32(source + byte_count - 4);
    return LoadU32(source) | (high << ((byte_count - 4) * 8));
  }
  uint64_t word = 0;
  for (size_t index = 0; index < byte_count; ++index)
    word |= uint64_t{static_cast<unsigned char>(source[index])} << (index * 8);
  return word;
}

inline bool EqualFold(std::string_view left, std::string_view right) noexcept {
  size_t left_bytes = left.size();
  if (left_bytes != right.size()) return false;
  const char *a = left.data(), *b = right.data();
  for (; left_bytes >= 8; left_bytes -= 8, a += 8, b += 8)
    if (FoldWord(LoadU64(a)) != FoldWord(LoadU64(b))) return false;
  return FoldWord(LoadTail(a, left_bytes)) == FoldWord(LoadTail(b, left_bytes));
}

inline bool StartsWithFold(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() && EqualFold(text.substr(0, prefix.size()), prefix);
}

// Below, equal, above 0 as left stands before, beside, behind right; folded bytes as unsigned numbers.
int CompareFold(std::string_view left, std::string_view right) noexcept;

// Equal for texts that EqualFold finds equal. The same in every run of one build; not to be stored.
inline uint64_t HashFold(std::string_view text) noexcept {
  constexpr uint64_t kFactor = 0x9e3779b97f4a7c15u;
  uint64_t hash = text.size() * kFactor;
  const char* at = text.data();
  size_t left_bytes = text.size();
  for (; left_bytes >= 8; left_bytes -= 8, at += 8) {
    hash = (hash ^ FoldWord(LoadU64(at))) * kFactor;
    hash ^= hash >> 32;
  }
  hash = (hash ^ FoldWord(LoadTail(at, left_bytes))) * kFactor;
  return hash ^ (hash >> 29);
}

// For unordered containers keyed by names: std::unordered_map<std::string, V, FoldHash, FoldEqual>; look up
// by string_view without building a string.
struct FoldHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const noexcept { return static_cast<size_t>(HashFold(text)); }
};
struct FoldEqual {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const noexcept {
    return EqualFold(left, right);
  }
};
struct FoldLess {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const noexcept {
    return CompareFold(left, right) < 0;
  }
};

// ASCII lower case of a text.
std::string Folded(std::string_view text);

// Bytes of the sequence that each byte opens: 1, or 2 or 3 for a prefix.
constexpr std::array<uint8_t, 256> MakeSequenceBytes() {
  std::array<uint8_t, 256> widths{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    const bool control = byte == 0 || byte == '\t' || byte == '\n' || byte == '\r' || byte >= 0x20;
    widths[byte] = control ? 1 : (byte >= 0x10 && byte <= 0x17) ? 3 : 2;
  }
  return widths;
}
inline constexpr std::array<uint8_t, 256> kSequenceBytes = MakeSequenceBytes();

constexpr unsigned SequenceBytes(char first) noexcept {
  return kSequenceBytes[static_cast<unsigned char>(first)];
}

// Bytes of the character at a position below text.size(): a sequence cut off by the end of the text counts
// what is left.
inline size_t CharacterBytes(std::string_view text, size_t position) noexcept {
  const size_t width = SequenceBytes(text[position]), left = text.size() - position;
  return width < left ? width : left;
}

// The longest start of text of at most byte_limit bytes that ends between characters.
std::string_view CutText(std::string_view text, size_t byte_limit) noexcept;

// The place of a one-byte character outside sequences, from a position on; npos when there is none.
size_t FindCharacter(std::string_view text, char character, size_t position = 0) noexcept;

// Blanks, tabs and line ends of ASCII.
constexpr bool IsBlank(char byte) noexcept { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }
constexpr bool IsDigit(char byte) noexcept { return byte >= '0' && byte <= '9'; }
std::string_view TrimBlanks(std::string_view text) noexcept;

// The text in a field of fixed size that a NUL ends early or, in a full one, nothing does.
template <size_t kFieldBytes>
std::string_view FieldText(const char (&field)[kFieldBytes]) noexcept {
  const void* end = std::memchr(field, 0, kFieldBytes);
  return {field, end == nullptr ? kFieldBytes : static_cast<size_t>(static_cast<const char*>(end) - field)};
}

}  // namespace brynd

#endif
