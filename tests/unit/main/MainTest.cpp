/* The daemon's start and end: which modules are initialized and terminated, and the title. */

#include "common/VErr.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

namespace {

const char kSourcePath[] = "tests/unit/MainTest";

std::vector<std::string> g_calls;
std::string g_failing; // the module whose initialization fails

VErrLink* Init(const char* function) {
    g_calls.emplace_back(function);
    VErrLink* err = nullptr;
    if (g_failing == function)
        VERR_RAISE(VErrThrowWithErrCode(&err, EAGAIN, "fail inside"));
    return err;
}

} // namespace

// ---- the stages ----

VErrLink* InitMediaIdState(void) {
    return Init(__func__);
}
VErrLink* InitChangerFSCacheState(void) {
    return Init(__func__);
}
VErrLink* InitMediaIdManager(void) {
    return Init(__func__);
}
VErrLink* InitChangerFSCacheManager(void) {
    return Init(__func__);
}
void TermMediaIdState(void) {
    g_calls.emplace_back(__func__);
}
void TermChangerFSCacheState(void) {
    g_calls.emplace_back(__func__);
}
void TermMediaIdManager(void) {
    g_calls.emplace_back(__func__);
}
void TermChangerFSCacheManager(void) {
    g_calls.emplace_back(__func__);
}

extern "C" {
int __real_main(int argc, char** argv);
int __real__Z14InitVErrSystemv(void);
void __real__Z14TermVErrSystemv(void);

int __wrap__Z14InitVErrSystemv(void) {
    g_calls.emplace_back("InitVErrSystem");
    return g_failing == "InitVErrSystem" ? 0 : __real__Z14InitVErrSystemv();
}

void __wrap__Z14TermVErrSystemv(void) {
    g_calls.emplace_back("TermVErrSystem");
    __real__Z14TermVErrSystemv();
}

void __wrap_CFRunLoopRun(void) {
    g_calls.emplace_back("CFRunLoopRun");
}

int __wrap_main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
}

namespace {

class DaemonMain : public testing::Test {
protected:
    DaemonMain() {
        g_calls.clear();
        g_failing.clear();
    }

    // Runs the daemon with contiguous arguments, as the kernel passes them. Returns the content
    // of that memory afterwards.
    std::string Run(const std::vector<std::string>& arguments) {
        std::string memory;
        for (const std::string& argument : arguments)
            memory += argument + '\0';
        memory += "behind the arguments";
        std::vector<char*> argv;
        std::size_t position = 0;
        for (const std::string& argument : arguments) {
            argv.push_back(memory.data() + position);
            position += argument.size() + 1;
        }
        argv.push_back(nullptr);
        EXPECT_EQ(__real_main(static_cast<int>(arguments.size()), argv.data()), 0);
        return memory;
    }

    void RunWithFailing(const char* stage) {
        g_failing = stage;
        const std::string memory = Run({"trayprobed-and-more"});
        EXPECT_EQ(memory.substr(0, 11),
                  "trayprobed-"); // the title is written after the initialization
    }

    LogCapture log;
};

// ---- stages ----

TEST_F(DaemonMain, InitializesTheModulesRunsAndTerminatesThemInReverse) {
    Run({"trayprobed"});
    EXPECT_THAT(g_calls,
                ElementsAre("InitVErrSystem", "InitMediaIdState", "InitChangerFSCacheState",
                            "InitMediaIdManager", "InitChangerFSCacheManager", "CFRunLoopRun",
                            "TermChangerFSCacheManager", "TermMediaIdManager",
                            "TermChangerFSCacheState", "TermMediaIdState", "TermVErrSystem"));
}

TEST_F(DaemonMain, WithoutTheErrorFacilityOneLineIsLoggedAndNothingIsInitialized) {
    RunWithFailing("InitVErrSystem");
    EXPECT_THAT(g_calls, ElementsAre("InitVErrSystem"));
    EXPECT_THAT(log.Take(), ElementsAre("main: fail start VErr system\n"));
}

TEST_F(DaemonMain, AFailingMediaIdStateEndsTheProgram) {
    RunWithFailing("InitMediaIdState");
    EXPECT_THAT(g_calls, ElementsAre("InitVErrSystem", "InitMediaIdState", "TermVErrSystem"));
    EXPECT_THAT(log.TakeWithoutLineNumbers(),
                ElementsAre("MainTest:123, Init: fail inside (err = 11)",
                            "trayprobed_main:123, main: fail InitMediaIdState (err = 11)"));
}

TEST_F(DaemonMain, AFailingCacheStateTerminatesTheModuleBefore) {
    RunWithFailing("InitChangerFSCacheState");
    EXPECT_THAT(g_calls,
                ElementsAre("InitVErrSystem", "InitMediaIdState", "InitChangerFSCacheState",
                            "TermMediaIdState", "TermVErrSystem"));
    EXPECT_THAT(log.TakeWithoutLineNumbers(),
                ElementsAre("MainTest:123, Init: fail inside (err = 11)",
                            "trayprobed_main:123, main: fail InitChangerFSCacheState (err = 11)"));
}

TEST_F(DaemonMain, AFailingMediaIdManagerTerminatesTheTwoModulesBefore) {
    RunWithFailing("InitMediaIdManager");
    EXPECT_THAT(g_calls,
                ElementsAre("InitVErrSystem", "InitMediaIdState", "InitChangerFSCacheState",
                            "InitMediaIdManager", "TermChangerFSCacheState", "TermMediaIdState",
                            "TermVErrSystem"));
    EXPECT_THAT(log.TakeWithoutLineNumbers(),
                ElementsAre("MainTest:123, Init: fail inside (err = 11)",
                            "trayprobed_main:123, main: fail InitMediaIdManager (err = 11)"));
}

TEST_F(DaemonMain, AFailingCacheManagerTerminatesTheThreeModulesBefore) {
    RunWithFailing("InitChangerFSCacheManager");
    EXPECT_THAT(g_calls,
                ElementsAre("InitVErrSystem", "InitMediaIdState", "InitChangerFSCacheState",
                            "InitMediaIdManager", "InitChangerFSCacheManager", "TermMediaIdManager",
                            "TermChangerFSCacheState", "TermMediaIdState", "TermVErrSystem"));
    EXPECT_THAT(
        log.TakeWithoutLineNumbers(),
        ElementsAre("MainTest:123, Init: fail inside (err = 11)",
                    "trayprobed_main:123, main: fail InitChangerFSCacheManager (err = 11)"));
}

// ---- the title ----

const std::string kTitle("(trayprobed)", 13); // with its terminator

TEST_F(DaemonMain, ATitleShorterThanTheNameIsFollowedByZeros) {
    EXPECT_EQ(Run({"/usr/sbin/trayprobed"}),
              kTitle + std::string(21 - 13, '\0') + "behind the arguments");
}

TEST_F(DaemonMain, ATitleLongerThanTheNameIsWrittenWhole) {
    EXPECT_EQ(Run({"tray"}), kTitle + std::string("behind the arguments").substr(13 - 5));
}

TEST_F(DaemonMain, ATitleReplacesAnEmptyName) {
    EXPECT_EQ(Run({""}), kTitle + std::string("behind the arguments").substr(13 - 1));
}

TEST_F(DaemonMain, EveryArgumentIsOverwrittenWithZeros) {
    EXPECT_EQ(Run({"tray", "--secret", "", "password"}),
              kTitle + std::string(24 - 13, '\0') + "behind the arguments");
}

TEST_F(DaemonMain, WithoutArgumentsNoTitleIsWritten) {
    EXPECT_EQ(Run({}), "behind the arguments");
    EXPECT_THAT(g_calls, testing::Contains("CFRunLoopRun"));
}

} // namespace
