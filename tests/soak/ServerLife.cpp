#include "ServerLife.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

using testbed::Event;

namespace {

constexpr int kSpareSlot = kDiscs;

// One changer leaves new discs alone; the disc in its spare slot is never identified.
constexpr int kIndifferentChanger = 5;

bool IdentifiesNewDiscs(int changer) {
    return changer != kIndifferentChanger;
}

} // namespace

std::string DailyBuild(int changer) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return "preferences changer=" + GuidOf(changer) +
           " build-on-schedule=yes hours=" + std::to_string((local.tm_hour + 12) % 24);
}

ServerLife::ServerLife(Performance& performance, int number)
    : performance_(performance), dialogue_(performance), number_(number),
      crash_(performance, number / kLivesToACrash) {}

bool ServerLife::HasBuild() const {
    return number_ % kLivesToABuild == 0;
}

bool ServerLife::HasAbort() const {
    return HasBuild() && number_ / kLivesToABuild % kBuildsToAnAbort == kBuildsToAnAbort - 1;
}

bool ServerLife::HasCrash() const {
    return number_ % kLivesToACrash == kFirstCrash;
}

void ServerLife::Play() {
    const std::vector<Couple> couples = ChooseCouples();
    std::set<Place> newDiscs;
    for (const Couple& couple : couples)
        if (couple.isSecondNew)
            newDiscs.insert(couple.second);
    Begin(newDiscs);
    IdentifyCouples(couples);
    IdentifyBesideABuild();
    IdentifyTheLast();
    ServerCrash::MakeUp(performance_);
    if (HasCrash()) {
        crash_.CutOff();
        isCutOff_ = true;
    }
}

// ---- The beginning ----

void ServerLife::Begin(const std::set<Place>& newDiscs) {
    performance_.run.StartServer();
    dialogue_.Tell("events kinds=request,disconnect,identified,listing,info-open,notification,"
                   "subscriber,fault");
    dialogue_.Tell("pulse every=0");
    for (int changer = 0; changer < kChangers; ++changer)
        AddChanger(changer, newDiscs);
    dialogue_.Tell("hold");
    dialogue_.Tell("start");
    dialogue_.Tell("copy-notifications file=" + performance_.pipe);
    dialogue_.AwaitSubscriber();
    for (int changer = 0; changer < kChangers; ++changer) {
        dialogue_.AwaitTakenUp(changer);
        ++performance_.mounts;
    }
}

void ServerLife::AddChanger(int changer, const std::set<Place>& newDiscs) {
    const std::string guid = "changer=" + GuidOf(changer);
    dialogue_.Tell("add-changer " + guid + " slots=" + std::to_string(kDiscs + 1) +
                   " drives=" + std::to_string(kDrives) + " mount=/tmp/" + GuidOf(changer));
    for (int slot = 0; slot < kDiscs; ++slot) {
        const bool isNew = newDiscs.count({changer, slot}) != 0;
        dialogue_.TellAbout({changer, slot}, std::string("put directories=2 files=1 depth=1") +
                                                 (isNew ? "" : " identified=yes"));
    }
    if (!IdentifiesNewDiscs(changer)) {
        dialogue_.Tell("preferences " + guid + " identify-on-insert=no");
        dialogue_.TellAbout({changer, kSpareSlot}, "put");
    }
    if (changer % 2 == 1)
        dialogue_.Tell("preferences " + guid + " build-on-identify=yes");
    if (changer % 4 >= 2)
        dialogue_.Tell(DailyBuild(changer));
}

// ---- Identifications by twos ----

std::vector<ServerLife::Couple> ServerLife::ChooseCouples() const {
    std::vector<Couple> couples;
    for (int position = 0; position < 3; ++position) {
        const int changer = ChangerAt(position);
        Couple couple{{changer, SlotAt(0)}, {changer, SlotAt(3)}, IdentifiesNewDiscs(changer)};
        // Of two requests, the one for the lower slot is served first.
        if (!couple.isSecondNew && couple.second < couple.first)
            std::swap(couple.first, couple.second);
        couples.push_back(couple);
    }
    return couples;
}

// While the last of them are at it, the notifications flow and a file system goes and comes.
void ServerLife::IdentifyCouples(const std::vector<Couple>& couples) {
    for (const Couple& couple : couples) {
        Request(couple.first);
        if (couple.isSecondNew)
            performance_.ledger.OrderIdentification(couple.second);
        else
            Request(couple.second);
    }
    dialogue_.ShowOnce();
    if (number_ == 0)
        AwaitNewChangers();
    for (const Couple& couple : couples)
        dialogue_.AwaitIdentified(couple.first);
    dialogue_.ShowOnce();
    for (const Couple& couple : couples)
        dialogue_.AwaitIdentified(couple.second);
    dialogue_.Tell("release");
    dialogue_.Tell("push times=" + std::to_string(kNotificationsOfALife / 4));
    Remount(ChangerAt(3));
    for (const Couple& couple : couples) {
        dialogue_.AwaitEndOfIdentification(couple.first);
        dialogue_.AwaitEndOfIdentification(couple.second);
    }
    dialogue_.AwaitQuiet();
}

void ServerLife::AwaitNewChangers() {
    for (int changer = kChangersOfTheOverture; changer < kChangers; ++changer) {
        dialogue_.AwaitClearedStatus(changer);
        performance_.ledger.OrderClearing();
    }
}

void ServerLife::Remount(int changer) {
    dialogue_.Tell("unmount changer=" + GuidOf(changer));
    dialogue_.Tell("mount changer=" + GuidOf(changer));
    dialogue_.AwaitTakenUp(changer);
    ++performance_.mounts;
}

void ServerLife::Request(Place place) {
    dialogue_.TellAbout(place, "identify");
    performance_.ledger.OrderIdentification(place);
}

// ---- Identifications beside a build ----

void ServerLife::IdentifyBesideABuild() {
    const std::array<Place, 3> places{
        Place{ChangerAt(4), SlotAt(1)}, {ChangerAt(5), SlotAt(1)}, {ChangerAt(6), SlotAt(1)}};
    const int wholeChanger = ChangerAt(4); // in which a disc is identified meanwhile
    const int abortedChanger = ChangerAt(7);
    const bool isWhole = HasBuild() && !HasAbort();
    dialogue_.Tell("hold");
    if (isWhole)
        dialogue_.Tell("identify changer=" + GuidOf(wholeChanger));
    if (HasAbort())
        HaltABuildAndAbortIt(abortedChanger);
    for (const Place& place : places)
        Request(place);
    dialogue_.ShowOnce();
    for (const Place& place : places)
        dialogue_.AwaitIdentified(place);
    if (isWhole)
        dialogue_.AwaitBeginningOfBuild(wholeChanger);
    SendWhatIsMissing();
    for (const Place& place : places)
        dialogue_.AwaitEndOfIdentification(place);
    if (isWhole)
        AwaitAWholeBuild(wholeChanger);
    if (HasAbort())
        LetAnAbortedBuildEnd(abortedChanger);
    dialogue_.AwaitQuiet();
}

void ServerLife::SendWhatIsMissing() {
    dialogue_.Tell("release");
    const long missing = kNotificationsOfALife - dialogue_.CountNotifications();
    dialogue_.Tell("push times=" + std::to_string(std::max(missing, 0L)));
}

void ServerLife::AwaitAWholeBuild(int changer) {
    dialogue_.AwaitEndOfBuild(changer);
    performance_.ledger.OrderBuild(kDiscs + 3);
    ++performance_.wholeBuilds;
}

// That the abort reached the daemon shows in whatever it does next.
void ServerLife::HaltABuildAndAbortIt(int changer) {
    dialogue_.HaltABuild(changer);
    dialogue_.Tell("abort client=trayprobed changer=" + GuidOf(changer));
}

void ServerLife::LetAnAbortedBuildEnd(int changer) {
    for (int drive = 0; drive < kDrives; ++drive)
        dialogue_.TellAbout({changer, drive}, "eject");
    dialogue_.AwaitEndOfBuild(changer);
    performance_.ledger.OrderBuild(kDrives + 3);
    ++performance_.abortedBuilds;
}

// ---- The end ----

// Held, so that the daemon has acted on all that was ever sent when this disc has been identified.
void ServerLife::IdentifyTheLast() {
    const int changer = ChangerAt(7);
    Place place{changer, kSpareSlot};
    dialogue_.Tell("hold");
    if (IdentifiesNewDiscs(changer)) {
        dialogue_.TellAbout(place, "put directories=2 files=1 depth=1");
        performance_.ledger.OrderIdentification(place);
    } else {
        place.slot = SlotAt(2);
        Request(place);
    }
    dialogue_.ShowOnce();
    dialogue_.AwaitEndOfIdentification(place);
    dialogue_.AwaitQuiet();
}

void ServerLife::PlayFinale() {
    Begin({});
    ServerCrash::MakeUp(performance_);
    IdentifyEveryDisc();
    BuildEveryChanger();
}

void ServerLife::IdentifyEveryDisc() {
    for (int slot = 0; slot < kDiscs; ++slot) {
        for (int changer = 0; changer < kChangers; ++changer)
            Request({changer, slot});
        dialogue_.ShowOnce();
        for (int changer = 0; changer < kChangers; ++changer)
            dialogue_.AwaitEndOfIdentification({changer, slot});
        dialogue_.AwaitQuiet();
    }
}

void ServerLife::BuildEveryChanger() {
    for (int changer = 0; changer < kChangers; ++changer)
        dialogue_.Tell("identify changer=" + GuidOf(changer));
    dialogue_.ShowOnce();
    for (int changer = 0; changer < kChangers; ++changer) {
        dialogue_.AwaitBeginningOfBuild(changer);
        dialogue_.AwaitEndOfBuild(changer);
        performance_.ledger.OrderBuild(kDiscs + 3);
    }
    dialogue_.AwaitQuiet();
}

void ServerLife::Count() {
    testbed::Simulator& server = performance_.run.Server();
    for (const Event& request : server.AllSoFar("request"))
        performance_.ledger.CountRequest(request);
    performance_.notifications += dialogue_.CountNotifications();
    for (const Event& line : dialogue_.Tell("show")) {
        if (line.kind == "slot")
            performance_.ledger.CountDisc(line);
        const bool isLeft =
            line.kind == "status" || line["requested"] == "yes" || line["held"] == "yes";
        if (isLeft && !isCutOff_) {
            performance_.leftovers.push_back("life " + std::to_string(number_) + ": " + line.kind +
                                             " " + line["changer"] + " " + line["slot"]);
        }
    }
}

void ServerLife::End() {
    if (number_ % 2 == 0)
        performance_.run.QuitServer();
    else
        performance_.run.KillServer();
    if (isCutOff_)
        crash_.CountEnds();
    performance_.run.OutputLog().Discard(testbed::Stream::Server);
}
