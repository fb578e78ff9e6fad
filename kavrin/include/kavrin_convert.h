/* Conversion of values between the public types, and the display format that conversions to text follow.
 *
 * A value is bytes and a length beside it; its types and their layouts stand at KVTYPE_* in kavrin_types.h.
 * Text is the partner of every type; a number and a date are never made from each other.
 *
 *   from \ to     number  text  datetime  text list  number list  datetime list  composite  formula
 *   number          x       x                x           x
 *   text            x       x       x        x           x              x            x         x
 *   datetime                x       x        x                          x
 *   text list       x       x       x        x           x              x
 *   number list     x       x                x           x
 *   datetime list           x       x        x                          x
 *   composite               x                                                        x
 *   formula                 x                                                                  x
 *
 * Conversions from and to composites are not available in this version: they give the engine's status 0x1ff.
 */
#ifndef KAVRIN_CONVERT_H
#define KAVRIN_CONVERT_H

#include "kavrin_types.h"

/** Styles of numbers, KVFORMAT.number.number. */
enum {
  KVNUMFORMAT_GENERAL = 0,    /**< as many digits as the number needs */
  KVNUMFORMAT_FIXED = 1,      /**< a fixed number of decimal digits */
  KVNUMFORMAT_SCIENTIFIC = 2, /**< mantissa and exponent */
  KVNUMFORMAT_CURRENCY = 3    /**< fixed, with the currency symbol */
};

/** Display attributes of numbers, KVFORMAT.number.numdisp_flags. */
enum {
  KVNUMDISP_THOUSANDS = 1,   /**< thousands are separated */
  KVNUMDISP_PARENTHESES = 2, /**< negative numbers stand in parentheses */
  KVNUMDISP_PERCENT = 4      /**< as a percentage */
};

/** Styles of dates, KVFORMAT.datetime.date. */
enum {
  KVDATEFORMAT_FULL = 0,         /**< year, month and day */
  KVDATEFORMAT_CURRENT_YEAR = 1, /**< without the year when it is the current one */
  KVDATEFORMAT_MONTH_DAY = 2,    /**< month and day */
  KVDATEFORMAT_YEAR_MONTH = 3    /**< year and month */
};

/** Styles of times, KVFORMAT.datetime.time. */
enum {
  KVTIMEFORMAT_SECONDS = 0, /**< hour, minute and second */
  KVTIMEFORMAT_MINUTES = 1  /**< hour and minute */
};

/** Display of time zones, KVFORMAT.datetime.zone. */
enum {
  KVZONEFORMAT_NEVER = 0,     /**< times are told in the local zone, without its name */
  KVZONEFORMAT_SOMETIMES = 1, /**< the zone is told when it is not the local one */
  KVZONEFORMAT_ALWAYS = 2     /**< the zone is always told */
};

/** Parts of a date-time that are shown, KVFORMAT.datetime.datetime. */
enum {
  KVDTFORMAT_DATE = 0,          /**< the date */
  KVDTFORMAT_TIME = 1,          /**< the time */
  KVDTFORMAT_DATETIME = 2,      /**< both */
  KVDTFORMAT_DATETIME_WORDS = 3 /**< both, with words for yesterday, today and tomorrow */
};

/** Separators between the entries of a list that becomes text, KVFORMAT.listsep.display. */
enum {
  KVLISTDISP_DEFAULT = 0,   /**< comma and blank */
  KVLISTDISP_BLANK = 1,     /**< one blank */
  KVLISTDISP_COMMA = 2,     /**< comma and blank */
  KVLISTDISP_SEMICOLON = 3, /**< semicolon and blank */
  KVLISTDISP_NEWLINE = 4,   /**< one line feed */
  KVLISTDISP_BLANK_LINE = 5 /**< two line feeds */
};

/** Separators that end an entry when text becomes a list, KVFORMAT.listsep.sepallow_flags. With none of them
 * set the separators are semicolon, comma and line feed. */
enum {
  KVLISTSEP_BLANK = 1,
  KVLISTSEP_COMMA = 2,
  KVLISTSEP_SEMICOLON = 4,
  KVLISTSEP_NEWLINE = 8,
  KVLISTSEP_BLANK_LINE = 0x10
};

#pragma pack(push, 1)

/** How numbers, date-times and lists look as text, and which separators a text list may have. */
typedef struct KVFORMAT {
  struct {
    uint32_t decimal_digits; /**< digits behind the decimal point; the low byte counts */
    int32_t number;          /**< one of KVNUMFORMAT_* */
    uint32_t numdisp_flags;  /**< KVNUMDISP_*; further bits are ignored */
  } number;
  struct {
    int32_t date;     /**< one of KVDATEFORMAT_* */
    int32_t time;     /**< one of KVTIMEFORMAT_* */
    int32_t zone;     /**< one of KVZONEFORMAT_* */
    int32_t datetime; /**< one of KVDTFORMAT_* */
  } datetime;
  struct {
    int32_t display;         /**< one of KVLISTDISP_* */
    uint32_t sepallow_flags; /**< KVLISTSEP_*; further bits are ignored */
  } listsep;
} KVFORMAT;

#pragma pack(pop)

/** Initialises a KVFORMAT to the format that a new session has. */
/* clang-format off */
#define KVFORMAT_DEFAULT {{2, 0, 0}, {0, 0, 0, 2}, {2, 14}}
/* clang-format on */

#ifdef __cplusplus
extern "C" {
#endif

/** Converts a value to another type.
 *
 *  Text becomes a number or a date by its first 80 characters; text that is no number is 0. A list becomes a
 *  scalar by its first value. Text becomes a list by the separators of the session's format; a range is
 *  written "low-high". A list becomes text with the display separator between its entries. Text that becomes
 *  a formula is compiled.
 *
 *  @param src_type KVTYPE_* of the source.
 *  @param src_length bytes of the source. 0 means: a text ends with a NUL, any other value tells its own
 *         length. Numbers and date-times are 8 bytes whatever this says. A list or formula that needs more
 *         bytes than it has is KVFAIL_BAD_FORMAT. A multi-byte character that is cut off at the end of a text
 *         is left out.
 *  @param src_buffer the source, at any address; the caller's.
 *  @param dest_type KVTYPE_* of the result.
 *  @param dest_length bytes of dest_buffer, for text without its NUL: **a text buffer has one byte more than
 *         dest_length**, because a text of exactly dest_length bytes is followed by its NUL. 0 means
 *         unlimited: nothing is checked. At least 8 for a number or date-time, 1 for text, 2 for a text list
 *         or formula, 4 for the other lists.
 *  @param dest_buffer [out] the result, at any address; the caller's; it must not overlap the source.
 *  @param actual_length [out, optional] bytes of the result, without the NUL of a text; 0 on failure.
 *  @return KVSUCCESS;
 *          KVFAIL_NULL_PARAM;
 *          KVFAIL_DATA_UNAVAILABLE for a source text that is nothing but a cut character;
 *          KVFAIL_BAD_ENUM for a type out of range;
 *          KVFAIL_ILLEGAL_CONVERSION for two types that do not convert;
 *          KVFAIL_DATA_TOO_LONG when the result does not fit (text is cut instead when
 *          KVPROP_SESS_TRUNCATE_TEXT is on), when a number is out of range, or when a list would have more
 *          than 65535 entries or an entry more than 65535 bytes;
 *          KVFAIL_BAD_FORMAT for a date that cannot be read, an empty list where a value is needed, a list
 *          text without values;
 *          KVFAIL_FORMULA for a formula that does not compile, its message naming the place;
 *          KVFAIL_NO_MEMORY; a status of the engine; the statuses of a missing session.
 *          A result that does not fit leaves dest_buffer as it was; any later failure clears its first bytes.
 *  Calling thread's session. */
KVAPI uint32_t KVConvert(uint16_t src_type, uint32_t src_length, const void* src_buffer, uint16_t dest_type,
                         uint32_t dest_length, void* dest_buffer, uint32_t* actual_length);

/** Tells how long the result of a conversion would be, without doing it.
 *  @param src_type, src_length, src_buffer, dest_type as for KVConvert.
 *  @return bytes of the result, without the NUL of a text; 0 on any failure. A null src_buffer and a
 *           formula that does not compile are reported, other failures are not. Calling thread's session. */
KVAPI uint32_t KVConvertGetLength(uint16_t src_type, uint32_t src_length, const void* src_buffer,
                                  uint16_t dest_type);

#ifdef __cplusplus
}
#endif

#endif
