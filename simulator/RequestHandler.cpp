#include "simulator/RequestHandler.h"

#include <chrono>
#include <map>
#include <stdexcept>

namespace simulator {

namespace {

class MissingKey : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::int64_t RequiredInteger(const Value& request, const char* key) {
    const auto integer = request.FindInteger(key);
    if (!integer)
        throw MissingKey(std::string("missing number: ") + key);
    return *integer;
}

std::string RequiredString(const Value& request, const char* key) {
    auto text = request.FindString(key);
    if (!text)
        throw MissingKey(std::string("missing string: ") + key);
    return std::move(*text);
}

// Indices of 16 bits arrive as signed integers.
std::uint16_t RequiredIndex(const Value& request, const char* key) {
    return static_cast<std::uint16_t>(RequiredInteger(request, key));
}

User ReadUser(const Value& request) {
    if (!request.IsTrue("private"))
        return {};
    return {true, RequiredInteger(request, "private PID"),
            RequiredInteger(request, "private family")};
}

Value MakeReply(const Outcome& outcome) {
    Value reply = Value::MakeDictionary();
    if (outcome.code != ReplyCode::Success) {
        reply.Set("error code", MakeWireCode(static_cast<std::int64_t>(outcome.code)))
            .Set("error string", outcome.text);
    }
    return reply;
}

// Repeats the attempt after each change of the model, until the outcome is neither Busy nor
// UnderWay or the changer's time-out is over.
template<typename Attempt>
auto RetryUntilTimeout(Changer& changer, std::stop_token stop, const Attempt& attempt) {
    const TimePoint deadline = std::chrono::steady_clock::now() + changer.CurrentTiming().timeout;
    for (;;) {
        const std::uint64_t generation = changer.Generation();
        auto outcome = attempt();
        const bool isBusy = outcome.code == ReplyCode::Busy || outcome.code == ReplyCode::UnderWay;
        if (!isBusy || !changer.WaitForChange(generation, deadline, stop))
            return outcome;
    }
}

Value MountDisc(const KnownChanger& known, const Value& request, std::stop_token stop) {
    MountRequest mount;
    mount.slot = RequiredIndex(request, "Storage Element Index");
    mount.partitionId = RequiredString(request, "Partition ID");
    mount.user = ReadUser(request);
    mount.mayStart =
        request.IsTrue("mount disc start mount") && !request.IsTrue("mount disc disallow mount");
    if (const auto drive = request.FindInteger("Data Transfer Element Index"))
        mount.drive = static_cast<DriveIndex>(*drive);
    RequiredString(request, "client name");
    const MountOutcome outcome =
        RetryUntilTimeout(*known.changer, stop, [&] { return known.changer->Mount(mount); });
    Value reply = MakeReply(outcome);
    if (outcome.code == ReplyCode::Success) {
        const bool isShown = !known.mountPoint.empty() && !outcome.mediaRoot.empty();
        reply.Set("mount path", isShown ? known.mountPoint + '/' + outcome.mediaRoot : "")
            .Set("device id", "drive-" + std::to_string(outcome.drive));
    }
    return reply;
}

Value EjectDisc(const KnownChanger& known, const Value& request, std::stop_token stop) {
    const EjectRequest eject = {RequiredIndex(request, "Storage Element Index"), ReadUser(request),
                                request.IsTrue("overridePrivate")};
    Outcome outcome =
        RetryUntilTimeout(*known.changer, stop, [&] { return known.changer->Eject(eject); });
    if (outcome.code == ReplyCode::UnderWay)
        outcome.code = ReplyCode::Busy; // "eject disc" has no reply for a move under way
    return MakeReply(outcome);
}

Value RequestIdentification(const KnownChanger& known, const Value& request, std::stop_token) {
    const bool isRequested = request.IsTrue("request");
    if (!request.FindInteger("Storage Element Index")) {
        known.changer->RequestChangerIdentification(isRequested);
        return MakeReply({});
    }
    const SlotIndex slot = RequiredIndex(request, "Storage Element Index");
    return MakeReply(known.changer->RequestDiscIdentification(slot, isRequested));
}

Value SetClientStatus(const KnownChanger& known, const Value& request, std::stop_token) {
    known.changer->SetClientStatus(
        RequiredString(request, "client name"),
        {RequiredString(request, "message"), RequiredIndex(request, "current step"),
         RequiredIndex(request, "maximum step"), request.IsTrue("abort requested")});
    return MakeReply({});
}

using Command = Value (*)(const KnownChanger&, const Value&, std::stop_token);

const std::map<std::string, Command>& Commands() {
    static const std::map<std::string, Command> commands = {
        {"mount disc", MountDisc},
        {"eject disc", EjectDisc},
        {"request identification", RequestIdentification},
        {"set client status", SetClientStatus},
    };
    return commands;
}

} // namespace

std::int64_t MakeWireCode(std::int64_t code) {
    return code | std::int64_t{0x40000000} << 32;
}

Value RequestHandler::Handle(const Value& request, std::stop_token stop) const {
    try {
        const auto command = Commands().find(RequiredString(request, "command"));
        if (command == Commands().end())
            return MakeReply({ReplyCode::UnknownCommand, "unknown command"});
        const auto guid = static_cast<std::uint64_t>(RequiredInteger(request, "Changer GUID"));
        const KnownChanger known = find_(guid);
        if (!known.changer)
            return MakeReply({ReplyCode::NotFound, "no such changer"});
        return command->second(known, request, stop);
    } catch (const MissingKey& error) {
        return MakeReply({ReplyCode::MissingKey, error.what()});
    }
}

} // namespace simulator
