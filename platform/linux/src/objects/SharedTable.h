#ifndef PLATFORM_SHAREDTABLE_H
#define PLATFORM_SHAREDTABLE_H

/*
 * The table of all shared values that are alive. It holds no references.
 *
 * The last reference to a value goes without the table's lock. From then on the value is dead: a
 * search that still meets it takes no reference to it but puts a successor in its place. Who
 * dropped the last reference then takes the lock, removes the value unless it has been replaced,
 * and only after that frees it. So nobody reads freed memory, and no dead value is handed out.
 *
 * The table is divided by hash value into parts with a lock each, so that threads seldom wait.
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
    // The living value with that hash that matches, with a reference added; else what make()
    // gives, entered. nullptr when memory is short.
    template<typename Matches, typename Make>
    const Object* FindOrAdd(std::uint32_t hash, Matches matches, Make make) noexcept;

    // Have the processor load what FindOrAdd will read: the place, and in a second step the values
    // there.
    void PrefetchPlace(std::uint32_t hash) noexcept;
    void PrefetchValues(std::uint32_t hash) noexcept;

    void Remove(const Object* value) noexcept;
    std::size_t Count() noexcept;
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

    // A table with few values has its places here, so that a short list costs no growing.
    static constexpr std::size_t kInlineCapacity = 16; // a power of two

    std::mutex mutex_;
    const Object* inline_[kInlineCapacity] = {};
    std::size_t count_ = 0;
    // PrefetchPlace() reads these without the lock. When another thread resizes the table
    // meanwhile, what it loads is of no use.
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

/* The part that values with that hash belong to. */
SharedTablePart& PartOfSharedTable(std::uint32_t hash) noexcept;

/* Takes a value whose last reference went out of the table, before it is torn down. */
void RemoveSharedValue(const Object* value) noexcept;

/* The number of values in the table, dead ones included, and of the places that are allocated. */
struct SharedTableSize {
    std::size_t values;
    std::size_t places;
};
SharedTableSize MeasureSharedTable() noexcept;

} // namespace cf

#endif
