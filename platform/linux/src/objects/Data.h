#ifndef PLATFORM_DATA_H
#define PLATFORM_DATA_H

/* Byte buffers inside the platform. */

#include "objects/Object.h"

#include <CoreFoundation/CFData.h>

#include <cstddef>
#include <cstdint>
#include <span>

/* The bytes of an immutable buffer follow the object. Those of a mutable buffer are an allocation
   of their own, which the first append makes. */
struct __CFData : cf::Object {
    static const cf::Class kClass;

    std::uint8_t* bytes;
    std::size_t length = 0;
    std::size_t capacity = 0; // of the allocation
    std::size_t maximum;      // of the length; an immutable buffer is full

    // An empty buffer; the caller of Allocate adds the bytes of an immutable one.
    explicit __CFData(std::size_t greatestLength) noexcept
        : Object(&kClass), bytes(reinterpret_cast<std::uint8_t*>(this + 1)),
          maximum(greatestLength) {}
};

namespace cf {

using Data = ::__CFData;

/* The bytes, borrowed until the data is changed or freed. */
inline std::span<const std::uint8_t> BytesOf(const Data* data) noexcept {
    return {data->bytes, data->length};
}

/* An immutable copy of the bytes, which the caller owns; nullptr if memory is short. */
Data* CreateData(std::span<const std::uint8_t> bytes) noexcept;

} // namespace cf

#endif
