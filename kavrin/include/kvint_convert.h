// Internal side of data conversion: the tables of the public types, the one conversion routine, the scanners
// of text, and the cursors over lists.
//
// (1) A source without KVCONV_SRC_TERMINATED is exactly as long as its length says, 0 included: its counts,
// lengths
//     and widths are checked against that, so that a damaged stored value gives KVFAIL_BAD_FORMAT and is
//     never read past its end. With the flag, a length of 0 means that the value tells its own length, which
//     the caller answers for.
// (2) Values lie at any address: they are read and written by memcpy alone.
// (3) A conversion to the caller's buffer does not use the session's buffer, so its source may lie there.
#ifndef KVINT_CONVERT_H
#define KVINT_CONVERT_H

#include "kavrin_convert.h"
#include "kavrin_datetime.h"
#include "kavrin_list.h"
#include "kvint_session.h"

// Types

constexpr uint32_t kKVTypeCount = 9;       // KVTYPE_NONE to KVTYPE_FORMULA
constexpr uint32_t kKVTypeMax = 9;         // accepted by the range test; 9 itself converts to nothing
constexpr uint32_t kNumberTextMax = 39;    // characters of a formatted number
constexpr uint32_t kDatetimeTextMax = 79;  // characters of a formatted date-time
constexpr uint32_t kScanTextMax = 80;      // characters of a text that are read as one number or date
constexpr uint32_t kListValueBytes = 8;    // a double or a TIMEDATE
constexpr uint32_t kListHeadBytes = 4;     // the two count words of a number or date-time list
constexpr uint32_t kListEntriesMax = 0xffff;
constexpr uint32_t kListEntryBytesMax = 0xffff;
constexpr uint32_t kSessionTextBytes = 1024;  // results up to this are built in the session's buffer
constexpr uint16_t kEngNotAvailable = 0x1ff;

extern const uint16_t brynd_type[kKVTypeCount];   // engine type word of a public type
extern const uint8_t fixed_length[kKVTypeCount];  // 1: every value of the type has the size min_length
extern const uint16_t min_length[kKVTypeCount];   // smallest buffer that may be offered for the type
extern const int16_t convert_length[kKVTypeCount]
                                   [kKVTypeCount];  // [destination][source]; 0: no such conversion
extern const uint8_t implicit_convert[kKVTypeCount][kKVTypeCount];  // [item type][form type]

// Engine word of a valid public type.
uint16_t GetBryndType(uint32_t kvtype);
// Public type of an engine type word, KVTYPE_NONE for words that no public type stands for.
uint32_t GetKVType(uint16_t wBRType);
// Type word at the start of a stored value of at least 2 bytes, at any address.
uint16_t KVI_BRDataTypeRead(const void* data, int IsCanon);

// Flags of _DataLength and _DataConvert.
enum : uint32_t {
  KVCONV_SUMMARY = 0x00010000,         // bit 4 of the flags decides on the summary flag of the item
  KVCONV_ITEM_FLAGS = 0x00020000,      // the low 16 bits of the flags are the item's flags
  KVCONV_WRITE = 0x01000000,           // append the result to the document as an item
  KVCONV_ALLOC = 0x02000000,           // allocate the result; dest_buf is the address of the pointer to it
  KVCONV_SRC_TERMINATED = 0x04000000,  // a source length of 0 is unknown, not empty
  KVCONV_LINES = 0x08000000,           // NULs in engine text become the session's newline
  KVCONV_REPLACE = 0x10000000,         // with KVCONV_WRITE: the old items of that name go
  KVCONV_ESTIMATE = 0x20000000         // _DataLength: an upper limit will do
};

constexpr uint16_t kItemSummary = 4;  // the item flag that puts a value into summaries

// Conversion

// Size of the result of a conversion, without the NUL of a text. nonrange_count (optional) receives the
// number of single values of a number or date-time list that is made of text. A null format is the session's.
// Failures are not reported to the session, those of formula text excepted.
uint32_t _DataLength(_api_session* session, uint32_t src_type, uint32_t src_len, const void* src_buf,
                     uint32_t dest_type, uint32_t flags, const FORMAT* format, uint32_t* nonrange_count,
                     uint32_t* dest_len);

// Converts a value and hands it to the caller, in a buffer or a new block (KVIFree), or appends it to doc as
// an item. A text result has a NUL behind it, so its buffer has dest_len + 1 bytes. Failures are not reported
// to the session, those of the engine's formatting and of formula text excepted.
uint32_t _DataConvert(_api_session* session, _DATABASE* dbase, _DOCUMENT* doc, uint32_t src_type,
                      uint32_t src_len, const void* src_buf, uint32_t flags, const char* itemname,
                      const FORMAT* format, uint32_t dest_type, uint32_t dest_len, void* dest_buf,
                      uint32_t* actual_len);

// All conversions from and to composites. A composite as source or result is its handle in 4 bytes, but for
// a read from a document, whose source are the items of that name. Those from and to text are not available
// yet: the engine's status 0x1ff. KVFAIL_BAD_COMPOSITE, KVFAIL_ILLEGAL_CONVERSION (no document),
// KVFAIL_NO_MEMORY, KVFAIL_INTERNAL (a record that no item holds), KVFAIL_BAD_FORMAT, or an engine status;
// what the engine refuses is reported to the session. A failed write changes nothing.
uint32_t _CompConvert(_api_session* session, _DOCUMENT* doc, uint32_t src_type, uint32_t src_len,
                      const void* src_buf, uint32_t dest_type, uint32_t dest_len, void* dest_buf,
                      uint32_t* actual_len, const char* itemname, uint32_t flags, const FORMAT* format);

// Formats

constexpr uint32_t kDispDelimBytes = 3;   // two characters and a NUL
constexpr uint32_t kAllowDelimBytes = 6;  // five characters and a NUL

// Internal format to public one. listsep is a 16-bit word at any address, here and below.
void GetFormat(KVFORMAT* format, const NFMT* nfmt, const TFMT* tfmt, const void* listsep);
// Public format to internal one; a part that is null is neither checked nor written. KVFAIL_BAD_ENUM, nothing
// written.
uint32_t PutFormat(const KVFORMAT* format, NFMT* nfmt, TFMT* tfmt, void* listsep);
// Writes the separator that lists are shown with and a NUL; returns its length.
uint32_t GetListDispDelim(const FORMAT* format, char* delim);
// Writes the separators that end an entry of a list text and a NUL; returns their number.
uint32_t GetListAllowDelim(const FORMAT* format, char* delim);

// Scanning

// Reads one value off a list text: a number for KVTYPE_NUMBERLIST, else a date. index is where to start and
// receives where reading stopped, 0 for a failure; value (8 bytes, optional) receives the value. A null
// format is that of api_format. KVFAIL_END_OF_DATA (index unchanged) when nothing but white space is left;
// KVFAIL_DATA_TOO_LONG for a number out of range; the statuses of String2Date.
uint32_t ScanString(const char* src, uint32_t src_len, uint32_t dest_type, const FORMAT* format,
                    const API_FORMAT* api_format, uint32_t* index, void* value);
// Reads a date, a time or both, in either order. end_ptr (optional) receives where reading stopped.
uint32_t String2Date(const char* string, const API_FORMAT* format, TIMEDATE* date, const char** end_ptr);
// Parts of String2Date. KVFAIL_END_OF_DATA when no date, no time starts here. GetDate reads the current year
// from time.
uint32_t GetDate(const char* buffer, const API_FORMAT* format, TIME* time, const char** end_ptr);
uint32_t GetTime(const char* buffer, const API_FORMAT* format, TIME* time, const char** end_ptr);
// Month 1 to 12 whose name or short name starts at *data, which steps over it; 0 for none.
uint32_t GetMonth(const char** data);
// Writes one value of a number or date-time list as text: with a NUL for KVTYPE_TEXT, without for
// KVTYPE_TEXTLIST. Returns its length; 0 for a value that cannot be formatted. dest has kDatetimeTextMax + 1
// bytes.
uint16_t ListType2String(const void* src, char* dest, uint32_t src_type, uint32_t dest_type,
                         const FORMAT* format, const API_FORMAT* api_format);
// Takes a multi-byte character that is cut off at the end out of a text; write stores a NUL at the new end.
// False when there was nothing to look at. The second form never writes.
bool ReviseSplitCharacter(uint32_t* pbufflen, char* buffer, int write);
bool ReviseSplitCharacter(uint32_t* pbufflen, const void* buffer);

// Lists

// Moves a cursor that counts from 1 over max entries. KVFAIL_END_OF_DATA, KVFAIL_DATA_UNAVAILABLE,
// KVFAIL_BAD_ENUM.
uint32_t ListIterate(int32_t list, uint32_t* index, uint32_t max);
// Copies the engine's list into the cursor, which owns its buffer from then on (KVIFree), and frees the
// engine's. Returns the count of entries; with no memory 0, and the cursor's buffer is null.
uint32_t TextListCopy(EngMem listhand, KVTEXTLIST* textlist);
// Moves the cursor and copies the entry that it reaches: at most length bytes and a NUL, so buffer has length
// + 1 bytes. A logical record is count entries long, and the caller reads all of them: the first by list, the
// others by KVLIST_NEXT. KVLIST_PREVIOUS and KVLIST_CURRENT then go to the first entry of the record before,
// of this record, KVLIST_LAST to that of the last record. Statuses as ListIterate.
uint32_t TextListIterate(KVTEXTLIST* textlist, int32_t list, uint32_t count, char* buffer, uint32_t length);

#endif
