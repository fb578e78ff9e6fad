// Texts of statuses.
#include "base/message.h"

#include "base/bytes.h"
#include "base/text.h"
#include "brynd_init.h"

// Bits 14 and 15 of a status say nothing about its text. Modules other than the engine itself have no texts
// here.
uint16_t EngMessageLoad(uint32_t module, uint16_t code, char* text, uint16_t text_bytes) {
  constexpr uint16_t kCodeMask = 0x3fff;
  if (text == nullptr || text_bytes == 0) return 0;
  const std::string_view message = module == 0 ? brynd::MessageText(code & kCodeMask) : std::string_view();
  const std::string_view loaded = brynd::CutText(message, text_bytes - 1u);
  brynd::CopyBytes(text, loaded.data(), loaded.size());
  text[loaded.size()] = 0;
  return static_cast<uint16_t>(loaded.size());
}
