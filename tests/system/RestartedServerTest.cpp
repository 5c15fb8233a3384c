#include "PuppetTest.h"
#include "SystemTest.h"
#include "VolumeTest.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kWorkerGaveUp = "MediaIdThread:[0-9]+, RunMediaIdThread: "
                                      "fail ChangerServerRequestChangerIdentification.*";

// A server dies while all drives identify, and the next one names the same changer: what the dead
// one had asked for is no longer in progress.
class RestartedSimulatorTest : public SystemTest, public testing::WithParamInterface<int> {
protected:
    std::string Changer() const {
        return "slots=8 drives=" + std::to_string(GetParam());
    }
    void PutDiscs() {
        for (int slot = 0; slot < kDiscs; ++slot)
            Tell("put changer=5000C500ABCD00A1 slot=" + std::to_string(slot));
    }
    int CountMounts(int slot) {
        int count = 0;
        for (const std::string& request : RequestsSoFar())
            count += request == "mount " + std::to_string(slot) ? 1 : 0;
        return count;
    }

    static constexpr int kDiscs = 6;
};

INSTANTIATE_TEST_SUITE_P(Drives, RestartedSimulatorTest, testing::Values(1, 2, 4));

TEST_P(RestartedSimulatorTest, EveryDiscIsIdentifiedOnceByTheNextServer) {
    Begin(Changer());
    Tell("fault on=\"mount disc\" count=8 do=silence"); // so that all drives are taken
    PutDiscs();
    for (int drive = 0; drive < GetParam(); ++drive)
        Server().Await("request", {{"command", "mount disc"}});
    run_.KillServer();
    for (int drive = 0; drive < GetParam(); ++drive)
        SkipLogUntil(kWorkerGaveUp);

    StartServer(Changer());
    PutDiscs();
    for (int slot = 0; slot < kDiscs; ++slot)
        AwaitIdentification(slot);
    for (int slot = 0; slot < kDiscs; ++slot)
        EXPECT_EQ(CountMounts(slot), 1) << slot;
}

class RestartedServerTest : public PuppetTest {
protected:
    // The next request gets no reply.
    void DropRequest(const std::string& request) {
        const int connection = Server().AcceptClient();
        EXPECT_EQ(Abbreviate(Server().ReadRequest(connection)), request);
        Server().Do("close " + std::to_string(connection));
    }
    void RestartServer() {
        Server().Kill();
        StartServer();
        AwaitSubscriber();
    }
};

TEST_F(RestartedServerTest, ElementOfALostWithdrawalIsPickedAgainOnlyForTheNextServer) {
    Begin({{0xA1}, {0xA2}});
    NotifyAbout({{0xA1, true}, {0xA2}});
    DropRequest("withdraw A1");
    run_.SkipLogUntil(kWorkerGaveUp);
    AwaitEndOfWorkers();
    NotifyAbout({{0xA1, true}, {0xA2, true}});
    ServeIdentificationsOf({{0xA2, true}});
    RestartServer();
    NotifyAbout({{0xA1, true}, {0xA2}});
    ServeIdentificationsOf({{0xA1, true}});
}

// Ten seconds: the disc's media roots never appear, and so long its worker looks for them.
class SlowRestartedServerTest : public RestartedServerTest {};

TEST_F(SlowRestartedServerTest, ElementIsPickedAgainWhenItsWorkerEndsAfterTheRestart) {
    VolumeTest::MakeChangerFolder("/tmp/volume", 0, wire::kGuidBase + 0xA1);
    Begin({{0xA1}});
    VolumeTest::Bind("/tmp/volume", "/tmp/place", 2);
    NotifyAbout({{0xA1, true}});
    EXPECT_THAT(Serve(2), ElementsAre("withdraw A1", "mount A1"));
    RestartServer();
    NotifyAbout({{0xA1, true}}); // its worker still runs, so it is not picked
    EXPECT_EQ(Serve(), "eject A1");
    DropRequest("withdraw A1");
    run_.SkipLogUntil(kWorkerGaveUp);
    AwaitEndOfWorkers();
    NotifyAbout({{0xA1, true}});
    EXPECT_THAT(Serve(4), ElementsAre("withdraw A1", "mount A1", "eject A1", "withdraw A1"));
}

TEST_F(SlowRestartedServerTest, ElementOfAHungServerIsPickedAgainForItsSuccessor) {
    Begin({{0xA1}});
    NotifyAbout({{0xA1, true}});
    Server().AcceptClient();
    Server().Stop();
    run_.SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                      "fail ChangerServerRequestChangerIdentification \\(VErrCode = 1004\\)");
    RestartServer();
    NotifyAbout({{0xA1, true}});
    ServeIdentificationsOf({{0xA1, true}});
}

} // namespace
