#include "bench/Memory.h"

#include "testbed/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <string>
#include <unistd.h>

using bench::MeasureApart;

namespace {

std::string FailureOf(const std::function<long()>& body) {
    try {
        MeasureApart(body);
    } catch (const testbed::Failure& failure) {
        return failure.what();
    }
    return "none";
}

} // namespace

TEST(MeasureApart, ReturnsTheResultOfAChild) {
    const pid_t parent = getpid();
    EXPECT_EQ(MeasureApart([&] { return getppid() == parent ? 4711L : 0L; }), 4711);
}

TEST(MeasureApart, ExceptionInTheChildIsAFailureOfTheParent) {
    testing::internal::CaptureStderr();
    const std::string failure = FailureOf([]() -> long { throw std::runtime_error("the cause"); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "the cause\n");
    EXPECT_THAT(failure, testing::HasSubstr("exited with 1"));
}

TEST(MeasureApart, SignalThatKillsTheChildIsTold) {
    EXPECT_THAT(FailureOf([]() -> long { return raise(SIGKILL); }),
                testing::HasSubstr("killed by signal 9"));
}
