#ifndef PLATFORM_XMLCHARACTERDATA_H
#define PLATFORM_XMLCHARACTERDATA_H

/* The text inside an element, entities and CDATA sections resolved. */

#include "plist/ListBuilder.h"
#include "plist/Parsing.h"

#include <cstddef>
#include <string_view>

namespace cf {

/* A '<' in a resolved text is this byte, which UTF-8 does not have: to the parser '<' is a tag. */
inline constexpr char kLessThan = '\xFF';

struct CharacterData {
    std::size_t sourceLength;
    std::size_t textLength; // not more than that
};

/* Resolves the text from the beginning of the slice to the closing tag's '<', which must be in the
   slice, and writes it there. Throws XmlFault when anything else stands in it, when it is no
   UTF-8, and when it does not end. */
CharacterData ResolveCharacterData(const XmlSlice& rest, char* text);

/* The shared string of a resolved text. Throws std::bad_alloc. */
Value CreateText(std::string_view resolved);

} // namespace cf

#endif
