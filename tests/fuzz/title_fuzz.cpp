// Titles of design records: of any bytes, where each piece lies in them; and names made into a title and
// taken apart again.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kvint.h"

namespace {

void Demand(bool holds) {
  if (!holds) std::abort();
}

struct Pieces {
  const char* text[3] = {};
  uint16_t bytes[3] = {};
  int32_t hidden = 0;
  std::string Piece(int place) const {
    return text[place] == nullptr ? std::string() : std::string(text[place], bytes[place]);
  }
};

uint32_t Parse(const std::vector<char>& value, uint16_t type, Pieces* pieces) {
  return ParseTitle(value.data(), static_cast<uint32_t>(value.size()), type, &pieces->text[0],
                    &pieces->bytes[0], &pieces->text[1], &pieces->bytes[1], &pieces->text[2],
                    &pieces->bytes[2], &pieces->hidden);
}

void TakeApart(const std::vector<char>& value, uint16_t type) {
  Pieces pieces;
  const uint32_t status = Parse(value, type, &pieces);
  for (int i = 0; i < 3; ++i) {
    Demand((pieces.text[i] == nullptr) == (pieces.bytes[i] == 0));
    if (pieces.text[i] == nullptr) continue;
    Demand(status == KVSUCCESS);
    Demand(pieces.text[i] >= value.data());
    Demand(pieces.text[i] + pieces.bytes[i] <= value.data() + value.size());
    Demand(pieces.text[i][0] != ' ' && pieces.text[i][pieces.bytes[i] - 1] != ' ');
  }
}

// Three texts that end with NUL: name, menu name, cascade name.
void PutTogether(const std::vector<char>& bytes) {
  std::string names[3];
  size_t at = 0;
  for (std::string& name : names) {
    while (at < bytes.size() && bytes[at] != 0) name += bytes[at++];
    ++at;
  }
  std::vector<char> title(kDesignNameBytes, 'x');
  const uint32_t status =
      KVIDesignNoteMakeName(names[0].c_str(), names[1].c_str(), names[2].c_str(), title.data());
  Demand(memchr(title.data(), 0, title.size()) != nullptr);
  if (status != KVSUCCESS) return;
  Demand(strlen(title.data()) <= kDesignTitleMax);
  Pieces pieces;
  const std::vector<char> value(title.data(), title.data() + strlen(title.data()));
  Demand(Parse(value, BRTYPE_TEXT, &pieces) == KVSUCCESS);
  // Menu names without blanks at their ends come back as they went in.
  const std::string& menu = names[1];
  if (menu.empty() || menu.front() == ' ' || menu.back() == ' ' || !names[2].empty()) return;
  Demand(pieces.Piece(1) == menu);
}

}  // namespace

// The first byte tells what to do with the rest.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<char> rest(data + 1, data + size);
  switch (*data) {
    case 't':
      TakeApart(rest, BRTYPE_TEXT);
      break;
    case 'l':
      TakeApart(rest, BRTYPE_TEXT_LIST);
      break;
    case 'm':
      PutTogether(rest);
      break;
    default:
      TakeApart(rest, *data);
  }
  return 0;
}
