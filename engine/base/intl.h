// The conventions of a place for numbers and times, from the settings.
#ifndef BRYND_BASE_INTL_H
#define BRYND_BASE_INTL_H

#include "brynd_types.h"

namespace brynd {

// Month-day-year with '/', ':' and a 24-hour clock, '.' and ',', "$" in front, no zone.
const INTLFORMAT& DefaultIntl() noexcept;

// The defaults, overridden by the settings DateOrder (MDY, DMY, YMD), DateSeparator, TimeSeparator, Clock
// (12, 24), AM, PM, CurrencySymbol, CurrencyDigits, CurrencyPosition (before, behind), CurrencySpace,
// ThousandSeparator, DecimalSeparator, LeadingZero, Yesterday, Today, Tomorrow; flags are 1 or 0. A value
// that does not fit is passed over. The zone is the system's.
INTLFORMAT IntlFromSettings();

}  // namespace brynd

#endif
