// Composite values and colours: not in this build.
#include "base/status.h"
#include "brynd_item.h"
#include "brynd_text.h"

namespace status = brynd::status;

EngStatus EngItemToComposite(BLOCKID, uint32_t, uint32_t, const char*, uint16_t, EngMem*, uint32_t*, uint32_t,
                             uint32_t, uint32_t, uint32_t) {
  return status::kNotAvailable;
}

// Only the colours that both tables share are known yet.
uint32_t EngColorMapToV3(uint32_t color) {
  constexpr uint32_t kSharedColors = 16;
  return color < kSharedColors ? color : 0;
}
