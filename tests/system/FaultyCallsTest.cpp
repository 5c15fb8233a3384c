// Faults in the calls of Calls.def by the daemon and its libraries: in each phase in which a call
// occurs, the first, the second, ... one fails with each error.

#include "Calls.h"
#include "FaultDirector.h"
#include "SystemTest.h"

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

// True if the line is such an event after the event of number `after`.
bool IsEvent(const Line& line, const std::string& kind, const testbed::Values& values,
             int after = 0) {
    const auto event = testbed::ParseEvent(line.text);
    return event && event->kind == kind && event->number > after && event->Has(values);
}

// The number of calls between two faults. Each search of the process table makes some hundred calls
// of readdir().
int Stride(std::string_view call) {
    return call == "readdir" ? 50 : 1;
}

class FaultyCallsTest : public SystemTest, public testing::WithParamInterface<FaultyCall> {
protected:
    FaultyCallsTest() {
        // A drive for each slot, as a fault may leave a disc in its drive.
        const std::string count = std::to_string(kSlots);
        StartServer("slots=" + count + " drives=" + count);
    }

    // Calls run() with the first, second, ... call failing with each error, until the fault does
    // not happen. Fails the test if the first one does not. run() returns EndFault().
    void ForEachFault(const std::function<bool()>& run);
    // Ends the fault; returns whether it happened.
    bool EndFault() {
        const bool happened = director_.Disarm();
        if (happened && !std::exchange(isNoticeTaken_, false))
            run_.OutputLog().Await(IsFaultNotice, "notice of the fault");
        return happened;
    }

    // True if the fault can make a changer's volume look like another volume, without a log line.
    static bool IsForReading() {
        static const std::set<std::string_view> kReading = {"fstat", "lstat", "open", "read"};
        return kReading.contains(GetParam().name);
    }
    // Waits for the next line that shows the daemon's progress, or for the notice of the fault.
    Line NextSign(const std::function<bool(const Line&)>& isSign) {
        const Line line = run_.OutputLog().Await(
            [&](const Line& each) { return isSign(each) || IsFaultNotice(each); },
            "progress of the daemon");
        isNoticeTaken_ |= IsFaultNotice(line);
        return line;
    }

    FaultDirector director_;

private:
    bool isNoticeTaken_ = false;
};

void FaultyCallsTest::ForEachFault(const std::function<bool()>& run) {
    const std::string call(GetParam().name);
    for (const int error : GetParam().errors) {
        if (error == 0)
            break;
        int faults = 0;
        bool happened = true;
        for (int nth = 1; happened; nth += Stride(call)) {
            SCOPED_TRACE("call " + std::to_string(nth) + ": " + NameOfError(error));
            director_.Arm(call, error, nth);
            happened = run();
            faults += happened ? 1 : 0;
        }
        EXPECT_GT(faults, 0) << NameOfError(error) << ": the call does not occur";
        RecordProperty(NameOfError(error), faults);
    }
}

// ---- the start ----

bool IsClearedStatus(const Line& line) {
    return IsEvent(line, "request", {{"command", "set client status"}, {"message", ""}});
}

bool IsSignOfStart(const Line& line) {
    return IsClearedStatus(line) || IsEvent(line, "info-open", {}) || IsLogged(line, "main: fail");
}

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
        int reads = 0; // of the info file: two register the volume
        while (!isConnected || (reads < 2 && !mayBeLost)) {
            const Line line = NextSign(IsSignOfStart);
            if (line.stream == Stream::SystemLog)
                return false;
            isConnected |= IsClearedStatus(line);
            reads += IsEvent(line, "info-open", {}) ? 1 : 0;
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

class FaultyRunTest : public FaultyCallsTest {
protected:
    FaultyRunTest() {
        Do("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
        StartDaemon(director_.Start());
        AwaitLastNotification();
        idle_ = run_.Daemon().ReadResourceUsage();
        idle_.descriptors.emplace_back("socket"); // to the system log
        std::sort(idle_.descriptors.begin(), idle_.descriptors.end());
    }

    // work() returns whether the work was done; if not, the log must have a line.
    void Sweep(const std::function<bool()>& work) {
        ForEachFault([&] {
            director_.TakeWaits();
            const bool done = work();
            AwaitIdle();
            const bool happened = EndFault();
            CheckDaemon(done, happened);
            return happened;
        });
    }

    // Puts in a new disc. A worker that cannot withdraw the request leaves the disc in progress for
    // ever; after any other failure the next notification starts another worker.
    bool Identify() {
        const std::string slot = std::to_string(slot_);
        const auto isIdentified = [&](const Line& each) {
            return IsEvent(each, "identified", {{"slot", slot}});
        };
        while (run_.OutputLog().TryTake(isIdentified)) { // the previous disc, a second time
        }
        PutDisc(slot_, "directories=3");
        isOccupied_ = true;
        const Line line = run_.OutputLog().Await(
            [&](const Line& each) { return isIdentified(each) || IsFailedWithdrawal(each); },
            "the identification of slot " + slot);
        run_.Daemon().AwaitResourceUsageWithin(idle_); // the worker has ended
        isOutOfReach_ = IsFailedWithdrawal(line);
        return !isOutOfReach_;
    }
    // The server closes its connections and listens again.
    bool Reconnect() {
        Do("stop");
        const int stopped = Server().AllSoFar("stopped").back().number;
        Do("start");
        Server().Await("subscriber", [stopped](const Event& subscriber) {
            return subscriber.number > stopped && subscriber["connected"] == "yes";
        });
        return true;
    }
    // Unmounts and mounts the changer's file system, again if the fault hid the volume.
    bool Remount() {
        Do("unmount changer=5000C500ABCD00A1");
        const int unmounted = Server().AllSoFar("file-system").back().number;
        Do("mount changer=5000C500ABCD00A1");
        for (int reads = 0; reads < 2; ++reads) {
            while (IsFaultNotice(NextSign(
                [&](const Line& each) { return IsEvent(each, "info-open", {}, unmounted); }))) {
                director_.Disarm();
                if (IsForReading())
                    return Remount();
            }
        }
        return true;
    }

private:
    void CheckDaemon(bool done, bool happened) {
        constexpr long kBusy = 1000; // waits for events; about ten are usual
        EXPECT_LT(director_.TakeWaits(), kBusy);
        AwaitIdleUsage();
        const auto log = run_.TakeLog();
        EXPECT_TRUE(done || !log.empty()) << "not logged";
        EXPECT_TRUE(happened || (done && log.empty())) << testing::PrintToString(log);
        const bool isFailed = std::ranges::any_of(
            log, [](const auto& text) { return IsFailedWithdrawal({Stream::SystemLog, text}); });
        if (std::exchange(isOutOfReach_, false) || isFailed)
            ++slot_;
    }
    // The daemon handles notifications in order; adds another changer and waits for it.
    void AwaitLastNotification() {
        std::ostringstream changer;
        changer << std::hex << std::uppercase << std::setw(16) << std::setfill('0')
                << nextChanger_++;
        Do("add-changer changer=" + changer.str() + " slots=1 drives=1");
        AwaitChangerAdded(changer.str());
    }
    // The thread that probes a volume may end late, so the limit is the smallest number so far.
    void AwaitIdleUsage() {
        AwaitLastNotification();
        const testbed::ResourceUsage now = run_.Daemon().AwaitResourceUsageWithin(idle_);
        EXPECT_TRUE(now.IsWithin(idle_)) << Describe(now);
        idle_.threads = std::min(idle_.threads, now.threads);
        if (std::exchange(isOccupied_, false))
            Do("take changer=5000C500ABCD00A1 slot=" + std::to_string(slot_));
    }

    testbed::ResourceUsage idle_;
    int slot_ = 0;              // for the next disc
    bool isOccupied_ = false;   // the slot
    bool isOutOfReach_ = false; // the slot, whose request could not be withdrawn
    std::uint64_t nextChanger_ = 0x5000C500ABCD1000;
};

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
