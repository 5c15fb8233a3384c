#include "ObedientServer.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "SystemCallFaults.h"
#include "connection/Frames.h"
#include "connection/ProcessTable.h"
#include "support/Chain.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <sstream>
#include <utility>

namespace {

constexpr std::size_t kConnections = 100'000; // more than any sweep makes
constexpr const char* kLastCommand = "that was all";

std::optional<UInt64> NumberIn(CFDictionaryRef request, CFStringRef key) {
    UInt64 value = 0;
    const void* number = CFDictionaryGetValue(request, key);
    const bool found = number != nullptr && CFNumberGetValue(static_cast<CFNumberRef>(number),
                                                             kCFNumberSInt64Type, &value);
    return found ? std::optional(value) : std::nullopt;
}

std::string Describe(const std::string& payload) {
    const CFOwned data = Bytes(payload);
    const CFOwned<CFPropertyListRef> list(
        CFPropertyListCreateFromXMLData(nullptr, data, kCFPropertyListImmutable, nullptr));
    auto* request = static_cast<CFDictionaryRef>(list.Get());
    std::ostringstream text;
    if (const auto changer = NumberIn(request, CFSTR("Changer GUID")))
        text << std::hex << std::uppercase << *changer << std::dec << ": ";
    text << TextOf(static_cast<CFStringRef>(CFDictionaryGetValue(request, CFSTR("command"))));
    if (const auto slot = NumberIn(request, CFSTR("Storage Element Index")))
        text << " " << *slot;
    return text.str();
}

} // namespace

ObedientServer::ObedientServer()
    : server_("/tmp/carouseld-" + std::to_string(getpid()),
              std::vector<Script>(kConnections,
                                  [this](Connection& connection) { Serve(connection); })) {
    SetProcesses({{1, "init"}, {getpid(), "carouseld"}});
}

void ObedientServer::Serve(Connection& connection) {
    const NoSystemCallFaultsHere unfailing;
    const std::string payload = connection.ReadFrame();
    if (payload.empty()) // the client closed it
        return;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(Describe(payload));
    }
    connection.Write(FrameOfList(Dictionary()));
}

// Connections are served in order: when this request has its reply, all earlier ones are noted.
std::vector<std::string> ObedientServer::TakeRequests() {
    CFOwned<CFDictionaryRef> reply;
    EXPECT_EQ(
        TakeChain(SendMessageToChangerServer(Dictionary({{"command", kLastCommand}}), reply.Out())),
        Chain());
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(requests_.empty());
    requests_.pop_back();
    return std::exchange(requests_, {});
}
