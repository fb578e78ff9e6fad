#include "fulltext/query.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/boundary.h"
#include "base/intl.h"
#include "base/number.h"
#include "base/text.h"
#include "formula/time_text.h"

namespace brynd::fulltext {

namespace {

enum class TokenKind : uint8_t {
  kEnd,
  kOpen,
  kClose,
  kAnd,
  kOr,
  kNot,
  kNear,
  kSentence,
  kParagraph,
  kExact,
  kWeight,
  kField,
  kWord,
  kQuoted
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  size_t place = 0;
  std::string_view text = {};  // of a word; between the marks of a phrase
};

struct Keyword {
  std::string_view text;
  TokenKind kind;
};

constexpr Keyword kKeywords[] = {
    {"and", TokenKind::kAnd},           {"or", TokenKind::kOr},
    {"not", TokenKind::kNot},           {"near", TokenKind::kNear},
    {"sentence", TokenKind::kSentence}, {"paragraph", TokenKind::kParagraph},
    {"exactcase", TokenKind::kExact},   {"termweight", TokenKind::kWeight},
    {"field", TokenKind::kField},
};

struct Operator {
  std::string_view text;
  Comparison comparison;
};

// Longer ones first.
constexpr Operator kComparisons[] = {
    {"<=", Comparison::kLessOrEqual}, {">=", Comparison::kGreaterOrEqual}, {"=", Comparison::kEqual},
    {"<", Comparison::kLess},         {">", Comparison::kGreater},
};

constexpr bool IsBlank(char byte) noexcept {
  return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r' || byte == '\0';
}
constexpr bool EndsWord(char byte) noexcept {
  return IsBlank(byte) || byte == '(' || byte == ')' || byte == '&' || byte == '|' || byte == '"';
}
constexpr bool IsWildcard(char byte) noexcept { return byte == '*' || byte == '?'; }

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  Node Whole() {
    Advance();
    Node root = ParseOr();
    if (token_.kind != TokenKind::kEnd) Refuse("a closing parenthesis without an opening one", token_.place);
    if (root.kind == NodeKind::kNothing) Refuse("no word to look for", 0);
    return root;
  }

  std::string_view RefusalText() const noexcept { return refusal_; }
  size_t RefusalPlace() const noexcept { return refusal_place_; }

 private:
  // What is wrong, and where; the parser has ended.
  [[noreturn]] void Refuse(std::string_view text, size_t place) {
    refusal_ = text;
    refusal_place_ = place;
    Fail(status::kFullTextQuery);
  }

  class Deeper {
   public:
    Deeper(Parser& parser, size_t place) : parser_(parser) {
      if (parser_.depth_ == kQueryDepthMax) parser_.Refuse("nested too deep", place);
      ++parser_.depth_;
    }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;
    ~Deeper() { --parser_.depth_; }

   private:
    Parser& parser_;
  };

  void SkipBlanks() {
    while (at_ < text_.size() && IsBlank(text_[at_])) ++at_;
  }

  void Advance() {
    SkipBlanks();
    token_ = Token{.place = at_};
    if (at_ == text_.size()) return;
    switch (text_[at_]) {
      case '(':
        return Single(TokenKind::kOpen);
      case ')':
        return Single(TokenKind::kClose);
      case '&':
        return Single(TokenKind::kAnd);
      case '|':
        return Single(TokenKind::kOr);
      case '!':
        return Single(TokenKind::kNot);
      case '"':
        return Quoted();
      default:
        break;
    }
    size_t end = at_;
    while (end < text_.size() && !EndsWord(text_[end])) ++end;
    token_ = {TokenKind::kWord, at_, text_.substr(at_, end - at_)};
    for (const Keyword& keyword : kKeywords)
      if (EqualFold(token_.text, keyword.text)) token_.kind = keyword.kind;
    at_ = end;
  }

  void Single(TokenKind kind) { token_ = {kind, at_++, {}}; }

  void Quoted() {
    const size_t end = text_.find('"', at_ + 1);
    if (end == std::string_view::npos) Refuse("a quotation mark that is not closed", at_);
    token_ = {TokenKind::kQuoted, at_, text_.substr(at_ + 1, end - at_ - 1)};
    at_ = end + 1;
  }

  Node Make(NodeKind kind, size_t place) {
    if (++node_count_ > kQueryNodesMax) Refuse("too long", place);
    Node node;
    node.kind = kind;
    node.place = place;
    return node;
  }

  // Joins two nodes; a chain of one kind that may be flat stays flat.
  Node Join(NodeKind kind, Node left, Node right, size_t place) {
    if (left.kind == NodeKind::kNothing) return right;
    if (right.kind == NodeKind::kNothing) return left;
    const bool flat = kind == NodeKind::kAnd || kind == NodeKind::kOr;
    if (flat && left.kind == kind) {
      left.children.push_back(std::move(right));
      return left;
    }
    Node node = Make(kind, place);
    node.children.push_back(std::move(left));
    node.children.push_back(std::move(right));
    return node;
  }

  Node ParseOr() {
    const Deeper deeper(*this, token_.place);
    Node left = ParseAnd();
    while (token_.kind == TokenKind::kOr) {
      const size_t place = token_.place;
      Advance();
      left = Join(NodeKind::kOr, std::move(left), ParseAnd(), place);
    }
    return left;
  }

  bool StartsPlain() const noexcept {
    return token_.kind == TokenKind::kOpen || token_.kind == TokenKind::kNot ||
           token_.kind >= TokenKind::kExact;
  }

  Node ParseAnd() {
    Node left = ParseClose();
    for (;;) {
      const size_t place = token_.place;
      if (token_.kind == TokenKind::kAnd)
        Advance();
      else if (!StartsPlain())
        return left;
      left = Join(NodeKind::kAnd, std::move(left), ParseClose(), place);
    }
  }

  Node ParseClose() {
    Node left = ParsePlain();
    for (uint32_t links = 0;; ++links) {
      NodeKind kind;
      if (token_.kind == TokenKind::kNear)
        kind = NodeKind::kNear;
      else if (token_.kind == TokenKind::kSentence)
        kind = NodeKind::kSentence;
      else if (token_.kind == TokenKind::kParagraph)
        kind = NodeKind::kParagraph;
      else
        return left;
      const size_t place = token_.place;
      if (links + depth_ >= kQueryDepthMax) Refuse("nested too deep", place);  // each link nests
      Advance();
      left = Join(kind, std::move(left), ParsePlain(), place);
    }
  }

  Node ParsePlain() {
    const Deeper deeper(*this, token_.place);
    const Token token = token_;
    switch (token.kind) {
      case TokenKind::kNot:
        return ParseNot(token.place);
      case TokenKind::kExact:
        return ParseExact();
      case TokenKind::kWeight:
        return ParseWeight();
      case TokenKind::kField:
        return ParseField();
      case TokenKind::kOpen:
        return ParseGroup(token.place);
      case TokenKind::kWord:
        Advance();
        return Phrase(token, true);
      case TokenKind::kQuoted:
        Advance();
        return Phrase(token, false);
      case TokenKind::kEnd:
        Refuse("the end, where a word should be", token.place);
      default:
        Refuse("an operator, where a word should be", token.place);
    }
  }

  Node ParseNot(size_t place) {
    Advance();
    Node child = ParsePlain();
    if (child.kind == NodeKind::kNothing) return child;
    Node node = Make(NodeKind::kNot, place);
    node.children.push_back(std::move(child));
    return node;
  }

  Node ParseExact() {
    Advance();
    const bool before = std::exchange(exact_, true);
    Node node = ParsePlain();
    exact_ = before;
    return node;
  }

  Node ParseWeight() {
    Advance();
    const auto weight =
        token_.kind == TokenKind::kWord ? ParseWholeUnsigned(token_.text, kWeightMax) : std::nullopt;
    if (!weight) Refuse("no weight from 0 to 65535", token_.place);
    Advance();
    const uint32_t before = std::exchange(weight_, static_cast<uint32_t>(*weight));
    Node node = ParsePlain();
    weight_ = before;
    return node;
  }

  Node ParseGroup(size_t place) {
    Advance();
    Node node = ParseOr();
    if (token_.kind != TokenKind::kClose) Refuse("a parenthesis that is not closed", place);
    Advance();
    return node;
  }

  Node ParseField() {
    const size_t place = token_.place;
    SkipBlanks();
    std::string_view name;
    if (at_ < text_.size() && text_[at_] == '"') {
      Quoted();
      name = token_.text;
    } else {
      const size_t begin = at_;
      while (at_ < text_.size() && !EndsWord(text_[at_]) && text_[at_] != '=' && text_[at_] != '<' &&
             text_[at_] != '>')
        ++at_;
      name = text_.substr(begin, at_ - begin);
    }
    if (name.empty() || name.size() > 255) Refuse("no name of a field", at_);
    if (in_field_) Refuse("a field within a field", place);
    SkipBlanks();
    for (const Operator& row : kComparisons)
      if (text_.substr(at_).starts_with(row.text)) return ParseComparison(name, row, place);
    const size_t operator_place = at_;
    Advance();
    if (token_.kind != TokenKind::kWord || !EqualFold(token_.text, "contains"))
      Refuse("neither 'contains' nor a comparison", operator_place);
    Advance();
    in_field_ = true;
    Node child = ParsePlain();
    in_field_ = false;
    if (child.kind == NodeKind::kNothing) return child;
    Node node = Make(NodeKind::kContains, place);
    node.field = name;
    node.children.push_back(std::move(child));
    return node;
  }

  Node ParseComparison(std::string_view name, const Operator& row, size_t place) {
    at_ += row.text.size();
    SkipBlanks();
    const size_t begin = at_;
    std::string_view value;
    if (at_ < text_.size() && text_[at_] == '"') {
      Quoted();
      value = token_.text;
    } else {
      while (at_ < text_.size() && !EndsWord(text_[at_])) ++at_;
      value = text_.substr(begin, at_ - begin);
      if (value.empty()) Refuse("no value to compare with", begin);
    }
    Advance();
    Node node = Make(NodeKind::kCompare, place);
    node.field = name;
    node.comparison = row.comparison;
    node.value = value;
    node.number = ParseWholeNumber(value);
    node.weight = weight_;
    TIMEDATE time;
    if (!node.number && formula::ReadTime(IntlFromSettings(), value, &time)) node.time = time;
    return node;
  }

  // A word with wildcards keeps them; whatever else parts words makes it a phrase.
  Node Phrase(const Token& token, bool wildcards) {
    Node node = Make(NodeKind::kPhrase, token.place);
    node.exact = exact_;
    node.weight = weight_;
    bool open = false;  // the last term goes on
    for (size_t at = 0; at < token.text.size();) {
      if (wildcards && IsWildcard(token.text[at])) {
        if (!open) node.terms.emplace_back();
        node.terms.back().text.push_back(token.text[at]);
        node.terms.back().pattern = open = true;
        ++at;
        continue;
      }
      size_t end = at;
      while (end < token.text.size() && !(wildcards && IsWildcard(token.text[end]))) ++end;
      const std::string_view piece = token.text.substr(at, end - at);
      bool goes_on = false;
      breaker_.Break(piece, [&](const FoundWord& word) {
        if (!open || word.begin != 0) node.terms.emplace_back();
        open = false;
        node.terms.back().text.append(node.exact ? word.exact : word.folded);
        goes_on = word.end == piece.size();
      });
      open = goes_on;
      at = end;
    }
    CheckTerms(node);
    if (node.terms.empty()) node.kind = NodeKind::kNothing;
    return node;
  }

  void CheckTerms(const Node& node) {
    for (const Term& term : node.terms) {
      if (term.text.size() > 2 * kWordBytesMax) Refuse("a word that is too long", node.place);
      if (term.pattern && std::ranges::all_of(term.text, IsWildcard)) Refuse("wildcards alone", node.place);
    }
  }

  const std::string_view text_;
  size_t at_ = 0;
  Token token_;
  uint32_t depth_ = 0, node_count_ = 0, weight_ = kPlainWeight;
  bool exact_ = false, in_field_ = false;
  WordBreaker breaker_;
  std::string_view refusal_;
  size_t refusal_place_ = 0;
};

void DropEmptyChildren(Node* node) {
  std::erase_if(node->children, [](const Node& child) { return child.kind == NodeKind::kNothing; });
  const bool single = node->kind == NodeKind::kNot || node->kind == NodeKind::kContains;
  if (node->children.empty()) {
    *node = Node{.place = node->place};
  } else if (node->children.size() == 1 && !single) {
    Node child = std::move(node->children.front());
    *node = std::move(child);
  }
}

constexpr std::string_view kKindNames[] = {"nothing", "phrase",   "and",       "or",       "not",
                                           "near",    "sentence", "paragraph", "contains", "compare"};
constexpr std::string_view kComparisonNames[] = {"=", "<", ">", "<=", ">="};

}  // namespace

ParsedQuery ParseQuery(std::string_view text) {
  ParsedQuery parsed;
  if (text.size() > kQueryBytesMax) {
    parsed.refusal = "too long";
    parsed.place = kQueryBytesMax;
    return parsed;
  }
  Parser parser(text);
  const EngStatus code = AtBoundary([&] { parsed.root = parser.Whole(); });
  if (code != status::kFullTextQuery) Check(code);
  parsed.refusal = parser.RefusalText();
  parsed.place = parser.RefusalPlace();
  return parsed;
}

void DropStopWords(Node* node, const StopWords& stop_words) {
  if (node->kind == NodeKind::kPhrase) {
    std::erase_if(node->terms, [&](const Term& term) {
      return !term.pattern && stop_words.Contains(node->exact ? FoldUtf8(term.text) : term.text);
    });
    if (node->terms.empty()) *node = Node{.place = node->place};
    return;
  }
  if (node->children.empty()) return;
  for (Node& child : node->children) DropStopWords(&child, stop_words);
  DropEmptyChildren(node);
}

std::string Explain(const Node& node) {
  if (node.kind == NodeKind::kPhrase) {
    std::string text = node.exact ? "exact" : "";
    if (node.weight != kPlainWeight) text += "^" + std::to_string(node.weight);
    for (const Term& term : node.terms)
      text.append(text.empty() ? "" : "_").append(term.text).append(term.pattern ? "~" : "");
    return text;
  }
  std::string text = "(";
  text += kKindNames[static_cast<size_t>(node.kind)];
  if (!node.field.empty()) text.append(" ").append(node.field);
  if (node.kind == NodeKind::kCompare)
    text.append(" ")
        .append(kComparisonNames[static_cast<size_t>(node.comparison)])
        .append(" ")
        .append(node.value);
  for (const Node& child : node.children) text.append(" ").append(Explain(child));
  return text + ")";
}

}  // namespace brynd::fulltext
