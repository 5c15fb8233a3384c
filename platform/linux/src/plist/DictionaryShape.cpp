#include "plist/DictionaryShape.h"

#include <algorithm>
#include <new>
#include <utility>

namespace cf {

bool DictionaryShape::Fits(std::span<const Pair> pairs) const noexcept {
    return last_ && std::ranges::equal(pairs, std::span(keys_).first(count_), {}, &Pair::key);
}

const Object* DictionaryShape::FindLast(std::span<const Pair> pairs) const noexcept {
    const auto values = ValuesOfShared(last_.Get());
    for (std::size_t i = 0; i < count_; ++i)
        if (values[places_[i]] != pairs[i].value)
            return nullptr;
    Retain(last_.Get());
    return last_.Get();
}

std::span<const Object* const> DictionaryShape::Sort(std::span<const Pair> pairs,
                                                     Values& values) const noexcept {
    for (std::size_t i = 0; i < count_; ++i)
        values[places_[i]] = pairs[i].value;
    return std::span(values).first(count_);
}

const Object* DictionaryShape::Share(std::span<const Pair> pairs) noexcept {
    if (const Object* last = FindLast(pairs); last != nullptr)
        return last;
    Values values;
    const Array* keys = KeysOfShared(last_.Get());
    const auto sorted = Sort(pairs, values);
    const Object* next = SharedDictionary(keys, sorted, HashDictionary(keys, sorted));
    if (next != nullptr)
        last_ = Owned<const Dictionary>::Share(static_cast<const Dictionary*>(next));
    return next;
}

const Object* DictionaryShape::ShareAndRemember(std::span<Pair> pairs) noexcept {
    last_ = {};
    count_ = 0;
    if (pairs.size() > kMaximumKeys)
        return SharedDictionary(pairs);
    for (const Pair& pair : pairs)
        keys_[count_++] = pair.key;
    const auto* dictionary = static_cast<const Dictionary*>(SharedDictionary(pairs));
    for (std::size_t i = 0; i < count_; ++i) {
        const auto place = std::ranges::find(pairs, keys_[i], &Pair::key);
        places_[i] = static_cast<std::uint8_t>(place - pairs.begin());
    }
    last_ = Owned<const Dictionary>::Share(dictionary);
    return dictionary;
}

DictionaryShape::~DictionaryShape() {
    DropPending();
}

void DictionaryShape::Enqueue(std::span<const Pair> pairs, std::size_t member) {
    if (pending_ == nullptr)
        pending_ = std::make_unique_for_overwrite<Pending[]>(kMaximumPending);
    Pending& pending = pending_[pendingCount_++];
    const auto sorted = Sort(pairs, pending.values);
    pending.member = member;
    pending.hash = HashDictionary(KeysOfShared(last_.Get()), sorted);
    PrefetchSharedPlace(pending.hash);
}

void DictionaryShape::SharePending(std::span<const Object*> members) {
    const auto all = std::span(pending_.get(), pendingCount_);
    for (const Pending& pending : all)
        PrefetchSharedValues(pending.hash);
    for (const Pending& pending : all) {
        const auto values = std::span(pending.values).first(count_);
        const Object* next = SharedDictionary(KeysOfShared(last_.Get()), values, pending.hash);
        if (next == nullptr)
            throw std::bad_alloc();
        members[pending.member] = next;
    }
    DropPending();
}

void DictionaryShape::DropPending() noexcept {
    for (const Pending& pending : std::span(pending_.get(), std::exchange(pendingCount_, 0)))
        for (const Object* value : std::span(pending.values).first(count_))
            Release(value);
}

} // namespace cf
