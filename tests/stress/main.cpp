/*
 * stress-trayprobed [seconds [seed]]: runs all modules of the daemon in this process with their
 * real threads, run loops, sockets and mounts, under random events. Made for the thread sanitizer.
 *
 *   main thread    controls the phases, restarts the server, mounts and unmounts
 *   server         sends notifications and serves requests (Server.h)
 *   daemon         its main thread (RunningDaemon.h), workers, builds, reader, volume probes
 *   observer       checks the state (Invariants.h) in a random half of the rounds; its locking also
 *                  orders the other threads, so it must not always run
 *
 * Each round has a daemon of its own and two seconds of churn. Every third round has no faults: no
 * changer and no volume disappears and every request succeeds, so nothing may be logged and no disc
 * may get stuck. After the churn everything is present and the daemon must become idle. Then all
 * changers are removed and added again, after which no disc may be in progress. At the end there
 * must be no more threads and descriptors than after the first round, which has no churn.
 *
 * The delays of the daemon are shortened (ShortDelays.h). Exit status 0 if there was no problem and
 * each kind of event occurred.
 */

#include "Activity.h"
#include "Changers.h"
#include "EventCounts.h"
#include "InfoLists.h"
#include "Invariants.h"
#include "RandomValues.h"
#include "RunningDaemon.h"
#include "Server.h"
#include "ShortDelays.h"
#include "Volumes.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kChurn{2};

struct TestBed {
    Volumes volumes;
    Changers changers;
    std::optional<Server> server;
};

void Disturb(TestBed& testBed) {
    if (random_values::OneIn(60)) {
        event_counts::Count("server restarts");
        testBed.server.reset();
        random_values::Sleep(3000);
        testBed.server.emplace(testBed.changers);
    } else {
        testBed.volumes.Disturb();
    }
}

void RunChurn(TestBed& testBed, Phase phase) {
    testBed.changers.SetPhase(phase);
    short_delays::ShortenReplyTimeouts(phase == Phase::kChurn);
    std::optional<StateObserver> observer;
    if (random_values::OneIn(2))
        observer.emplace();
    for (const auto end = Clock::now() + kChurn; Clock::now() < end; random_values::Sleep(4000))
        if (phase == Phase::kChurn)
            Disturb(testBed);
    short_delays::ShortenReplyTimeouts(false);
    testBed.volumes.Restore();
}

// The first list sent from now on may still belong to the old phase. When the third list is saved,
// the daemon has handled the second.
void ChangePhase(TestBed& testBed, Phase phase) {
    testBed.changers.SetPhase(phase);
    info_lists::AwaitSaved(info_lists::SentCount() + 3);
}

void AwaitIdle(TestBed& testBed, bool changersReadded) {
    ChangePhase(testBed, Phase::kIdle);
    for (const auto end = Clock::now() + testbed::kTimeOut; !IsIdle();) {
        if (Clock::now() > end)
            throw testbed::Failure("the daemon does not become idle");
        info_lists::AwaitSaved(info_lists::SentCount() + 1);
    }
    CheckIdleState(changersReadded);
}

void RunRound(TestBed& testBed, Phase phase) {
    activity::BeginRound(phase != Phase::kChurn);
    info_lists::BeginRound();
    {
        const RunningDaemon daemon;
        testBed.server.emplace(testBed.changers);
        if (phase != Phase::kIdle)
            RunChurn(testBed, phase);
        AwaitIdle(testBed, false);
        ChangePhase(testBed, Phase::kNoChangers);
        AwaitIdle(testBed, true);
        testBed.server.reset();
        info_lists::AwaitSaved(info_lists::SentCount()); // no list was lost
    }
    info_lists::ReleaseReplaced();
}

// Waits for the end of all other threads and checks the open descriptors.
void CheckLeftovers(const std::set<pid_t>& threads, const std::vector<std::string>& descriptors) {
    testbed::AwaitEndOfOtherThreads(threads, getpid());
    if (!std::ranges::includes(descriptors, testbed::ListDescriptors(getpid())))
        event_counts::ReportProblem("descriptors were left open");
}

// A slow machine needs longer until every kind of event has occurred.
bool ShouldContinue(Clock::duration passed, std::chrono::seconds duration) {
    return passed < duration ||
           (passed < duration + testbed::kTimeOut && !event_counts::HasEveryEvent());
}

int Run(std::chrono::seconds duration) {
    try {
        TestBed testBed;
        RunRound(testBed, Phase::kIdle);
        const auto threads = testbed::ListThreads(getpid());
        const auto descriptors = testbed::ListDescriptors(getpid());
        int rounds = 0;
        for (const auto begin = Clock::now(); ShouldContinue(Clock::now() - begin, duration);
             ++rounds)
            RunRound(testBed, rounds % 3 == 0 ? Phase::kFaultFreeChurn : Phase::kChurn);
        CheckLeftovers(threads, descriptors);
        std::printf("%10d  rounds\n", rounds);
    } catch (const std::exception& failure) {
        event_counts::ReportProblem(failure.what());
        event_counts::Report();
        std::fflush(nullptr);
        _exit(1); // other threads still run
    }
    event_counts::Report();
    return event_counts::HasProblems() ? 1 : 0;
}

// argv[0] inside the sandbox. The program is executed again there: the daemon's code opens /proc at
// program start.
constexpr const char* kSandboxName = "stress-trayprobed in its sandbox";

int RestartInSandbox(const std::string& seconds, const std::string& seed) {
    execl(testbed::ProgramPath("stress-trayprobed").c_str(), kSandboxName, seconds.c_str(),
          seed.c_str(), nullptr);
    throw testbed::Failure("cannot restart");
}

} // namespace

int main(int argc, char** argv) {
    const std::string seconds = argc > 1 ? argv[1] : "600";
    const std::string seed = argc > 2 ? argv[2] : std::to_string(std::random_device()());
    if (std::string_view(argv[0]) != kSandboxName)
        return testbed::RunInSandbox([&] { return RestartInSandbox(seconds, seed); });
    std::printf("seed %s\n", seed.c_str());
    std::fflush(nullptr);
    random_values::Seed(static_cast<std::uint32_t>(std::stoul(seed)));
    return Run(std::chrono::seconds(std::stoi(seconds)));
}
