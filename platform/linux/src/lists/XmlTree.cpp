#include "lists/XmlTree.h"

#include "lists/MalformedList.h"
#include "objects/Unicode.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace cf {

namespace {

// Comments and instructions become nodes because they may not stand inside texts; a value is kept
// in its element, which halves the tree.
constexpr unsigned kParseFlags = pugi::parse_cdata | pugi::parse_comments | pugi::parse_pi |
                                 pugi::parse_doctype | pugi::parse_fragment |
                                 pugi::parse_embed_pcdata | pugi::parse_ws_pcdata_single;

// Behind the copy: its end, and what Closes() may look at when the text breaks off.
constexpr std::size_t kEnd = 2;

// Copies the text up to a NUL and returns that length, by pieces that are still in the nearest
// cache from the one pass to the next.
std::size_t CopyChecked(std::string_view text, char* copy) {
    constexpr std::size_t kPiece = std::size_t{16} << 10;
    std::size_t length = 0;
    for (bool hasEnded = false; !text.empty();) {
        const std::string_view piece = text.substr(0, WholeCharacters(text, kPiece));
        if (!IsValidUtf8(piece))
            throw MalformedList("Unable to convert string to correct encoding");
        if (!hasEnded) {
            const std::string_view xml = piece.substr(0, piece.find('\0'));
            std::ranges::copy(xml, copy + length);
            length += xml.size();
            hasEnded = xml.size() < piece.size();
        }
        text.remove_prefix(piece.size());
    }
    std::fill_n(copy + length, kEnd, '\0');
    return length;
}

std::size_t Offset(pugi::xml_node node) {
    return static_cast<std::size_t>(node.offset_debug());
}

bool IsElement(pugi::xml_node node) {
    return node.type() == pugi::node_element;
}

// What ends a child that is no element.
std::string_view TerminatorOf(pugi::xml_node_type type) {
    switch (type) {
    case pugi::node_cdata:
        return "]]>";
    case pugi::node_comment:
        return "-->";
    case pugi::node_pi:
        return "?>";
    default:
        return "";
    }
}

} // namespace

XmlTree::XmlTree(std::string_view text)
    : copy_(std::make_unique_for_overwrite<char[]>(text.size() + kEnd)),
      text_(text.substr(0, CopyChecked(text, copy_.get()))),
      result_(document_.load_buffer_inplace(copy_.get(), text_.size() + 1, kParseFlags,
                                            pugi::encoding_utf8)) {
    if (result_.status == pugi::status_out_of_memory)
        throw std::bad_alloc();
    if (!IsWellFormed())
        FindBreak();
}

XmlSlice XmlTree::At(pugi::xml_node node) const {
    return {text_, Offset(node), text_.size()};
}

XmlSlice XmlTree::Content(pugi::xml_node element) const {
    const char* value = element.value();
    const std::size_t name = Offset(element);
    if (*value == '\0')
        return {text_, name, name};
    const std::size_t begin = name + static_cast<std::size_t>(value - element.name());
    return {text_, begin, begin + std::strlen(value)};
}

XmlSlice XmlTree::AfterOpeningTag(pugi::xml_node element) const {
    return {text_, OpeningTagEnd(element), text_.size()};
}

bool XmlTree::IsSelfClosing(pugi::xml_node element) const {
    return text_[OpeningTagEnd(element) - 2] == '/';
}

// Behind the '>', which does not count inside a quoted attribute; npos when there is none.
std::size_t XmlTree::OpeningTagEnd(pugi::xml_node element) const {
    char quote = '\0';
    for (std::size_t i = Offset(element); i < text_.size(); ++i) {
        const char character = text_[i];
        if (quote != '\0')
            quote = character == quote ? '\0' : quote;
        else if (character == '"' || character == '\'')
            quote = character;
        else if (character == '>')
            return i + 1;
    }
    return text_.npos;
}

// Behind the last thing inside an element whose last child is no element; npos when that is cut.
std::size_t XmlTree::ContentEnd(pugi::xml_node element) const {
    const pugi::xml_node last = element.last_child();
    if (!last)
        return *element.value() == '\0' ? OpeningTagEnd(element) : Content(element).end;
    if (last.type() == pugi::node_pcdata)
        return Offset(last) + std::strlen(last.value());
    const std::string_view terminator = TerminatorOf(last.type());
    const std::size_t end = text_.find(terminator, Offset(last));
    return end == text_.npos ? end : end + terminator.size();
}

// Behind the element's closing tag; npos when it does not stand there.
std::size_t XmlTree::ClosingTagEnd(pugi::xml_node element, std::size_t contentEnd) const {
    const std::size_t tag = text_.find_first_not_of(kXmlWhiteSpace, contentEnd);
    if (tag == text_.npos || !text_.substr(tag).starts_with("</"))
        return text_.npos;
    const std::string_view name = element.name();
    if (!text_.substr(tag + 2).starts_with(name))
        return text_.npos;
    const std::size_t end = text_.find_first_not_of(kXmlWhiteSpace, tag + 2 + name.size());
    return end != text_.npos && text_[end] == '>' ? end + 1 : text_.npos;
}

// Goes down to the last element that was read, then up again as long as elements are closed.
void XmlTree::FindBreak() {
    const pugi::xml_node root = document_.document_element();
    if (!root)
        return;
    pugi::xml_node element = root;
    while (IsElement(element.last_child()))
        element = element.last_child();
    std::size_t end = OpeningTagEnd(element);
    if (end == text_.npos) {
        broken_ = element.parent();
        broken_.remove_child(element);
        breakOffset_ = text_.size();
        return;
    }
    if (!IsSelfClosing(element))
        end = ClosingTagEnd(element, breakOffset_ = ContentEnd(element));
    while (end != text_.npos && element != root) {
        element = element.parent();
        end = ClosingTagEnd(element, breakOffset_ = end);
    }
    if (end == text_.npos)
        broken_ = element;
}

void XmlTree::RefuseBreak() const {
    switch (result_.status) {
    case pugi::status_bad_comment:
        RefuseAt(LastBeforeBreak("<!--"), "Unterminated comment started on line ");
    case pugi::status_bad_cdata:
        RefuseAt(LastBeforeBreak("<![CDATA["), "Could not find end of CDATA started on line ");
    case pugi::status_bad_doctype:
        RefuseDoctype(LastBeforeBreak("<!DOCTYPE"));
    case pugi::status_unrecognized_tag:
        RefuseBrokenTag();
    default:
        if (IsElement(broken_))
            RefuseBrokenElement();
        RefuseBrokenTag();
    }
}

void XmlTree::RefuseBrokenTag() const {
    const XmlSlice tag = LastBeforeBreak("<");
    const std::size_t end = tag.View().find('>');
    if (end == std::string_view::npos)
        throw MalformedList("Encountered unexpected EOF");
    if (tag.View().starts_with("<!"))
        RefuseAt(tag, "Malformed DTD on line ");
    const std::string name(tag.View().substr(1, end - 1));
    RefuseAt(tag, "Encountered unknown tag " + name + " on line ");
}

void XmlTree::RefuseBrokenElement() const {
    const std::string_view name = broken_.name();
    const std::size_t closing = text_.find_first_not_of(kXmlWhiteSpace, breakOffset_);
    if (closing != text_.npos && name != "plist" && text_.substr(closing).starts_with("</") &&
        text_.find('>', closing) != text_.npos)
        RefuseAt({text_, closing, text_.size()}, "Close tag on line ",
                 " does not match open tag " + std::string(name));
    if (name == "integer")
        RefuseAt(At(broken_), "Premature end of file after <integer> on line ");
    if (name == "plist" && !broken_.first_child())
        throw MalformedList("Encountered empty plist tag");
    throw MalformedList("Encountered unexpected EOF");
}

XmlSlice XmlTree::LastBeforeBreak(std::string_view marker) const {
    const std::size_t end = static_cast<std::size_t>(result_.offset);
    const std::size_t begin = text_.rfind(marker, end);
    return {text_, begin == text_.npos ? end : begin, text_.size()};
}

void RefuseDoctype(const XmlSlice& doctype) {
    const std::size_t subset = doctype.View().find('[');
    if (subset == std::string_view::npos)
        throw MalformedList("Encountered unexpected EOF while parsing DTD");
    RefuseAt(doctype.From(subset), "Encountered unexpected character [ on line ",
             " while parsing DTD");
}

} // namespace cf
