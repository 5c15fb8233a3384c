/*
 * Fails a test that does not release its shared values. The leak checker cannot find such a leak,
 * because the table of shared values (objects/SharedTable.h) points to each value.
 */

#include "objects/SharedTable.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace {

class SharedValuesAtRest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        before_ = cf::MeasureSharedTable().values;
    }
    void OnTestEnd(const testing::TestInfo&) override {
        EXPECT_EQ(cf::MeasureSharedTable().values, before_) << "shared values were not released";
    }

    std::size_t before_ = 0;
};

const bool g_isListening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new SharedValuesAtRest);
    return true;
}();

} // namespace
