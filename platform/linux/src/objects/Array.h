#ifndef PLATFORM_ARRAY_H
#define PLATFORM_ARRAY_H

/* Arrays, for the platform's own use. */

#include "objects/Collection.h"

#include <CoreFoundation/CFArray.h>

#include <cstddef>
#include <span>

struct __CFArray : cf::Collection {
    static const cf::Class kClass;

    explicit __CFArray(cf::CollectionKind arrayKind, std::size_t memberCount = 0) noexcept
        : Collection(&kClass, arrayKind, memberCount) {}
};

namespace cf {

using Array = ::__CFArray;

inline std::span<const Object* const> MembersOf(const Array* array) noexcept {
    return {array->slots, array->count};
}

} // namespace cf

#endif
