// Server tasks: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_server.h"

namespace status = brynd::status;

// No line is made: 0 is none.
EngTaskLine EngTaskStatusLineCreate(const char*) { return 0; }

EngStatus EngTaskStatusLineDelete(EngTaskLine line) {
  return line == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngTaskStatusTextSet(const char*) { return status::kNotAvailable; }

EngStatus EngTaskDefaultsQuery(uint32_t*, EngTaskLine*) { return status::kNotAvailable; }

EngStatus EngTaskDefaultsSet(uint32_t, EngTaskLine) { return status::kNotAvailable; }

EngStatus EngTaskLogText(const char*, uint32_t, uint32_t) { return status::kNotAvailable; }

// Nobody can stop a task yet.
int32_t EngTaskShouldStop(void) { return 0; }
