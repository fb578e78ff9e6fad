/* Access to the values of lists, in place and without conversion.
 *
 * A list is as it came from the library: its layout stands at KVTYPE_* in kavrin_types.h. It may lie at any
 * address and must be whole: these functions take its counts and lengths as they are. Entries count from 1.
 * In number and date-time lists the single values come first, then the ranges, each of them one entry.
 *
 * All functions return 0 for every failure and use the session of the calling thread. A null list or required
 * output is reported as KVFAIL_NULL_PARAM; an entry beyond the last one, and a missing session, are not
 * reported. */
#ifndef KAVRIN_LIST_H
#define KAVRIN_LIST_H

#include "kavrin_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @param textlist the list. @return its entries. */
KVAPI uint32_t KVTextListGetCount(const void* textlist);

/** @param textlist the list.
 *  @param entry_index an entry, or 0 for the list as a whole.
 *  @return bytes of the entry's text, or of the list. */
KVAPI uint32_t KVTextListGetLength(const void* textlist, uint32_t entry_index);

/** Copies the text of an entry.
 *  @param textlist the list.
 *  @param entry_index the entry.
 *  @param buffer_length bytes of buffer, its NUL included; 0 means unlimited.
 *  @param buffer [out] the text and a NUL.
 *  @return characters copied, without the NUL. An entry of buffer_length bytes or more is
 *           KVFAIL_DATA_TOO_LONG, and nothing is written; when KVPROP_SESS_TRUNCATE_TEXT is on it is cut
 *           instead, at the border of a character. */
KVAPI uint32_t KVTextListFetch(const void* textlist, uint32_t entry_index, uint32_t buffer_length,
                               char* buffer);

/** @param textlist the list.
 *  @param entry_index the entry.
 *  @param length [out, optional] bytes of its text, untouched on failure.
 *  @return address of the text inside the list, without a NUL; null on failure. */
KVAPI const char* KVTextListGetPointer(const void* textlist, uint32_t entry_index, uint32_t* length);

/** @param numberlist the list. @return its entries, a range counting as one. */
KVAPI uint32_t KVNumberListGetCount(const void* numberlist);

/** @param numberlist the list.
 *  @param entry_index an entry, or 0 for the list as a whole.
 *  @return 8 for a single value, 16 for a range, or the bytes of the list. */
KVAPI uint32_t KVNumberListGetLength(const void* numberlist, uint32_t entry_index);

/** Copies a single value; a range cannot be fetched this way.
 *  @param numberlist the list.
 *  @param entry_index the entry.
 *  @param number [out] the value; untouched on failure.
 *  @return 8. */
KVAPI uint32_t KVNumberListFetch(const void* numberlist, uint32_t entry_index, double* number);

/** @param numberlist the list.
 *  @param entry_index the entry.
 *  @param length [out, optional] 8 for a single value, 16 for a range (low, then high); untouched on
 *           failure.
 *  @return address of the value inside the list, often not aligned: copy it out with memcpy; null on
 *           failure. */
KVAPI const void* KVNumberListGetPointer(const void* numberlist, uint32_t entry_index, uint32_t* length);

/** @param dtlist the list.
 *  @param range_count [out, optional] how many of its entries are ranges; untouched on failure.
 *  @return its entries, a range counting as one. */
KVAPI uint32_t KVDatetimeListGetCount(const void* dtlist, uint32_t* range_count);

/** @param dtlist the list.
 *  @param entry_index an entry, or 0 for the list as a whole.
 *  @return 8 for a single value, 16 for a range, or the bytes of the list. */
KVAPI uint32_t KVDatetimeListGetLength(const void* dtlist, uint32_t entry_index);

/** Copies a single value or a range.
 *  @param dtlist the list.
 *  @param entry_index the entry.
 *  @param datetime [out] the value, or the low end of a range; untouched on failure.
 *  @param dt_range [out, optional] the high end of a range; untouched for a single value.
 *  @return bytes stored: 8, or 16 for a range with dt_range given. */
KVAPI uint32_t KVDatetimeListFetch(const void* dtlist, uint32_t entry_index, KVDATETIME* datetime,
                                   KVDATETIME* dt_range);

/** As KVNumberListGetPointer, for a list of date-times. */
KVAPI const void* KVDatetimeListGetPointer(const void* dtlist, uint32_t entry_index, uint32_t* length);

#ifdef __cplusplus
}
#endif

#endif
