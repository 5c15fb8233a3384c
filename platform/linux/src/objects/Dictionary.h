#ifndef PLATFORM_DICTIONARY_H
#define PLATFORM_DICTIONARY_H

/* Dictionaries, for the platform's own use. */

#include "objects/Array.h"
#include "objects/Collection.h"

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <span>

struct __CFDictionary : cf::Collection {
    static const cf::Class kClass;

    explicit __CFDictionary(cf::CollectionKind dictionaryKind, std::size_t pairCount = 0) noexcept
        : Collection(&kClass, dictionaryKind, pairCount) {}
};

namespace cf {

using Dictionary = ::__CFDictionary;

/* Of a shared dictionary: its keys by ascending hash, and the values in the same order. All
   dictionaries with these keys have the one array, in one row. */
inline const Array* KeysOfShared(const Dictionary* dictionary) noexcept {
    return static_cast<const Array*>(dictionary->slots[0]);
}

inline std::span<const Object*> ValuesOfShared(const Dictionary* dictionary) noexcept {
    return {dictionary->slots + 1, dictionary->count};
}

/* Calls visit(key, value) for each pair, in the dictionary's own order. */
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

/* Borrowed; nullptr when the key is absent. */
const Object* FindValue(const Dictionary* dictionary, const Object* key) noexcept;

} // namespace cf

#endif
