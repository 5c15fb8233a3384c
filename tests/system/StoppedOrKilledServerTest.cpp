#include "PuppetTest.h"
#include "VolumeTest.h"
#include "testbed/ProcessState.h"
#include "tests/unit/support/Matchers.h"

#include <sys/mount.h>

#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

namespace {

// Checks what the daemon must do while its server is stopped: its main thread registers a volume
// under the state lock, and its reader reads all that the server has sent.
void ExpectDaemonRuns(const testbed::Daemon& daemon, pid_t server) {
    static int number = 0;
    const std::string folder = "/tmp/meanwhile" + std::to_string(number++);
    VolumeTest::MakeChangerFolder(folder, 0, 0x5000C500ABCD00B1);
    VolumeTest::Bind(folder, folder + "-place", 2);
    testbed::AwaitSentBytesRead(server);
    testbed::AwaitThreadsInSystemCall(daemon.Pid(), testbed::SystemCall::EpollWait, 1);
}

// Stops a server until the daemon can do no more without it: the main thread and `workers` threads
// wait in their run loops.
void StopAndContinue(Puppet& server, const testbed::Daemon& daemon, std::size_t workers) {
    server.Stop();
    ExpectDaemonRuns(daemon, server.Pid());
    testbed::AwaitThreadsInSystemCall(daemon.Pid(), testbed::SystemCall::Poll,
                                      1 + static_cast<std::ptrdiff_t>(workers));
    server.Continue();
}

// How much of an exchange a server has done when it stops.
struct Progress {
    bool isAccepted = true;
    std::size_t bytesRead = 0;    // of the request
    std::size_t bytesWritten = 0; // of the reply
};
constexpr std::size_t kWholeRequest = 1'000'000;
constexpr Progress kProgresses[] = {
    {true, 5, 0},
    {true, kWholeRequest, 0},
    {true, kWholeRequest, 5}, // in the header
    {true, kWholeRequest, wire::kHeaderSize},
    {true, kWholeRequest, wire::kHeaderSize + 30},
    {true, 0, 0},
    {false, 0, 0}, // the last one: later connections are behind it in the queue
};

// Each progress has a changer, whose disc is being mounted.
class PendingMountsTest : public PuppetTest {
protected:
    void BeginMounts() {
        Changers changers = changers_;
        for (wire::Changer& changer : changers)
            changer.hasDisc = false;
        Begin(changers);
        for (std::size_t i = 0; i < changers.size(); ++i) {
            changers[i].hasDisc = true;
            NotifyAbout(changers);
            Serve(); // the withdrawal
            mounts_[i] = BeginMount(kProgresses[i]);
        }
    }
    // Completes the exchanges. Returns for each one whether the daemon still awaited the reply.
    std::vector<bool> FinishMounts() {
        std::vector<bool> isAwaited;
        for (std::size_t i = 0; i < std::size(mounts_); ++i)
            isAwaited.push_back(FinishMount(mounts_[i], kProgresses[i]));
        return isAwaited;
    }

    std::vector<std::string> ForEachChanger(const std::string& request) const {
        std::vector<std::string> requests;
        for (std::size_t i = 1; i <= changers_.size(); ++i)
            requests.push_back(request + " A" + std::to_string(i));
        return requests;
    }

    // Waits for the log lines of the workers of the first `count` changers, whose mounts failed.
    void AwaitLogOfFailedMounts(std::size_t count, const std::string& message, int code) {
        for (std::size_t i = 1; i <= count; ++i)
            for (const std::string& link :
                 LinksOfFailedMount(message, code, "5000C500ABCD00A" + std::to_string(i)))
                AwaitLogLine(link);
    }

    const Changers changers_ = {{0xA1, true}, {0xA2, true}, {0xA3, true}, {0xA4, true},
                                {0xA5, true}, {0xA6, true}, {0xA7, true}};

private:
    int BeginMount(const Progress& progress) {
        if (!progress.isAccepted) {
            Server().Do("await messages");
            return 0;
        }
        const int connection = Server().AcceptClient();
        Server().Do("peek " + std::to_string(connection));
        if (progress.bytesRead == kWholeRequest)
            Server().ReadRequest(connection);
        else
            Server().Read(connection, progress.bytesRead);
        Server().Write(connection, wire::EmptyReply().substr(0, progress.bytesWritten));
        return connection;
    }
    bool FinishMount(int connection, const Progress& progress) {
        if (!progress.isAccepted)
            connection = Server().AcceptClient();
        if (progress.bytesRead < kWholeRequest)
            EXPECT_THAT(ReadRequest(connection), StartsWith("mount "));
        return Server().Write(connection, wire::EmptyReply().substr(progress.bytesWritten));
    }

    int mounts_[std::size(kProgresses)] = {}; // the numbers of the connections
};

using StoppedServerTest = PendingMountsTest;
using SlowStoppedServerTest = PendingMountsTest;
using KilledServerTest = PendingMountsTest;

TEST_F(StoppedServerTest, PendingRequestsSucceedWhenTheServerContinues) {
    BeginMounts();
    StopAndContinue(Server(), run_.Daemon(), changers_.size());
    EXPECT_THAT(FinishMounts(), Each(true));
    std::vector<std::string> expected = ForEachChanger("eject");
    const std::vector<std::string> withdrawals = ForEachChanger("withdraw");
    expected.insert(expected.end(), withdrawals.begin(), withdrawals.end());
    EXPECT_THAT(Serve(expected.size()), UnorderedElementsAreArray(expected));
}

class StoppedAfterSendingTest : public PuppetTest {
protected:
    void SetUp() override {
        Begin({{0xA1}});
        NotifyAbout(changers_);
    }

    const Changers changers_ = {{0xA1, true}};
};

TEST_F(StoppedAfterSendingTest, NotificationSentBeforeTheStopStartsAWorker) {
    StopAndContinue(Server(), run_.Daemon(), 1);
    ServeIdentificationsOf(changers_);
}

TEST_F(StoppedAfterSendingTest, ReplySentBeforeTheStopIsFollowedByTheNextRequest) {
    ExpectRequests({"withdraw A1"});
    const int mount = AcceptRequest("mount A1");
    EXPECT_TRUE(Server().Write(mount, wire::EmptyReply()));
    StopAndContinue(Server(), run_.Daemon(), 1);
    ExpectRequests({"eject A1", "withdraw A1"});
}

// The simulator stops with its file systems.
using StoppedSimulatorTest = SystemTest;

TEST_F(StoppedSimulatorTest, EveryDiscIsIdentifiedDespiteAStopAtAnyEvent) {
    constexpr const char* kEvents[] = {"connect",  "robot",   "mounted", "identified",
                                       "appeared", "listing", "listed",  "reply"};
    Begin("slots=8 drives=1");
    Do("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    for (int slot = 0; slot < std::ssize(kEvents); ++slot) {
        const int before = Server().AllSoFar("notification").back().number;
        PutDisc(slot, "directories=5");
        Server().Await(kEvents[slot],
                       [before](const testbed::Event& event) { return event.number > before; });
        Server().Stop();
        ExpectDaemonRuns(run_.Daemon(), Server().Pid());
        Server().Continue();
        AwaitIdentification(slot);
    }
}

TEST_F(SlowStoppedServerTest, PendingRequestsTimeOutAndTheDiscsArePickedAgain) {
    BeginMounts();
    Server().Stop();
    AwaitLogOfFailedMounts(changers_.size(), "timeout waiting for reply from changer server", 1004);
    Server().Continue();
    EXPECT_THAT(FinishMounts(), Each(false));
    EXPECT_THAT(Serve(changers_.size()), UnorderedElementsAreArray(ForEachChanger("withdraw")));
    AwaitEndOfWorkers();
    ExpectIdentificationsOf(changers_);
}

TEST_F(KilledServerTest, PendingRequestsFailAndTheNextServersDiscsAreIdentified) {
    BeginMounts();
    Server().Kill();
    // The log lines of the connection that was not accepted depend on the daemon's progress.
    AwaitLogOfFailedMounts(changers_.size() - 1, "lost connection with changer server", 1005);
    for (std::size_t i = 0; i < changers_.size(); ++i)
        SkipLogUntil(kWorkerGaveUp);
    StartServer();
    AwaitSubscriber();
    ExpectIdentificationsOf(changers_);
}

using KilledSimulatorTest = SystemTest;

TEST_F(KilledSimulatorTest, WalkOfADiscEndsAndTheNextServersDiscIsIdentified) {
    Begin("slots=4 drives=2");
    Do("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    Do("fault on=\"eject disc\" do=silence"); // if the walk ends before the kill
    PutDisc(0, "directories=50");
    Server().Await("listing");
    run_.KillServer();
    ASSERT_EQ(umount2("/tmp/carousel", MNT_DETACH), 0);
    SkipLogUntil(
        Link("MediaIdThread", "RunMediaIdThread", "fail ChangerServerEjectDisc for changer ") +
        ".*");
    SkipLogUntil(kWorkerGaveUp);
    StartServer("slots=4 drives=2");
    ExpectIdentification(1);
}

// The parameter is the number of bytes of a notification that the server sends before it is stopped
// or killed.
class PartialNotificationTest : public PuppetTest, public testing::WithParamInterface<std::size_t> {
protected:
    void SetUp() override {
        Begin({{0xA1}});
    }

    const Changers changers_ = {{0xA1, true}};
    const std::string frame_ = wire::ChangerInfo(changers_);
};

using StoppedNotificationTest = PartialNotificationTest;
using KilledNotificationTest = PartialNotificationTest;

INSTANTIATE_TEST_SUITE_P(Bytes, StoppedNotificationTest,
                         testing::Values(0, 1, 5, wire::kHeaderSize, wire::kHeaderSize + 1, 200),
                         testing::PrintToStringParamName());

TEST_P(StoppedNotificationTest, PartialNotificationIsHandledOnceItIsComplete) {
    Notify(frame_.substr(0, GetParam()));
    StopAndContinue(Server(), run_.Daemon(), 0);
    Notify(frame_.substr(GetParam()));
    ServeIdentificationsOf(changers_);
}

INSTANTIATE_TEST_SUITE_P(Bytes, KilledNotificationTest, testing::Values(5, wire::kHeaderSize, 200),
                         testing::PrintToStringParamName());

TEST_P(KilledNotificationTest, PartialNotificationIsDiscardedAndTheNextServersIsHandled) {
    Notify(frame_.substr(0, GetParam()));
    RestartServer();
    ExpectIdentificationsOf(changers_);
}

// The worker that the notification starts finds no server.
TEST_P(KilledNotificationTest, NotificationBeforeAPartialOneIsHandled) {
    Notify(frame_ + frame_.substr(0, GetParam()));
    Server().Kill();
    SkipLogUntil(kWorkerGaveUp);
}

} // namespace
