/* Start and end of the daemon: initialization and termination of the modules, and the title. */

#include "common/VErr.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

#include <gtest/gtest.h>

#include <cerrno>
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

// ---- the modules ----

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
        memory.reserve(256); // keeps the addresses of the arguments valid
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(memory.data() + memory.size());
            memory += argument + '\0';
        }
        memory += "behind the arguments";
        argv.push_back(nullptr);
        EXPECT_EQ(__real_main(static_cast<int>(arguments.size()), argv.data()), 0);
        return memory;
    }

    // Runs the daemon with a module that fails. The title, which follows, must not be written.
    void RunWithFailing(const std::string& module) {
        g_failing = module;
        EXPECT_EQ(Run({"trayprobed-and-more"}).substr(0, 11), "trayprobed-");
    }

    LogCapture log;
};

// ---- modules ----

TEST_F(DaemonMain, ModulesAreInitializedRunAndTerminatedInReverse) {
    Run({"trayprobed"});
    EXPECT_THAT(g_calls,
                ElementsAre("InitVErrSystem", "InitMediaIdState", "InitChangerFSCacheState",
                            "InitMediaIdManager", "InitChangerFSCacheManager", "CFRunLoopRun",
                            "TermChangerFSCacheManager", "TermMediaIdManager",
                            "TermChangerFSCacheState", "TermMediaIdState", "TermVErrSystem"));
}

TEST_F(DaemonMain, FailingErrorFacilityLogsOneLineAndEndsTheProgram) {
    RunWithFailing("InitVErrSystem");
    EXPECT_THAT(g_calls, ElementsAre("InitVErrSystem"));
    EXPECT_THAT(log.Take(), ElementsAre("main: fail start VErr system\n"));
}

TEST_F(DaemonMain, FailingModuleIsLoggedAndTheModulesBeforeItAreTerminatedInReverse) {
    const std::string modules[] = {"MediaIdState", "ChangerFSCacheState", "MediaIdManager",
                                   "ChangerFSCacheManager"};
    std::vector<std::string> inits = {"InitVErrSystem"};
    std::vector<std::string> terms = {"TermVErrSystem"};
    for (const std::string& module : modules) {
        g_calls.clear();
        RunWithFailing("Init" + module);
        inits.push_back("Init" + module);
        std::vector<std::string> expected = inits;
        expected.insert(expected.end(), terms.begin(), terms.end());
        EXPECT_EQ(g_calls, expected);
        EXPECT_THAT(log.TakeWithoutLineNumbers(),
                    ElementsAre("MainTest:123, Init: fail inside (err = 11)",
                                "trayprobed_main:123, main: fail Init" + module + " (err = 11)"));
        terms.insert(terms.begin(), "Term" + module);
    }
}

// ---- the title ----

// The title with its terminator is written over the arguments and, if longer, the bytes behind
// them; the rest of the arguments becomes zeros.
TEST_F(DaemonMain, TitleReplacesTheArguments) {
    const std::string title("(trayprobed)", 13);
    const std::string behind = "behind the arguments";
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        std::string memory;
    } cases[] = {
        {"shorter than the name",
         {"/usr/sbin/trayprobed"},
         title + std::string(21 - 13, '\0') + behind},
        {"longer than the name", {"tray"}, title + behind.substr(13 - 5)},
        {"empty name", {""}, title + behind.substr(13 - 1)},
        {"several arguments",
         {"tray", "--secret", "", "password"},
         title + std::string(24 - 13, '\0') + behind},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Run(each.arguments), each.memory) << each.name;
}

TEST_F(DaemonMain, TitleIsNotWrittenWithoutArguments) {
    EXPECT_EQ(Run({}), "behind the arguments");
    EXPECT_THAT(g_calls, Contains("CFRunLoopRun"));
}

} // namespace
