// The full-text index of a database: which notes it holds, how far it has come, and its way forward.
//
// The words lie in the store's word index under document numbers, which rise and are used once: a changed
// note becomes a new document, and its former one is dead. When more documents are dead than alive the index
// is built anew.
//
// The fact "fulltext" (note/database.h): offset 0 words version 4 (words.h); 4 flags 2; 6 zero 2; 8 sequence
// of the journal up to which changes are in 8; 16 a random number, another one after each change 8; 24 time
// of the last update 8; 32 next document 4; 36 documents alive 4; 40 words in them 8; 48 stop words, one a
// line. Records of space::kFullText: key chunk number 4, high byte first; value version 1, three zero bytes,
// low half of XXH3-64 of what follows 4, then for each of up to kChunkDocuments documents note id 4 (0:
// dead), words 4, checksum of the image 4. Document numbers begin at 1; place 0 of the first chunk is zero.
//
// Tokens: the folded words; between two items kItemBreak; with kCaseKept also each word as written, behind
// kExactMark, at the position of the folded one.
//
// (1) What a search sees of the index is whole: all its parts change in one write.
// (2) A stored state is checked when it is loaded: documents, notes and sums fit together, or it is damage.
// (3) Changes made in the transaction in which the index itself changes are looked at again the next time: a
//     note's checksum tells that it is in already.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fulltext/words.h"
#include "note/database.h"

namespace brynd::fulltext {

// Flags of EngFullTextIndexBuild.
inline constexpr uint16_t kWithAttachments = 2, kCaseKept = 4, kWithSentences = 8, kNoStopWords = 0x10,
                          kBuildAnew = 0x40, kAsDatabaseAsks = 0x80, kSealedToo = 0x100;
inline constexpr uint16_t kIndexFlags = 0x1de;  // all of them
inline constexpr uint16_t kStoredFlags = kCaseKept | kWithSentences | kNoStopWords | kSealedToo;

inline constexpr uint32_t kChunkDocuments = 1024;
inline constexpr uint32_t kDeadDocumentsKept = 4096;  // before the dead outnumber the living
inline constexpr char kItemBreak = '\x01', kExactMark = '\x02';

struct DocumentRow {
  uint32_t note_id = 0;  // 0: dead
  uint32_t word_count = 0;
  uint32_t checksum = 0;  // of the note's image
};

// An array in pages. Copies share the pages that neither has changed, so that a small change of a large index
// costs little.
template <class Element>
class SharedArray {
 public:
  size_t size() const noexcept { return size_; }
  const Element& operator[](size_t index) const noexcept {
    return (*pages_[index / kPageElements])[index % kPageElements];
  }
  // For a change of the element.
  Element& At(size_t index) {
    std::shared_ptr<Page>& page = pages_[index / kPageElements];
    if (page.use_count() != 1) page = std::make_shared<Page>(*page);
    return (*page)[index % kPageElements];
  }
  void PushBack(const Element& element) {
    if (size_ % kPageElements == 0) pages_.push_back(std::make_shared<Page>());
    ++size_;
    At(size_ - 1) = element;
  }

 private:
  static constexpr size_t kPageElements = 1024;
  using Page = std::array<Element, kPageElements>;
  std::vector<std::shared_ptr<Page>> pages_;
  size_t size_ = 0;
};

// The document of each note, 0 without one. Copies share what they have in common.
class NoteMap {
 public:
  uint32_t Get(uint32_t note_id) const noexcept {
    const size_t page = note_id / kPageNotes;
    return page < pages_.size() && pages_[page] != nullptr ? (*pages_[page])[note_id % kPageNotes] : 0;
  }
  void Set(uint32_t note_id, uint32_t document);

 private:
  static constexpr uint32_t kPageNotes = 4096;
  using Page = std::array<uint32_t, kPageNotes>;
  std::vector<std::shared_ptr<Page>> pages_;
};

struct IndexState {
  uint16_t flags = 0;
  uint64_t sequence = 0;
  TIMEDATE time{};
  uint32_t live_count = 0;
  uint64_t word_total = 0;
  StopWords stop_words;
  SharedArray<DocumentRow> rows;  // by document number
  NoteMap documents;
  std::vector<std::byte> fact;  // as stored

  uint32_t DocumentOf(uint32_t note_id) const noexcept { return documents.Get(note_id); }
};

// The state as the database's view has it; null without an index. Fails with kDamaged.
std::shared_ptr<const IndexState> LoadState(Database& database);

// Brings an index up to date. Null without an index, and when the database cannot be written just now while
// its index is behind: then the notes themselves must be searched.
std::shared_ptr<const IndexState> FreshState(Database& database);

// Builds the index of a database or brings it up to date. Stop words: none gives the usual ones.
FT_INDEX_STATS BuildIndex(Database& database, uint16_t flags, const std::optional<StopWords>& stop_words);

void DeleteIndex(Database& database);  // kFullTextNoIndex without one

// When it was brought up to date last; nothing without an index.
std::optional<TIMEDATE> IndexTime(Database& database);

}  // namespace brynd::fulltext
