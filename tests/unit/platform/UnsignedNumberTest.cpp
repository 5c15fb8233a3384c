/* Integers above the signed range and reals beyond it: conversion and equality. */

#include "TestObjects.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>

namespace {

using Value = CFOwned<CFTypeRef>;

TEST(UnsignedNumber, ConversionToRealReportsWhetherItIsExact) {
    struct Row {
        std::uint64_t number;
        double real;
        bool isExact;
    };
    const Row rows[] = {{std::uint64_t{1} << 63, 0x1p63, true},
                        {(std::uint64_t{1} << 63) + 1, 0x1p63, false},
                        {UINT64_MAX - 2047, 0x1p64 - 2048, true},
                        {UINT64_MAX, 0x1p64, false}};
    for (const Row& row : rows) {
        const Value number(cf::SharedUnsignedInteger(row.number));
        double real = 0;
        const bool isExact =
            CFNumberGetValue(static_cast<CFNumberRef>(number.Get()), kCFNumberFloat64Type, &real);
        EXPECT_EQ(real, row.real) << row.number;
        EXPECT_EQ(isExact, row.isExact) << row.number;
    }
}

TEST(UnsignedNumber, EqualsNoRealAndNoSignedIntegerOfTheSameBits) {
    const Value number(cf::SharedUnsignedInteger(std::uint64_t{1} << 63));
    EXPECT_FALSE(CFEqual(number, Value(cf::SharedReal(0x1p63))));
    EXPECT_FALSE(CFEqual(number, Value(cf::SharedInteger(INT64_MIN))));
    EXPECT_TRUE(CFEqual(number, Value(cf::SharedUnsignedInteger(std::uint64_t{1} << 63))));
    const Value bitsOfAReal(cf::SharedUnsignedInteger(std::bit_cast<std::uint64_t>(-2.0)));
    EXPECT_FALSE(CFEqual(bitsOfAReal, Value(cf::SharedInteger(-2))));
    EXPECT_FALSE(CFEqual(bitsOfAReal, Value(cf::SharedReal(-2.0))));
}

TEST(RealNumber, OutsideOfTheIntegersEqualsNoInteger) {
    for (const double real : {-0x1p64, 0x1p63, 1e300, -1e300}) {
        const Value number(cf::SharedReal(real));
        EXPECT_FALSE(CFEqual(number, Value(cf::SharedInteger(INT64_MIN)))) << real;
        EXPECT_FALSE(CFEqual(number, Value(cf::SharedInteger(INT64_MAX)))) << real;
        EXPECT_TRUE(CFEqual(number, Real(real))) << real;
    }
    EXPECT_TRUE(CFEqual(Real(-0x1p63), Value(cf::SharedInteger(INT64_MIN))));
}

} // namespace
