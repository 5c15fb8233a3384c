#include "ServerCrash.h"

#include "testbed/Pattern.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// The last link of whatever ends with a withdrawal that failed.
constexpr const char* kFailedWithdrawal = ": fail ChangerServerRequestChangerIdentification";

std::string SilenceOn(const std::string& command) {
    return "fault on=\"" + command + "\" do=silence";
}

// A link of a request that found no server, or one that was ending: one that has ended but was not
// waited for is found, too, and refuses. Or of a listing in a file system without a server.
bool IsLinkOfLostServer(const std::string& line) {
    static const testbed::Pattern coded("trayprobed: .* \\((VErrCode = 100[15]|"
                                        "err = (-1|10[37]))\\)"); // ECONNABORTED, ENOTCONN
    static const testbed::Pattern refused("trayprobed: [A-Za-z]+:[0-9]+, [A-Za-z]+: fail [^()]*");
    return coded.Matches(line) || refused.Matches(line);
}

bool IsEndOf(const std::string& function, const std::string& line) {
    return line.find(function + kFailedWithdrawal) != std::string::npos;
}

} // namespace

void ServerCrash::CutOff() {
    constexpr std::array kSteps{Step::FirstWithdrawal, Step::Mount, Step::Eject,
                                Step::SecondWithdrawal};
    for (int position = 0; position < static_cast<int>(kSteps.size()); ++position) {
        CutOffIdentification({ChangerAt(position), SlotAt(position)},
                             kSteps.at(static_cast<std::size_t>(position)));
    }
    // Both drives of one changer, in which nothing could be picked any more.
    const int full = ChangerAt(4);
    CutOffIdentification({full, SlotAt(0)}, Step::Mount);
    CutOffIdentification({full, SlotAt(1)}, Step::Eject);
    CutOffBuild(ChangerAt(5));
}

void ServerCrash::CutOffIdentification(Place place, Step last) {
    if (last == Step::SecondWithdrawal) {
        dialogue_.Tell(
            "fault on=\"request identification\" do=late after=0"); // the first: answered
    }
    dialogue_.Tell(SilenceOn(last == Step::Mount   ? "mount disc"
                             : last == Step::Eject ? "eject disc"
                                                   : "request identification"));
    dialogue_.TellAbout(place, "identify");
    dialogue_.ShowOnce();
    dialogue_.AwaitUnansweredRequest();
    performance_.ledger.OrderCutOffIdentification(place, last);
    performance_.crashes.discs.push_back(place);
    ++performance_.crashes.begunIdentifications;
    performance_.crashes.mounted += last > Step::Mount ? 1 : 0;
}

void ServerCrash::CutOffBuild(int changer) {
    dialogue_.HaltABuild(changer);
    performance_.ledger.OrderCutOffBuild(kDrives + 2);
    performance_.crashes.changers.push_back(changer);
    ++performance_.crashes.begunBuilds;
}

void ServerCrash::CountEnds() {
    CrashRecord& crashes = performance_.crashes;
    if (crashes.servers++ == 0) { // the daemon logs for the first time
        auto& descriptors = performance_.quiet.descriptors;
        descriptors.insert(std::upper_bound(descriptors.begin(), descriptors.end(), "socket"),
                           "socket");
    }
    dialogue_.AwaitQuiet();
    for (const std::string& line : performance_.run.TakeLog())
        if (IsEndOf("RunMediaIdThread", line))
            ++crashes.endsOfIdentifications;
        else if (IsEndOf("RunChangerFSCacheThread", line))
            ++crashes.endsOfBuilds;
        else if (!IsLinkOfLostServer(line))
            crashes.otherLines.push_back(line);
}

void ServerCrash::MakeUp(Performance& performance) {
    const Dialogue dialogue(performance);
    CrashRecord& crashes = performance.crashes;
    for (const Place place : std::exchange(crashes.discs, {})) {
        dialogue.TellAbout(place, "identify");
        performance.ledger.OrderIdentification(place);
        dialogue.ShowOnce();
        dialogue.AwaitEndOfIdentification(place);
        dialogue.AwaitQuiet();
        ++crashes.identifiedAgain;
    }
    for (const int changer : std::exchange(crashes.changers, {})) {
        dialogue.Tell("identify changer=" + GuidOf(changer));
        dialogue.ShowOnce();
        dialogue.AwaitBeginningOfBuild(changer);
        dialogue.AwaitEndOfBuild(changer);
        performance.ledger.OrderBuild(kDiscs + 3);
        dialogue.AwaitQuiet();
        ++crashes.builtAgain;
    }
}
