#ifndef PLATFORM_CALENDARDATE_H
#define PLATFORM_CALENDARDATE_H

/* Absolute times as property lists write them, YYYY-MM-DDThh:mm:ssZ: the years 0 to 9999. */

#include <CoreFoundation/CFDate.h>

#include <optional>
#include <string>
#include <string_view>

namespace cf {

/* Fields beyond their range count on: month 13 is the next January. */
std::optional<CFAbsoluteTime> ParseDate(std::string_view text);

bool HasCalendarDate(CFAbsoluteTime time);

/* Down to the whole second, of a time that has a calendar date. */
std::string FormatDate(CFAbsoluteTime time);

} // namespace cf

#endif
