// Character sets and the conventions of a place.
#include "base/text.h"

#include <algorithm>

#include "base/boundary.h"
#include "base/charset.h"
#include "base/intl.h"
#include "brynd_text.h"

using brynd::AtBoundary;

namespace status = brynd::status;

namespace {

constexpr uint16_t kUtf8ToEngine = 0, kEngineToUtf8 = 1;

}  // namespace

uint32_t EngCharsetTranslate(uint16_t direction, const char* source, uint32_t source_bytes, char* target,
                             uint32_t target_bytes) {
  if (direction > kEngineToUtf8) return 0;
  if (source == nullptr || target == nullptr) return 0;
  const std::string_view text(source, source_bytes);
  const size_t written = direction == kUtf8ToEngine ? brynd::Utf8ToEngine(text, target, target_bytes)
                                                    : brynd::EngineToUtf8(text, target, target_bytes);
  return static_cast<uint32_t>(written);
}

EngStatus EngIntlSettingsGet(INTLFORMAT* intl, uint16_t intl_bytes) {
  return AtBoundary([&]() -> EngStatus {
    if (intl == nullptr) return status::kBadArgument;
    const INTLFORMAT settings = brynd::IntlFromSettings();
    brynd::CopyBytes(intl, &settings, std::min<size_t>(intl_bytes, sizeof settings));
    return status::kOk;
  });
}
