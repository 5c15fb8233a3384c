#include "objects/Data.h"

#include "objects/Hash.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace cf {
namespace {

constexpr std::size_t kGreatestLength = std::numeric_limits<CFIndex>::max() / 2;
constexpr std::size_t kSmallestCapacity = 64;

bool EqualData(const Object* first, const Object* second) noexcept {
    const auto left = BytesOf(static_cast<const Data*>(first));
    const auto right = BytesOf(static_cast<const Data*>(second));
    return std::equal(left.begin(), left.end(), right.begin(), right.end());
}

std::uint32_t HashData(const Object* object) noexcept {
    const auto bytes = BytesOf(static_cast<const Data*>(object));
    return HashBytes(bytes.data(), bytes.size());
}

void DestroyData(Object* object) noexcept {
    auto* data = static_cast<Data*>(object);
    if (data->capacity > 0)
        std::free(data->bytes);
    std::free(data);
}

bool Reserve(Data* data, std::size_t length) noexcept {
    if (length <= data->capacity)
        return true;
    const std::size_t capacity =
        std::min(std::max({length, data->capacity * 2, kSmallestCapacity}), data->maximum);
    void* bytes = std::realloc(data->capacity > 0 ? data->bytes : nullptr, capacity);
    if (bytes == nullptr)
        return false;
    data->bytes = static_cast<std::uint8_t*>(bytes);
    data->capacity = capacity;
    return true;
}

} // namespace

Data* CreateData(std::span<const std::uint8_t> bytes) noexcept {
    if (bytes.size() > kGreatestLength)
        return nullptr;
    auto* data = Allocate<Data>(bytes.size(), bytes.size());
    if (data == nullptr)
        return nullptr;
    std::copy(bytes.begin(), bytes.end(), data->bytes);
    data->length = bytes.size();
    return data;
}

} // namespace cf

constinit const cf::Class __CFData::kClass = {cf::DestroyData, cf::EqualData, cf::HashData};

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    if (length < 0 || (bytes == nullptr && length > 0))
        return nullptr;
    return cf::CreateData({bytes, static_cast<std::size_t>(length)});
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex capacity) {
    const std::size_t maximum =
        capacity > 0 ? static_cast<std::size_t>(capacity) : cf::kGreatestLength;
    return cf::Allocate<cf::Data>(0, std::min(maximum, cf::kGreatestLength));
}

CFIndex CFDataGetLength(CFDataRef reference) {
    const auto* data = cf::As<cf::Data>(reference);
    return data != nullptr ? static_cast<CFIndex>(data->length) : 0;
}

const UInt8* CFDataGetBytePtr(CFDataRef reference) {
    const auto* data = cf::As<cf::Data>(reference);
    return data != nullptr ? data->bytes : nullptr;
}

void CFDataAppendBytes(CFMutableDataRef reference, const UInt8* bytes, CFIndex length) {
    auto* data = cf::As<cf::Data>(reference);
    if (data == nullptr || bytes == nullptr || length <= 0)
        return;
    const auto added = static_cast<std::size_t>(length);
    if (added > data->maximum - data->length || !cf::Reserve(data, data->length + added))
        return;
    std::copy(bytes, bytes + added, data->bytes + data->length);
    data->length += added;
}
