#include "fulltext/words.h"

#include <libstemmer.h>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uvernum.h>

#include <algorithm>
#include <array>

#include "base/charset.h"
#include "base/status.h"

namespace brynd::fulltext {

namespace {

constexpr char kEnglish[] =
    "a an and are as at be but by for if in into is it no not of on or such that the their then there these "
    "they this to was will with";

constexpr UChar32 kAccentFirst = 0x300, kAccentLast = 0x36f;  // combining marks of alphabets with cases
constexpr UChar32 kHighApostrophe = 0x2019;

enum class CharacterKind : uint8_t { kOther, kLetter, kDigit, kApostrophe, kDecimal };

constexpr std::array<CharacterKind, 128> MakeAsciiKinds() {
  std::array<CharacterKind, 128> kinds{};
  for (size_t c = 'a'; c <= 'z'; ++c) kinds[c] = kinds[c - 'a' + 'A'] = CharacterKind::kLetter;
  for (size_t c = '0'; c <= '9'; ++c) kinds[c] = CharacterKind::kDigit;
  kinds['\''] = CharacterKind::kApostrophe;
  kinds['.'] = kinds[','] = CharacterKind::kDecimal;
  return kinds;
}
constexpr std::array<CharacterKind, 128> kAsciiKinds = MakeAsciiKinds();

CharacterKind KindOf(UChar32 character) noexcept {
  if (character < 128) return kAsciiKinds[static_cast<size_t>(character)];
  if (character == kHighApostrophe) return CharacterKind::kApostrophe;
  constexpr uint32_t kLetters = U_GC_L_MASK | U_GC_M_MASK | U_GC_NL_MASK | U_GC_NO_MASK;
  const uint32_t category = U_MASK(u_charType(character));
  if ((category & U_GC_ND_MASK) != 0) return CharacterKind::kDigit;
  // A symbol that ICU takes for a word (an emoji, say) is found too.
  return (category & (kLetters | U_GC_SO_MASK)) != 0 ? CharacterKind::kLetter : CharacterKind::kOther;
}

constexpr bool IsWordKind(CharacterKind kind) noexcept {
  return kind == CharacterKind::kLetter || kind == CharacterKind::kDigit;
}

// Whether a character between two others holds them together.
constexpr bool Joins(CharacterKind before, CharacterKind at, CharacterKind behind) noexcept {
  if (at == CharacterKind::kApostrophe)
    return before == CharacterKind::kLetter && behind == CharacterKind::kLetter;
  return at == CharacterKind::kDecimal && before == CharacterKind::kDigit && behind == CharacterKind::kDigit;
}

constexpr char LowerAscii(char byte) noexcept {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

void CheckIcu(UErrorCode code) {
  if (code == U_MEMORY_ALLOCATION_ERROR) Fail(status::kNoMemory);
  if (U_FAILURE(code)) Fail(status::kInternal);
}

std::string_view Cut(std::string_view utf8) noexcept {
  if (utf8.size() <= kWordBytesMax) return utf8;
  size_t end = kWordBytesMax;
  while (end > 0 && (static_cast<unsigned char>(utf8[end]) & 0xc0) == 0x80) --end;
  return utf8.substr(0, end);
}

icu::UnicodeString Fold(const icu::UnicodeString& text) {
  UErrorCode code = U_ZERO_ERROR;
  const icu::Normalizer2* fold = icu::Normalizer2::getNFKCCasefoldInstance(code);
  const icu::Normalizer2* decompose = icu::Normalizer2::getNFDInstance(code);
  const icu::Normalizer2* compose = icu::Normalizer2::getNFCInstance(code);
  CheckIcu(code);
  const icu::UnicodeString apart = decompose->normalize(fold->normalize(text, code), code);
  CheckIcu(code);
  icu::UnicodeString bare;
  for (int32_t at = 0; at < apart.length(); at = apart.moveIndex32(at, 1)) {
    const UChar32 character = apart.char32At(at);
    if (character >= kAccentFirst && character <= kAccentLast) continue;
    if (character <= ' ') continue;  // some letters fold to several words
    bare.append(character == kHighApostrophe ? UChar32{'\''} : character);
  }
  icu::UnicodeString whole = compose->normalize(bare, code);
  CheckIcu(code);
  return whole;
}

}  // namespace

uint32_t WordsVersion() noexcept { return uint32_t{kWordsVersion} << 16 | U_ICU_VERSION_MAJOR_NUM; }

struct WordBreaker::Icu {
  std::unique_ptr<icu::BreakIterator> words, sentences;
  const icu::Normalizer2* compose = nullptr;
  icu::UnicodeString text;
  std::string folded, exact;
};

WordBreaker::WordBreaker() = default;
WordBreaker::~WordBreaker() = default;

WordBreaker::Icu& WordBreaker::Tools() {
  if (icu_ != nullptr) return *icu_;
  auto tools = std::make_unique<Icu>();
  UErrorCode code = U_ZERO_ERROR;
  tools->words.reset(icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), code));
  CheckIcu(code);
  tools->sentences.reset(icu::BreakIterator::createSentenceInstance(icu::Locale::getRoot(), code));
  CheckIcu(code);
  tools->compose = icu::Normalizer2::getNFCInstance(code);
  CheckIcu(code);
  icu_ = std::move(tools);
  return *icu_;
}

void WordBreaker::Break(std::string_view text, store::Visitor<void(const FoundWord&)> visitor) {
  if (IsPlainAscii(text)) return BreakAscii(text, visitor);
  BreakAny(text, visitor);
}

void WordBreaker::BreakAscii(std::string_view text, store::Visitor<void(const FoundWord&)> visitor) {
  const auto kind = [&](size_t at) { return kAsciiKinds[static_cast<unsigned char>(text[at]) & 0x7f]; };
  for (size_t at = 0; at < text.size();) {
    if (!IsWordKind(kind(at))) {
      ++at;
      continue;
    }
    const size_t begin = at;
    folded_.clear();
    for (; at < text.size(); ++at) {
      if (!IsWordKind(kind(at)) && (at + 1 == text.size() || !Joins(kind(at - 1), kind(at), kind(at + 1)))) {
        break;
      }
      folded_.push_back(LowerAscii(text[at]));
    }
    visitor({Cut(folded_), Cut(text.substr(begin, at - begin)), begin, at});
  }
}

void WordBreaker::Decode(std::string_view text) {
  units_.clear();
  places_.clear();
  for (size_t at = 0; at < text.size();) {
    const auto place = static_cast<uint32_t>(at);
    const char32_t character = NextCharacter(text, &at);
    if (character > 0xffff) {
      units_.push_back(static_cast<char16_t>(0xd7c0 + (character >> 10)));
      units_.push_back(static_cast<char16_t>(0xdc00 + (character & 0x3ff)));
      places_.push_back(place);
    } else {
      units_.push_back(static_cast<char16_t>(character));
    }
    places_.push_back(place);
  }
  places_.push_back(static_cast<uint32_t>(text.size()));
}

void WordBreaker::ShowWord(size_t begin, size_t end, store::Visitor<void(const FoundWord&)> visitor) {
  Icu& icu = Tools();
  UErrorCode code = U_ZERO_ERROR;
  const icu::UnicodeString word(units_.data() + begin, static_cast<int32_t>(end - begin));
  icu.exact.clear();
  icu.compose->normalize(word, code).toUTF8String(icu.exact);
  CheckIcu(code);
  icu.folded.clear();
  Fold(word).toUTF8String(icu.folded);
  if (icu.folded.empty()) return;  // marks without letters
  visitor({Cut(icu.folded), Cut(icu.exact), places_[begin], places_[end]});
}

void WordBreaker::BreakAny(std::string_view text, store::Visitor<void(const FoundWord&)> visitor) {
  if (text.size() > 0x3fffffff) Fail(status::kBadArgument);
  Icu& icu = Tools();
  Decode(text);
  icu.text.setTo(false, units_.data(), static_cast<int32_t>(units_.size()));
  icu.words->setText(icu.text);
  const auto kind = [&](size_t at, size_t end) {
    UChar32 character = 0;
    size_t next = at;
    U16_NEXT(units_.data(), next, end, character);
    return std::pair(KindOf(character), next);
  };
  size_t segment = 0;
  for (int32_t stop = icu.words->next(); stop != icu::BreakIterator::DONE; stop = icu.words->next()) {
    const auto end = static_cast<size_t>(stop);
    size_t begin = segment;
    bool inside = false;
    CharacterKind before = CharacterKind::kOther;
    for (size_t at = segment; at < end;) {
      const auto [here, next] = kind(at, end);
      const bool belongs =
          IsWordKind(here) || (inside && next < end && Joins(before, here, kind(next, end).first));
      if (belongs && !inside) begin = at;
      if (!belongs && inside) ShowWord(begin, at, visitor);
      inside = belongs;
      before = here;
      at = next;
    }
    if (inside) ShowWord(begin, end, visitor);
    segment = end;
  }
}

void WordBreaker::BreakSentences(std::string_view text, store::Visitor<void(size_t)> visitor) {
  if (text.size() > 0x3fffffff) Fail(status::kBadArgument);
  Icu& icu = Tools();
  Decode(text);
  icu.text.setTo(false, units_.data(), static_cast<int32_t>(units_.size()));
  icu.sentences->setText(icu.text);
  for (int32_t stop = icu.sentences->next(); stop != icu::BreakIterator::DONE; stop = icu.sentences->next())
    visitor(places_[static_cast<size_t>(stop)]);
}

std::string FoldUtf8(std::string_view utf8) {
  std::string folded;
  const icu::StringPiece piece(utf8.data(), static_cast<int32_t>(utf8.size()));
  Fold(icu::UnicodeString::fromUTF8(piece)).toUTF8String(folded);
  return folded;
}

// --- stop words
// --------------------------------------------------------------------------------------------------

StopWords StopWords::Of(std::string_view text) {
  StopWords stop;
  WordBreaker breaker;
  while (!text.empty()) {
    const size_t line_end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, line_end);
    text.remove_prefix(std::min(line_end + 1, text.size()));
    if (!line.starts_with(';'))
      breaker.Break(line, [&](const FoundWord& word) { stop.words_.emplace(word.folded); });
  }
  return stop;
}

const StopWords& StopWords::English() {
  static const StopWords english = Of(kEnglish);
  return english;
}

std::string StopWords::Text() const {
  std::string text;
  for (const std::string& word : words_) text.append(word).push_back('\n');
  return text;
}

// --- stems and patterns
// ----------------------------------------------------------------------------------------------

struct Stemmer::Snowball {
  Snowball() : stemmer(sb_stemmer_new("english", "UTF_8")) {
    if (stemmer == nullptr) Fail(status::kNoMemory);
  }
  Snowball(const Snowball&) = delete;
  Snowball& operator=(const Snowball&) = delete;
  ~Snowball() { sb_stemmer_delete(stemmer); }
  sb_stemmer* stemmer;
};

Stemmer::Stemmer() : snowball_(std::make_unique<Snowball>()) {}
Stemmer::~Stemmer() = default;

std::string_view Stemmer::Stem(std::string_view folded) {
  if (!IsPlainAscii(folded)) return folded;
  const auto* bytes = reinterpret_cast<const sb_symbol*>(folded.data());
  const sb_symbol* stem = sb_stemmer_stem(snowball_->stemmer, bytes, static_cast<int>(folded.size()));
  if (stem == nullptr) Fail(status::kNoMemory);
  return {reinterpret_cast<const char*>(stem), static_cast<size_t>(sb_stemmer_length(snowball_->stemmer))};
}

// A stem differs from its words in its last two letters at most: "dying" has the stem "die", "sky" its own.
size_t SharedWithStem(std::string_view stem) noexcept {
  constexpr size_t kTail = 2, kEnough = 6;
  return stem.size() <= kTail + 1 ? std::min<size_t>(stem.size(), 1) : std::min(stem.size() - kTail, kEnough);
}

bool MatchesPattern(std::string_view word, std::string_view pattern) noexcept {
  constexpr size_t kNone = std::string_view::npos;
  const auto next = [&](size_t at) {
    do ++at;
    while (at < word.size() && (static_cast<unsigned char>(word[at]) & 0xc0) == 0x80);
    return at;
  };
  size_t at = 0, in_pattern = 0, star = kNone, retry = 0;
  while (at < word.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      retry = at;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == '?') {
      ++in_pattern;
      at = next(at);
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == word[at]) {
      ++in_pattern;
      ++at;
    } else if (star != kNone) {
      in_pattern = star + 1;
      at = retry = next(retry);
    } else {
      return false;
    }
  }
  while (in_pattern < pattern.size() && pattern[in_pattern] == '*') ++in_pattern;
  return in_pattern == pattern.size();
}

}  // namespace brynd::fulltext
