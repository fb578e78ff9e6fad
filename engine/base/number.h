// Numbers as text and back, without locale and without allocation.
#ifndef BRYND_BASE_NUMBER_H
#define BRYND_BASE_NUMBER_H

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "base/status.h"
#include "brynd_types.h"

namespace brynd {

// Number styles of NFMT.Format and bits of NFMT.Attributes; stored with views and fields.
enum class NumberStyle : uint8_t { kGeneral = 0, kFixed = 1, kScientific = 2, kCurrency = 3 };
inline constexpr uint8_t kNumberThousands = 1, kNumberParentheses = 2, kNumberPercent = 4;

// Room that the general form of any number needs at most, sign and exponent included.
inline constexpr size_t kGeneralNumberBytesMax = 24;

// The general form with '.' as the decimal sign and a leading zero: up to 15 significant digits, no trailing
// zeros, "NaN", "Infinity". Writes into room of kGeneralNumberBytesMax and returns the bytes used.
size_t GeneralNumberText(double number, char* target) noexcept;

// A number in a format and the conventions of a place, into at most text.size() bytes without a terminator.
// Currency has intl.CurrencyDigits decimals; fixed and scientific format.Digits. Rounds to the nearest,
// halves that are exact to even. Returns 0, kBadFormat or kTextTooLong; text_bytes is set on success alone.
EngStatus NumberToText(const INTLFORMAT& intl, const NFMT& format, double number, std::span<char> text,
                       size_t* text_bytes) noexcept;

enum class NumberParse { kNone, kNumber, kOverflow };  // no number at the start; one; one beyond the doubles

// The plain decimal number at the start of text: an optional sign, digits with at most one '.', an optional
// exponent (only when digits follow it). No blanks, no hexadecimal, no "inf" or "nan". On kNumber and
// kOverflow *used is its length and *number its value (signed infinity on overflow; what is too small becomes
// 0 or a denormal); on kNone 0 both.
NumberParse ParseNumber(std::string_view text, double* number, size_t* used) noexcept;

// The number that the whole text is, blanks around it allowed; none otherwise.
std::optional<double> ParseWholeNumber(std::string_view text) noexcept;

// The unsigned decimal integer that the whole text is, at most limit; none otherwise.
std::optional<uint64_t> ParseWholeUnsigned(std::string_view text, uint64_t limit) noexcept;

}  // namespace brynd

#endif
