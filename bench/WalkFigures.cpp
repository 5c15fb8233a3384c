#include "Figures.h"

#include "Contest.h"
#include "Data.h"
#include "DiscFolder.h"
#include "InOrder.h"
#include "Program.h"

#include "stage/PrivateWorld.h"
#include "stage/Scene.h"
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
void CompareWalks(Contest& contest, Data& data, const std::string& where, const std::string& root) {
    const std::string entries = CountEntries(root);
    contest.Add("ours", [&] { RunProgram({stage::ProgramPath("walk-by-daemon"), root, entries}); });
    contest.Add("limit", [&] { RunProgram({stage::ProgramPath("walk-bare"), root, entries}); });
    contest.Add("find", [&] { RunProgram({"find", root, "-size", "-0"}); });
    contest.Run();
    const Spread ours = contest.Ratio("ours", "limit");
    const Spread find = contest.Ratio("find", "limit");
    data.Add(where, {ours.median, ours.low, ours.high, find.median, find.low, find.high});
}

std::string Beside(const Contest& contest) {
    return contest.Tell({"ours", "find", "limit"});
}

void MeasureFolder(Report& report, Data& data, const std::string& where, const std::string& root) {
    Contest contest(15, Contest::Thread::Main, kSecondsPerRound);
    CompareWalks(contest, data, where, root);
    report.AddAtMost(where + ": over find", 0.90, contest.Ratio("ours", "find"), "",
                     Beside(contest));
    report.AddAtMost(where + ": over the limit", 1.15, contest.Ratio("ours", "limit"), "", "");
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
    stage::Scene scene;
    scene.StartServer();
    scene.Server().Do("add-changer changer=A1 slots=50 drives=2");
    scene.Server().Do("start");
    // As in the daemon: on the main thread, CacheFSDirectory would have each info file read by
    // another thread.
    Contest contest(15, Contest::Thread::Another, kSecondsPerRound);
    contest.Add("walk", [&] { Check(CacheFSDirectory(kChanger, root.c_str(), 1, nullptr)); });
    contest.Add("build", [&] { Build(root.c_str()); });
    contest.Run();
    EndInOrder(scene);
    report.AddAtMost("full build with progress: over the walk alone", 1.35,
                     contest.Ratio("build", "walk"), "", contest.Tell({"build", "walk"}));
}

void MeasureVolume(Report& report, Data& data, bool cached) {
    stage::Scene scene;
    scene.StartServer();
    scene.Server().Do("add-changer changer=A1 slots=1 drives=1 mount=/tmp/carousel kernel-cache=" +
                      std::string(cached ? "yes" : "no"));
    scene.Server().Do("put changer=A1 slot=0 directories=2000 files=10 depth=6 identified=yes");
    Contest contest(9);
    const std::string where = std::string("FUSE, kernel caching ") + (cached ? "on" : "off");
    CompareWalks(contest, data, where, "/tmp/carousel/disc-0");
    const Spread overLimit = contest.Ratio("ours", "limit");
    if (cached)
        report.AddUnjudged(where + ": over the limit", overLimit, "", Beside(contest));
    else
        report.AddAtMost(where + ": over the limit", 1.10, overLimit, "", Beside(contest));
    EndInOrder(scene);
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
        const DiscFolder folder(stage::ProgramPath("bench-discs"), kChanger);
        MeasureFolder(report, data, "the disk's file system", folder.Path());
    }
    MeasureVolume(report, data, false);
    MeasureVolume(report, data, true);
    data.Write("walk");
    report.ShowPicture("walk.svg", "The walk beside find and the limit");
}

} // namespace bench
