// Between texts and other values: @Text and its formats, numbers and times from texts.
#include "base/number.h"
#include "base/text.h"
#include "base/time.h"
#include "formula/functions.h"
#include "formula/time_text.h"

namespace brynd::formula {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

// What a format asks for, of numbers and of times. Letters are taken in any order; blanks and commas between
// them are allowed where a comma does not ask for thousands.
struct TextFormat {
  NFMT number{0, static_cast<uint8_t>(NumberStyle::kGeneral), 0, 0};
  TFMT time{0, 0, static_cast<uint8_t>(ZoneStyle::kNever), static_cast<uint8_t>(TimeStructure::kBoth)};
};

// The digit behind a letter, at most that one; -1 when another one stands there, 0 when none does.
int DigitBehind(std::string_view format, size_t* at, int most) {
  if (*at >= format.size() || !IsDigit(format[*at])) return 0;
  const int digit = format[(*at)++] - '0';
  return digit <= most ? digit : -1;
}

bool ReadDecimals(std::string_view format, size_t* at, NFMT* number) {
  int decimals = 0;
  bool any = false;
  while (*at < format.size() && IsDigit(format[*at]) && decimals < 100) {
    decimals = decimals * 10 + (format[(*at)++] - '0');
    any = true;
  }
  if (decimals > 15) return false;
  if (any) number->Digits = static_cast<uint8_t>(decimals);
  return true;
}

bool ReadNumberFormat(std::string_view format, NFMT* number) {
  for (size_t at = 0; at < format.size();) {
    const char letter = UpperByte(format[at++]);
    NumberStyle style = NumberStyle::kGeneral;
    switch (letter) {
      case ',':
        number->Attributes |= kNumberThousands;
        continue;
      case '%':
        number->Attributes |= kNumberPercent;
        continue;
      case '(':
      case ')':
        number->Attributes |= kNumberParentheses;
        continue;
      case ' ':
        continue;
      case 'G':
        break;
      case 'F':
        style = NumberStyle::kFixed;
        break;
      case 'S':
        style = NumberStyle::kScientific;
        break;
      case 'C':
        style = NumberStyle::kCurrency;
        break;
      default:
        if (!IsDigit(letter)) return false;
        --at;
        if (!ReadDecimals(format, &at, number)) return false;
        continue;
    }
    number->Format = static_cast<uint8_t>(style);
    if ((style == NumberStyle::kFixed || style == NumberStyle::kScientific) && number->Digits == 0)
      number->Digits = 2;
    if (!ReadDecimals(format, &at, number)) return false;
  }
  return true;
}

bool ReadTimeFormat(std::string_view format, TFMT* time) {
  for (size_t at = 0; at < format.size();) {
    const char letter = UpperByte(format[at++]);
    uint8_t* field = nullptr;
    int most = 0;
    switch (letter) {
      case ' ':
      case ',':
        continue;
      case 'D':
        field = &time->Date;
        most = 3;
        break;
      case 'T':
        field = &time->Time;
        most = 1;
        break;
      case 'Z':
        field = &time->Zone;
        most = 2;
        break;
      case 'S':
        field = &time->Structure;
        most = 3;
        break;
      default:
        return false;
    }
    const int digit = DigitBehind(format, &at, most);
    if (digit < 0) return false;
    *field = static_cast<uint8_t>(digit);
  }
  return true;
}

void AppendHex(const void* bytes, size_t count, bool backwards, std::string* digits) {
  const unsigned char* const source = static_cast<const unsigned char*>(bytes);
  for (size_t index = 0; index < count; ++index) {
    const unsigned char byte = source[backwards ? count - 1 - index : index];
    *digits += kHexDigits[byte >> 4];
    *digits += kHexDigits[byte & 15];
  }
}

// Numbers from their highest byte on, times as ids are written, texts as they are.
Value HexText(Machine& machine, const Value& value, uint32_t index) {
  if (value.IsTime()) return machine.KeepText(HexOfTime(value.TimeAt(index)));
  std::string digits;
  const double number = value.IsNumber() ? value.NumberAt(index) : 0;
  if (value.IsNumber())
    AppendHex(&number, sizeof number, true, &digits);
  else
    AppendHex(value.TextAt(index).data(), value.TextAt(index).size(), false, &digits);
  return machine.KeepText(digits);
}

Value NumberAsText(Machine& machine, double number, const TextFormat& format) {
  char text[400];  // a fixed format of the largest double, with its separators, is longer than the usual room
  size_t text_bytes = 0;
  if (NumberToText(machine.Intl(), format.number, number, text, &text_bytes) != status::kOk)
    return BadArgument();
  return machine.KeepText({text, text_bytes});
}

Value TimeAsText(Machine& machine, const TIMEDATE& time, const TextFormat& format) {
  char text[kTimeTextBytesMax];
  size_t text_bytes = 0;
  if (TimeToText(machine.Intl(), format.time, time, text, &text_bytes) != status::kOk)
    return Value::Error(ErrorCode::kDomain);
  return machine.KeepText({text, text_bytes});
}

// The number of a text with the separators of this place; a sign of currency and a percent sign are
// understood.
std::optional<double> NumberOf(const INTLFORMAT& intl, std::string_view text) {
  text = TrimBlanks(text);
  const bool is_negative = text.starts_with('(') && text.ends_with(')');
  if (is_negative) text = text.substr(1, text.size() - 2);
  const bool is_percent = text.ends_with('%');
  if (is_percent) text.remove_suffix(1);
  const std::string_view currency = FieldText(intl.CurrencyString), thousand = FieldText(intl.ThousandString),
                         decimal = FieldText(intl.DecimalString);
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    const std::string_view rest = text.substr(at);
    if (!decimal.empty() && rest.starts_with(decimal))
      plain += '.', at += decimal.size();
    else if (!thousand.empty() && rest.starts_with(thousand))
      at += thousand.size();
    else if (!currency.empty() && rest.starts_with(currency))
      at += currency.size();
    else
      plain += text[at++];
  }
  const std::optional<double> number = ParseWholeNumber(plain);
  if (!number.has_value()) return std::nullopt;
  return (is_negative ? -*number : *number) / (is_percent ? 100 : 1);
}

Value ToNumber(Machine& machine, const Value& value) {
  if (value.IsNumber()) return value;
  return EachText(machine, value, [&](std::string_view text) {
    const std::optional<double> number = NumberOf(machine.Intl(), text);
    return number.has_value() ? Value::Number(*number) : Value::Error(ErrorCode::kNotANumber);
  });
}

Value ToTime(Machine& machine, const Value& value) {
  if (value.IsTime()) return value;
  return EachText(machine, value, [&](std::string_view text) {
    TIMEDATE time{};
    return ReadTime(machine.Intl(), text, &time) ? Value::Time(time) : Value::Error(ErrorCode::kNotATime);
  });
}

Value ToText(Machine& machine, const Value& value, std::string_view format) {
  if (value.IsText() && format.find('*') == format.npos) return value;
  return MakeEach(machine, value.Count(),
                  [&](uint32_t index) { return ValueText(machine, value, index, format); });
}

}  // namespace

Value ValueText(Machine& machine, const Value& value, uint32_t index, std::string_view format_text) {
  if (value.IsError()) return value;
  if (format_text.find('*') != format_text.npos) return HexText(machine, value, index);
  if (value.IsText()) return Value::Text(value.TextAt(index));
  TextFormat format;
  const bool is_format = value.IsNumber() ? ReadNumberFormat(format_text, &format.number)
                                          : ReadTimeFormat(format_text, &format.time);
  if (!is_format) return BadArgument();
  return value.IsNumber() ? NumberAsText(machine, value.NumberAt(index), format)
                          : TimeAsText(machine, value.TimeAt(index), format);
}

Value CallText(Machine& machine, std::span<const Value> arguments) {
  const std::optional<std::string_view> format =
      arguments.size() == 2 ? FirstText(arguments[1]) : std::string_view();
  return format.has_value() ? ToText(machine, arguments[0], *format) : WantsText();
}
Value CallToText(Machine& machine, std::span<const Value> arguments) {
  return ToText(machine, arguments[0], {});
}

Value CallTextToNumber(Machine& machine, std::span<const Value> arguments) {
  return ToNumber(machine, arguments[0]);
}
Value CallToNumber(Machine& machine, std::span<const Value> arguments) {
  return ToNumber(machine, arguments[0]);
}
Value CallTextToTime(Machine& machine, std::span<const Value> arguments) {
  return ToTime(machine, arguments[0]);
}
Value CallToTime(Machine& machine, std::span<const Value> arguments) { return ToTime(machine, arguments[0]); }

}  // namespace brynd::formula
