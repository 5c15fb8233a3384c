/* The reply on the message socket, in arbitrary chunks, and the error that it contains. */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "FrameScript.h"
#include "Target.h"
#include "support/CFOwned.h"
#include "support/LogCapture.h"
#include "support/PropertyLists.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace {

using Reply = CFOwned<CFDictionaryRef>;

void Receive(std::string_view chunk, SocketInfo& info) {
    ServerMessageSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, Bytes(chunk), &info);
}

// As in SendMessageToChangerServer(), the first reply ends the exchange.
Reply ReceiveReply(const std::vector<ScriptStep>& steps) {
    Reply reply;
    SocketInfo info = {reply.Out(), {}};
    for (const ScriptStep& step : steps) {
        if (reply == nullptr && !step.bytes.empty())
            Receive(step.bytes, info);
        if (reply == nullptr && step.event == kLost)
            Receive({}, info);
    }
    ResetFrameAssembly(&info.frame);
    return reply;
}

void ReadErrorOf(const Reply& reply) {
    VErrLink* reported = nullptr;
    VErrLink* err = GetMessageReplyErr(reply, &reported);
    VErrLogAndCatch(&err);
    VErrLogAndCatch(&reported);
}

// Without a check if the payload is not a list: the rest of the chunk behind it is then lost, too.
// Equal values are one object, so the pointers are compared.
void ExpectReplyIn(std::string_view payload, const Reply& reply) {
    const CFOwned<CFPropertyListRef> list(CFPropertyListCreateFromXMLData(
        nullptr, Bytes(payload), kCFPropertyListImmutable, nullptr));
    if (list != nullptr)
        EXPECT_EQ(reply.Get(), list.Get());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view script = TextOfInput(data, size);
    LogCapture log;
    const Reply reply = ReceiveReply(ReadChunks(script));
    if (IsWellFramed(script))
        ExpectReplyIn(FirstPayload(script), reply);
    if (reply != nullptr)
        ReadErrorOf(reply);
    log.Take();
    return 0;
}
