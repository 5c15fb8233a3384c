#include "changerctl/Requests.h"

#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus.h"
#include "changerctl/Failure.h"
#include "changerctl/Reachability.h"
#include "common/VErr.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

namespace changerctl {
namespace {

constexpr const char* kClientName = "changerctl";
constexpr std::size_t kPathSize = 1024; // in bytes, of a path in a reply

// The first failure, which is the cause of the others.
const VErrLink& OldestLink(const VErrLink* chain) {
    while (chain->next != nullptr)
        chain = chain->next;
    return *chain;
}

// True if the server has replied with an error, which is its message then.
bool IsRefusal(const VErrLink& cause) {
    return cause.funcName != nullptr && std::string_view(cause.funcName) == "GetMessageReplyErr";
}

// The code as the system log shows it.
std::string Number(VErrCode code) {
    return std::to_string(code >= kVErrFacilityBase ? code - kVErrFacilityBase : code);
}

Failure FailureFor(const VErrLink& cause) {
    const std::string message = cause.message != nullptr ? cause.message : "out of memory";
    switch (cause.code) {
    case kVErrCodeReplyTimeout:
        return {ExitStatus::TimedOut, "the changer server did not reply within 30 s"};
    case kVErrCodeCommandTimedOut:
        return {ExitStatus::TimedOut, "the changer server was busy until the time limit"};
    case kVErrCodeConnectionLost:
        return {ExitStatus::NoServer, "the changer server closed the connection without a reply"};
    default:
        if (IsRefusal(cause))
            return {ExitStatus::Refused, "the changer server refused: " + message + " (number " +
                                             Number(cause.code) + ")"};
        RequireConnection(ServerSocket::Messages);
        return {ExitStatus::EndedOtherwise, "the request failed: " + message};
    }
}

// Releases the chain of a request and throws the failure that the chain reports.
void Check(VErrLink* chain) {
    if (chain == nullptr)
        return;
    const std::unique_ptr<VErrLink, decltype(&ReleaseVErrLink)> owned(chain, ReleaseVErrLink);
    throw FailureFor(OldestLink(chain));
}

} // namespace

void RequestIdentification(ChangerGuid changer, SlotNumber slot, bool request) {
    Check(ChangerServerRequestMediaIdentification(changer, slot, request));
}

void RequestBuild(ChangerGuid changer, bool request) {
    Check(ChangerServerRequestChangerIdentification(changer, request));
}

void SetClientStatus(ChangerGuid changer, const StatusReport& report) {
    Check(ChangerServerSetClientStatus(changer, report.client.c_str(), report.message.c_str(),
                                       report.currentStep, report.maximumStep,
                                       report.abortRequested));
}

std::string MountDisc(ChangerGuid changer, SlotNumber slot, std::optional<std::uint16_t> drive,
                      std::chrono::seconds limit) {
    std::array<char, kPathSize> path{};
    Check(ChangerServerMountDiscInDrive(static_cast<double>(limit.count()), changer, slot, "",
                                        drive.value_or(kNoDataTransferElem), kClientName, 0, 0,
                                        path.data(), path.size(), nullptr, 0));
    return path.data();
}

void EjectDisc(ChangerGuid changer, SlotNumber slot, bool force, std::chrono::seconds limit) {
    const UInt32 flags = force ? kEjectDiscOverridePrivate : UInt32{0};
    Check(ChangerServerEjectDisc(static_cast<double>(limit.count()), changer, slot, flags, 0));
}

} // namespace changerctl
