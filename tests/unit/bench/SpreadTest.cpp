#include "bench/Spread.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <stdexcept>
#include <vector>

using bench::Spread;

namespace {

void ExpectSpread(const Spread& spread, double low, double median, double high, std::size_t count) {
    EXPECT_DOUBLE_EQ(spread.low, low);
    EXPECT_DOUBLE_EQ(spread.median, median);
    EXPECT_DOUBLE_EQ(spread.high, high);
    EXPECT_EQ(spread.count, count);
}

} // namespace

TEST(Spread, QuartilesAreInterpolated) {
    ExpectSpread(Spread(std::vector<double>{50, 10, 40, 20, 30}), 20, 30, 40, 5);
    ExpectSpread(Spread(std::vector<double>{1, 2, 3, 4}), 1.75, 2.5, 3.25, 4);
}

TEST(Spread, QuartilesOfOneValueAreThatValue) {
    const Spread spread(std::vector<double>{7});
    ExpectSpread(spread, 7, 7, 7, 1);
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
    ExpectSpread(Spread(std::vector<double>{10, 20, 30, 40, 50}).Times(0.5), 10, 15, 20, 5);
}

TEST(Spread, QuotientHasTheWidestPossibleRange) {
    const Spread over(std::vector<double>{10, 20, 30, 40, 50});
    const Spread under(std::vector<double>{1, 4, 5, 8, 9, 9, 1});
    ExpectSpread(Quotient(over, under), 20 / 8.5, 30.0 / 5, 40 / 2.5, 5);
}
