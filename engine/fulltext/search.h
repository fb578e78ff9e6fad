// Full-text searches: a query to hits in their order.
//
// With an index, the lists of its words are joined, and what it cannot decide is asked of the notes that are
// left; without one, all notes are asked. Both give the same hits.
// (1) A search is one moment of the database.
// (2) Scores come from BM25 and the weights of the query; the best hit has 100.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "base/handle_table.h"
#include "base/idtable.h"
#include "fulltext/query.h"
#include "note/database.h"

namespace brynd::fulltext {

// Options of EngFullTextSearchRun.
inline constexpr uint32_t kInCollection = 1, kInIdTable = 4, kScores = 8, kAsIdTable = 0x10, kByDate = 0x20,
                          kAscending = 0x40, kLimited = 0x80, kStems = 0x200;
inline constexpr uint32_t kSearchOptions = 0x2fd;  // all of them

struct SearchRequest {
  std::string_view query;  // engine text
  uint32_t options = 0;
  uint32_t limit = 0;                // with kLimited; 0 is none
  const IdTable* confine = nullptr;  // hits are of these notes alone; null: of all
  // Where hits stand that are not sorted, as in a view; none: by their ids. Notes that are not in it are no
  // hits.
  const std::vector<uint32_t>* order = nullptr;
};

struct SearchResult {
  std::vector<uint32_t> note_ids;
  std::vector<uint8_t> scores;  // 0 to 100, 0 where none were asked for
};

// Fails with kFullTextQuery, kFullTextNoHit.
SearchResult Search(Database& database, const SearchRequest& request);

// Open searches of the process; each keeps its last result.
struct SearchEntry {
  SearchResult result;
};
using SearchTable = HandleTable<SearchEntry, Handles32(HandleKind::kSearch)>;
SearchTable& Searches();
EngSearch AddSearch();  // closed when the engine stops, if not before

}  // namespace brynd::fulltext
