#include "SystemTest.h"

#include <gmock/gmock.h>
#include <sys/mount.h>

using testing::Contains;

namespace {

class ReconnectTest : public SystemTest {
protected:
    void AwaitSubscriber() {
        Server().Await("subscriber", {{"connected", "yes"}});
    }
    void ExpectIdentificationWorks() {
        Tell("put changer=5000C500ABCD00A1 slot=0");
        AwaitIdentification(0);
        EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
    }
};

TEST_F(ReconnectTest, ServerMayStartAfterTheDaemon) {
    run_.StartDaemon();
    StartServer();
    AwaitSubscriber();
    AwaitChangerTakenUp();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, ServerWithoutSocketsIsTriedAgainQuietly) {
    run_.StartServer();
    run_.StartDaemon();
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Tell("start");
    AwaitSubscriber();
    AwaitChangerTakenUp();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, ServerThatClosesItsSocketsIsFoundAgain) {
    Begin();
    for (int round = 0; round < 3; ++round) {
        AwaitSubscriber();
        Tell("stop");
        Tell("start");
    }
    AwaitSubscriber();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, RestartedServerIsFoundUnderItsNewProcessId) {
    Begin();
    run_.KillServer();
    ASSERT_EQ(umount2("/tmp/carousel", MNT_DETACH), 0);
    StartServer();
    AwaitSubscriber();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, FrameThatTheServerDidNotFinishIsForgotten) {
    Begin();
    Tell("pulse every=0");
    Tell("notify hex=676953680000"
         "0c00"
         "ff000000"
         "3c3f786d6c");
    Tell("stop");
    Tell("start");
    AwaitSubscriber();
    AwaitSubscriber();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, ServerThatDiesDuringAnIdentificationIsLogged) {
    Begin();
    Tell("fault on=\"mount disc\" do=silence");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    run_.KillServer();
    AwaitLog({Link("ChangerServerMessages", "GetMessageReplyErr",
                   "lost connection with changer server (VErrCode = 1005)"),
              Link("ChangerServerMountDisc", "ChangerServerMountDiscInDrive",
                   "fail send message to changer server (VErrCode = 1005)"),
              Link("ChangerServerMountDisc", "ChangerServerMountDisc",
                   "fail mount disc to drive index kNoDataTransferElem (VErrCode = 1005)"),
              Link("MediaIdThread", "RunMediaIdThread",
                   "Fail ChangerServerMountDisc(5000C500ABCD00A1, 0) (VErrCode = 1005)")});
    // How far the next request comes depends on how far the kernel has come with ending the server.
    SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                 "fail ChangerServerRequestChangerIdentification.*");
}

} // namespace
