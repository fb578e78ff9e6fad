#include "base/message.h"

#include "base/status.h"

namespace brynd {
namespace {

constexpr std::string_view kVersionText = "Brynd Release 5.0 (Build 190), a document database engine";
constexpr size_t kVersionTextBytesMax = 80;
static_assert(kVersionText.size() < kVersionTextBytesMax && kEngineBuildNumber == 190);

// The classes that belong to the design collection are chosen by its class word; the formula takes all their
// records.
constexpr std::string_view kDesignSelection = "SELECT @All";

struct MessageRow {
  uint16_t number;
  std::string_view text;
};
constexpr MessageRow kMessages[] = {{kVersionMessage, kVersionText},
                                    {kDesignSelectionMessage, kDesignSelection}};

}  // namespace

std::string_view MessageText(uint16_t number) noexcept {
  for (const MessageRow& row : kMessages)
    if (row.number == number) return row.text;
  return StatusText(number);
}

}  // namespace brynd
