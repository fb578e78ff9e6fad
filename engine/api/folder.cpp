// Folders: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_collection.h"

namespace status = brynd::status;

EngStatus EngFolderNew(EngDb, EngDb, uint32_t, EngDb, const char*, uint16_t, uint16_t, uint32_t, uint32_t*) {
  return status::kNotAvailable;
}

EngStatus EngFolderDuplicate(EngDb, EngDb, uint32_t, const char*, uint16_t, uint32_t, uint32_t*) {
  return status::kNotAvailable;
}

EngStatus EngFolderRemove(EngDb, EngDb, uint32_t, uint32_t) { return status::kNotAvailable; }

EngStatus EngFolderEntriesAdd(EngDb, EngDb, uint32_t, EngIdTable, uint32_t) { return status::kNotAvailable; }

EngStatus EngFolderEntriesRemove(EngDb, EngDb, uint32_t, EngIdTable, uint32_t) {
  return status::kNotAvailable;
}

EngStatus EngFolderEntriesRemoveAll(EngDb, EngDb, uint32_t, uint32_t) { return status::kNotAvailable; }

EngStatus EngFolderEntriesCount(EngDb, EngDb, uint32_t, uint32_t, uint32_t*) { return status::kNotAvailable; }
