/* Base types of Kavrin: the export mark, fixed-width words, date-time values, identifiers, fonts and list
 * directions.
 *
 * All structures of the public headers are byte-packed: they are a binary interface. A member may therefore
 * lie at an odd address; copy it out with memcpy before taking its address.
 *
 * Text is 8-bit, in the engine's character set. A handle is a uint32_t; 0 never names anything. */
#ifndef KAVRIN_TYPES_H
#define KAVRIN_TYPES_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define KVAPI
#else
#define KVAPI __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

/** A point in time, a date without a time or a time without a date. Opaque; the KVDatetime functions take it
 * apart. */
typedef struct KVDATETIME {
  uint32_t innards[2];
} KVDATETIME;

/** The identity of a document in all replicas of its database. */
typedef struct KVUNID {
  KVDATETIME unique; /**< the part that tells one document from another */
  KVDATETIME doc;    /**< the part that holds the time of creation */
} KVUNID;

/** A font: face number, style bits, colour number and size in points. */
typedef struct KVFONTSTYLE {
  uint8_t face;
  uint8_t font_flags;
  uint8_t color;
  uint8_t size;
} KVFONTSTYLE;

#pragma pack(pop)

/** Types of values that cross the interface. */
enum {
  KVTYPE_NONE = 0,         /**< no value */
  KVTYPE_NUMBER = 1,       /**< 8-byte IEEE double */
  KVTYPE_TEXT = 2,         /**< text with its length beside it */
  KVTYPE_DATETIME = 3,     /**< KVDATETIME */
  KVTYPE_TEXTLIST = 4,     /**< 16-bit count, that many 16-bit lengths, the texts back to back */
  KVTYPE_NUMBERLIST = 5,   /**< 16-bit counts of values and of ranges, the values, then pairs low and high */
  KVTYPE_DATETIMELIST = 6, /**< as a number list, with KVDATETIME values */
  KVTYPE_COMPOSITE = 7,    /**< composite data */
  KVTYPE_FORMULA = 8       /**< compiled formula */
};

/** Directions of every list call. */
enum {
  KVLIST_REFRESH = 1,  /**< make the list anew and go to its first entry */
  KVLIST_FIRST = 2,    /**< first entry */
  KVLIST_LAST = 3,     /**< last entry */
  KVLIST_NEXT = 4,     /**< next entry */
  KVLIST_PREVIOUS = 5, /**< previous entry */
  KVLIST_CURRENT = 6   /**< the entry last reached */
};

#ifdef __cplusplus
}
#endif

#endif
