#ifndef PLATFORM_DICTIONARY_H
#define PLATFORM_DICTIONARY_H

/* Dictionaries inside the platform. */

#include "objects/Array.h"
#include "objects/Collection.h"

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <span>

struct __CFDictionary : cf::Collection {
    static const cf::Class kClass;

    // A dictionary whose slots the caller fills.
    explicit __CFDictionary(cf::CollectionKind dictionaryKind, std::size_t pairCount = 0) noexcept
        : Collection(&kClass, dictionaryKind, pairCount) {}
};

namespace cf {

using Dictionary = ::__CFDictionary;

/* The keys of a shared dictionary in the order of their hashes, borrowed. All dictionaries with the
   same keys share this array, which is not an array of pieces. */
inline const Array* KeysOfShared(const Dictionary* dictionary) noexcept {
    return static_cast<const Array*>(dictionary->slots[0]);
}

/* The values of a shared dictionary in the order of its keys, borrowed. */
inline std::span<const Object*> ValuesOfShared(const Dictionary* dictionary) noexcept {
    return {dictionary->slots + 1, dictionary->count};
}

/* Calls visit(key, value) with each pair, borrowed, in an unspecified order. visit must not change
   the dictionary. */
template<typename Visit>
void VisitPairs(const Dictionary* dictionary, Visit visit) noexcept {
    if (dictionary->kind == kSharedDictionary) {
        const auto keys = RowOf(KeysOfShared(dictionary));
        const auto values = ValuesOfShared(dictionary);
        for (std::size_t i = 0; i < dictionary->count; ++i)
            visit(keys[i], values[i]);
        return;
    }
    for (std::size_t i = 0; i < dictionary->capacity; ++i)
        if (const Object* const* pair = dictionary->slots + 2 * i; pair[0] != nullptr)
            visit(pair[0], pair[1]);
}

/* The value, borrowed; nullptr if the key is absent. */
const Object* FindValue(const Dictionary* dictionary, const Object* key) noexcept;

} // namespace cf

#endif
