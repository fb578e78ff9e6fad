// Mail: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_server.h"

namespace status = brynd::status;

EngStatus EngMailBoxOpen(const char*, EngDb*) { return status::kNotAvailable; }

EngStatus EngMailBoxClose(EngDb database) {
  return database == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngMailMessageCreate(EngDb, EngNote*) { return status::kNotAvailable; }

EngStatus EngMailMessageClose(EngNote note) {
  return note == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngMailItemGet(EngNote, uint16_t, char*, uint16_t, uint16_t*) { return status::kNotAvailable; }

EngStatus EngMailItemGetHandle(EngNote, uint16_t, BLOCKID*, uint16_t*, uint32_t*) {
  return status::kNotAvailable;
}

EngStatus EngMailHeaderItemAdd(EngNote, uint16_t, const void*, uint16_t) { return status::kNotAvailable; }

EngStatus EngMailHeaderItemAddByHandle(EngNote, uint16_t, EngMem, uint32_t, uint16_t) {
  return status::kNotAvailable;
}

EngStatus EngMailHeaderItemReplace(EngNote, uint16_t, const void*, uint16_t) { return status::kNotAvailable; }

EngStatus EngMailTransferLocal(EngNote) { return status::kNotAvailable; }
