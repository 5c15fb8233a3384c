#include "ServerCrash.h"

#include "testbed/Pattern.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// The last link of an identification or a build whose withdrawal failed.
constexpr const char* kFailedWithdrawal = ": fail ChangerServerRequestChangerIdentification";

std::string SuppressReplyTo(const std::string& command) {
    return "fault on=\"" + command + "\" do=silence";
}

// True for a link of a request that failed because the server was gone or ending (the daemon also
// finds a zombie process, whose sockets refuse the connection), and for a link of a listing in a
// file system whose server is gone.
bool IsLostServerLink(const std::string& line) {
    static const testbed::Pattern coded("trayprobed: .* \\((VErrCode = 100[15]|"
                                        "err = (-1|10[37]))\\)"); // ECONNABORTED, ENOTCONN
    static const testbed::Pattern refused("trayprobed: [A-Za-z]+:[0-9]+, [A-Za-z]+: fail [^()]*");
    return coded.Matches(line) || refused.Matches(line);
}

bool IsFailureOf(const std::string& function, const std::string& line) {
    return line.find(function + kFailedWithdrawal) != std::string::npos;
}

} // namespace

void ServerCrash::Interrupt() {
    constexpr std::array kSteps{Step::FirstWithdrawal, Step::Mount, Step::Eject,
                                Step::SecondWithdrawal};
    for (int position = 0; position < static_cast<int>(kSteps.size()); ++position) {
        InterruptIdentification({ChangerAt(position), SlotAt(position)},
                                kSteps.at(static_cast<std::size_t>(position)));
    }
    // Both drives of one changer: while both are in use, the daemon picks no disc there.
    const int fullChanger = ChangerAt(4);
    InterruptIdentification({fullChanger, SlotAt(0)}, Step::Mount);
    InterruptIdentification({fullChanger, SlotAt(1)}, Step::Eject);
    InterruptBuild(ChangerAt(5));
}

void ServerCrash::InterruptIdentification(Place place, Step last) {
    if (last == Step::SecondWithdrawal) {
        // The first withdrawal gets a reply, the second does not.
        control_.Do("fault on=\"request identification\" do=late after=0");
    }
    control_.Do(SuppressReplyTo(last == Step::Mount   ? "mount disc"
                                : last == Step::Eject ? "eject disc"
                                                      : "request identification"));
    control_.DoForSlot(place, "identify");
    control_.SendStateOnce();
    control_.AwaitPendingRequest();
    context_.counts.ExpectInterruptedIdentification(place, last);
    context_.crashes.discs.push_back(place);
    ++context_.crashes.interruptedIdentifications;
    context_.crashes.mounted += last > Step::Mount ? 1 : 0;
}

void ServerCrash::InterruptBuild(int changer) {
    control_.BlockBuild(changer);
    context_.counts.ExpectInterruptedBuild(kDrives + 2);
    context_.crashes.changers.push_back(changer);
    ++context_.crashes.interruptedBuilds;
}

void ServerCrash::CountFailures() {
    CrashCounts& crashes = context_.crashes;
    if (crashes.servers++ == 0) { // the daemon's first log line opens its log socket
        auto& descriptors = context_.idleUsage.descriptors;
        descriptors.insert(std::upper_bound(descriptors.begin(), descriptors.end(), "socket"),
                           "socket");
    }
    control_.AwaitIdle();
    for (const std::string& line : context_.run.TakeLog())
        if (IsFailureOf("RunMediaIdThread", line))
            ++crashes.failedIdentifications;
        else if (IsFailureOf("RunChangerFSCacheThread", line))
            ++crashes.failedBuilds;
        else if (!IsLostServerLink(line))
            crashes.otherLines.push_back(line);
}

void ServerCrash::RepeatInterruptedWork(SoakContext& context) {
    const ServerControl control(context);
    CrashCounts& crashes = context.crashes;
    for (const Place place : std::exchange(crashes.discs, {})) {
        control.DoForSlot(place, "identify");
        context.counts.ExpectIdentification(place);
        control.SendStateOnce();
        control.AwaitEndOfIdentification(place);
        control.AwaitIdle();
        ++crashes.repeatedIdentifications;
    }
    for (const int changer : std::exchange(crashes.changers, {})) {
        control.Do("identify changer=" + GuidOf(changer));
        control.SendStateOnce();
        control.AwaitStartOfBuild(changer);
        control.AwaitEndOfBuild(changer);
        context.counts.ExpectBuild(kDiscs + 3);
        control.AwaitIdle();
        ++crashes.repeatedBuilds;
    }
}
