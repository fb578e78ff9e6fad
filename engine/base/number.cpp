// A number is first taken apart into sign, integer digits, fraction digits and exponent, then written with
// the signs of a place.
#include "base/number.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "base/bounded_text.h"
#include "base/text.h"

namespace brynd {
namespace {

constexpr int kGeneralDigitsMax = 15;      // what every double keeps of a decimal number
constexpr double kPlainIntegerEnd = 1e15;  // whole numbers below have at most that many digits
// Smaller ones are written with an exponent, as are those of 15 digits and more.
constexpr int kFixedExponentMin = -4;
// Sign, the integer digits of the largest double, point, 255 digits, exponent.
constexpr size_t kScratchBytes = 1 + 309 + 1 + 255 + 8;

struct NumberParts {
  bool negative = false;
  bool finite = true;
  std::string_view integer;   // digits; for what is not finite a word
  std::string_view fraction;  // digits, may be empty
  std::string_view exponent;  // sign and digits, may be empty
};

struct Decimal {
  char digits[kGeneralDigitsMax + 2];  // no zeros at the end
  int digit_count = 0;
  int exponent = 0;  // of the first digit
};

int ParseExponent(std::string_view text) noexcept {
  int exponent = 0;
  for (const char digit : text.substr(1)) exponent = exponent * 10 + (digit - '0');
  return text.front() == '-' ? -exponent : exponent;
}

// Takes d.ddde+xx apart. False when it has more digits than the general form shows.
bool ReadScientific(std::string_view text, Decimal* decimal) noexcept {
  const size_t mark = text.find('e');
  const size_t fraction_digits = mark > 2 ? mark - 2 : 0;
  if (1 + fraction_digits > size_t{kGeneralDigitsMax}) return false;
  decimal->digits[0] = text[0];
  if (fraction_digits != 0) std::memcpy(decimal->digits + 1, text.data() + 2, fraction_digits);
  decimal->digit_count = static_cast<int>(1 + fraction_digits);
  decimal->exponent = ParseExponent(text.substr(mark + 1));
  while (decimal->digit_count > 1 && decimal->digits[decimal->digit_count - 1] == '0') --decimal->digit_count;
  return true;
}

// The digits of a positive number, rounded to 15. The shortest digits that mean the number are those whenever
// they are no more than 15, and are found sooner than an exact rounding.
Decimal DecimalOf(double number) noexcept {
  char text[40];
  Decimal decimal;
  auto result = std::to_chars(text, text + sizeof text, number, std::chars_format::scientific);
  if (number >= std::numeric_limits<double>::min() &&
      ReadScientific({text, static_cast<size_t>(result.ptr - text)}, &decimal))
    return decimal;
  result =
      std::to_chars(text, text + sizeof text, number, std::chars_format::scientific, kGeneralDigitsMax - 1);
  ReadScientific({text, static_cast<size_t>(result.ptr - text)}, &decimal);
  return decimal;
}

std::string_view WriteExponent(int exponent, char* target) noexcept {
  char* at = target;
  *at++ = exponent < 0 ? '-' : '+';
  const int size = exponent < 0 ? -exponent : exponent;
  if (size < 10) *at++ = '0';
  at = std::to_chars(at, at + 4, size).ptr;
  return {target, static_cast<size_t>(at - target)};
}

// Lays digits out in scratch; zeros are put in where the point lies beyond them.
NumberParts LayOutGeneral(const Decimal& decimal, char* scratch) noexcept {
  NumberParts parts;
  const auto digit_count = static_cast<size_t>(decimal.digit_count);
  const bool plain = decimal.exponent >= kFixedExponentMin && decimal.exponent < kGeneralDigitsMax;
  const int point = plain ? decimal.exponent + 1 : 1;  // digits before the point
  if (point <= 0) {
    const auto zeros = static_cast<size_t>(-point);
    scratch[0] = '0';
    std::memset(scratch + 1, '0', zeros);
    std::memcpy(scratch + 1 + zeros, decimal.digits, digit_count);
    parts.integer = {scratch, 1};
    parts.fraction = {scratch + 1, zeros + digit_count};
    return parts;
  }
  const auto integer_count = static_cast<size_t>(point);
  std::memset(scratch, '0', integer_count);
  std::memcpy(scratch, decimal.digits, digit_count);
  parts.integer = {scratch, integer_count};
  if (digit_count > integer_count) parts.fraction = {scratch + integer_count, digit_count - integer_count};
  if (!plain) parts.exponent = WriteExponent(decimal.exponent, scratch + 2 * kGeneralNumberBytesMax);
  return parts;
}

NumberParts GeneralParts(double size, char* scratch) noexcept {
  if (size < kPlainIntegerEnd) {
    const auto whole = static_cast<uint64_t>(size);
    if (static_cast<double>(whole) == size) {
      const char* end = std::to_chars(scratch, scratch + kScratchBytes, whole).ptr;
      return {.integer = {scratch, static_cast<size_t>(end - scratch)}, .fraction = {}, .exponent = {}};
    }
  }
  return LayOutGeneral(DecimalOf(size), scratch);
}

NumberParts PrecisionParts(double size, std::chars_format form, int digit_count, char* scratch) noexcept {
  const auto result = std::to_chars(scratch, scratch + kScratchBytes, size, form, digit_count);
  const std::string_view text(scratch, static_cast<size_t>(result.ptr - scratch));
  NumberParts parts;
  const size_t mark = form == std::chars_format::scientific ? text.find('e') : std::string_view::npos;
  if (mark != std::string_view::npos) parts.exponent = text.substr(mark + 1);
  const std::string_view mantissa = text.substr(0, mark);
  const size_t point = mantissa.find('.');
  parts.integer = mantissa.substr(0, point);
  if (point != std::string_view::npos) parts.fraction = mantissa.substr(point + 1);
  return parts;
}

bool OnlyZeros(std::string_view digits) noexcept {
  return digits.find_first_not_of('0') == std::string_view::npos;
}

// Takes a number apart; scratch holds kScratchBytes and must live as long as the parts.
NumberParts PartsOf(double number, NumberStyle style, int digit_count, char* scratch) noexcept {
  const double size = std::fabs(number);
  NumberParts parts;
  if (std::isnan(number)) {
    parts.integer = "NaN";
    parts.finite = false;
    return parts;
  }
  if (std::isinf(number)) {
    parts.integer = "Infinity";
    parts.finite = false;
  } else if (style == NumberStyle::kGeneral) {
    parts = GeneralParts(size, scratch);
  } else {
    const bool scientific = style == NumberStyle::kScientific;
    parts = PrecisionParts(size, scientific ? std::chars_format::scientific : std::chars_format::fixed,
                           digit_count, scratch);
  }
  // What is rounded to zero has no sign.
  parts.negative = std::signbit(number) && (!OnlyZeros(parts.integer) || !OnlyZeros(parts.fraction));
  return parts;
}

void PutInteger(std::string_view digits, std::string_view separator, BoundedText* out) noexcept {
  if (separator.empty()) return out->Put(digits);
  size_t group = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  for (size_t position = 0; position < digits.size(); position += group, group = 3) {
    if (position != 0) out->Put(separator);
    out->Put(digits.substr(position, group));
  }
}

void PutDigits(const INTLFORMAT& intl, bool thousands, const NumberParts& parts, BoundedText* out) noexcept {
  const bool separated = thousands && parts.finite && parts.exponent.empty();
  const bool hidden_zero =
      (intl.Flags & BRINTL_LEADING_ZERO) == 0 && parts.integer == "0" && !parts.fraction.empty();
  if (!hidden_zero)
    PutInteger(parts.integer, separated ? FieldText(intl.ThousandString) : std::string_view(), out);
  if (!parts.fraction.empty()) {
    const std::string_view sign = FieldText(intl.DecimalString);
    out->Put(sign.empty() ? std::string_view(".") : sign);
    out->Put(parts.fraction);
  }
  if (!parts.exponent.empty()) {
    out->Put('E');
    out->Put(parts.exponent);
  }
}

}  // namespace

size_t GeneralNumberText(double number, char* target) noexcept {
  char scratch[kScratchBytes];
  const NumberParts parts = PartsOf(number, NumberStyle::kGeneral, 0, scratch);
  BoundedText out({target, kGeneralNumberBytesMax});
  if (parts.negative) out.Put('-');
  out.Put(parts.integer);
  if (!parts.fraction.empty()) {
    out.Put('.');
    out.Put(parts.fraction);
  }
  if (!parts.exponent.empty()) {
    out.Put('E');
    out.Put(parts.exponent);
  }
  return out.Size();
}

EngStatus NumberToText(const INTLFORMAT& intl, const NFMT& format, double number, std::span<char> text,
                       size_t* text_bytes) noexcept {
  if (format.Format > static_cast<uint8_t>(NumberStyle::kCurrency)) return status::kBadFormat;
  const auto style = static_cast<NumberStyle>(format.Format);
  const bool currency = style == NumberStyle::kCurrency, percent = (format.Attributes & kNumberPercent) != 0;
  char scratch[kScratchBytes];
  const NumberParts parts = PartsOf(percent ? number * 100 : number, style,
                                    currency ? intl.CurrencyDigits : format.Digits, scratch);
  const bool parentheses = parts.negative && (format.Attributes & kNumberParentheses) != 0;
  const bool suffix = (intl.Flags & BRINTL_CURRENCY_SUFFIX) != 0,
             blank = (intl.Flags & BRINTL_CURRENCY_SPACE) != 0;
  BoundedText out(text);
  if (parts.negative) out.Put(parentheses ? '(' : '-');
  if (currency && !suffix) {
    out.Put(FieldText(intl.CurrencyString));
    if (blank) out.Put(' ');
  }
  PutDigits(intl, (format.Attributes & kNumberThousands) != 0, parts, &out);
  if (percent) out.Put('%');
  if (currency && suffix) {
    if (blank) out.Put(' ');
    out.Put(FieldText(intl.CurrencyString));
  }
  if (parentheses) out.Put(')');
  if (out.Full()) return status::kTextTooLong;
  *text_bytes = out.Size();
  return status::kOk;
}

namespace {

// The decimal exponent of a number that from_chars found out of range, only good enough for its sign: the
// place of the first digit that is not 0, plus the written exponent, which is cut off where it can't matter
// any more.
int64_t RoughExponent(std::string_view number) noexcept {
  constexpr int64_t kExponentEnd = int64_t{1} << 40;
  int64_t place = 0, exponent = 0;
  bool seen = false, behind_point = false;
  size_t index = 0;
  for (; index < number.size() && (IsDigit(number[index]) || number[index] == '.'); ++index) {
    if (number[index] == '.') {
      behind_point = true;
      continue;
    }
    if (seen && behind_point) continue;
    seen = seen || number[index] != '0';
    if (seen && !behind_point) ++place;
    if (!seen && behind_point) --place;
  }
  if (index == number.size()) return place;
  const bool negative = number[index + 1] == '-';
  for (++index; index < number.size(); ++index)
    if (IsDigit(number[index]) && exponent < kExponentEnd) exponent = exponent * 10 + (number[index] - '0');
  return place + (negative ? -exponent : exponent);
}

}  // namespace

NumberParse ParseNumber(std::string_view text, double* number, size_t* used) noexcept {
  *number = 0;
  *used = 0;
  const size_t sign_bytes = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  const std::string_view digits = text.substr(sign_bytes);
  const bool starts = !digits.empty() &&
                      (IsDigit(digits[0]) || (digits.size() > 1 && digits[0] == '.' && IsDigit(digits[1])));
  if (!starts) return NumberParse::kNone;
  double size = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), size);
  const auto digit_bytes = static_cast<size_t>(result.ptr - digits.data());
  bool overflow = std::isinf(size);
  if (result.ec == std::errc::result_out_of_range) {
    overflow = RoughExponent(digits.substr(0, digit_bytes)) > 0;
    size = 0;
  }
  if (overflow) size = std::numeric_limits<double>::infinity();
  *number = sign_bytes == 1 && text[0] == '-' ? -size : size;
  *used = sign_bytes + digit_bytes;
  return overflow ? NumberParse::kOverflow : NumberParse::kNumber;
}

std::optional<double> ParseWholeNumber(std::string_view text) noexcept {
  text = TrimBlanks(text);
  double number = 0;
  size_t used = 0;
  if (ParseNumber(text, &number, &used) != NumberParse::kNumber || used != text.size()) return std::nullopt;
  return number;
}

std::optional<uint64_t> ParseWholeUnsigned(std::string_view text, uint64_t limit) noexcept {
  uint64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size() || number > limit)
    return std::nullopt;
  return number;
}

}  // namespace brynd
