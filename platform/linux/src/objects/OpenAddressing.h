#ifndef PLATFORM_OPENADDRESSING_H
#define PLATFORM_OPENADDRESSING_H

/*
 * Hash tables with open addressing and linear probing. The number of places is a power of two. An
 * entry is at its home, which follows from its hash, or at the first free place behind that. The
 * functions only compute places; the caller stores the entries and locks them.
 */

#include <algorithm>
#include <bit>
#include <cstddef>

namespace cf {

inline constexpr std::size_t kSmallestTable = 8;

/* True if a table of `capacity` places that has `count` entries may get one more. The limit of
   three quarters keeps probes short. */
inline bool HasCapacityForOneMore(std::size_t count, std::size_t capacity) noexcept {
    return (count + 1) * 4 <= capacity * 3;
}

/* The number of places for `count` entries: a power of two, at least kSmallestTable. */
inline std::size_t CapacityFor(std::size_t count) noexcept {
    return std::bit_ceil(std::max(count + count / 3 + 1, kSmallestTable));
}

/* The number of bits of a hash that determine the home. */
inline constexpr unsigned kHomeBits = 20;

/* The home of a hash. A table with more than 2^20 places has its homes at equal distances, with
   free places between. Otherwise all entries would be in the first 2^20 places, and a probe would
   need as many steps as there are entries. */
inline std::size_t HomeOf(std::size_t hash, std::size_t capacity) noexcept {
    constexpr std::size_t kHomes = std::size_t{1} << kHomeBits;
    return capacity <= kHomes ? hash & (capacity - 1) : (hash & (kHomes - 1)) * (capacity / kHomes);
}

/* The place of the entry for which isSought(place) is true, or the free place where to insert it.
   Precondition: the table has a free place. */
template<typename IsFree, typename IsSought>
std::size_t Probe(std::size_t hash, std::size_t capacity, IsFree isFree,
                  IsSought isSought) noexcept {
    std::size_t place = HomeOf(hash, capacity);
    while (!isFree(place) && !isSought(place))
        place = (place + 1) & (capacity - 1);
    return place;
}

/* Moves entries, by move(from, to), to close the gap that a removed entry leaves: probes end at a
   free place, so none may be between an entry and its home. Returns the place that the caller must
   mark as free. */
template<typename IsFree, typename HashAt, typename Move>
std::size_t CloseGap(std::size_t gap, std::size_t capacity, IsFree isFree, HashAt hashAt,
                     Move move) noexcept {
    const std::size_t mask = capacity - 1;
    for (std::size_t place = (gap + 1) & mask; !isFree(place); place = (place + 1) & mask) {
        const std::size_t distanceFromHome = (place - HomeOf(hashAt(place), capacity)) & mask;
        if (distanceFromHome < ((place - gap) & mask))
            continue; // the gap is before its home
        move(place, gap);
        gap = place;
    }
    return gap;
}

} // namespace cf

#endif
