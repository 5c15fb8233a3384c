#include "lists/XmlReader.h"

#include "lists/MalformedList.h"
#include "lists/XmlCharacterData.h"
#include "lists/XmlEncoding.h"
#include "lists/XmlScalars.h"
#include "lists/XmlTree.h"
#include "objects/Unicode.h"

#include <CoreFoundation/CFNumber.h>

#include <cstring>
#include <iterator>
#include <string>
#include <utility>

namespace cf {

namespace {

enum class Tag { Key, String, Integer, Dict, True, False, Array, Data, Real, Date, Plist, Unknown };

// In the order of Tag, which is that of their frequency.
constexpr const char* kTagNames[] = {"key",   "string", "integer", "dict", "true", "false",
                                     "array", "data",   "real",    "date", "plist"};

Tag TagOf(pugi::xml_node element) {
    const char* name = element.name();
    std::size_t tag = 0;
    while (tag < std::size(kTagNames) &&
           (*name != *kTagNames[tag] || std::strcmp(name, kTagNames[tag]) != 0))
        ++tag;
    return static_cast<Tag>(tag);
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
    Value ReadString(pugi::xml_node element);
    Value ReadBoolean(pugi::xml_node element, CFBooleanRef value);
    Value ReadScalar(pugi::xml_node element, Value (*read)(const XmlSlice& content));

    pugi::xml_node FirstElement(pugi::xml_node container, int depth) const;
    pugi::xml_node SkipToElement(pugi::xml_node node) const;
    void RefuseBreakIn(pugi::xml_node element) const;

    const XmlTree tree_;
    ListBuilder& builder_;
};

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
        return ReadScalar(element, ReadInteger);
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
    RefuseAt(tree_.At(element),
             "Encountered unknown tag " + std::string(element.name()) + " on line ");
}

Value XmlReader::ReadPlist(pugi::xml_node plist, int depth) {
    const pugi::xml_node object = FirstElement(plist, depth);
    if (!object) {
        RefuseBreakIn(plist);
        throw MalformedList("Encountered empty plist tag");
    }
    Value value = ReadValue(object, depth + 1);
    if (const pugi::xml_node second = SkipToElement(object.next_sibling()))
        RefuseAt(tree_.At(second), "Encountered unexpected element at line ",
                 " (plist can only include one object)");
    RefuseBreakIn(plist);
    return value;
}

Value XmlReader::ReadArray(pugi::xml_node array, int depth) {
    const std::size_t begin = builder_.BeginArray();
    for (pugi::xml_node member = FirstElement(array, depth); member;
         member = SkipToElement(member.next_sibling()))
        builder_.AddMember(ReadValue(member, depth + 1));
    RefuseBreakIn(array);
    return builder_.EndArray(begin);
}

Value XmlReader::ReadDictionary(pugi::xml_node dictionary, int depth) {
    const std::size_t begin = builder_.BeginDictionary();
    for (pugi::xml_node node = FirstElement(dictionary, depth); node;
         node = SkipToElement(node.next_sibling())) {
        if (TagOf(node) != Tag::Key)
            RefuseAt(tree_.At(node), "Found non-key inside <dict> at line ");
        const pugi::xml_node value = SkipToElement(node.next_sibling());
        Value key = ReadString(node);
        if (!value)
            RefuseAt(tree_.At(node), "Value missing for key inside <dict> at line ");
        builder_.AddPair(std::move(key), ReadValue(value, depth + 1));
        node = value;
    }
    RefuseBreakIn(dictionary);
    return builder_.EndDictionary(begin);
}

Value XmlReader::ReadString(pugi::xml_node element) {
    RefuseBreakIn(element);
    const std::string_view text = element.value();
    if (!element.first_child() && text.find('&') == text.npos)
        return Created(SharedString(text));
    return Created(SharedString(ReadCharacterData(tree_.AfterOpeningTag(element))));
}

Value XmlReader::ReadBoolean(pugi::xml_node element, CFBooleanRef value) {
    RefuseBreakIn(element);
    if (element.first_child() || *element.value() != '\0')
        RefuseAt(tree_.At(element),
                 "Encountered non-empty <" + std::string(element.name()) + "> on line ");
    return Value::Share(AsObject(value));
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

pugi::xml_node XmlReader::FirstElement(pugi::xml_node container, int depth) const {
    if (depth == kMaximumNesting)
        RefuseAt(tree_.At(container), "Too many nested arrays or dictionaries, failing on line ");
    RefuseText(tree_.Content(container), "Encountered unexpected character ", " on line ",
               " while looking for open tag");
    return SkipToElement(container.first_child());
}

// The node or the next one that is an element. Only comments and instructions may stand between.
pugi::xml_node XmlReader::SkipToElement(pugi::xml_node node) const {
    for (; node && node.type() != pugi::node_element; node = node.next_sibling()) {
        if (node.type() == pugi::node_pcdata)
            RefuseText(tree_.At(node), "Encountered unexpected character ", " on line ",
                       " while looking for open tag");
        if (node.type() == pugi::node_cdata)
            RefuseAt(tree_.At(node), "Encountered improper CDATA opening at line ");
    }
    return node;
}

void XmlReader::RefuseBreakIn(pugi::xml_node element) const {
    if (element == tree_.BrokenElement())
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
    if (!IsValidUtf8(text))
        throw MalformedList("Unable to convert string to correct encoding");
    return XmlReader(text.substr(0, text.find('\0')), builder).Read(); // XML has no NUL
}

} // namespace cf
