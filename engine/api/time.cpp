// Times: now, zones, taken apart and put together, compared, moved, as text.
#include "base/time.h"

#include <iterator>

#include "base/boundary.h"
#include "base/intl.h"
#include "base/process.h"
#include "brynd_time.h"

using brynd::AtBoundary;

namespace status = brynd::status;

namespace {

// The instants that EngTimeSpecial gives, by selector.
constexpr TIMEDATE kSpecialTimes[] = {brynd::kSmallestTime, brynd::kLargestTime, brynd::kWildcardTime};
constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

// Runs a change of a TIME, which may have any address, and gives it back only when the change succeeded.
EngStatus ChangeTime(TIME* time, bool (*change)(TIME*) noexcept) {
  if (time == nullptr) return status::kBadArgument;
  TIME changed = brynd::Load<TIME>(time);
  if (!change(&changed)) return status::kBadTime;
  brynd::Store<TIME>(time, changed);
  return status::kOk;
}

}  // namespace

void EngTimedateNow(TIMEDATE* now) {
  if (now == nullptr) return;
  AtBoundary([&] { brynd::Store<TIMEDATE>(now, brynd::Process().clock->Now()); });
}

EngStatus EngTimedateToText(const INTLFORMAT* intl, const TFMT* format, const TIMEDATE* time, char* text,
                            uint16_t text_bytes, uint16_t* length) {
  return AtBoundary([&]() -> EngStatus {
    if (time == nullptr || text == nullptr || length == nullptr) return status::kBadArgument;
    constexpr TFMT kPlain{0, 0, 0, static_cast<uint8_t>(brynd::TimeStructure::kBoth)};
    const INTLFORMAT conventions = intl == nullptr ? brynd::DefaultIntl() : brynd::Load<INTLFORMAT>(intl);
    const TFMT style = format == nullptr ? kPlain : brynd::Load<TFMT>(format);
    size_t written = 0;
    const EngStatus failure =
        brynd::TimeToText(conventions, style, brynd::Load<TIMEDATE>(time), {text, text_bytes}, &written);
    if (failure != status::kOk) return failure;
    brynd::StoreU16(length, static_cast<uint16_t>(written));
    return status::kOk;
  });
}

uint32_t EngTimedateJulian(const TIMEDATE* time) {
  return time == nullptr ? brynd::kNoDay : brynd::DayOf(brynd::Load<TIMEDATE>(time));
}

uint32_t EngTimedateTicks(const TIMEDATE* time) {
  return time == nullptr ? brynd::kNoTicks : brynd::TicksOf(brynd::Load<TIMEDATE>(time));
}

EngStatus EngTimeSpecial(uint16_t selector, TIMEDATE* time) {
  if (time == nullptr || selector >= std::size(kSpecialTimes)) return status::kBadArgument;
  brynd::Store<TIMEDATE>(time, kSpecialTimes[selector]);
  return status::kOk;
}

void EngTimeZoneGet(int32_t* zone, int32_t* dst) {
  AtBoundary([&] {
    const int64_t now = brynd::Process().clock->UnixNanoseconds() / kNanosecondsPerSecond;
    const brynd::ZoneOffset offset = brynd::LocalOffsetAt(now);
    if (zone != nullptr) brynd::Store<int32_t>(zone, brynd::ZoneNumber(offset));
    if (dst != nullptr) brynd::Store<int32_t>(dst, offset.daylight ? 1 : 0);
  });
}

EngStatus EngTimeFromLocal(TIME* time) { return ChangeTime(time, brynd::TimeFromFields); }

EngStatus EngTimeToLocal(TIME* time) { return ChangeTime(time, brynd::TimeToLocalFields); }

EngStatus EngTimeToLocalZone(TIME* time) { return ChangeTime(time, brynd::TimeToZoneFields); }

int32_t EngInstantCompare(const TIMEDATE* first, const TIMEDATE* second) {
  if (first == nullptr || second == nullptr) return (first != nullptr) - (second != nullptr);
  return brynd::InstantCompare(brynd::Load<TIMEDATE>(first), brynd::Load<TIMEDATE>(second));
}

int64_t EngInstantDiff(const TIMEDATE* first, const TIMEDATE* second) {
  if (first == nullptr || second == nullptr) return 0;
  return brynd::InstantDiff(brynd::Load<TIMEDATE>(first), brynd::Load<TIMEDATE>(second));
}

EngStatus EngInstantAdjust(TIMEDATE* time, int32_t seconds, int32_t minutes, int32_t hours, int32_t days,
                           int32_t months, int32_t years) {
  if (time == nullptr) return status::kBadArgument;
  TIMEDATE adjusted = brynd::Load<TIMEDATE>(time);
  const brynd::InstantAmounts amounts{seconds, minutes, hours, days, months, years};
  if (!brynd::AdjustInstant(&adjusted, amounts)) return status::kBadTime;
  brynd::Store<TIMEDATE>(time, adjusted);
  return status::kOk;
}
