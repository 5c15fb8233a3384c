#include "SystemTest.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using testbed::Event;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

constexpr const char* kMessages = "ChangerServerMessages";
constexpr const char* kStatus = "ChangerServerSetClientStatus";
constexpr const char* kBuild = "ChangerFSCacheThread";

class BuildTest : public SystemTest {
protected:
    // Discs that the daemon leaves alone until the build.
    void PutIdentifiedDiscs(int count, const std::string& content = "directories=5 depth=3") {
        for (int slot = 0; slot < count; ++slot) {
            Tell("put changer=5000C500ABCD00A1 slot=" + std::to_string(slot) + " identified=yes " +
                 content);
        }
    }

    void AwaitStatus(const std::string& step) {
        Server().Await("status", {{"client", "trayprobed"}, {"current", step}});
    }

    std::vector<std::string> UncachedDirectories() {
        std::vector<std::string> uncached;
        for (const Event& line : Tell("show changer=5000C500ABCD00A1 directories=yes"))
            if (line.kind == "directory" && line["cached"] == "no")
                uncached.push_back(line["slot"] + line["path"]);
        return uncached;
    }
};

TEST_F(BuildTest, EveryDirectoryIsListedAndEachDiscIsOneStep) {
    Begin();
    PutIdentifiedDiscs(3);
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw changer", "status 0/0",
                                             "status 0/3", "status 1/3", "status 2/3", "status 3/3",
                                             "clear status", "withdraw changer"));
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
    EXPECT_THAT(Server().AllSoFar("open"), IsEmpty()) << "files are never opened";
}

TEST_F(BuildTest, StatusOfABuildHasTheDaemonsClientName) {
    Begin();
    PutIdentifiedDiscs(1);
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    const auto reports =
        Server().AllSoFar("request", {{"command", "set client status"},
                                      {"message", "Building changer directory cache"}});
    ASSERT_EQ(reports.size(), 3U);
    EXPECT_TRUE(reports[2].Has({{"client-name", "trayprobed"},
                                {"changer", "5000C500ABCD00A1"},
                                {"current-step", "1"},
                                {"maximum-step", "1"},
                                {"abort-requested", "no"}}));
}

TEST_F(BuildTest, ChangerWithoutDiscsReportsStatusZeroOfZero) {
    Begin();
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw changer", "status 0/0",
                                             "status 0/0", "clear status", "withdraw changer"));
}

TEST_F(BuildTest, BuildRequestDuringABuildStartsNoSecondBuild) {
    Begin("slots=4 drives=1 moving=200");
    PutIdentifiedDiscs(3);
    Tell("identify changer=5000C500ABCD00A1");
    AwaitStatus("0");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitStatus("1");
    Tell("identify changer=5000C500ABCD00A1 value=no");
    AwaitEndOfBuild();
    EXPECT_EQ(Server().AllSoFar("request", {{"current-step", "3"}}).size(), 1U);
}

TEST_F(BuildTest, AbortEndsTheBuildWithoutLogAndTheNextBuildIsComplete) {
    Begin("slots=4 drives=1 moving=300");
    PutIdentifiedDiscs(4);
    Tell("identify changer=5000C500ABCD00A1");
    AwaitStatus("1");
    Tell("abort changer=5000C500ABCD00A1 client=trayprobed");
    AwaitEndOfBuild();
    EXPECT_FALSE(UncachedDirectories().empty());
    Tell("timing changer=5000C500ABCD00A1 moving=0");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
}

TEST_F(BuildTest, BuildOfAnUnmountedFileSystemEndsWithoutStatus) {
    Begin();
    PutIdentifiedDiscs(1);
    Tell("unmount changer=5000C500ABCD00A1");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitWithdrawalForChanger(0);
    AwaitServedRequest(0);
    EXPECT_THAT(Server().AllSoFar("request", {{"message", "Building changer directory cache"}}),
                IsEmpty());
}

TEST_F(BuildTest, SymbolicLinksOnADiscAreNotFollowed) {
    std::filesystem::create_directories("/tmp/content/real/inside");
    std::filesystem::create_directory_symlink("real", "/tmp/content/link");
    std::ofstream("/tmp/content/file") << "text";
    Begin();
    PutIdentifiedDiscs(1, "folder=/tmp/content");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    ASSERT_TRUE(std::filesystem::is_symlink("/tmp/carousel/disc-0/link"));
    std::vector<std::string> listed;
    for (const Event& listing : Server().AllSoFar("listing"))
        listed.push_back(listing["path"]);
    EXPECT_THAT(listed, UnorderedElementsAre("/", "/real", "/real/inside"));
}

TEST_F(BuildTest, RefusedFirstStatusPreventsTheBuild) {
    Begin();
    PutIdentifiedDiscs(1);
    Tell("fault on=\"set client status\" do=error code=1050 text=no");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitLog({Link(kMessages, "GetMessageReplyErr", "no (VErrCode = 1050)"),
              Link(kStatus, "ChangerServerSetClientStatus",
                   "fail SendMessageToChangerServer (VErrCode = 1050)"),
              Link(kBuild, "ReportFSCacheClientStatus",
                   "fail ChangerServerSetClientStatus (VErrCode = 1050)"),
              Link(kBuild, "StartStatusReportingForFullFSCache",
                   "fail ReportFSCacheClientStatus (VErrCode = 1050)"),
              Link(kBuild, "RunChangerFSCacheThread",
                   "fail StartStatusReportingForFullFSCache (VErrCode = 1050)")});
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
}

TEST_F(BuildTest, RefusedStatusEndsARunningBuild) {
    Begin("slots=4 drives=1 moving=300");
    PutIdentifiedDiscs(3);
    Tell("identify changer=5000C500ABCD00A1");
    Server().Await("request", {{"command", "set client status"}, {"maximum-step", "3"}});
    Server().Await("listing", {{"cached", "no"}});
    Tell("fault on=\"set client status\" do=error code=1050 text=no");
    AwaitLog({Link(kMessages, "GetMessageReplyErr", "no (VErrCode = 1050)"),
              Link(kStatus, "ChangerServerSetClientStatus",
                   "fail SendMessageToChangerServer (VErrCode = 1050)"),
              Link(kBuild, "ReportFSCacheClientStatus",
                   "fail ChangerServerSetClientStatus (VErrCode = 1050)"),
              Link(kBuild, "StatusReportingExitMedia",
                   "fail ReportFSCacheClientStatus (VErrCode = 1050)"),
              Link(kBuild, "CacheFSDirectory", "fail StatusReportingExitMedia (VErrCode = 1050)"),
              Link(kBuild, "RunChangerFSCacheThread", "fail CacheFSDirectory (VErrCode = 1050)")});
    EXPECT_EQ(RequestsSoFar().back(), "withdraw changer");
}

TEST_F(BuildTest, RefusedFirstWithdrawalSkipsTheWalk) {
    Begin();
    PutIdentifiedDiscs(1);
    Tell("fault on=\"request identification\" do=error code=1050 text=no");
    Tell("identify changer=5000C500ABCD00A1");
    AwaitLog(
        {Link(kMessages, "GetMessageReplyErr", "no (VErrCode = 1050)"),
         Link("ChangerServerRequestIdentification", "ChangerServerRequest[A-Za-z]+Identification",
              "fail SendMessageToChangerServer (VErrCode = 1050)"),
         Link(kBuild, "RunChangerFSCacheThread",
              "fail ChangerServerRequestChangerIdentification (VErrCode = 1050)")});
    const int refusal = Server().Await("fault").number;
    const int closing = Server()
                            .Await("request",
                                   [refusal](const Event& request) {
                                       return request.number > refusal &&
                                              request["command"] == "request identification";
                                   })
                            .number;
    // What was told before the closing request may reach the daemon later, and start a build anew.
    for (const Event& listing : Server().AllSoFar("listing"))
        EXPECT_GT(listing.number, closing);
}

TEST_F(BuildTest, DiscRemovedDuringTheBuildIsLoggedAndTheBuildContinues) {
    Begin("slots=4 drives=1 moving=500");
    PutIdentifiedDiscs(3, "directories=0");
    Tell("identify changer=5000C500ABCD00A1");
    const Event first = Server().Await("listing", {{"cached", "no"}});
    Tell("take changer=5000C500ABCD00A1 slot=" + first["slot"]);
    AwaitEndOfBuild();
    AwaitLog({Link(kBuild, "CacheFSDirectory", "fail scandir on \"/tmp/carousel/disc-") + ".*"});
    EXPECT_EQ(RequestsSoFar().back(), "withdraw changer");
}

} // namespace
