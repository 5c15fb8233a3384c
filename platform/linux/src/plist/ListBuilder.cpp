#include "plist/ListBuilder.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <new>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

namespace cf {

namespace {

Value CreateMutableArray(std::span<const Object* const> members) {
    const auto count = static_cast<CFIndex>(members.size());
    CFMutableArrayRef array =
        CFArrayCreateMutable(kCFAllocatorDefault, count, &kCFTypeArrayCallBacks);
    Value result = Created(AsObject(array));
    for (const Object* member : members)
        CFArrayAppendValue(array, member);
    if (CFArrayGetCount(array) != count)
        throw std::bad_alloc();
    return result;
}

Value CreateMutableDictionary(std::span<const Pair> pairs) {
    const auto count = static_cast<CFIndex>(pairs.size());
    CFMutableDictionaryRef dictionary =
        CFDictionaryCreateMutable(kCFAllocatorDefault, count, &kCFTypeDictionaryKeyCallBacks,
                                  &kCFTypeDictionaryValueCallBacks);
    Value result = Created(AsObject(dictionary));
    for (const Pair& pair : pairs)
        CFDictionarySetValue(dictionary, pair.key, pair.value);
    if (CFDictionaryGetCount(dictionary) != count)
        throw std::bad_alloc();
    return result;
}

bool AnyKeyTwice(std::span<const Pair> pairs) noexcept {
    for (std::size_t i = 1; i < pairs.size(); ++i)
        for (std::size_t k = 0; k < i; ++k)
            if (pairs[i].key == pairs[k].key)
                return true;
    return false;
}

// The indices are ascending, so that the caller can move the pairs in place.
std::vector<std::size_t> LastOfEachKey(std::span<const Pair> pairs) {
    std::vector<std::size_t> indices(pairs.size());
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    const auto keyOf = [pairs](std::size_t index) { return pairs[index].key; };
    std::ranges::sort(indices, [keyOf](std::size_t first, std::size_t second) {
        return keyOf(first) != keyOf(second) ? std::less<>()(keyOf(first), keyOf(second))
                                             : first > second;
    });
    const auto haveSameKey = [keyOf](std::size_t first, std::size_t second) {
        return keyOf(first) == keyOf(second);
    };
    indices.erase(std::unique(indices.begin(), indices.end(), haveSameKey), indices.end());
    std::ranges::sort(indices);
    return indices;
}

} // namespace

// Reserves enough for most lists.
ListBuilder::ListBuilder(bool mutableContainers) : mutable_(mutableContainers) {
    members_.reserve(64);
    pairs_.reserve(64);
    begins_.reserve(8);
}

ListBuilder::~ListBuilder() {
    DropMembers(0);
    DropPairs(0);
}

void ListBuilder::AddMember(Value member) {
    members_.push_back(member.Get());
    member.Detach();
}

Value ListBuilder::EndArray(std::size_t begin) {
    SharePending(ShapeAt(begins_.size() + 1));
    const auto members = std::span(members_).subspan(begin);
    Value array = mutable_ ? CreateMutableArray(members) : ShareArray(members);
    DropMembers(begin);
    return array;
}

// A short array is often the same as the last short one.
Value ListBuilder::ShareArray(std::span<const Object* const> members) {
    if (members.size() > kMaximumRowLength)
        return Created(SharedArray(members));
    const auto* last = static_cast<const Array*>(lastArray_.Get());
    if (last == nullptr || !std::ranges::equal(RowOf(last), members))
        lastArray_ = Created(SharedArray(members));
    return Value::Share(lastArray_.Get());
}

void ListBuilder::BeginDictionary() {
    begins_.push_back(pairs_.size());
}

void ListBuilder::AddPair(const Object* key, Value value) {
    pairs_.push_back({key, value.Get()});
    value.Detach();
}

Value ListBuilder::EndDictionary() {
    const std::size_t begin = begins_.back();
    Value dictionary = ShareDictionary(begin);
    DropPairs(begin);
    begins_.pop_back();
    return dictionary;
}

// An array may have very many dictionaries, so they are looked up several at a time.
void ListBuilder::AddDictionary() {
    const std::size_t begin = begins_.back();
    const auto pairs = std::span(pairs_).subspan(begin);
    DictionaryShape& shape = ShapeAt(begins_.size());
    if (!shape.Fits(pairs))
        return AddMember(EndDictionary());
    if (const Object* last = shape.FindLast(pairs); last != nullptr) {
        AddMember(Value::Adopt(last));
        DropPairs(begin);
    } else {
        shape.Enqueue(pairs, members_.size());
        pairs_.erase(pairs_.begin() + static_cast<std::ptrdiff_t>(begin), pairs_.end());
        members_.push_back(nullptr);
    }
    begins_.pop_back();
    if (shape.PendingCount() == DictionaryShape::kMaximumPending)
        shape.SharePending(members_);
}

Value ListBuilder::ShareDictionary(std::size_t begin) {
    DictionaryShape& shape = ShapeAt(begins_.size());
    if (shape.Fits(std::span(pairs_).subspan(begin)))
        return Created(shape.Share(std::span(pairs_).subspan(begin)));
    SharePending(shape);
    KeepLastOfEachKey(begin);
    const auto pairs = std::span(pairs_).subspan(begin);
    return mutable_ ? CreateMutableDictionary(pairs) : Created(shape.ShareAndRemember(pairs));
}

// Mostly nothing is pending. The check avoids a call that slows reading down by about 2 %.
inline void ListBuilder::SharePending(DictionaryShape& shape) {
    if (shape.PendingCount() > 0)
        shape.SharePending(members_);
}

// The shape for a dictionary at that level; the outermost one is at level 1.
DictionaryShape& ListBuilder::ShapeAt(std::size_t level) noexcept {
    return shapes_[std::min(level, shapes_.size()) - 1];
}

void ListBuilder::DropMembers(std::size_t begin) noexcept {
    while (members_.size() > begin) {
        if (members_.back() != nullptr)
            Release(members_.back());
        members_.pop_back();
    }
}

void ListBuilder::DropPairs(std::size_t begin) noexcept {
    while (pairs_.size() > begin) {
        Release(pairs_.back().value);
        pairs_.pop_back();
    }
}

// Keys are shared strings, so equal keys are one object. May change the order of the pairs.
void ListBuilder::KeepLastOfEachKey(std::size_t begin) {
    const auto pairs = std::span(pairs_).subspan(begin);
    if (pairs.size() <= DictionaryShape::kMaximumKeys && !AnyKeyTwice(pairs))
        return;
    std::size_t kept = 0;
    for (const std::size_t last : LastOfEachKey(pairs))
        std::swap(pairs[kept++], pairs[last]);
    DropPairs(begin + kept);
}

} // namespace cf
