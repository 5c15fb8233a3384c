#include "objects/Number.h"

#include "objects/Hash.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace cf {
namespace {

bool FitsSigned64(double value) noexcept {
    return value >= -0x1p63 && value < 0x1p63;
}

// True if the number is an integer of 64 bits, of either kind. Such a real equals the integer, so
// both must have the same hash.
bool IsWholeNumber(NumberValue number, std::int64_t* value) noexcept {
    if (number.kind == kSignedNumber) {
        *value = number.Signed();
        return true;
    }
    if (number.kind != kRealNumber || !FitsSigned64(number.Real()))
        return false;
    *value = static_cast<std::int64_t>(number.Real());
    return static_cast<double>(*value) == number.Real();
}

NumberValue AnyValue(const Object* number) noexcept {
    if (!IsImmediate(number))
        return ValueOf(static_cast<const Number*>(number));
    const auto bits = reinterpret_cast<std::intptr_t>(number);
    return {kSignedNumber, static_cast<std::uint64_t>(std::int64_t{bits >> 1})};
}

bool EqualNumbers(const Object* first, const Object* second) noexcept {
    const NumberValue left = AnyValue(first);
    const NumberValue right = AnyValue(second);
    std::int64_t leftWhole = 0;
    std::int64_t rightWhole = 0;
    if (IsWholeNumber(left, &leftWhole) && IsWholeNumber(right, &rightWhole))
        return leftWhole == rightWhole;
    return left == right;
}

std::uint32_t HashNumber(const Object* object) noexcept {
    const NumberValue number = AnyValue(object);
    std::int64_t whole = 0;
    if (IsWholeNumber(number, &whole))
        return HashWord(static_cast<std::uint64_t>(whole));
    return HashWord(~number.bits);
}

} // namespace

std::optional<NumberValue> NumberIn(CFTypeRef reference) noexcept {
    const Object* const object = AsObject(reference);
    if (object == nullptr || (!IsImmediate(object) && object->type != &Number::kClass))
        return std::nullopt;
    return AnyValue(object);
}

Number* CreateNumber(NumberValue value) noexcept {
    return Allocate<Number>(0, value);
}

namespace {

CFNumberRef CreateInteger(std::int64_t value) noexcept {
    if (const Object* immediate = ImmediateInteger(value); immediate != nullptr)
        return reinterpret_cast<CFNumberRef>(immediate);
    return CreateNumber({kSignedNumber, static_cast<std::uint64_t>(value)});
}

template<typename Native>
Native ReadNative(const void* address) noexcept {
    Native value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

// The conversion of the processor: the smallest integer for a real that does not fit.
template<typename Integer>
Integer TruncateReal(double value) noexcept {
    constexpr Integer kHalf = std::numeric_limits<Integer>::max() / 2 + 1;
    constexpr double kLimit = static_cast<double>(kHalf) * 2;
    return std::fabs(value) < kLimit ? static_cast<Integer>(value)
                                     : std::numeric_limits<Integer>::min();
}

// 16-bit integers are converted by way of 32 bits, as the processor does.
template<typename Integer>
Integer RealAsInteger(double value) noexcept {
    if constexpr (sizeof(Integer) < sizeof(std::int32_t))
        return static_cast<Integer>(TruncateReal<std::int32_t>(value));
    else
        return TruncateReal<Integer>(value);
}

// True if the integer fits. 16-bit integers also accept the unsigned values of their width.
template<typename Integer>
bool SurvivesIn(std::int64_t value) noexcept {
    if constexpr (sizeof(Integer) < sizeof(std::int32_t)) {
        if (static_cast<std::make_unsigned_t<Integer>>(value) == value)
            return true;
    }
    return static_cast<Integer>(value) == value;
}

template<typename Integer>
bool StoreInteger(NumberValue number, void* address) noexcept {
    Integer stored;
    bool survived;
    if (number.kind == kRealNumber) {
        stored = RealAsInteger<Integer>(number.Real());
        survived = static_cast<double>(stored) == number.Real();
    } else {
        // The bits of an unsigned number are converted as those of a signed one.
        stored = static_cast<Integer>(number.Signed());
        survived = SurvivesIn<Integer>(number.Signed());
    }
    std::memcpy(address, &stored, sizeof stored);
    return survived;
}

bool StoreReal(NumberValue number, void* address) noexcept {
    double stored = number.Real();
    bool survived = true;
    if (number.kind == kSignedNumber) {
        stored = static_cast<double>(number.Signed());
        survived = FitsSigned64(stored) && static_cast<std::int64_t>(stored) == number.Signed();
    } else if (number.kind == kUnsignedNumber) {
        stored = static_cast<double>(number.Unsigned());
        survived = stored < 0x1p64 && static_cast<std::uint64_t>(stored) == number.Unsigned();
    }
    std::memcpy(address, &stored, sizeof stored);
    return survived;
}

} // namespace
} // namespace cf

constinit const cf::Class __CFNumber::kClass = {cf::DestroyPlain, cf::EqualNumbers, cf::HashNumber};

struct __CFBoolean : cf::Object {
    static const cf::Class kClass;

    constexpr __CFBoolean() : Object(&kClass, cf::kStaticReferences) {}
};

constinit const cf::Class __CFBoolean::kClass = {cf::DestroyPlain, nullptr, nullptr};

namespace {
constinit __CFBoolean g_true;
constinit __CFBoolean g_false;
} // namespace

constinit const CFBooleanRef kCFBooleanTrue = &g_true;
constinit const CFBooleanRef kCFBooleanFalse = &g_false;

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, const void* value) {
    if (value == nullptr)
        return nullptr;
    switch (type) {
    case kCFNumberSInt16Type:
        return cf::CreateInteger(cf::ReadNative<std::int16_t>(value));
    case kCFNumberSInt32Type:
        return cf::CreateInteger(cf::ReadNative<std::int32_t>(value));
    case kCFNumberSInt64Type:
        return cf::CreateInteger(cf::ReadNative<std::int64_t>(value));
    case kCFNumberFloat64Type:
        return cf::CreateNumber({cf::kRealNumber, cf::ReadNative<std::uint64_t>(value)});
    }
    return nullptr;
}

Boolean CFNumberGetValue(CFNumberRef reference, CFNumberType type, void* value) {
    const auto number = cf::NumberIn(reference);
    if (!number || value == nullptr)
        return false;
    switch (type) {
    case kCFNumberSInt16Type:
        return cf::StoreInteger<std::int16_t>(*number, value);
    case kCFNumberSInt32Type:
        return cf::StoreInteger<std::int32_t>(*number, value);
    case kCFNumberSInt64Type:
        return cf::StoreInteger<std::int64_t>(*number, value);
    case kCFNumberFloat64Type:
        return cf::StoreReal(*number, value);
    }
    return false;
}
