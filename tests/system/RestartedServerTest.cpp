#include "PuppetTest.h"
#include "VolumeTest.h"

#include <string>

namespace {

// A server is killed during identifications in all drives. The next server has the same changer,
// none of whose discs is in progress.
class RestartedSimulatorTest : public SystemTest, public testing::WithParamInterface<int> {
protected:
    std::string Changer() const {
        return "slots=8 drives=" + std::to_string(GetParam());
    }
    void PutDiscs() {
        for (int slot = 0; slot < kDiscs; ++slot)
            PutDisc(slot);
    }

    static constexpr int kDiscs = 6;
};

INSTANTIATE_TEST_SUITE_P(Drives, RestartedSimulatorTest, testing::Values(1, 2, 4),
                         testing::PrintToStringParamName());

TEST_P(RestartedSimulatorTest, EveryDiscIsIdentifiedByTheNextServer) {
    Begin(Changer());
    Do("fault on=\"mount disc\" count=8 do=silence"); // keeps all drives occupied
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
}

class RestartedServerTest : public PuppetTest {
protected:
    // Closes the connection of the next request without a reply.
    void DropRequest(const std::string& request) {
        Server().Do("close " + std::to_string(AcceptRequest(request)));
    }
};

TEST_F(RestartedServerTest, ElementOfALostWithdrawalIsPickedAgainOnlyForTheNextServer) {
    Begin({{0xA1}, {0xA2}});
    NotifyAbout({{0xA1, true}, {0xA2}});
    DropRequest("withdraw A1");
    SkipLogUntil(kWorkerGaveUp);
    AwaitEndOfWorkers();
    NotifyAbout({{0xA1, true}, {0xA2, true}});
    ServeIdentificationsOf({{0xA2, true}});
    RestartServer();
    NotifyAbout({{0xA1, true}, {0xA2}});
    ServeIdentificationsOf({{0xA1}});
}

using SlowRestartedServerTest = RestartedServerTest;

// The disc's media roots never appear: its worker looks for them for ten seconds.

TEST_F(SlowRestartedServerTest, ElementIsPickedAgainWhenItsWorkerEndsAfterTheRestart) {
    VolumeTest::MakeChangerFolder("/tmp/volume", 0, wire::kGuidBase + 0xA1);
    Begin({{0xA1}});
    VolumeTest::Bind("/tmp/volume", "/tmp/place", 2);
    NotifyAbout({{0xA1, true}});
    ExpectRequests({"withdraw A1", "mount A1"});
    RestartServer();
    NotifyAbout({{0xA1, true}}); // its worker still runs, so it is not picked
    ExpectRequests({"eject A1"});
    DropRequest("withdraw A1");
    SkipLogUntil(kWorkerGaveUp);
    AwaitEndOfWorkers();
    NotifyAbout({{0xA1, true}});
    ExpectRequests({"withdraw A1", "mount A1", "eject A1", "withdraw A1"});
}

TEST_F(SlowRestartedServerTest, ElementOfAHungServerIsPickedAgainForItsSuccessor) {
    Begin({{0xA1}});
    NotifyAbout({{0xA1, true}});
    Server().AcceptClient();
    Server().Stop();
    SkipLogUntil(Link("MediaIdThread", "RunMediaIdThread",
                      "fail ChangerServerRequestChangerIdentification (VErrCode = 1004)"));
    RestartServer();
    ExpectIdentificationsOf({{0xA1, true}});
}

} // namespace
