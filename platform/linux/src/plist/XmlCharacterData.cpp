#include "plist/XmlCharacterData.h"

#include "objects/Unicode.h"
#include "plist/Parsing.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace cf {

namespace {

constexpr std::string_view kCdataOpening = "<![CDATA[";

constexpr struct {
    std::string_view name;
    char character;
} kEntities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};

char* Append(char* text, std::string_view piece) {
    return std::ranges::copy(piece, text).out;
}

// Writes the character of "&#65;" or "&#x41;" and returns the length of the entity.
std::size_t ResolveNumericEntity(const XmlSlice& entity, char*& text) {
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
                     "Encountered unexpected character " + Printable(view[index]) + " at line ",
                     " while parsing data");
        character = character * static_cast<char32_t>(base) + static_cast<char32_t>(digit);
        character = std::min(character, kTooLarge);
    }
    if (index == view.size())
        RefuseWith(kUnexpectedEnd);
    if (character == 0 || character == kTooLarge || IsSurrogate(character))
        RefuseAt(entity, "Encountered unparseable Unicode sequence at line ",
                 " while parsing data (input did not result in a real string)");
    text = Encode(text, character);
    return index + 1;
}

// Writes the character of the entity and returns the length of the entity.
std::size_t ResolveEntity(const XmlSlice& entity, char*& text) {
    const std::string_view view = entity.View();
    if (view.starts_with("&#"))
        return ResolveNumericEntity(entity, text);
    for (const auto& [name, character] : kEntities) {
        if (view.starts_with(name)) {
            *text++ = character;
            return name.size();
        }
        if (name.starts_with(view))
            RefuseWith(kUnexpectedEnd);
    }
    RefuseAt(entity, "Encountered unknown ampersand-escape sequence at line ");
}

// Writes the section's text and returns the section's length.
std::size_t ResolveCdata(const XmlSlice& section, char*& text) {
    const std::string_view view = section.View();
    if (kCdataOpening.starts_with(view))
        RefuseWith(kUnexpectedEnd);
    if (!view.starts_with(kCdataOpening))
        RefuseAt(section, "Encountered improper CDATA opening at line ");
    const std::size_t end = view.find("]]>", kCdataOpening.size());
    if (end == view.npos)
        RefuseAt(section, "Could not find end of CDATA started on line ");
    text = Append(text, view.substr(kCdataOpening.size(), end - kCdataOpening.size()));
    return end + 3;
}

std::size_t PlainLength(std::string_view view) {
    const auto isMarkup = [](char character) { return character == '<' || character == '&'; };
    return static_cast<std::size_t>(std::ranges::find_if(view, isMarkup) - view.begin());
}

// Writes the resolved text. Returns its length in the source: up to its closing tag or the end of
// the slice.
std::size_t Resolve(XmlSlice rest, char*& text) {
    const std::size_t begin = rest.begin;
    while (true) {
        const std::size_t plain = PlainLength(rest.View());
        text = Append(text, rest.View().substr(0, plain));
        rest = rest.From(plain);
        const std::string_view view = rest.View();
        if (view.empty() || view.starts_with("</"))
            return rest.begin - begin;
        if (view.starts_with('&'))
            rest = rest.From(ResolveEntity(rest, text));
        else if (view.size() == 1 || view[1] == '!')
            rest = rest.From(ResolveCdata(rest, text));
        else
            RefuseAt(rest, "Encountered unexpected character " + Printable(view[1]) + " on line ",
                     " while looking for close tag");
    }
}

} // namespace

CharacterData ResolveCharacterData(const XmlSlice& rest, char* text) {
    char* end = text;
    const std::size_t length = Resolve(rest, end);
    const std::string_view resolved(text, static_cast<std::size_t>(end - text));
    if (!IsValidUtf8(resolved))
        RefuseWith("Unable to convert string to correct encoding");
    if (rest.begin + length == rest.end)
        RefuseWith(kUnexpectedEnd);
    if (resolved.starts_with(kUtf8ByteOrderMark))
        end = std::copy(text + kUtf8ByteOrderMark.size(), end, text);
    std::replace(text, end, '<', kLessThan);
    return {length, static_cast<std::size_t>(end - text)};
}

Value CreateText(std::string_view resolved) {
    if (resolved.find(kLessThan) == resolved.npos)
        return Created(SharedString(resolved));
    std::string text(resolved);
    std::ranges::replace(text, kLessThan, '<');
    return Created(SharedString(text));
}

} // namespace cf
