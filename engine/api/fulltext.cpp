// Full-text indexes and searches.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/boundary.h"
#include "base/charset.h"
#include "base/idtable.h"
#include "base/memory.h"
#include "base/process.h"
#include "brynd_collection.h"
#include "fulltext/index.h"
#include "fulltext/search.h"

using brynd::AtBoundary;
using brynd::Database;
using brynd::FindDatabase;
using brynd::Store;

namespace fulltext = brynd::fulltext;
namespace status = brynd::status;

namespace {

constexpr size_t kResultHeadBytes = 4 + 4;  // count, zero

std::optional<fulltext::StopWords> ReadStopWords(const char* path) {
  if (path == nullptr || *path == '\0') return std::nullopt;
  const std::optional<std::string> text = brynd::Process().files->Read(path);
  if (!text) brynd::Fail(status::kNoFile);
  return fulltext::StopWords::Of(brynd::EngineFromUtf8(*text));
}

// Count, zero, ids, then a byte of score for each.
brynd::MemoryBlock BlockOf(const fulltext::SearchResult& result) {
  const size_t hit_count = result.note_ids.size();
  const size_t byte_count = kResultHeadBytes + hit_count * (sizeof(uint32_t) + 1);
  if (byte_count > brynd::kMemoryBlockBytesMax) brynd::Fail(status::kMemoryTooLarge);
  brynd::MemoryBlock block = brynd::MemoryAllocate(static_cast<uint32_t>(byte_count));
  brynd::ByteWriter out(block.bytes());
  out.U32(static_cast<uint32_t>(hit_count));
  out.U32(0);
  for (const uint32_t note_id : result.note_ids) out.U32(note_id);
  for (const uint8_t score : result.scores) out.U8(score);
  return block;
}

brynd::MemoryBlock TableOf(const fulltext::SearchResult& result) {
  std::vector<uint32_t> note_ids = result.note_ids;
  std::sort(note_ids.begin(), note_ids.end());
  brynd::IdTable table;
  table.InsertMany(note_ids.data(), note_ids.size());
  table.time = brynd::Process().clock->Now();
  return brynd::MemoryMake<brynd::IdTable>(std::move(table));
}

}  // namespace

EngStatus EngFullTextIndexBuild(EngDb database, uint16_t flags, const char* stop_words,
                                FT_INDEX_STATS* stats) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if ((flags & ~fulltext::kIndexFlags) != 0) return status::kBadArgument;
    // The text of attachments is not read yet.
    if ((flags & fulltext::kWithAttachments) != 0) return status::kNotAvailable;
    const FT_INDEX_STATS counts = fulltext::BuildIndex(found, flags, ReadStopWords(stop_words));
    if (stats != nullptr) Store<FT_INDEX_STATS>(stats, counts);
    return status::kOk;
  });
}

EngStatus EngFullTextIndexDelete(EngDb database) {
  return AtBoundary([&] { fulltext::DeleteIndex(*FindDatabase(database)); });
}

EngStatus EngFullTextIndexTimeGet(EngDb database, TIMEDATE* time) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (time == nullptr) return status::kBadArgument;
    const std::optional<TIMEDATE> built = fulltext::IndexTime(found);
    if (!built) return status::kFullTextNoIndex;
    Store<TIMEDATE>(time, *built);
    return status::kOk;
  });
}

EngStatus EngFullTextSearchOpen(EngSearch* search) {
  return AtBoundary([&]() -> EngStatus {
    if (search == nullptr) return status::kBadArgument;
    Store<EngSearch>(search, fulltext::AddSearch());
    return status::kOk;
  });
}

EngStatus EngFullTextSearchRun(EngDb database, EngSearch* search, EngCollection, const char* query,
                               uint32_t options, uint16_t limit, EngIdTable confine, uint32_t* hit_count,
                               EngMem*, EngMem* results) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> found = FindDatabase(database);
    if (search == nullptr || query == nullptr || results == nullptr) return status::kBadArgument;
    fulltext::SearchEntry& entry = fulltext::Searches().Get(brynd::Load<EngSearch>(search));
    if ((options & ~fulltext::kSearchOptions) != 0) return status::kBadArgument;
    // There are no collections yet that could be searched in.
    if ((options & fulltext::kInCollection) != 0) return status::kNotAvailable;
    fulltext::SearchRequest request{.query = query, .options = options, .limit = limit};
    if ((options & fulltext::kInIdTable) != 0) request.confine = &brynd::IdTableOf(confine);
    fulltext::SearchResult result = fulltext::Search(*found, request);
    brynd::MemoryBlock block = (options & fulltext::kAsIdTable) != 0 ? TableOf(result) : BlockOf(result);
    if (hit_count != nullptr) Store<uint32_t>(hit_count, static_cast<uint32_t>(result.note_ids.size()));
    entry.result = std::move(result);
    Store<EngMem>(results, block.Release());
    return status::kOk;
  });
}

EngStatus EngFullTextSearchClose(EngSearch search) {
  if (search == 0) return status::kOk;
  return fulltext::Searches().Remove(search) == nullptr ? status::kBadHandle : status::kOk;
}
