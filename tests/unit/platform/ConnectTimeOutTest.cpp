/* Connecting to a listener whose backlog is full, for as long as the kernel makes it wait. */

#include "FakeClock.h"
#include "sockets/LocalStream.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace std::string_view_literals;

// The kernel counts in ticks and rounds a time-out up to the granularity of its level: the longer
// the time-out, the coarser by a factor of eight.
constexpr double kFinestLevel = 63; // ticks
constexpr double kCoarser = 8;

double WithRounding(double seconds, double ticksPerSecond) {
    const double ticks = seconds * ticksPerSecond + 1;
    double granularity = 1;
    while (ticks >= kFinestLevel * granularity)
        granularity *= kCoarser;
    return (ticks + granularity) / ticksPerSecond;
}

// The calls of connect() and their results.
struct Attempts {
    FakeClock clock;
    double ticksPerSecond = 250;
    int error = EAGAIN;          // of each call
    double portion = 1;          // of its wait that passes before
    std::size_t connectsAt = 0;  // the call that succeeds; 0: none
    std::vector<double> waits{}; // the time-outs set, one for each call
};
std::optional<Attempts> g_attempts;

} // namespace

extern "C" {
int __wrap_setsockopt(int, int level, int option, const void* value, socklen_t size) {
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(option, SO_SNDTIMEO);
    EXPECT_EQ(size, sizeof(timeval));
    const auto& time = *static_cast<const timeval*>(value);
    g_attempts->waits.push_back(static_cast<double>(time.tv_sec) +
                                static_cast<double>(time.tv_usec) / 1e6);
    return 0;
}

int __wrap_connect(int, const sockaddr*, socklen_t) {
    Attempts& attempts = *g_attempts;
    if (attempts.waits.size() == attempts.connectsAt)
        return 0;
    attempts.clock.Advance(attempts.portion *
                           WithRounding(attempts.waits.back(), attempts.ticksPerSecond));
    errno = attempts.error;
    return -1;
}
}

namespace {

class ConnectTimeOutTest : public testing::Test {
protected:
    ~ConnectTimeOutTest() override {
        g_attempts.reset();
    }

    // True if the connection is made.
    bool Connect(CFTimeInterval timeout) {
        constexpr std::string_view kAddress = "\0\1/tmp/full"sv;
        attempts_.waits.clear();
        const int descriptor = cf::ConnectToLocalStream(
            {reinterpret_cast<const std::uint8_t*>(kAddress.data()), kAddress.size()}, timeout);
        return descriptor >= 0 && close(descriptor) == 0;
    }

    Attempts& attempts_ = g_attempts.emplace();
};

TEST_F(ConnectTimeOutTest, FullBacklogFailsAtTheTimeOutDespiteKernelRounding) {
    constexpr double kLatest = 0.2;
    constexpr std::size_t kMostAttempts = 6; // each goes to the end of the listener's queue
    for (const double ticks : {100.0, 250.0, 300.0, 1000.0})
        for (const CFTimeInterval timeout : {0.01, 0.1, 0.5, 1.0, 2.0, 5.0, 17.0, 30.0, 300.0}) {
            SCOPED_TRACE(std::to_string(timeout) + " s, ticks: " + std::to_string(ticks));
            attempts_.ticksPerSecond = ticks;
            const CFTimeInterval begin = attempts_.clock.Elapsed();
            EXPECT_FALSE(Connect(timeout));
            const CFTimeInterval waited = attempts_.clock.Elapsed() - begin;
            EXPECT_GE(waited, timeout);
            EXPECT_LT(waited, timeout + kLatest);
            EXPECT_LE(attempts_.waits.size(), kMostAttempts);
        }
}

TEST_F(ConnectTimeOutTest, FirstAttemptLeavesAnEighthOfALongTimeOut) {
    for (const auto& [timeout, wait] :
         {std::pair{0.1, 0.1}, {0.2, 0.175}, {2, 1.75}, {30, 26.25}}) {
        EXPECT_FALSE(Connect(timeout));
        EXPECT_NEAR(attempts_.waits.front(), wait, 1e-9);
    }
}

TEST_F(ConnectTimeOutTest, NoTimeOutIsOneAttemptWithTheShortestWait) {
    for (const CFTimeInterval timeout : {0.0, -1.0, -1e300}) {
        EXPECT_FALSE(Connect(timeout));
        EXPECT_EQ(attempts_.waits, std::vector<double>{1e-6}) << timeout;
    }
}

TEST_F(ConnectTimeOutTest, LaterAttemptConnects) {
    attempts_.connectsAt = 3;
    EXPECT_TRUE(Connect(30));
    EXPECT_EQ(attempts_.waits.size(), 3U);
}

TEST_F(ConnectTimeOutTest, InterruptedAttemptIsRepeatedForTheRemainingTime) {
    attempts_.error = EINTR;
    attempts_.portion = 0.5;
    attempts_.connectsAt = 2;
    EXPECT_TRUE(Connect(30));
    ASSERT_EQ(attempts_.waits.size(), 2U);
    EXPECT_LE(0.5 * attempts_.waits[0] + attempts_.waits[1], 30);
}

TEST_F(ConnectTimeOutTest, OtherErrorsFailAtOnce) {
    attempts_.error = ECONNREFUSED;
    EXPECT_FALSE(Connect(30));
    EXPECT_EQ(attempts_.waits.size(), 1U);
}

} // namespace
