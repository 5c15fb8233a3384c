// trayprobed-demo: shows the daemon at work with a simulated server of two drives and twelve discs.
// The daemon identifies every disc, builds the whole directory cache, and aborts a second build
// half-way. Exits with 0 only if all of this succeeded.

#include "Screen.h"
#include "Watch.h"
#include "testbed/Failure.h"
#include "testbed/Sandbox.h"
#include "testbed/TestRun.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

using testbed::Event;
using testbed::Line;
using testbed::Stream;
using Colour = Screen::Colour;

namespace {

namespace fs = std::filesystem;
using Condition = std::function<bool(const Event&)>;

constexpr int kBadUsage = 2;
constexpr const char* kUsage = "usage: trayprobed-demo [--help]\n";
constexpr const char* kHelp =
    "Shows the daemon trayprobed at work with a simulated changer server, in a sandbox with its\n"
    "own processes, mounts, /tmp and system log. The sandbox requires root or user namespaces, "
    "and\n"
    "/dev/fuse. The demo ends by itself within two minutes.\n"
    "\n"
    "Exit status: 0 on success; 1 if a step failed or the output could not be written; 125 if "
    "this\n"
    "machine permits no such sandbox, with the reason on standard error.\n";

constexpr const char* kRoot = "/tmp/carousel";
constexpr std::array kDiscs{"holidays-2003", "letters",       "invoices-1999", "invoices-2000",
                            "sound-archive", "maps-north",    "maps-south",    "theses",
                            "photographs-a", "photographs-b", "newspapers",    "seed-catalogue"};
constexpr int kDiscCount = static_cast<int>(kDiscs.size());

void Check(bool good, const std::string& what) {
    if (!good)
        throw testbed::Failure("failed: " + what);
}

bool IsWithdrawalForChanger(const Event& event) {
    return event.kind == "request" && event["command"] == "request identification" &&
           event["request"] == "no" && event["storage-element-index"].empty();
}

// The daemon requests no identification and no abort.
const char* SenderOf(const Event& request) {
    const bool isOfUser = request["request"] == "yes" || request["abort-requested"] == "yes";
    return isOfUser ? "changerctl" : "trayprobed";
}

std::string DescribeRequest(const Event& request) {
    std::string text = request["command"];
    if (!request["storage-element-index"].empty())
        text += ", slot " + request["storage-element-index"];
    if (request["command"] == "request identification")
        text += request["request"] == "no" ? ": withdrawn" : ": requested";
    if (request["command"] == "set client status") {
        text += request["message"].empty()
                    ? ": cleared"
                    : ": \"" + request["message"] + "\", " + request["current-step"] + " of " +
                          request["maximum-step"];
        if (request["abort-requested"] == "yes")
            text += ", abort requested";
    }
    return text;
}

class Demo {
public:
    int Run();

private:
    void ShowFailure(const std::string& failure);
    void Prepare();
    void IdentifyEveryDisc();
    void BuildTheCache();
    void AbortABuild();
    void CompareBrowsing();
    void End();

    // Shows events up to the first one that meets the condition, and returns that one. Throws
    // testbed::Failure if the daemon logs or prints a line, or a command has a remark.
    Event ShowUntil(const Condition& condition);
    // Shows events up to the end of a build: the second withdrawal of the changer's request.
    void ShowUntilEndOfBuild();
    void Show(const Event& event);
    testbed::Process Execute(const std::string& command);
    void AwaitSuccess(testbed::Process& command);
    void AwaitEndOfConnection(const Event& request);
    std::set<std::string> SlotsWithUncachedDirectories();
    double SecondsToBrowse(const std::string& disc);

    Screen screen_;
    testbed::TestRun run_;
    std::optional<Watch> watch_;
};

int Demo::Run() {
    try {
        Prepare();
        IdentifyEveryDisc();
        BuildTheCache();
        AbortABuild();
        CompareBrowsing();
        End();
        return 0;
    } catch (const std::exception& failure) {
        ShowFailure(failure.what());
        return 1;
    }
}

void Demo::ShowFailure(const std::string& failure) {
    try {
        screen_.Say("demo", failure, Colour::Red);
    } catch (const testbed::Failure&) {
        std::fprintf(stderr, "%s\n", failure.c_str());
    }
}

// The user's command, such as "build".
testbed::Process Demo::Execute(const std::string& command) {
    screen_.Say("user", "changerctl " + command, Colour::Yellow);
    return StartChangerctl(run_.OutputLog(), {command});
}

void Demo::AwaitSuccess(testbed::Process& command) {
    Check(command.AwaitEnd() == 0, "the user's command");
    watch_->ShowArrived();
}

void Demo::Prepare() {
    screen_.Title("A changer with 12 slots, 2 drives and 12 discs that are not identified");
    run_.StartServer();
    testbed::Simulator& server = run_.Server();
    server.Do("events kinds=request,robot,identified,status,disconnect");
    server.Do(
        "add-changer changer=A1 slots=12 drives=2 moving=300 spin-up=200 timeout=5000 mount=" +
        std::string(kRoot));
    for (int slot = 0; slot < kDiscCount; ++slot) {
        const std::string number = std::to_string(slot);
        server.Do(
            "put changer=A1 slot=" + number + " seed=" + number +
            " directories=40 files=10 depth=4 name=" + kDiscs.at(static_cast<std::size_t>(slot)));
    }
    server.Do("start");
    screen_.Say("demo", "changer server running, process " + std::to_string(server.Pid()));
    watch_.emplace(run_.OutputLog(), screen_);
}

void Demo::IdentifyEveryDisc() {
    screen_.Title("trayprobed starts and identifies every disc");
    run_.StartDaemon();
    screen_.Say("demo", "trayprobed running, process " + std::to_string(run_.Daemon().Pid()));

    std::map<std::string, int> withdrawals;
    int done = 0;
    const Event last = ShowUntil([&](const Event& event) {
        if (event.kind == "request" && event["command"] == "request identification")
            done += ++withdrawals[event["storage-element-index"]] == 2 ? 1 : 0;
        return done == kDiscCount;
    });
    AwaitEndOfConnection(last);
    for (int slot = 0; slot < kDiscCount; ++slot) {
        const auto times =
            run_.Server().AllSoFar("identified", {{"slot", std::to_string(slot)}}).size();
        Check(times == 1, "slot " + std::to_string(slot) + " identified once");
    }
    screen_.Say("demo", "all 12 discs identified, each once", Colour::Green);
    run_.TakeBaseline();
}

void Demo::BuildTheCache() {
    screen_.Title("A user requests the directories of all discs to be cached");
    testbed::Process build = Execute("build");
    ShowUntil(IsWithdrawalForChanger);
    ShowUntilEndOfBuild();
    AwaitSuccess(build);
    Check(SlotsWithUncachedDirectories().empty(), "every directory of every disc cached");
    screen_.Say("demo", "every directory of every disc is cached", Colour::Green);
}

void Demo::AbortABuild() {
    screen_.Title("The cache is emptied and built again, and the user aborts the build half-way");
    for (int slot = 0; slot < kDiscCount; ++slot)
        run_.Server().Do("forget changer=A1 slot=" + std::to_string(slot));
    testbed::Process build = Execute("build");
    AwaitSuccess(build);
    const std::string half = std::to_string(kDiscCount / 2);
    ShowUntil(
        [&](const Event& event) { return event.kind == "status" && event["current"] == half; });
    testbed::Process abort = Execute("abort");
    ShowUntilEndOfBuild();
    AwaitSuccess(abort);
    const std::size_t left = SlotsWithUncachedDirectories().size();
    Check(left > 0 && left < kDiscs.size(), "only some discs cached after the abort");
    screen_.Say("demo", "stopped with " + std::to_string(left) + " discs left", Colour::Green);
}

void Demo::CompareBrowsing() {
    screen_.Title("The benefit of the cache: reading all directories of one disc");
    const std::set<std::string> uncached = SlotsWithUncachedDirectories();
    std::string cachedDisc;
    std::string uncachedDisc;
    for (int slot = 0; slot < kDiscCount; ++slot) {
        const bool isCached = uncached.count(std::to_string(slot)) == 0;
        (isCached ? cachedDisc : uncachedDisc) = kDiscs.at(static_cast<std::size_t>(slot));
    }
    const double uncachedTime = SecondsToBrowse(uncachedDisc);
    const double cachedTime = SecondsToBrowse(cachedDisc);
    Check(cachedTime < uncachedTime, "a cached disc browsed faster than an uncached one");
}

double Demo::SecondsToBrowse(const std::string& disc) {
    const auto start = std::chrono::steady_clock::now();
    int directories = 1;
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(kRoot) / disc))
        directories += entry.is_directory() ? 1 : 0;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "%-16s %3d directories  %9.4f s", disc.c_str(),
                  directories, time.count());
    screen_.Say("demo", text.data(), Colour::Green);
    return time.count();
}

void Demo::End() {
    screen_.Title("End");
    watch_->End();
    const std::vector<std::string> problems = run_.End();
    for (const std::string& problem : problems)
        screen_.Say("demo", problem, Colour::Red);
    Check(problems.empty(), "the end of the run without problems");
    screen_.Say("demo", "success: no log lines, no resources left over", Colour::Green);
}

Event Demo::ShowUntil(const Condition& condition) {
    const auto isEventOrOutput = [](const Line& line) {
        return line.stream != Stream::Server || testbed::ParseEvent(line.text).has_value();
    };
    while (true) {
        const Line line = run_.OutputLog().Await(isEventOrOutput, "an event");
        const auto event = testbed::ParseEvent(line.text);
        if (line.stream == Stream::Server && event) {
            Show(*event);
            if (condition(*event))
                return *event;
        } else if (line.stream == Stream::CommandOutput) {
            watch_->Show(line);
        } else {
            screen_.Say(NameOf(line.stream), line.text, Colour::Red);
            throw testbed::Failure("unexpected log line or output, see above");
        }
    }
}

void Demo::Show(const Event& event) {
    if (event.kind == "request") {
        screen_.Say(SenderOf(event), DescribeRequest(event), Colour::Cyan);
    } else if (event.kind == "robot" && event["phase"] == "begin") {
        const bool loads = event["move"] == "load";
        screen_.Say("robot", loads ? "slot " + event["slot"] + " -> drive " + event["drive"]
                                   : "drive " + event["drive"] + " -> slot " + event["slot"]);
    } else if (event.kind == "identified") {
        screen_.Say("server", "disc in slot " + event["slot"] + " identified", Colour::Green);
    }
}

void Demo::ShowUntilEndOfBuild() {
    AwaitEndOfConnection(ShowUntil(IsWithdrawalForChanger));
}

void Demo::AwaitEndOfConnection(const Event& request) {
    run_.Server().Await("disconnect", {{"connection", request["connection"]}});
}

std::set<std::string> Demo::SlotsWithUncachedDirectories() {
    std::set<std::string> slots;
    for (const Event& line : run_.Server().Do("show changer=A1 directories=yes"))
        if (line.kind == "directory" && line["cached"] == "no")
            slots.insert(line["slot"]);
    return slots;
}

int PrintHelp() {
    std::printf("%s\n%s", kUsage, kHelp);
    if (std::fflush(stdout) != 0) {
        std::perror("cannot write the help");
        return 1;
    }
    return 0;
}

int RunDemo() {
    const int status = testbed::RunInSandbox([] { return Demo().Run(); });
    if (status == testbed::kNoSandbox)
        std::fputs("The demo requires a sandbox with its own processes, mounts and system log.\n",
                   stderr);
    return status;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 1)
        return RunDemo();
    if (argc == 2 && std::string(argv[1]) == "--help")
        return PrintHelp();
    std::fputs(kUsage, stderr);
    return kBadUsage;
}
