#include "lists/XmlReader.h"

#include "lists/MalformedList.h"
#include "lists/XmlCharacterData.h"
#include "lists/XmlEncoding.h"
#include "lists/XmlScalars.h"
#include "lists/XmlTree.h"

#include <CoreFoundation/CFNumber.h>

#include <cstring>
#include <string>
#include <utility>

namespace cf {

namespace {

enum class Tag { Key, String, Integer, Dict, True, False, Array, Data, Real, Date, Plist, Unknown };

// Byte by byte in line, because it is asked for each element.
template<std::size_t Size>
bool IsNamed(const char* name, const char (&text)[Size]) {
    const auto same = [&]<std::size_t... Index>(std::index_sequence<Index...>) {
        return (... && (name[Index] == text[Index]));
    };
    return same(std::make_index_sequence<Size>());
}

Tag TagOf(pugi::xml_node element) {
    const char* const name = element.name();
    switch (*name) {
    case 'a':
        return IsNamed(name, "array") ? Tag::Array : Tag::Unknown;
    case 'd':
        return IsNamed(name, "dict")   ? Tag::Dict
               : IsNamed(name, "data") ? Tag::Data
               : IsNamed(name, "date") ? Tag::Date
                                       : Tag::Unknown;
    case 'f':
        return IsNamed(name, "false") ? Tag::False : Tag::Unknown;
    case 'i':
        return IsNamed(name, "integer") ? Tag::Integer : Tag::Unknown;
    case 'k':
        return IsNamed(name, "key") ? Tag::Key : Tag::Unknown;
    case 'p':
        return IsNamed(name, "plist") ? Tag::Plist : Tag::Unknown;
    case 'r':
        return IsNamed(name, "real") ? Tag::Real : Tag::Unknown;
    case 's':
        return IsNamed(name, "string") ? Tag::String : Tag::Unknown;
    case 't':
        return IsNamed(name, "true") ? Tag::True : Tag::Unknown;
    default:
        return Tag::Unknown;
    }
}

// Throws "<before><first character><between><its line><after>" when the text is not blank.
void RefuseText(const XmlSlice& text, const char* before, const char* between,
                const char* after = "") {
    const std::size_t index = text.View().find_first_not_of(kXmlWhiteSpace);
    if (index != std::string_view::npos)
        RefuseAt(text.From(index), std::string(before) + Shown(text.View()[index]) + between,
                 after);
}

class XmlReader {
public:
    XmlReader(std::string_view text, ListBuilder& builder) : tree_(text), builder_(builder) {}

    Value Read();

private:
    Value ReadValue(pugi::xml_node element, int depth);
    Value ReadPlist(pugi::xml_node plist, int depth);
    Value ReadArray(pugi::xml_node array, int depth);
    Value ReadDictionary(pugi::xml_node dictionary, int depth);
    template<typename Use>
    auto ReadText(pugi::xml_node element, Use use);
    void ReadKey(pugi::xml_node element);
    Value ReadString(pugi::xml_node element);
    Value ReadBoolean(pugi::xml_node element, CFBooleanRef value);
    Value ReadNumber(pugi::xml_node element);
    Value ReadScalar(pugi::xml_node element, Value (*read)(const XmlSlice& content));

    pugi::xml_node EnterContainer(pugi::xml_node container, int depth) const;
    bool SkipToElement(pugi::xml_node& node) const;
    void RefuseUnlessRemark(pugi::xml_node node, pugi::xml_node_type type) const;
    [[noreturn]] void RefuseTag(pugi::xml_node element) const;
    void RefuseBreakIn(pugi::xml_node element) const;

    const XmlTree tree_;
    ListBuilder& builder_;
};

// Moves the node on to the nearest element, itself included; false when there is none.
inline bool XmlReader::SkipToElement(pugi::xml_node& node) const {
    while (true) {
        const pugi::xml_node_type type = node.type();
        if (type == pugi::node_element)
            return true;
        if (type == pugi::node_null)
            return false;
        RefuseUnlessRemark(node, type);
        node = node.next_sibling();
    }
}

// The element around a list is no level of it.
Value XmlReader::Read() {
    for (const pugi::xml_node node : tree_.Document()) {
        if (node.type() == pugi::node_element)
            return ReadValue(node, TagOf(node) == Tag::Plist ? -1 : 0);
        if (node.type() == pugi::node_pcdata)
            RefuseText(tree_.At(node), "Unexpected character ", " at line ");
        if (node.type() == pugi::node_doctype && std::strchr(node.value(), '[') != nullptr)
            RefuseDoctype(tree_.At(node));
    }
    if (!tree_.IsWellFormed())
        tree_.RefuseBreak();
    throw MalformedList("No XML content found");
}

Value XmlReader::ReadValue(pugi::xml_node element, int depth) {
    switch (TagOf(element)) {
    case Tag::Key:
    case Tag::String:
        return ReadString(element);
    case Tag::Integer:
        return ReadNumber(element);
    case Tag::Dict:
        return ReadDictionary(element, depth);
    case Tag::True:
        return ReadBoolean(element, kCFBooleanTrue);
    case Tag::False:
        return ReadBoolean(element, kCFBooleanFalse);
    case Tag::Array:
        return ReadArray(element, depth);
    case Tag::Data:
        return ReadScalar(element, ReadData);
    case Tag::Real:
        return ReadScalar(element, ReadReal);
    case Tag::Date:
        return ReadScalar(element, ReadDate);
    case Tag::Plist:
        return ReadPlist(element, depth);
    case Tag::Unknown:
        break;
    }
    RefuseTag(element);
}

// Hands out what is written in the element, entities and sections resolved.
template<typename Use>
auto XmlReader::ReadText(pugi::xml_node element, Use use) {
    const std::string_view text = element.value();
    const bool isAll =
        text.empty() ? !element.first_child() : XmlTree::Closes(text.data() + text.size());
    if (isAll && text.find('&') == text.npos)
        return use(text);
    return use(std::string_view(ReadCharacterData(tree_.AfterOpeningTag(element))));
}

Value XmlReader::ReadPlist(pugi::xml_node plist, int depth) {
    pugi::xml_node object = EnterContainer(plist, depth);
    if (!SkipToElement(object)) {
        RefuseBreakIn(plist);
        throw MalformedList("Encountered empty plist tag");
    }
    Value value = ReadValue(object, depth + 1);
    pugi::xml_node second = object.next_sibling();
    if (SkipToElement(second))
        RefuseAt(tree_.At(second), "Encountered unexpected element at line ",
                 " (plist can only include one object)");
    RefuseBreakIn(plist);
    return value;
}

Value XmlReader::ReadArray(pugi::xml_node array, int depth) {
    const std::size_t begin = builder_.BeginArray();
    for (pugi::xml_node member = EnterContainer(array, depth); SkipToElement(member);
         member = member.next_sibling())
        builder_.AddMember(ReadValue(member, depth + 1));
    RefuseBreakIn(array);
    return builder_.EndArray(begin);
}

Value XmlReader::ReadDictionary(pugi::xml_node dictionary, int depth) {
    builder_.BeginDictionary();
    for (pugi::xml_node node = EnterContainer(dictionary, depth); SkipToElement(node);
         node = node.next_sibling()) {
        if (!IsNamed(node.name(), "key"))
            RefuseAt(tree_.At(node), "Found non-key inside <dict> at line ");
        pugi::xml_node value = node.next_sibling();
        const bool hasValue = SkipToElement(value);
        ReadKey(node);
        if (!hasValue)
            RefuseAt(tree_.At(node), "Value missing for key inside <dict> at line ");
        builder_.AddValue(ReadValue(value, depth + 1));
        node = value;
    }
    RefuseBreakIn(dictionary);
    return builder_.EndDictionary();
}

void XmlReader::ReadKey(pugi::xml_node element) {
    RefuseBreakIn(element);
    const std::string_view expected = builder_.ExpectedKey();
    const char* const text = element.value();
    if (!expected.empty() && std::strncmp(text, expected.data(), expected.size()) == 0 &&
        XmlTree::Closes(text + expected.size()))
        builder_.AddExpectedKey();
    else
        ReadText(element, [this](std::string_view key) { builder_.AddKey(key); });
}

Value XmlReader::ReadString(pugi::xml_node element) {
    RefuseBreakIn(element);
    return ReadText(element, [](std::string_view text) { return Created(SharedString(text)); });
}

Value XmlReader::ReadBoolean(pugi::xml_node element, CFBooleanRef value) {
    RefuseBreakIn(element);
    if (element.first_child() || *element.value() != '\0')
        RefuseAt(tree_.At(element),
                 "Encountered non-empty <" + std::string(element.name()) + "> on line ");
    return Value::Share(AsObject(value));
}

Value XmlReader::ReadNumber(pugi::xml_node element) {
    RefuseBreakIn(element);
    std::int64_t plain = 0;
    const char* const end = ParsePlainInteger(element.value(), plain);
    if (end != nullptr && XmlTree::Closes(end))
        return Created(SharedInteger(plain));
    return ReadScalar(element, ReadInteger);
}

Value XmlReader::ReadScalar(pugi::xml_node element, Value (*read)(const XmlSlice& content)) {
    RefuseBreakIn(element);
    if (*element.value() == '\0' && tree_.IsSelfClosing(element))
        RefuseAt(tree_.At(element),
                 "Encountered empty <" + std::string(element.name()) + "> on line ");
    Value value = read(tree_.Content(element));
    if (const pugi::xml_node child = element.first_child())
        RefuseAt(tree_.At(child), "Encountered unexpected character < on line ",
                 " while looking for close tag");
    return value;
}

pugi::xml_node XmlReader::EnterContainer(pugi::xml_node container, int depth) const {
    if (depth == kMaximumNesting)
        RefuseAt(tree_.At(container), "Too many nested arrays or dictionaries, failing on line ");
    if (*container.value() != '\0')
        RefuseText(tree_.Content(container), "Encountered unexpected character ", " on line ",
                   " while looking for open tag");
    return container.first_child();
}

// Only comments and instructions may stand between elements.
void XmlReader::RefuseUnlessRemark(pugi::xml_node node, pugi::xml_node_type type) const {
    if (type == pugi::node_pcdata)
        RefuseText(tree_.At(node), "Encountered unexpected character ", " on line ",
                   " while looking for open tag");
    if (type == pugi::node_cdata)
        RefuseAt(tree_.At(node), "Encountered improper CDATA opening at line ");
}

void XmlReader::RefuseTag(pugi::xml_node element) const {
    RefuseAt(tree_.At(element),
             "Encountered unknown tag " + std::string(element.name()) + " on line ");
}

void XmlReader::RefuseBreakIn(pugi::xml_node element) const {
    if (!tree_.IsWellFormed() && element == tree_.BrokenElement())
        tree_.RefuseBreak();
}

} // namespace

Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder) {
    const XmlDocumentText document(bytes);
    const std::string_view text = document.View();
    const std::size_t begin = text.find_first_not_of(kXmlWhiteSpace);
    if (begin == text.npos || text.substr(begin) == "<")
        throw MalformedList("No XML content found");
    if (text[begin] != '<')
        RefuseText({text, 0, text.size()}, "Unexpected character ", " at line ");
    return XmlReader(text, builder).Read();
}

} // namespace cf
