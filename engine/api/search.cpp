// Searches, summaries and design lookups.
#include "note/search.h"

#include "base/boundary.h"
#include "base/memory.h"
#include "base/process.h"
#include "base/time.h"
#include "brynd_db.h"
#include "brynd_text.h"
#include "note/design_index.h"
#include "note/directory.h"
#include "note/summary.h"

using brynd::AtBoundary;
using brynd::Bytes;
using brynd::Database;
using brynd::FindDatabase;
using brynd::Store;

namespace status = brynd::status;

namespace {

constexpr uint16_t kSearchSummary = 2, kSearchDirectory = 4;  // flags of EngDbSearch

// A compiled formula in a block of the caller's, copied: the callback may free the block.
std::vector<std::byte> FormulaOf(EngMem formula) {
  if (formula == 0) return {};
  const brynd::MemoryLock block(formula);
  return {block.bytes().begin(), block.bytes().end()};
}

EngStatus FindDesign(EngDb database, const char* name, uint32_t* id, auto&& find) {
  return AtBoundary([&]() -> EngStatus {
    Database& found = *FindDatabase(database);
    if (name == nullptr || id == nullptr) return status::kBadArgument;
    found.Store().Refresh();
    const uint32_t note_id = find(found);
    if (note_id == 0) return status::kNotFound;
    Store<uint32_t>(id, note_id);
    return status::kOk;
  });
}

}  // namespace

EngStatus EngDbSearch(EngDb database, EngMem formula, const char*, uint16_t flags, uint16_t class_mask,
                      const TIMEDATE* since, EngSearchCallback callback, void* parameter, TIMEDATE* until) {
  return AtBoundary([&]() -> EngStatus {
    const std::shared_ptr<Database> found = FindDatabase(database);
    if (callback == nullptr) return status::kBadArgument;
    const TIMEDATE now = brynd::Process().clock->Now();
    const auto visitor = [&](const SEARCH_MATCH& match, Bytes summary) {
      return callback(parameter, &match, reinterpret_cast<const ITEM_TABLE*>(summary.data()));
    };
    EngStatus outcome;
    if ((flags & kSearchDirectory) != 0) {
      if (!found->IsDirectory()) return status::kBadArgument;
      const bool with_summary = (flags & kSearchSummary) != 0;
      outcome =
          brynd::SearchDirectory(*found, {.selector = class_mask, .with_summary = with_summary}, visitor);
    } else {
      const std::vector<std::byte> compiled = FormulaOf(formula);
      const brynd::SearchQuery query{
          .formula = compiled,
          .class_mask = class_mask,
          .since = since == nullptr ? brynd::kWildcardTime : brynd::Load<TIMEDATE>(since),
          .with_summary = (flags & kSearchSummary) != 0};
      outcome = brynd::SearchNotes(found, query, visitor);
    }
    if (outcome == status::kOk && until != nullptr) Store<TIMEDATE>(until, now);
    return outcome;
  });
}

EngStatus EngDesignFind(EngDb database, const char* name, uint16_t note_class, uint32_t* id) {
  return FindDesign(database, name, id,
                    [&](Database& found) { return brynd::design_index::Find(found, name, note_class); });
}

EngStatus EngDesignFindPrivate(EngDb database, const char* name, uint16_t note_class, uint32_t* id) {
  return FindDesign(database, name, id, [&](Database& found) {
    const std::string owner = brynd::Process().settings->Get("UserName").value_or("");
    return brynd::design_index::FindPrivate(found, name, note_class, owner);
  });
}

EngStatus EngSummaryValueLocate(const void* summary, const char* name, char** value, uint16_t* value_bytes,
                                uint16_t* type) {
  return AtBoundary([&]() -> EngStatus {
    if (summary == nullptr || name == nullptr) return status::kBadArgument;
    const auto table_bytes = brynd::Load<uint16_t>(summary);
    if (table_bytes < sizeof(ITEM_TABLE)) return status::kDamaged;
    const std::optional<Bytes> found = brynd::FindInSummary(brynd::BytesAt(summary, table_bytes), name);
    if (!found || found->size() == 1) return status::kDamaged;  // shorter than its type word
    if (found->empty()) return status::kNoItem;
    if (value != nullptr) {
      const std::byte* content = found->data() + brynd::kTypeWordBytes;
      Store<char*>(value, const_cast<char*>(reinterpret_cast<const char*>(content)));
    }
    if (value_bytes != nullptr)
      Store<uint16_t>(value_bytes, static_cast<uint16_t>(found->size() - brynd::kTypeWordBytes));
    if (type != nullptr) Store<uint16_t>(type, brynd::LoadU16(found->data()));
    return status::kOk;
  });
}
