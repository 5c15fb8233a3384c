#include "SystemTest.h"

namespace {

class ReconnectTest : public SystemTest {
protected:
    void AwaitSubscriber() {
        Server().Await("subscriber", {{"connected", "yes"}});
    }
};

TEST_F(ReconnectTest, ServerStartedAfterTheDaemonIsFound) {
    run_.StartDaemon();
    StartServer();
    AwaitSubscriber();
    AwaitChangerAdded();
    ExpectIdentification(0);
}

TEST_F(ReconnectTest, ServerWithoutSocketsIsRetriedWithoutLog) {
    run_.StartServer();
    run_.StartDaemon();
    Do("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Do("start");
    AwaitSubscriber();
    AwaitChangerAdded();
    ExpectIdentification(0);
}

TEST_F(ReconnectTest, ServerThatClosesItsSocketsIsFoundAgain) {
    Begin();
    for (int restart = 0; restart < 3; ++restart) {
        AwaitSubscriber();
        Do("stop");
        Do("start");
    }
    AwaitSubscriber();
    ExpectIdentification(0);
}

} // namespace
