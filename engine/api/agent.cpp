// Agents: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_server.h"

namespace status = brynd::status;

EngStatus EngAgentHandleOpen(EngDb, uint32_t, EngAgent*) { return status::kNotAvailable; }

EngStatus EngAgentHandleClose(EngAgent agent) {
  return agent == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngAgentContextCreate(EngAgent, uint32_t, uint32_t, EngAgentContext*) {
  return status::kNotAvailable;
}

EngStatus EngAgentContextDestroy(EngAgentContext context) {
  return context == 0 ? status::kOk : status::kNotAvailable;
}

EngStatus EngAgentExecute(EngAgent, EngAgentContext, EngIdTable, uint32_t) { return status::kNotAvailable; }
