#include "Dialogue.h"

#include "testbed/Failure.h"

#include <algorithm>

using testbed::Event;

std::vector<Event> Dialogue::Tell(const std::string& command) const {
    return Server().Do(command);
}

void Dialogue::TellAbout(Place place, const std::string& command) const {
    const std::string::size_type end = std::min(command.find(' '), command.size());
    Tell(command.substr(0, end) + " changer=" + GuidOf(place.changer) +
         " slot=" + std::to_string(place.slot) + command.substr(end));
}

void Dialogue::ShowOnce() const {
    Tell("release once=yes");
}

void Dialogue::AwaitSubscriber() const {
    Server().Await("subscriber", {{"connected", "yes"}});
}

// The daemon reads the info file of a volume twice when it takes it up.
void Dialogue::AwaitTakenUp(int changer) const {
    for (int read = 0; read < 2; ++read)
        Server().Await("info-open", {{"changer", GuidOf(changer)}});
}

void Dialogue::AwaitClearedStatus(int changer) const {
    AwaitAnswered(Server().Await(
        "request",
        {{"command", "set client status"}, {"changer", GuidOf(changer)}, {"message", ""}}));
}

void Dialogue::AwaitIdentified(Place place) const {
    Server().Await("identified",
                   {{"changer", GuidOf(place.changer)}, {"slot", std::to_string(place.slot)}});
}

void Dialogue::AwaitEndOfIdentification(Place place) const {
    Event last;
    for (int withdrawal = 0; withdrawal < 2; ++withdrawal) {
        last = Server().Await("request", {{"command", "request identification"},
                                          {"changer", GuidOf(place.changer)},
                                          {"storage-element-index", std::to_string(place.slot)}});
    }
    AwaitAnswered(last);
}

void Dialogue::AwaitBeginningOfBuild(int changer) const {
    AwaitWithdrawalForChanger(changer, 0);
}

// It clears its status just before its closing request.
void Dialogue::AwaitEndOfBuild(int changer) const {
    const Event clearing = Server().Await(
        "request",
        {{"command", "set client status"}, {"changer", GuidOf(changer)}, {"message", ""}});
    AwaitWithdrawalForChanger(changer, clearing.number);
}

void Dialogue::AwaitUnansweredRequest() const {
    Server().Await("fault", {{"do", "silence"}});
}

void Dialogue::HaltABuild(int changer) const {
    for (int drive = 0; drive < kDrives; ++drive)
        TellAbout({changer, drive}, "load");
    TellAbout({changer, kDrives}, "forget");
    Tell("identify changer=" + GuidOf(changer));
    ShowOnce();
    AwaitBeginningOfBuild(changer);
    AwaitProgress(changer, kDrives);
    AwaitListing({changer, kDrives});
}

// When it was taken, the daemon may still have had a thread that looked at the volumes of the
// start.
void Dialogue::AwaitQuiet() const {
    testbed::ResourceUsage& quiet = performance_.quiet;
    const auto now = performance_.run.Daemon().AwaitResourceUsageWithin(quiet);
    if (!now.IsWithin(quiet)) {
        throw testbed::Failure("the daemon began with " + Describe(quiet) +
                               ", and does not come back to it from " + Describe(now));
    }
    quiet.threads = std::min(quiet.threads, now.threads);
}

long Dialogue::CountNotifications() const {
    return static_cast<long>(Server().AllSoFar("notification", {{"keys", "changer info"}}).size());
}

void Dialogue::AwaitAnswered(const Event& request) const {
    Server().Await("disconnect", {{"connection", request["connection"]}});
}

void Dialogue::AwaitWithdrawalForChanger(int changer, int after) const {
    AwaitAnswered(Server().Await("request", [&](const Event& request) {
        return request.number > after && request["command"] == "request identification" &&
               request["storage-element-index"].empty() && request["changer"] == GuidOf(changer);
    }));
}

void Dialogue::AwaitListing(Place place) const {
    Server().Await("listing", {{"changer", GuidOf(place.changer)},
                               {"slot", std::to_string(place.slot)},
                               {"path", "/"},
                               {"cached", "no"}});
}

void Dialogue::AwaitProgress(int changer, int discs) const {
    Server().Await("request", {{"command", "set client status"},
                               {"changer", GuidOf(changer)},
                               {"current-step", std::to_string(discs)}});
}
