/* Exchanges with a scripted server on a local socket. */

#include "AllocationFaults.h"
#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "Frames.h"
#include "ProcessTable.h"
#include "RefusedKey.h"
#include "ScriptedServer.h"
#include "Seams.h"
#include "TimerControl.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern "C" {
CFSocketRef __real_CFSocketCreateConnectedToSocketSignature(CFAllocatorRef,
                                                            const CFSocketSignature*, CFOptionFlags,
                                                            CFSocketCallBack,
                                                            const CFSocketContext*, CFTimeInterval);

CFSocketRef __wrap_CFSocketCreateConnectedToSocketSignature(
    CFAllocatorRef allocator, const CFSocketSignature* signature, CFOptionFlags callBackTypes,
    CFSocketCallBack callout, const CFSocketContext* context, CFTimeInterval timeout) {
    EXPECT_EQ(callBackTypes, 3u);
    EXPECT_EQ(timeout, 30.0);
    return __real_CFSocketCreateConnectedToSocketSignature(allocator, signature, callBackTypes,
                                                           callout, context, timeout);
}
}

namespace {

constexpr VErrCode kTimeout = 0x40000000000003EC;
constexpr VErrCode kLost = 0x40000000000003ED;
constexpr VErrCode kNotFound = 0x40000000000003E9;

const char kMessages[] = "ChangerServerConnectionLib/ChangerServerMessages";

RaisedLink Raised(const std::string& message, const std::string& function,
                  VErrCode code = kVErrCodeDefault) {
    return {message, function, kMessages, code};
}

std::string SocketPath() {
    return "/tmp/carouseld-" + std::to_string(getpid());
}

// Sends the bytes in pieces of the given size and waits until the client closes.
Script ReplyBytes(std::string bytes, std::size_t pieceSize = 65536) {
    return [=](Connection& connection) {
        connection.ReadFrame();
        connection.Write(bytes, pieceSize);
        connection.WaitForEnd();
    };
}

Script Reply(CFPropertyListRef list) {
    return ReplyBytes(FrameOfList(list));
}

// Sends the bytes and closes at once.
Script ReplyAndClose(std::string bytes) {
    return [=](Connection& connection) {
        connection.ReadFrame();
        connection.Write(bytes);
    };
}

const Script kEcho = [](Connection& connection) {
    connection.Write(FrameOf(connection.ReadFrame()));
    connection.WaitForEnd();
};

const Chain kLostConnection = {
    Raised("lost connection with changer server", "GetMessageReplyErr", kLost)};
const Chain kTimedOut = {
    Raised("timeout waiting for reply from changer server", "GetMessageReplyErr", kTimeout)};

class Exchange : public testing::Test {
protected:
    Exchange() {
        SetProcesses({{1, "init"}, {getpid(), "carouseld"}});
    }
    ~Exchange() override {
        SetClock(kNow);
    }

    Chain Send() {
        return TakeChain(SendMessageToChangerServer(message, reply.Out()));
    }
    Chain SendTo(Script script) {
        ScriptedServer server(SocketPath(), {std::move(script)});
        return Send();
    }
    // Sends to a server that does not reply. The timer fires once the server has the request.
    Chain SendUntilTimeOut() {
        std::atomic<bool> isRequested = false;
        const TimersFireWhile timingOut([&] { return isRequested.load(); });
        return SendTo([&](Connection& connection) {
            connection.ReadFrame();
            isRequested = true;
            connection.WaitForEnd();
        });
    }

    CFOwned<CFMutableDictionaryRef> message = Dictionary({{"command", "test"}});
    CFOwned<CFDictionaryRef> reply;
    LogCapture log;
};

// ---- success ----

TEST_F(Exchange, MessageIsSentAndReplyReturned) {
    std::string request;
    EXPECT_THAT(SendTo([&](Connection& connection) {
                    request = connection.ReadFrame();
                    connection.Write(FrameOfList(Dictionary({{"mount path", "/mnt"}})));
                    connection.WaitForEnd();
                }),
                IsEmpty());
    EXPECT_EQ(request, XmlOf(Dictionary({{"command", "test"}})));
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"mount path", "/mnt"}})));
}

TEST_F(Exchange, TimerOfTheReplyFiresAfterThirtySeconds) {
    SendTo(Reply(Dictionary()));
    const RecordedTimer timer = LastTimer();
    EXPECT_EQ(timer.fireDate, kNow + 30);
    EXPECT_EQ(timer.interval, 0);
    EXPECT_EQ(timer.flags, 0u);
    EXPECT_EQ(timer.order, 0);
    EXPECT_EQ(timer.callout, HandleSocketTimeout);
}

// The reply's thirty seconds begin when the request has been written.
TEST_F(Exchange, SendingHasItsOwnThirtySeconds) {
    const int timersBefore = CountTimers();
    int sendings = 0;
    const OnSending sending([&](CFTimeInterval timeout) {
        ++sendings;
        EXPECT_EQ(timeout, 30.0);
        EXPECT_EQ(CountTimers(), timersBefore);
        SetClock(kNow + 29);
    });
    SendTo(Reply(Dictionary()));
    EXPECT_EQ(sendings, 1);
    EXPECT_EQ(LastTimer().fireDate, kNow + 29 + 30);
}

TEST_F(Exchange, ReplySentInPiecesIsAssembled) {
    const std::string frame = FrameOfList(Dictionary({{"key", std::string(500, 'x').c_str()}}));
    for (const std::size_t size : {1u, 5u, 11u, 13u, 500u}) {
        EXPECT_THAT(SendTo(ReplyBytes(frame, size)), IsEmpty()) << size;
        EXPECT_EQ(FrameOfList(reply), frame);
    }
}

// More than a socket's buffer in both directions.
TEST_F(Exchange, LargeMessageAndReplyAreTransferred) {
    const std::string text(3 * 1024 * 1024, 'x');
    message = Dictionary({{"key", text.c_str()}});
    EXPECT_THAT(
        SendTo([](Connection& connection) { connection.Write(FrameOf(connection.ReadFrame())); }),
        IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(message));
}

TEST_F(Exchange, ReplyIsReturnedAlthoughTheServerClosesAtOnce) {
    const auto list = Dictionary({{"key", 1}});
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(SendTo(ReplyAndClose(FrameOfList(list))), IsEmpty());
        EXPECT_EQ(XmlOf(reply), XmlOf(list));
    }
}

TEST_F(Exchange, MessageWithoutReplyHasTheNoReplyKeyAndReturnsOnceWritten) {
    std::string request;
    ScriptedServer server(SocketPath(), {[&](Connection& connection) {
                              request = connection.ReadFrame();
                              connection.WaitForEnd();
                          }});
    EXPECT_THAT(TakeChain(SendMessageToChangerServer(message, nullptr)), IsEmpty());
    server.Join();
    EXPECT_EQ(request, XmlOf(Dictionary({{"command", "test"}, {"no reply", true}})));
    EXPECT_EQ(XmlOf(message), XmlOf(Dictionary({{"command", "test"}})));
}

TEST_F(Exchange, EachExchangeOpensItsOwnConnection) {
    const CFOwned<CFMutableDictionaryRef> replies[] = {Dictionary({{"key", 1}}),
                                                       Dictionary({{"key", 2}})};
    ScriptedServer server(SocketPath(), {Reply(replies[0]), Reply(replies[1])});
    for (const auto& expected : replies) {
        EXPECT_THAT(Send(), IsEmpty());
        EXPECT_EQ(XmlOf(reply), XmlOf(expected));
    }
    EXPECT_EQ(CountTableCalls(), 4); // each exchange finds the server again: a size and a fetch
}

TEST_F(Exchange, ReplyThatIsNoDictionaryIsReturned) {
    EXPECT_THAT(SendTo(Reply(Array({1}))), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Array({1})));
}

// ---- errors of the server ----

TEST_F(Exchange, ErrorOfTheServerIsReturnedUnchanged) {
    const auto list =
        Dictionary({{"error code", kVErrFacilityBase + 1020}, {"error string", "under way"}});
    EXPECT_EQ(SendTo(Reply(list)),
              Chain{Raised("under way", "GetMessageReplyErr", kVErrFacilityBase + 1020)});
    EXPECT_EQ(XmlOf(reply), XmlOf(list));
}

TEST_F(Exchange, ReplyWithInvalidErrorCodeFails) {
    EXPECT_EQ(SendTo(Reply(Dictionary({{"error code", "text"}}))),
              (Chain{Raised("fail convert CFNumber to VErrCode", "GetMessageReplyErr"),
                     Raised("fail get message reply err", "SendMessageToChangerServer")}));
    EXPECT_NE(reply, nullptr);
}

// ---- lost connections and time-outs ----

TEST_F(Exchange, ServerThatClosesWithoutACompleteReplyIsALostConnection) {
    const std::string frame = FrameOfList(Dictionary());
    for (const std::string& sent : {std::string(), frame.substr(0, 30)}) {
        EXPECT_EQ(SendTo(ReplyAndClose(sent)), kLostConnection) << sent;
        EXPECT_EQ(XmlOf(reply),
                  XmlOf(Dictionary({{"error code", kLost},
                                    {"error string", "lost connection with changer server"}})));
    }
}

// The kernel reports a reset instead of the end of the stream.
TEST_F(Exchange, ServerThatClosesWithTheRequestUnreadIsALostConnection) {
    EXPECT_EQ(SendTo([](Connection& connection) { connection.WaitForInput(); }), kLostConnection);
}

TEST_F(Exchange, ServerThatDoesNotReplyIsATimeOut) {
    EXPECT_EQ(SendUntilTimeOut(), kTimedOut);
    EXPECT_EQ(
        XmlOf(reply),
        XmlOf(Dictionary({{"error code", kTimeout},
                          {"error string", "timeout waiting for reply from changer server"}})));
}

TEST_F(Exchange, MalformedReplyIsATimeOutIfTheServerDoesNotClose) {
    const TimersFireWhile timingOut([this] { return log.HasLines(); });
    struct {
        std::string bytes;
        const char* message;
    } const cases[] = {
        {"rubbish, not a frame", "invalid message header on data received"},
        {FrameOfList(Dictionary()) + "x", "inconsitent data length"},
        {FrameOf(""), "fail make property list from XML data (Cannot parse a NULL or zero-length "
                      "data)"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(SendTo(ReplyBytes(each.bytes)), kTimedOut);
        EXPECT_THAT(log.TakeWithoutLineNumbers(),
                    ElementsAre("ChangerServerMessages:123, HandleChangerServerSocketData: " +
                                    std::string(each.message),
                                "ChangerServerMessages:123, ServerMessageSocketCallBack: fail "
                                "handle message socket data"));
    }
}

TEST_F(Exchange, MalformedReplyIsALostConnectionIfTheServerCloses) {
    EXPECT_EQ(SendTo(ReplyAndClose("rubbish")), kLostConnection);
    EXPECT_EQ(log.Take().size(), 2u);
}

TEST_F(Exchange, TimeOutWithoutMemoryLeavesNoReply) {
    std::optional<Failing> failing;
    const OnSending shortage([&](CFTimeInterval) { failing.emplace("CFDictionaryCreateMutable"); });
    EXPECT_EQ(SendUntilTimeOut(),
              Chain{Raised("fail to get message reply", "SendMessageToChangerServer")});
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(log.Take().size(), 2u);
}

// ---- failing steps ----

TEST_F(Exchange, FailedExchangeSetsTheReplyToNull) {
    SetProcesses({{1, "init"}});
    const auto earlier = Dictionary();
    CFDictionaryRef slot = earlier;
    EXPECT_THAT(TakeChain(SendMessageToChangerServer(message, &slot)), testing::SizeIs(3));
    EXPECT_EQ(slot, nullptr);
}

TEST_F(Exchange, NothingIsSentWithoutMemoryForTheNoReplyKey) {
    const RefusedKey refused("no reply");
    EXPECT_EQ(TakeChain(SendMessageToChangerServer(message, nullptr)),
              Chain{Raised("fail create copy of message dict", "SendMessageToChangerServer")});
}

TEST_F(Exchange, FailsWithoutAServerProcess) {
    SetProcesses({{1, "init"}});
    EXPECT_EQ(
        Send(),
        (Chain{Raised("fail find changer server", "GetChangerServerMessageSocketPath", kNotFound),
               Raised("fail get socket path", "GetChangerServerMessageSocket", kNotFound),
               Raised("fail get server socket", "SendMessageToChangerServer", kNotFound)}));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(Exchange, FailsWithoutAListeningSocket) {
    EXPECT_EQ(Send(), (Chain{Raised("fail create/connect socket to path " + SocketPath(),
                                    "GetChangerServerMessageSocket"),
                             Raised("fail get server socket", "SendMessageToChangerServer")}));
}

TEST_F(Exchange, ServerThatClosesBeforeTheRequestFailsTheSending) {
    ScriptedServer server(SocketPath(), {[](Connection&) {}});
    const OnSending closing([&](CFTimeInterval) { server.Join(); });
    EXPECT_EQ(Send(),
              (Chain{Raised("fail send data on socket", "SendDataOnSocket", -1),
                     Raised("fail send changer client data", "SendMessageOnSocket", -1),
                     Raised("fail send message on socket", "SendMessageToChangerServer", -1)}));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(Exchange, FailingStepFailsTheExchange) {
    const struct {
        const char* failing; // function
        Chain chain;
    } cases[] = {
        {"CFDictionaryCreateMutableCopy",
         {Raised("fail create copy of message dict", "SendMessageToChangerServer")}},
        {"CFDataCreate",
         {Raised("fail create socketAddrData", "GetChangerServerMessageSocket"),
          Raised("fail get server socket", "SendMessageToChangerServer")}},
        {"CFSocketCreateRunLoopSource",
         {Raised("fail create socket source", "SendMessageToChangerServer")}},
        {"CFPropertyListCreateXMLData",
         {Raised("fail create data from dictionary", "SendMessageOnSocket"),
          Raised("fail send message on socket", "SendMessageToChangerServer")}},
        {"CFDataCreateMutable",
         {Raised("fail alloc message data", "SendDataOnSocket"),
          Raised("fail send changer client data", "SendMessageOnSocket"),
          Raised("fail send message on socket", "SendMessageToChangerServer")}},
        {"CFSocketSendData",
         {Raised("fail send data on socket", "SendDataOnSocket", -2),
          Raised("fail send changer client data", "SendMessageOnSocket", -2),
          Raised("fail send message on socket", "SendMessageToChangerServer", -2)}},
        {"CFRunLoopTimerCreate",
         {Raised("fail create timeout timer", "SendMessageToChangerServer")}},
    };
    for (const auto& each : cases) {
        ScriptedServer server(SocketPath(), {SendAndWait("")});
        const Failing failing(each.failing);
        EXPECT_EQ(Send(), each.chain);
        EXPECT_EQ(reply, nullptr) << each.failing;
    }
}

TEST_F(Exchange, FailsCleanlyForEachFailingAllocation) {
    const TimersFireWhile timingOut([this] { return log.HasLines(); });
    const auto list = Dictionary({{"key", "a value"}, {"error code", 5}, {"error string", "why"}});
    VErrLink* err = nullptr;
    CFDictionaryRef received = nullptr;
    std::size_t nth = 1;
    for (bool happened = true; happened; ++nth) {
        const ScriptedServer server(SocketPath(), {Reply(list)});
        {
            const AllocationFault fault(nth);
            err = SendMessageToChangerServer(message, &received);
            happened = AllocationFault::Happened();
        }
        log.Take();
        EXPECT_NE(err, nullptr) << nth;
        if (!happened) {
            EXPECT_EQ(ReadChain(err), Chain{Raised("why", "GetMessageReplyErr", 5)});
            EXPECT_EQ(XmlOf(received), XmlOf(list));
        }
        ReleaseVErrLink(err);
        if (received != nullptr)
            CFRelease(received);
    }
    EXPECT_GT(nth, 20u);
}

// ---- concurrent and nested exchanges ----

TEST_F(Exchange, ConcurrentExchangesGetTheirOwnReplies) {
    constexpr int kThreads = 3;
    constexpr int kRounds = 15;
    ScriptedServer server(SocketPath(), std::vector<Script>(kThreads * kRounds, kEcho));
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int round = 0; round < kRounds; ++round) {
                const auto request = Dictionary({{"thread", thread}, {"round", round}});
                CFOwned<CFDictionaryRef> answer;
                EXPECT_THAT(TakeChain(SendMessageToChangerServer(request, answer.Out())),
                            IsEmpty());
                EXPECT_EQ(XmlOf(answer), XmlOf(request));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// A callout that sends a request runs the loop again, nested in the running one.
TEST_F(Exchange, NestedExchangeFiresOtherTimersAndStopsOnlyItsOwnRun) {
    std::vector<std::string> received;
    std::atomic<bool> ticked = false;
    ScriptedServer server(SocketPath(), {[&](Connection& connection) {
                              connection.ReadFrame();
                              ticked.wait(false); // until the nested run has fired a timer
                              connection.Write(FrameOfList(Dictionary({{"key", 1}})));
                              connection.WaitForEnd();
                          }});
    bool sent = false;
    const Tick sender([&] {
        if (std::exchange(sent, true))
            return;
        EXPECT_THAT(Send(), IsEmpty());
        received.emplace_back("replied");
    });
    const Tick other([&] {
        if (!received.empty()) // the outer run continues
            CFRunLoopStop(CFRunLoopGetCurrent());
        ticked = true;
        ticked.notify_all();
    });
    CFRunLoopRun();
    EXPECT_THAT(received, ElementsAre("replied"));
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 1}})));
}

} // namespace
