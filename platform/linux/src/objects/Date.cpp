#include "objects/Date.h"

#include "objects/Hash.h"

#include <bit>
#include <cstdint>

namespace cf {
namespace {

bool EqualDates(const Object* first, const Object* second) noexcept {
    return static_cast<const Date*>(first)->absoluteTime ==
           static_cast<const Date*>(second)->absoluteTime;
}

std::uint32_t HashDate(const Object* object) noexcept {
    const CFAbsoluteTime time = static_cast<const Date*>(object)->absoluteTime;
    return HashWord(std::bit_cast<std::uint64_t>(time + 0.0)); // the two zeros are equal
}

} // namespace

constinit const Class Date::kClass = {DestroyPlain, EqualDates, HashDate};

} // namespace cf
