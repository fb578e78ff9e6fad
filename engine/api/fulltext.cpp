// Full-text indexes and searches: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_collection.h"

namespace status = brynd::status;

EngStatus EngFullTextIndexBuild(EngDb, uint16_t, const char*, FT_INDEX_STATS*) {
  return status::kNotAvailable;
}

EngStatus EngFullTextIndexDelete(EngDb) { return status::kNotAvailable; }

// No database has an index yet.
EngStatus EngFullTextIndexTimeGet(EngDb, TIMEDATE*) { return status::kFullTextNoIndex; }

EngStatus EngFullTextSearchOpen(EngSearch*) { return status::kNotAvailable; }

EngStatus EngFullTextSearchRun(EngDb, EngSearch*, EngCollection, const char*, uint32_t, uint16_t, EngIdTable,
                               uint32_t*, EngMem*, EngMem*) {
  return status::kNotAvailable;
}

EngStatus EngFullTextSearchClose(EngSearch search) {
  return search == 0 ? status::kOk : status::kNotAvailable;
}
