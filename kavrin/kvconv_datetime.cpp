// Exported functions on single date-times. A KVDATETIME has the bytes of the engine's TIMEDATE and is copied,
// not translated; only the engine takes it apart.
#include <algorithm>
#include <iterator>

#include "kvint_convert.h"

static_assert(sizeof(KVDATETIME) == 2 * 4 && sizeof(KVDATETIME) == sizeof(TIMEDATE));
static_assert(sizeof(KVDATETIMESUMM) == 10 * 4);

namespace {

constexpr int64_t kSecondsPerHour = 3600;
constexpr int64_t kSecondsPerMinute = 60;
constexpr int64_t kHundredths = 100;
constexpr int64_t kMonthsPerYear = 12;

// Constants of the engine, by KVDTCONST_*.
constexpr int32_t kFirstConstant = KVDTCONST_1;
constexpr int32_t kLastConstant = KVDTCONST_3;

TIMEDATE LoadTime(const KVDATETIME* datetime) { return KVILoad<TIMEDATE>(datetime); }

// A difference beyond the result's range is held at its end.
int32_t Clamp(int64_t difference) {
  return static_cast<int32_t>(std::clamp<int64_t>(difference, INT32_MIN, INT32_MAX));
}

// Two instants, and their parts where a unit needs them.
struct TIMEPAIR {
  TIMEDATE date1;
  TIMEDATE date2;
  TIME parts1;
  TIME parts2;
};

bool TakeApart(TIMEPAIR* pair) {
  pair->parts1 = {};
  pair->parts2 = {};
  pair->parts1.GM = pair->date1;
  pair->parts2.GM = pair->date2;
  return EngTimeToLocal(&pair->parts1) == 0 && EngTimeToLocal(&pair->parts2) == 0;
}

int64_t Years(const TIMEPAIR& pair) { return int64_t{pair.parts1.year} - pair.parts2.year; }
int64_t Months(const TIMEPAIR& pair) {
  const int64_t day_taken_off = pair.parts2.day > pair.parts1.day ? 1 : 0;
  return Years(pair) * kMonthsPerYear + pair.parts1.month - pair.parts2.month - day_taken_off;
}
int64_t Days(const TIMEPAIR& pair) {
  return int64_t{EngTimedateJulian(&pair.date1)} - EngTimedateJulian(&pair.date2);
}
int64_t Weekdays(const TIMEPAIR& pair) { return int64_t{pair.parts1.weekday} - pair.parts2.weekday; }
int64_t Seconds(const TIMEPAIR& pair) { return EngInstantDiff(&pair.date1, &pair.date2); }
int64_t Hours(const TIMEPAIR& pair) { return Seconds(pair) / kSecondsPerHour; }
int64_t Minutes(const TIMEPAIR& pair) { return Seconds(pair) / kSecondsPerMinute; }
int64_t Hundredths(const TIMEPAIR& pair) {
  // Held within 62 bits before it is multiplied; the result is clamped to 32 in any case.
  const int64_t seconds = std::clamp<int64_t>(Seconds(pair), INT64_MIN / 200, INT64_MAX / 200);
  return seconds * kHundredths + pair.parts1.hundredth - pair.parts2.hundredth;
}
int64_t Zones(const TIMEPAIR& pair) { return int64_t{pair.parts1.zone} - pair.parts2.zone; }

struct UNITROW {
  int32_t unit;
  bool needs_parts;
  int64_t (*difference)(const TIMEPAIR& pair);
};
constexpr UNITROW kUnits[] = {{KVDTUNIT_YEARS, true, Years},      {KVDTUNIT_MONTHS, true, Months},
                              {KVDTUNIT_DAYS, false, Days},       {KVDTUNIT_WEEKDAYS, true, Weekdays},
                              {KVDTUNIT_HOURS, false, Hours},     {KVDTUNIT_MINUTES, false, Minutes},
                              {KVDTUNIT_SECONDS, false, Seconds}, {KVDTUNIT_HUNDREDTHS, true, Hundredths},
                              {KVDTUNIT_ZONES, true, Zones}};
constexpr bool IsNumbered(const UNITROW* rows, size_t row_count) {
  for (size_t i = 0; i < row_count; ++i)
    if (rows[i].unit != static_cast<int32_t>(i)) return false;
  return true;
}
static_assert(IsNumbered(kUnits, std::size(kUnits)), "row n is unit n");

}  // namespace

uint32_t KVDatetimeGetCurrent(KVDATETIME* datetime) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  TIMEDATE now;
  EngTimedateNow(&now);
  KVIStore<TIMEDATE>(datetime, now);
  return KVSUCCESS;
}

uint32_t KVDatetimeCreate(const KVDATETIMESUMM* dtsumm, int32_t local_zone, KVDATETIME* datetime) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (dtsumm == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const auto parts = KVILoad<KVDATETIMESUMM>(dtsumm);
  KVIStore<TIMEDATE>(datetime, TIMEDATE{});
  int32_t zone = parts.zone;
  int32_t in_summer = parts.dst_in_effect != 0 ? 1 : 0;
  if (local_zone != 0) EngTimeZoneGet(&zone, &in_summer);
  TIME time{.year = parts.year,
            .month = parts.month,
            .day = parts.day,
            .weekday = 0,
            .hour = parts.hour,
            .minute = parts.minute,
            .second = parts.second,
            .hundredth = parts.hundredth,
            .dst = in_summer,
            .zone = zone,
            .GM = {}};
  if (EngTimeFromLocal(&time) != 0) return KVError(KVFAIL_BAD_DATETIME);
  KVIStore<TIMEDATE>(datetime, time.GM);
  return KVSUCCESS;
}

uint32_t KVDatetimeFetch(const KVDATETIME* datetime, KVDATETIMESUMM* dtsumm) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (dtsumm == nullptr) return KVError(KVFAIL_NULL_PARAM);
  TIME time{};
  time.GM = LoadTime(datetime);
  KVIStore<KVDATETIMESUMM>(dtsumm, KVDATETIMESUMM{});
  if (EngTimeToLocal(&time) != 0) return KVError(KVFAIL_BAD_DATETIME);
  KVIStore<KVDATETIMESUMM>(dtsumm, KVDATETIMESUMM{.year = time.year,
                                                  .month = time.month,
                                                  .day = time.day,
                                                  .weekday = time.weekday,
                                                  .hour = time.hour,
                                                  .minute = time.minute,
                                                  .second = time.second,
                                                  .hundredth = time.hundredth,
                                                  .dst_in_effect = time.dst != 0 ? 1 : 0,
                                                  .zone = time.zone});
  return KVSUCCESS;
}

uint32_t KVDatetimeConstant(int32_t constant, KVDATETIME* datetime) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  KVIStore<TIMEDATE>(datetime, TIMEDATE{});
  if (constant < kFirstConstant || constant > kLastConstant) return KVError(KVFAIL_BAD_ENUM);
  TIMEDATE special;
  if (const EngStatus brstatus = EngTimeSpecial(static_cast<uint16_t>(constant - kFirstConstant), &special))
    return KVError(brstatus);
  KVIStore<TIMEDATE>(datetime, special);
  return KVSUCCESS;
}

uint32_t KVDatetimeGetProperty(const KVDATETIME* datetime, int32_t property, void* value) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (value == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (property != KVPROP_DT_JULIAN_DATE && property != KVPROP_DT_TICKS) return KVError(KVFAIL_BAD_PROPERTY);
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const TIMEDATE date = LoadTime(datetime);
  KVIStore<uint32_t>(value,
                     property == KVPROP_DT_JULIAN_DATE ? EngTimedateJulian(&date) : EngTimedateTicks(&date));
  return KVSUCCESS;
}

int32_t KVDatetimeCompare(const KVDATETIME* datetime1, const KVDATETIME* datetime2) {
  _api_session* session;
  if (KVIEnterThread(&session) != KVSUCCESS) return 0;
  if (datetime1 == nullptr) return static_cast<int32_t>(KVError(KVFAIL_NULL_PARAM));
  if (datetime2 == nullptr) return static_cast<int32_t>(KVError(KVFAIL_NULL_PARAM));
  const TIMEDATE date1 = LoadTime(datetime1);
  const TIMEDATE date2 = LoadTime(datetime2);
  return EngInstantCompare(&date1, &date2);
}

int32_t KVDatetimeGetDiff(const KVDATETIME* datetime1, const KVDATETIME* datetime2, int32_t unit) {
  _api_session* session;
  if (KVIEnterThread(&session) != KVSUCCESS) return 0;
  if (datetime1 == nullptr) return static_cast<int32_t>(KVError(KVFAIL_NULL_PARAM));
  if (datetime2 == nullptr) return static_cast<int32_t>(KVError(KVFAIL_NULL_PARAM));
  if (unit < KVDTUNIT_YEARS || unit > KVDTUNIT_ZONES) return 0;
  const UNITROW& row = kUnits[unit];
  TIMEPAIR pair;
  pair.date1 = LoadTime(datetime1);
  pair.date2 = LoadTime(datetime2);
  if (row.needs_parts && !TakeApart(&pair)) return 0;
  return Clamp(row.difference(pair));
}

uint32_t KVDatetimeAdjust(const KVDATETIMESUMM* dtsumm, KVDATETIME* datetime) {
  _api_session* session;
  if (const uint32_t status = KVIEnterThread(&session)) return status;
  if (dtsumm == nullptr) return KVError(KVFAIL_NULL_PARAM);
  if (datetime == nullptr) return KVError(KVFAIL_NULL_PARAM);
  const auto amounts = KVILoad<KVDATETIMESUMM>(dtsumm);
  TIMEDATE date = LoadTime(datetime);
  if (EngInstantAdjust(&date, amounts.second, amounts.minute, amounts.hour, amounts.day, amounts.month,
                       amounts.year) != 0)
    return KVError(KVFAIL_BAD_DATETIME);
  KVIStore<TIMEDATE>(datetime, date);
  return KVSUCCESS;
}
