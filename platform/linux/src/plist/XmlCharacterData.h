#ifndef PLATFORM_XMLCHARACTERDATA_H
#define PLATFORM_XMLCHARACTERDATA_H

/* The text of an element, with entities and CDATA sections resolved. */

#include "plist/ListBuilder.h"
#include "plist/Parsing.h"

#include <cstddef>
#include <string_view>

namespace cf {

/* Replaces '<' in a resolved text, where the parser would read a tag. Not a byte of UTF-8. */
inline constexpr char kLessThan = '\xFF';

struct CharacterData {
    std::size_t sourceLength;
    std::size_t textLength; // not more than that
};

/* Resolves the text from the beginning of the slice up to the "</" behind it and writes the result
   to `text`, which needs as many bytes as the source. Throws XmlFault if the text contains an
   element, is not UTF-8, or does not end in the slice; and std::bad_alloc. */
CharacterData ResolveCharacterData(const XmlSlice& rest, char* text);

/* The shared string of a resolved text, with each kLessThan as '<'. Throws std::bad_alloc. */
Value CreateText(std::string_view resolved);

} // namespace cf

#endif
