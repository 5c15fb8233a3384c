#include "bench/Spread.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

using bench::Spread;

TEST(Spread, QuartilesOfFiveValuesAreTheSecondAndTheFourth) {
    const Spread spread(std::vector<double>{50, 10, 40, 20, 30});
    EXPECT_EQ(spread.low, 20);
    EXPECT_EQ(spread.median, 30);
    EXPECT_EQ(spread.high, 40);
    EXPECT_EQ(spread.count, 5U);
}

TEST(Spread, QuartilesOfFourValuesAreInterpolated) {
    const Spread spread(std::vector<double>{1, 2, 3, 4});
    EXPECT_DOUBLE_EQ(spread.low, 1.75);
    EXPECT_DOUBLE_EQ(spread.median, 2.5);
    EXPECT_DOUBLE_EQ(spread.high, 3.25);
}

TEST(Spread, QuartilesOfOneValueAreThatValue) {
    const Spread spread(std::vector<double>{7});
    EXPECT_EQ(spread.low, 7);
    EXPECT_EQ(spread.median, 7);
    EXPECT_EQ(spread.high, 7);
    EXPECT_TRUE(spread.IsNarrow());
}

TEST(Spread, ConstructionFromNoValueThrows) {
    EXPECT_THROW(Spread(std::vector<double>{}), std::invalid_argument);
}

TEST(Spread, ConstructionFromNanThrows) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(Spread(std::vector<double>{1, nan, 2}), std::invalid_argument);
}

TEST(Spread, RangeUpToFivePercentIsNarrow) {
    EXPECT_TRUE(Spread(std::vector<double>{97.5, 97.5, 100, 102.5, 102.5}).IsNarrow());
    EXPECT_FALSE(Spread(std::vector<double>{97.5, 97.5, 100, 102.6, 102.6}).IsNarrow());
}

TEST(Spread, EqualNegativeValuesAreNarrow) {
    EXPECT_TRUE(Spread(std::vector<double>{-3, -3, -3}).IsNarrow());
}

TEST(Spread, ScaledSpreadKeepsItsCount) {
    const Spread spread = Spread(std::vector<double>{10, 20, 30, 40, 50}).Times(0.5);
    EXPECT_EQ(spread.low, 10);
    EXPECT_EQ(spread.median, 15);
    EXPECT_EQ(spread.high, 20);
    EXPECT_EQ(spread.count, 5U);
}

TEST(Spread, QuotientHasTheWidestPossibleRange) {
    const Spread over(std::vector<double>{10, 20, 30, 40, 50});
    const Spread under(std::vector<double>{1, 4, 5, 8, 9, 9, 1});
    const Spread quotient = Quotient(over, under);
    EXPECT_DOUBLE_EQ(quotient.median, 30.0 / 5);
    EXPECT_DOUBLE_EQ(quotient.low, 20 / 8.5);
    EXPECT_DOUBLE_EQ(quotient.high, 40 / 2.5);
    EXPECT_EQ(quotient.count, 5U);
}
