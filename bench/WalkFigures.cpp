#include "Comparison.h"
#include "DiscFolder.h"
#include "EndAndCheck.h"
#include "Figures.h"
#include "PlotData.h"
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
constexpr double kSecondsPerRound = 0.6; // enough for two walks of each candidate

// Also loads the directories into the kernel's caches.
std::string CountEntries(const std::string& root) {
    const std::filesystem::recursive_directory_iterator entries(root);
    return std::to_string(std::distance(begin(entries), end(entries)));
}

// Times whole processes. Adds the ratios to the limit to the plot data.
void CompareWalks(Comparison& comparison, PlotData& data, const std::string& where,
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

std::string DescribeTimes(const Comparison& comparison) {
    return comparison.DescribeTimes({"ours", "find", "limit"});
}

void MeasureFolder(Report& report, PlotData& data, const std::string& where,
                   const std::string& root) {
    Comparison comparison(15, Comparison::Thread::Main, kSecondsPerRound);
    CompareWalks(comparison, data, where, root);
    report.AddAtMost(where + ": over find", 0.90, comparison.Ratio("ours", "find"), "",
                     DescribeTimes(comparison));
    report.AddAtMost(where + ": over the limit", 1.15, comparison.Ratio("ours", "limit"), "", "");
}

void Check(VErrLink* err) {
    if (err != nullptr) {
        VErrLogAndCatch(&err);
        throw std::runtime_error("a build failed");
    }
}

// The work of a build thread between the acceptance of a request and its withdrawal.
void Build(const char* root) {
    FSCacheStatusReport* status = nullptr;
    Check(StartStatusReportingForFullFSCache(kChanger, root, &status));
    if (status->maximumStep != DiscFolder::kDiscs)
        throw std::runtime_error("a build counted too few or too many discs");
    Check(CacheFSDirectory(kChanger, root, 1, status));
    EndStatusReportingForFullFSCache(status);
}

void MeasureBuild(Report& report, const std::string& root) {
    Check(AddChangerToList(kChanger));
    testbed::TestRun run;
    run.StartServer();
    run.Server().Do("add-changer changer=A1 slots=50 drives=2");
    run.Server().Do("start");
    // On a worker thread, as in the daemon: on the main thread CacheFSDirectory() would read each
    // info file on another thread.
    Comparison comparison(15, Comparison::Thread::Worker, kSecondsPerRound);
    comparison.Add("walk", [&] { Check(CacheFSDirectory(kChanger, root.c_str(), 1, nullptr)); });
    comparison.Add("build", [&] { Build(root.c_str()); });
    comparison.Run();
    EndAndCheck(run);
    report.AddAtMost("full build with progress: over the walk alone", 1.35,
                     comparison.Ratio("build", "walk"), "",
                     comparison.DescribeTimes({"build", "walk"}));
}

void MeasureVolume(Report& report, PlotData& data, bool cached) {
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
        report.AddWithoutGoal(where + ": over the limit", overLimit, "", DescribeTimes(comparison));
    else
        report.AddAtMost(where + ": over the limit", 1.10, overLimit, "",
                         DescribeTimes(comparison));
    EndAndCheck(run);
}

} // namespace

void MeasureWalk(Report& report) {
    report.BeginSection(
        "The walk",
        "The tree has 20,000 directories of 10 files each, in 50 discs, six levels deep, and "
        "is in the kernel's caches; on FUSE it has 2,000 directories of the simulator. Whole "
        "processes are timed. The references are `find ROOT -size -0` and the limit: a loop "
        "that only calls openat, getdents64 with a buffer of 256 KiB, and fstatat.");
    PlotData data({"where", "ours", "low", "high", "find", "low", "high"});
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
    report.ShowPicture("walk.svg", "The walk compared with find and with the limit");
}

} // namespace bench
