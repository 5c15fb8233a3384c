#include "lists/XmlReader.h"

#include "lists/MalformedList.h"
#include "lists/XmlCharacterData.h"
#include "lists/XmlEncoding.h"
#include "lists/XmlNormalizer.h"
#include "lists/XmlScalars.h"
#include "lists/XmlTag.h"

#include <CoreFoundation/CFNumber.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cf {

namespace {

// Parses the normal form in place. It is well-formed, so that only memory can be missing.
void Parse(pugi::xml_document& document, char* normalForm, std::size_t length) {
    // A text is kept in its element, which halves the tree.
    constexpr unsigned kFlags = pugi::parse_minimal | pugi::parse_fragment |
                                pugi::parse_embed_pcdata | pugi::parse_ws_pcdata_single;
    if (!document.load_buffer_inplace(normalForm, length + 1, kFlags, pugi::encoding_utf8))
        throw std::bad_alloc();
}

class XmlReader {
public:
    XmlReader(std::span<const std::uint8_t> bytes, ListBuilder& builder)
        : bytes_(bytes), builder_(builder) {}

    // Throws MalformedList and std::bad_alloc.
    Value Read();

private:
    std::size_t Normalize();
    // The content is what stands in the element behind its key.
    Value ReadValue(pugi::xml_node element, const char* content);
    Value ReadPlist(pugi::xml_node plist);
    Value ReadArray(pugi::xml_node array);
    Value ReadDictionary(pugi::xml_node dictionary);
    const char* ReadKey(const char* text);
    Value ReadNumber(pugi::xml_node number, const char* content);
    XmlSlice Slice(pugi::xml_node element, const char* content) const;
    [[noreturn]] void Refuse(XmlFault fault) const;

    const std::span<const std::uint8_t> bytes_;
    ListBuilder& builder_;
    std::unique_ptr<char[]> normalForm_;
    std::optional<MalformedList> break_; // of the text, where the normal form ends
};

// Hands out a text with each '<' in it.
template<typename Use>
auto UseText(std::string_view text, Use use) {
    if (text.find(kLessThan) == text.npos)
        return use(text);
    std::string resolved(text);
    std::ranges::replace(resolved, kLessThan, '<');
    return use(std::string_view(resolved));
}

// A value at fault stands before the place where the text breaks off.
Value XmlReader::Read() {
    const std::size_t length = Normalize();
    pugi::xml_document document;
    Parse(document, normalForm_.get(), length);
    Value value;
    try {
        if (const pugi::xml_node root = document.first_child())
            value = ReadValue(root, root.value());
    } catch (const XmlFault& fault) {
        Refuse(fault);
    }
    if (break_)
        throw *break_;
    return value;
}

// Returns the length. The text itself is not kept: it may be a copy.
std::size_t XmlReader::Normalize() {
    const XmlDocumentText document(bytes_);
    const std::string_view text = document.View();
    normalForm_ = std::make_unique_for_overwrite<char[]>(NormalizedCapacity(text));
    const NormalizedXml normalized = NormalizeXml(text, normalForm_.get());
    if (normalized.fault)
        break_ = normalized.fault->In(text);
    return normalized.length;
}

// Of a fault in the normal form, which is of no use afterwards.
void XmlReader::Refuse(XmlFault fault) const {
    const XmlDocumentText document(bytes_);
    if (fault.place)
        fault.place = FindInSource(document.View(), normalForm_.get(), *fault.place);
    throw fault.In(document.View());
}

Value XmlReader::ReadValue(pugi::xml_node element, const char* content) {
    switch (static_cast<XmlTag>(*element.name())) {
    case XmlTag::kInteger:
        return ReadNumber(element, content);
    case XmlTag::kDict:
        return ReadDictionary(element);
    case XmlTag::kTrue:
        return Value::Share(AsObject(kCFBooleanTrue));
    case XmlTag::kFalse:
        return Value::Share(AsObject(kCFBooleanFalse));
    case XmlTag::kArray:
        return ReadArray(element);
    case XmlTag::kData:
        return ReadData(Slice(element, content));
    case XmlTag::kReal:
        return ReadReal(Slice(element, content));
    case XmlTag::kDate:
        return ReadDate(Slice(element, content));
    case XmlTag::kPlist:
        return ReadPlist(element);
    default:
        return UseText(content, [](std::string_view text) { return Created(SharedString(text)); });
    }
}

// Without an object the normal form ends in it.
Value XmlReader::ReadPlist(pugi::xml_node plist) {
    const pugi::xml_node object = plist.first_child();
    if (!object)
        throw *break_;
    return ReadValue(object, object.value());
}

Value XmlReader::ReadArray(pugi::xml_node array) {
    const std::size_t begin = builder_.BeginArray();
    for (pugi::xml_node member = array.first_child(); member; member = member.next_sibling())
        builder_.AddMember(ReadValue(member, member.value()));
    return builder_.EndArray(begin);
}

Value XmlReader::ReadDictionary(pugi::xml_node dictionary) {
    builder_.BeginDictionary();
    for (pugi::xml_node value = dictionary.first_child(); value; value = value.next_sibling()) {
        const char* const content = ReadKey(value.value());
        builder_.AddValue(ReadValue(value, content));
    }
    return builder_.EndDictionary();
}

// Returns what stands behind the key.
const char* XmlReader::ReadKey(const char* text) {
    const std::string_view expected = builder_.ExpectedKey();
    if (!expected.empty() && std::strncmp(text, expected.data(), expected.size()) == 0 &&
        text[expected.size()] == kBehindKey) {
        builder_.AddExpectedKey();
        return text + expected.size() + 1;
    }
    const char* const end = std::strchr(text, kBehindKey);
    UseText({text, end}, [this](std::string_view key) { builder_.AddKey(key); });
    return end + 1;
}

Value XmlReader::ReadNumber(pugi::xml_node number, const char* content) {
    std::int64_t plain = 0;
    const char* const end = ParsePlainInteger(content, plain);
    if (end != nullptr && *end == '\0')
        return Created(SharedInteger(plain));
    return ReadInteger(Slice(number, content));
}

// An element without a key and content has a value that is pugixml's own, outside of the normal
// form; its content would stand behind the letter of its name and the '>'.
XmlSlice XmlReader::Slice(pugi::xml_node element, const char* content) const {
    const char* const begin = normalForm_.get();
    const bool isEmpty = *element.value() == '\0';
    const auto place = static_cast<std::size_t>((isEmpty ? element.name() + 2 : content) - begin);
    const std::size_t end = place + std::strlen(content);
    return {{begin, end}, place, end};
}

} // namespace

Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder) {
    return XmlReader(bytes, builder).Read();
}

} // namespace cf
