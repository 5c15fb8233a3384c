#include "testbed/Sandbox.h"

#include <gtest/gtest.h>

namespace {

// Tests that run in one process share their mounts: what one left in /tmp is gone before the next.
class EmptyTmpForEachTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        testbed::RemountTmp();
    }
};

int RunInWorld() {
    testing::UnitTest::GetInstance()->listeners().Append(new EmptyTmpForEachTest);
    return RUN_ALL_TESTS();
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return testing::GTEST_FLAG(list_tests) ? RUN_ALL_TESTS() : testbed::RunInSandbox(RunInWorld);
}
