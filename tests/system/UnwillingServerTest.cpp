#include "PuppetTest.h"
#include "testbed/ProcessState.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <string>

using testing::ElementsAre;

namespace {

// Several times what the kernel keeps for a socket.
constexpr std::size_t kHuge = 512 * 1024;

// A server that makes it hard to talk to it.
class UnwillingServerTest : public PuppetTest {
protected:
    void ExpectIdentificationWorks() {
        AwaitEndOfWorkers();
        NotifyAbout({{0xA1, true}});
        ServeIdentificationsOf({{0xA1}});
    }
    // Lets nobody connect without waiting.
    void FillBacklogOf(const std::string& channel) {
        Server().Do("listen " + channel + " 0");
        Server().Do("fill " + channel);
    }
    void AwaitWaitingClient() {
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Connect, 1);
    }
};

// Its only thread writes notifications while the daemon's main thread waits for its answer. That
// each of the lists makes the changer unknown shows that they are taken in their order.
TEST_F(UnwillingServerTest,
       NotificationsBeyondTheSocketBufferAreReadWhileTheMainThreadAwaitsAReply) {
    Begin({{0xA1}});
    const std::string known = wire::ChangerList({{0xA1}});
    NotifyAbout({{0xA1}, {0xA2}});
    for (int i = 0; i < 3; ++i)
        Notify(known + wire::ChangerInfo({{0xA1}, {0xA2}}, kHuge));
    EXPECT_THAT(Serve(4), ElementsAre("clear status A2", "clear status A2", "clear status A2",
                                      "clear status A2"));
    ExpectIdentificationWorks();
}

TEST_F(UnwillingServerTest, NotificationsBeyondTheSocketBufferAreReadWhileAWorkerAwaitsAReply) {
    Begin({{0xA1}});
    NotifyAbout({{0xA1, true}});
    EXPECT_THAT(Serve(1), ElementsAre("withdraw A1"));
    Notify(wire::ChangerInfo({{0xA1}}, kHuge));
    EXPECT_THAT(Serve(3), ElementsAre("mount A1", "eject A1", "withdraw A1"));
}

// At its end a build waits for the server with the lock that the notifications need.
TEST_F(UnwillingServerTest, NotificationsBeyondTheSocketBufferAreReadWhileABuildAwaitsAReply) {
    Begin({{0xA1}});
    NotifyAbout({{.guid = 0xA1, .wantsBuild = true}});
    const int withdrawal = Server().AcceptClient();
    for (int i = 0; i < 3; ++i)
        Notify(wire::ChangerInfo({{0xA1}}, kHuge));
    EXPECT_EQ(Abbreviate(Server().ReadRequest(withdrawal)), "withdraw A1");
    Reply(withdrawal);
    ExpectIdentificationWorks();
}

// Whether the request was sent before the end of its connection is a race.
TEST_F(UnwillingServerTest, ClosedMessageConnectionFailsTheRequestOnly) {
    Begin({{0xA1}});
    NotifyAbout({{0xA1, true}});
    EXPECT_THAT(Serve(1), ElementsAre("withdraw A1"));
    Server().Do("refuse messages 1");
    run_.SkipLogUntil(WorkerLine(0xA1, "Fail ChangerServerMountDisc"));
    EXPECT_THAT(Serve(1), ElementsAre("withdraw A1"));
    ExpectIdentificationWorks();
}

// Of each, the run-loop source stays behind, and nothing else.
TEST_F(UnwillingServerTest, SubscriptionsClosedAtOnceAreRetriedWithoutMemoryGrowth) {
    constexpr std::size_t kTimes = 5000;
    constexpr std::size_t kSource = 256;
    Begin({{0xA1}});
    const std::size_t before = testbed::ReadAnonymousMemory(run_.Daemon().Pid());
    Server().Do("close " + std::to_string(subscriber_));
    Server().Do("refuse notifications " + std::to_string(kTimes));
    AwaitSubscriber();
    ExpectIdentificationWorks();
    if (!testbed::kHasSanitizer)
        EXPECT_LE(testbed::ReadAnonymousMemory(run_.Daemon().Pid()), before + kTimes * kSource);
}

TEST_F(UnwillingServerTest, FullBacklogOfTheMessageSocketIsAwaited) {
    Begin({{0xA1}});
    FillBacklogOf("messages");
    NotifyAbout({{0xA1, true}});
    AwaitWaitingClient();
    Server().Do("drain messages");
    ServeIdentificationsOf({{0xA1}});
}

TEST_F(UnwillingServerTest, FullBacklogOfTheNotificationSocketIsAwaited) {
    Begin({{0xA1}});
    FillBacklogOf("notifications");
    Server().Do("close " + std::to_string(subscriber_));
    AwaitWaitingClient();
    Server().Do("drain notifications");
    AwaitSubscriber();
    ExpectIdentificationWorks();
}

} // namespace
