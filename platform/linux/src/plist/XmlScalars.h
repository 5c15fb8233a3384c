#ifndef PLATFORM_XMLSCALARS_H
#define PLATFORM_XMLSCALARS_H

/* The values of <integer>, <real>, <date> and <data> from their contents. The functions that return
   a Value throw XmlFault for malformed contents, and std::bad_alloc. */

#include "plist/ListBuilder.h"
#include "plist/Parsing.h"
#include "plist/XmlTag.h"

#include <cstdint>

namespace cf {

/* The value of the element with that tag, one of these four. */
Value ReadNumber(XmlTag tag, const XmlSlice& content);

/* A signed integer from -2^63 to 2^64-1: decimal, or hexadecimal behind "0x" or "0X". White space
   may precede it, but not follow it. */
Value ReadInteger(const XmlSlice& content);

/* Sets `integer` to the value of the first decimal digits, at most eighteen, which always fit.
   Returns the place behind them, or nullptr if there are none. The fast path: no sign, no white
   space. */
const char* ParsePlainInteger(const char* text, std::int64_t& integer) noexcept;

/* A number that strtod() accepts in the C locale, except hexadecimal ones and trailing white space.
 */
Value ReadReal(const XmlSlice& content);

/* YYYY-MM-DDThh:mm:ssZ; fields may be too large (CalendarDate.h). */
Value ReadDate(const XmlSlice& content);

/* Base64. Other ASCII characters are ignored, and so is an incomplete group at the end. */
Value ReadData(const XmlSlice& content);

} // namespace cf

#endif
