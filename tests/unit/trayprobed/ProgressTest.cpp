/* The progress that a full build reports to the server. */

#include "MountedChanger.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

class Progress : public MountedChanger {
protected:
    FSCacheStatusReport* Start() const {
        FSCacheStatusReport* report = nullptr;
        EXPECT_EQ(
            TakeChain(StartStatusReportingForFullFSCache(kChanger, tree_.Root().c_str(), &report)),
            Chain());
        return report;
    }
    // The commands of a whole build, without listings.
    std::vector<std::string> Build() const {
        FSCacheStatusReport* report = Start();
        EXPECT_EQ(Walk(1, report), Chain());
        EndStatusReportingForFullFSCache(report);
        return Commands();
    }
    static std::vector<std::string> Commands() {
        std::vector<std::string> commands = Journal::Take();
        std::erase_if(commands, [](const std::string& entry) { return entry.starts_with("list"); });
        return commands;
    }
};

TEST_F(Progress, WithoutMediaRootsZeroOfZeroIsShownTwice) {
    tree_.MakeDirectory("a");
    EXPECT_THAT(Build(), ElementsAre(Show(0, 0), Show(0, 0), kClear));
}

TEST_F(Progress, EachMediaRootIsAStep) {
    MakeMediaRoot("one");
    MakeMediaRoot("folder/two");
    MakeMediaRoot("folder/three");
    EXPECT_THAT(Build(),
                ElementsAre(Show(0, 0), Show(0, 3), Show(1, 3), Show(2, 3), Show(3, 3), kClear));
}

TEST_F(Progress, MediaRootInsideAnotherIsNoStep) {
    MakeMediaRoot("outer");
    MakeMediaRoot("outer/a/inner");
    EXPECT_THAT(Build(), ElementsAre(Show(0, 0), Show(0, 1), Show(1, 1), kClear));
}

// A disc is inserted between the count and the walk.
TEST_F(Progress, StepMayExceedTheMaximum) {
    MakeMediaRoot("one");
    FakeCommands::OnCommand([&](std::string_view command) {
        if (command == Show(0, 1))
            MakeMediaRoot("two");
    });
    EXPECT_THAT(Build(), ElementsAre(Show(0, 0), Show(0, 1), Show(1, 1), Show(2, 1), kClear));
}

TEST_F(Progress, FirstReportIsSentBeforeTheCount) {
    FSCacheStatusReport* report = Start();
    EXPECT_THAT(Journal::Take(), ElementsAre(Show(0, 0), "list .", Show(0, 0)));
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->changerGUID, kChanger);
    EXPECT_STREQ(report->message, "Building changer directory cache");
    EndStatusReportingForFullFSCache(report);
}

TEST_F(Progress, FailedReportEndsTheStart) {
    FSCacheStatusReport* report = nullptr;
    for (const int nth : {1, 2}) {
        FakeCommands::Fail("show", nth);
        report = reinterpret_cast<FSCacheStatusReport*>(this);
        const Chain chain =
            TakeChain(StartStatusReportingForFullFSCache(kChanger, tree_.Root().c_str(), &report));
        ASSERT_EQ(chain.size(), 3U);
        EXPECT_EQ(chain[1],
                  (RaisedLink{"fail ChangerServerSetClientStatus", "ReportFSCacheClientStatus",
                              kWalkSource, kVErrCodeConnectionLost}));
        EXPECT_EQ(chain[2], (RaisedLink{"fail ReportFSCacheClientStatus",
                                        "StartStatusReportingForFullFSCache", kWalkSource,
                                        kVErrCodeConnectionLost}));
        EXPECT_EQ(report, nullptr);
    }
    // Nothing is counted after the first report has failed.
    EXPECT_THAT(Journal::Take(), ElementsAre(Show(0, 0), Show(0, 0), "list .", Show(0, 0)));
}

TEST_F(Progress, WithoutMemoryNothingIsShown) {
    FSCacheStatusReport* report = nullptr;
    EXPECT_EQ(ChainWithoutMemory(
                  [&] { return StartStatusReportingForFullFSCache(kChanger, "/", &report); }),
              (Chain{{"fail malloc", "StartStatusReportingForFullFSCache", kWalkSource}}));
    EXPECT_EQ(report, nullptr);
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(Progress, DirectoryThatCannotBeListedIsLoggedAndNotCounted) {
    MakeMediaRoot("one");
    seams_.listingErrors["."] = EIO;
    FSCacheStatusReport* report = Start();
    EXPECT_THAT(Commands(), ElementsAre(Show(0, 0), Show(0, 0)));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(ListingFailure("", EIO, "CountMediaRootDirectories")));
    EndStatusReportingForFullFSCache(report);
}

TEST_F(Progress, FailedCountIsLoggedAndItsResultSoFarIsReported) {
    MakeMediaRoot("one");
    tree_.MakeDirectory("folder");
    seams_.failingMediaTest = "./folder";
    FSCacheStatusReport* report = Start();
    // The directories are listed in either order.
    EXPECT_THAT(Commands(), ElementsAre(Show(0, 0), testing::AnyOf(Show(0, 0), Show(0, 1))));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(": fail on purpose"),
                            "ChangerFSCacheThread:123, CountMediaRootDirectories: fail "
                            "IsDirectoryMediaRootOfChangerFileSystem",
                            "ChangerFSCacheThread:123, StartStatusReportingForFullFSCache: fail "
                            "CountMediaRootDirectories"));
    EndStatusReportingForFullFSCache(report);
}

TEST_F(Progress, OnlyTheExitFromTheOutermostMediumIsReported) {
    FSCacheStatusReport report = {kChanger, "m", 65535, 3, 0};
    EXPECT_EQ(StatusReportingEnterMedia(&report), nullptr);
    EXPECT_EQ(StatusReportingEnterMedia(&report), nullptr);
    EXPECT_EQ(report.mediaDepth, 2);
    EXPECT_EQ(StatusReportingExitMedia(&report), nullptr);
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_EQ(StatusReportingExitMedia(&report), nullptr);
    EXPECT_EQ(report.mediaDepth, 0);
    EXPECT_THAT(Journal::Take(), ElementsAre("show 9EDCBA9876543210 trayprobed \"m\" 0/3"));
}

// Every report has "abort requested" false, which may reset a user's abort.
TEST_F(Progress, ReportNeverRequestsAnAbort) {
    SetAbort(1);
    const FSCacheStatusReport report = {kChanger, "m", 1, 2, 0};
    EXPECT_EQ(ReportFSCacheClientStatus(&report), nullptr);
    EXPECT_THAT(Journal::Take(), ElementsAre("show 9EDCBA9876543210 trayprobed \"m\" 1/2"));
}

// The server's status may still refer to the report.
TEST_F(Progress, ReportWhoseStatusCannotBeClearedIsNotFreed) {
    FSCacheStatusReport* report = Start();
    FakeCommands::Fail("clear");
    EndStatusReportingForFullFSCache(report);
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine,
                            "ChangerFSCacheThread:123, ResetStatusReporting: fail "
                            "ChangerServerClearClientStatus (VErrCode = 1005)",
                            "ChangerFSCacheThread:123, EndStatusReportingForFullFSCache: fail "
                            "ResetStatusReporting (VErrCode = 1005)"));
    EXPECT_EQ(report->changerGUID, kChanger);
    free(report);
}

TEST_F(Progress, ResetClearsTheStatusOfTheDaemon) {
    EXPECT_EQ(ResetStatusReporting(kChanger), nullptr);
    EXPECT_THAT(Journal::Take(), ElementsAre(kClear));
    EXPECT_STREQ(k_fsCacheThreadStatusClient, "trayprobed");
}

} // namespace
