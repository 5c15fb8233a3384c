#ifndef PLATFORM_XMLSLICE_H
#define PLATFORM_XMLSLICE_H

/* Places in an XML text, and what is wrong there. */

#include "plist/MalformedList.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cf {

inline constexpr std::string_view kXmlWhiteSpace = " \t\r\n";

/* A stretch of the text that is being read. */
struct XmlSlice {
    std::string_view source;
    std::size_t begin;
    std::size_t end;

    std::string_view View() const {
        return source.substr(begin, end - begin);
    }
    XmlSlice From(std::size_t index) const {
        return {source, begin + index, end};
    }
};

/* What the functions that read a text throw. The line is counted once, by whoever catches the fault
   and knows the document. */
struct XmlFault {
    std::optional<std::size_t> place; // none: no line is named
    std::string before;               // the line
    std::string after;

    // The error text, if the place is one in this document.
    MalformedList In(std::string_view document) const;
};

/* Throws the XmlFault "<before><line of the place><after>". */
[[noreturn]] void RefuseAt(const XmlSlice& place, std::string_view before,
                           std::string_view after = {});
/* Throws one that names no line. */
[[noreturn]] void RefuseWith(std::string_view text);

/* How an error text shows a byte: from 80 on as the Latin-1 character of its value. */
std::string Shown(char byte);
/* How it shows a name: as it is, or when it is no UTF-8, byte by byte. */
std::string Shown(std::string_view name);

} // namespace cf

#endif
