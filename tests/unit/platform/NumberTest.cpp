#include "TestObjects.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr std::int64_t kGuidBits = std::bit_cast<std::int64_t>(0x8123456789ABCDEFU);

// Result and value of CFNumberGetValue() for one type.
template<typename Native>
struct Reading {
    bool survived;
    Native value;
    bool operator==(const Reading&) const = default;
};

template<typename Native>
void PrintTo(const Reading<Native>& reading, std::ostream* out) {
    *out << (reading.survived ? "true, " : "false, ") << +reading.value;
}

template<typename Native>
Reading<Native> ReadAs(CFNumberRef number, CFNumberType type) {
    Native value = 0x55;
    const bool survived = CFNumberGetValue(number, type, &value) != 0;
    return {survived, value};
}

struct Conversion {
    Reading<std::int16_t> as16;
    Reading<std::int32_t> as32;
    Reading<std::int64_t> as64;
};

template<typename Native>
struct Row {
    Native stored;
    Conversion expected;
};

void ExpectConversion(CFNumberRef number, const Conversion& expected) {
    EXPECT_EQ(ReadAs<std::int16_t>(number, kCFNumberSInt16Type), expected.as16);
    EXPECT_EQ(ReadAs<std::int32_t>(number, kCFNumberSInt32Type), expected.as32);
    EXPECT_EQ(ReadAs<std::int64_t>(number, kCFNumberSInt64Type), expected.as64);
}

TEST(Number, IntegerConvertsToEachWidth) {
    constexpr std::int64_t k2To31 = std::int64_t{1} << 31;
    constexpr std::int64_t k2To40 = std::int64_t{1} << 40;
    const Row<std::int64_t> rows[] = {
        {0, {{true, 0}, {true, 0}, {true, 0}}},
        {-1, {{true, -1}, {true, -1}, {true, -1}}},
        {127, {{true, 127}, {true, 127}, {true, 127}}},
        {128, {{true, 128}, {true, 128}, {true, 128}}},
        {255, {{true, 255}, {true, 255}, {true, 255}}},
        {256, {{true, 256}, {true, 256}, {true, 256}}},
        {-129, {{true, -129}, {true, -129}, {true, -129}}},
        {32768, {{true, -32768}, {true, 32768}, {true, 32768}}},
        {65535, {{true, -1}, {true, 65535}, {true, 65535}}},
        {65536, {{false, 0}, {true, 65536}, {true, 65536}}},
        {70000, {{false, 4464}, {true, 70000}, {true, 70000}}},
        {-32769, {{false, 32767}, {true, -32769}, {true, -32769}}},
        {k2To31, {{false, 0}, {false, INT32_MIN}, {true, k2To31}}},
        {4294967295, {{false, -1}, {false, -1}, {true, 4294967295}}},
        {k2To40, {{false, 0}, {false, 0}, {true, k2To40}}},
        {INT64_MIN, {{false, 0}, {false, 0}, {true, INT64_MIN}}},
        {kGuidBits, {{false, -12817}, {false, -1985229329}, {true, kGuidBits}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        ExpectConversion(Integer(row.stored), row.expected);
    }
}

TEST(Number, RealConvertsToEachWidth) {
    const Conversion outOfRange = {{false, 0}, {false, INT32_MIN}, {false, INT64_MIN}};
    const Row<double> rows[] = {
        {1.5, {{false, 1}, {false, 1}, {false, 1}}},
        {1.0, {{true, 1}, {true, 1}, {true, 1}}},
        {-2.0, {{true, -2}, {true, -2}, {true, -2}}},
        {65535.0, {{false, -1}, {true, 65535}, {true, 65535}}},
        {1e10, {{false, 0}, {false, INT32_MIN}, {true, 10000000000}}},
        {-0x1p31, {{false, 0}, {true, INT32_MIN}, {true, INT32_MIN}}},
        {0x1p31, {{false, 0}, {false, INT32_MIN}, {true, std::int64_t{1} << 31}}},
        {-0x1p63, {{false, 0}, {false, INT32_MIN}, {true, INT64_MIN}}},
        {0x1.8p30, {{false, 0}, {true, 3 << 29}, {true, 3 << 29}}},
        {0x1.8p62, {{false, 0}, {false, INT32_MIN}, {true, std::int64_t{3} << 61}}},
        {0x1p63, outOfRange},
        {1e30, outOfRange},
        {-1e30, outOfRange},
        {std::numeric_limits<double>::infinity(), outOfRange},
        {std::nan(""), outOfRange},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        ExpectConversion(Real(row.stored), row.expected);
    }
}

TEST(Number, UnsignedAboveSignedRangeConvertsAsItsSignedBits) {
    constexpr std::uint64_t k2To31 = std::uint64_t{1} << 31;
    const Row<std::uint64_t> rows[] = {
        {0 - std::uint64_t{1}, {{true, -1}, {true, -1}, {true, -1}}},
        {0 - std::uint64_t{128}, {{true, -128}, {true, -128}, {true, -128}}},
        {0 - std::uint64_t{129}, {{true, -129}, {true, -129}, {true, -129}}},
        {0 - std::uint64_t{32768}, {{true, -32768}, {true, -32768}, {true, -32768}}},
        {0 - std::uint64_t{32769}, {{false, 32767}, {true, -32769}, {true, -32769}}},
        {0 - k2To31, {{false, 0}, {true, INT32_MIN}, {true, INT32_MIN}}},
        {0 - k2To31 - 1, {{false, -1}, {false, INT32_MAX}, {true, -2147483649}}},
        {std::uint64_t{1} << 63, {{false, 0}, {false, 0}, {true, INT64_MIN}}},
        {0x8123456789ABCDEFU, {{false, -12817}, {false, -1985229329}, {true, kGuidBits}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.stored);
        const CFOwned<CFNumberRef> number(static_cast<CFNumberRef>(
            static_cast<const void*>(cf::SharedUnsignedInteger(row.stored))));
        ExpectConversion(number, row.expected);
    }
}

TEST(Number, UnsignedAboveSignedRangeEqualsOnlyUnsigned) {
    const CFOwned<CFTypeRef> number(cf::SharedUnsignedInteger(0x8123456789ABCDEFU));
    const CFOwned<CFTypeRef> same(cf::SharedUnsignedInteger(0x8123456789ABCDEFU));
    const auto negative = Integer(kGuidBits);
    EXPECT_TRUE(CFEqual(number, same));
    EXPECT_FALSE(CFEqual(number, negative));
    EXPECT_FALSE(CFEqual(negative, number));
    EXPECT_FALSE(CFEqual(number, Real(0x1.02468ACF13579p63)));
    EXPECT_NE(cf::Hash(cf::AsObject(number)), cf::Hash(cf::AsObject(negative)));
}

template<typename Native>
CFOwned<CFNumberRef> Number(CFNumberType type, Native value) {
    return CFOwned(CFNumberCreate(nullptr, type, &value));
}

TEST(Number, EqualValuesOfAllTypesAreEqualAndHashAlike) {
    const CFOwned<CFNumberRef> numbers[] = {
        Number<std::int16_t>(kCFNumberSInt16Type, 300),
        Number<std::int32_t>(kCFNumberSInt32Type, 300),
        Number<std::int64_t>(kCFNumberSInt64Type, 300),
        Number<double>(kCFNumberFloat64Type, 300.0),
    };
    for (const auto& number : numbers) {
        EXPECT_TRUE(CFEqual(number, numbers[0]));
        EXPECT_TRUE(CFEqual(numbers[0], number));
        EXPECT_EQ(cf::Hash(cf::AsObject(number)), cf::Hash(cf::AsObject(numbers[0])));
    }
    EXPECT_FALSE(CFEqual(numbers[0], Integer(301)));
    EXPECT_FALSE(CFEqual(numbers[0], Real(300.5)));
    EXPECT_TRUE(CFEqual(Real(0.0), Real(-0.0)));
    EXPECT_TRUE(CFEqual(Real(1.5), Real(1.5)));
}

TEST(Number, SInt16IsSigned) {
    EXPECT_TRUE(CFEqual(Number<std::uint16_t>(kCFNumberSInt16Type, 65535), Integer(-1)));
    EXPECT_FALSE(CFEqual(Number<std::uint16_t>(kCFNumberSInt16Type, 65535), Integer(65535)));
}

constexpr std::int64_t k2To62 = std::int64_t{1} << 62;

TEST(Number, IntegerOf63BitsNeedsNoObject) {
    for (const std::int64_t value : {-k2To62, -k2To62 + 1, std::int64_t{-70000}, std::int64_t{-1},
                                     std::int64_t{0}, std::int64_t{70000}, k2To62 - 1}) {
        EXPECT_EQ(Integer(value), Integer(value)) << value;
        EXPECT_EQ(ReadAs<std::int64_t>(Integer(value), kCFNumberSInt64Type),
                  (Reading<std::int64_t>{true, value}));
    }
    EXPECT_EQ(Integer(-2), Number(kCFNumberSInt16Type, std::int16_t{-2}));
}

TEST(Number, IntegerOf64BitsIsAnObject) {
    for (const std::int64_t value : {INT64_MIN, -k2To62 - 1, k2To62, INT64_MAX}) {
        const auto number = Integer(value);
        EXPECT_NE(number, Integer(value)) << value;
        EXPECT_TRUE(CFEqual(number, Integer(value))) << value;
        EXPECT_EQ(ReferencesTo(number), 1) << value;
        EXPECT_EQ(ReadAs<std::int64_t>(number, kCFNumberSInt64Type),
                  (Reading<std::int64_t>{true, value}));
    }
}

TEST(Number, IntegerAndRealReadAsFloat64) {
    double value = 0;
    EXPECT_TRUE(CFNumberGetValue(Real(1.5), kCFNumberFloat64Type, &value));
    EXPECT_EQ(value, 1.5);
    EXPECT_TRUE(CFNumberGetValue(Integer(-3), kCFNumberFloat64Type, &value));
    EXPECT_EQ(value, -3.0);
    EXPECT_FALSE(
        CFNumberGetValue(Integer((std::int64_t{1} << 53) + 1), kCFNumberFloat64Type, &value));
    EXPECT_EQ(value, 0x1p53);
    EXPECT_FALSE(CFNumberGetValue(Integer(INT64_MAX), kCFNumberFloat64Type, &value));
    EXPECT_EQ(value, 0x1p63);
}

TEST(Number, GetValueOfNonNumberFails) {
    std::int32_t value = 42;
    for (const CFTypeRef object : {CFTypeRef{CFSTR("7")}, CFTypeRef{kCFBooleanTrue},
                                   CFTypeRef{kCFNull}, CFTypeRef{nullptr}}) {
        EXPECT_FALSE(
            CFNumberGetValue(static_cast<CFNumberRef>(object), kCFNumberSInt32Type, &value));
        EXPECT_EQ(value, 42);
    }
}

TEST(Number, UnknownTypeOrNullAddressFails) {
    const auto unknown = static_cast<CFNumberType>(5);
    std::int32_t value = 42;
    EXPECT_EQ(CFNumberCreate(nullptr, unknown, &value), nullptr);
    EXPECT_EQ(CFNumberCreate(nullptr, kCFNumberSInt32Type, nullptr), nullptr);
    EXPECT_FALSE(CFNumberGetValue(Integer(7), unknown, &value));
    EXPECT_FALSE(CFNumberGetValue(Integer(7), kCFNumberSInt32Type, nullptr));
    EXPECT_EQ(value, 42);
}

} // namespace
