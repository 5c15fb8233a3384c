#ifndef TESTS_XMLTEXTS_H
#define TESTS_XMLTEXTS_H

/* Nested XML property lists. */

#include <string>
#include <string_view>

/* `levels` opening texts, the innermost text, `levels` closing texts. */
inline std::string Nested(int levels, std::string_view opening, std::string_view closing,
                          std::string_view innermost = "") {
    std::string xml;
    for (int i = 0; i < levels; ++i)
        xml += opening;
    xml += innermost;
    for (int i = 0; i < levels; ++i)
        xml += closing;
    return xml;
}

#endif
