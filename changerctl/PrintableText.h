#ifndef CHANGERCTL_PRINTABLETEXT_H
#define CHANGERCTL_PRINTABLETEXT_H

/* Text of the server or of a file as it is safe to print: a terminal executes control characters.
 */

#include <cstddef>
#include <string>
#include <string_view>

namespace changerctl {

/* Replaces control characters (C0, DEL, C1), line and paragraph separators, characters that change
   the direction of text, backslashes, and bytes that are not UTF-8 by escape sequences: \n, \t,
   \\, \xHH for a byte and \uHHHH for a character. */
std::string Printable(std::string_view text);

/* The number of columns that printable text takes on a terminal. */
std::size_t ColumnsOf(std::string_view text);

/* The longest beginning of printable text that fits into `columns` columns. */
std::string_view ClippedTo(std::size_t columns, std::string_view text);

} // namespace changerctl

#endif
