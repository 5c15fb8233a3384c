/*
 * No test leaves a shared value behind. The table of them (objects/SharedTable.h) points to each,
 * so that the leak checker takes every one for used: a list that was read and never released is no
 * leak to it.
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
