#include "bench/Memory.h"

#include "testbed/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>

using bench::MeasureInChild;

namespace {

std::string FailureOf(const std::function<long()>& body) {
    try {
        MeasureInChild(body);
    } catch (const testbed::Failure& failure) {
        return failure.what();
    }
    return "none";
}

} // namespace

TEST(MeasureInChild, ReturnsTheResultOfTheBodyInAChildProcess) {
    const pid_t parent = getpid();
    EXPECT_EQ(MeasureInChild([&] { return getppid() == parent ? 4711L : 0L; }), 4711);
}

TEST(MeasureInChild, ExceptionInTheChildThrowsInTheParent) {
    testing::internal::CaptureStderr();
    const std::string failure = FailureOf([]() -> long { throw std::runtime_error("the cause"); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "the cause\n");
    EXPECT_THAT(failure, testing::HasSubstr("exited with 1"));
}

TEST(MeasureInChild, ChildKilledByASignalThrowsWithItsNumber) {
    EXPECT_THAT(FailureOf([]() -> long { return raise(SIGKILL); }),
                testing::HasSubstr("killed by signal 9"));
}
