#include "plist/Parsing.h"

#include "objects/Unicode.h"
#include "plist/Transcoding.h"

#include <string>

namespace cf {

namespace {

// The number of the line, counted from 1. CR, LF and CR LF each end a line.
std::size_t LineAt(std::string_view text, std::size_t place) {
    std::size_t line = 1;
    char previous = '\0';
    for (const char character : text.substr(0, place)) {
        if (character == '\r' || (character == '\n' && previous != '\r'))
            ++line;
        previous = character;
    }
    return line;
}

} // namespace

MalformedList XmlFault::ErrorIn(std::string_view document) const {
    return MalformedList(before + (place ? std::to_string(LineAt(document, *place)) : "") + after);
}

void RefuseAt(const XmlSlice& place, std::string_view before, std::string_view after) {
    throw XmlFault{place.begin, std::string(before), std::string(after)};
}

void RefuseWith(std::string_view text) {
    throw XmlFault{std::nullopt, std::string(text), {}};
}

std::string Printable(char byte) {
    return NarrowToUtf8({&byte, 1}, kLatin1);
}

std::string Printable(std::string_view name) {
    return IsValidUtf8(name) ? std::string(name) : NarrowToUtf8(name, kLatin1);
}

} // namespace cf
