#include "PuppetTest.h"
#include "SystemTest.h"
#include "VolumeTest.h"
#include "testbed/ProcessState.h"

#include <gmock/gmock.h>

#include <sys/mount.h>
#include <sys/types.h>

#include <string>
#include <vector>

using testing::UnorderedElementsAreArray;

namespace {

// The end of the line of errors of a worker whose last request failed. Its disc stays in progress
// as long as its changer is known and its server lives.
constexpr const char* kWorkerGaveUp = "MediaIdThread:[0-9]+, RunMediaIdThread: "
                                      "fail ChangerServerRequestChangerIdentification.*";

// What the daemon does while its server has stopped: its main thread takes up a volume, which it
// puts on its list under the state lock, and its reader takes all that was sent.
void ExpectDaemonRuns(const testbed::Daemon& daemon, pid_t server) {
    static int number = 0;
    const std::string folder = "/tmp/meanwhile" + std::to_string(number++);
    VolumeTest::MakeChangerFolder(folder, 0, 0x5000C500ABCD00B1);
    VolumeTest::Bind(folder, folder + "-place", 2);
    testbed::AwaitSentBytesRead(server);
    testbed::AwaitThreadsInSystemCall(daemon.Pid(), testbed::SystemCall::EpollWait, 1);
}

// Stops a server until the daemon has done all that it can do without: the main thread and so many
// workers wait in their run loops.
void StopAndContinue(Puppet& server, const testbed::Daemon& daemon, int workers) {
    server.Stop();
    ExpectDaemonRuns(daemon, server.Pid());
    testbed::AwaitThreadsInSystemCall(daemon.Pid(), testbed::SystemCall::Poll, 1 + workers);
    server.Continue();
}

// How far a server has come with a request when it stops.
enum class Point {
    ReadPart,
    ReadRequest,
    WrotePartOfHeader,
    WroteHeader,
    WrotePartOfPayload,
    Accepted,
    DidNotAccept, // last, as whoever comes later is behind it
};
constexpr Point kPoints[] = {
    Point::ReadPart,           Point::ReadRequest, Point::WrotePartOfHeader, Point::WroteHeader,
    Point::WrotePartOfPayload, Point::Accepted,    Point::DidNotAccept};

std::size_t WrittenAt(Point point) {
    switch (point) {
    case Point::WrotePartOfHeader:
        return 5;
    case Point::WroteHeader:
        return wire::kHeaderSize;
    case Point::WrotePartOfPayload:
        return wire::kHeaderSize + 30;
    default:
        return 0;
    }
}

// Each point of a request has a changer of its own, whose disc is being mounted.
class RequestPointsTest : public PuppetTest {
protected:
    struct Exchange {
        Point point;
        int connection = 0;
    };

    // Has every disc's mount come to its point.
    void BringMountsToTheirPoints() {
        Begin(Without(changers_));
        for (std::size_t i = 0; i < changers_.size(); ++i) {
            changers_[i].hasDisc = true;
            NotifyAbout(changers_);
            Serve(); // the withdrawal
            mounts_.push_back({kPoints[i]});
            Bring(mounts_.back());
        }
    }
    // Goes on with them to their ends; false where the daemon has given up.
    std::vector<bool> FinishMounts() {
        std::vector<bool> isTaken;
        for (Exchange& mount : mounts_)
            isTaken.push_back(Finish(mount));
        return isTaken;
    }

    static Changers Without(Changers changers) {
        for (wire::Changer& changer : changers)
            changer.hasDisc = false;
        return changers;
    }
    static std::vector<std::string> ForEach(const char* request) {
        std::vector<std::string> requests;
        for (const char* guid : {"A1", "A2", "A3", "A4", "A5", "A6", "A7"})
            requests.push_back(request + std::string(guid));
        return requests;
    }

    // What their workers log when the mounts of these ended so.
    void AwaitLogOfLostMounts(const Changers& changers, const char* message, int errorCode) {
        const std::string code = " \\(VErrCode = " + std::to_string(errorCode) + "\\)";
        for (const wire::Changer& changer : changers) {
            AwaitLogLine(std::string("ChangerServerMessages:[0-9]+, GetMessageReplyErr: ") +
                         message + code);
            AwaitLogLine("ChangerServerMountDisc:[0-9]+, ChangerServerMountDiscInDrive: fail send "
                         "message to changer server" +
                         code);
            AwaitLogLine("ChangerServerMountDisc:[0-9]+, ChangerServerMountDisc: fail mount disc "
                         "to drive index kNoDataTransferElem" +
                         code);
            AwaitLogLine(WorkerLine(changer.guid, "Fail ChangerServerMountDisc"));
        }
    }

    Changers changers_ = {{0xA1}, {0xA2}, {0xA3}, {0xA4}, {0xA5}, {0xA6}, {0xA7}};
    std::vector<Exchange> mounts_;

private:
    void Bring(Exchange& mount) {
        if (mount.point == Point::DidNotAccept) {
            Server().Do("await messages");
            return;
        }
        mount.connection = Server().AcceptClient();
        Server().Do("look " + std::to_string(mount.connection));
        if (mount.point == Point::ReadPart) {
            Server().Read(mount.connection, 5);
        } else if (mount.point != Point::Accepted) {
            Server().ReadRequest(mount.connection);
            Server().Write(mount.connection, wire::EmptyReply().substr(0, WrittenAt(mount.point)));
        }
    }
    bool Finish(Exchange& mount) {
        if (mount.point == Point::DidNotAccept)
            mount.connection = Server().AcceptClient();
        if (mount.point == Point::ReadPart || mount.point == Point::Accepted ||
            mount.point == Point::DidNotAccept) {
            EXPECT_THAT(Abbreviate(Server().ReadRequest(mount.connection)),
                        testing::StartsWith("mount "));
        }
        return Server().Write(mount.connection, wire::EmptyReply().substr(WrittenAt(mount.point)));
    }
};

class StoppedServerTest : public RequestPointsTest {};

TEST_F(StoppedServerTest, PendingRequestsSucceedWhenTheServerContinues) {
    BringMountsToTheirPoints();
    StopAndContinue(Server(), run_.Daemon(), static_cast<int>(mounts_.size()));
    EXPECT_THAT(FinishMounts(), testing::Each(true));
    std::vector<std::string> expected = ForEach("eject ");
    const std::vector<std::string> withdrawals = ForEach("withdraw ");
    expected.insert(expected.end(), withdrawals.begin(), withdrawals.end());
    EXPECT_THAT(Serve(expected.size()), UnorderedElementsAreArray(expected));
}

// What the server had sent whole is acted on although it has stopped.
class StoppedAfterSendingTest : public PuppetTest {
protected:
    const Changers changers_ = {{0xA1, true}};
};

TEST_F(StoppedAfterSendingTest, NotificationSentBeforeTheStopStartsAWorker) {
    Begin({{0xA1}});
    NotifyAbout(changers_);
    StopAndContinue(Server(), run_.Daemon(), 1);
    ServeIdentificationsOf(changers_);
}

TEST_F(StoppedAfterSendingTest, ReplySentBeforeTheStopIsFollowedByTheNextRequest) {
    Begin({{0xA1}});
    NotifyAbout(changers_);
    EXPECT_EQ(Serve(), "withdraw A1");
    const int mount = Server().AcceptClient();
    EXPECT_EQ(Abbreviate(Server().ReadRequest(mount)), "mount A1");
    EXPECT_TRUE(Server().Write(mount, wire::EmptyReply()));
    StopAndContinue(Server(), run_.Daemon(), 1);
    EXPECT_EQ(Serve(), "eject A1");
    EXPECT_EQ(Serve(), "withdraw A1");
}

// The whole server with its file systems, at each kind of event in turn.
class StoppedSimulatorTest : public SystemTest {};

TEST_F(StoppedSimulatorTest, EveryDiscIsIdentifiedDespiteAStopAtAnyEvent) {
    const std::vector<std::string> moments = {"connect",  "robot",   "mounted", "identified",
                                              "appeared", "listing", "listed",  "reply"};
    Begin("slots=8 drives=1");
    Tell("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    for (std::size_t slot = 0; slot < moments.size(); ++slot) {
        const int before = Server().AllSoFar("notification").back().number;
        Tell("put changer=5000C500ABCD00A1 directories=5 slot=" + std::to_string(slot));
        Server().Await(moments[slot],
                       [before](const testbed::Event& event) { return event.number > before; });
        Server().Stop();
        ExpectDaemonRuns(run_.Daemon(), Server().Pid());
        Server().Continue();
        AwaitIdentification(static_cast<int>(slot));
    }
}

// Half a minute for all of them, side by side.
class SlowStoppedServerTest : public StoppedServerTest {};

TEST_F(SlowStoppedServerTest, PendingRequestsTimeOutAndTheDiscsArePickedAgain) {
    BringMountsToTheirPoints();
    Server().Stop();
    AwaitLogOfLostMounts(changers_, "timeout waiting for reply from changer server", 1004);
    Server().Continue();
    EXPECT_THAT(FinishMounts(), testing::Each(false));
    EXPECT_THAT(Serve(mounts_.size()), UnorderedElementsAreArray(ForEach("withdraw ")));
    AwaitEndOfWorkers();
    NotifyAbout(changers_);
    ServeIdentificationsOf(changers_);
}

class KilledServerTest : public RequestPointsTest {};

TEST_F(KilledServerTest, PendingRequestsFailAndTheNextServersDiscsAreIdentified) {
    BringMountsToTheirPoints();
    Server().Kill();
    // Of the connection that was not accepted, nobody can tell how far the daemon had come with it.
    const Changers accepted(changers_.begin(), changers_.end() - 1);
    AwaitLogOfLostMounts(accepted, "lost connection with changer server", 1005);
    for (std::size_t i = 0; i < changers_.size(); ++i)
        run_.SkipLogUntil(kWorkerGaveUp);
    StartServer();
    AwaitSubscriber();
    NotifyAbout(changers_);
    ServeIdentificationsOf(changers_);
}

class KilledSimulatorTest : public SystemTest {};

TEST_F(KilledSimulatorTest, WalkOfADiscEndsAndTheNextServersDiscIsIdentified) {
    Begin("slots=4 drives=2");
    Tell("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    Tell("fault on=\"eject disc\" do=silence"); // a walk that outruns the kill ends here
    Tell("put changer=5000C500ABCD00A1 slot=0 directories=50");
    Server().Await("listing");
    run_.KillServer();
    ASSERT_EQ(umount2("/tmp/carousel", MNT_DETACH), 0);
    run_.SkipLogUntil("MediaIdThread:[0-9]+, RunMediaIdThread: "
                      "fail ChangerServerEjectDisc for changer .*");
    run_.SkipLogUntil(kWorkerGaveUp);
    StartServer("slots=4 drives=2");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
}

// How many bytes of a notification were sent when the server stopped, or was killed.
class CutNotificationTest : public PuppetTest, public testing::WithParamInterface<std::size_t> {
protected:
    const Changers changers_ = {{0xA1, true}};
    const std::string frame_ = wire::ChangerInfo(changers_);
};

class StoppedNotificationTest : public CutNotificationTest {};

INSTANTIATE_TEST_SUITE_P(Bytes, StoppedNotificationTest,
                         testing::Values(0, 1, 5, wire::kHeaderSize, wire::kHeaderSize + 1, 200));

TEST_P(StoppedNotificationTest, PartialNotificationIsHandledOnceItIsComplete) {
    Begin({{0xA1}});
    Notify(frame_.substr(0, GetParam()));
    StopAndContinue(Server(), run_.Daemon(), 0);
    Notify(frame_.substr(GetParam()));
    ServeIdentificationsOf(changers_);
}

class KilledNotificationTest : public CutNotificationTest {};

INSTANTIATE_TEST_SUITE_P(Bytes, KilledNotificationTest, testing::Values(5, wire::kHeaderSize, 200));

TEST_P(KilledNotificationTest, PartialNotificationIsDiscardedAndTheNextServersIsHandled) {
    Begin({{0xA1}});
    Notify(frame_.substr(0, GetParam()));
    Server().Kill();
    StartServer();
    AwaitSubscriber();
    NotifyAbout(changers_);
    ServeIdentificationsOf(changers_);
}

// The worker that is thereby started finds no server.
TEST_P(KilledNotificationTest, NotificationBeforeAPartialOneIsHandled) {
    Begin({{0xA1}});
    Notify(frame_ + frame_.substr(0, GetParam()));
    Server().Kill();
    run_.SkipLogUntil(kWorkerGaveUp);
}

} // namespace
