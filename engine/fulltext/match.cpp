#include "fulltext/match.h"

#include <algorithm>
#include <compare>
#include <iterator>
#include <utility>

#include "base/boundary.h"
#include "base/collate.h"
#include "base/time.h"
#include "note/item_text.h"

namespace brynd::fulltext {

namespace {

constexpr size_t kStemsKept = 20000;

bool Holds(Comparison comparison, int order) noexcept {
  switch (comparison) {
    case Comparison::kEqual:
      return order == 0;
    case Comparison::kLess:
      return order < 0;
    case Comparison::kGreater:
      return order > 0;
    case Comparison::kLessOrEqual:
      return order <= 0;
    case Comparison::kGreaterOrEqual:
      return order >= 0;
  }
  return false;
}

// The single elements of a scalar, or of a list: word count, word count of ranges, elements.
template <class Element>
bool AnyElement(Bytes value, uint16_t list_type, auto&& holds) {
  ByteReader in(value);
  uint16_t count = 1;
  if (in.U16() == list_type) {
    count = in.U16();
    in.Skip(2);
  }
  for (uint16_t i = 0; i < count; ++i) {
    const Element element = in.Read<Element>();
    if (!in) return false;
    if (holds(element)) return true;
  }
  return false;
}

bool ValueHolds(const Node& node, uint16_t type, Bytes value) {
  switch (type) {
    case BRTYPE_NUMBER:
    case BRTYPE_NUMBER_RANGE:
      return node.number && AnyElement<double>(value, BRTYPE_NUMBER_RANGE, [&](double number) {
               const auto order = number <=> *node.number;
               if (order == std::partial_ordering::unordered) return false;
               return Holds(node.comparison, order < 0 ? -1 : order > 0 ? 1 : 0);
             });
    case BRTYPE_TIME:
    case BRTYPE_TIME_RANGE:
      return node.time && AnyElement<TIMEDATE>(value, BRTYPE_TIME_RANGE, [&](const TIMEDATE& time) {
               return Holds(node.comparison, InstantCompare(time, *node.time));
             });
    case BRTYPE_TEXT:
    case BRTYPE_TEXT_LIST: {
      const uint16_t count = TextEntryCount(value);
      for (uint16_t entry = 0; entry < count; ++entry) {
        const int order = CollateText(TextEntry(value, entry), node.value, {.ignore_case = true});
        if (Holds(node.comparison, order)) return true;
      }
      return false;
    }
    default:
      return false;
  }
}

void SortSpans(std::vector<Span>* spans) {
  std::ranges::sort(*spans, [](const Span& left, const Span& right) {
    return std::pair(left.first, left.last) < std::pair(right.first, right.last);
  });
}

}  // namespace

const NoteWords& Matcher::Words() {
  if (!read_) words_.Read(*view_);
  read_ = true;
  return words_;
}

uint32_t Matcher::WordCount() { return static_cast<uint32_t>(Words().Words().size()); }

std::string_view Matcher::StemOf(std::string_view word) {
  std::string key(word);
  if (const auto found = stem_of_.find(key); found != stem_of_.end()) return found->second;
  if (stem_of_.size() >= kStemsKept) stem_of_.clear();
  std::string stem(stemmer_.Stem(word));
  return stem_of_.emplace(std::move(key), std::move(stem)).first->second;
}

bool Matcher::MeetsTerm(const NoteWord& word, const Node& phrase, const Term& term) {
  const std::string_view text = phrase.exact ? words_.Exact(word) : words_.Folded(word);
  if (term.pattern) return MatchesPattern(text, term.text);
  if (text == term.text) return true;
  if (!stems_ || phrase.exact) return false;
  const std::string stem(StemOf(term.text));
  return StemOf(text) == stem;
}

Met Matcher::EvaluatePhrase(const Node& node) {
  Met met;
  const std::vector<NoteWord>& words = Words().Words();
  const size_t term_count = node.terms.size();
  for (size_t first = 0; first + term_count <= words.size(); ++first) {
    bool all = true;
    for (size_t i = 0; i < term_count && all; ++i) {
      const NoteWord& word = words[first + i];
      all =
          word.position == words[first].position + i && InScope(word) && MeetsTerm(word, node, node.terms[i]);
    }
    if (all)
      met.spans.push_back({static_cast<uint32_t>(first), static_cast<uint32_t>(first + term_count - 1)});
  }
  met.is = !met.spans.empty();
  return met;
}

bool Matcher::AreClose(NodeKind kind, const Span& left, const Span& right) const noexcept {
  const std::vector<NoteWord>& words = words_.Words();
  const Span& before = left.first <= right.first ? left : right;
  const Span& behind = left.first <= right.first ? right : left;
  if (kind == NodeKind::kNear)
    return words[behind.first].position < words[before.last].position + kNearWords + 1;
  const uint32_t NoteWord::*unit = kind == NodeKind::kSentence ? &NoteWord::sentence : &NoteWord::paragraph;
  return words[before.first].*unit == words[std::max(left.last, right.last)].*unit;
}

Met Matcher::EvaluatePair(const Node& node) {
  const Met left = Evaluate(node.children[0]);
  if (!left.is) return {};
  const Met right = Evaluate(node.children[1]);
  if (!right.is) return {};
  Met met;
  // What has no place is close to everything.
  if (left.spans.empty() || right.spans.empty()) return {true, left.spans.empty() ? right.spans : left.spans};
  // The closest ones stand in front of it and behind it: a long text must not be compared all with all.
  for (const Span& one : left.spans) {
    const auto behind = std::ranges::lower_bound(right.spans, one.first, {}, &Span::first);
    const auto from = behind == right.spans.begin() ? behind : std::prev(behind);
    const auto to = behind == right.spans.end() ? behind : std::next(behind);
    const auto other =
        std::find_if(from, to, [&](const Span& span) { return AreClose(node.kind, one, span); });
    if (other != to)
      met.spans.push_back({std::min(one.first, other->first), std::max(one.last, other->last)});
  }
  SortSpans(&met.spans);
  met.is = !met.spans.empty();
  return met;
}

// An item of that name may be a text, a number or a time, and there may be several.
bool Matcher::Compares(const Node& node) {
  const NameToken name = database_.Names().Lookup(node.field);
  if (name == kNoName) return false;
  NoteImage::Cursor items = view_->Image().Items();
  std::vector<std::byte> external;
  for (ImageItem item; items.Next(&item);) {
    if (view_->CanonicalOf(item) != name) continue;
    Bytes value = item.value;
    if (item.external != 0) {
      external.resize(item.length);
      const EngStatus code =
          AtBoundary([&] { database_.LoadExternal(view_->NoteId(), item.external, external); });
      if (code == status::kDamaged || code == status::kConflict) continue;
      Check(code);
      value = external;
    }
    if (value.size() >= kTypeWordBytes && ValueHolds(node, item.type, value)) return true;
  }
  return false;
}

Met Matcher::Evaluate(const Node& node) {
  switch (node.kind) {
    case NodeKind::kNothing:
      return {};
    case NodeKind::kPhrase:
      return EvaluatePhrase(node);
    case NodeKind::kNot:
      return {!Evaluate(node.children[0]).is, {}};
    case NodeKind::kNear:
    case NodeKind::kSentence:
    case NodeKind::kParagraph:
      return EvaluatePair(node);
    case NodeKind::kCompare:
      return {Compares(node), {}};
    case NodeKind::kContains: {
      const NameToken name = database_.Names().Lookup(node.field);
      // No item has that name: its words are none.
      const NameToken before = std::exchange(scope_, name == kNoName ? kNoName - 1 : name);
      Met met = Evaluate(node.children[0]);
      scope_ = before;
      return met;
    }
    case NodeKind::kAnd:
    case NodeKind::kOr:
      break;
  }
  const bool all = node.kind == NodeKind::kAnd;
  Met met;
  met.is = all;
  for (const Node& child : node.children) {
    Met one = Evaluate(child);
    if (all && !one.is) return {};
    met.is = met.is || one.is;
    if (one.is) met.spans.insert(met.spans.end(), one.spans.begin(), one.spans.end());
  }
  SortSpans(&met.spans);
  return met;
}

uint32_t Matcher::Count(const Node& node) {
  const Met met = Evaluate(node);
  if (!met.is) return 0;
  return std::max<uint32_t>(1, static_cast<uint32_t>(met.spans.size()));
}

}  // namespace brynd::fulltext
