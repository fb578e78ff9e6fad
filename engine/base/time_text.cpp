// Times as text.
#include "base/bounded_text.h"
#include "base/process.h"
#include "base/text.h"
#include "base/time.h"

namespace brynd {
namespace {

constexpr unsigned kYearWidth = 4;

enum class DateOrder { kMonthDayYear, kDayMonthYear, kYearMonthDay };

// The first of the three bits decides; without any it is month, day, year.
DateOrder OrderOf(const INTLFORMAT& intl) noexcept {
  if ((intl.Flags & BRINTL_DATE_MDY) != 0) return DateOrder::kMonthDayYear;
  if ((intl.Flags & BRINTL_DATE_DMY) != 0) return DateOrder::kDayMonthYear;
  return (intl.Flags & BRINTL_DATE_YMD) != 0 ? DateOrder::kYearMonthDay : DateOrder::kMonthDayYear;
}

std::string_view SeparatorOr(std::string_view separator, std::string_view otherwise) noexcept {
  return separator.empty() ? otherwise : separator;
}

int32_t LocalDay(const TIMEDATE& time, int32_t offset_minutes) noexcept {
  int64_t ticks = int64_t{TicksOf(time)} + int64_t{offset_minutes} * kTicksPerMinute;
  const auto day = static_cast<int32_t>(DayOf(time));
  return ticks < 0 ? day - 1 : ticks >= kTicksPerDay ? day + 1 : day;
}

uint32_t LocalTicks(const TIMEDATE& time, int32_t offset_minutes) noexcept {
  const int64_t ticks = int64_t{TicksOf(time)} + int64_t{offset_minutes} * kTicksPerMinute;
  return static_cast<uint32_t>((ticks + kTicksPerDay) % kTicksPerDay);
}

struct DateFace {
  DateOrder order;
  DateStyle style;
  std::string_view separator;
};

void PutDate(int32_t day, const DateFace& face, BoundedText* out) noexcept {
  const CalendarDate date = DateOfJulianDay(day);
  const bool with_year = face.style != DateStyle::kMonthDay, with_day = face.style != DateStyle::kYearMonth;
  const bool year_first = face.order == DateOrder::kYearMonthDay,
             day_first = face.order == DateOrder::kDayMonthYear;
  bool first = true;
  const auto put = [&](int32_t part, unsigned width) {
    if (!first) out->Put(face.separator);
    first = false;
    out->PutNumber(static_cast<unsigned>(part), width);
  };
  if (with_year && year_first) put(date.year, kYearWidth);
  if (with_day && day_first) put(date.day, 2);
  put(date.month, 2);
  if (with_day && !day_first) put(date.day, 2);
  if (with_year && !year_first) put(date.year, kYearWidth);
}

// The word for a day beside today, or an empty text.
std::string_view DayWord(const INTLFORMAT& intl, int32_t days_from_today) noexcept {
  if (days_from_today == -1) return FieldText(intl.YesterdayString);
  if (days_from_today == 0) return FieldText(intl.TodayString);
  return days_from_today == 1 ? FieldText(intl.TomorrowString) : std::string_view();
}

// A date as the format wants it; day is the local one, offset_minutes says where today is looked at.
void PutDatePart(const INTLFORMAT& intl, const TFMT& format, int32_t day, int32_t offset_minutes,
                 BoundedText* out) {
  DateFace face{OrderOf(intl), static_cast<DateStyle>(format.Date),
                SeparatorOr(FieldText(intl.DateString), "/")};
  const bool words = static_cast<TimeStructure>(format.Structure) == TimeStructure::kBothWords;
  if (words || face.style == DateStyle::kNoCurrentYear) {
    const int32_t today = LocalDay(Process().clock->Now(), offset_minutes);
    const std::string_view word = words ? DayWord(intl, day - today) : std::string_view();
    if (!word.empty()) return out->Put(word);
    const bool this_year = DateOfJulianDay(day).year == DateOfJulianDay(today).year;
    if (face.style == DateStyle::kNoCurrentYear)
      face.style = this_year ? DateStyle::kMonthDay : DateStyle::kFull;
  }
  PutDate(day, face, out);
}

void PutTimePart(const INTLFORMAT& intl, TimeStyle style, uint32_t ticks, BoundedText* out) noexcept {
  const bool clock_24 = (intl.Flags & BRINTL_CLOCK_24) != 0;
  const std::string_view separator = SeparatorOr(FieldText(intl.TimeString), ":");
  const uint32_t hour = ticks / kTicksPerHour, half_hour = hour % 12 == 0 ? 12 : hour % 12;
  out->PutNumber(clock_24 ? hour : half_hour, 2);
  out->Put(separator);
  out->PutNumber(ticks / kTicksPerMinute % 60, 2);
  if (style == TimeStyle::kSeconds) {
    out->Put(separator);
    out->PutNumber(ticks / kTicksPerSecond % 60, 2);
  }
  if (clock_24) return;
  out->Put(' ');
  out->Put(hour < 12 ? SeparatorOr(FieldText(intl.AMString), "AM")
                     : SeparatorOr(FieldText(intl.PMString), "PM"));
}

void PutZone(int32_t offset_minutes, BoundedText* out) noexcept {
  out->Put(" GMT");
  if (offset_minutes == 0) return;
  const auto size = static_cast<unsigned>(offset_minutes < 0 ? -offset_minutes : offset_minutes);
  out->Put(offset_minutes < 0 ? '-' : '+');
  out->PutNumber(size / 60, 2);
  out->Put(':');
  out->PutNumber(size % 60, 2);
}

bool IsTimeFormat(const TFMT& format) noexcept {
  return format.Date <= static_cast<uint8_t>(DateStyle::kYearMonth) &&
         format.Time <= static_cast<uint8_t>(TimeStyle::kMinutes) &&
         format.Zone <= static_cast<uint8_t>(ZoneStyle::kAlways) &&
         format.Structure <= static_cast<uint8_t>(TimeStructure::kBothWords);
}

// Whether the zone is written, and where the time is looked at then.
struct Place {
  bool zone_shown = false;
  int32_t offset_minutes = 0;
};

Place PlaceOf(const TFMT& format, const TIMEDATE& time) noexcept {
  const auto style = static_cast<ZoneStyle>(format.Zone);
  const int32_t here = LocalOffsetAt(time).offset_minutes;
  const int32_t there = OffsetOfZoneByte(ZoneByteOf(time)).offset_minutes;
  const bool shown = style == ZoneStyle::kAlways || (style == ZoneStyle::kWhenOther && here != there);
  return {shown, shown ? there : here};
}

}  // namespace

EngStatus TimeToText(const INTLFORMAT& intl, const TFMT& format, const TIMEDATE& time, std::span<char> text,
                     size_t* text_bytes) noexcept {
  if (!IsTimeFormat(format)) return status::kBadFormat;
  if (!IsValidTimedate(time)) return status::kBadTime;
  const auto structure = static_cast<TimeStructure>(format.Structure);
  const bool with_date = HasDate(time) && structure != TimeStructure::kTime;
  const bool with_time = HasTime(time) && structure != TimeStructure::kDate;
  const bool whole = HasDate(time) && HasTime(time);
  Place place;
  if (whole) place = PlaceOf(format, time);
  if (whole && !with_time) place = {false, LocalOffsetAt(time).offset_minutes};
  BoundedText out(text);
  if (with_date && whole) {
    PutDatePart(intl, format, LocalDay(time, place.offset_minutes), place.offset_minutes, &out);
  } else if (with_date) {
    const int32_t here = LocalOffsetAt(Process().clock->Now()).offset_minutes;
    PutDatePart(intl, format, static_cast<int32_t>(DayOf(time)), here, &out);
  }
  if (with_date && with_time) out.Put(' ');
  if (with_time) {
    const uint32_t ticks = whole ? LocalTicks(time, place.offset_minutes) : TicksOf(time);
    PutTimePart(intl, static_cast<TimeStyle>(format.Time), ticks, &out);
  }
  if (with_time && place.zone_shown) PutZone(place.offset_minutes, &out);
  if (out.Full()) return status::kTextTooLong;
  *text_bytes = out.Size();
  return status::kOk;
}

}  // namespace brynd
