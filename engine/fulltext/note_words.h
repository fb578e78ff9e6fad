// The words of a note: what of it is searched, and how it stands for comparison with a query.
//
// Searched are the texts, text lists and rich texts of all items but those whose names begin with `$`, in
// item order. Entries of a list and lines of a text are paragraphs, and so are the paragraphs of rich text.
// (1) Positions count words from 0 through the whole note; between two items that have words one position
//     stays empty. Stop words have none.
// (2) A value that cannot be read is passed over: one bad value must not hide the rest.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fulltext/words.h"
#include "note/database.h"

namespace brynd::fulltext {

// The text of a rich text value: its runs, each paragraph ended by a NUL. `value` begins with its type word.
void AppendRichText(Bytes value, std::string* text);

// Calls visitor(item, text) for each item of a note that is searched; entries and paragraphs end with NULs.
class NoteTexts {
 public:
  explicit NoteTexts(Database& database) : database_(database) {}
  void Visit(const ImageView& view,
             store::Visitor<void(const ImageItem& item, std::string_view text)> visitor);

 private:
  std::string_view TextOf(const ImageView& view, const ImageItem& item);

  Database& database_;
  std::string text_;
  std::vector<std::byte> external_;
};

inline bool IsSearchedNote(const ImageView& view) noexcept {
  return !view.IsStub() && (view.NoteClass() & BRCLASS_DATA) != 0;
}

struct NoteWord {
  uint32_t position = 0;
  NameToken name = 0;  // canonical, of the item
  uint32_t sentence = 0, paragraph = 0;
  uint32_t folded_at = 0, exact_at = 0;
  uint16_t folded_bytes = 0, exact_bytes = 0;
};

// All words of one note, taken apart anew by each Read.
class NoteWords {
 public:
  NoteWords(Database& database, const StopWords& stop_words, bool with_sentences)
      : texts_(database), stop_words_(stop_words), with_sentences_(with_sentences) {}

  void Read(const ImageView& view);

  const std::vector<NoteWord>& Words() const noexcept { return words_; }
  std::string_view Folded(const NoteWord& word) const noexcept {
    return std::string_view(folded_).substr(word.folded_at, word.folded_bytes);
  }
  std::string_view Exact(const NoteWord& word) const noexcept {
    return std::string_view(exact_).substr(word.exact_at, word.exact_bytes);
  }

 private:
  void FindSentences(std::string_view text);

  NoteTexts texts_;
  const StopWords& stop_words_;
  const bool with_sentences_;
  WordBreaker breaker_;
  std::vector<NoteWord> words_;
  std::string folded_, exact_;
  std::vector<size_t> sentence_ends_;
};

}  // namespace brynd::fulltext
