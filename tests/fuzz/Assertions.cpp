/* The targets use GoogleTest's assertions outside of tests. The first failure aborts the program,
   so the fuzzer saves the input. */

#include "Target.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class AbortOnFailure : public testing::EmptyTestEventListener {
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) // printed already
            std::abort();
    }
};

} // namespace

int LLVMFuzzerInitialize(int*, char***) {
    testing::UnitTest::GetInstance()->listeners().Append(new AbortOnFailure);
    return 0;
}
