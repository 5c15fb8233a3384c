#include "lists/DictionaryShape.h"

#include "objects/String.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace cf {

namespace {

std::string_view TextOfKey(const Object* key) noexcept {
    return TextOf(static_cast<const String*>(key));
}

// What is written otherwise than it reads.
bool MayBeEscaped(const Object* key) noexcept {
    const std::string_view text = TextOfKey(key);
    return text.find('&') != text.npos || text.find('\0') != text.npos;
}

} // namespace

const Object* DictionaryShape::FindKey(std::size_t index, const char* text) const noexcept {
    if (index >= count_)
        return nullptr;
    const Object* key = keys_[index].Get();
    const std::string_view known = TextOfKey(key);
    const bool same =
        std::strncmp(text, known.data(), known.size()) == 0 && text[known.size()] == '\0';
    return same ? key : nullptr;
}

bool DictionaryShape::Fits(std::span<const Pair> pairs) const noexcept {
    if (!last_ || pairs.size() != count_)
        return false;
    std::size_t same = 0;
    while (same < count_ && pairs[same].key == keys_[same].Get())
        ++same;
    return same == count_;
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
    if (pairs.size() > kMostKeys || std::ranges::any_of(pairs, MayBeEscaped, &Pair::key))
        return SharedDictionary(pairs);
    for (const Pair& pair : pairs)
        keys_[count_++] = Owned<const Object>::Share(pair.key);
    const auto* dictionary = static_cast<const Dictionary*>(SharedDictionary(pairs));
    for (std::size_t i = 0; dictionary != nullptr && i < count_; ++i) {
        const auto place = std::ranges::find(pairs, keys_[i].Get(), &Pair::key);
        places_[i] = static_cast<std::uint8_t>(place - pairs.begin());
    }
    last_ = Owned<const Dictionary>::Share(dictionary);
    return dictionary;
}

} // namespace cf
