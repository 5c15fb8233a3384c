#ifndef PLATFORM_ARRAY_H
#define PLATFORM_ARRAY_H

/*
 * Arrays, for the platform's own use.
 *
 * A long array that is shared (SharedValues.h) is kept in pieces, each of which is a shared array,
 * too: a long array that differs in one member from another then costs one piece and the row of
 * pieces. There are at most 32 pieces, of 32 members each, or of 32 * 32, and so on, as many as the
 * array needs; the last piece may have fewer. Pieces that are longer than 32 members are themselves
 * kept in pieces. All other arrays have their members in one row, however many these are.
 */

#include "objects/Collection.h"

#include <CoreFoundation/CFArray.h>

#include <cstddef>
#include <cstdint>
#include <span>

struct __CFArray : cf::Collection {
    static const cf::Class kClass;

    explicit __CFArray(cf::CollectionKind arrayKind, std::size_t memberCount = 0) noexcept
        : Collection(&kClass, arrayKind, memberCount) {}
};

namespace cf {

using Array = ::__CFArray;

/* An array of pieces has more members than this, and at most as many pieces. */
inline constexpr unsigned kPieceBits = 5;
inline constexpr std::size_t kMaximumRowLength = std::size_t{1} << kPieceBits;

inline std::uint32_t PieceCount(const Array* array) noexcept {
    return ((array->count - 1) >> array->capacity) + 1;
}

/* The members of an array that has them in one row. */
inline std::span<const Object* const> RowOf(const Array* array) noexcept {
    return {array->slots, array->count};
}

/* The index is below the count. */
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
