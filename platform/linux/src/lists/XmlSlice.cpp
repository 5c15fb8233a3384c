#include "lists/XmlSlice.h"

#include "lists/MalformedList.h"

#include <algorithm>

namespace cf {

void RefuseAt(const XmlSlice& place, std::string_view before, std::string_view after) {
    const std::string_view preceding = place.source.substr(0, place.begin);
    const auto line = 1 + std::count(preceding.begin(), preceding.end(), '\n');
    throw MalformedList(std::string(before) + std::to_string(line) + std::string(after));
}

char Shown(char character) {
    return static_cast<unsigned char>(character) < 0x80 ? character : '?';
}

} // namespace cf
