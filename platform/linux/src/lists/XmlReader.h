#ifndef PLATFORM_XMLREADER_H
#define PLATFORM_XMLREADER_H

/* Property lists in XML. */

#include "lists/ListBuilder.h"

#include <cstdint>
#include <span>

namespace cf {

// Throws MalformedList or std::bad_alloc.
Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder);

} // namespace cf

#endif
