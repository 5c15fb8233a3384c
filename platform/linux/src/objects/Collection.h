#ifndef PLATFORM_COLLECTION_H
#define PLATFORM_COLLECTION_H

/*
 * The common base of arrays and dictionaries: a row of slots, which hold owned references.
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

/* Precondition: the object is an array or a dictionary. */
inline bool IsMutable(const Object* collection) noexcept {
    return collection->kind == kMutableArray || collection->kind == kMutableDictionary;
}

struct Collection : Object {
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
    const Object** slots;

    // An immutable collection has its slots behind the object; the caller fills them. A mutable one
    // has no slots yet.
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

/* The maximum number of members, or of places in a hash table. */
inline constexpr std::size_t kMaximumCapacity = std::size_t{1} << 30;

/* The destroy function of both classes: releases the references and frees the collection. Needs
   constant stack space, however deep collections are nested. */
void DestroyCollection(Object* object) noexcept;

} // namespace cf

#endif
