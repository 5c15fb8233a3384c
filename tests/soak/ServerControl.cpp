#include "ServerControl.h"

#include "testbed/Failure.h"

#include <algorithm>

using testbed::Event;

std::vector<Event> ServerControl::Do(const std::string& command) const {
    return Server().Do(command);
}

void ServerControl::DoForSlot(Place place, const std::string& command) const {
    const std::string::size_type end = std::min(command.find(' '), command.size());
    Do(command.substr(0, end) + " changer=" + GuidOf(place.changer) +
       " slot=" + std::to_string(place.slot) + command.substr(end));
}

void ServerControl::SendStateOnce() const {
    Do("resume once=yes");
}

void ServerControl::AwaitSubscriber() const {
    Server().Await("subscriber", {{"connected", "yes"}});
}

// The daemon reads the info file of a volume twice before it registers the volume.
void ServerControl::AwaitFileSystemRegistered(int changer) const {
    for (int read = 0; read < 2; ++read)
        Server().Await("info-open", {{"changer", GuidOf(changer)}});
}

void ServerControl::AwaitStatusCleared(int changer) const {
    AwaitConnectionClosed(AwaitStatus(changer, "message", ""));
}

void ServerControl::AwaitIdentified(Place place) const {
    Server().Await("identified",
                   {{"changer", GuidOf(place.changer)}, {"slot", std::to_string(place.slot)}});
}

void ServerControl::AwaitEndOfIdentification(Place place) const {
    Event last;
    for (int withdrawal = 0; withdrawal < 2; ++withdrawal) {
        last = Server().Await("request", {{"command", "request identification"},
                                          {"changer", GuidOf(place.changer)},
                                          {"storage-element-index", std::to_string(place.slot)}});
    }
    AwaitConnectionClosed(last);
}

void ServerControl::AwaitStartOfBuild(int changer) const {
    AwaitWithdrawalForChanger(changer, 0);
}

// A build clears its status just before its closing request.
void ServerControl::AwaitEndOfBuild(int changer) const {
    AwaitWithdrawalForChanger(changer, AwaitStatus(changer, "message", "").number);
}

void ServerControl::AwaitPendingRequest() const {
    Server().Await("fault", {{"do", "silence"}});
}

void ServerControl::BlockBuild(int changer) const {
    for (int drive = 0; drive < kDrives; ++drive)
        DoForSlot({changer, drive}, "load");
    DoForSlot({changer, kDrives}, "forget");
    Do("identify changer=" + GuidOf(changer));
    SendStateOnce();
    AwaitStartOfBuild(changer);
    AwaitStatus(changer, "current-step", std::to_string(kDrives));
    Server().Await("listing", {{"changer", GuidOf(changer)},
                               {"slot", std::to_string(kDrives)},
                               {"path", "/"},
                               {"cached", "no"}});
}

// A thread that probes the volumes at start-up may still have been counted in idleUsage, so
// idleUsage.threads is reduced when fewer threads are seen.
void ServerControl::AwaitIdle() const {
    testbed::ResourceUsage& idleUsage = context_.idleUsage;
    const auto now = context_.run.Daemon().AwaitResourceUsageWithin(idleUsage);
    if (!now.IsWithin(idleUsage)) {
        throw testbed::Failure("the idle daemon used " + Describe(idleUsage) +
                               " at the start and now uses " + Describe(now));
    }
    idleUsage.threads = std::min(idleUsage.threads, now.threads);
}

long ServerControl::CountNotifications() const {
    return static_cast<long>(Server().AllSoFar("notification", {{"keys", "changer info"}}).size());
}

void ServerControl::AwaitConnectionClosed(const Event& request) const {
    Server().Await("disconnect", {{"connection", request["connection"]}});
}

void ServerControl::AwaitWithdrawalForChanger(int changer, int after) const {
    AwaitConnectionClosed(Server().Await("request", [&](const Event& request) {
        return request.number > after && request["command"] == "request identification" &&
               request["storage-element-index"].empty() && request["changer"] == GuidOf(changer);
    }));
}

Event ServerControl::AwaitStatus(int changer, const std::string& key,
                                 const std::string& value) const {
    return Server().Await(
        "request", {{"command", "set client status"}, {"changer", GuidOf(changer)}, {key, value}});
}
