#include "ServerCycle.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

using testbed::Event;

namespace {

constexpr int kSpareSlot = kDiscs;

// This changer's preferences disable automatic identification: the disc in its spare slot is never
// identified.
constexpr int kNoAutomaticChanger = 5;

bool IdentifiesNewDiscs(int changer) {
    return changer != kNoAutomaticChanger;
}

} // namespace

std::string DailyBuildCommand(int changer) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return "preferences changer=" + GuidOf(changer) +
           " build-on-schedule=yes hours=" + std::to_string((local.tm_hour + 12) % 24);
}

ServerCycle::ServerCycle(SoakContext& context, int number)
    : context_(context), control_(context), number_(number),
      crash_(context, number / kCyclesPerCrash) {}

void ServerCycle::Run() {
    const std::vector<DiscPair> pairs = ChoosePairs();
    std::set<Place> newDiscs;
    for (const DiscPair& pair : pairs)
        if (pair.isSecondNew)
            newDiscs.insert(pair.second);
    Start(newDiscs);
    IdentifyPairs(pairs);
    IdentifyDuringBuild();
    IdentifyLastDisc();
    ServerCrash::RepeatInterruptedWork(context_);
    if (hasCrash_) {
        crash_.Interrupt();
        isInterrupted_ = true;
    }
}

// ---- Start ----

void ServerCycle::Start(const std::set<Place>& newDiscs) {
    context_.run.StartServer();
    control_.Do("events kinds=request,disconnect,identified,listing,info-open,notification,"
                "subscriber,fault");
    control_.Do("pulse every=0");
    for (int changer = 0; changer < kChangers; ++changer)
        AddChanger(changer, newDiscs);
    control_.Do("pause");
    control_.Do("start");
    control_.Do("copy-notifications file=" + context_.pipe);
    control_.AwaitSubscriber();
    for (int changer = 0; changer < kChangers; ++changer) {
        control_.AwaitFileSystemRegistered(changer);
        ++context_.mounts;
    }
}

void ServerCycle::AddChanger(int changer, const std::set<Place>& newDiscs) {
    const std::string guid = "changer=" + GuidOf(changer);
    control_.Do("add-changer " + guid + " slots=" + std::to_string(kDiscs + 1) +
                " drives=" + std::to_string(kDrives) + " mount=/tmp/" + GuidOf(changer));
    for (int slot = 0; slot < kDiscs; ++slot) {
        const bool isNew = newDiscs.count({changer, slot}) != 0;
        control_.DoForSlot({changer, slot}, std::string("put directories=2 files=1 depth=1") +
                                                (isNew ? "" : " identified=yes"));
    }
    if (!IdentifiesNewDiscs(changer)) {
        control_.Do("preferences " + guid + " identify-on-insert=no");
        control_.DoForSlot({changer, kSpareSlot}, "put");
    }
    if (changer % 2 == 1)
        control_.Do("preferences " + guid + " build-on-identify=yes");
    if (changer % 4 >= 2)
        control_.Do(DailyBuildCommand(changer));
}

// ---- Two identifications per changer ----

std::vector<ServerCycle::DiscPair> ServerCycle::ChoosePairs() const {
    std::vector<DiscPair> pairs;
    for (int position = 0; position < 3; ++position) {
        const int changer = ChangerAt(position);
        DiscPair pair{{changer, SlotAt(0)}, {changer, SlotAt(3)}, IdentifiesNewDiscs(changer)};
        // Of two requests, the daemon serves the lower slot first.
        if (!pair.isSecondNew && pair.second < pair.first)
            std::swap(pair.first, pair.second);
        pairs.push_back(pair);
    }
    return pairs;
}

// While the last identifications run, notifications arrive and a file system is remounted.
void ServerCycle::IdentifyPairs(const std::vector<DiscPair>& pairs) {
    for (const DiscPair& pair : pairs) {
        RequestIdentification(pair.first);
        if (pair.isSecondNew)
            context_.counts.ExpectIdentification(pair.second);
        else
            RequestIdentification(pair.second);
    }
    control_.SendStateOnce();
    if (number_ == 0)
        AwaitNewChangers();
    for (const DiscPair& pair : pairs)
        control_.AwaitIdentified(pair.first);
    control_.SendStateOnce();
    for (const DiscPair& pair : pairs)
        control_.AwaitIdentified(pair.second);
    control_.Do("resume");
    control_.Do("push times=" + std::to_string(kNotificationsPerCycle / 4));
    Remount(ChangerAt(3));
    for (const DiscPair& pair : pairs) {
        control_.AwaitEndOfIdentification(pair.first);
        control_.AwaitEndOfIdentification(pair.second);
    }
    control_.AwaitIdle();
}

void ServerCycle::AwaitNewChangers() {
    for (int changer = kWarmUpChangers; changer < kChangers; ++changer) {
        control_.AwaitStatusCleared(changer);
        context_.counts.ExpectStatusCleared();
    }
}

void ServerCycle::Remount(int changer) {
    control_.Do("unmount changer=" + GuidOf(changer));
    control_.Do("mount changer=" + GuidOf(changer));
    control_.AwaitFileSystemRegistered(changer);
    ++context_.mounts;
}

void ServerCycle::RequestIdentification(Place place) {
    control_.DoForSlot(place, "identify");
    context_.counts.ExpectIdentification(place);
}

// ---- Identifications during a build ----

void ServerCycle::IdentifyDuringBuild() {
    const std::array<Place, 3> places{
        Place{ChangerAt(4), SlotAt(1)}, {ChangerAt(5), SlotAt(1)}, {ChangerAt(6), SlotAt(1)}};
    const int builtChanger = ChangerAt(4); // one of its discs is identified during the build
    const int abortedChanger = ChangerAt(7);
    const bool isCompleted = hasBuild_ && !hasAbort_;
    control_.Do("pause");
    if (isCompleted)
        control_.Do("identify changer=" + GuidOf(builtChanger));
    if (hasAbort_)
        BlockAndAbortBuild(abortedChanger);
    for (const Place& place : places)
        RequestIdentification(place);
    control_.SendStateOnce();
    for (const Place& place : places)
        control_.AwaitIdentified(place);
    if (isCompleted)
        control_.AwaitStartOfBuild(builtChanger);
    SendRemainingNotifications();
    for (const Place& place : places)
        control_.AwaitEndOfIdentification(place);
    if (isCompleted)
        AwaitCompletedBuild(builtChanger);
    if (hasAbort_)
        AwaitAbortedBuild(abortedChanger);
    control_.AwaitIdle();
}

void ServerCycle::SendRemainingNotifications() {
    control_.Do("resume");
    const long missing = kNotificationsPerCycle - control_.CountNotifications();
    control_.Do("push times=" + std::to_string(std::max(missing, 0L)));
}

void ServerCycle::AwaitCompletedBuild(int changer) {
    control_.AwaitEndOfBuild(changer);
    context_.counts.ExpectBuild(kDiscs + 3);
    ++context_.completedBuilds;
}

// The abort has reached the daemon when the build ends early (AwaitAbortedBuild).
void ServerCycle::BlockAndAbortBuild(int changer) {
    control_.BlockBuild(changer);
    control_.Do("abort client=trayprobed changer=" + GuidOf(changer));
}

void ServerCycle::AwaitAbortedBuild(int changer) {
    for (int drive = 0; drive < kDrives; ++drive)
        control_.DoForSlot({changer, drive}, "eject");
    control_.AwaitEndOfBuild(changer);
    context_.counts.ExpectBuild(kDrives + 3);
    ++context_.abortedBuilds;
}

// ---- Last disc and shutdown ----

// Notifications are paused: when this disc has been identified, the daemon has handled all earlier
// notifications.
void ServerCycle::IdentifyLastDisc() {
    const int changer = ChangerAt(7);
    Place place{changer, kSpareSlot};
    control_.Do("pause");
    if (IdentifiesNewDiscs(changer)) {
        control_.DoForSlot(place, "put directories=2 files=1 depth=1");
        context_.counts.ExpectIdentification(place);
    } else {
        place.slot = SlotAt(2);
        RequestIdentification(place);
    }
    control_.SendStateOnce();
    control_.AwaitEndOfIdentification(place);
    control_.AwaitIdle();
}

void ServerCycle::RunShutdown() {
    Start({});
    ServerCrash::RepeatInterruptedWork(context_);
    IdentifyEveryDisc();
    BuildEveryChanger();
}

void ServerCycle::IdentifyEveryDisc() {
    for (int slot = 0; slot < kDiscs; ++slot) {
        for (int changer = 0; changer < kChangers; ++changer)
            RequestIdentification({changer, slot});
        control_.SendStateOnce();
        for (int changer = 0; changer < kChangers; ++changer)
            control_.AwaitEndOfIdentification({changer, slot});
        control_.AwaitIdle();
    }
}

void ServerCycle::BuildEveryChanger() {
    for (int changer = 0; changer < kChangers; ++changer)
        control_.Do("identify changer=" + GuidOf(changer));
    control_.SendStateOnce();
    for (int changer = 0; changer < kChangers; ++changer) {
        control_.AwaitStartOfBuild(changer);
        control_.AwaitEndOfBuild(changer);
        context_.counts.ExpectBuild(kDiscs + 3);
    }
    control_.AwaitIdle();
}

void ServerCycle::Count() {
    testbed::Simulator& server = context_.run.Server();
    for (const Event& request : server.AllSoFar("request"))
        context_.counts.ObserveRequest(request);
    context_.notifications += control_.CountNotifications();
    for (const Event& line : control_.Do("show")) {
        if (line.kind == "slot")
            context_.counts.ObserveDisc(line);
        const bool isLeft =
            line.kind == "status" || line["requested"] == "yes" || line["held"] == "yes";
        if (isLeft && !isInterrupted_) {
            context_.leftovers.push_back("cycle " + std::to_string(number_) + ": " + line.kind +
                                         " " + line["changer"] + " " + line["slot"]);
        }
    }
}

void ServerCycle::Stop() {
    if (number_ % 2 == 0)
        context_.run.QuitServer();
    else
        context_.run.KillServer();
    if (isInterrupted_)
        crash_.CountFailures();
    context_.run.OutputLog().Discard(testbed::Stream::Server);
}
