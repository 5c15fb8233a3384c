#include "stage/PrivateWorld.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const auto runTests = [] { return RUN_ALL_TESTS(); };
    return testing::GTEST_FLAG(list_tests) ? runTests() : stage::RunInPrivateWorld(runTests);
}
