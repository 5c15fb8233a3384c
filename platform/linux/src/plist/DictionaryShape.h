#ifndef PLATFORM_DICTIONARYSHAPE_H
#define PLATFORM_DICTIONARYSHAPE_H

/*
 * The shape of a dictionary: its keys in the order in which they were written. The members of an
 * array mostly have the same shape. The next dictionary of that shape needs no search for its keys
 * and no sorting. Dictionaries of one shape can also be looked up several at a time, which reduces
 * the waits for memory. Not safe on several threads at once.
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
    // The maximum number of keys. Up to it, comparing each key with all others is cheaper than
    // sorting.
    static constexpr std::size_t kMaximumKeys = 32;

    // The maximum number of dictionaries that are looked up together.
    static constexpr std::size_t kMaximumPending = 16;

    DictionaryShape() = default;
    ~DictionaryShape();
    DictionaryShape(const DictionaryShape&) = delete;
    DictionaryShape& operator=(const DictionaryShape&) = delete;

    // True if the pairs have this shape.
    bool Fits(std::span<const Pair> pairs) const noexcept;

    // The last dictionary, with a reference for the caller, if it has the same values; else
    // nullptr. Precondition: Fits(pairs).
    const Object* FindLast(std::span<const Pair> pairs) const noexcept;

    // The shared dictionary of the pairs (SharedValues.h). Precondition: Fits(pairs).
    const Object* Share(std::span<const Pair> pairs) noexcept;

    // The same for any pairs, whose shape replaces this one. Sorts the pairs. Precondition: no
    // dictionary is pending.
    const Object* ShareAndRemember(std::span<Pair> pairs) noexcept;

    // Adds a pending dictionary, which SharePending() will store at the index `member`. Takes over
    // the values, unless it throws std::bad_alloc. Precondition: Fits(pairs), and fewer than
    // kMaximumPending are pending.
    void Enqueue(std::span<const Pair> pairs, std::size_t member);
    // The number of pending dictionaries.
    std::size_t PendingCount() const noexcept {
        return pendingCount_;
    }
    // Stores all pending dictionaries in `members`, which owns them. Throws std::bad_alloc; the
    // dictionaries not yet stored are then still pending.
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
    std::array<const Object*, kMaximumKeys> keys_; // as written; borrowed from the reader
    std::array<std::uint8_t, kMaximumKeys>
        places_;                         // places_[i]: the index of keys_[i] in the sorted order
    Owned<const Dictionary> last_;       // of this shape; null if there is no shape yet
    std::unique_ptr<Pending[]> pending_; // kMaximumPending of them
    std::size_t pendingCount_ = 0;
};

} // namespace cf

#endif
