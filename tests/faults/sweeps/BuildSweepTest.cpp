/* Fault sweeps of the walk of a changer's directories and of the build around it. */

#include "WholeDaemon.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/ShownReport.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

FSCacheStatusReport* g_shownReport = nullptr; // of the running build
FSCacheStatusReport* g_keptReport = nullptr;  // of the last build, if its status was not cleared

} // namespace

// ChangerServerSetClientStatus and ChangerServerClearClientStatus by their names for the linker.
extern "C" {
VErrLink* __real__Z28ChangerServerSetClientStatusyPKcS0_tth(UInt64 changerGUID, const char* client,
                                                            const char* message, UInt16 step,
                                                            UInt16 maximum, Boolean abort);
VErrLink* __real__Z30ChangerServerClearClientStatusyPKc(UInt64 changerGUID, const char* client);

VErrLink* __wrap__Z28ChangerServerSetClientStatusyPKcS0_tth(UInt64 changerGUID, const char* client,
                                                            const char* message, UInt16 step,
                                                            UInt16 maximum, Boolean abort) {
    g_shownReport = ReportOf(message);
    return __real__Z28ChangerServerSetClientStatusyPKcS0_tth(changerGUID, client, message, step,
                                                             maximum, abort);
}

VErrLink* __wrap__Z30ChangerServerClearClientStatusyPKc(UInt64 changerGUID, const char* client) {
    VErrLink* err = __real__Z30ChangerServerClearClientStatusyPKc(changerGUID, client);
    FSCacheStatusReport* shown = std::exchange(g_shownReport, nullptr);
    g_keptReport = err != nullptr ? shown : nullptr;
    return err;
}
}

namespace {

class BuildSweep : public WholeDaemon {
protected:
    BuildSweep() {
        MakeFileSystem();
        tree_.MakeDirectory("disc/other");
        RegisterFileSystem();
        AddChanger(kSweptChanger);
    }

    // The walk skips a directory whose fstatat() fails, without a log line.
    void ExpectWalkSucceedsOrLogs() {
        VErrLink* err = nullptr;
        Report(SweepFaults(
            [&] { err = CacheFSDirectory(kSweptChanger, tree_.Root().c_str(), 1, nullptr); },
            [&](const Fault& fault) {
                const bool done = err == nullptr && !log_.HasLines();
                VErrLogAndCatch(&err);
                ExpectSound(fault, done);
                EXPECT_EQ(done, !fault.happened || fault.function == "fstatat") << fault.what;
            }));
    }
    // By design, a report whose status could not be cleared is never freed; the others are.
    static void ExpectReportKeptIfNotCleared(const Fault& fault,
                                             const std::vector<std::string>& lines) {
        FSCacheStatusReport* report = std::exchange(g_keptReport, nullptr);
        g_shownReport = nullptr;
        if (report == nullptr)
            return;
        EXPECT_EQ(report->changerGUID, kSweptChanger) << fault.what;
        EXPECT_THAT(lines, Contains(HasSubstr("fail ResetStatusReporting"))) << fault.what;
        free(report);
    }
    static void Start() {
        EXPECT_EQ(TakeChain(StartChangerFSCache(kSweptChanger)), Chain());
    }
};

TEST_F(BuildSweep, WalkSucceedsOrLogsAnError) {
    ExpectWalkSucceedsOrLogs();
}

// Deeper than the number of directories that the walk keeps open.
TEST_F(BuildSweep, DeepWalkSucceedsOrLogsAnError) {
    std::string path = "disc";
    for (int level = 0; level < 65; ++level) {
        tree_.MakeDirectory(path + "/b");
        tree_.MakeDirectory(path += "/a");
    }
    ExpectWalkSucceedsOrLogs();
}

// Without memory the build cannot clear its flag. The changer is built again once it has been
// removed and added.
TEST_F(BuildSweep, BuildSucceedsOrLogsAnErrorAndTheNextSucceeds) {
    Start();
    Report(SweepFaults([] { DeferredThreads::RunNext(); },
                       [&](const Fault& fault) {
                           const auto requests = server_.TakeRequests();
                           const bool closed =
                               !IsBuilding(kSweptChanger) && !requests.empty() &&
                               requests.back() == "5000C500ABCD1000: request identification";
                           ExpectReportKeptIfNotCleared(fault, ExpectSound(fault, closed));
                           EXPECT_TRUE(!IsBuilding(kSweptChanger) || fault.function.empty())
                               << fault.what;
                           EXPECT_EQ(RemoveChangerFromList(kSweptChanger), nullptr);
                           AddChanger(kSweptChanger);
                           Start();
                       }));
    DeferredThreads::RunNext();
    EXPECT_THAT(server_.TakeRequests(), ElementsAre("5000C500ABCD1000: request identification",
                                                    "5000C500ABCD1000: set client status",
                                                    "5000C500ABCD1000: set client status",
                                                    "5000C500ABCD1000: set client status",
                                                    "5000C500ABCD1000: set client status",
                                                    "5000C500ABCD1000: request identification"));
    EXPECT_FALSE(IsBuilding(kSweptChanger));
}

} // namespace
