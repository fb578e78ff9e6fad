// Stored text with special sequences as display text.
//
// A sequence runs from a byte 0x7f through the next byte 0xff and stands for something that only the place in
// a view tells. The engine does not tell it yet, so every sequence is left out.
#include <cstring>

#include "brynd.h"
#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr uint32_t kTypeWordBytes = 2;
constexpr uint32_t kListHeadBytes = kTypeWordBytes + 2;  // type word and count word
constexpr uint32_t kTranslatedBytesMax = 1022;  // of text in the session's buffer, behind the type word
constexpr char kSequenceStart = 0x7f;
constexpr char kSequenceEnd = static_cast<char>(0xff);

uint32_t HeaderBytes(const char* value, uint32_t length) {
  if (length < kTypeWordBytes) return length;
  if (KVI_BRDataTypeRead(value, 0) == BRTYPE_TEXT) return kTypeWordBytes;
  if (length < kListHeadBytes) return length;
  const uint32_t bytes = kListHeadBytes + 2 * uint32_t{KVILoad<uint16_t>(value + kTypeWordBytes)};
  return bytes < length ? bytes : length;
}

// Copies text up to a NUL, sequences left out; returns the bytes written.
uint32_t CopyWithoutSequences(const char* text, uint32_t text_bytes, char* target) {
  uint32_t written = 0;
  bool inside = false;
  for (uint32_t i = 0; i < text_bytes && text[i] != 0 && written < kTranslatedBytesMax; ++i) {
    if (inside)
      inside = text[i] != kSequenceEnd;
    else if (text[i] == kSequenceStart)
      inside = true;
    else
      target[written++] = text[i];
  }
  return written;
}

}  // namespace

uint32_t _TranslateItem(_api_session* session, _INDEX*, _DOCUMENT*, const void* data, uint32_t* length) {
  const auto* value = static_cast<const char*>(data);
  const uint32_t header_bytes = HeaderBytes(value, *length);
  KVIStore<uint16_t>(session->buffer, BRTYPE_TEXT);
  char* target = session->buffer + kTypeWordBytes;
  const uint32_t text_bytes = CopyWithoutSequences(value + header_bytes, *length - header_bytes, target);
  target[text_bytes] = 0;
  *length = text_bytes + kTypeWordBytes;
  return KVSUCCESS;
}
