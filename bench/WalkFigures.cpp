#include "Figures.h"

#include "Comparison.h"
#include "Data.h"
#include "DiscFolder.h"
#include "InOrder.h"
#include "Program.h"

#include "testbed/Sandbox.h"
#include "testbed/TestRun.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

constexpr UInt64 kChanger = 0xA1;
constexpr double kSecondsPerRound = 0.6; // two walks of each

// Has the directories cached by the kernel as well.
std::string CountEntries(const std::string& root) {
    const std::filesystem::recursive_directory_iterator entries(root);
    return std::to_string(std::distance(begin(entries), end(entries)));
}

// Each walk is a whole process. Adds the ratios to the limit to the data.
void CompareWalks(Comparison& comparison, Data& data, const std::string& where,
                  const std::string& root) {
    const std::string entries = CountEntries(root);
    comparison.Add("ours",
                   [&] { RunProgram({testbed::ProgramPath("walk-by-daemon"), root, entries}); });
    comparison.Add("limit",
                   [&] { RunProgram({testbed::ProgramPath("walk-bare"), root, entries}); });
    comparison.Add("find", [&] { RunProgram({"find", root, "-size", "-0"}); });
    comparison.Run();
    const Spread ours = comparison.Ratio("ours", "limit");
    const Spread find = comparison.Ratio("find", "limit");
    data.Add(where, {ours.median, ours.low, ours.high, find.median, find.low, find.high});
}

std::string Beside(const Comparison& comparison) {
    return comparison.Tell({"ours", "find", "limit"});
}

void MeasureFolder(Report& report, Data& data, const std::string& where, const std::string& root) {
    Comparison comparison(15, Comparison::Thread::Main, kSecondsPerRound);
    CompareWalks(comparison, data, where, root);
    report.AddAtMost(where + ": over find", 0.90, comparison.Ratio("ours", "find"), "",
                     Beside(comparison));
    report.AddAtMost(where + ": over the limit", 1.15, comparison.Ratio("ours", "limit"), "", "");
}

void Check(VErrLink* err) {
    if (err != nullptr) {
        VErrLogAndCatch(&err);
        throw std::runtime_error("a build failed");
    }
}

// What a build thread does between accepting the request and withdrawing it.
void Build(const char* root) {
    FSCacheStatusReport* status = nullptr;
    Check(StartStatusReportingForFullFSCache(kChanger, root, &status));
    if (status->maximumStep != DiscFolder::kDiscs)
        throw std::runtime_error("a build missed discs");
    Check(CacheFSDirectory(kChanger, root, 1, status));
    EndStatusReportingForFullFSCache(status);
}

void MeasureBuild(Report& report, const std::string& root) {
    Check(AddChangerToList(kChanger));
    testbed::TestRun run;
    run.StartServer();
    run.Server().Do("add-changer changer=A1 slots=50 drives=2");
    run.Server().Do("start");
    // As in the daemon: on the main thread, CacheFSDirectory would have each info file read by
    // another thread.
    Comparison comparison(15, Comparison::Thread::Another, kSecondsPerRound);
    comparison.Add("walk", [&] { Check(CacheFSDirectory(kChanger, root.c_str(), 1, nullptr)); });
    comparison.Add("build", [&] { Build(root.c_str()); });
    comparison.Run();
    EndCleanly(run);
    report.AddAtMost("full build with progress: over the walk alone", 1.35,
                     comparison.Ratio("build", "walk"), "", comparison.Tell({"build", "walk"}));
}

void MeasureVolume(Report& report, Data& data, bool cached) {
    testbed::TestRun run;
    run.StartServer();
    run.Server().Do("add-changer changer=A1 slots=1 drives=1 mount=/tmp/carousel kernel-cache=" +
                    std::string(cached ? "yes" : "no"));
    run.Server().Do("put changer=A1 slot=0 directories=2000 files=10 depth=6 identified=yes");
    Comparison comparison(9);
    const std::string where = std::string("FUSE, kernel caching ") + (cached ? "on" : "off");
    CompareWalks(comparison, data, where, "/tmp/carousel/disc-0");
    const Spread overLimit = comparison.Ratio("ours", "limit");
    if (cached)
        report.AddUnjudged(where + ": over the limit", overLimit, "", Beside(comparison));
    else
        report.AddAtMost(where + ": over the limit", 1.10, overLimit, "", Beside(comparison));
    EndCleanly(run);
}

} // namespace

void MeasureWalk(Report& report) {
    report.BeginSection(
        "The walk",
        "20,000 directories of 10 files each, in 50 discs, six levels deep, warm; on FUSE 2,000 "
        "directories of the simulator. Whole processes. Beside: `find ROOT -size -0`, and the "
        "limit, a bare loop of openat, getdents64 in pieces of 256 KiB and fstatat.");
    Data data({"where", "ours", "low", "high", "find", "low", "high"});
    {
        const DiscFolder folder("/tmp/discs", kChanger);
        MeasureFolder(report, data, "tmpfs", folder.Path());
        MeasureBuild(report, folder.Path());
    }
    {
        const DiscFolder folder(testbed::ProgramPath("bench-discs"), kChanger);
        MeasureFolder(report, data, "the disk's file system", folder.Path());
    }
    MeasureVolume(report, data, false);
    MeasureVolume(report, data, true);
    data.Write("walk");
    report.ShowPicture("walk.svg", "The walk beside find and the limit");
}

} // namespace bench
