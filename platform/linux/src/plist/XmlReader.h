#ifndef PLATFORM_XMLREADER_H
#define PLATFORM_XMLREADER_H

/* Property lists in XML. */

#include "plist/ListBuilder.h"
#include "plist/XmlNormalizer.h"

#include <cstdint>
#include <span>

namespace cf {

/* The list, made with `builder`, which must be new. Throws MalformedList or std::bad_alloc. The
   result does not depend on the length of a batch, which only tests pass. */
Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder,
                  std::size_t batchLength = XmlNormalizer::kBatchLength);

} // namespace cf

#endif
