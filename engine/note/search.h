// Searches: all notes of some classes that a formula selects, straight from the stored images.
// (1) No note object is built, and nothing is taken from the heap for a note.  (2) A damaged note is passed
// over: one bad record must not hide all the others.  (3) A search ends with the last note there was when it
// began, whatever a visitor adds.
#pragma once

#include <functional>
#include <memory>

#include "note/database.h"

namespace brynd {

struct SearchQuery {
  Bytes formula;            // compiled; none takes all
  uint16_t class_mask = 0;  // see ClassMatches
  TIMEDATE since{};         // changed at or after it; the wildcard takes all
  bool with_summary = false;
};

// A class word matches a mask by its class bits; a private record only when the mask has the private bit too.
// BRCLASS_ALL takes every note.
bool ClassMatches(uint16_t note_class, uint16_t class_mask) noexcept;

inline constexpr uint8_t kSearchMatches = 1;  // bit of SERetFlags

// Called for each match with its summary, no bytes when it was not asked for; anything but 0 ends the search
// and is its result. It may read, write and close the database.
using SearchVisitor = std::function<EngStatus(const SEARCH_MATCH& match, Bytes summary)>;

// Fails with kBadHandle when a visitor closed the database, with the status of a formula that cannot be
// computed.
EngStatus SearchNotes(const std::shared_ptr<Database>& database, const SearchQuery& query,
                      const SearchVisitor& visitor);

// Shows all notes, stubs too, that were changed at or after a time. Returns how many damaged ones it passed
// over.
uint32_t VisitChangedSince(Database& database, uint16_t class_mask, const TIMEDATE& since,
                           store::Visitor<void(const ImageView& view)> visitor);

// When data documents, and when all other notes, were changed last; the wildcard when there are none. Looks
// at the newest changes only, unless the journal has forgotten when data was changed.
struct ModifiedTimes {
  TIMEDATE data{};
  TIMEDATE other{};
};
ModifiedTimes LastModified(Database& database);

}  // namespace brynd
