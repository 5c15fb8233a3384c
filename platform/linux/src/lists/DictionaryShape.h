#ifndef PLATFORM_DICTIONARYSHAPE_H
#define PLATFORM_DICTIONARYSHAPE_H

/*
 * The keys of a dictionary as they were written. Dictionaries of a list are often alike: the
 * members of an array mostly have the same keys in the same order. What the last one has shown
 * saves the next one looking up and sorting its keys.
 */

#include "objects/Dictionary.h"
#include "objects/SharedValues.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace cf {

class DictionaryShape {
public:
    // Up to so many keys, comparing each with all others is cheaper than sorting them.
    static constexpr std::size_t kMostKeys = 32;

    bool Fits(std::span<const Pair> pairs) const noexcept;
    // SharedDictionary of pairs that fit.
    const Object* Share(std::span<const Pair> pairs) noexcept;

    // SharedDictionary of pairs that do not; the next ones may be like them.
    const Object* ShareAndLearn(std::span<Pair> pairs) noexcept;

private:
    std::size_t count_ = 0;
    std::array<const Object*, kMostKeys> keys_;  // as written; borrowed from who reads the list
    std::array<std::uint8_t, kMostKeys> places_; // of the keys among the sorted ones
    Owned<const Dictionary> last_;               // null when there is none to be like
};

} // namespace cf

#endif
