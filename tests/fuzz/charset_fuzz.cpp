// Any bytes as UTF-8 and as engine text: translation stays in its room, reads to the end, and what was valid
// comes back whole.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/charset.h"
#include "base/text.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

void CheckWalk(std::string_view text) {
  size_t position = 0, count = 0;
  for (; position < text.size(); ++count) {
    const size_t before = position;
    Require(brynd::NextCharacter(text, &position) <= 0x10ffff);
    Require(position > before && position <= text.size());
  }
  Require(count == brynd::CountCharacters(text));
}

void CheckLimits(std::string_view text, size_t limit) {
  const std::string engine = brynd::EngineFromUtf8(text);
  std::string room(limit + 1, '#');
  const size_t bytes = brynd::Utf8ToEngine(text, room.data(), limit);
  Require(bytes <= limit && room[limit] == '#');
  Require(engine.compare(0, bytes, room, 0, bytes) == 0);
  Require(bytes == brynd::CutText(engine, bytes).size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckWalk(text);
  CheckLimits(text, size == 0 ? 0 : data[0] % (size + 1));
  // What engine text means is kept by a translation there and back.
  const std::string utf8 = brynd::Utf8FromEngine(text);
  Require(brynd::Utf8FromEngine(brynd::EngineFromUtf8(utf8)) == utf8);
  brynd::LowerCase(brynd::UpperCase(text));
  return 0;
}
