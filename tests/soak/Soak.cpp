#include "Soak.h"

#include "ServerLife.h"

#include "testbed/ProcessState.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace {

constexpr long kMostUnexplained = 1024L * 1024;

// However long it runs: all notifications of a life that are pushed at once may wait to be acted
// on.
constexpr long kMostUnderWay = 4096L * 1024;

std::string InKilobytes(long bytes) {
    return std::to_string(bytes / 1024) + " KiB";
}

} // namespace

Soak::Soak(int lives, bool judgesMemory)
    : lives_(lives), judgesMemory_(judgesMemory), memory_(performance_.run.OutputLog()) {
    performance_.pipe = memory_.Pipe();
}

bool Soak::Run() {
    try {
        PlayOverture();
        for (int number = 0; number < lives_; ++number)
            PlayLife(number);
        PlayFinale();
    } catch (const std::exception& failure) {
        PrintLastLines();
        Complain({failure.what()});
    }
    Judge();
    table_.Print();
    return table_.IsGood();
}

// A server with two changers and no file systems, of which the first is to be built daily: when the
// second one's status has been cleared, the daemon has all that it needs when nothing is to do.
void Soak::PlayOverture() {
    testbed::TestRun& run = performance_.run;
    run.StartServer();
    for (int changer = 0; changer < kChangersOfTheOverture; ++changer)
        run.Server().Do("add-changer slots=1 drives=1 changer=" + GuidOf(changer));
    run.Server().Do(DailyBuild(0));
    run.Server().Do("start");
    run.StartDaemon();
    Dialogue(performance_).AwaitClearedStatus(kChangersOfTheOverture - 1);
    // The daily timer gets its descriptor when the main thread waits next.
    testbed::AwaitThreadsInSystemCall(run.Daemon().Pid(), testbed::SystemCall::Poll, 1);
    run.TakeBaseline();
    performance_.quiet = run.Daemon().ReadResourceUsage();
    run.QuitServer();
    run.OutputLog().Discard(testbed::Stream::Server);
}

void Soak::PlayLife(int number) {
    ServerLife life(performance_, number);
    life.Play();
    life.Count();
    const pid_t server = performance_.run.Server().Pid();
    restarts_ += server != lastServer_ ? 1 : 0;
    lastServer_ = server;
    life.End();

    if (number == std::max(2, lives_ / 20))
        warm_ = memory_.Take(performance_.run.Daemon());
    if (number == lives_ / 2)
        middle_ = memory_.Take(performance_.run.Daemon());
    last_ = memory_.Take(performance_.run.Daemon());
    if ((number + 1) % std::max(1, lives_ / 50) == 0)
        SayProgress(number + 1);
}

void Soak::SayProgress(int number) {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    std::printf(
        "%5d of %d server lives, %ld notifications, %d identifications, heap of the daemon %s, "
        "of the list keeper %s, %ld s\n",
        number, lives_, performance_.notifications, performance_.ledger.Identifications(),
        InKilobytes(last_.daemon.heap).c_str(), InKilobytes(last_.keeper.heap).c_str(),
        static_cast<long>(seconds));
    std::fflush(stdout);
}

void Soak::PlayFinale() {
    const long before = performance_.ledger.Identifications();
    const auto owed = static_cast<long>(performance_.crashes.discs.size());
    ServerLife finale(performance_, lives_);
    finale.PlayFinale();
    finale.Count();
    identificationsOfFinale_ = performance_.ledger.Identifications() - before - owed;
    finalePlayed_ = true;
}

void Soak::PrintLastLines() {
    constexpr std::size_t kEnough = 100;
    const testbed::OutputLog& outputLog = performance_.run.OutputLog();
    for (const testbed::Line& line :
         outputLog.LinesFrom(outputLog.Size() - std::min(kEnough, outputLog.Size())))
        std::printf("%s: %s\n", NameOf(line.stream), line.text.c_str());
}

void Soak::Complain(const std::vector<std::string>& complaints) const {
    for (const std::string& complaint : complaints)
        std::printf("%s\n", complaint.c_str());
}

void Soak::Judge() {
    const auto differences = performance_.ledger.Differences();
    const long builds = (lives_ + kLivesToABuild - 1) / kLivesToABuild;
    table_.AddAtLeast("notifications of changers", long{lives_} * kNotificationsOfALife,
                      performance_.notifications);
    table_.AddExactly("identifications", long{lives_} * kIdentificationsOfALife,
                      performance_.ledger.Identifications() - identificationsOfFinale_ -
                          performance_.crashes.mounted - performance_.crashes.identifiedAgain);
    table_.AddExactly("server restarts, another process each", lives_, restarts_);
    table_.AddAtLeast("file systems mounted, taken up, unmounted", lives_, performance_.mounts);
    table_.AddExactly("builds", builds, performance_.wholeBuilds + performance_.abortedBuilds);
    table_.AddExactly("  of which aborted half-way", builds / kBuildsToAnAbort,
                      performance_.abortedBuilds);
    table_.AddExactly("discs and requests that differ from the rules", 0,
                      static_cast<long>(differences.size()));
    table_.AddExactly("discs identified once more at the end", kChangers * kDiscs,
                      identificationsOfFinale_);
    table_.AddExactly("statuses, requests, mounted discs left", 0,
                      static_cast<long>(performance_.leftovers.size()));
    JudgeCrashes();
    Complain(differences);
    Complain(performance_.leftovers);
    JudgeMemory();
    JudgeTheEnd();
}

void Soak::JudgeCrashes() {
    const CrashRecord& crashes = performance_.crashes;
    const long servers = (lives_ + kLivesToACrash - 1 - kFirstCrash) / kLivesToACrash;
    table_.AddExactly("servers killed in the middle of their work", servers, crashes.servers);
    table_.AddExactly("  identifications so ended, each told once", crashes.begunIdentifications,
                      crashes.endsOfIdentifications);
    table_.AddExactly("  builds so ended, each told once", crashes.begunBuilds,
                      crashes.endsOfBuilds);
    table_.AddExactly("  discs identified by the next server", crashes.begunIdentifications,
                      crashes.identifiedAgain);
    table_.AddExactly("  changers built by the next server", crashes.begunBuilds,
                      crashes.builtAgain);
    table_.AddExactly("  log lines of anything else", 0,
                      static_cast<long>(crashes.otherLines.size()));
    Complain(crashes.otherLines);
}

void Soak::JudgeMemory() {
    std::printf("%ld lists cost %s; with them the daemon's heap grew by %s\n",
                last_.lists - warm_.lists,
                InKilobytes(last_.keeper.heap - warm_.keeper.heap).c_str(),
                InKilobytes(last_.daemon.heap - warm_.daemon.heap).c_str());
    JudgeGrowth("heap grown beyond the kept lists", UnexplainedGrowth(warm_, last_),
                kMostUnexplained);
    JudgeGrowth("  in the second half", UnexplainedGrowth(middle_, last_), kMostUnexplained);
    JudgeGrowth("memory of all else, grown", last_.daemon.rest - warm_.daemon.rest, kMostUnderWay);
    JudgeGrowth("  in the second half", last_.daemon.rest - middle_.daemon.rest, kMostUnderWay);
}

void Soak::JudgeGrowth(const std::string& what, long bytes, long most) {
    const std::string asked = "at most " + InKilobytes(most);
    if (judgesMemory_)
        table_.Add(what, asked, InKilobytes(bytes), last_.lists > 0 && bytes <= most);
    else
        table_.AddUnjudged(what, asked, "a sanitizer's memory");
}

void Soak::JudgeTheEnd() {
    if (finalePlayed_) {
        const testbed::ResourceUsage& first = performance_.quiet;
        const auto last = performance_.run.Daemon().AwaitResourceUsageWithin(first);
        table_.AddExactly("threads", static_cast<long>(first.threads),
                          static_cast<long>(last.threads));
        table_.Add("descriptors", std::to_string(first.descriptors.size()),
                   std::to_string(last.descriptors.size()), last.IsWithin(first));
    }
    const auto complaints = performance_.run.End();
    Complain(complaints);
    table_.AddExactly("unexpected log lines and other complaints", 0,
                      static_cast<long>(complaints.size()));
}
