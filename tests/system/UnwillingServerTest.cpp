#include "PuppetTest.h"
#include "testbed/ProcessState.h"

#include <cstddef>
#include <string>
#include <vector>

namespace {

// Several times the capacity of a socket.
constexpr std::size_t kHuge = 512 * 1024;

// A server whose sockets block or refuse the daemon.
class UnwillingServerTest : public PuppetTest {
protected:
    void SetUp() override {
        Begin({{0xA1}});
    }
    void ExpectIdentificationWorks() {
        AwaitEndOfWorkers();
        ExpectIdentificationsOf({{0xA1, true}});
    }
    // The next connect() blocks.
    void FillBacklogOf(const std::string& channel) {
        Server().Do("listen " + channel + " 0");
        Server().Do("fill " + channel);
    }
    void AwaitWaitingClient() {
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Connect, 1);
    }
};

// The server's only thread writes notifications while the daemon's main thread waits for a reply.
// Each list removes changer A2, so each status that is cleared shows that the lists are handled in
// order.
TEST_F(UnwillingServerTest,
       NotificationsBeyondTheSocketBufferAreReadWhileTheMainThreadAwaitsAReply) {
    const std::string known = wire::ChangerList({{0xA1}});
    NotifyAbout({{0xA1}, {0xA2}});
    for (int i = 0; i < 3; ++i)
        Notify(known + wire::ChangerInfo({{0xA1}, {0xA2}}, kHuge));
    ExpectRequests(std::vector<std::string>(4, "clear status A2"));
    ExpectIdentificationWorks();
}

TEST_F(UnwillingServerTest, NotificationsBeyondTheSocketBufferAreReadWhileAWorkerAwaitsAReply) {
    NotifyAbout({{0xA1, true}});
    ExpectRequests({"withdraw A1"});
    Notify(wire::ChangerInfo({{0xA1}}, kHuge));
    ExpectRequests({"mount A1", "eject A1", "withdraw A1"});
}

// At its end a build waits for the server while it holds the lock that notifications need.
TEST_F(UnwillingServerTest, NotificationsBeyondTheSocketBufferAreReadWhileABuildAwaitsAReply) {
    NotifyAbout({{.guid = 0xA1, .wantsBuild = true}});
    const int withdrawal = Server().AcceptClient();
    for (int i = 0; i < 3; ++i)
        Notify(wire::ChangerInfo({{0xA1}}, kHuge));
    EXPECT_EQ(ReadRequest(withdrawal), "withdraw A1");
    Reply(withdrawal);
    ExpectIdentificationWorks();
}

// Whether the request is sent before the connection ends is a race.
TEST_F(UnwillingServerTest, ClosedMessageConnectionFailsTheRequestOnly) {
    NotifyAbout({{0xA1, true}});
    ExpectRequests({"withdraw A1"});
    Server().Do("refuse messages 1");
    SkipLogUntil(Link("MediaIdThread", "RunMediaIdThread",
                      "Fail ChangerServerMountDisc(5000C500ABCD00A1, 0)") +
                 ".*");
    ExpectRequests({"withdraw A1"});
    ExpectIdentificationWorks();
}

// By design only the run-loop source of each subscription is never released.
TEST_F(UnwillingServerTest, SubscriptionsClosedAtOnceAreRetriedWithoutMemoryGrowth) {
    constexpr std::size_t kTimes = 5000;
    constexpr std::size_t kSource = 256;
    const std::size_t before = testbed::ReadAnonymousMemory(run_.Daemon().Pid());
    Server().Do("close " + std::to_string(subscriber_));
    Server().Do("refuse notifications " + std::to_string(kTimes));
    AwaitSubscriber();
    ExpectIdentificationWorks();
    if (!testbed::kHasSanitizer)
        EXPECT_LE(testbed::ReadAnonymousMemory(run_.Daemon().Pid()), before + kTimes * kSource);
}

TEST_F(UnwillingServerTest, FullBacklogOfTheMessageSocketIsAwaited) {
    FillBacklogOf("messages");
    NotifyAbout({{0xA1, true}});
    AwaitWaitingClient();
    Server().Do("drain messages");
    ServeIdentificationsOf({{0xA1}});
}

TEST_F(UnwillingServerTest, FullBacklogOfTheNotificationSocketIsAwaited) {
    FillBacklogOf("notifications");
    Server().Do("close " + std::to_string(subscriber_));
    AwaitWaitingClient();
    Server().Do("drain notifications");
    AwaitSubscriber();
    ExpectIdentificationWorks();
}

} // namespace
