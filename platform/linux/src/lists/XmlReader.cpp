#include "lists/XmlReader.h"

#include "lists/MalformedList.h"
#include "lists/XmlCharacterData.h"
#include "lists/XmlEncoding.h"
#include "lists/XmlKeyTable.h"
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
#include <vector>

namespace cf {

namespace {

// Parses the normal form in place. It is well-formed, so that only memory can be missing.
void Parse(pugi::xml_document& document, char* normalForm, std::size_t length) {
    // The text before the first element inside is kept in its element, without a node of its own.
    constexpr unsigned kFlags =
        pugi::parse_minimal | pugi::parse_fragment | pugi::parse_embed_pcdata;
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
    Value ReadNode(pugi::xml_node node);
    // The text is what stands in the element behind its key.
    Value ReadContainer(pugi::xml_node container, const char* text);
    Value ReadPlist(pugi::xml_node plist, const char* text);
    Value ReadArray(pugi::xml_node array, const char* text);
    Value ReadDictionary(pugi::xml_node dictionary, const char* text);
    void ReadMembers(const char* text);
    void ReadPairs(const char* text);
    // These move on behind what they read.
    const Object* TakeKey(const char*& text) const;
    Value ReadScalar(const char*& text);
    Value TakeInteger(const char*& text);
    XmlSlice TakeContent(const char*& text) const;
    [[noreturn]] void Refuse(XmlFault fault) const;

    const std::span<const std::uint8_t> bytes_;
    ListBuilder& builder_;
    std::unique_ptr<char[]> normalForm_;
    std::vector<Value> keys_;            // by number
    std::optional<MalformedList> break_; // of the text, where the normal form ends
};

// From a text with kLessThan for '<'.
Value CreateText(std::string_view text) {
    if (text.find(kLessThan) == text.npos)
        return Created(SharedString(text));
    std::string resolved(text);
    std::ranges::replace(resolved, kLessThan, '<');
    return Created(SharedString(resolved));
}

// A value at fault stands before the place where the text breaks off.
Value XmlReader::Read() {
    const std::size_t length = Normalize();
    pugi::xml_document document;
    Parse(document, normalForm_.get(), length);
    Value value;
    try {
        if (const pugi::xml_node root = document.first_child())
            value = ReadNode(root);
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
    keys_.reserve(normalized.keys.size());
    for (const std::string_view key : normalized.keys)
        keys_.push_back(CreateText(key));
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

// A text here is one scalar.
Value XmlReader::ReadNode(pugi::xml_node node) {
    const char* text = node.value();
    return node.type() == pugi::node_pcdata ? ReadScalar(text) : ReadContainer(node, text);
}

Value XmlReader::ReadContainer(pugi::xml_node container, const char* text) {
    switch (static_cast<XmlTag>(*container.name())) {
    case XmlTag::kDict:
        return ReadDictionary(container, text);
    case XmlTag::kArray:
        return ReadArray(container, text);
    default:
        return ReadPlist(container, text);
    }
}

// Without an object the normal form ends in it.
Value XmlReader::ReadPlist(pugi::xml_node plist, const char* text) {
    if (*text != '\0')
        return ReadScalar(text);
    const pugi::xml_node object = plist.first_child();
    if (!object)
        throw *break_;
    return ReadNode(object);
}

Value XmlReader::ReadArray(pugi::xml_node array, const char* text) {
    const std::size_t begin = builder_.BeginArray();
    ReadMembers(text);
    for (pugi::xml_node node = array.first_child(); node; node = node.next_sibling()) {
        if (node.type() == pugi::node_pcdata)
            ReadMembers(node.value());
        else
            builder_.AddMember(ReadContainer(node, node.value()));
    }
    return builder_.EndArray(begin);
}

void XmlReader::ReadMembers(const char* text) {
    while (*text != '\0')
        builder_.AddMember(ReadScalar(text));
}

Value XmlReader::ReadDictionary(pugi::xml_node dictionary, const char* text) {
    builder_.BeginDictionary();
    ReadPairs(text);
    for (pugi::xml_node node = dictionary.first_child(); node; node = node.next_sibling()) {
        const char* value = node.value();
        if (node.type() == pugi::node_pcdata) {
            ReadPairs(value);
        } else {
            const Object* const key = TakeKey(value);
            builder_.AddPair(key, ReadContainer(node, value));
        }
    }
    return builder_.EndDictionary();
}

void XmlReader::ReadPairs(const char* text) {
    while (*text != '\0') {
        const Object* const key = TakeKey(text);
        builder_.AddPair(key, ReadScalar(text));
    }
}

const Object* XmlReader::TakeKey(const char*& text) const {
    return keys_[ReadKeyReference(std::exchange(text, text + kKeyReferenceLength))].Get();
}

Value XmlReader::ReadScalar(const char*& text) {
    const auto tag = static_cast<XmlTag>(*text++);
    switch (tag) {
    case XmlTag::kInteger:
        return TakeInteger(text);
    case XmlTag::kTrue:
        return Value::Share(AsObject(kCFBooleanTrue));
    case XmlTag::kFalse:
        return Value::Share(AsObject(kCFBooleanFalse));
    case XmlTag::kString:
        return CreateText(TakeContent(text).View());
    default:
        return ReadNumber(tag, TakeContent(text));
    }
}

Value XmlReader::TakeInteger(const char*& text) {
    std::int64_t plain = 0;
    const char* const end = ParsePlainInteger(text, plain);
    if (end == nullptr || *end != kBehindScalar)
        return ReadInteger(TakeContent(text));
    text = end + 1;
    return Created(SharedInteger(plain));
}

XmlSlice XmlReader::TakeContent(const char*& text) const {
    const char* const begin = std::exchange(text, std::strchr(text, kBehindScalar) + 1);
    const char* const source = normalForm_.get();
    const auto end = static_cast<std::size_t>(text - 1 - source);
    return {{source, end}, static_cast<std::size_t>(begin - source), end};
}

} // namespace

Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder) {
    return XmlReader(bytes, builder).Read();
}

} // namespace cf
