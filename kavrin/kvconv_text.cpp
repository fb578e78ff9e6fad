// Conversions to text.
//
// (1) A text that must not be cut has been measured before, or takes its room when its length is known. (2) A
// text that may be cut ends at the limit exactly, whatever it is made of. (3) Behind every text stands a NUL,
// outside of its length.
#include <algorithm>

#include "kvconv.h"

namespace {

// The text under construction.
struct TEXTSINK {
  char* text;
  uint32_t length;
  uint32_t limit;
};

TEXTSINK SinkOf(const CONVERSION& conversion) { return {conversion.buffer, 0, conversion.limit}; }

// Appends what fits. False once the text is as long as it may be.
bool Put(TEXTSINK* sink, const char* text, uint32_t text_bytes) {
  const uint32_t fitting = std::min(text_bytes, sink->limit - sink->length);
  KVICopyBytes(sink->text + sink->length, text, fitting);
  sink->length += fitting;
  return sink->length < sink->limit;
}

uint32_t Finish(CONVERSION* conversion, const TEXTSINK& sink) {
  conversion->buffer[sink.length] = 0;
  conversion->length = sink.length;
  return KVSUCCESS;
}

// A text that is known whole.
uint32_t PutWhole(CONVERSION* conversion, const char* text, uint32_t text_bytes) {
  if (const uint32_t status = KVITakeRoom(conversion, text_bytes); status != KVSUCCESS) return status;
  TEXTSINK sink = SinkOf(*conversion);
  Put(&sink, text, text_bytes);
  return Finish(conversion, sink);
}

// Engine text with the session's newline for each NUL.
uint32_t PutLines(CONVERSION* conversion) {
  const char* text = conversion->src;
  const char* const text_end = text + conversion->src_bytes;
  const char* const newline = conversion->session->newline_delimiter;
  const auto newline_bytes = static_cast<uint32_t>(conversion->session->newline_delim_len);
  TEXTSINK sink = SinkOf(*conversion);
  while (text != text_end) {
    const void* found = std::memchr(text, 0, static_cast<size_t>(text_end - text));
    const char* line_end = found == nullptr ? text_end : static_cast<const char*>(found);
    if (!Put(&sink, text, static_cast<uint32_t>(line_end - text))) break;
    if (found == nullptr) break;
    if (!Put(&sink, newline, newline_bytes)) break;
    text = line_end + 1;
  }
  return Finish(conversion, sink);
}

const char* FindLineEnd(const char* text, const char* text_end) {
  while (text != text_end && *text != '\n' && *text != '\r') ++text;
  return text;
}

// Text for an item: each line end becomes a NUL, and a pair of the two characters is one line end.
uint32_t WriteText(CONVERSION* conversion) {
  const char* text = conversion->src;
  const char* const text_end = text + conversion->src_bytes;
  const char* line_end = FindLineEnd(text, text_end);
  if (line_end == text_end) {
    KVIPassSource(conversion, conversion->src_bytes);
    return KVSUCCESS;
  }
  // A text of the session buffer's whole size goes to a block, so that a NUL always has room behind it.
  const uint32_t room_bytes = std::max(conversion->src_bytes, uint32_t{1});
  const uint32_t status =
      KVITakeRoom(conversion, room_bytes >= kSessionTextBytes ? room_bytes + 1 : room_bytes);
  if (status != KVSUCCESS) return status;
  TEXTSINK sink = SinkOf(*conversion);
  const char line_separator = 0;
  while (line_end != text_end) {
    Put(&sink, text, static_cast<uint32_t>(line_end - text));
    Put(&sink, &line_separator, 1);
    text = line_end + 1;
    if (text != text_end && (*text == '\n' || *text == '\r') && *text != *line_end) ++text;
    line_end = FindLineEnd(text, text_end);
  }
  Put(&sink, text, static_cast<uint32_t>(text_end - text));
  return Finish(conversion, sink);
}

}  // namespace

uint32_t KVIScalarToText(CONVERSION* conversion) {
  char text[kDatetimeTextMax + 1];
  uint16_t text_bytes = 0;
  const uint16_t brstatus = KVIFormatValue(&conversion->api_format->intl, conversion->format,
                                           conversion->src_type, conversion->src, text, &text_bytes);
  if (brstatus != 0) return KVIFormatFailure(conversion, brstatus);
  return PutWhole(conversion, text, text_bytes);
}

uint32_t KVITextToText(CONVERSION* conversion) {
  if (KVIIsWrite(*conversion)) return WriteText(conversion);
  const bool is_lines =
      (conversion->flags & KVCONV_LINES) != 0 && (conversion->flags & KVCONV_SRC_TERMINATED) == 0;
  if (is_lines && conversion->session->newline_delim_len > 0) return PutLines(conversion);
  TEXTSINK sink = SinkOf(*conversion);
  Put(&sink, conversion->src, conversion->src_bytes);
  return Finish(conversion, sink);
}

uint32_t KVITextListToText(CONVERSION* conversion) {
  char delim[kDispDelimBytes];
  const uint32_t delim_bytes = GetListDispDelim(conversion->format, delim);
  TEXTSINK sink = SinkOf(*conversion);
  TEXTLISTWALK walk = KVIWalkTextList(conversion->src, conversion->count);
  for (uint32_t i = 0; i < conversion->count; ++i, KVINextEntry(&walk)) {
    if (i != 0 && !Put(&sink, delim, delim_bytes)) break;
    if (!Put(&sink, walk.text, KVIEntryBytes(walk))) break;
  }
  return Finish(conversion, sink);
}

uint32_t KVIRangeToText(CONVERSION* conversion) {
  char delim[kDispDelimBytes];
  const uint32_t delim_bytes = GetListDispDelim(conversion->format, delim);
  const uint32_t value_count = conversion->count + conversion->range * 2;
  TEXTSINK sink = SinkOf(*conversion);
  const char* value = KVIRangeListValues(conversion->src);
  for (uint32_t i = 0; i < value_count; ++i, value += kListValueBytes) {
    const bool is_high = i >= conversion->count && (i - conversion->count) % 2 == 1;
    if (is_high && !Put(&sink, "-", 1)) break;
    if (!is_high && i != 0 && !Put(&sink, delim, delim_bytes)) break;
    char text[kDatetimeTextMax + 1];
    const uint16_t text_bytes = ListType2String(value, text, conversion->src_type, KVTYPE_TEXT,
                                                conversion->format, conversion->api_format);
    if (!Put(&sink, text, text_bytes)) break;
  }
  return Finish(conversion, sink);
}

uint32_t KVIFormulaToText(CONVERSION* conversion) {
  EngMem hand = 0;
  uint16_t text_bytes = 0;
  if (EngFormulaDecompile(conversion->src, 0, &hand, &text_bytes) != 0) {
    conversion->untouched = conversion->limit != kNoLimit && !conversion->truncate;
    return KVFAIL_BAD_FORMAT;
  }
  KVGuard free_hand([&] { EngMemFree(hand); });
  const KVLocked text(hand);
  return PutWhole(conversion, text.bytes, text_bytes);
}
