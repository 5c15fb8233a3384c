#include "lists/XmlCharacterData.h"

#include "lists/Digits.h"
#include "lists/MalformedList.h"
#include "lists/Utf16.h"
#include "objects/Unicode.h"

#include <algorithm>

namespace cf {

namespace {

constexpr std::string_view kCdataOpening = "<![CDATA[";

constexpr struct {
    std::string_view name;
    char character;
} kEntities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};

// "&#65;" or "&#x41;". Returns its length.
std::size_t ReadNumericEntity(const XmlSlice& entity, std::string& text) {
    constexpr char32_t kTooLarge = 0x110000;
    const std::string_view view = entity.View();
    const bool hexadecimal = view.substr(2).starts_with('x');
    const int base = hexadecimal ? 16 : 10;
    char32_t character = 0;
    std::size_t index = hexadecimal ? 3 : 2;
    for (; index < view.size() && view[index] != ';'; ++index) {
        const int digit = DigitValue(view[index]);
        if (digit < 0 || digit >= base)
            RefuseAt(entity.From(index),
                     std::string("Encountered unexpected character ") + Shown(view[index]) +
                         " at line ",
                     " while parsing data");
        character = character * static_cast<char32_t>(base) + static_cast<char32_t>(digit);
        character = std::min(character, kTooLarge);
    }
    if (character == 0 || character == kTooLarge || IsSurrogate(character))
        RefuseAt(entity, "Encountered unparseable Unicode sequence at line ",
                 " while parsing data (input did not result in a real string)");
    AppendCharacter(text, character);
    return index + 1;
}

// Appends what the entity stands for and returns its length.
std::size_t ReadEntity(const XmlSlice& entity, std::string& text) {
    const std::string_view view = entity.View();
    for (const auto& [name, character] : kEntities) {
        if (view.starts_with(name)) {
            text += character;
            return name.size();
        }
    }
    if (!view.starts_with("&#"))
        RefuseAt(entity, "Encountered unknown ampersand-escape sequence at line ");
    return ReadNumericEntity(entity, text);
}

// Appends the section's text and returns the section's length.
std::size_t ReadCdata(const XmlSlice& section, std::string& text) {
    const std::string_view view = section.View();
    if (!view.starts_with(kCdataOpening))
        RefuseAt(section, "Encountered improper CDATA opening at line ");
    const std::size_t end = view.find("]]>", kCdataOpening.size());
    if (end == view.npos)
        RefuseAt(section, "Could not find end of CDATA started on line ");
    text += view.substr(kCdataOpening.size(), end - kCdataOpening.size());
    return end + 3;
}

} // namespace

std::string ReadCharacterData(XmlSlice rest) {
    std::string text;
    while (true) {
        const std::size_t plain = rest.View().find_first_of("<&");
        text += rest.View().substr(0, plain);
        if (plain == std::string_view::npos)
            throw MalformedList("Encountered unexpected EOF");
        rest = rest.From(plain);
        const std::string_view view = rest.View();
        if (view.starts_with("</"))
            return text;
        if (view.starts_with('&'))
            rest = rest.From(ReadEntity(rest, text));
        else if (view.starts_with("<!"))
            rest = rest.From(ReadCdata(rest, text));
        else
            RefuseAt(rest.From(1),
                     "Encountered unexpected character " +
                         std::string(1, view.size() > 1 ? Shown(view[1]) : '<') + " on line ",
                     " while looking for close tag");
    }
}

} // namespace cf
