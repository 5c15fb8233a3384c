/*
 * stress-trayprobed [seconds [seed]]: all of the daemon's modules at once, with their real threads,
 * run loops, sockets and mounts, while everything happens to them that can. For the thread
 * sanitizer, above all.
 *
 *   director (here)    restarts the server, mounts and unmounts, calls for rest
 *   server             notifier and message servers (Server.h)
 *   daemon             its main thread (RunningDaemon.h), workers, builds, reader, volume probes
 *   observer           looks at the state all the time (Invariants.h), in every other round: who
 *                      takes locks to look at threads also puts them in order
 *
 * Rounds of two seconds follow one another, each with a daemon of its own. In every third one the
 * storm is quiet: no changer and no volume goes and the server does all that it is asked, so that
 * nothing may be logged and every disc stays within reach. After the storm, rest: everything is
 * there again, nothing is to be done, and the state must say so. Then all changers are forgotten
 * and added anew, which leaves nothing at all. In the end there must be no thread and no descriptor
 * more than after the first round, which is all calm.
 *
 * The delays of the daemon are shortened (ShortTimes.h). Exit status 0 when nothing was wrong and
 * each kind of event happened.
 */

#include "Chance.h"
#include "Changers.h"
#include "Invariants.h"
#include "Ledger.h"
#include "RunningDaemon.h"
#include "SentLists.h"
#include "Server.h"
#include "ShortTimes.h"
#include "Tally.h"
#include "Volumes.h"

#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

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
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kStorm{2};

struct Surroundings {
    Volumes volumes;
    Changers changers;
    std::optional<Server> server;
};

void Rage(Surroundings& around) {
    if (chance::OneIn(60)) {
        tally::Count(Kind::kServerRestart);
        around.server.reset();
        chance::Pause(3000);
        around.server.emplace(around.changers);
    } else {
        around.volumes.Disturb();
    }
}

void Storm(Surroundings& around, Mood mood) {
    around.changers.SetMood(mood);
    short_times::ShortenReplyTimeouts(mood == Mood::kStorm);
    std::optional<Observer> observer;
    if (chance::OneIn(2))
        observer.emplace();
    for (const auto end = Clock::now() + kStorm; Clock::now() < end; chance::Pause(4000))
        if (mood == Mood::kStorm)
            Rage(around);
    short_times::ShortenReplyTimeouts(false);
    around.volumes.Restore();
}

// Of the lists sent from now on, the first may still be of the old mood; when the third is saved,
// the second was dealt with.
void ChangeMood(Surroundings& around, Mood mood) {
    around.changers.SetMood(mood);
    sent_lists::AwaitSaved(sent_lists::CountSent() + 3);
}

void ComeToRest(Surroundings& around, bool anew) {
    ChangeMood(around, Mood::kCalm);
    for (const auto end = Clock::now() + testbed::kTimeOut; !IsAtRest();) {
        if (Clock::now() > end)
            throw testbed::Failure("the daemon does not come to rest");
        sent_lists::AwaitSaved(sent_lists::CountSent() + 1);
    }
    CheckRest(anew);
}

void RunRound(Surroundings& around, Mood mood) {
    ledger::BeginRound(mood != Mood::kStorm);
    sent_lists::BeginRound();
    {
        const RunningDaemon daemon;
        around.server.emplace(around.changers);
        if (mood != Mood::kCalm)
            Storm(around, mood);
        ComeToRest(around, false);
        ChangeMood(around, Mood::kNoChangers);
        ComeToRest(around, true);
        around.server.reset();
        sent_lists::AwaitSaved(sent_lists::CountSent()); // nothing is lost
    }
    sent_lists::ReleaseReplaced();
}

// All but what there was before must go.
void CheckWhatIsLeft(const std::set<pid_t>& threads, const std::vector<std::string>& descriptors) {
    testbed::AwaitEndOfOtherThreads(threads, getpid());
    if (!std::ranges::includes(descriptors, testbed::ListDescriptors(getpid())))
        tally::Complain("descriptors were left open");
}

// On a slow machine it takes longer until everything has happened.
bool IsToGoOn(Clock::duration passed, std::chrono::seconds duration) {
    return passed < duration ||
           (passed < duration + testbed::kTimeOut && !tally::HasEverythingHappened());
}

int Run(std::chrono::seconds duration) {
    try {
        Surroundings around;
        RunRound(around, Mood::kCalm);
        const auto threads = testbed::ListThreads(getpid());
        const auto descriptors = testbed::ListDescriptors(getpid());
        int rounds = 0;
        for (const auto begin = Clock::now(); IsToGoOn(Clock::now() - begin, duration); ++rounds)
            RunRound(around, rounds % 3 == 0 ? Mood::kQuietStorm : Mood::kStorm);
        CheckWhatIsLeft(threads, descriptors);
        std::printf("%10d  rounds\n", rounds);
    } catch (const std::exception& failure) {
        tally::Complain(failure.what());
        tally::Report();
        std::fflush(nullptr);
        _exit(1); // its threads are at work yet
    }
    tally::Report();
    return tally::HasComplaints() ? 1 : 0;
}

// What the program calls itself once it is in the sandbox. It is started anew there, since
// the daemon opens the folder of the processes when its program starts.
constexpr const char* kInside = "stress-trayprobed in its private world";

int StartInside(const std::string& seconds, const std::string& seed) {
    execl(testbed::ProgramPath("stress-trayprobed").c_str(), kInside, seconds.c_str(), seed.c_str(),
          nullptr);
    throw testbed::Failure("cannot start anew");
}

} // namespace

int main(int argc, char** argv) {
    const std::string seconds = argc > 1 ? argv[1] : "600";
    const std::string seed = argc > 2 ? argv[2] : std::to_string(std::random_device()());
    if (std::string_view(argv[0]) != kInside)
        return testbed::RunInSandbox([&] { return StartInside(seconds, seed); });
    std::printf("seed %s\n", seed.c_str());
    std::fflush(nullptr);
    chance::Seed(static_cast<std::uint32_t>(std::stoul(seed)));
    return Run(std::chrono::seconds(std::stoi(seconds)));
}
