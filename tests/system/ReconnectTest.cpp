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

TEST_F(ReconnectTest, ServerStartedAfterTheDaemonIsFound) {
    run_.StartDaemon();
    StartServer();
    AwaitSubscriber();
    AwaitChangerAdded();
    ExpectIdentificationWorks();
}

TEST_F(ReconnectTest, ServerWithoutSocketsIsRetriedWithoutLog) {
    run_.StartServer();
    run_.StartDaemon();
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Tell("start");
    AwaitSubscriber();
    AwaitChangerAdded();
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

TEST_F(ReconnectTest, IncompleteFrameIsDiscardedWhenTheServerRestartsItsSockets) {
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

TEST_F(ReconnectTest, ServerKilledDuringAnIdentificationIsLogged) {
    Begin();
    Tell("fault on=\"mount disc\" do=silence");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    run_.KillServer();
    AwaitLogOfFailedMount("lost connection with changer server", 1005);
    // How far the next request comes depends on how far the kernel has come with ending the server.
    SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                 "fail ChangerServerRequestChangerIdentification.*");
}

} // namespace
