// Where a search gets its documents from: for each part of a query that is looked for as one (a leaf: a
// phrase, a pair of close ones, a field) the documents it is met in and how often.
// (1) Lists are in the order of document numbers and hold living documents alone.
// (2) Documents are numbered by their source; NoteOf and WordCount tell about them.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "base/idtable.h"
#include "fulltext/index.h"
#include "fulltext/match.h"
#include "fulltext/query.h"
#include "store/fulltext.h"

namespace brynd::fulltext {

using Documents = std::vector<uint32_t>;  // rising
using Postings = std::vector<store::Posting>;

constexpr bool IsLeaf(const Node& node) noexcept {
  return node.kind != NodeKind::kAnd && node.kind != NodeKind::kOr && node.kind != NodeKind::kNot;
}

class Lists {
 public:
  virtual ~Lists() = default;
  Lists(const Lists&) = delete;
  Lists& operator=(const Lists&) = delete;

  virtual const Documents& All() = 0;
  // With `within`, documents outside it may be left out.
  virtual Postings Find(const Node& leaf, const Documents* within) = 0;
  // Whether a leaf costs little: then it goes first and narrows what the others have to look at.
  virtual bool IsCheap(const Node& leaf) = 0;
  virtual uint32_t NoteOf(uint32_t document) const = 0;
  virtual uint32_t WordCount(uint32_t document) const = 0;
  virtual uint32_t LiveCount() const = 0;
  virtual uint64_t WordTotal() const = 0;

 protected:
  Lists() = default;
};

Documents Intersection(const Documents& left, const Documents& right);
Documents Union(const Documents& left, const Documents& right);
Documents Difference(const Documents& left, const Documents& right);
Documents DocumentsOf(const Postings& postings);

struct ListSettings {
  bool stems = false;
  bool with_scores = false;
  bool with_sentences = false;  // the query asks for them
};

// From the index.
std::unique_ptr<Lists> MakeIndexLists(Database& database, std::shared_ptr<const IndexState> state,
                                      const ListSettings& settings);
// From the notes, gone through once for all leaves of the query, which must outlive the lists.
std::unique_ptr<Lists> MakeScanLists(Database& database, const Node& query, const IdTable* confine,
                                     const ListSettings& settings);

}  // namespace brynd::fulltext
