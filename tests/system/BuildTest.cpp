#include "SystemTest.h"
#include "tests/unit/support/Matchers.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using testbed::Event;

namespace {

constexpr const char* kMessages = "ChangerServerMessages";
constexpr const char* kBuild = "ChangerFSCacheThread";

class BuildTest : public SystemTest {
protected:
    void PutIdentifiedDiscs(int count, const std::string& content = "directories=5 depth=3") {
        for (int slot = 0; slot < count; ++slot)
            PutDisc(slot, "identified=yes " + content);
    }

    void AwaitStatus(const std::string& step) {
        Server().Await("status", {{"client", "trayprobed"}, {"current", step}});
    }

    // The lines of a status report that the server refused, and those above it.
    void AwaitLogOfRefusedStatus(const std::vector<LoggedLink>& links) {
        AwaitLog(LinksOfChain(
            1050, {{kMessages, "GetMessageReplyErr", "no"},
                   {"ChangerServerSetClientStatus", "ChangerServerSetClientStatus",
                    "fail SendMessageToChangerServer"},
                   {kBuild, "ReportFSCacheClientStatus", "fail ChangerServerSetClientStatus"}}));
        AwaitLog(LinksOfChain(1050, links));
    }

    std::vector<std::string> UncachedDirectories() {
        std::vector<std::string> uncached;
        for (const Event& line : Do("show changer=5000C500ABCD00A1 directories=yes"))
            if (line.kind == "directory" && line["cached"] == "no")
                uncached.push_back(line["slot"] + line["path"]);
        return uncached;
    }
};

TEST_F(BuildTest, EveryDirectoryIsListedAndEachDiscIsOneStep) {
    Begin();
    PutIdentifiedDiscs(3);
    RunBuild();
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw changer", "status 0/0",
                                             "status 0/3", "status 1/3", "status 2/3", "status 3/3",
                                             "clear status", "withdraw changer"));
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
    EXPECT_THAT(Server().AllSoFar("open"), IsEmpty()) << "files are never opened";
}

TEST_F(BuildTest, StatusOfABuildHasTheDaemonsClientName) {
    Begin();
    PutIdentifiedDiscs(1);
    RunBuild();
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
    RunBuild();
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw changer", "status 0/0",
                                             "status 0/0", "clear status", "withdraw changer"));
}

TEST_F(BuildTest, BuildRequestDuringABuildStartsNoSecondBuild) {
    Begin("slots=4 drives=1 moving=200");
    PutIdentifiedDiscs(3);
    RequestBuild();
    AwaitStatus("0");
    RequestBuild();
    AwaitStatus("1");
    Do("identify changer=5000C500ABCD00A1 value=no");
    AwaitEndOfBuild();
    EXPECT_EQ(Server().AllSoFar("request", {{"current-step", "3"}}).size(), 1U);
}

TEST_F(BuildTest, AbortEndsTheBuildWithoutLogAndTheNextBuildIsComplete) {
    Begin("slots=4 drives=1 moving=300");
    PutIdentifiedDiscs(4);
    RequestBuild();
    AwaitStatus("1");
    Do("abort changer=5000C500ABCD00A1 client=trayprobed");
    AwaitEndOfBuild();
    EXPECT_FALSE(UncachedDirectories().empty());
    Do("timing changer=5000C500ABCD00A1 moving=0");
    RunBuild();
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
}

TEST_F(BuildTest, BuildOfAnUnmountedFileSystemEndsWithoutStatus) {
    Begin();
    PutIdentifiedDiscs(1);
    Do("unmount changer=5000C500ABCD00A1");
    RequestBuild();
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
    RunBuild();
    ASSERT_TRUE(std::filesystem::is_symlink("/tmp/carousel/disc-0/link"));
    std::vector<std::string> listed;
    for (const Event& listing : Server().AllSoFar("listing"))
        listed.push_back(listing["path"]);
    EXPECT_THAT(listed, UnorderedElementsAre("/", "/real", "/real/inside"));
}

TEST_F(BuildTest, RefusedFirstStatusPreventsTheBuild) {
    Begin();
    PutIdentifiedDiscs(1);
    Do("fault on=\"set client status\" do=error code=1050 text=no");
    RequestBuild();
    AwaitLogOfRefusedStatus(
        {{kBuild, "StartStatusReportingForFullFSCache", "fail ReportFSCacheClientStatus"},
         {kBuild, "RunChangerFSCacheThread", "fail StartStatusReportingForFullFSCache"}});
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
    RunBuild();
    EXPECT_THAT(UncachedDirectories(), IsEmpty());
}

TEST_F(BuildTest, RefusedStatusEndsARunningBuild) {
    Begin("slots=4 drives=1 moving=300");
    PutIdentifiedDiscs(3);
    RequestBuild();
    Server().Await("request", {{"command", "set client status"}, {"maximum-step", "3"}});
    Server().Await("listing", {{"cached", "no"}});
    Do("fault on=\"set client status\" do=error code=1050 text=no");
    AwaitLogOfRefusedStatus({{kBuild, "StatusReportingExitMedia", "fail ReportFSCacheClientStatus"},
                             {kBuild, "CacheFSDirectory", "fail StatusReportingExitMedia"},
                             {kBuild, "RunChangerFSCacheThread", "fail CacheFSDirectory"}});
    EXPECT_EQ(RequestsSoFar().back(), "withdraw changer");
}

TEST_F(BuildTest, RefusedFirstWithdrawalSkipsTheWalk) {
    Begin();
    PutIdentifiedDiscs(1);
    Do("fault on=\"request identification\" do=error code=1050 text=no");
    RequestBuild();
    AwaitLog(LinksOfChain(
        1050,
        {{kMessages, "GetMessageReplyErr", "no"},
         {"ChangerServerRequestIdentification", "ChangerServerRequest[A-Za-z]+Identification",
          "fail SendMessageToChangerServer"},
         {kBuild, "RunChangerFSCacheThread", "fail ChangerServerRequestChangerIdentification"}}));
    const int refusal = Server().Await("fault").number;
    const Event closing = Server().Await("request", [refusal](const Event& request) {
        return request.number > refusal && request["command"] == "request identification";
    });
    // A notification from before the closing request may arrive later and start another build.
    for (const Event& listing : Server().AllSoFar("listing"))
        EXPECT_GT(listing.number, closing.number);
}

TEST_F(BuildTest, DiscRemovedDuringTheBuildIsLoggedAndTheBuildContinues) {
    Begin("slots=4 drives=1 moving=500");
    PutIdentifiedDiscs(3, "directories=0");
    RequestBuild();
    const Event first = Server().Await("listing", {{"cached", "no"}});
    Do("take changer=5000C500ABCD00A1 slot=" + first["slot"]);
    AwaitEndOfBuild();
    AwaitLog({Link(kBuild, "CacheFSDirectory", "fail scandir on \"/tmp/carousel/disc-") + ".*"});
    EXPECT_EQ(RequestsSoFar().back(), "withdraw changer");
}

} // namespace
