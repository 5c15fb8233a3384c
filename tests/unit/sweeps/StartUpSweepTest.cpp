/* The daemon's start, from main to the first turn of its run loop, and its end, with whatever can
   fail around them failing. Each is on a thread of its own, which has no run loop yet. */

#include "FaultSweep.h"
#include "support/LogCapture.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysctl.h>

#include <cerrno>
#include <thread>

namespace {

bool g_isUp = false;      // the run loop was reached
bool g_hasLooked = false; // for the server, as it does at once

} // namespace

extern "C" {
int __real_main(int argc, char** argv);
int __wrap_main(int argc, char** argv);
void __real_CFRunLoopRun(void);
void __wrap_CFRunLoopRun(void);
int __wrap_sysctl(int* name, unsigned int nameLength, void* buffer, size_t* length, void* newValue,
                  size_t newLength);

// The program starts in the test's main, which calls the daemon's.
int __wrap_main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

void __wrap_CFRunLoopRun(void) {
    g_isUp = true;
    __real_CFRunLoopRun();
}

// No server is there.
int __wrap_sysctl(int*, unsigned int, void*, size_t* length, void*, size_t) {
    g_hasLooked = true;
    CFRunLoopStop(CFRunLoopGetCurrent());
    *length = 0;
    return 0;
}
}

namespace {

class StartUpSweep : public testing::Test {
protected:
    // Whether the fault happened, which is made of the arguments.
    template<typename FaultKind, typename... Arguments>
    bool Start(const std::string& what, const Arguments&... arguments) {
        bool happened = false;
        g_isUp = false;
        g_hasLooked = false;
        std::thread([&] {
            char name[] = "trayprobed-in-a-test";
            char* argv[] = {name, nullptr};
            const FaultKind fault(arguments...);
            EXPECT_EQ(__real_main(1, argv), 0) << what;
            happened = FaultKind::Happened();
        }).join();
        const auto lines = log_.Take();
        EXPECT_TRUE(g_hasLooked || !lines.empty()) << what << " was passed over in silence";
        EXPECT_TRUE(happened || (g_hasLooked && lines.empty())) << what;
        EXPECT_EQ(g_isUp, g_hasLooked) << what;
        return happened;
    }

    LogCapture log_;
};

TEST_F(StartUpSweep, WithoutMemoryComesUpOrSaysWhyNot) {
    for (const std::size_t count : {std::size_t{1}, SIZE_MAX}) {
        std::size_t nth = 1;
        while (Start<AllocationFault>("allocation " + std::to_string(nth), nth, count))
            ++nth;
        EXPECT_GT(nth, 1U);
        RecordProperty("allocations", std::to_string(nth - 1));
    }
}

TEST_F(StartUpSweep, WithACallFailingComesUpOrSaysWhyNot) {
    std::size_t calls = 0;
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        std::size_t nth = 1;
        while (Start<SystemCallFault>(Describe(failure, nth), failure, nth))
            ++nth;
        calls += nth - 1;
    }
    EXPECT_GT(calls, 0U);
    RecordProperty("system_calls", std::to_string(calls));
}

} // namespace
