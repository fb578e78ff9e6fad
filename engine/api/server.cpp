// Servers: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_server.h"

namespace status = brynd::status;

EngStatus EngServerListGet(const char*, EngMem*) { return status::kNotAvailable; }

EngStatus EngServerConsoleCommand(const char*, const char*, EngMem*) { return status::kNotAvailable; }

EngStatus EngReplicate(const char*, const char*, uint32_t, uint16_t, const char*, REPLICATION_STATS*) {
  return status::kNotAvailable;
}
