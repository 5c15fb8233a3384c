#include "stage/Failure.h"
#include "stage/PrivateWorld.h"

#include <cstdio>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const auto runTests = [] { return RUN_ALL_TESTS(); };
    if (testing::GTEST_FLAG(list_tests)) {
        return runTests();
    }
    try {
        return stage::RunInPrivateWorld(runTests);
    } catch (const stage::Failure& failure) {
        std::fprintf(stderr, "No private world for the tests: %s\n", failure.what());
        return 1;
    }
}
