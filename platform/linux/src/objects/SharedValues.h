#ifndef PLATFORM_SHAREDVALUES_H
#define PLATFORM_SHAREDVALUES_H

/*
 * Immutable property-list values of which equal ones are one object, whole arrays and
 * dictionaries included, and the pieces of long arrays. A server sends the same list again and
 * again with little changed; kept lists then cost only what changed. The table holds no references:
 * the last user of a value frees it, on whatever thread. All calls are safe on all threads.
 *
 * Each function returns an owned reference, or nullptr when memory is short. Members handed in
 * are borrowed, must themselves come from here (or be static), and are compared by identity.
 */

#include "objects/Array.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace cf {

/* The text is valid UTF-8. */
const Object* SharedString(std::string_view text) noexcept;
const Object* SharedInteger(std::int64_t value) noexcept;
/* A number above the signed range, which equals only its own kind. */
const Object* SharedUnsignedInteger(std::uint64_t value) noexcept;
const Object* SharedReal(double value) noexcept;
const Object* SharedDate(double absoluteTime) noexcept;
const Object* SharedData(std::span<const std::uint8_t> bytes) noexcept;
const Object* SharedArray(std::span<const Object* const> members) noexcept;

struct Pair {
    const Object* key;
    const Object* value;
};
/* No key twice. The order of the pairs is of no account; the call puts them into its own. */
const Object* SharedDictionary(std::span<Pair> pairs) noexcept;
/*
 * The same in steps, from the keys that another such dictionary has, and the values in their order.
 * Who has several takes each step for all of them, so that the processor loads what the next step
 * needs for one while it works on the others. In a large table it would wait for memory twice for
 * each dictionary.
 */
std::uint32_t HashDictionary(const Array* keys, std::span<const Object* const> values) noexcept;
void PrefetchSharedPlace(std::uint32_t hash) noexcept;
void PrefetchSharedValues(std::uint32_t hash) noexcept;
const Object* SharedDictionary(const Array* keys, std::span<const Object* const> values,
                               std::uint32_t hash) noexcept;

} // namespace cf

#endif
