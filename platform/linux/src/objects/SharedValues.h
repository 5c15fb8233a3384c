#ifndef PLATFORM_SHAREDVALUES_H
#define PLATFORM_SHAREDVALUES_H

/*
 * Shared values: immutable values of property lists, of which equal ones are one object. That
 * includes arrays, the pieces of long arrays, and dictionaries. A server sends the same list many
 * times with few changes; each list that is kept then needs memory only for its changes. The last
 * release of a value frees it, on any thread. All functions are safe on any thread.
 *
 * Each function that returns an object passes a reference to the caller, or returns nullptr if
 * memory is short. Its arguments are borrowed. Members, keys and values must be shared values or
 * static objects, because they are compared by identity.
 */

#include "objects/Array.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace cf {

/* Precondition: the text is valid UTF-8. */
const Object* SharedString(std::string_view text) noexcept;

/* Each returns the shared value that equals its argument. */
const Object* SharedInteger(std::int64_t value) noexcept;
/* Precondition: the value is above the signed range. The number equals only its own kind. */
const Object* SharedUnsignedInteger(std::uint64_t value) noexcept;

/* As SharedInteger(). */
const Object* SharedReal(double value) noexcept;
const Object* SharedDate(double absoluteTime) noexcept;
const Object* SharedData(std::span<const std::uint8_t> bytes) noexcept;
const Object* SharedArray(std::span<const Object* const> members) noexcept;

struct Pair {
    const Object* key;
    const Object* value;
};

/* The shared dictionary of these pairs. Sorts them. Precondition: no two keys are equal. */
const Object* SharedDictionary(std::span<Pair> pairs) noexcept;

/*
 * The same in three steps, from the keys of an existing shared dictionary and the values in their
 * order. For several dictionaries, call each step for all of them before the next step: the
 * prefetches then replace two waits for memory for each dictionary in a large table.
 */
std::uint32_t HashDictionary(const Array* keys, std::span<const Object* const> values) noexcept;
void PrefetchSharedPlace(std::uint32_t hash) noexcept;
void PrefetchSharedValues(std::uint32_t hash) noexcept;
const Object* SharedDictionary(const Array* keys, std::span<const Object* const> values,
                               std::uint32_t hash) noexcept;

} // namespace cf

#endif
