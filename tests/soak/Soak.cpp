#include "Soak.h"

#include "ServerCycle.h"
#include "testbed/ProcessState.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>

namespace {

constexpr long kMaxUnexplainedGrowth = 1024L * 1024;

// Independent of the number of cycles: all notifications of one cycle may be pending at once.
constexpr long kMaxOtherGrowth = 4096L * 1024;

std::string InKilobytes(long bytes) {
    return std::to_string(bytes / 1024) + " KiB";
}

void Print(const std::vector<std::string>& problems) {
    for (const std::string& problem : problems)
        std::printf("%s\n", problem.c_str());
}

} // namespace

Soak::Soak(int cycles, bool checksMemory)
    : cycles_(cycles), checksMemory_(checksMemory), sampler_(context_.run.OutputLog()) {
    context_.pipe = sampler_.Pipe();
}

bool Soak::Run() {
    try {
        RunWarmUp();
        for (int number = 0; number < cycles_; ++number)
            RunCycle(number);
        RunShutdown();
    } catch (const std::exception& failure) {
        PrintLastLines();
        Print({failure.what()});
    }
    Evaluate();
    table_.Print();
    return table_.AllPassed();
}

// A server with two changers without file systems, the first with a daily build: when the status of
// the second has been cleared, the daemon has every resource that it uses when idle.
void Soak::RunWarmUp() {
    testbed::TestRun& run = context_.run;
    run.StartServer();
    for (int changer = 0; changer < kWarmUpChangers; ++changer)
        run.Server().Do("add-changer slots=1 drives=1 changer=" + GuidOf(changer));
    run.Server().Do(DailyBuildCommand(0));
    run.Server().Do("start");
    run.StartDaemon();
    ServerControl(context_).AwaitStatusCleared(kWarmUpChangers - 1);
    // The daily timer gets its descriptor when the main thread next waits in poll().
    testbed::AwaitThreadsInSystemCall(run.Daemon().Pid(), testbed::SystemCall::Poll, 1);
    run.TakeBaseline();
    context_.idleUsage = run.Daemon().ReadResourceUsage();
    run.QuitServer();
    run.OutputLog().Discard(testbed::Stream::Server);
}

void Soak::RunCycle(int number) {
    ServerCycle cycle(context_, number);
    cycle.Run();
    cycle.Count();
    const pid_t server = context_.run.Server().Pid();
    restarts_ += server != lastServer_ ? 1 : 0;
    lastServer_ = server;
    cycle.Stop();

    if (number == std::max(2, cycles_ / 20))
        warmedUp_ = sampler_.Measure(context_.run.Daemon());
    if (number == cycles_ / 2)
        middle_ = sampler_.Measure(context_.run.Daemon());
    last_ = sampler_.Measure(context_.run.Daemon());
    if ((number + 1) % std::max(1, cycles_ / 50) == 0)
        PrintProgress(number + 1);
}

void Soak::PrintProgress(int number) {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    std::printf("%5d of %d cycles, %ld notifications, %d identifications, heap of the daemon %s, "
                "of the reference %s, %ld s\n",
                number, cycles_, context_.notifications, context_.counts.Identifications(),
                InKilobytes(last_.daemon.heap).c_str(), InKilobytes(last_.reference.heap).c_str(),
                static_cast<long>(seconds));
    std::fflush(stdout);
}

void Soak::RunShutdown() {
    const long before = context_.counts.Identifications();
    const auto repeated = std::ssize(context_.crashes.discs);
    ServerCycle shutdown(context_, cycles_);
    shutdown.RunShutdown();
    shutdown.Count();
    shutdownIdentifications_ = context_.counts.Identifications() - before - repeated;
    hasShutDown_ = true;
}

void Soak::PrintLastLines() {
    constexpr std::size_t kEnough = 100;
    const testbed::OutputLog& outputLog = context_.run.OutputLog();
    for (const testbed::Line& line :
         outputLog.LinesFrom(outputLog.Size() - std::min(kEnough, outputLog.Size())))
        std::printf("%s: %s\n", NameOf(line.stream), line.text.c_str());
}

void Soak::Evaluate() {
    const auto differences = context_.counts.Differences();
    const long builds = (cycles_ + kCyclesPerBuild - 1) / kCyclesPerBuild;
    table_.AddAtLeast("notifications of changers", long{cycles_} * kNotificationsPerCycle,
                      context_.notifications);
    table_.AddExactly("identifications", long{cycles_} * kIdentificationsPerCycle,
                      context_.counts.Identifications() - shutdownIdentifications_ -
                          context_.crashes.mounted - context_.crashes.repeatedIdentifications);
    table_.AddExactly("server restarts, another process each", cycles_, restarts_);
    table_.AddAtLeast("file systems mounted, registered, unmounted", cycles_, context_.mounts);
    table_.AddExactly("builds", builds, context_.completedBuilds + context_.abortedBuilds);
    table_.AddExactly("  of which aborted", builds / kBuildsPerAbort, context_.abortedBuilds);
    table_.AddExactly("discs and requests that differ from the rules", 0, std::ssize(differences));
    table_.AddExactly("discs identified once more at the end", kChangers * kDiscs,
                      shutdownIdentifications_);
    table_.AddExactly("statuses, requests, mounted discs left", 0, std::ssize(context_.leftovers));
    EvaluateCrashes();
    Print(differences);
    Print(context_.leftovers);
    EvaluateMemory();
    EvaluateEnd();
}

void Soak::EvaluateCrashes() {
    const CrashCounts& crashes = context_.crashes;
    const long servers = (cycles_ + kCyclesPerCrash - 1 - kFirstCrashCycle) / kCyclesPerCrash;
    table_.AddExactly("servers killed in the middle of their work", servers, crashes.servers);
    table_.AddExactly("  identifications that failed, one line each",
                      crashes.interruptedIdentifications, crashes.failedIdentifications);
    table_.AddExactly("  builds that failed, one line each", crashes.interruptedBuilds,
                      crashes.failedBuilds);
    table_.AddExactly("  discs identified by the next server", crashes.interruptedIdentifications,
                      crashes.repeatedIdentifications);
    table_.AddExactly("  changers built by the next server", crashes.interruptedBuilds,
                      crashes.repeatedBuilds);
    table_.AddExactly("  other log lines", 0, std::ssize(crashes.otherLines));
    Print(crashes.otherLines);
}

void Soak::EvaluateMemory() {
    std::printf("%ld lists cost %s; the daemon's heap grew by %s\n", last_.lists - warmedUp_.lists,
                InKilobytes(last_.reference.heap - warmedUp_.reference.heap).c_str(),
                InKilobytes(last_.daemon.heap - warmedUp_.daemon.heap).c_str());
    EvaluateGrowth("heap growth beyond the retained lists", UnexplainedGrowth(warmedUp_, last_),
                   kMaxUnexplainedGrowth);
    EvaluateGrowth("  in the second half", UnexplainedGrowth(middle_, last_),
                   kMaxUnexplainedGrowth);
    EvaluateGrowth("growth of all other memory", last_.daemon.rest - warmedUp_.daemon.rest,
                   kMaxOtherGrowth);
    EvaluateGrowth("  in the second half", last_.daemon.rest - middle_.daemon.rest,
                   kMaxOtherGrowth);
}

void Soak::EvaluateGrowth(const std::string& what, long bytes, long most) {
    const std::string expected = "at most " + InKilobytes(most);
    if (checksMemory_)
        table_.Add(what, expected, InKilobytes(bytes), last_.lists > 0 && bytes <= most);
    else
        table_.AddSkipped(what, expected, "a sanitizer's memory");
}

void Soak::EvaluateEnd() {
    if (hasShutDown_) {
        const testbed::ResourceUsage& first = context_.idleUsage;
        const auto last = context_.run.Daemon().AwaitResourceUsageWithin(first);
        table_.AddExactly("threads", static_cast<long>(first.threads),
                          static_cast<long>(last.threads));
        table_.Add("descriptors", std::to_string(first.descriptors.size()),
                   std::to_string(last.descriptors.size()), last.IsWithin(first));
    }
    const auto problems = context_.run.End();
    Print(problems);
    table_.AddExactly("unexpected log lines and other problems", 0, std::ssize(problems));
}
