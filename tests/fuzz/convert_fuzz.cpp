// Conversion of anything to anything: stored values as hostile bytes, text as list, number and date, under
// settings that come from the input. Results must keep within their limits, exact lengths must be what is
// written, and two ways to one result must agree.
//
// Input: source type, destination type, flags, limit, 12 bytes of format, 1 byte for the newline's length and
// 1 for truncation, 20 bytes of separators, then the source.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kvint.h"

namespace {

constexpr size_t kHeadBytes = 4 + 12 + 2 + 20;
constexpr char kFill = '\x5a';

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}
void Require(bool holds, const char* what) {
  if (!holds) Die(what);
}

_api_session* Session() {
  static _api_session* const session = [] {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("kavrin-fuzz-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    std::string ini = (folder / "BRYND.INI").string();
    std::ofstream(ini) << "Directory=" << folder.string() << "\n";
    Require(_KVInit(KVAPI_VERSION, KVINIT_INI_FILE, 0, reinterpret_cast<char**>(ini.data())) == KVSUCCESS,
            "no start");
    return KVICurrentSession();
  }();
  return session;
}

// Settings as they may be, with every string ended.
void Apply(const uint8_t* head, _api_session* session) {
  std::memcpy(&session->format.format, head + 4, sizeof(FORMAT));
  session->newline_delim_len = head[16] % 6;
  std::memcpy(session->newline_delimiter, "\r\n<>|", 5);
  session->truncate_text = head[17] & 1;
  INTLFORMAT& intl = session->format.intl;
  intl.Flags = static_cast<uint16_t>(head[18] & 0xe0);
  char* const strings[] = {intl.DateString, intl.TimeString, intl.AMString, intl.PMString};
  uint16_t lengths[4];
  for (int i = 0; i < 4; ++i) {
    std::memcpy(strings[i], head + 18 + i * 4, 4);
    strings[i][4] = 0;
    lengths[i] = static_cast<uint16_t>(std::strlen(strings[i]));
  }
  session->format.datesep_len = lengths[0];
  session->format.timesep_len = lengths[1];
  session->format.amstring_len = lengths[2];
  session->format.pmstring_len = lengths[3];
}

void ConvertOnce(_api_session* session, const uint8_t* head, const std::vector<char>& source) {
  const uint32_t src_type = head[0] % 10, dest_type = head[1] % 10;
  const uint32_t flags = (head[2] & 1) != 0 ? KVCONV_LINES : 0;
  const uint32_t limit = head[3] == 0 ? 0 : head[3] * (head[2] & 0x80 ? 8u : 1u);
  const auto bytes = static_cast<uint32_t>(source.size());
  session->errcode = 0;

  uint32_t exact = 0;
  const uint32_t length_status =
      _DataLength(session, src_type, bytes, source.data(), dest_type, flags, nullptr, nullptr, &exact);
  char* block = nullptr;
  uint32_t whole = 0;
  const uint32_t status = _DataConvert(session, nullptr, nullptr, src_type, bytes, source.data(),
                                       flags | KVCONV_ALLOC, nullptr, nullptr, dest_type, 0, &block, &whole);
  Require((status == KVSUCCESS) == (block != nullptr), "a block without success");
  const bool is_composite = src_type == KVTYPE_COMPOSITE || dest_type == KVTYPE_COMPOSITE;
  if (status == KVSUCCESS) {
    // A value of a list that the engine cannot write becomes an empty text, but has no length.
    const bool is_list = src_type == KVTYPE_NUMBERLIST || src_type == KVTYPE_DATETIMELIST;
    Require(length_status == KVSUCCESS || is_list, "converted, but its length failed");
    if (length_status == KVSUCCESS) {
      // A stored text list may be longer than its entries need, and its text is measured by its whole length.
      Require(exact >= whole, "a result longer than its exact length");
      Require(exact == whole || (src_type == KVTYPE_TEXTLIST && dest_type == KVTYPE_TEXT),
              "not the exact length");
    }
    if (dest_type == KVTYPE_TEXT) Require(block[whole] == 0, "no NUL behind a text");
  }
  if (limit != 0 && !is_composite) {
    std::vector<char> buffer(limit + 1, kFill);
    uint32_t actual = 0;
    const uint32_t limited = _DataConvert(session, nullptr, nullptr, src_type, bytes, source.data(), flags,
                                          nullptr, nullptr, dest_type, limit, buffer.data(), &actual);
    if (limited == KVSUCCESS) {
      Require(status == KVSUCCESS, "a limit makes it convert");
      Require(actual <= limit && actual <= whole, "beyond the limit");
      Require(std::memcmp(buffer.data(), block, actual) == 0, "not a beginning of the whole result");
    }
  }
  KVIFree(block);
}

void ReadOnce(_api_session* session, const std::vector<char>& source) {
  const auto bytes = static_cast<uint32_t>(source.size());
  for (uint32_t type : {KVTYPE_NUMBERLIST, KVTYPE_DATETIMELIST})
    for (uint32_t index = 0; index < bytes;) {
      const uint32_t before = index;
      char value[8];
      if (ScanString(source.data(), bytes, type, nullptr, &session->format, &index, value) != KVSUCCESS)
        break;
      Require(index >= before && index <= bytes, "an index that goes back or beyond the end");
      ++index;
    }
  const std::string text(source.begin(), source.end());
  TIMEDATE date;
  TIME time{};
  const char* end = nullptr;
  String2Date(text.c_str(), &session->format, &date, &end);
  Require(end >= text.c_str() && end <= text.c_str() + text.size(), "a date that ends elsewhere");
  GetDate(text.c_str(), &session->format, &time, &end);
  GetTime(text.c_str(), &session->format, &time, &end);
  const char* data = text.c_str();
  Require(GetMonth(&data) <= 12, "a thirteenth month");
  uint32_t length = bytes;
  if (ReviseSplitCharacter(&length, source.data()))
    Require(length + 2 >= bytes && length <= bytes, "too much cut");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kHeadBytes) return 0;
  _api_session* const session = Session();
  Apply(data, session);
  const std::vector<char> source(data + kHeadBytes, data + size);
  ConvertOnce(session, data, source);
  ReadOnce(session, source);
  return 0;
}
