#include "SystemTest.h"
#include "tests/unit/support/Matchers.h"

#include <algorithm>
#include <fstream>
#include <string>

namespace {

class IdentificationFailureTest : public SystemTest {
protected:
    void SetUp() override {
        Begin();
    }
    void AwaitLogOfRefusedWithdrawal(const std::string& text, int code = 1050) {
        AwaitLog(LinksOfChain(
            code, {{"ChangerServerMessages", "GetMessageReplyErr", text},
                   {"ChangerServerRequestIdentification", "ChangerServerRequestMediaIdentification",
                    "fail SendMessageToChangerServer"},
                   {"MediaIdThread", "RunMediaIdThread",
                    "fail ChangerServerRequestChangerIdentification"}}));
    }
    // Begins the identification of a new disc in slot 0, whose mount takes two seconds.
    void BeginLateMount() {
        Do("fault on=\"mount disc\" do=late after=2000");
        PutDisc(0);
        Server().Await("request", {{"command", "mount disc"}});
    }

    // Sends this notification, and stops the server's own until the command "resume".
    void NotifyInsteadOfTheServer(const std::string& pair) {
        Do("pause");
        std::ofstream("/tmp/notification")
            << "<plist version=\"1.0\"><dict>" << pair << "</dict></plist>";
        Do("notify payload=/tmp/notification");
    }
};

TEST_F(IdentificationFailureTest, FailedMountIsFollowedByNoEjectAndTheDiscIsPickedAgain) {
    Do("fault on=\"mount disc\" do=error code=1050 text=\"robot jammed\"");
    IdentifyNewDisc(0);
    AwaitLog(LinksOfFailedMount("robot jammed", 1050));
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "withdraw 0",
                                             "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
}

TEST_F(IdentificationFailureTest, FailedEjectIsFollowedByTheWithdrawal) {
    Do("fault on=\"eject disc\" do=error code=1050 text=\"robot jammed\"");
    IdentifyNewDisc(0);
    AwaitLogOfFailedEject("robot jammed", 1050);
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, DiscIsNeverPickedAgainAfterAFailedFirstWithdrawal) {
    Do("fault on=\"request identification\" do=error code=1050 text=no");
    PutDisc(0);
    AwaitLogOfRefusedWithdrawal("no");
    IdentifyNewDisc(1);
    AwaitServedRequest(1);
    EXPECT_THAT(RequestsSoFar(), Not(Contains("mount 0")));
}

TEST_F(IdentificationFailureTest, DiscIsNeverPickedAgainAfterAFailedSecondWithdrawal) {
    BeginLateMount();
    Do("fault on=\"request identification\" do=error code=1050 text=no");
    AwaitIdentification(0);
    AwaitLogOfRefusedWithdrawal("no");
    Do("identify changer=5000C500ABCD00A1 slot=0");
    IdentifyNewDisc(1);
    AwaitServedRequest(1);
    EXPECT_EQ(std::ranges::count(RequestsSoFar(), "mount 0"), 1);
}

TEST_F(IdentificationFailureTest, ErrorReplyWithoutTextIsLoggedWithTheDefaultText) {
    Do("fault on=\"request identification\" do=error code=1050");
    PutDisc(0);
    AwaitLogOfRefusedWithdrawal("an error has occurred");
}

TEST_F(IdentificationFailureTest, PercentSignsInTheServersErrorTextAreNotFormatted) {
    Do("fault on=\"request identification\" do=error code=1050 text=\"100%% of %s%n%99999999d\"");
    PutDisc(0);
    AwaitLogOfRefusedWithdrawal("100% of %s%n%99999999d");
}

TEST_F(IdentificationFailureTest, ConnectionClosedWithoutReplyFailsTheMount) {
    Do("fault on=\"mount disc\" do=close");
    IdentifyNewDisc(0);
    AwaitLog(LinksOfFailedMount("lost connection with changer server", 1005));
    AwaitIdentification(0);
}

// The walk looks up the kind of the disc in a list without the changer, which no real server sends.
TEST_F(IdentificationFailureTest, FailedWalkIsFollowedByTheEject) {
    BeginLateMount();
    NotifyInsteadOfTheServer("<key>changer info</key><array/>");
    AwaitIdentification(0);
    AwaitLog(LinksOfChain(
        20, {{"MediaIdState", "GetChangerInfoDict", "fail find changer GUID 5000C500ABCD00A1"},
             {"MediaIdState", "MediaHasMountablePartitions", "fail GetChangerInfoDict"},
             {"ChangerFSCacheThread", "RunFSCache", "fail MediaHasMountablePartitions"},
             {"MediaIdThread", "RunMediaIdThread", "fail RunFSCache(5000C500ABCD00A1, 0)"}}));
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
    Do("resume");
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, WorkerOfAChangerThatLeftTheListEndsWithoutLog) {
    BeginLateMount();
    NotifyInsteadOfTheServer("<key>changer list</key><array/>");
    AwaitIdentification(0);
    Do("resume");
    AwaitChangerAdded();
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, RequestsOfARemovedChangersWorkerAreRefusedAndLogged) {
    BeginLateMount();
    Server().Await("mounted", {{"slot", "0"}});
    Do("remove-changer changer=5000C500ABCD00A1");
    AwaitLogOfFailedEject("no such changer", 1032);
    AwaitLogOfRefusedWithdrawal("no such changer", 1032);
}

// The worker outlives the changer and continues with the new one of the same GUID.
TEST_F(IdentificationFailureTest, ChangerRemovedAndAddedAgainDuringAnIdentificationIsHandled) {
    BeginLateMount();
    Server().Await("mounted", {{"slot", "0"}});
    Do("remove-changer changer=5000C500ABCD00A1");
    Do("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    AwaitChangerAdded();
    IdentifyNewDisc(0);
}

} // namespace
