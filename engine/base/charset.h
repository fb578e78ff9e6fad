// The engine's character set: to and from code points, UTF-8 and UTF-16.
// One byte: 0x20..0x7f, tab, LF, CR are ASCII, 0x80..0xff Latin-1, NUL parts lines. A code point above 0xff
// up to 0x1ffff is three bytes: 0x10 + (cp >> 14), 0x80 | (cp >> 7 & 0x7f), 0x80 | (cp & 0x7f). Higher ones
// are the two halves of their surrogate pair, three bytes each. Other control characters are three-byte
// sequences too, so that nothing is lost.
// (1) Writing yields whole characters only.  (2) Reading takes any bytes; what is no character is U+FFFD.
// (3) Two-byte sequences are unknown characters: kept in place, read as U+FFFD.
#ifndef BRYND_BASE_CHARSET_H
#define BRYND_BASE_CHARSET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brynd {

inline constexpr char32_t kUnknownCharacter = 0xfffd;
inline constexpr size_t kEngineCharacterBytesMax = 6, kUtf8CharacterBytesMax = 4;

// The character at a position below text.size(), and the position behind it. Generous: bytes from 0x80 on
// that form valid UTF-8 are that character, others Latin-1.
char32_t NextCharacter(std::string_view text, size_t* position) noexcept;

// As above to the letter: bytes from 0x80 on are Latin-1 each.
char32_t NextEngineCharacter(std::string_view text, size_t* position) noexcept;

// The next character of UTF-8 text; a byte that belongs to no valid sequence is that Latin-1 character.
char32_t NextUtf8Character(std::string_view text, size_t* position) noexcept;

// Writes a character into room for at least kEngineCharacterBytesMax / kUtf8CharacterBytesMax bytes and
// returns the bytes used.
size_t PutEngineCharacter(char32_t character, char* target) noexcept;
size_t PutUtf8Character(char32_t character, char* target) noexcept;

// How many characters NextCharacter finds.
size_t CountCharacters(std::string_view text) noexcept;
// The byte position of the character of an index, or text.size() when there are fewer.
size_t CharacterPosition(std::string_view text, size_t character_index) noexcept;

// Changes a text into at most target_bytes bytes, without a terminator; characters that do not fit whole are
// left off. Returns the bytes written. source and target must not overlap.
size_t Utf8ToEngine(std::string_view source, char* target, size_t target_bytes) noexcept;
// Reads to the letter.
size_t EngineToUtf8(std::string_view source, char* target, size_t target_bytes) noexcept;

std::string EngineFromUtf8(std::string_view utf8);
std::string Utf8FromEngine(std::string_view text);      // reads to the letter
std::u16string Utf16FromEngine(std::string_view text);  // reads generously
std::string EngineFromUtf16(std::u16string_view utf16);

// Upper, lower and folded case by Unicode's rules, of text read generously; ASCII is quick.
std::string UpperCase(std::string_view text);
std::string LowerCase(std::string_view text);

// True when every byte is ASCII from 0x20 on, or tab, LF, CR, NUL: then UTF-8 and engine text are the same.
bool IsPlainAscii(std::string_view text) noexcept;

}  // namespace brynd

#endif
