/* The notification channel: its states, and the values delivered. */

#include "AllocationFaults.h"
#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "Frames.h"
#include "ProcessTable.h"
#include "ScriptedServer.h"
#include "Seams.h"
#include "TimerControl.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

const char kNotifications[] = "ChangerServerConnectionLib/ChangerServerNotifications";

RaisedLink Raised(const std::string& message, const std::string& function,
                  VErrCode code = kVErrCodeDefault) {
    return {message, function, kNotifications, code};
}

std::string Logged(const std::string& function, const std::string& message) {
    return "ChangerServerNotifications:123, " + function + ": " + message;
}

std::string SocketPath(int pid) {
    return "/tmp/carouseldn-" + std::to_string(pid);
}

// Process ids of the server: this process, and after a restart an id that no process has.
const int kServer = getpid();
const int kRestarted = getpid() + 10'000'000;

void SetServer(int pid) {
    SetProcesses({{1, "init"}, {pid, "carouseld"}});
}

// The end of a connection, at a time that the test chooses.
class Ending {
public:
    // Sends the bytes and closes after End().
    Script SendAndClose(std::string bytes) {
        return [=, this](Connection& connection) {
            connection.Write(bytes);
            isEnding_.wait(false);
        };
    }
    void End() {
        isEnding_ = true;
        isEnding_.notify_all();
    }

private:
    std::atomic<bool> isEnding_ = false;
};

class Notifications : public testing::Test {
protected:
    Notifications() {
        SetServer(kServer);
    }
    ~Notifications() override {
        if (subscription != nullptr)
            Unsubscribe();
    }

    Chain Subscribe() {
        return TakeChain(SubscribeToChangerNotifications(Record<'l'>, Record<'p'>, Record<'i'>,
                                                         this, &subscription));
    }
    void Unsubscribe() {
        EXPECT_EQ(UnsubscribeFromChangerNotifications(subscription), nullptr);
        subscription = nullptr;
    }
    void SubscribeAndConnect() {
        Subscribe();
        RunUntil([this] { return IsConnected(); });
    }

    bool IsCycling() const {
        return subscription->connectTimer != nullptr && subscription->socket == nullptr;
    }
    bool IsConnected() const {
        return subscription->connectTimer == nullptr && subscription->socket != nullptr;
    }
    bool IsStalled() const {
        return subscription->connectTimer == nullptr && subscription->socket == nullptr;
    }

    void CallOut(const std::string& chunk) {
        ServerNotificationSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, Bytes(chunk),
                                         subscription);
    }
    static std::string Notification(const char* key, const Value& value) {
        return FrameOfList(Dictionary({{key, value}}));
    }

    // The callbacks record l, p or i for the kind, and the value's XML without the envelope.
    template<char Kind>
    static void Record(CFTypeRef value, ChangerNotificationSubscription* from, void* refCon) {
        auto* self = static_cast<Notifications*>(refCon);
        EXPECT_EQ(from, self->subscription);
        const std::string xml = XmlOf(value);
        const std::size_t begin = xml.find("<plist version=\"1.0\">\n") + 22;
        self->received.push_back(Kind + (" " + xml.substr(begin, xml.rfind("\n</plist>") - begin)));
    }

    const TimersFireWhile ticking{[] { return true; }};
    const int timersBefore = CountTimers();
    ChangerNotificationSubscription* subscription = nullptr;
    std::vector<std::string> received;
    LogCapture log;
};

// ---- cycling ----

TEST_F(Notifications, SubscribingDoesNotWaitForTheServer) {
    EXPECT_THAT(Subscribe(), IsEmpty());
    EXPECT_TRUE(IsCycling());
    EXPECT_EQ(CountTableCalls(), 0);
    const RecordedTimer timer = LastTimer();
    EXPECT_EQ(timer.fireDate, kNow);
    EXPECT_EQ(timer.interval, 1.0);
    EXPECT_EQ(timer.flags, 0u);
    EXPECT_EQ(timer.order, 0);
    EXPECT_EQ(timer.callout, TryNotificationConnect);
}

TEST_F(Notifications, ConnectionRecordsTheProcessIdOfTheServer) {
    for (const int pid : {kServer, kRestarted}) {
        ScriptedServer server(SocketPath(pid), {SendAndWait("")});
        SetServer(pid);
        SetStartTime({pid, 20000});
        SubscribeAndConnect();
        EXPECT_EQ(subscription->server.pid, pid);
        EXPECT_EQ(subscription->server.startTime.tv_sec, pid);
        EXPECT_EQ(subscription->server.startTime.tv_usec, 20000);
        Unsubscribe();
    }
    SetStartTime({});
}

TEST_F(Notifications, ConnectingIsTriedUntilTheServerRuns) {
    SetProcesses({{1, "init"}});
    Subscribe();
    RunUntil([] { return CountTableCalls() >= 6; }); // three attempts
    EXPECT_TRUE(IsCycling());

    ScriptedServer server(SocketPath(kServer), {SendAndWait("")});
    SetServer(kServer);
    RunUntil([this] { return IsConnected(); });
    EXPECT_EQ(CountTimers() - timersBefore, 1); // one timer for all attempts
    Unsubscribe();
}

TEST_F(Notifications, ConnectingIsTriedWhileNoSocketListens) {
    Subscribe();
    RunUntil([] { return CountTableCalls() >= 6; });
    EXPECT_TRUE(IsCycling());
}

TEST_F(Notifications, SecondCycleIsNotStarted) {
    Subscribe();
    const CFRunLoopTimerRef timer = subscription->connectTimer;
    EXPECT_THAT(TakeChain(StartNotificationConnectCycle(subscription)), IsEmpty());
    EXPECT_EQ(subscription->connectTimer, timer);
    EXPECT_EQ(CountTimers() - timersBefore, 1);
}

TEST_F(Notifications, TimerOfAConnectedSubscriptionEndsTheCycle) {
    ScriptedServer server(SocketPath(kServer), {SendAndWait("")});
    SubscribeAndConnect();
    StartNotificationConnectCycle(subscription);
    const int calls = CountTableCalls();
    TryNotificationConnect(subscription->connectTimer, subscription);
    EXPECT_TRUE(IsConnected());
    EXPECT_EQ(CountTableCalls(), calls);
    Unsubscribe();
}

// ---- subscriptions that fail ----

TEST_F(Notifications, SubscriptionIsNullWithoutMemory) {
    EXPECT_EQ(ChainWithoutMemory([&] {
                  return SubscribeToChangerNotifications(nullptr, nullptr, nullptr, nullptr,
                                                         &subscription);
              }),
              Chain{Raised("fail alloc socket info", "SubscribeToChangerNotifications")});
    EXPECT_EQ(subscription, nullptr);
}

TEST_F(Notifications, SubscriptionIsNullWithoutRunLoopOrTimer) {
    for (const char* function : {"CFRunLoopGetCurrent", "CFRunLoopTimerCreate"}) {
        const Failing failing(function);
        EXPECT_EQ(Subscribe(),
                  (Chain{Raised("fail create connect timer", "StartNotificationConnectCycle"),
                         Raised("fail start notification connect cycle",
                                "SubscribeToChangerNotifications")}));
        EXPECT_EQ(subscription, nullptr);
    }
}

// ---- stalled ----

class StalledNotifications : public Notifications {
protected:
    // The run loop returns because no source and no timer is left.
    void ExpectStallAfter(const std::vector<std::string>& lines) {
        Subscribe();
        CFRunLoopRun();
        EXPECT_TRUE(IsStalled());
        EXPECT_EQ(subscription->source, nullptr);
        EXPECT_EQ(log.TakeWithoutLineNumbers(), lines);
        Unsubscribe();
    }
};

TEST_F(StalledNotifications, UnreadableProcessTableEndsTheCycle) {
    AnswerProcessTable({{ENFILE, {}}});
    ExpectStallAfter(
        {"ChangerServerMessages:123, GetChangerServerPID: unable to get BSD process list (err = "
         "23)",
         Logged("GetChangerServerNotificationSocketPath", "fail get changer server PID (err = 23)"),
         Logged("ConnectServerNotificationSocket", "fail get socket path (err = 23)"),
         Logged("TryNotificationConnect", "fail get notifcation socket (err = 23)")});
}

TEST_F(StalledNotifications, FailedAddressEndsTheCycle) {
    const Failing failing("CFDataCreate");
    ExpectStallAfter({Logged("ConnectServerNotificationSocket", "fail create socketAddrData"),
                      Logged("TryNotificationConnect", "fail get notifcation socket")});
}

TEST_F(StalledNotifications, FailedSourceEndsTheCycleAndTheConnection) {
    ScriptedServer server(SocketPath(kServer), {SendAndWait("")});
    const Failing failing("CFSocketCreateRunLoopSource");
    ExpectStallAfter({Logged("ConnectServerNotificationSocket", "fail create socket source"),
                      Logged("TryNotificationConnect", "fail get notifcation socket")});
    server.Join(); // the server has read the end of the stream
}

TEST_F(Notifications, FailedConnectionHasItsOwnCode) {
    Subscribe();
    EXPECT_EQ(TakeChain(ConnectServerNotificationSocket(subscription)),
              Chain{Raised("fail create/connect socket to path " + SocketPath(kServer),
                           "ConnectServerNotificationSocket", 0x40000000000003EA)});
    SetProcesses({{1, "init"}});
    EXPECT_EQ(TakeChain(ConnectServerNotificationSocket(subscription)),
              (Chain{Raised("fail find changer server", "GetChangerServerNotificationSocketPath",
                            0x40000000000003E9),
                     Raised("fail get socket path", "ConnectServerNotificationSocket",
                            0x40000000000003E9)}));
}

// ---- connected ----

TEST_F(Notifications, NotificationsAreDeliveredHoweverTheStreamIsSplit) {
    std::string stream;
    std::vector<std::string> expected;
    for (int i = 0; i < 60; ++i) {
        stream += Notification(i % 2 == 0 ? "changer list" : "changer info", i);
        expected.push_back((i % 2 == 0 ? "l <integer>" : "i <integer>") + std::to_string(i) +
                           "</integer>");
    }
    for (const std::size_t size : {1u, 7u, 300u, 1000000u}) {
        received.clear();
        ScriptedServer server(SocketPath(kServer), {SendAndWait(stream, size)});
        Subscribe();
        RunUntil([&] { return received.size() >= expected.size(); });
        EXPECT_EQ(received, expected) << size;
        Unsubscribe();
    }
}

class NotificationChunk : public Notifications {
protected:
    NotificationChunk() {
        Subscribe();
    }
};

TEST_F(NotificationChunk, CallbacksAreCalledInOrderOfTheirKinds) {
    CallOut(FrameOfList(Dictionary({{"changer info", "c"},
                                    {"root preferences", "b"},
                                    {"changer list", "a"},
                                    {"another key", "d"}})));
    EXPECT_THAT(received, ElementsAre("l <string>a</string>", "p <string>b</string>",
                                      "i <string>c</string>"));
}

TEST_F(NotificationChunk, KeyWithoutCallbackIsIgnored) {
    subscription->changerListCallBack = nullptr;
    subscription->changerInfoCallBack = nullptr;
    CallOut(FrameOfList(
        Dictionary({{"changer list", "a"}, {"root preferences", "b"}, {"changer info", "c"}})));
    EXPECT_THAT(received, ElementsAre("p <string>b</string>"));
}

TEST_F(NotificationChunk, ValuesOfAnyTypeAreDelivered) {
    CallOut(FrameOfList(Dictionary(
        {{"changer list", true}, {"root preferences", 7}, {"changer info", Dictionary()}})));
    EXPECT_THAT(received, ElementsAre("l <true/>", "p <integer>7</integer>", "i <dict/>"));
}

TEST_F(NotificationChunk, ListThatIsNoDictionaryIsIgnored) {
    CallOut(FrameOfList(Array({"changer list"})) + FrameOfList(Text("changer info")));
    EXPECT_THAT(received, IsEmpty());
}

TEST_F(NotificationChunk, SeveralFramesAndAPartialFrameAreDelivered) {
    const std::string third = Notification("changer info", 3);
    CallOut(Notification("changer list", 1) + Notification("changer info", 2) +
            third.substr(0, 20));
    EXPECT_THAT(received, ElementsAre("l <integer>1</integer>", "i <integer>2</integer>"));
    CallOut(third.substr(20));
    EXPECT_THAT(received, ElementsAre("l <integer>1</integer>", "i <integer>2</integer>",
                                      "i <integer>3</integer>"));
}

TEST_F(NotificationChunk, LostFrameIsLoggedAndTheNextFrameDelivered) {
    const std::string frame = Notification("changer list", 1);
    for (const LostFrame& each : LostFrames(frame, "notification")) {
        received.clear();
        {
            const Failing failing(each.failing);
            CallOut(each.bytes);
        }
        EXPECT_THAT(received, IsEmpty()) << each.message;
        EXPECT_THAT(log.TakeWithoutLineNumbers(),
                    ElementsAre(Logged("HandleNotificationSocketData", each.message),
                                Logged("ServerNotificationSocketCallBack",
                                       "fail handle notification socket data")));
        CallOut(Notification("changer list", 2));
        EXPECT_THAT(received, ElementsAre("l <integer>2</integer>")) << each.message;
    }
}

TEST_F(NotificationChunk, MalformedFrameBetweenTwoOthersIsDroppedAlone) {
    CallOut(Notification("changer list", 1) + FrameOf("no list") + Notification("changer list", 2));
    EXPECT_THAT(received, ElementsAre("l <integer>1</integer>", "l <integer>2</integer>"));
    EXPECT_EQ(log.Take().size(), 2u);
}

TEST_F(NotificationChunk, CalloutOfAnotherTypeIsRefused) {
    // Other callback types pass no CFData, and the pointer must not be read.
    const auto* notData = reinterpret_cast<const void*>(std::uintptr_t{16});
    ServerNotificationSocketCallBack(nullptr, 2, nullptr, notData, subscription);
    EXPECT_THAT(log.TakeWithoutLineNumbers(),
                ElementsAre(Logged("ServerNotificationSocketCallBack",
                                   "unexpected callback type 2 received")));
}

// ---- disconnected ----

TEST_F(Notifications, RestartedServerIsConnectedAgain) {
    Ending ending;
    ScriptedServer first(SocketPath(kServer),
                         {ending.SendAndClose(Notification("changer list", 1))});
    ScriptedServer second(SocketPath(kRestarted), {SendAndWait(Notification("changer list", 2))});
    SubscribeAndConnect();
    RunUntil([this] { return received.size() == 1; });
    // The source of an ended connection is not released when the next one replaces it.
    const CFOwned lastSource(subscription->source);
    const auto watched = Share(lastSource.Get());

    SetServer(kRestarted);
    ending.End();
    RunUntil([this] { return received.size() == 2; });
    EXPECT_TRUE(IsConnected());
    EXPECT_NE(subscription->source, lastSource.Get());
    EXPECT_THAT(received, ElementsAre("l <integer>1</integer>", "l <integer>2</integer>"));
    EXPECT_EQ(CountTimers() - timersBefore, 2);
    EXPECT_EQ(LastTimer().fireDate, kNow); // at once
    EXPECT_EQ(LastTimer().interval, 1.0);
    Unsubscribe();
    EXPECT_EQ(static_cast<const cf::Object*>(CFTypeRef(lastSource.Get()))->references, 2);
}

TEST_F(Notifications, PartialFrameOfTheLastConnectionIsDropped) {
    const std::string frame = Notification("changer list", 1);
    Ending ending;
    ScriptedServer server(SocketPath(kServer),
                          {ending.SendAndClose(frame.substr(0, 40)), SendAndWait(frame)});
    SubscribeAndConnect();
    RunUntil([this] { return subscription->frame.pendingData != nullptr; });
    const CFOwned lastSource(subscription->source);
    ending.End();
    RunUntil([this] { return !received.empty(); });
    EXPECT_THAT(received, ElementsAre("l <integer>1</integer>"));
    Unsubscribe();
}

TEST_F(Notifications, DisconnectWithoutTimerIsLoggedAndFinal) {
    Ending ending;
    ScriptedServer server(SocketPath(kServer), {ending.SendAndClose("")});
    SubscribeAndConnect();
    const Failing failing("CFRunLoopTimerCreate");
    ending.End();
    CFRunLoopRun(); // returns when no source is left
    EXPECT_TRUE(IsStalled());
    EXPECT_THAT(
        log.TakeWithoutLineNumbers(),
        ElementsAre(Logged("StartNotificationConnectCycle", "fail create connect timer"),
                    Logged("HandleServerDisconnect", "fail start notification connect cycle"),
                    Logged("ServerNotificationSocketCallBack", "fail handle server disconnect")));
}

// ---- unsubscribed ----

TEST_F(Notifications, UnsubscribingWhileCyclingEndsTheAttempts) {
    Subscribe();
    Unsubscribe();
    CFRunLoopRun(); // returns when no source is left
    EXPECT_EQ(CountTableCalls(), 0);
}

TEST_F(Notifications, UnsubscribingInTheMiddleOfAFrameClosesTheConnection) {
    ScriptedServer server(SocketPath(kServer),
                          {SendAndWait(Notification("changer list", 1).substr(0, 40))});
    SubscribeAndConnect();
    RunUntil([this] { return subscription->frame.pendingData != nullptr; });
    Unsubscribe();
    server.Join();
    CFRunLoopRun();
    EXPECT_THAT(received, IsEmpty());
}

} // namespace
