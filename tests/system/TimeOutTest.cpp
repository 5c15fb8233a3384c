#include "SystemTest.h"
#include "tests/unit/support/Matchers.h"

namespace {

constexpr const char* kMessages = "ChangerServerMessages";
constexpr const char* kStatus = "ChangerServerSetClientStatus";
constexpr const char* kTimedOut = "timeout waiting for reply from changer server";

// The daemon's time-outs in real time: 30 seconds for a reply, 10 for media roots.
using SlowTimeOutTest = SystemTest;

TEST_F(SlowTimeOutTest, MountWithoutReplyTimesOutAndTheDiscIsPickedAgain) {
    Begin();
    Do("fault on=\"mount disc\" do=silence");
    IdentifyNewDisc(0);
    AwaitLog(LinksOfFailedMount(kTimedOut, 1004));
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "withdraw 0",
                                             "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
}

TEST_F(SlowTimeOutTest, MalformedReplyIsLoggedAndTheRequestTimesOut) {
    Begin();
    Do("fault on=\"mount disc\" do=signature act=no");
    IdentifyNewDisc(0);
    AwaitLog({Link(kMessages, "[A-Za-z]+", "invalid message header on data received"),
              Link(kMessages, "ServerMessageSocketCallBack", "fail handle message socket data")});
    AwaitLog(LinksOfFailedMount(kTimedOut, 1004));
    AwaitIdentification(0);
}

TEST_F(SlowTimeOutTest, ChangerWhoseStatusCannotBeClearedIsAddedByALaterNotification) {
    run_.StartServer();
    Do("fault on=\"set client status\" do=silence");
    Do("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Do("start");
    run_.StartDaemon();
    AwaitChangerAdded();
    AwaitLog(LinksOfChain(
        1004,
        {{kMessages, "GetMessageReplyErr", kTimedOut},
         {kStatus, "ChangerServerSetClientStatus", "fail SendMessageToChangerServer"},
         {kStatus, "ChangerServerClearClientStatus", "fail ChangerServerSetClientStatus"},
         {"ChangerFSCacheThread", "ResetStatusReporting", "fail ChangerServerClearClientStatus"},
         {"MediaIdManager", "HandleAddedChangers", "fail ResetStatusReporting"},
         {"MediaIdManager", "ChangerInfoNotificationCallBack",
          "fail handle added changers for changer at index 0"}}));
    AwaitChangerAdded();
}

TEST_F(SlowTimeOutTest, DiscWhoseMediaRootNeverAppearsIsEjected) {
    Begin("slots=4 drives=1 appear=600000");
    ExpectIdentification(0);
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
}

// The worker still waits for the media root, and the server refuses to eject an unknown disc.
TEST_F(SlowTimeOutTest, DiscRemovedBeforeItsMediaRootAppearsFailsTheEject) {
    Begin("slots=4 drives=1 appear=600000");
    PutDisc(0);
    const int identified = Server().Await("identified").number;
    Server().Await("root-listing",
                   [&](const testbed::Event& listing) { return listing.number > identified; });
    Do("take changer=5000C500ABCD00A1 slot=0");
    SkipLogUntil(Link("MediaIdThread", "RunMediaIdThread",
                      "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem 0 ") +
                 ".*");
    SkipLogUntil(kWorkerGaveUp);
}

} // namespace
