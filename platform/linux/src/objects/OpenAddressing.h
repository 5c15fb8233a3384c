#ifndef PLATFORM_OPENADDRESSING_H
#define PLATFORM_OPENADDRESSING_H

/*
 * Hash tables whose entries lie in one row of places, a power of two of them: an entry stands at
 * its home, which its hash names, or at the next place after it that was free.
 */

#include <algorithm>
#include <bit>
#include <cstddef>

namespace cf {

inline constexpr std::size_t kSmallestTable = 8;

/* A table is at most three quarters full; a probe then ends soon, at a free place. */
inline bool HasCapacityForOneMore(std::size_t count, std::size_t capacity) noexcept {
    return (count + 1) * 4 <= capacity * 3;
}

inline std::size_t CapacityFor(std::size_t count) noexcept {
    return std::bit_ceil(std::max(count + count / 3 + 1, kSmallestTable));
}

/* So many bits of a hash tell the home. */
inline constexpr unsigned kHomeBits = 20;

/* A table with more places than hashes have homes spreads the homes evenly, with room behind each
   for those that share it. Otherwise all entries would crowd in the first 2^20 places, and a probe
   would take as many steps as there are entries. */
inline std::size_t HomeOf(std::size_t hash, std::size_t capacity) noexcept {
    constexpr std::size_t kHomes = std::size_t{1} << kHomeBits;
    return capacity <= kHomes ? hash & (capacity - 1) : (hash & (kHomes - 1)) * (capacity / kHomes);
}

/* The place of the entry that is sought, or the free one where it would stand. */
template<typename IsFree, typename IsSought>
std::size_t Probe(std::size_t hash, std::size_t capacity, IsFree isFree,
                  IsSought isSought) noexcept {
    std::size_t place = HomeOf(hash, capacity);
    while (!isFree(place) && !isSought(place))
        place = (place + 1) & (capacity - 1);
    return place;
}

/* Closes the gap that a removed entry leaves, so that every probe still ends where it should.
   Returns the place that is free in the end. */
template<typename IsFree, typename HashAt, typename Move>
std::size_t CloseGap(std::size_t gap, std::size_t capacity, IsFree isFree, HashAt hashAt,
                     Move move) noexcept {
    const std::size_t mask = capacity - 1;
    for (std::size_t place = (gap + 1) & mask; !isFree(place); place = (place + 1) & mask) {
        const std::size_t distanceFromHome = (place - HomeOf(hashAt(place), capacity)) & mask;
        if (distanceFromHome < ((place - gap) & mask))
            continue; // it would stand before its home
        move(place, gap);
        gap = place;
    }
    return gap;
}

} // namespace cf

#endif
