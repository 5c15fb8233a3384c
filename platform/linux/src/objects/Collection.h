#ifndef PLATFORM_COLLECTION_H
#define PLATFORM_COLLECTION_H

/*
 * What arrays and dictionaries have in common: a row of slots that hold references.
 *
 *   kind                 slots                              count     capacity
 *   immutable array      the members, behind the object     members   0
 *   array of pieces      the pieces, which are arrays       members   log2 of a piece's
 *                        (Array.h), behind the object                 members
 *   mutable array        the members, then free ones        members   slots
 *   shared dictionary    an array of the keys, then the     pairs     0
 *                        values; behind the object
 *   mutable dictionary   key and value of each place of     pairs     places
 *                        a hash table, null when free
 */

#include "objects/Object.h"

#include <cstddef>
#include <cstdint>

namespace cf {

enum CollectionKind : unsigned char {
    kImmutableArray,
    kArrayOfPieces,
    kMutableArray,
    kSharedDictionary,
    kMutableDictionary
};

inline bool IsMutable(const Object* collection) noexcept {
    return collection->kind == kMutableArray || collection->kind == kMutableDictionary;
}

struct Collection : Object {
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
    const Object** slots;

    Collection(const Class* collectionClass, CollectionKind collectionKind,
               std::size_t memberCount) noexcept
        : Object(collectionClass, 1, collectionKind),
          count(static_cast<std::uint32_t>(memberCount)), slots(nullptr) {
        if (!IsMutable(this))
            slots = reinterpret_cast<const Object**>(this + 1);
    }
};

/* The object behind a public reference as T, an Array or a Dictionary; nullptr if the reference is
   NULL, of another type, or an immutable collection. */
template<typename T>
T* AsMutable(CFTypeRef reference) noexcept {
    auto* collection = As<T>(reference);
    return collection != nullptr && IsMutable(collection) ? collection : nullptr;
}

/* The most members or places that a collection has. */
inline constexpr std::size_t kMaximumCapacity = std::size_t{1} << 30;

/* Releases all that the collection holds and frees it: the destroy function of both classes. The
   stack it takes does not depend on how deep collections are nested. */
void DestroyCollection(Object* object) noexcept;

} // namespace cf

#endif
