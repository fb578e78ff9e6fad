#include "formula/pattern.h"

#include <string>
#include <vector>

#include "base/charset.h"

namespace brynd::formula {

namespace {

std::u32string CharactersOf(std::string_view text) {
  std::u32string characters;
  characters.reserve(text.size());
  for (size_t at = 0; at < text.size();) characters += NextCharacter(text, &at);
  return characters;
}

// One element of a pattern: which characters it takes, and whether any number of them.
struct Element {
  enum class Kind : uint8_t { kLiteral, kAny, kSet } kind = Kind::kLiteral;
  bool is_run = false;
  bool is_negated = false;
  char32_t literal = 0;
  std::u32string set;  // pairs: first and last of a stretch

  bool Takes(char32_t character) const {
    if (kind == Kind::kAny) return true;
    if (kind == Kind::kLiteral) return character == literal;
    bool found = false;
    for (size_t index = 0; index < set.size(); index += 2)
      found |= character >= set[index] && character <= set[index + 1];
    return found != is_negated;
  }
};

// All ways to match are followed at once, as the set of elements that may come next, so that no pattern takes
// more than the product of both lengths.
class Matcher {
 public:
  Matcher(const std::u32string& text, const std::vector<Element>& elements)
      : text_(text), elements_(elements) {}

  bool Run() {
    std::vector<bool> states(elements_.size() + 1);
    states[0] = true;
    Close(&states);
    for (const char32_t character : text_) {
      if (steps_ > kPatternStepsMax) return false;
      std::vector<bool> next(states.size());
      for (size_t index = 0; index < elements_.size(); ++index) {
        if (!states[index] || !elements_[index].Takes(character)) continue;
        next[elements_[index].is_run ? index : index + 1] = true;
      }
      steps_ += states.size();
      states.swap(next);
      Close(&states);
    }
    return states.back();
  }

 private:
  // A run may be empty.
  void Close(std::vector<bool>* states) const {
    for (size_t index = 0; index < elements_.size(); ++index)
      if ((*states)[index] && elements_[index].is_run) (*states)[index + 1] = true;
  }

  const std::u32string& text_;
  const std::vector<Element>& elements_;
  size_t steps_ = 0;
};

class PatternReader {
 public:
  PatternReader(const std::u32string& text, const std::u32string& pattern) : text_(text), pattern_(pattern) {}

  Match Run() {
    bool result = false;
    bool is_valid = Term(&result);
    while (is_valid && at_ < pattern_.size()) {
      const char32_t sign = pattern_[at_++];
      bool other = false;
      is_valid = Term(&other);
      result = sign == U'&' ? result && other : result || other;
    }
    if (!is_valid) return Match::kBadPattern;
    return result ? Match::kYes : Match::kNo;
  }

 private:
  // One pattern with its ! signs, up to a & or | or the end.
  bool Term(bool* result) {
    bool is_negated = false;
    while (at_ < pattern_.size() && pattern_[at_] == U'!') {
      is_negated = !is_negated;
      ++at_;
    }
    std::vector<Element> elements;
    while (at_ < pattern_.size() && pattern_[at_] != U'&' && pattern_[at_] != U'|') {
      Element element;
      if (!Read(&element)) return false;
      elements.push_back(std::move(element));
    }
    *result = Matcher(text_, elements).Run() != is_negated;
    return true;
  }

  bool Read(Element* element) {
    const char32_t sign = pattern_[at_++];
    if (sign == U'+') {
      if (at_ == pattern_.size() || pattern_[at_] == U'+' || pattern_[at_] == U'*') return false;
      if (!Read(element)) return false;
      element->is_run = true;
      return true;
    }
    if (sign == U'?' || sign == U'*') {
      element->kind = Element::Kind::kAny;
      element->is_run = sign == U'*';
      return true;
    }
    if (sign == U'{') return ReadSet(element);
    element->literal = sign;
    if (sign != U'\\') return true;
    if (at_ == pattern_.size()) return false;
    element->literal = pattern_[at_++];
    return true;
  }

  bool ReadSet(Element* element) {
    element->kind = Element::Kind::kSet;
    if (at_ < pattern_.size() && pattern_[at_] == U'!') {
      element->is_negated = true;
      ++at_;
    }
    while (at_ < pattern_.size() && pattern_[at_] != U'}') {
      char32_t first = pattern_[at_++];
      if (first == U'\\' && at_ < pattern_.size()) first = pattern_[at_++];
      char32_t last = first;
      if (at_ + 1 < pattern_.size() && pattern_[at_] == U'-' && pattern_[at_ + 1] != U'}') {
        last = pattern_[at_ + 1];
        at_ += 2;
      }
      element->set += first;
      element->set += last;
    }
    return at_ < pattern_.size() && pattern_[at_++] == U'}';
  }

  const std::u32string& text_;
  const std::u32string& pattern_;
  size_t at_ = 0;
};

}  // namespace

Match MatchPattern(std::string_view text, std::string_view pattern) {
  const std::u32string characters = CharactersOf(text), signs = CharactersOf(pattern);
  return PatternReader(characters, signs).Run();
}

bool LikePattern(std::string_view text, std::string_view pattern, char32_t escape) {
  const std::u32string characters = CharactersOf(text), signs = CharactersOf(pattern);
  std::vector<Element> elements;
  for (size_t at = 0; at < signs.size(); ++at) {
    Element element;
    element.literal = signs[at];
    const bool is_escaped = escape != 0 && signs[at] == escape && at + 1 < signs.size();
    if (is_escaped)
      element.literal = signs[++at];
    else if (signs[at] == U'_' || signs[at] == U'%')
      element.kind = Element::Kind::kAny;
    element.is_run = !is_escaped && signs[at] == U'%';
    elements.push_back(std::move(element));
  }
  return Matcher(characters, elements).Run();
}

}  // namespace brynd::formula
