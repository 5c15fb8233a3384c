#ifndef TESTS_XMLTEXTS_H
#define TESTS_XMLTEXTS_H

/* Texts of XML property lists that are nested. */

#include <string>
#include <string_view>

/* The innermost text between so many opening and as many closing ones. */
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
