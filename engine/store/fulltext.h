// The word index of a database: an inverted index from tokens to documents, with positions. What a token is,
// and which text has which, is the caller's business: here tokens are bytes.
//
// A text is handed over as its tokens in order: kNextToken in front of a token that stands one position
// further, kSameToken in front of one that stands where the token before it stands; none before the first.
//
// What stays true:
// (1) There is one index, or none. Making, filling and dropping it are changes like any other: they belong to
//     the Write of the database that is open, and are taken back with it.
// (2) A document's tokens are added once and never change. Its number is the caller's and is not used again
//     before the index is dropped.
// (3) A damaged index gives kDamaged, never undefined behaviour.
#ifndef BRYND_STORE_FULLTEXT_H
#define BRYND_STORE_FULLTEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "store/visitor.h"

namespace brynd::store {

inline constexpr char kNextToken = ' ', kSameToken = '\t';  // neither may occur in a token, nor may a NUL
inline constexpr size_t kTokenBytesMax = 256;

// How often a query was met in a document.
struct Posting {
  uint32_t document = 0;
  uint32_t count = 0;
};

// Tokens at positions that follow one another. With prefix, the last is the beginning of a token.
struct TokenPhrase {
  std::vector<std::string> tokens;
  bool prefix = false;
};

// One phrase; or several, of which each pair has at most gap_max positions between them, in any order.
struct TokenQuery {
  std::vector<TokenPhrase> phrases;
  uint32_t gap_max = 0;
};

class WordIndex {
 public:
  virtual ~WordIndex() = default;
  WordIndex(const WordIndex&) = delete;
  WordIndex& operator=(const WordIndex&) = delete;

  virtual bool Exists() = 0;

  // Appends the documents a query is met in, in the order of their numbers.
  virtual void Find(const TokenQuery& query, std::vector<Posting>* postings) = 0;

  // The tokens that begin with some bytes, in order, until the visitor returns false.
  virtual void Tokens(std::string_view prefix, Visitor<bool(std::string_view token)> visitor) = 0;

  // Changes, inside the open Write of the database. Make fails with kInternal when there is an index, Drop is
  // content when there is none. Both want the transaction for themselves: they fail with kBusy when lazy
  // writes of the handle wait in it, which Flush ends.
  virtual void Make() = 0;
  virtual void Drop() = 0;
  virtual void Add(uint32_t document, std::string_view tokens) = 0;

 protected:
  WordIndex() = default;
};

}  // namespace brynd::store

#endif  // BRYND_STORE_FULLTEXT_H
