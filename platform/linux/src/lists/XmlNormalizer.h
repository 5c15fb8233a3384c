#ifndef PLATFORM_XMLNORMALIZER_H
#define PLATFORM_XMLNORMALIZER_H

/*
 * The normal form of an XML property list, which is what the parser gets. What a property list
 * ignores is left out: declarations, comments, instructions, attributes, blanks between tags, and
 * all that stands behind the root element. Only containers are elements, named by one letter
 * (XmlTag.h). Scalars are a part of the text of their container: the letter, the content, and
 * kBehindScalar, but for booleans, which are the letter alone. Texts are resolved. A key is the
 * number of its text (XmlKeyTable.h). It stands in front of its scalar, or in the element of its
 * container before what that contains.
 *
 *     <plist version="1.0"><dict>
 *         <key>name</key>                      <p><d>0sa&b;<a>1i1;</a></d></p>
 *         <string>a&amp;b</string>
 *         <key>slots</key>                     with kBehindScalar for ';'
 *         <array><integer>1</integer></array>  and the keys "name" and "slots"
 *     </dict></plist>
 *
 * The contents of numbers, dates and data are copied as they are, up to the next '<'. Where the
 * list breaks off or is malformed, the normal form ends, and the elements that are open are closed:
 * it is well-formed, whatever the text is.
 */

#include "lists/XmlSlice.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace cf {

// No byte of UTF-8.
inline constexpr char kBehindScalar = '\xFE';

struct NormalizedXml {
    std::size_t length;
    std::optional<XmlFault> fault;      // its place is one in the source
    std::vector<std::string_view> keys; // their texts, in the buffer behind the normal form
};

// The size of a buffer for the normal form, a NUL, and the texts of the keys.
std::size_t NormalizedCapacity(std::string_view source);

// Writes the normal form and a NUL. Reads the source once, forward. Throws std::bad_alloc.
NormalizedXml NormalizeXml(std::string_view source, char* buffer);

// The place in the source from which a byte of the content of a number, date or data was copied.
// Writes the normal form again, up to there: it is for error texts.
std::size_t FindInSource(std::string_view source, char* buffer, std::size_t place);

} // namespace cf

#endif
