// Views and folders as collections of rows: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_collection.h"
#include "brynd_text.h"

namespace status = brynd::status;

EngStatus EngCollectionOpen(EngDb, EngDb, uint32_t, uint16_t, EngIdTable, EngCollection*, EngNote*,
                            UNIVERSALNOTEID*, EngIdTable*, EngIdTable*) {
  return status::kNotAvailable;
}

EngStatus EngCollectionClose(EngCollection collection) {
  return collection == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngCollectionUpdate(EngCollection) { return status::kNotAvailable; }

EngStatus EngCollectionRead(EngCollection, COLLECTIONPOSITION*, uint16_t, uint32_t, uint16_t, uint32_t,
                            uint32_t, EngMem*, uint16_t*, uint32_t*, uint32_t*, uint16_t*) {
  return status::kNotAvailable;
}

EngStatus EngCollectionFindKey(EngCollection, const void*, uint16_t, COLLECTIONPOSITION*, uint32_t*) {
  return status::kNotAvailable;
}

EngStatus EngCollectionFindName(EngCollection, const char*, uint16_t, COLLECTIONPOSITION*, uint32_t*) {
  return status::kNotAvailable;
}

EngStatus EngTranslateSpecial(const char*, uint16_t, char*, uint16_t, uint32_t, const COLLECTIONPOSITION*,
                              const INDEXSPECIALINFO*, EngIdTable, EngIdTable, const char*, const char*,
                              uint16_t*) {
  return status::kNotAvailable;
}
