#ifndef PLATFORM_XMLENCODING_H
#define PLATFORM_XMLENCODING_H

/* Bytes of an XML document as UTF-8 text. */

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace cf {

/* The document's own bytes, or their conversion, without a byte order mark. What claims to be UTF-8
   is not checked here. */
class XmlDocumentText {
public:
    // UTF-8 or UTF-16 with a byte order mark, or else what the declaration names, UTF-8 when it
    // names nothing. Throws MalformedList.
    explicit XmlDocumentText(std::span<const std::uint8_t> bytes);
    XmlDocumentText(const XmlDocumentText&) = delete;
    XmlDocumentText& operator=(const XmlDocumentText&) = delete;

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
