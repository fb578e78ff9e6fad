// The words of a text: where they begin and end, and the form in which they are compared.
//
// A word is a run of letters, marks and digits of one word in the sense of ICU's boundaries; an apostrophe
// between letters and a point or comma between digits belong to it, all else parts words.
// (1) A text has the same words, wherever it is met: in a document or in a query.
// (2) The folded form is compatibility case folding without the accents of Latin, Greek and Cyrillic, in
//     UTF-8; the exact form is as written, composed. Neither holds a byte below 0x21.
// (3) Plain ASCII takes a quick way with the same result.
// (4) kWordsVersion and the version of ICU make WordsVersion: an index of another version is built anew.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/visitor.h"

namespace brynd::fulltext {

inline constexpr uint16_t kWordsVersion = 1;
inline constexpr size_t kWordBytesMax = 128;  // of each form; a longer word is cut between characters

uint32_t WordsVersion() noexcept;

struct FoundWord {
  std::string_view folded, exact;
  size_t begin = 0, end = 0;  // bytes of the text
};

// Takes texts apart. Not for several threads at once.
class WordBreaker {
 public:
  WordBreaker();
  ~WordBreaker();
  WordBreaker(const WordBreaker&) = delete;
  WordBreaker& operator=(const WordBreaker&) = delete;

  // `text` is engine text, read generously. Fails with kNoMemory, kInternal when ICU does.
  void Break(std::string_view text, store::Visitor<void(const FoundWord& word)> visitor);

  // Shows where sentences of the text end (the byte position behind each).
  void BreakSentences(std::string_view text, store::Visitor<void(size_t end)> visitor);

 private:
  struct Icu;
  void BreakAscii(std::string_view text, store::Visitor<void(const FoundWord&)> visitor);
  void BreakAny(std::string_view text, store::Visitor<void(const FoundWord&)> visitor);
  void Decode(std::string_view text);
  void ShowWord(size_t begin, size_t end, store::Visitor<void(const FoundWord&)> visitor);
  Icu& Tools();

  std::unique_ptr<Icu> icu_;  // made when first needed
  std::string folded_;
  std::u16string units_;          // the text in UTF-16
  std::vector<uint32_t> places_;  // byte position of each unit, and the end
};

// The folded form of a word.
std::string FoldUtf8(std::string_view utf8);

// Words that are left out.
class StopWords {
 public:
  StopWords() = default;
  // Words parted by anything that parts words; a line that starts with ';' is a comment.
  static StopWords Of(std::string_view text);
  static const StopWords& English();

  bool Contains(std::string_view folded) const { return words_.find(folded) != words_.end(); }
  bool IsEmpty() const noexcept { return words_.empty(); }
  std::string Text() const;  // one a line: Of gives them back
  friend bool operator==(const StopWords&, const StopWords&) = default;

 private:
  std::set<std::string, std::less<>> words_;
};

// Stems of English words; other words, and those with letters outside ASCII, are their own stems.
class Stemmer {
 public:
  Stemmer();
  ~Stemmer();
  Stemmer(const Stemmer&) = delete;
  Stemmer& operator=(const Stemmer&) = delete;

  std::string_view Stem(std::string_view folded);  // valid until the next call

 private:
  struct Snowball;
  std::unique_ptr<Snowball> snowball_;
};

// How many leading bytes a word surely shares with every word of its stem.
size_t SharedWithStem(std::string_view stem) noexcept;

// Whether a folded or exact word is met by a pattern with `*` (any run) and `?` (any character).
bool MatchesPattern(std::string_view word, std::string_view pattern) noexcept;

}  // namespace brynd::fulltext
