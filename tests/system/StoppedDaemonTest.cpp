#include "PuppetTest.h"
#include "VolumeTest.h"
#include "tests/unit/support/Matchers.h"

#include <chrono>
#include <thread>

namespace {

// The daemon is stopped (SIGSTOP, a frozen container) while a request of each kind is pending, for
// longer than its time-outs.
class SlowStoppedDaemonTest : public PuppetTest {
protected:
    void Answer(int connection) {
        EXPECT_TRUE(Server().Write(connection, wire::EmptyReply()));
    }

    static constexpr std::chrono::seconds kLongerThanATimeOut{31};
};

TEST_F(SlowStoppedDaemonTest, RepliesDuringTheStopCountUnlessTheyArriveAfterTheTimeOut) {
    Changers changers = {{0xA1}, {0xA2}, {0xA3}, {0xA4}, {0xA5}, {0xA6}};
    Begin(changers);
    VolumeTest::MakeChangerFolder("/tmp/volume", 0, wire::kGuidBase + 0xA5);
    VolumeTest::Bind("/tmp/volume", "/tmp/place", 2);

    const auto notifyAboutDiscIn = [&](std::size_t index) {
        changers[index].hasDisc = true;
        NotifyAbout(changers);
    };
    notifyAboutDiscIn(0);
    const int withdrawal = AcceptRequest("withdraw A1");
    notifyAboutDiscIn(1);
    ExpectRequests({"withdraw A2"});
    const int mount = AcceptRequest("mount A2");
    notifyAboutDiscIn(2);
    ExpectRequests({"withdraw A3", "mount A3"});
    const int eject = AcceptRequest("eject A3");
    notifyAboutDiscIn(3);
    ExpectRequests({"withdraw A4", "mount A4", "eject A4"});
    const int lastWithdrawal = AcceptRequest("withdraw A4");
    changers[4].wantsBuild = true; // its file system is the volume
    NotifyAbout(changers);
    ExpectRequests({"withdraw A5"});
    const int report = AcceptRequest("clear status A5");
    notifyAboutDiscIn(5);
    const int late = AcceptRequest("withdraw A6");
    changers.push_back({0xA7});
    NotifyAbout(changers);
    const int clearing = AcceptRequest("clear status A7"); // by the main thread

    run_.Daemon().Freeze();
    for (const int connection : {withdrawal, mount, eject, lastWithdrawal, report, clearing})
        Answer(connection);
    std::this_thread::sleep_for(kLongerThanATimeOut);
    Answer(late);
    run_.Daemon().Thaw();

    EXPECT_THAT(Serve(9), UnorderedElementsAre("mount A1", "eject A1", "withdraw A1", // worker
                                               "eject A2", "withdraw A2",             // worker
                                               "withdraw A3",                         // worker
                                               "clear status A5", "clear status A5",  // build
                                               "withdraw A5"));
    SkipLogUntil(Link("MediaIdThread", "RunMediaIdThread",
                      "fail ChangerServerRequestChangerIdentification (VErrCode = 1004)"));
    AwaitEndOfWorkers();
}

} // namespace
