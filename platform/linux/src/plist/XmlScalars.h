#ifndef PLATFORM_XMLSCALARS_H
#define PLATFORM_XMLSCALARS_H

/* The values of <integer>, <real>, <date> and <data> from what stands inside. Each throws XmlFault
   for a content that it refuses. */

#include "plist/ListBuilder.h"
#include "plist/Parsing.h"
#include "plist/XmlTag.h"

#include <cstdint>

namespace cf {

/* The value of any of these elements. */
Value ReadNumber(XmlTag tag, const XmlSlice& content);

/* Decimal, or 0x or 0X and hexadecimal, signed; no blanks behind. From -2^63 to 2^64-1. */
Value ReadInteger(const XmlSlice& content);

/* The usual integer, decimal digits alone: gives what the first eighteen of them say, which always
   fits, and returns the place behind these; nullptr when there are none. */
const char* ParsePlainInteger(const char* text, std::int64_t& integer) noexcept;

/* As strtod() in the C locale has it, but without hexadecimal and without blanks behind. */
Value ReadReal(const XmlSlice& content);

/* YYYY-MM-DDThh:mm:ssZ; a month 13 is the next January, and so on. */
Value ReadDate(const XmlSlice& content);

/* Base64. ASCII that is no digit of it is skipped, an incomplete group at the end dropped. */
Value ReadData(const XmlSlice& content);

} // namespace cf

#endif
