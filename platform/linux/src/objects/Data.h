#ifndef PLATFORM_DATA_H
#define PLATFORM_DATA_H

/* Byte buffers, for the platform's own use. */

#include "objects/Object.h"

#include <CoreFoundation/CFData.h>

#include <cstddef>
#include <cstdint>
#include <span>

/* An immutable buffer's bytes follow the object, and its greatest length is the one it has. A
   mutable one's are an allocation of their own as soon as there are any. */
struct __CFData : cf::Object {
    static const cf::Class kClass;

    std::uint8_t* bytes;
    std::size_t length = 0;
    std::size_t capacity = 0; // of the allocation
    std::size_t maximum;      // the greatest length

    explicit __CFData(std::size_t greatestLength) noexcept
        : Object(&kClass), bytes(reinterpret_cast<std::uint8_t*>(this + 1)),
          maximum(greatestLength) {}
};

namespace cf {

using Data = ::__CFData;

inline std::span<const std::uint8_t> BytesOf(const Data* data) noexcept {
    return {data->bytes, data->length};
}

/* A copy of the bytes, owned by the caller; nullptr when memory is short. */
Data* CreateData(std::span<const std::uint8_t> bytes) noexcept;

} // namespace cf

#endif
