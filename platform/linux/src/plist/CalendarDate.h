#ifndef PLATFORM_CALENDARDATE_H
#define PLATFORM_CALENDARDATE_H

/* Absolute times as text, YYYY-MM-DDThh:mm:ssZ in UTC, for the years 0 to 9999. */

#include <CoreFoundation/CFDate.h>

#include <optional>
#include <string>
#include <string_view>

namespace cf {

/* The time, or nothing if the text has another form or the year is out of range. Fields may be too
   large: month 13 is the next January. */
std::optional<CFAbsoluteTime> ParseDate(std::string_view text);

/* True if the time is in the years 0 to 9999. */
bool HasCalendarDate(CFAbsoluteTime time);

/* The text, rounded down to a second. Precondition: HasCalendarDate(time). */
std::string FormatDate(CFAbsoluteTime time);

} // namespace cf

#endif
