/* Fault sweep of the daemon's start, from main to the first iteration of its run loop, and of its
   end. Each run is on a new thread, which has no run loop yet. */

#include "FaultSweep.h"
#include "support/LogCapture.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/sysctl.h>

#include <cstddef>
#include <string>

namespace {

bool g_isUp = false;        // the run loop was reached
bool g_hasSearched = false; // main searched for the server, its first work

} // namespace

extern "C" {
int __real_main(int argc, char** argv);
void __real_CFRunLoopRun(void);

// The program starts in the test's main, which calls the daemon's.
int __wrap_main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

void __wrap_CFRunLoopRun(void) {
    g_isUp = true;
    __real_CFRunLoopRun();
}

// There is no server.
int __wrap_sysctl(int*, unsigned int, void* buffer, size_t* length, void*, size_t) {
    g_hasSearched = true;
    CFRunLoopStop(CFRunLoopGetCurrent());
    *length = buffer == nullptr ? sizeof(struct kinfo_proc) : 0; // space for one, and then none
    return 0;
}
}

namespace {

TEST(StartUpSweep, StartSucceedsOrLogsWhyNot) {
    LogCapture log;
    int status = 0;
    Report(SweepFaults(
        [&] {
            char name[] = "trayprobed-in-a-test";
            char* argv[] = {name, nullptr};
            status = __real_main(1, argv);
        },
        [&](const Fault& fault) {
            const auto lines = log.Take();
            EXPECT_EQ(status, 0) << fault.what;
            EXPECT_TRUE(g_hasSearched || !lines.empty()) << fault.what << " was not logged";
            EXPECT_TRUE(fault.happened || (g_hasSearched && lines.empty())) << fault.what;
            EXPECT_EQ(g_isUp, g_hasSearched) << fault.what;
            g_isUp = false;
            g_hasSearched = false;
        },
        SweptThread::kFresh));
}

} // namespace
