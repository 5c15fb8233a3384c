#include "testbed/Sandbox.h"

#include <gtest/gtest.h>

namespace {

// Tests in one process share a sandbox; each begins with an empty /tmp.
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
