// Dates and times of formulas as text, in the order and with the signs of the place the engine works in.
#pragma once

#include <string>
#include <string_view>

#include "base/intl.h"
#include "base/time.h"

namespace brynd::formula {

// A date, a time, or both: year, month and day in the order of the place, apart by its sign or any of / - . ;
// hours, minutes and seconds apart by the place's sign or a colon, with AM or PM when the place writes them;
// then GMT or an offset from it such as GMT+05:30. Two-digit years are those from 1950 to 2049. False when it
// is none.
bool ReadTime(const INTLFORMAT& intl, std::string_view text, TIMEDATE* time);

// The text of a time in full, without its zone: what ReadTime takes for the same time here.
std::string TimeText(const INTLFORMAT& intl, const TIMEDATE& time);

// The instant at which calendars and clocks here show that day and time of day; of two, one of them, and of
// none, what they show an hour later.
TIMEDATE InstantHere(int32_t julian_day, uint32_t ticks);

}  // namespace brynd::formula
