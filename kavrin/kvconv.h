// What the sources of data conversion share: one conversion under way, and the cells of the conversion
// matrix.
//
// A cell is a pair of types with two functions: `measure` tells how long the result is, `convert` makes it.
// Both find the source checked (KVIOpenSource), so they trust its counts and lengths.
#ifndef KVCONV_H
#define KVCONV_H

#include "kvint_convert.h"
#include "kvint_system.h"

constexpr uint32_t kNoLimit = 0xffffffff;

// A conversion under way.
struct CONVERSION {
  _api_session* session;
  uint32_t src_type;
  uint32_t dest_type;
  uint32_t flags;
  const FORMAT* format;          // never null
  const API_FORMAT* api_format;  // that of the session

  const char* src;     // the source
  uint32_t src_bytes;  // its length; that of a list or formula may be longer than what its counts need
  uint32_t count;      // entries of a text list, single values of a number or date-time list
  uint32_t range;      // ranges of a number or date-time list

  char* buffer;          // where the result is built
  const char* result;    // the result of a write: in buffer, or the source itself
  uint32_t length;       // of the result, a text without its NUL
  uint32_t limit;        // bytes that the caller's buffer has for it, kNoLimit for no check
  bool truncate;         // a text that exceeds the limit is cut
  bool owned;            // buffer is a block of the library's heap
  bool untouched;        // the conversion failed before it wrote anything
  bool counted;          // the measure has left the count of the result's entries below
  uint32_t entry_count;  // entries of a text list, single values of a number or date-time list
};

// Adds up the length of a result.
using MEASURE = uint32_t (*)(CONVERSION* conversion, bool estimate, uint64_t* bytes);
// Makes a result: fills buffer, sets length, and for a write result where that is not buffer.
using CONVERT = uint32_t (*)(CONVERSION* conversion);

// Finds length, count and range of the source, checked against its length where that is known.
uint32_t KVIOpenSource(CONVERSION* conversion, const void* src_buf, uint32_t src_len);
// Makes room for a result of that many bytes, and the NUL of a text: a block, the session's buffer, or the
// caller's, whose limit is checked. A text that is to be cut passes. Cells that call it need no measure
// before them.
uint32_t KVITakeRoom(CONVERSION* conversion, uint32_t bytes);
inline bool KVIIsToCaller(const CONVERSION& conversion) {
  return (conversion.flags & (KVCONV_WRITE | KVCONV_ALLOC)) == 0;
}
inline bool KVIIsWrite(const CONVERSION& conversion) { return (conversion.flags & KVCONV_WRITE) != 0; }
// The result is the source as it stands: no copy for a write.
void KVIPassSource(CONVERSION* conversion, uint32_t bytes);
// What an engine's failure to format a value becomes. Behind a limit that is checked it is bad data, else it
// is reported.
uint32_t KVIFormatFailure(CONVERSION* conversion, uint16_t brstatus);
// Compiles the source text. KVFAIL_FORMULA, reported with the place.
uint32_t KVICompile(CONVERSION* conversion, EngMem* formula, uint16_t* formula_bytes);

inline bool KVIIsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool KVIIsDigit(char c) { return c >= '0' && c <= '9'; }
inline bool KVIIsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

inline bool KVIIsNumberKind(uint32_t type) { return type == KVTYPE_NUMBER || type == KVTYPE_NUMBERLIST; }

// Characters that the text of a value of this kind has at most.
inline uint32_t KVIValueTextMax(uint32_t type) {
  return KVIIsNumberKind(type) ? kNumberTextMax : kDatetimeTextMax;
}

// Writes a number or date-time of the kind of `type` as text; text has kDatetimeTextMax + 1 bytes.
uint16_t KVIFormatValue(const INTLFORMAT* intl, const FORMAT* format, uint32_t type, const void* value,
                        char* text, uint16_t* text_bytes);

// Reads a plain decimal number, "." its decimal sign whatever the locale. Returns where reading stopped, text
// itself when no number starts there; *in_range is false for a number too large for a double.
const char* KVIReadNumber(const char* text, const char* text_end, double* number, bool* in_range);
// String2Date on a text with an end.
uint32_t KVIReadDate(const char* text, const char* text_end, const API_FORMAT* format, TIMEDATE* date,
                     const char** stop);

// The separators that end an entry of a list text.
struct LISTDELIM {
  char characters[kAllowDelimBytes];
  uint32_t count;
};
LISTDELIM KVIListDelim(const FORMAT* format);
inline bool KVIIsDelim(const LISTDELIM& delim, char c) {
  for (uint32_t i = 0; i < delim.count; ++i)
    if (delim.characters[i] == c) return true;
  return false;
}

// One entry of a list text, white space at its ends left out; empty for a stretch that is no entry.
struct LISTSTRETCH {
  const char* text;
  uint32_t bytes;
  const char* next;  // behind the separator, null after the last stretch
};
LISTSTRETCH KVINextStretch(const char* text, const char* text_end, const LISTDELIM& delim);

// Entries of a text list, in order.
struct TEXTLISTWALK {
  const char* length;
  const char* text;
};
inline TEXTLISTWALK KVIWalkTextList(const char* list, uint32_t count) {
  return {list + sizeof(uint16_t), list + sizeof(uint16_t) + count * sizeof(uint16_t)};
}
inline uint16_t KVIEntryBytes(const TEXTLISTWALK& walk) { return KVILoad<uint16_t>(walk.length); }
inline void KVINextEntry(TEXTLISTWALK* walk) {
  walk->text += KVIEntryBytes(*walk);
  walk->length += sizeof(uint16_t);
}

// One single value or range read off the text of a list.
struct RANGEVALUE {
  char low[kListValueBytes];
  char high[kListValueBytes];
  bool is_range;
};
// Where the scanning of a list text stands. The end of the entry is kept, so that a long entry that holds
// many values is not searched once for each.
struct LISTSCAN {
  const char* text;
  uint32_t text_bytes;
  uint32_t index;      // where to go on
  uint32_t entry_end;  // the first separator at or behind where it was sought last
  LISTDELIM delim;
};
inline LISTSCAN KVIStartScan(const FORMAT* format, const char* text, uint32_t text_bytes) {
  return {text, text_bytes, 0, 0, KVIListDelim(format)};
}
// Reads the value or range where the scan stands and moves to where reading stopped. KVFAIL_END_OF_DATA when
// there is none.
uint32_t KVIScanRange(const CONVERSION& conversion, LISTSCAN* scan, RANGEVALUE* value);

// Cells, by destination.
uint32_t KVIMeasureText(CONVERSION* conversion, bool estimate, uint64_t* bytes);  // text to text
uint32_t KVIMeasureScalarText(CONVERSION* conversion, bool estimate,
                              uint64_t* bytes);  // scalar to text, text list
uint32_t KVIMeasureTextListText(CONVERSION* conversion, bool estimate, uint64_t* bytes);  // text list to text
uint32_t KVIMeasureRangeText(CONVERSION* conversion, bool estimate,
                             uint64_t* bytes);  // list to text, text list
uint32_t KVIMeasureFormulaText(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureCompositeText(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureSource(CONVERSION* conversion, bool estimate, uint64_t* bytes);  // as long as the source
uint32_t KVIMeasureScalarRange(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureTextToTextList(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureTextToRange(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureTextListToRange(CONVERSION* conversion, bool estimate, uint64_t* bytes);
uint32_t KVIMeasureRange(CONVERSION* conversion, bool estimate, uint64_t* bytes);  // list to list of its kind
uint32_t KVIMeasureTextFormula(CONVERSION* conversion, bool estimate, uint64_t* bytes);

uint32_t KVICopyScalar(CONVERSION* conversion);
uint32_t KVITextToNumber(CONVERSION* conversion);
uint32_t KVITextListToNumber(CONVERSION* conversion);
uint32_t KVITextToDatetime(CONVERSION* conversion);
uint32_t KVITextListToDatetime(CONVERSION* conversion);
uint32_t KVIRangeToScalar(CONVERSION* conversion);

uint32_t KVIScalarToText(CONVERSION* conversion);
uint32_t KVITextToText(CONVERSION* conversion);
uint32_t KVITextListToText(CONVERSION* conversion);
uint32_t KVIRangeToText(CONVERSION* conversion);
uint32_t KVIFormulaToText(CONVERSION* conversion);

uint32_t KVIScalarToTextList(CONVERSION* conversion);
uint32_t KVITextToTextList(CONVERSION* conversion);
uint32_t KVICopyTextList(CONVERSION* conversion);
uint32_t KVIRangeToTextList(CONVERSION* conversion);

uint32_t KVIScalarToRange(CONVERSION* conversion);
uint32_t KVITextToRange(CONVERSION* conversion);
uint32_t KVITextListToRange(CONVERSION* conversion);
uint32_t KVICopyRange(CONVERSION* conversion);

uint32_t KVICopyFormula(CONVERSION* conversion);
uint32_t KVITextToFormula(CONVERSION* conversion);

// Bytes of a number or date-time list with these counts.
inline uint64_t KVIRangeListBytes(uint64_t count, uint64_t range) {
  return (count + range * 2) * kListValueBytes + kListHeadBytes;
}
// The values of a number or date-time list: the single ones, then low and high of each range.
inline const char* KVIRangeListValues(const char* list) { return list + kListHeadBytes; }

#endif
