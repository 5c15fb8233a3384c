/* Data received on a message socket, callout by callout, and the error that a reply contains. */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "Frames.h"
#include "Seams.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

static thread_local int t_stops = 0; // calls of CFRunLoopStop

extern "C" {
void __real_CFRunLoopStop(CFRunLoopRef runLoop);

void __wrap_CFRunLoopStop(CFRunLoopRef runLoop) {
    ++t_stops;
    __real_CFRunLoopStop(runLoop);
}
}

namespace {

constexpr VErrCode kTimeout = 0x40000000000003EC;
constexpr VErrCode kLost = 0x40000000000003ED;

const char kMessages[] = "ChangerServerConnectionLib/ChangerServerMessages";

CFOwned<CFMutableDictionaryRef> ErrorReply(VErrCode code, const char* text) {
    return Dictionary({{"error code", code}, {"error string", text}});
}

class Reply : public testing::Test {
protected:
    Reply() {
        t_stops = 0;
    }
    ~Reply() override {
        ResetFrameAssembly(&info.frame);
    }

    Chain Handle(const std::string& chunk) {
        CFDictionaryRef received = nullptr;
        Chain chain = TakeChain(HandleChangerServerSocketData(Bytes(chunk), &received, &info));
        if (received != nullptr)
            reply = CFOwned(received);
        return chain;
    }
    void CallOut(const std::string& chunk) {
        info.reply = reply.Out();
        ServerMessageSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, Bytes(chunk), &info);
    }
    void ExpectLogged(const std::vector<std::string>& lines) {
        std::vector<std::string> expected;
        for (const std::string& line : lines)
            expected.push_back("ChangerServerMessages:123, " + line);
        EXPECT_EQ(log.TakeWithoutLineNumbers(), expected);
    }

    CFOwned<CFDictionaryRef> reply;
    SocketInfo info = {nullptr, {}};
    LogCapture log;
};

// ---- chunks ----

TEST_F(Reply, FrameIsReturnedOnceItsLastByteHasArrived) {
    const auto list = Dictionary({{"mount path", "/mnt"}});
    const std::string frame = FrameOfList(list);
    EXPECT_THAT(Handle(frame.substr(0, 5)), IsEmpty());
    EXPECT_THAT(Handle(frame.substr(5, 20)), IsEmpty());
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(t_stops, 0);
    EXPECT_THAT(Handle(frame.substr(25)), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(list));
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, FrameWithoutASlotForTheReplyIsParsedAndDropped) {
    EXPECT_THAT(
        TakeChain(HandleChangerServerSocketData(Bytes(FrameOfList(Dictionary())), nullptr, &info)),
        IsEmpty());
    EXPECT_EQ(t_stops, 0);
    EXPECT_EQ(info.frame.pendingData, nullptr);
    EXPECT_THAT(
        TakeMessages(HandleChangerServerSocketData(Bytes(FrameOf("no list")), nullptr, &info)),
        ElementsAre(StartsWith("fail make property list from XML data (")));
}

TEST_F(Reply, LostFrameFailsAndLeavesNoReply) {
    for (const LostFrame& each : LostFrames(FrameOfList(Dictionary()), "message")) {
        const Failing failing(each.failing);
        EXPECT_EQ(Handle(each.bytes),
                  (Chain{{each.message, "HandleChangerServerSocketData", kMessages}}));
        EXPECT_EQ(reply, nullptr) << each.message;
        EXPECT_EQ(t_stops, 0) << each.message;
        EXPECT_EQ(info.frame.pendingData, nullptr) << each.message;
    }
}

TEST_F(Reply, FrameAfterAMalformedFrameIsTheReply) {
    EXPECT_EQ(Handle("hello").size(), 1u);
    EXPECT_EQ(Handle(FrameOf("<x>")).size(), 1u);
    EXPECT_THAT(Handle(FrameOfList(Dictionary({{"key", 1}}))), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 1}})));
}

TEST_F(Reply, FirstOfTwoFramesIsTheReply) {
    const auto first = Dictionary({{"key", 1}});
    EXPECT_THAT(Handle(FrameOfList(first) + FrameOfList(Dictionary({{"key", 2}}))), IsEmpty());
    EXPECT_EQ(XmlOf(reply), XmlOf(first));
}

TEST_F(Reply, PayloadBeginsAtTheHeaderSizeOfItsFrame) {
    const std::string payload = XmlOf(Dictionary({{"key", 1}}));
    EXPECT_THAT(Handle(HeaderBytes({.headerSize = 20,
                                    .dataLength = static_cast<std::uint32_t>(payload.size())}) +
                       "12345678" + payload),
                IsEmpty());
    EXPECT_EQ(XmlOf(reply), payload);
}

// ---- the socket's callout ----

TEST_F(Reply, CalloutReturnsTheReplyAndStopsTheLoop) {
    CallOut(FrameOfList(Dictionary({{"key", 1}})));
    EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary({{"key", 1}})));
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, CalloutLogsAMalformedFrame) {
    CallOut("hello");
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(t_stops, 0);
    ExpectLogged({"HandleChangerServerSocketData: invalid message header on data received",
                  "ServerMessageSocketCallBack: fail handle message socket data"});
}

TEST_F(Reply, CalloutRefusesOtherTypes) {
    ServerMessageSocketCallBack(nullptr, 2, nullptr, nullptr, &info);
    ExpectLogged({"ServerMessageSocketCallBack: unexpected callback type 2 received"});
    EXPECT_EQ(t_stops, 0);
}

TEST_F(Reply, EndOfStreamIsALostConnection) {
    CallOut("");
    EXPECT_EQ(XmlOf(reply), XmlOf(ErrorReply(kLost, "lost connection with changer server")));
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, EndOfStreamWithoutMemoryIsLoggedAndDoesNotStopTheLoop) {
    const Failing failing("CFDictionaryCreateMutable");
    CallOut("");
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(t_stops, 0);
    ExpectLogged({"CreateErrReplyDict: fail create error dict",
                  "ServerMessageSocketCallBack: fail create error reply dictionary"});
}

// ---- the timer's callout ----

TEST_F(Reply, TimerStoresATimeOutInAnEmptySlot) {
    HandleSocketTimeout(nullptr, reply.Out());
    EXPECT_EQ(XmlOf(reply),
              XmlOf(ErrorReply(kTimeout, "timeout waiting for reply from changer server")));
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, TimerLeavesAReplyUnchanged) {
    const auto list = Dictionary({{"key", 1}});
    CFDictionaryRef slot = list;
    HandleSocketTimeout(nullptr, &slot);
    EXPECT_EQ(slot, list.Get());
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, TimerWithoutSlotStopsTheLoop) {
    HandleSocketTimeout(nullptr, nullptr);
    EXPECT_EQ(t_stops, 1);
}

TEST_F(Reply, TimerWithoutMemoryIsLoggedAndStopsTheLoop) {
    const Failing failing("CFDictionaryCreateMutable");
    HandleSocketTimeout(nullptr, reply.Out());
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(t_stops, 1);
    ExpectLogged({"CreateErrReplyDict: fail create error dict",
                  "HandleSocketTimeout: fail create error reply dict"});
}

// ---- error replies ----

TEST_F(Reply, ErrorReplyHasCodeAndText) {
    CFOwned<CFMutableDictionaryRef> dict;
    EXPECT_THAT(TakeChain(CreateErrReplyDict(-2, "zwölf", dict.Out())), IsEmpty());
    EXPECT_EQ(XmlOf(dict), XmlOf(ErrorReply(-2, "zwölf")));
}

TEST_F(Reply, ErrorReplyIsNullIfAStepFails) {
    const struct {
        const char* failing; // function
        Chain chain;
    } cases[] = {
        {"CFDictionaryCreateMutable",
         {{"fail create error dict", "CreateErrReplyDict", kMessages}}},
        {"CFNumberCreate",
         {{"fail alloc num", "CFHDictionarySetSInt64Value", "common/CFHelpers"},
          {"fail add error code to error dict", "CreateErrReplyDict", kMessages}}},
        {"CFStringCreateWithCString",
         {{"fail alloc str", "CFHDictionarySetStringValue", "common/CFHelpers"},
          {"fail add error message str to error dict", "CreateErrReplyDict", kMessages}}},
    };
    const auto earlier = Dictionary();
    for (const auto& each : cases) {
        const Failing failing(each.failing);
        CFMutableDictionaryRef dict = earlier;
        EXPECT_EQ(TakeChain(CreateErrReplyDict(kLost, "text", &dict)), each.chain);
        EXPECT_EQ(dict, nullptr) << each.failing;
    }
}

// ---- the error in a reply ----

Chain ReplyError(CFDictionaryRef reply) {
    VErrLink* replyErr = &g_genericVErr;
    EXPECT_THAT(TakeChain(GetMessageReplyErr(reply, &replyErr)), IsEmpty());
    return TakeChain(replyErr);
}

Chain RaisedFromReply(const char* message, VErrCode code) {
    return {{message, "GetMessageReplyErr", kMessages, code}};
}

// The chain of a reply that cannot be read.
Chain ReadFailure(CFDictionaryRef reply) {
    VErrLink* replyErr = &g_genericVErr;
    Chain chain = TakeChain(GetMessageReplyErr(reply, &replyErr));
    EXPECT_EQ(replyErr, nullptr);
    return chain;
}

TEST_F(Reply, WithoutErrorCodeOrWithZeroIsSuccess) {
    EXPECT_THAT(ReplyError(Dictionary()), IsEmpty());
    EXPECT_THAT(ReplyError(Dictionary({{"error string", "ignored"}})), IsEmpty());
    EXPECT_THAT(ReplyError(ErrorReply(0, "ignored")), IsEmpty());
}

TEST_F(Reply, WithAnErrorCodeRaisesThatCodeAndText) {
    EXPECT_EQ(ReplyError(ErrorReply(kVErrFacilityBase + 1021, "busy")),
              RaisedFromReply("busy", kVErrFacilityBase + 1021));
    EXPECT_EQ(ReplyError(ErrorReply(-1, "")), RaisedFromReply("", -1));
}

TEST_F(Reply, WithoutErrorTextRaisesTheDefaultText) {
    EXPECT_EQ(ReplyError(Dictionary({{"error code", 5}})),
              RaisedFromReply("an error has occurred", 5));
}

TEST_F(Reply, ErrorTextIsAFormatWithoutArguments) {
    struct {
        const char* sent;
        const char* read;
    } const cases[] = {
        {"disk 100%% full", "disk 100% full"},
        {"%%", "%"},
        {"%", "%"},
        {"ends with %%", "ends with %"},
        {"%%%", "%%"},
        {"%%%%", "%%"},
        {"%s %n %d %99999999d %ls %1$s", "%s %n %d %99999999d %ls %1$s"},
        {"a\n%%b", "a\n%b"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(ReplyError(ErrorReply(5, each.sent)), RaisedFromReply(each.read, 5));
}

TEST_F(Reply, ErrorTextWithoutMemoryForItsLinkIsNotLoggedAsAFormat) {
    const auto list = ErrorReply(5, "100%% %s %n");
    VErrLink* replyErr = nullptr;
    // The first allocation copies the text, the second one is the link.
    EXPECT_EQ(WithoutMemory([&] { return GetMessageReplyErr(list, &replyErr); }, 2), nullptr);
    EXPECT_EQ(replyErr, &g_genericVErr);
    EXPECT_THAT(
        log.TakeWithoutLineNumbers(),
        ElementsAre("100% %s %n", "err = 5", "ChangerServerMessages:123, GetMessageReplyErr"));
}

TEST_F(Reply, ErrorCodeThatIsNoNumberFailsTheReading) {
    for (const Value& code : {Value("5"), Value(true), Value(Array())})
        EXPECT_EQ(ReadFailure(Dictionary({{"error code", code}})),
                  (Chain{{"fail convert CFNumber to VErrCode", "GetMessageReplyErr", kMessages}}));
}

TEST_F(Reply, ErrorTextThatIsNoStringFailsTheReading) {
    EXPECT_EQ(ReadFailure(Dictionary({{"error code", 5}, {"error string", 7}})),
              (Chain{{"can't convert the string to the requested encoding",
                      "CFHAllocCStringFromCFString", "common/CFHelpers", kVErrCodeStringEncoding},
                     {"fail get dictionary error string as C string", "GetMessageReplyErr",
                      kMessages, kVErrCodeStringEncoding}}));
}

TEST_F(Reply, ListThatIsNoDictionaryIsSuccess) {
    const auto array = Array({1});
    EXPECT_THAT(ReplyError(reinterpret_cast<CFDictionaryRef>(array.Get())), IsEmpty());
}

} // namespace
