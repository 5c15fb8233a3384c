#ifndef PLATFORM_SHAREDTABLE_H
#define PLATFORM_SHAREDTABLE_H

/*
 * The table of all shared values that exist. It does not retain them.
 *
 * The last reference to a value is released without the lock of the table. From then on the value
 * is dead: a search that finds it does not retain it but replaces it by a new value. The thread
 * that released the last reference then takes the lock, removes the value unless it was replaced,
 * and frees it only after that. Therefore no thread reads freed memory or gets a dead value.
 *
 * The table is divided by hash into parts with a lock each, to make waiting rare. All functions are
 * safe on any thread.
 */

#include "objects/Hash.h"
#include "objects/Object.h"
#include "objects/OpenAddressing.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace cf {

class SharedTablePart {
public:
    // The live value with that hash for which matches(value) is true; or else the value that make()
    // returns, which is added. The caller owns the reference. nullptr if memory is short. Both
    // functions run under the lock of the part.
    template<typename Matches, typename Make>
    const Object* FindOrAdd(std::uint32_t hash, Matches matches, Make make) noexcept;

    // Prefetch what FindOrAdd will read: first the place, and in a second step the values there.
    void PrefetchPlace(std::uint32_t hash) noexcept;
    void PrefetchValues(std::uint32_t hash) noexcept;

    // Removes a dead value, unless it was replaced. Does not free the value.
    void Remove(const Object* value) noexcept;
    // For MeasureSharedTable().
    std::size_t Count() noexcept;
    // For MeasureSharedTable().
    std::size_t AllocatedPlaces() noexcept;

private:
    auto IsFree() const noexcept {
        return [values = values_.load()](std::size_t place) { return values[place] == nullptr; };
    }

    static bool RetainLiving(const Object* value) noexcept;
    bool EnsureCapacity() noexcept;
    void Shrink() noexcept;
    bool Resize(std::size_t capacity) noexcept;
    void FreePlaces() noexcept;

    // A part with few values needs no allocation.
    static constexpr std::size_t kInlineCapacity = 16; // a power of two

    std::mutex mutex_;
    const Object* inline_[kInlineCapacity] = {};
    std::size_t count_ = 0;
    // Atomic because PrefetchPlace() reads them without the lock. If another thread resizes the
    // table at that time, the prefetch is useless but harmless.
    std::atomic<const Object**> values_ = inline_;
    std::atomic<std::size_t> capacity_ = kInlineCapacity;
};

template<typename Matches, typename Make>
const Object* SharedTablePart::FindOrAdd(std::uint32_t hash, Matches matches, Make make) noexcept {
    const std::lock_guard lock(mutex_);
    if (!EnsureCapacity())
        return nullptr;
    const Object** const values = values_;
    const std::size_t place = Probe(hash, capacity_, IsFree(), [&](std::size_t at) {
        return values[at]->hashValue == hash && matches(values[at]);
    });
    const Object*& found = values[place];
    if (found != nullptr && RetainLiving(found))
        return found;
    Object* made = make();
    if (made == nullptr) {
        Shrink();
        return nullptr;
    }
    made->SetHashValue(hash);
    made->isShared = 1;
    count_ += found == nullptr ? 1U : 0U;
    found = made;
    return made;
}

/* The part of the values with that hash. */
SharedTablePart& PartOfSharedTable(std::uint32_t hash) noexcept;

/* Removes a dead value from the table. Call it before the value is freed. */
void RemoveSharedValue(const Object* value) noexcept;

/* The size of the table: the values in it, dead ones included, and the places that are allocated.
   For tests only. */
struct SharedTableSize {
    std::size_t values;
    std::size_t places;
};

/* Locks one part after another, so the sum is exact only if no other thread shares values. */
SharedTableSize MeasureSharedTable() noexcept;

} // namespace cf

#endif
