#ifndef PLATFORM_BINARYREADER_H
#define PLATFORM_BINARYREADER_H

/*
 * Property lists in the binary format: "bplist00", objects, a table of their offsets and a trailer
 * of 32 bytes. Containers refer to their members by number, so a small file can describe a huge
 * list. Therefore each object is converted once and shared by all references to it, and two kinds
 * of lists are refused: those in which an object contains itself, and those whose objects have more
 * bytes in total than the file, because they overlap. Time and memory are linear in the length.
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
