#include "objects/SharedTable.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>

namespace cf {
namespace {

// The bits of a hash that select the part; the other ones determine the home.
constexpr unsigned kPartBits = kHashBits - kHomeBits;
constinit SharedTablePart g_parts[1U << kPartBits] =
    {}; // GCC 12 sets all bytes to 0 without the braces

} // namespace

// Retains the value unless its count is 0, which means that it is dead.
bool SharedTablePart::RetainLiving(const Object* value) noexcept {
    std::int32_t count = value->references.load(std::memory_order_relaxed);
    while (count > 0)
        if (value->references.compare_exchange_weak(count, count + 1, std::memory_order_relaxed))
            return true;
    return count != 0; // a count that has overflowed: the value is never freed
}

// Computes with integers: the capacity may belong to another table than the pointer.
void SharedTablePart::PrefetchPlace(std::uint32_t hash) noexcept {
    const auto places = reinterpret_cast<std::uintptr_t>(values_.load(std::memory_order_relaxed));
    const std::size_t home = HomeOf(hash, capacity_.load(std::memory_order_relaxed));
    __builtin_prefetch(reinterpret_cast<const void*>(places + home * sizeof(const Object*)));
}

// The value is mostly at its home or at the next place.
void SharedTablePart::PrefetchValues(std::uint32_t hash) noexcept {
    const std::lock_guard lock(mutex_);
    const std::size_t home = HomeOf(hash, capacity_);
    __builtin_prefetch(values_[home], 1);
    __builtin_prefetch(values_[(home + 1) & (capacity_ - 1)], 1);
}

// If growing fails, the table is used as long as a free place is left to end the probes.
bool SharedTablePart::EnsureCapacity() noexcept {
    return HasCapacityForOneMore(count_, capacity_) || Resize(CapacityFor(count_ + 1)) ||
           count_ + 1 < capacity_;
}

void SharedTablePart::Shrink() noexcept {
    if (capacity_ > kInlineCapacity && count_ * 8 < capacity_)
        Resize(std::max(CapacityFor(count_ * 2),
                        kInlineCapacity)); // on failure the larger table stays in use
}

// Precondition: the capacity differs from the present one.
bool SharedTablePart::Resize(std::size_t capacity) noexcept {
    const Object** values = inline_;
    if (capacity != kInlineCapacity)
        values = static_cast<const Object**>(std::calloc(capacity, sizeof(const Object*)));
    if (values == nullptr)
        return false;
    const auto isFree = [values](std::size_t place) { return values[place] == nullptr; };
    const auto never = [](std::size_t) { return false; };
    for (std::size_t i = 0; i < capacity_; ++i)
        if (values_[i] != nullptr)
            values[Probe(values_[i]->hashValue, capacity, isFree, never)] = values_[i];
    FreePlaces();
    values_ = values;
    capacity_ = capacity;
    return true;
}

void SharedTablePart::FreePlaces() noexcept {
    if (values_ == inline_)
        std::fill(std::begin(inline_), std::end(inline_), nullptr);
    else
        std::free(values_);
}

void SharedTablePart::Remove(const Object* value) noexcept {
    const std::lock_guard lock(mutex_);
    const std::size_t place = Probe(value->hashValue, capacity_, IsFree(),
                                    [&](std::size_t at) { return values_[at] == value; });
    if (values_[place] == nullptr)
        return; // replaced
    const std::size_t gap = CloseGap(
        place, capacity_, IsFree(), [this](std::size_t at) { return values_[at]->hashValue; },
        [this](std::size_t from, std::size_t to) { values_[to] = values_[from]; });
    values_[gap] = nullptr;
    --count_;
    Shrink();
}

std::size_t SharedTablePart::Count() noexcept {
    const std::lock_guard lock(mutex_);
    return count_;
}

std::size_t SharedTablePart::AllocatedPlaces() noexcept {
    const std::lock_guard lock(mutex_);
    return values_ == inline_ ? 0 : capacity_.load();
}

SharedTablePart& PartOfSharedTable(std::uint32_t hash) noexcept {
    return g_parts[hash >> kHomeBits];
}

void RemoveSharedValue(const Object* value) noexcept {
    PartOfSharedTable(value->hashValue).Remove(value);
}

SharedTableSize MeasureSharedTable() noexcept {
    SharedTableSize size = {};
    for (SharedTablePart& part : g_parts) {
        size.values += part.Count();
        size.places += part.AllocatedPlaces();
    }
    return size;
}

} // namespace cf
