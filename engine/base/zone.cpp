// Zones: the system's zone database, asked through libc, and the two codes for an offset.
#include <time.h>

#include <array>
#include <atomic>
#include <limits>

#include "base/time.h"

namespace brynd {
namespace {

constexpr int32_t kDaylightMinutes = 60, kMinutesPerHour = 60, kMinutesPerQuarter = 15;
constexpr uint8_t kZoneByteDaylight = 0x80, kZoneByteEast = 0x40;
constexpr int32_t kZoneByteQuartersMax = 63;  // 15 hours and 3 quarters
constexpr int32_t kZoneHoursMax = 23, kZoneFactor = 100;

// What libc answers costs a lock and a search, and most questions are about the same few hours. So answers
// are kept for spans of seconds in which the offset does not change. An entry is one word, hence never seen
// half written (see Pack).
constexpr unsigned kSpanBits = 13;  // 2 hours and 16 minutes
constexpr size_t kEntryCount = 256;
constexpr int64_t kSpanEnd = int64_t{1} << 30;
std::array<std::atomic<uint64_t>, kEntryCount> cache{};
// Moves when the zone changed: entries of other epochs mean nothing.
std::atomic<uint32_t> cache_epoch{1};

// epoch 20 bits | offset + 2048 in 12 bits | daylight 1 bit | span + 2^30 in 31 bits
uint64_t Pack(uint32_t epoch, int64_t span, const ZoneOffset& offset) noexcept {
  return uint64_t{epoch & 0xfffff} << 44 | static_cast<uint64_t>(offset.offset_minutes + 2048) << 32 |
         uint64_t{offset.daylight} << 31 | static_cast<uint64_t>(span + (kSpanEnd >> 1));
}

ZoneOffset AskSystem(int64_t unix_seconds) noexcept {
  if constexpr (sizeof(time_t) < sizeof unix_seconds) {
    unix_seconds = unix_seconds < std::numeric_limits<int32_t>::min()   ? std::numeric_limits<int32_t>::min()
                   : unix_seconds > std::numeric_limits<int32_t>::max() ? std::numeric_limits<int32_t>::max()
                                                                        : unix_seconds;
  }
  const auto moment = static_cast<time_t>(unix_seconds);
  struct tm fields = {};
  if (::localtime_r(&moment, &fields) == nullptr) return {};
  const auto seconds = static_cast<int32_t>(fields.tm_gmtoff);
  // Offsets with seconds are those of local mean time, before there were zones: taken to the nearest minute.
  return {(seconds + (seconds < 0 ? -30 : 30)) / 60, fields.tm_isdst > 0};
}

}  // namespace

void ReloadLocalZone() noexcept {
  ::tzset();
  cache_epoch.fetch_add(1, std::memory_order_relaxed);
}

ZoneOffset LocalOffsetAt(int64_t unix_seconds) noexcept {
  const int64_t span = unix_seconds >> kSpanBits;
  if (span < -(kSpanEnd >> 1) || span >= kSpanEnd >> 1) return AskSystem(unix_seconds);
  const uint32_t epoch = cache_epoch.load(std::memory_order_relaxed);
  std::atomic<uint64_t>& entry = cache[static_cast<size_t>(span) % kEntryCount];
  const uint64_t known = entry.load(std::memory_order_relaxed);
  constexpr uint64_t kKeyMask = uint64_t{0xfffff} << 44 | 0x7fffffff;
  if ((known & kKeyMask) == (Pack(epoch, span, {-2048, false}) & kKeyMask))
    return {static_cast<int32_t>(known >> 32 & 0xfff) - 2048, (known >> 31 & 1) != 0};
  const ZoneOffset first = AskSystem(span << kSpanBits);
  const ZoneOffset last = AskSystem((span << kSpanBits) + (int64_t{1} << kSpanBits) - 1);
  if (first != last) return AskSystem(unix_seconds);
  entry.store(Pack(epoch, span, first), std::memory_order_relaxed);
  return first;
}

ZoneOffset LocalOffsetAt(const TIMEDATE& time) noexcept {
  const int64_t hundredths = UnixHundredths(time);
  const int64_t seconds = hundredths / kTicksPerSecond - (hundredths % kTicksPerSecond < 0 ? 1 : 0);
  return LocalOffsetAt(seconds);
}

bool LocalZoneHasDaylight(int64_t unix_seconds) noexcept {
  constexpr int64_t kMonthSeconds = 30 * 86400;
  for (int64_t month = -6; month <= 6; ++month)
    if (AskSystem(unix_seconds + month * kMonthSeconds).daylight) return true;
  return false;
}

int32_t ZoneNumber(const ZoneOffset& offset) noexcept {
  const int32_t west = (offset.daylight ? kDaylightMinutes : 0) - offset.offset_minutes;
  return west / kMinutesPerHour + west % kMinutesPerHour * kZoneFactor;
}

std::optional<ZoneOffset> OffsetOfZoneNumber(int32_t zone, bool daylight) noexcept {
  const int32_t hours = zone % kZoneFactor, minutes = zone / kZoneFactor;
  if (hours < -kZoneHoursMax || hours > kZoneHoursMax) return std::nullopt;
  if (minutes <= -kMinutesPerHour || minutes >= kMinutesPerHour) return std::nullopt;
  return ZoneOffset{(daylight ? kDaylightMinutes : 0) - hours * kMinutesPerHour - minutes, daylight};
}

uint8_t ZoneByte(const ZoneOffset& offset) noexcept {
  const int32_t east = offset.offset_minutes - (offset.daylight ? kDaylightMinutes : 0);
  const int32_t size = east < 0 ? -east : east;
  int32_t quarters = (size + kMinutesPerQuarter / 2) / kMinutesPerQuarter;
  if (quarters > kZoneByteQuartersMax) quarters = kZoneByteQuartersMax;
  const bool is_east = east > 0 && quarters != 0;
  return static_cast<uint8_t>((offset.daylight ? kZoneByteDaylight : 0) | (is_east ? kZoneByteEast : 0) |
                              quarters % 4 << 4 | quarters / 4);
}

ZoneOffset OffsetOfZoneByte(uint8_t zone_byte) noexcept {
  const int32_t size = (zone_byte & 0x0f) * kMinutesPerHour + (zone_byte >> 4 & 3) * kMinutesPerQuarter;
  const bool daylight = (zone_byte & kZoneByteDaylight) != 0;
  return {((zone_byte & kZoneByteEast) != 0 ? size : -size) + (daylight ? kDaylightMinutes : 0), daylight};
}

}  // namespace brynd
