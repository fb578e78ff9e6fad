/** @file brynd_time.h
 *  Points in time and times taken apart.
 *
 *  Calendar: proleptic Gregorian, years 1 to 32767, no leap seconds; the local zone is the system's. Any
 *  thread may call anything here.
 */
#ifndef BRYND_TIME_H
#define BRYND_TIME_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The instant now, marked with the zone of here.
 *  @param now [out] */
BRYND_API void EngTimedateNow(TIMEDATE* now);

/** Writes a time.
 *  @param intl conventions, null for the engine's own
 *  @param format null for date and time, full
 *  @param text [out] no NUL is written
 *  @param text_bytes room in bytes
 *  @param length [out] bytes written
 *  @return 0, 0x1f1, 0x500 no valid time, 0x502 no such format, 0x503 the text does not fit. */
BRYND_API EngStatus EngTimedateToText(const INTLFORMAT* intl, const TFMT* format, const TIMEDATE* time,
                                      char* text, uint16_t text_bytes, uint16_t* length);

/** @return the Julian day of a time (GMT), 0xffffff for a time without a date. */
BRYND_API uint32_t EngTimedateJulian(const TIMEDATE* time);

/** @return the hundredths of a second since midnight GMT, 0xffffffff for a date without a time. */
BRYND_API uint32_t EngTimedateTicks(const TIMEDATE* time);

/** A time that stands for something.
 *  @param selector 0 the smallest instant, 1 the largest, 2 the wildcard: as a since-time it takes
 *    everything
 *  @param time [out]
 *  @return 0, 0x1f1. */
BRYND_API EngStatus EngTimeSpecial(uint16_t selector, TIMEDATE* time);

/** The zone of here. Arguments may be null.
 *  @param zone [out] hours west of GMT, as in TIME
 *  @param dst [out] 1 while daylight saving is in effect, else 0 */
BRYND_API void EngTimeZoneGet(int32_t* zone, int32_t* dst);

/** Fills GM from the other fields.
 *  @param time [in, out]
 *  @return 0, 0x1f1, 0x500 the fields make no valid time within the calendar. */
BRYND_API EngStatus EngTimeFromLocal(TIME* time);

/** Fills the other fields from GM, in the zone of here.
 *  @param time [in, out]
 *  @return 0, 0x1f1, 0x500 GM cannot be taken apart. */
BRYND_API EngStatus EngTimeToLocal(TIME* time);

/** Fills the other fields from GM, in the zone and with the daylight saving that zone and dst tell.
 *  @param time [in, out]
 *  @return 0, 0x1f1, 0x500. */
BRYND_API EngStatus EngTimeToLocalZone(TIME* time);

/** Compares two instants.
 *  @return -1, 0 or 1 as first lies before, at or after second. */
BRYND_API int32_t EngInstantCompare(const TIMEDATE* first, const TIMEDATE* second);

/** @return first minus second in seconds. */
BRYND_API int64_t EngInstantDiff(const TIMEDATE* first, const TIMEDATE* second);

/** Moves a time by local calendar steps: years and months first, the day cut to the month's last, then
 *  the rest.
 *  @param time [in, out]
 *  @return 0, 0x1f1, 0x500 no valid time, or outside the calendar; the time then stays. */
BRYND_API EngStatus EngInstantAdjust(TIMEDATE* time, int32_t seconds, int32_t minutes, int32_t hours,
                                     int32_t days, int32_t months, int32_t years);

#ifdef __cplusplus
}
#endif

#endif
