#ifndef PLATFORM_BINARYREADER_H
#define PLATFORM_BINARYREADER_H

/*
 * Property lists in the binary format: "bplist00", objects, a table of their offsets and a trailer
 * of 32 bytes. Containers name their members by number, so that a small file can tell of endless
 * lists. Here each object is converted once and shared by all that refer to it; an object that
 * contains itself is refused, and so are objects that together claim more bytes than there are
 * (they would overlap). Time and memory are therefore linear in the length.
 */

#include "plist/ListBuilder.h"

#include <cstdint>
#include <span>

namespace cf {

/* True if the bytes begin like a binary list: "bplist00". */
bool IsBinaryList(std::span<const std::uint8_t> bytes) noexcept;

/* The list, made with `builder`, which must be new. Throws MalformedList or std::bad_alloc. */
Value ReadBinaryList(std::span<const std::uint8_t> bytes, ListBuilder& builder);

} // namespace cf

#endif
