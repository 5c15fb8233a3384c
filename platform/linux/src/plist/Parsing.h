#ifndef PLATFORM_PARSING_H
#define PLATFORM_PARSING_H

/*
 * Primitives shared by the readers of property lists: digits, slices of an XML text, and the errors
 * of parsing. No function depends on the locale or keeps state; all are safe on any thread.
 */

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace cf {

/* The readers' error: the bytes are not a property list. what() is UTF-8 and goes to the caller of
   the public function unchanged. */
class MalformedList : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* True for '0' to '9'. */
inline bool IsDecimalDigit(char character) {
    return character >= '0' && character <= '9';
}

/* The value of a hexadecimal digit of either case, or -1. */
inline int DigitValue(char character) {
    if (IsDecimalDigit(character))
        return character - '0';
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

/* The error text for an XML list that is cut off. */
inline constexpr std::string_view kUnexpectedEnd = "Encountered unexpected EOF";

inline constexpr std::string_view kXmlWhiteSpace = " \t\r\n";

/* The bytes [begin, end) of an XML text, which is borrowed. */
struct XmlSlice {
    std::string_view source;
    std::size_t begin;
    std::size_t end;

    // The bytes of the slice.
    std::string_view View() const {
        return source.substr(begin, end - begin);
    }
    // The slice without its first `index` bytes. Precondition: it has as many.
    XmlSlice From(std::size_t index) const {
        return {source, begin + index, end};
    }
};

/* The error of the functions that read a slice. Finding the line means counting from the beginning
   of the document, so only the function that catches the fault does that. */
struct XmlFault {
    std::optional<std::size_t> place; // an offset in the document; none: no line is named
    std::string before;               // the text before the line's number
    std::string after;                // the text behind it

    // The error to report: before + line number + after. Throws std::bad_alloc.
    MalformedList ErrorIn(std::string_view document) const;
};

/* Throws the XmlFault "<before><line of the slice's beginning><after>", or std::bad_alloc. */
[[noreturn]] void RefuseAt(const XmlSlice& place, std::string_view before,
                           std::string_view after = {});

/* Throws an XmlFault that names no line, or std::bad_alloc. */
[[noreturn]] void RefuseWith(std::string_view text);

/* Input bytes as UTF-8 for an error text. A single byte, and a name that is not valid UTF-8, are
   converted from Latin-1. Both throw std::bad_alloc. */
std::string Printable(char byte);
std::string Printable(std::string_view name);

} // namespace cf

#endif
