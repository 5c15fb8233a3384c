/* Fault sweeps of one exchange with the server. */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "WholeDaemon.h"

#include <set>
#include <string>
#include <vector>

using testing::Contains;

namespace {

using ExchangeSweep = WholeDaemon;

// The text of the newest link of a failed exchange; "(generic)" if there was no memory for a link.
const std::set<std::string> kMessages = {"(generic)",
                                         "fail create copy of message dict",
                                         "fail get server socket",
                                         "fail create socket source",
                                         "fail send message on socket",
                                         "fail create timeout timer",
                                         "fail to get message reply",
                                         "fail get message reply err",
                                         "lost connection with changer server"};

TEST_F(ExchangeSweep, FailureReturnsAChainAndTheNextExchangeSucceeds) {
    const auto message = Dictionary({{"command", "test"}, {"number", 70000}});
    CFOwned<CFDictionaryRef> reply;
    VErrLink* err = nullptr;
    Report(SweepFaults([&] { err = SendMessageToChangerServer(message, reply.Out()); },
                       [&](const Fault& fault) {
                           const Chain chain = ReadChain(err);
                           VErrLogAndCatch(&err); // as the callers' callers do
                           ExpectSound(fault, chain.empty());
                           if (chain.empty())
                               EXPECT_EQ(XmlOf(reply), XmlOf(Dictionary())) << fault.what;
                           else
                               EXPECT_THAT(kMessages, Contains(chain.back().message)) << fault.what;
                           server_.TakeRequests(); // makes an exchange, which succeeds
                       }));
}

TEST_F(ExchangeSweep, ExchangeWithoutReplySucceedsOrReturnsAChain) {
    const auto message = Dictionary({{"command", "test"}});
    VErrLink* err = nullptr;
    Report(SweepFaults([&] { err = SendMessageToChangerServer(message, nullptr); },
                       [&](const Fault& fault) {
                           const bool done = err == nullptr;
                           VErrLogAndCatch(&err);
                           ExpectSound(fault, done);
                           const auto requests = server_.TakeRequests();
                           EXPECT_TRUE(!done || requests == std::vector<std::string>{"test"})
                               << fault.what;
                       }));
}

} // namespace
