#ifndef PLATFORM_XMLTREE_H
#define PLATFORM_XMLTREE_H

/*
 * An XML text and pugixml's tree of it. The tree keeps the text raw: entities are not expanded,
 * line ends not changed, so that a place in the tree is a place in the text. Of a text that is not
 * well-formed the tree holds what came before the fault; the innermost element that is still open
 * there is where the text breaks off.
 */

#include "lists/XmlSlice.h"

#include <pugixml.hpp>

#include <cstddef>
#include <memory>
#include <string_view>

namespace cf {

class XmlTree {
public:
    // XML has no NUL: what follows one is only checked to be UTF-8. The text must outlive the tree.
    // Throws MalformedList and std::bad_alloc.
    explicit XmlTree(std::string_view text);

    pugi::xml_node Document() const {
        return document_;
    }
    bool IsWellFormed() const {
        return result_.status == pugi::status_ok;
    }
    // The element in which the text breaks off; a null node when the root element is complete.
    pugi::xml_node BrokenElement() const {
        return broken_;
    }
    // Whether a value that is not empty ends there and its element with it. Values lie where they
    // were written, with a NUL where '<' was.
    static bool Closes(const char* end) {
        return end[0] == '\0' && end[1] == '/';
    }
    // Throws what is wrong with a text that is not well-formed.
    [[noreturn]] void RefuseBreak() const;

    // From the name of an element, or the beginning of another node, to the end of the text.
    XmlSlice At(pugi::xml_node node) const;
    // The text between an element's opening tag and what follows it.
    XmlSlice Content(pugi::xml_node element) const;
    // From the end of an element's opening tag on.
    XmlSlice AfterOpeningTag(pugi::xml_node element) const;
    // Written <name/>, not <name></name>.
    bool IsSelfClosing(pugi::xml_node element) const;

private:
    std::size_t OpeningTagEnd(pugi::xml_node element) const;
    std::size_t ContentEnd(pugi::xml_node element) const;
    std::size_t ClosingTagEnd(pugi::xml_node element, std::size_t contentEnd) const;
    void FindBreak();
    [[noreturn]] void RefuseBrokenTag() const;
    [[noreturn]] void RefuseBrokenElement() const;
    XmlSlice LastBeforeBreak(std::string_view marker) const;

    // Each is made from those before it; names and values lie in the copy.
    std::unique_ptr<char[]> copy_;
    std::string_view text_;
    pugi::xml_document document_;
    pugi::xml_parse_result result_;
    pugi::xml_node broken_;
    std::size_t breakOffset_ = 0; // where the broken element's closing tag should stand
};

// Throws what is wrong with a document type that is cut or declares something of its own.
[[noreturn]] void RefuseDoctype(const XmlSlice& doctype);

} // namespace cf

#endif
