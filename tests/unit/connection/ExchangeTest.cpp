/* Whole exchanges with a scripted server on a real socket. */

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
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// Called after the connection is made and before data is sent.
static thread_local std::function<void()> t_beforeSending;

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
    CFSocketRef socket = __real_CFSocketCreateConnectedToSocketSignature(
        allocator, signature, callBackTypes, callout, context, timeout);
    if (t_beforeSending)
        t_beforeSending();
    return socket;
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
Script AnswerBytes(std::string bytes, std::size_t pieceSize = 65536) {
    return [=](Connection& connection) {
        connection.ReadFrame();
        for (std::size_t i = 0; i < bytes.size(); i += pieceSize)
            connection.Write(std::string_view(bytes).substr(i, pieceSize));
        connection.WaitForEnd();
    };
}

Script Answer(CFPropertyListRef list) {
    return AnswerBytes(FrameOfList(list));
}

class Exchange : public testing::Test {
protected:
    Exchange() {
        SetProcesses({{1, "init"}, {getpid(), "carouseld"}});
    }
    ~Exchange() override {
        t_beforeSending = nullptr;
        SetClock(kNow);
    }

    Chain Send() {
        return TakeChain(SendMessageToChangerServer(message, reply.Out()));
    }
    Chain SendTo(Script script) {
        ScriptedServer server(SocketPath(), {std::move(script)});
        return Send();
    }

    CFOwned<CFMutableDictionaryRef> message = Dictionary({{"command", "test"}});
    CFOwned<CFDictionaryRef> reply;
    LogCapture log;
};

// ---- success ----

TEST_F(Exchange, SendsTheMessageAndGivesBackTheReply) {
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

TEST_F(Exchange, WaitsThirtySecondsForTheReply) {
    SendTo(Answer(Dictionary()));
    const RecordedTimer timer = LastTimer();
    EXPECT_EQ(timer.fireDate, kNow + 30);
    EXPECT_EQ(timer.interval, 0);
    EXPECT_EQ(timer.flags, 0u);
    EXPECT_EQ(timer.order, 0);
    EXPECT_EQ(timer.callout, HandleSocketTimeout);
}

// The reply's thirty seconds begin when the request has been written.
TEST_F(Exchange, SendsWithinThirtySecondsBeforeItsTimerStarts) {
    const int timersBefore = CountTimers();
    int sendings = 0;
    const OnSending sending([&](CFTimeInterval timeout) {
        ++sendings;
        EXPECT_EQ(timeout, 30.0);
        EXPECT_EQ(CountTimers(), timersBefore);
        SetClock(kNow + 29);
    });
    SendTo(Answer(Dictionary()));
    EXPECT_EQ(sendings, 1);
    EXPECT_EQ(LastTimer().fireDate, kNow + 29 + 30);
}

TEST_F(Exchange, AssemblesAReplySentInPieces) {
    const std::string frame = FrameOfList(Dictionary({{"key", std::string(500, 'x').c_str()}}));
    for (const std::size_t size : {1u, 5u, 11u, 13u, 500u}) {
        EXPECT_THAT(SendTo(AnswerBytes(frame, size)), IsEmpty()) << size;
        EXPECT_EQ(FrameOfList(reply), frame);
    }
}

TEST_F(Exchange, ReceivesAReplyLargerThanASocketBuffer) {
    const std::string text(3 * 1024 * 1024, 'x');
    EXPECT_THAT(SendTo(Answer(Dictionary({{"key", text.c_str()}}))), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", text.c_str()}})));
}

TEST_F(Exchange, SendsAMessageLargerThanASocketBuffer) {
    const std::string text(3 * 1024 * 1024, 'x');
    message = Dictionary({{"key", text.c_str()}});
    std::string request;
    EXPECT_THAT(SendTo([&](Connection& connection) {
                    request = connection.ReadFrame();
                    connection.Write(FrameOfList(Dictionary()));
                }),
                IsEmpty());
    EXPECT_EQ(request, XmlOf(message));
}

TEST_F(Exchange, AReplyIsReturnedAlthoughTheServerClosesAtOnce) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(SendTo([](Connection& connection) {
                        connection.ReadFrame();
                        connection.Write(FrameOfList(Dictionary({{"key", 1}})));
                    }),
                    IsEmpty());
        EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 1}})));
    }
}

TEST_F(Exchange, AMessageWithoutReplySetsNoReplyAndReturnsOnceWritten) {
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
    ScriptedServer server(SocketPath(),
                          {Answer(Dictionary({{"key", 1}})), Answer(Dictionary({{"key", 2}}))});
    EXPECT_THAT(Send(), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 1}})));
    EXPECT_THAT(Send(), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 2}})));
    EXPECT_EQ(CountTableCalls(), 4); // each exchange finds the server again: a size and a fetch
}

TEST_F(Exchange, AReplyThatIsNoDictionaryIsReturned) {
    EXPECT_THAT(SendTo(Answer(Array({1}))), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Array({1})));
}

// ---- errors of the server ----

TEST_F(Exchange, ReturnsTheServersErrorUnchanged) {
    const auto list =
        Dictionary({{"error code", kVErrFacilityBase + 1020}, {"error string", "under way"}});
    EXPECT_EQ(SendTo(Answer(list)),
              Chain{Raised("under way", "GetMessageReplyErr", kVErrFacilityBase + 1020)});
    EXPECT_EQ(XmlOf(reply), XmlOf(list));
}

TEST_F(Exchange, AReplyThatCannotBeReadFails) {
    EXPECT_EQ(SendTo(Answer(Dictionary({{"error code", "text"}}))),
              (Chain{Raised("fail convert CFNumber to VErrCode", "GetMessageReplyErr"),
                     Raised("fail get message reply err", "SendMessageToChangerServer")}));
    EXPECT_NE(reply, nullptr);
}

// ---- lost connections and time-outs ----

TEST_F(Exchange, AServerThatClosesWithoutReplyIsALostConnection) {
    EXPECT_EQ(SendTo([](Connection& connection) { connection.ReadFrame(); }),
              Chain{Raised("lost connection with changer server", "GetMessageReplyErr", kLost)});
    EXPECT_EQ(XmlOf(reply),
              XmlOf(Dictionary({{"error code", kLost},
                                {"error string", "lost connection with changer server"}})));
}

TEST_F(Exchange, AServerThatClosesInsideTheReplyIsALostConnection) {
    EXPECT_EQ(SendTo([](Connection& connection) {
                  connection.ReadFrame();
                  connection.Write(FrameOfList(Dictionary()).substr(0, 30));
              }),
              Chain{Raised("lost connection with changer server", "GetMessageReplyErr", kLost)});
}

// The kernel reports a reset instead of the end of the stream.
TEST_F(Exchange, AServerThatClosesWithTheRequestUnreadIsALostConnection) {
    EXPECT_EQ(SendTo([](Connection& connection) { connection.WaitForInput(); }),
              Chain{Raised("lost connection with changer server", "GetMessageReplyErr", kLost)});
}

TEST_F(Exchange, ASilentServerIsATimeOut) {
    std::atomic<bool> requested = false;
    const TimersFireWhile timingOut([&] { return requested.load(); });
    EXPECT_EQ(SendTo([&](Connection& connection) {
                  connection.ReadFrame();
                  requested = true;
                  connection.WaitForEnd();
              }),
              Chain{Raised("timeout waiting for reply from changer server", "GetMessageReplyErr",
                           kTimeout)});
    EXPECT_EQ(
        XmlOf(reply),
        XmlOf(Dictionary({{"error code", kTimeout},
                          {"error string", "timeout waiting for reply from changer server"}})));
}

TEST_F(Exchange, AMalformedReplyEndsAsATimeOutWhileTheServerStays) {
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
        EXPECT_EQ(SendTo(AnswerBytes(each.bytes)),
                  Chain{Raised("timeout waiting for reply from changer server",
                               "GetMessageReplyErr", kTimeout)});
        EXPECT_THAT(log.TakeWithoutLineNumbers(),
                    ElementsAre("ChangerServerMessages:123, HandleChangerServerSocketData: " +
                                    std::string(each.message),
                                "ChangerServerMessages:123, ServerMessageSocketCallBack: fail "
                                "handle message socket data"));
    }
}

TEST_F(Exchange, AMalformedReplyEndsAsALostConnectionWhenTheServerCloses) {
    EXPECT_EQ(SendTo([](Connection& connection) {
                  connection.ReadFrame();
                  connection.Write("rubbish");
              }),
              Chain{Raised("lost connection with changer server", "GetMessageReplyErr", kLost)});
    EXPECT_EQ(log.Take().size(), 2u);
}

TEST_F(Exchange, ATimeOutWithoutMemoryLeavesNoReply) {
    std::atomic<bool> requested = false;
    const TimersFireWhile timingOut([&] { return requested.load(); });
    std::optional<Failing> failing;
    t_beforeSending = [&] { failing.emplace("CFDictionaryCreateMutable"); };
    EXPECT_EQ(SendTo([&](Connection& connection) {
                  connection.ReadFrame();
                  requested = true;
                  connection.WaitForEnd();
              }),
              Chain{Raised("fail to get message reply", "SendMessageToChangerServer")});
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(log.Take().size(), 2u);
}

// ---- failing steps ----

TEST_F(Exchange, AFailedExchangeSetsTheCallersReplyToNull) {
    SetProcesses({{1, "init"}});
    const auto earlier = Dictionary();
    CFDictionaryRef slot = earlier;
    EXPECT_THAT(TakeChain(SendMessageToChangerServer(message, &slot)), testing::SizeIs(3));
    EXPECT_EQ(slot, nullptr);
}

TEST_F(Exchange, WithoutMemoryForTheNoReplyKeyNothingIsSent) {
    const RefusedKey refused("no reply");
    EXPECT_EQ(TakeChain(SendMessageToChangerServer(message, nullptr)),
              Chain{Raised("fail create copy of message dict", "SendMessageToChangerServer")});
}

TEST_F(Exchange, WithoutServerFailsToFindIt) {
    SetProcesses({{1, "init"}});
    EXPECT_EQ(
        Send(),
        (Chain{Raised("fail find changer server", "GetChangerServerMessageSocketPath", kNotFound),
               Raised("fail get socket path", "GetChangerServerMessageSocket", kNotFound),
               Raised("fail get server socket", "SendMessageToChangerServer", kNotFound)}));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(Exchange, WithoutListenerFailsToConnect) {
    EXPECT_EQ(Send(), (Chain{Raised("fail create/connect socket to path " + SocketPath(),
                                    "GetChangerServerMessageSocket"),
                             Raised("fail get server socket", "SendMessageToChangerServer")}));
}

TEST_F(Exchange, AServerThatClosesBeforeTheRequestFailsTheSending) {
    ScriptedServer server(SocketPath(), {[](Connection&) {}});
    t_beforeSending = [&] { server.Join(); };
    EXPECT_EQ(Send(),
              (Chain{Raised("fail send data on socket", "SendDataOnSocket", -1),
                     Raised("fail send changer client data", "SendMessageOnSocket", -1),
                     Raised("fail send message on socket", "SendMessageToChangerServer", -1)}));
    EXPECT_EQ(reply, nullptr);
}

struct FailingStep {
    const char* function;
    Chain chain;
};

void PrintTo(const FailingStep& step, std::ostream* out) {
    *out << step.function;
}

class ExchangeStep : public Exchange, public testing::WithParamInterface<FailingStep> {};

INSTANTIATE_TEST_SUITE_P(
    OfAnExchange, ExchangeStep,
    testing::Values(
        FailingStep{"CFDictionaryCreateMutableCopy",
                    {Raised("fail create copy of message dict", "SendMessageToChangerServer")}},
        FailingStep{"CFDataCreate",
                    {Raised("fail create socketAddrData", "GetChangerServerMessageSocket"),
                     Raised("fail get server socket", "SendMessageToChangerServer")}},
        FailingStep{"CFSocketCreateRunLoopSource",
                    {Raised("fail create socket source", "SendMessageToChangerServer")}},
        FailingStep{"CFPropertyListCreateXMLData",
                    {Raised("fail create data from dictionary", "SendMessageOnSocket"),
                     Raised("fail send message on socket", "SendMessageToChangerServer")}},
        FailingStep{"CFDataCreateMutable",
                    {Raised("fail alloc message data", "SendDataOnSocket"),
                     Raised("fail send changer client data", "SendMessageOnSocket"),
                     Raised("fail send message on socket", "SendMessageToChangerServer")}},
        FailingStep{"CFSocketSendData",
                    {Raised("fail send data on socket", "SendDataOnSocket", -2),
                     Raised("fail send changer client data", "SendMessageOnSocket", -2),
                     Raised("fail send message on socket", "SendMessageToChangerServer", -2)}},
        FailingStep{"CFRunLoopTimerCreate",
                    {Raised("fail create timeout timer", "SendMessageToChangerServer")}}));

TEST_P(ExchangeStep, FailsTheExchange) {
    ScriptedServer server(SocketPath(), {[](Connection& connection) { connection.WaitForEnd(); }});
    const Failing failing(GetParam().function);
    EXPECT_EQ(Send(), GetParam().chain);
    EXPECT_EQ(reply, nullptr);
}

// Whichever allocation fails, the exchange returns, and each loss is logged.
TEST_F(Exchange, FailsCleanlyWhicheverAllocationFails) {
    const TimersFireWhile timingOut([this] { return log.HasLines(); });
    const auto list = Dictionary({{"key", "a value"}, {"error code", 5}, {"error string", "why"}});
    VErrLink* err = nullptr;
    CFDictionaryRef received = nullptr;
    std::size_t nth = 1;
    for (bool happened = true; happened; ++nth) {
        const ScriptedServer server(SocketPath(), {Answer(list)});
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

// ---- several at once ----

TEST_F(Exchange, ConcurrentExchangesGetTheirOwnReplies) {
    constexpr int kThreads = 3;
    constexpr int kRounds = 15;
    const Script echo = [](Connection& connection) {
        const std::string request = connection.ReadFrame();
        connection.Write(FrameOf(request));
        connection.WaitForEnd();
    };
    ScriptedServer server(SocketPath(), std::vector<Script>(kThreads * kRounds, echo));
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
TEST_F(Exchange, ANestedExchangeRunsOtherTimersAndStopsOnlyItsOwnLoop) {
    std::vector<std::string> received;
    std::atomic<bool> ticked = false;
    ScriptedServer server(SocketPath(), {[&](Connection& connection) {
                              connection.ReadFrame();
                              ticked.wait(
                                  false); // replies after the nested run has fired the timer
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
