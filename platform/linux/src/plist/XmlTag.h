#ifndef PLATFORM_XMLTAG_H
#define PLATFORM_XMLTAG_H

/* The elements of a property list. */

#include <array>
#include <cstdint>
#include <string_view>

namespace cf {

/* The value of a tag is its name in the normal form (XmlNormalizer.h). */
enum class XmlTag : char {
    kArray = 'a',
    kData = 'b',
    kDate = 'c',
    kDict = 'd',
    kFalse = 'f',
    kInteger = 'i',
    kKey = 'k',
    kPlist = 'p',
    kReal = 'r',
    kString = 's',
    kTrue = 't',
    kUnknown = '\0',
};

/* A name in one word, its first character in the lowest byte. Names have at most seven characters.
 */
constexpr std::uint64_t PackName(std::string_view name) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < name.size() && i < sizeof word; ++i)
        word |= std::uint64_t{static_cast<unsigned char>(name[i])} << (8 * i);
    return word;
}

/* The name of a tag. */
struct XmlTagName {
    std::string_view text;
    std::uint64_t closing; // the name and '>', packed
};

namespace detail {

/* The table of names, indexed by tag; computed at compile time. */
constexpr auto MakeTagNames() {
    std::array<XmlTagName, 't' + 1> names{}; // up to the last letter that is a name
    const auto add = [&names](XmlTag tag, std::string_view text) {
        const std::uint64_t end = std::uint64_t{'>'} << (8 * text.size());
        names[static_cast<unsigned char>(tag)] = {text, PackName(text) | end};
    };
    add(XmlTag::kArray, "array");
    add(XmlTag::kData, "data");
    add(XmlTag::kDate, "date");
    add(XmlTag::kDict, "dict");
    add(XmlTag::kFalse, "false");
    add(XmlTag::kInteger, "integer");
    add(XmlTag::kKey, "key");
    add(XmlTag::kPlist, "plist");
    add(XmlTag::kReal, "real");
    add(XmlTag::kString, "string");
    add(XmlTag::kTrue, "true");
    return names;
}

inline constexpr auto kTagNames = MakeTagNames();

} // namespace detail

/* The name of a tag; empty for kUnknown. */
inline const XmlTagName& NameOf(XmlTag tag) {
    return detail::kTagNames[static_cast<unsigned char>(tag)];
}

/* The tag of a name, or kUnknown. Precondition: the name is not empty. */
inline XmlTag TagOf(std::string_view name) {
    for (std::size_t i = 0; i < detail::kTagNames.size(); ++i)
        if (detail::kTagNames[i].text == name)
            return static_cast<XmlTag>(i);
    return XmlTag::kUnknown;
}

} // namespace cf

#endif
