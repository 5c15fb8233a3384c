#include "simulator/Simulator.h"

#include <unistd.h>

#include <chrono>
#include <stop_token>
#include <utility>

namespace simulator {

Simulator::Simulator(simulator::Events& events, std::string socketDirectory)
    : events_(events), socketDirectory_(std::move(socketDirectory)),
      handler_([this](std::uint64_t guid) { return Find(guid); }),
      publisher_(events, faults_,
                 [this](Notifications notification) { return Describe(notification); }) {}

Simulator::~Simulator() {
    Stop();
    while (!units_.empty())
        TakeDown(std::move(units_.extract(units_.begin()).mapped()));
}

// ---- Changers ----

void Simulator::AddChanger(const ChangerConfig& config, const ChangerTiming& timing,
                           const FileSystemOptions& options) {
    Unit unit;
    unit.changer = std::make_shared<Changer>(
        config, events_, [this] { publisher_.Mark(kChangerInfo); }, std::chrono::steady_clock::now);
    unit.changer->SetTiming(timing);
    unit.options = options;
    {
        const std::lock_guard guard(lock_);
        if (units_.contains(config.guid))
            throw CommandError("changer exists already: " + FormatGuid(config.guid));
        if (!options.mountPoint.empty())
            unit.fileSystem = std::make_unique<ChangerFileSystem>(*unit.changer, options, events_);
        unit.clock =
            std::jthread([&changer = *unit.changer](std::stop_token stop) { changer.Run(stop); });
        units_.emplace(config.guid, std::move(unit));
    }
    publisher_.Mark(kChangerList | kChangerInfo);
}

void Simulator::RemoveChanger(std::uint64_t guid) {
    Unit removed;
    {
        Unit& unit = FindUnit(guid);
        const std::lock_guard guard(lock_);
        removed = std::move(unit);
        units_.erase(guid);
    }
    TakeDown(std::move(removed));
    publisher_.Mark(kChangerList | kChangerInfo);
}

void Simulator::TakeDown(Unit unit) {
    unit.changer->Close();
    unit.fileSystem.reset();
    unit.clock.request_stop();
    unit.clock.join();
}

Simulator::Unit& Simulator::FindUnit(std::uint64_t guid) {
    const std::lock_guard guard(lock_);
    const auto found = units_.find(guid);
    if (found == units_.end())
        throw CommandError("no such changer: " + FormatGuid(guid));
    return found->second;
}

std::shared_ptr<Changer> Simulator::FindChanger(std::uint64_t guid) const {
    auto changer = Find(guid).changer;
    if (!changer)
        throw CommandError("no such changer: " + FormatGuid(guid));
    return changer;
}

std::vector<std::shared_ptr<Changer>> Simulator::Changers() const {
    const std::lock_guard guard(lock_);
    std::vector<std::shared_ptr<Changer>> changers;
    for (const auto& [guid, unit] : units_)
        changers.push_back(unit.changer);
    return changers;
}

KnownChanger Simulator::Find(std::uint64_t guid) const {
    const std::lock_guard guard(lock_);
    const auto found = units_.find(guid);
    if (found == units_.end())
        return {};
    return {found->second.changer, found->second.options.mountPoint};
}

void Simulator::MountFileSystem(std::uint64_t guid, const std::string& path) {
    Unit& unit = FindUnit(guid);
    if (unit.fileSystem)
        throw CommandError("file system is already mounted");
    const std::lock_guard guard(lock_);
    if (!path.empty())
        unit.options.mountPoint = path;
    if (unit.options.mountPoint.empty())
        throw CommandError("no mount point: give mount=DIRECTORY");
    unit.fileSystem = std::make_unique<ChangerFileSystem>(*unit.changer, unit.options, events_);
}

void Simulator::UnmountFileSystem(std::uint64_t guid) {
    const auto fileSystem = std::exchange(FindUnit(guid).fileSystem, nullptr);
    if (!fileSystem)
        throw CommandError("file system is not mounted");
}

void Simulator::SetIdentifyOnInsert(std::optional<bool> identify) {
    {
        const std::lock_guard guard(lock_);
        identifyOnInsert_ = identify;
    }
    publisher_.Mark(kRootPreferences);
}

Value Simulator::Describe(Notifications notification) const {
    if (notification == kRootPreferences) {
        const std::lock_guard guard(lock_);
        Value preferences = Value::MakeDictionary();
        if (identifyOnInsert_)
            preferences.Set("IdentifyMediaOnInsert", *identifyOnInsert_);
        return preferences;
    }
    Value list = Value::MakeArray();
    for (const auto& changer : Changers()) {
        list.Append(notification == kChangerInfo
                        ? changer->MakeInfo()
                        : Value::MakeInteger(static_cast<std::int64_t>(changer->Guid())));
    }
    return list;
}

// ---- Sockets ----

void Simulator::Start() {
    if (messages_)
        throw CommandError("sockets are already open");
    const std::string suffix = std::to_string(getpid());
    const std::string notificationPath = socketDirectory_ + "/carouseldn-" + suffix;
    const std::string messagePath = socketDirectory_ + "/carouseld-" + suffix;
    notifications_ = std::make_unique<NotificationServer>(
        notificationPath, events_, [this](SubscriberId id) { publisher_.MarkForSubscriber(id); });
    publisher_.Attach(*notifications_);
    messages_ = std::make_unique<MessageServer>(messagePath, MakeServices());
    events_.Report("started",
                   Fields().Add("messages", messagePath).Add("notifications", notificationPath));
}

MessageServer::Services Simulator::MakeServices() {
    return {
        .events = events_,
        .faults = faults_,
        .handle = [this](const Value& request,
                         std::stop_token stop) { return handler_.Handle(request, stop); },
        .beforeReply =
            [this](std::stop_token stop) {
                if (isSerial_)
                    notifications_->AwaitRead(stop);
            },
        .afterReply =
            [this](const Value& request) {
                // Clients wait for this notification after a withdrawal, even if nothing has
                // changed.
                if (request.FindString("command") == "request identification")
                    publisher_.Mark(kChangerInfo);
            },
    };
}

void Simulator::Stop() {
    if (!messages_)
        return;
    messages_.reset();
    publisher_.Detach();
    notifications_.reset();
    events_.Report("stopped", {});
}

void Simulator::CopyNotifications(const std::string& path) {
    FindNotificationServer().CopyTo(path);
}

void Simulator::SendRaw(const std::vector<Piece>& pieces) {
    FindNotificationServer().SendToAll(pieces, "raw");
}

NotificationServer& Simulator::FindNotificationServer() {
    if (!notifications_)
        throw CommandError("sockets are not open: use start");
    return *notifications_;
}

} // namespace simulator
