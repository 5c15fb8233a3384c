#ifndef PLATFORM_ARRAY_H
#define PLATFORM_ARRAY_H

/*
 * Arrays inside the platform.
 *
 * A shared array (SharedValues.h) of more than 32 members is a tree of pieces, each of which is a
 * shared array, too: two long arrays that differ in one member then have all other pieces in
 * common. A node has at most 32 pieces, all of the same length, a power of 32, except that the last
 * one may be shorter. All other arrays have their members in one row of slots, whatever their
 * number.
 */

#include "objects/Collection.h"

#include <CoreFoundation/CFArray.h>

#include <cstddef>
#include <cstdint>
#include <span>

struct __CFArray : cf::Collection {
    static const cf::Class kClass;

    // An array whose slots the caller fills.
    explicit __CFArray(cf::CollectionKind arrayKind, std::size_t memberCount = 0) noexcept
        : Collection(&kClass, arrayKind, memberCount) {}
};

namespace cf {

using Array = ::__CFArray;

/* An array of pieces has more members than this, and at most as many pieces. */
inline constexpr unsigned kPieceBits = 5;
inline constexpr std::size_t kMaximumRowLength = std::size_t{1} << kPieceBits;

/* The number of pieces of an array of pieces. */
inline std::uint32_t PieceCount(const Array* array) noexcept {
    return ((array->count - 1) >> array->capacity) + 1;
}

/* The members, borrowed. Precondition: the array is not an array of pieces. */
inline std::span<const Object* const> RowOf(const Array* array) noexcept {
    return {array->slots, array->count};
}

/* The member, borrowed. Precondition: the index is below the count. */
inline const Object* MemberAt(const Array* array, std::size_t index) noexcept {
    while (array->kind == kArrayOfPieces) {
        const std::size_t mask = (std::size_t{1} << array->capacity) - 1;
        array = static_cast<const Array*>(array->slots[index >> array->capacity]);
        index &= mask;
    }
    return array->slots[index];
}

} // namespace cf

#endif
