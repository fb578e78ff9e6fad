// Whether a note meets a query, found out from the note itself. This is what the words of a query mean; the
// index is only quicker at it.
//
// A phrase is met where its terms stand at positions that follow one another. `near`: two places with fewer
// than kNearWords positions between them; `sentence`, `paragraph`: two places within one. `field contains`
// looks at the words of the items of that name only; a comparison holds when any value of such an item
// holds: numbers with numbers, times with times, texts whole and without regard to case.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "fulltext/note_words.h"
#include "fulltext/query.h"

namespace brynd::fulltext {

struct Span {
  uint32_t first = 0, last = 0;  // indices of words
};

struct Met {
  bool is = false;
  std::vector<Span> spans;  // where; none for what has no place
};

class Matcher {
 public:
  // `stems`: plain words are met by words of the same stem.
  Matcher(Database& database, const StopWords& stop_words, bool stems, bool with_sentences)
      : database_(database), words_(database, stop_words, with_sentences), stems_(stems) {}

  // The note that is asked about from now on, until its image goes away. Its words are read when needed.
  void Show(const ImageView& view) {
    view_ = &view;
    read_ = false;
  }

  Met Evaluate(const Node& node);
  // How often the node is met: 0 when not, at least 1 when it is.
  uint32_t Count(const Node& node);
  uint32_t WordCount();

 private:
  const NoteWords& Words();
  bool InScope(const NoteWord& word) const noexcept { return scope_ == kNoName || word.name == scope_; }
  bool MeetsTerm(const NoteWord& word, const Node& phrase, const Term& term);
  std::string_view StemOf(std::string_view word);
  Met EvaluatePhrase(const Node& node);
  Met EvaluatePair(const Node& node);
  bool AreClose(NodeKind kind, const Span& left, const Span& right) const noexcept;
  bool Compares(const Node& node);

  Database& database_;
  NoteWords words_;
  const ImageView* view_ = nullptr;
  bool read_ = false;
  const bool stems_;
  NameToken scope_ = kNoName;  // `field contains`: the items looked at
  Stemmer stemmer_;
  std::unordered_map<std::string, std::string> stem_of_;
};

}  // namespace brynd::fulltext
