#ifndef PLATFORM_XMLENCODING_H
#define PLATFORM_XMLENCODING_H

/* Bytes of an XML document as UTF-8 text. */

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace cf {

/* The bytes of the document, or their conversion, without a byte order mark. UTF-8 is not checked
   here. */
class XmlDocumentText {
public:
    // The encoding is UTF-8 or UTF-16 if there is a byte order mark, or else the declared one,
    // UTF-8 if none is declared. The bytes must live as long as this object. Throws MalformedList,
    // and std::bad_alloc.
    explicit XmlDocumentText(std::span<const std::uint8_t> bytes);
    XmlDocumentText(const XmlDocumentText&) = delete;
    XmlDocumentText& operator=(const XmlDocumentText&) = delete;

    // The text, borrowed from this object or from the bytes.
    std::string_view View() const noexcept {
        return view_;
    }

private:
    void ConvertFrom(std::string_view encoding);

    std::string converted_;
    std::string_view view_;
};

} // namespace cf

#endif
