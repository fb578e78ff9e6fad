// Start and end of the engine in a process and its threads.
#include "base/boundary.h"
#include "base/process.h"
#include "base/settings.h"
#include "brynd_init.h"

using brynd::AtBoundary;
using brynd::Process;

namespace status = brynd::status;

EngStatus EngInit(int32_t argc, char* const* argv) {
  return AtBoundary(
      [&] { Process().Start([&] { brynd::StartSettings(brynd::FindSettingsFile(argc, argv)); }); });
}

EngStatus EngInitWithIni(const char* path) {
  return AtBoundary([&]() -> EngStatus {
    if (path == nullptr) return status::kBadArgument;
    Process().Start([&] { brynd::StartSettings(path); });
    return status::kOk;
  });
}

// A thread needs nothing of its own: what the engine keeps for one is made when it is first used and goes
// with it.
EngStatus EngThreadInit(void) { return Process().Started() ? status::kOk : status::kNotInitialized; }

void EngThreadTerm(void) {}

void EngTerm(void) { Process().Stop(); }
