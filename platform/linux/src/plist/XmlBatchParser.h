#ifndef PLATFORM_XMLBATCHPARSER_H
#define PLATFORM_XMLBATCHPARSER_H

#include "plist/XmlNormalizer.h"

#include <pugixml.hpp>

#include <new>

namespace cf {

/*
 * Parses a batch of the normal form in place: the values of the nodes are pointers into batch.text,
 * which must live as long as the document. Throws std::bad_alloc; a batch is always well-formed, so
 * the parser has no other error.
 *
 * XmlReader relies on what pugixml does with these options, of which its manual promises only a
 * part: a value stays at the offset at which it was written, its bytes unchanged, and a NUL
 * replaces the '<' behind it. XmlBatchParserTest checks that.
 */
inline void ParseBatch(pugi::xml_document& document, const XmlBatch& batch) {
    // With parse_embed_pcdata, the text before the first element inside needs no node of its own.
    constexpr unsigned kFlags =
        pugi::parse_minimal | pugi::parse_fragment | pugi::parse_embed_pcdata;
    if (!document.load_buffer_inplace(batch.text, batch.length + 1, kFlags, pugi::encoding_utf8))
        throw std::bad_alloc();
}

} // namespace cf

#endif
