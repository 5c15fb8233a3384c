// The calls of Calls.def, made by the daemon and its libraries: in each phase in which a call
// occurs the first, the second, ... one fails with each error.

#include "Calls.h"
#include "FaultDirector.h"
#include "SystemTest.h"
#include "testbed/ProcessState.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using testbed::Event;
using testbed::Line;
using testbed::Stream;

static void PrintTo(const FaultyCall& call, std::ostream* out) {
    *out << call.name;
}

namespace {

constexpr int kSlots = 50;

bool IsFaultNotice(const Line& line) {
    return line.stream == Stream::DaemonOutput && line.text == kFaultNotice;
}

bool IsLogged(const Line& line, const std::string& part) {
    return line.stream == Stream::SystemLog && line.text.find(part) != std::string::npos;
}

bool IsInfoOpen(const Line& line, int after) {
    const auto event = testbed::ParseEvent(line.text);
    return event && event->kind == "info-open" && event->number > after;
}

class FaultyCallsTest : public SystemTest, public testing::WithParamInterface<FaultyCall> {
protected:
    FaultyCallsTest() {
        // As many drives as slots, for a disc may have to stay where it is.
        const std::string count = std::to_string(kSlots);
        StartServer("slots=" + count + " drives=" + count);
    }

    // Runs a round with the first, second, ... call failing with each error, until one has no such
    // call. Fails if the first round has none. A round ends the fault, and returns whether it
    // happened.
    void ForEachFault(const std::function<bool()>& runRound);
    bool EndFault();
    // Waits until the daemon is idle: its main loop and its reader wait for events.
    void AwaitIdle() {
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Poll, 1);
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::EpollWait, 1);
    }

    // A root that cannot be read is silently no changer's.
    static bool IsForReading() {
        static const std::set<std::string_view> kReading = {"fstat", "lstat", "open", "read"};
        return kReading.contains(GetParam().name);
    }
    // Waits for the next line that shows the daemon's progress, or for the notice of the fault.
    Line NextSign(const std::function<bool(const Line&)>& isSign);

    FaultDirector director_;

private:
    bool isNoticeTaken_ = false;
};

// The process table is read with some hundred calls of readdir(): every 50th fails.
int Stride(std::string_view call) {
    return call == "readdir" ? 50 : 1;
}

void FaultyCallsTest::ForEachFault(const std::function<bool()>& runRound) {
    const std::string call(GetParam().name);
    for (const int error : GetParam().errors) {
        if (error == 0)
            break;
        int faults = 0;
        bool happened = true;
        for (int nth = 1; happened; nth += Stride(call)) {
            SCOPED_TRACE("call " + std::to_string(nth) + ": " + NameOfError(error));
            director_.Arm(call, error, nth);
            happened = runRound();
            faults += happened ? 1 : 0;
        }
        EXPECT_GT(faults, 0) << NameOfError(error) << ": the call does not occur";
        RecordProperty(NameOfError(error), faults);
    }
}

bool FaultyCallsTest::EndFault() {
    const bool happened = director_.Disarm();
    if (happened && !std::exchange(isNoticeTaken_, false))
        run_.OutputLog().Await(IsFaultNotice, "notice of the fault");
    return happened;
}

Line FaultyCallsTest::NextSign(const std::function<bool(const Line&)>& isSign) {
    const Line line = run_.OutputLog().Await(
        [&](const Line& each) { return isSign(each) || IsFaultNotice(each); },
        "progress of the daemon");
    isNoticeTaken_ |= IsFaultNotice(line);
    return line;
}

// ---- the start ----

bool IsClearedStatus(const Line& line) {
    const auto event = testbed::ParseEvent(line.text);
    return event && event->kind == "request" &&
           event->Has({{"command", "set client status"}, {"message", ""}});
}

bool IsSignOfStart(const Line& line) {
    return IsClearedStatus(line) || IsInfoOpen(line, 0) || IsLogged(line, "main: fail");
}

// Starts, connects and finds its disks, or logs why not and ends with status 0.
class FaultyStartTest : public FaultyCallsTest {
protected:
    bool Start() {
        while (run_.OutputLog().TryTake(IsSignOfStart)) {
        }
        run_.StartDaemon(director_.Start());
        const bool isUp = AwaitStart();
        if (isUp)
            AwaitIdle();
        const bool happened = EndFault();
        EXPECT_TRUE(isUp || happened);
        if (isUp)
            run_.Daemon().Signal(SIGTERM);
        EXPECT_EQ(run_.AwaitEndOfDaemon(), isUp ? SIGTERM : 0);
        const auto log = run_.TakeLog();
        EXPECT_TRUE(happened || log.empty()) << testing::PrintToString(log);
        return happened;
    }

private:
    bool AwaitStart() {
        bool isConnected = false;
        bool mayBeLost = false;
        int reads = 0; // of the info file: to recognise it, and to enter it
        while (!isConnected || (reads < 2 && !mayBeLost)) {
            const Line line = NextSign(IsSignOfStart);
            if (line.stream == Stream::SystemLog)
                return false;
            isConnected |= IsClearedStatus(line);
            reads += IsInfoOpen(line, 0) ? 1 : 0;
            mayBeLost |= IsFaultNotice(line) && IsForReading();
        }
        return true;
    }
};

TEST_P(FaultyStartTest, StartSucceedsOrLogsWhyNot) {
    ForEachFault([this] { return Start(); });
}

// ---- a running daemon ----

bool IsFailedWithdrawal(const Line& line) {
    return IsLogged(line, "RunMediaIdThread: fail ChangerServerRequestChangerIdentification");
}

bool IsIdentification(const Line& line, const std::string& slot) {
    const auto event = testbed::ParseEvent(line.text);
    return event && event->kind == "identified" && event->Has({{"slot", slot}});
}

class FaultyRunTest : public FaultyCallsTest {
protected:
    FaultyRunTest() {
        Tell("preferences changer=5000C500ABCD00A1 build-on-identify=yes"); // so that all of a disc
                                                                            // is listed
        StartDaemon(director_.Start());
        AwaitLastNotification();
        rest_ = run_.Daemon().ReadResourceUsage();
        rest_.descriptors.emplace_back("socket"); // to the system log
        std::sort(rest_.descriptors.begin(), rest_.descriptors.end());
    }

    // doThing returns whether the work was done; else the log must have a line.
    void Sweep(const std::function<bool()>& doThing) {
        ForEachFault([&] {
            director_.TakeWaits();
            const bool done = doThing();
            AwaitIdle();
            const bool happened = EndFault();
            CheckDaemon(done, happened);
            return happened;
        });
    }

    // A new disc is put in, and notified until it is identified.
    bool Identify();
    // The server drops its connections.
    bool Reconnect();
    // The changer's file system goes and comes.
    bool Remount();

private:
    void CheckDaemon(bool done, bool happened);
    void AwaitLastNotification();
    void AwaitRest();

    testbed::ResourceUsage rest_;
    int slot_ = 0; // the one to put a disc in
    bool isOccupied_ = false;
    bool isOutOfReach_ = false; // its request could not be withdrawn
    std::uint64_t changers_ = 0x5000C500ABCD1000;
};

void FaultyRunTest::CheckDaemon(bool done, bool happened) {
    constexpr long kBusy = 1000; // waits for events; some ten are usual
    EXPECT_LT(director_.TakeWaits(), kBusy);
    AwaitRest();
    const auto log = run_.TakeLog();
    EXPECT_TRUE(done || !log.empty()) << "not logged";
    EXPECT_TRUE(happened || (done && log.empty())) << testing::PrintToString(log);
    const bool isFailed = std::ranges::any_of(
        log, [](const auto& text) { return IsFailedWithdrawal({Stream::SystemLog, text}); });
    if (std::exchange(isOutOfReach_, false) || isFailed)
        ++slot_;
}

// The daemon handles notifications in order. Once it has added another changer, none is pending.
void FaultyRunTest::AwaitLastNotification() {
    std::ostringstream changer;
    changer << std::hex << std::uppercase << std::setw(16) << std::setfill('0') << changers_++;
    Tell("add-changer changer=" + changer.str() + " slots=1 drives=1");
    AwaitChangerAdded(changer.str());
}

// The idle threads are the fewest ever seen: one that probes a volume may be slow to end.
void FaultyRunTest::AwaitRest() {
    AwaitLastNotification();
    const testbed::ResourceUsage now = run_.Daemon().AwaitResourceUsageWithin(rest_);
    EXPECT_TRUE(now.IsWithin(rest_)) << Describe(now);
    rest_.threads = std::min(rest_.threads, now.threads);
    if (std::exchange(isOccupied_, false))
        Tell("take changer=5000C500ABCD00A1 slot=" + std::to_string(slot_));
}

// An identification that cannot withdraw the request logs that and never gets to the disc again.
// Any other failure is made up for by the next notification.
bool FaultyRunTest::Identify() {
    const std::string slot = std::to_string(slot_);
    const auto isIdentified = [&](const Line& each) { return IsIdentification(each, slot); };
    while (run_.OutputLog().TryTake(isIdentified)) { // the last disc, a second time
    }
    Tell("put changer=5000C500ABCD00A1 slot=" + slot + " directories=3");
    isOccupied_ = true;
    const Line line = run_.OutputLog().Await(
        [&](const Line& each) { return isIdentified(each) || IsFailedWithdrawal(each); },
        "the identification of slot " + slot);
    run_.Daemon().AwaitResourceUsageWithin(rest_); // the disc is ejected, or stays
    isOutOfReach_ = IsFailedWithdrawal(line);
    return !isOutOfReach_;
}

bool FaultyRunTest::Reconnect() {
    Tell("stop");
    const int stopped = Server().AllSoFar("stopped").back().number;
    Tell("start");
    Server().Await("subscriber", [stopped](const Event& subscriber) {
        return subscriber.number > stopped && subscriber["connected"] == "yes";
    });
    return true;
}

// A volume that was missed is found when it is mounted again.
bool FaultyRunTest::Remount() {
    Tell("unmount changer=5000C500ABCD00A1");
    const int unmounted = Server().AllSoFar("file-system").back().number;
    Tell("mount changer=5000C500ABCD00A1");
    for (int reads = 0; reads < 2; ++reads) { // to recognise it, and to enter it
        while (IsFaultNotice(
            NextSign([&](const Line& each) { return IsInfoOpen(each, unmounted); }))) {
            director_.Disarm();
            if (IsForReading())
                return Remount();
        }
    }
    return true;
}

using FaultyIdentificationTest = FaultyRunTest;
using FaultyReconnectionTest = FaultyRunTest;
using FaultyRemountTest = FaultyRunTest;

TEST_P(FaultyIdentificationTest, DaemonRecovers) {
    Sweep([this] { return Identify(); });
}

TEST_P(FaultyReconnectionTest, DaemonRecovers) {
    Sweep([this] { return Reconnect(); });
}

TEST_P(FaultyRemountTest, DaemonRecovers) {
    Sweep([this] { return Remount(); });
}

// ---- the calls ----

auto CallsIn(Phase phase) {
    std::vector<FaultyCall> calls;
    std::ranges::copy_if(kFaultyCalls, std::back_inserter(calls),
                         [phase](const FaultyCall& each) { return (each.phases & phase) != 0; });
    return testing::ValuesIn(calls);
}

std::string NameOf(const testing::TestParamInfo<FaultyCall>& instance) {
    return std::string(instance.param.name);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultyStartTest, CallsIn(kStart), NameOf);
INSTANTIATE_TEST_SUITE_P(Calls, FaultyIdentificationTest, CallsIn(kIdentification), NameOf);
INSTANTIATE_TEST_SUITE_P(Calls, FaultyReconnectionTest, CallsIn(kReconnection), NameOf);
INSTANTIATE_TEST_SUITE_P(Calls, FaultyRemountTest, CallsIn(kRemount), NameOf);

} // namespace
