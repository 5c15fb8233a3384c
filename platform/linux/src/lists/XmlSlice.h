#ifndef PLATFORM_XMLSLICE_H
#define PLATFORM_XMLSLICE_H

/* Places in an XML text, and errors that name their line. */

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

inline constexpr std::string_view kXmlWhiteSpace = " \t\r\n";

// A stretch of the text that is being read. Its line is counted only when an error needs it.
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

// Throws MalformedList: "<before><line of the place><after>".
[[noreturn]] void RefuseAt(const XmlSlice& place, std::string_view before,
                           std::string_view after = {});

// How an error text shows a character: itself, or '?' for a part of a longer sequence.
char Shown(char character);

} // namespace cf

#endif
