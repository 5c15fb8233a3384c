#include "SystemTest.h"

#include <gmock/gmock.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kMessages = "ChangerServerMessages";

// What the daemon waits for in real time: replies for 30 seconds, media roots for 10.
class SlowTimeOutTest : public SystemTest {
protected:
    void AwaitLogOfTimedOutMount() {
        AwaitLogOfFailedMount("timeout waiting for reply from changer server", 1004);
    }
};

TEST_F(SlowTimeOutTest, MountWithoutReplyTimesOutAndTheDiscIsPickedAgain) {
    Begin();
    Tell("fault on=\"mount disc\" do=silence");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLogOfTimedOutMount();
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "withdraw 0",
                                             "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
}

TEST_F(SlowTimeOutTest, MalformedReplyIsLoggedAndTheRequestTimesOut) {
    Begin();
    Tell("fault on=\"mount disc\" do=signature act=no");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLog({Link(kMessages, "[A-Za-z]+", "invalid message header on data received"),
              Link(kMessages, "ServerMessageSocketCallBack", "fail handle message socket data")});
    AwaitLogOfTimedOutMount();
    AwaitIdentification(0);
}

TEST_F(SlowTimeOutTest, ChangerWhoseStatusCannotBeClearedIsAddedByALaterNotification) {
    run_.StartServer();
    Tell("fault on=\"set client status\" do=silence");
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Tell("start");
    run_.StartDaemon();
    AwaitChangerAdded();
    AwaitLog({Link(kMessages, "GetMessageReplyErr",
                   "timeout waiting for reply from changer server (VErrCode = 1004)"),
              Link("ChangerServerSetClientStatus", "ChangerServerSetClientStatus",
                   "fail SendMessageToChangerServer (VErrCode = 1004)"),
              Link("ChangerServerSetClientStatus", "ChangerServerClearClientStatus",
                   "fail ChangerServerSetClientStatus (VErrCode = 1004)"),
              Link("ChangerFSCacheThread", "ResetStatusReporting",
                   "fail ChangerServerClearClientStatus (VErrCode = 1004)"),
              Link("MediaIdManager", "HandleAddedChangers",
                   "fail ResetStatusReporting (VErrCode = 1004)"),
              Link("MediaIdManager", "ChangerInfoNotificationCallBack",
                   "fail handle added changers for changer at index 0 (VErrCode = 1004)")});
    AwaitChangerAdded();
}

TEST_F(SlowTimeOutTest, DiscWhoseMediaRootNeverAppearsIsEjected) {
    Begin("slots=4 drives=1 appear=600000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
}

// Its media root never shows any more, and the server knows nothing of it when it is to go back.
TEST_F(SlowTimeOutTest, DiscRemovedBeforeItsMediaRootAppearsFailsTheEject) {
    Begin("slots=4 drives=1 appear=600000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    const int identified = Server().Await("identified").number;
    Server().Await("root-listing",
                   [&](const testbed::Event& listing) { return listing.number > identified; });
    Tell("take changer=5000C500ABCD00A1 slot=0");
    SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                 "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem 0 .*");
    SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                 "fail ChangerServerRequestChangerIdentification .*");
}

} // namespace
