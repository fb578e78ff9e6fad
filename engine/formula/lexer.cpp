#include "formula/lexer.h"

#include "base/number.h"
#include "base/text.h"
#include "formula/time_text.h"

namespace brynd::formula {

namespace {

constexpr std::string_view kSelectToken = "@@SELECT@@";

bool IsNameStart(char letter) {
  const unsigned char byte = static_cast<unsigned char>(letter);
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || letter == '_' || letter == '$' ||
         byte >= 0x80;
}

// Longest first, so that the first row that fits is the operator.
struct SymbolRow {
  std::string_view text;
  TokenKind kind;
  Op op;
};
constexpr SymbolRow kSymbols[] = {
    {"*<>", TokenKind::kOperator, Op::kNotEqualAll},
    {"*<=", TokenKind::kOperator, Op::kLessEqualAll},
    {"*>=", TokenKind::kOperator, Op::kGreaterEqualAll},
    {"*+", TokenKind::kOperator, Op::kAddAll},
    {"*-", TokenKind::kOperator, Op::kSubtractAll},
    {"**", TokenKind::kOperator, Op::kMultiplyAll},
    {"*/", TokenKind::kOperator, Op::kDivideAll},
    {"*=", TokenKind::kOperator, Op::kEqualAll},
    {"*<", TokenKind::kOperator, Op::kLessAll},
    {"*>", TokenKind::kOperator, Op::kGreaterAll},
    {"<>", TokenKind::kOperator, Op::kNotEqual},
    {"!=", TokenKind::kOperator, Op::kNotEqual},
    {"<=", TokenKind::kOperator, Op::kLessEqual},
    {">=", TokenKind::kOperator, Op::kGreaterEqual},
    {":=", TokenKind::kAssign, Op::kEnd},
    {":", TokenKind::kOperator, Op::kList},
    {"*", TokenKind::kOperator, Op::kMultiply},
    {"/", TokenKind::kOperator, Op::kDivide},
    {"+", TokenKind::kOperator, Op::kAdd},
    {"-", TokenKind::kOperator, Op::kSubtract},
    {"=", TokenKind::kOperator, Op::kEqual},
    {"<", TokenKind::kOperator, Op::kLess},
    {">", TokenKind::kOperator, Op::kGreater},
    {"&", TokenKind::kOperator, Op::kAnd},
    {"|", TokenKind::kOperator, Op::kOr},
    {"!", TokenKind::kNot, Op::kNot},
    {"(", TokenKind::kOpen, Op::kEnd},
    {")", TokenKind::kClose, Op::kEnd},
    {";", TokenKind::kSemicolon, Op::kEnd},
};

// Options of functions, written in brackets: [CN] is the text "[CN]".
constexpr std::string_view kOptions[] = {
    "A",
    "Abbreviate",
    "AccessLevel",
    "Ascending",
    "C",
    "Canonicalize",
    "CN",
    "Descending",
    "DropFirstVowel",
    "DropVowels",
    "FailSilent",
    "G",
    "HierarchyOnly",
    "I",
    "IgnoreAccents",
    "IgnoreCase",
    "LevelName",
    "NoCache",
    "O",
    "OU1",
    "OU2",
    "OU3",
    "OU4",
    "P",
    "PartialMatch",
    "Q",
    "ReturnDocumentUniqueID",
    "S",
    "ToKeyword",
    "TrimPunct",
    "TrimWhite",
    "TryFit",
};

bool IsOption(std::string_view word) {
  for (const std::string_view option : kOptions)
    if (EqualFold(option, word)) return true;
  return false;
}

}  // namespace

size_t NameBytesAt(std::string_view source, size_t position) {
  size_t at = position;
  while (at < source.size()) {
    const char letter = source[at];
    const bool inside = at > position && (IsDigit(letter) || letter == '.');
    const bool sequence = SequenceBytes(letter) == 3 && source.size() - at >= 3;
    if (sequence)
      at += 3;
    else if (IsNameStart(letter) || inside)
      ++at;
    else
      break;
  }
  return at - position;
}

void LineAndColumn(std::string_view source, size_t offset, uint32_t* line, uint32_t* column) {
  *line = 1;
  *column = 1;
  for (size_t at = 0; at < offset && at < source.size(); at += CharacterBytes(source, at)) {
    const bool pair = source[at] == '\r' && at + 1 < source.size() && source[at + 1] == '\n';
    const bool ends = (source[at] == '\n' || source[at] == '\r' || source[at] == 0) && !pair;
    *column = ends ? 1 : *column + 1;
    *line += ends;
  }
}

bool Lexer::Skip() {
  // Text items keep their lines apart by NUL, and a formula may come from one.
  while (at_ < source_.size() && (IsBlank(source_[at_]) || source_[at_] == 0)) ++at_;
  return at_ < source_.size();
}

EngStatus Lexer::Finish(Token* token, TokenKind kind, size_t end) {
  token->kind = kind;
  token->place.length = static_cast<uint32_t>(end - token->place.offset);
  at_ = end;
  return status::kOk;
}

EngStatus Lexer::Refuse(Token* token, EngStatus status, size_t end) {
  Finish(token, TokenKind::kEnd, end);
  return status;
}

EngStatus Lexer::Next(Token* token) {
  const bool more = Skip();
  token->place = {static_cast<uint32_t>(at_), 0};
  token->text.clear();
  token->function = -1;
  if (!more) return Finish(token, TokenKind::kEnd, at_);
  const char first = source_[at_];
  const bool point = first == '.' && at_ + 1 < source_.size() && IsDigit(source_[at_ + 1]);
  if (IsDigit(first) || point) return Number(token);
  if (first == '"') return QuotedText(token);
  if (first == '{') return BracedText(token);
  if (first == '[') return Time(token);
  if (first == '@') return Function(token);
  const size_t bytes = NameBytesAt(source_, at_);
  if (bytes == 0) return Symbol(token);
  token->name = source_.substr(at_, bytes);
  if (EqualFold(token->name, "SELECT") || EqualFold(token->name, "CHOIX"))
    return Finish(token, TokenKind::kSelect, at_ + bytes);
  if (bytes > kNameBytesMax) return Refuse(token, status::kFormulaName, at_ + bytes);
  return Finish(token, TokenKind::kName, at_ + bytes);
}

EngStatus Lexer::Number(Token* token) {
  size_t used = 0;
  const NumberParse parse = ParseNumber(source_.substr(at_), &token->number, &used);
  if (parse != NumberParse::kNumber)
    return Refuse(token, status::kFormulaNumber, at_ + (used == 0 ? 1 : used));
  return Finish(token, TokenKind::kNumber, at_ + used);
}

EngStatus Lexer::QuotedText(Token* token) {
  size_t at = at_ + 1;
  while (at < source_.size() && source_[at] != '"') {
    if (source_[at] == '\\' && at + 1 < source_.size()) ++at;
    token->text += source_[at++];
  }
  if (at == source_.size()) return Refuse(token, status::kFormulaText, at);
  return Finish(token, TokenKind::kText, at + 1);
}

EngStatus Lexer::BracedText(Token* token) {
  const size_t end = source_.find('}', at_);
  if (end == std::string_view::npos) return Refuse(token, status::kFormulaText, source_.size());
  token->text = source_.substr(at_ + 1, end - at_ - 1);
  return Finish(token, TokenKind::kText, end + 1);
}

EngStatus Lexer::Time(Token* token) {
  const size_t end = source_.find(']', at_);
  if (end == std::string_view::npos) return Refuse(token, status::kFormulaTime, source_.size());
  if (IsOption(source_.substr(at_ + 1, end - at_ - 1))) {
    token->text = source_.substr(at_, end + 1 - at_);
    return Finish(token, TokenKind::kText, end + 1);
  }
  if (!ReadTime(IntlFromSettings(), source_.substr(at_ + 1, end - at_ - 1), &token->time))
    return Refuse(token, status::kFormulaTime, end + 1);
  return Finish(token, TokenKind::kTime, end + 1);
}

EngStatus Lexer::Function(Token* token) {
  if (StartsWithFold(source_.substr(at_), kSelectToken))
    return Finish(token, TokenKind::kSelect, at_ + kSelectToken.size());
  if (source_.substr(at_, 2) == "@@") {
    const size_t end = source_.find("@@", at_ + 2);
    const size_t digits_end = end == std::string_view::npos ? at_ + 2 : end;
    const auto number = ParseWholeUnsigned(source_.substr(at_ + 2, digits_end - at_ - 2), 0xffff);
    if (!number.has_value() || !IsDigit(source_[at_ + 2]))
      return Refuse(token, status::kFormulaNoFunction, digits_end);
    token->function = static_cast<int32_t>(*number);
    token->name = {};
    return Finish(token, TokenKind::kFunction, digits_end + 2);
  }
  const size_t bytes = NameBytesAt(source_, at_ + 1);
  if (bytes == 0) return Refuse(token, status::kFormulaNoFunction, at_ + 1);
  token->name = source_.substr(at_ + 1, bytes);
  return Finish(token, TokenKind::kFunction, at_ + 1 + bytes);
}

EngStatus Lexer::Symbol(Token* token) {
  for (const SymbolRow& row : kSymbols) {
    if (source_.substr(at_, row.text.size()) != row.text) continue;
    token->op = row.op;
    return Finish(token, row.kind, at_ + row.text.size());
  }
  return Refuse(token, status::kFormulaSyntax, at_ + CharacterBytes(source_, at_));
}

}  // namespace brynd::formula
