#include "SystemTest.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

constexpr const char* kMessages = "ChangerServerMessages";
constexpr const char* kRequest = "ChangerServerRequestIdentification";
constexpr const char* kWorker = "MediaIdThread";

class IdentificationFailureTest : public SystemTest {
protected:
    // The lines of a withdrawal that the server refuses.
    void AwaitLogOfRefusedWithdrawal(const std::string& text, int code = 1050) {
        const std::string suffix = " (VErrCode = " + std::to_string(code) + ")";
        AwaitLog({Link(kMessages, "GetMessageReplyErr", text + suffix),
                  Link(kRequest, "ChangerServerRequestMediaIdentification",
                       "fail SendMessageToChangerServer" + suffix),
                  Link(kWorker, "RunMediaIdThread",
                       "fail ChangerServerRequestChangerIdentification" + suffix)});
    }

    // From now on the daemon hears this, and nothing else until the server's "resume".
    void NotifyInsteadOfTheServer(const std::string& pair) {
        Tell("pause");
        std::ofstream("/tmp/notification")
            << "<plist version=\"1.0\"><dict>" << pair << "</dict></plist>";
        Tell("notify payload=/tmp/notification");
    }
};

TEST_F(IdentificationFailureTest, FailedMountIsFollowedByNoEjectAndTheDiscIsPickedAgain) {
    Begin();
    Tell("fault on=\"mount disc\" do=error code=1050 text=\"robot jammed\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLogOfFailedMount("robot jammed", 1050);
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "withdraw 0",
                                             "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
}

TEST_F(IdentificationFailureTest, FailedEjectIsFollowedByTheWithdrawal) {
    Begin();
    Tell("fault on=\"eject disc\" do=error code=1050 text=\"robot jammed\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLogOfFailedEject("robot jammed", 1050);
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, DiscIsNeverPickedAgainAfterAFailedFirstWithdrawal) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050 text=no");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("no");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitServedRequest(1);
    EXPECT_THAT(RequestsSoFar(), Not(Contains("mount 0")));
}

TEST_F(IdentificationFailureTest, DiscIsNeverPickedAgainAfterAFailedSecondWithdrawal) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    Tell("fault on=\"request identification\" do=error code=1050 text=no");
    AwaitIdentification(0);
    AwaitLogOfRefusedWithdrawal("no");
    Tell("identify changer=5000C500ABCD00A1 slot=0");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitServedRequest(1);
    EXPECT_EQ(Server()
                  .AllSoFar("request", {{"command", "mount disc"}, {"storage-element-index", "0"}})
                  .size(),
              1U);
}

TEST_F(IdentificationFailureTest, ErrorReplyWithoutTextIsLoggedWithTheDefaultText) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("an error has occurred");
}

TEST_F(IdentificationFailureTest, PercentSignsInTheServersErrorTextAreNotFormatted) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050 text=\"100%% of %s%n%99999999d\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("100% of %s%n%99999999d");
}

TEST_F(IdentificationFailureTest, ConnectionClosedWithoutReplyFailsTheMount) {
    Begin();
    Tell("fault on=\"mount disc\" do=close");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLogOfFailedMount("lost connection with changer server", 1005);
    AwaitIdentification(0);
}

// A list of discs without the changer's, which no real server sends, leaves the walk without an
// answer to what kind of disc it has before it.
TEST_F(IdentificationFailureTest, FailedWalkIsFollowedByTheEject) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    NotifyInsteadOfTheServer("<key>changer info</key><array/>");
    AwaitIdentification(0);
    AwaitLog({Link("MediaIdState", "GetChangerInfoDict",
                   "fail find changer GUID 5000C500ABCD00A1 (VErrCode = 20)"),
              Link("MediaIdState", "MediaHasMountablePartitions",
                   "fail GetChangerInfoDict (VErrCode = 20)"),
              Link("ChangerFSCacheThread", "RunFSCache",
                   "fail MediaHasMountablePartitions (VErrCode = 20)"),
              Link(kWorker, "RunMediaIdThread",
                   "fail RunFSCache(5000C500ABCD00A1, 0) (VErrCode = 20)")});
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
    Tell("resume");
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, WorkerOfAChangerThatLeftTheListEndsWithoutLog) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    NotifyInsteadOfTheServer("<key>changer list</key><array/>");
    AwaitIdentification(0);
    Tell("resume");
    AwaitChangerAdded();
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, RequestsOfARemovedChangersWorkerAreRefusedAndLogged) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    Tell("remove-changer changer=5000C500ABCD00A1");
    AwaitLogOfFailedEject("no such changer", 1032);
    AwaitLogOfRefusedWithdrawal("no such changer", 1032);
}

// Its worker outlives the changer and takes up with the new one of the same GUID.
TEST_F(IdentificationFailureTest, ChangerRemovedAndAddedAgainDuringAnIdentificationIsHandled) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=1000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    Tell("remove-changer changer=5000C500ABCD00A1");
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    AwaitChangerAdded();
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
}

} // namespace
