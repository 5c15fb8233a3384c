#include "lists/DictionaryShape.h"

#include <algorithm>

namespace cf {

bool DictionaryShape::Fits(std::span<const Pair> pairs) const noexcept {
    return last_ && std::ranges::equal(pairs, std::span(keys_).first(count_), {}, &Pair::key);
}

const Object* DictionaryShape::Share(std::span<const Pair> pairs) noexcept {
    std::array<const Object*, kMostKeys> sorted;
    for (std::size_t i = 0; i < count_; ++i)
        sorted[places_[i]] = pairs[i].value;
    const auto values = std::span(sorted).first(count_);
    if (!std::ranges::equal(ValuesOfShared(last_.Get()), values)) {
        const Object* next = SharedDictionary(KeysOfShared(last_.Get()), values);
        if (next == nullptr)
            return nullptr;
        last_ = Owned<const Dictionary>::Adopt(static_cast<const Dictionary*>(next));
    }
    Retain(last_.Get());
    return last_.Get();
}

const Object* DictionaryShape::ShareAndLearn(std::span<Pair> pairs) noexcept {
    last_ = {};
    count_ = 0;
    if (pairs.size() > kMostKeys)
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

} // namespace cf
