#ifndef PLATFORM_DICTIONARYSHAPE_H
#define PLATFORM_DICTIONARYSHAPE_H

/*
 * The keys of a dictionary as they were written. Dictionaries of a list are often alike: the
 * members of an array mostly have the same keys in the same order. What the last one has shown
 * saves the next one looking up and sorting its keys. Dictionaries that are alike may also be
 * looked up several at a time, which saves waiting for memory.
 */

#include "objects/Dictionary.h"
#include "objects/SharedValues.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace cf {

class DictionaryShape {
public:
    // Up to so many keys, comparing each with all others is cheaper than sorting them.
    static constexpr std::size_t kMaximumKeys = 32;

    // The number of dictionaries that are looked up together.
    static constexpr std::size_t kMaximumPending = 16;

    DictionaryShape() = default;
    ~DictionaryShape();
    DictionaryShape(const DictionaryShape&) = delete;
    DictionaryShape& operator=(const DictionaryShape&) = delete;

    bool Fits(std::span<const Pair> pairs) const noexcept;

    // The last dictionary, if these pairs, which fit, are its own; else nullptr.
    const Object* FindLast(std::span<const Pair> pairs) const noexcept;

    // SharedDictionary of pairs that fit.
    const Object* Share(std::span<const Pair> pairs) noexcept;

    // SharedDictionary of pairs that do not; the next ones may be like them. None may be pending.
    const Object* ShareAndRemember(std::span<Pair> pairs) noexcept;

    // The dictionary of pairs that fit is pending until SharePending() makes it the member with
    // that index. At most kMaximumPending may be pending. Takes over the values, unless it throws
    // std::bad_alloc.
    void Enqueue(std::span<const Pair> pairs, std::size_t member);
    std::size_t PendingCount() const noexcept {
        return pendingCount_;
    }
    // The members are owned by the caller. Throws std::bad_alloc.
    void SharePending(std::span<const Object*> members);

private:
    using Values = std::array<const Object*, kMaximumKeys>; // in the order of the sorted keys
    struct Pending {
        std::size_t member;
        std::uint32_t hash;
        Values values; // owned
    };

    std::span<const Object* const> Sort(std::span<const Pair> pairs, Values& values) const noexcept;
    void DropPending() noexcept;

    std::size_t count_ = 0;
    std::array<const Object*, kMaximumKeys> keys_;  // as written; borrowed from who reads the list
    std::array<std::uint8_t, kMaximumKeys> places_; // of the keys among the sorted ones
    Owned<const Dictionary> last_;                  // null when there is none to be like
    std::unique_ptr<Pending[]> pending_;            // kMaximumPending of them
    std::size_t pendingCount_ = 0;
};

} // namespace cf

#endif
