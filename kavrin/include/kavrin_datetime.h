/* Single date-time values: the present, parts, constants, comparison, difference, adjustment.
 *
 * A KVDATETIME is opaque and may hold a date and a time, a date alone or a time alone. Its broken-down form
 * is a KVDATETIMESUMM. Lists of date-times: kavrin_list.h. Text forms: KVConvert in kavrin_convert.h. All
 * functions use the session of the calling thread. */
#ifndef KAVRIN_DATETIME_H
#define KAVRIN_DATETIME_H

#include "kavrin_types.h"

/** Properties of a date-time. */
enum {
  KVPROP_DT_JULIAN_DATE = 1, /**< uint32_t: Julian day number, by GMT */
  KVPROP_DT_TICKS = 2        /**< uint32_t: hundredths of a second since midnight, GMT */
};

/** Special date-times. */
enum {
  KVDTCONST_1 = 1, /**< the smallest instant */
  KVDTCONST_2 = 2, /**< the largest instant */
  KVDTCONST_3 = 3  /**< the wildcard */
};

/** Units of KVDatetimeGetDiff. */
enum {
  KVDTUNIT_YEARS = 0, /**< difference of the local years */
  KVDTUNIT_MONTHS =
      1,             /**< of the local years and months, 1 less when the day of datetime2 is the later one */
  KVDTUNIT_DAYS = 2, /**< difference of the Julian days */
  KVDTUNIT_WEEKDAYS = 3,   /**< difference of the local weekdays */
  KVDTUNIT_HOURS = 4,      /**< hours, truncated toward zero */
  KVDTUNIT_MINUTES = 5,    /**< minutes, truncated toward zero */
  KVDTUNIT_SECONDS = 6,    /**< seconds */
  KVDTUNIT_HUNDREDTHS = 7, /**< hundredths of a second */
  KVDTUNIT_ZONES = 8       /**< difference of the zones */
};

#pragma pack(push, 1)

/** A date-time in its parts. A part of -1 stands for no value: a year, month and day of -1 make a time
 * without a date, an hour, minute, second and hundredth of -1 a date without a time. */
typedef struct KVDATETIMESUMM {
  int32_t year;          /**< 1 to 32767 */
  int32_t month;         /**< 1 to 12 */
  int32_t day;           /**< 1 to 31 */
  int32_t weekday;       /**< 1 (Sunday) to 7; told, never read */
  int32_t hour;          /**< 0 to 23 */
  int32_t minute;        /**< 0 to 59 */
  int32_t second;        /**< 0 to 59 */
  int32_t hundredth;     /**< 0 to 99 */
  int32_t dst_in_effect; /**< 1 when daylight saving time is observed in the zone, else 0 */
  int32_t zone; /**< hours west of GMT, east negative; plus or minus 100 a minute for zones off the hour */
} KVDATETIMESUMM;

#pragma pack(pop)

#ifdef __cplusplus
extern "C" {
#endif

/** Tells the present time.
 *  @param datetime [out] now.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, or the statuses of a missing session. */
KVAPI uint32_t KVDatetimeGetCurrent(KVDATETIME* datetime);

/** Makes a date-time from its parts.
 *  @param dtsumm the parts; weekday is not read.
 *  @param local_zone 0: dst_in_effect and zone of dtsumm count; otherwise the local zone does and theirs
 *           are not read.
 *  @param datetime [out] the date-time; 0 on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_DATETIME for parts that make no date-time, or the
 *           statuses of a missing session. */
KVAPI uint32_t KVDatetimeCreate(const KVDATETIMESUMM* dtsumm, int32_t local_zone, KVDATETIME* datetime);

/** Takes a date-time apart, as the clocks here show it.
 *  @param datetime the date-time.
 *  @param dtsumm [out] its parts, with the true weekday; all 0 on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_DATETIME, or the statuses of a missing session. */
KVAPI uint32_t KVDatetimeFetch(const KVDATETIME* datetime, KVDATETIMESUMM* dtsumm);

/** Gives a special date-time.
 *  @param constant one of KVDTCONST_*.
 *  @param datetime [out] the date-time; 0 on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_ENUM, or the statuses of a missing session. */
KVAPI uint32_t KVDatetimeConstant(int32_t constant, KVDATETIME* datetime);

/** Reads a property of a date-time.
 *  @param datetime the date-time.
 *  @param property one of KVPROP_DT_*.
 *  @param value [out] variable of the property's type; untouched on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_PROPERTY (found before a null datetime), or the
 *           statuses of a missing session. */
KVAPI uint32_t KVDatetimeGetProperty(const KVDATETIME* datetime, int32_t property, void* value);

/** Compares two date-times.
 *  @param datetime1, datetime2 the date-times.
 *  @return negative, 0 or positive as datetime1 is earlier, equal or later; 0 without a session. A null
 *           argument is reported and returns its status as a negative number, which the value alone cannot
 *           tell from "earlier". */
KVAPI int32_t KVDatetimeCompare(const KVDATETIME* datetime1, const KVDATETIME* datetime2);

/** Tells the difference of two date-times, datetime1 minus datetime2.
 *  @param datetime1, datetime2 the date-times.
 *  @param unit one of KVDTUNIT_*.
 *  @return the difference, held within the 32-bit range; 0 without a session, for another unit, and when a
 *           date-time cannot be taken apart. A null argument is reported and returns its status as a
 *           negative number. */
KVAPI int32_t KVDatetimeGetDiff(const KVDATETIME* datetime1, const KVDATETIME* datetime2, int32_t unit);

/** Moves a date-time.
 *  @param dtsumm signed amounts to add: year, month, day, hour, minute, second; its other parts are not
 *           read.
 *  @param datetime [in, out] the date-time; unchanged on failure.
 *  @return KVSUCCESS, KVFAIL_NULL_PARAM, KVFAIL_BAD_DATETIME, or the statuses of a missing session. */
KVAPI uint32_t KVDatetimeAdjust(const KVDATETIMESUMM* dtsumm, KVDATETIME* datetime);

#ifdef __cplusplus
}
#endif

#endif
