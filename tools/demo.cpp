// The main job, to watch: a simulated server with two drives and a dozen discs, and the real
// daemon, which has every disc identified, builds the whole directory cache, and is stopped
// half-way through building it once more. Exit status 0 only if all of that happened as it must.

#include "Screen.h"
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
    "Shows the daemon trayprobed at work with a simulated changer server, in a private world:\n"
    "processes, mounts, /tmp and system log of its own. It takes root or user namespaces, and\n"
    "/dev/fuse, and ends by itself within two minutes.\n"
    "\n"
    "Exit status: 0 if everything happened as it must, 1 if not or if the output could not be\n"
    "written, 125 if this machine permits no such world; standard error tells why.\n";

constexpr const char* kRoot = "/tmp/carousel";
constexpr std::array kDiscs{"holidays-2003", "letters",       "invoices-1999", "invoices-2000",
                            "sound-archive", "maps-north",    "maps-south",    "theses",
                            "photographs-a", "photographs-b", "newspapers",    "seed-catalogue"};
constexpr int kDiscCount = static_cast<int>(kDiscs.size());

void Check(bool good, const std::string& what) {
    if (!good)
        throw testbed::Failure("not as it must be: " + what);
}

bool IsWithdrawalForChanger(const Event& event) {
    return event.kind == "request" && event["command"] == "request identification" &&
           event["storage-element-index"].empty();
}

std::string TellRequest(const Event& request) {
    std::string text = request["command"];
    if (!request["storage-element-index"].empty())
        text += ", slot " + request["storage-element-index"];
    if (request["command"] == "request identification")
        text += request["request"] == "no" ? ": withdrawn" : ": wanted";
    if (request["command"] == "set client status") {
        text += request["message"].empty()
                    ? ": cleared"
                    : ": \"" + request["message"] + "\", " + request["current-step"] + " of " +
                          request["maximum-step"];
    }
    return text;
}

class Demo {
public:
    int Run();

private:
    void TellFailure(const std::string& failure);
    void Prepare();
    void IdentifyEveryDisc();
    void BuildTheCache();
    void AbortABuild();
    void CompareBrowsing();
    void End();

    // Shows what is said until an event meets the condition, that one included.
    void ShowUntil(const Condition& condition);
    void Show(const Event& event);
    void ShowStatus(const Event& status);
    std::vector<Event> Tell(const std::string& command);
    void AwaitClosingOf(const Event& request);
    std::set<std::string> SlotsWithUncachedDirectories();
    double SecondsToBrowse(const std::string& disc);

    Screen screen_;
    testbed::TestRun run_;
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
        TellFailure(failure.what());
        return 1;
    }
}

void Demo::TellFailure(const std::string& failure) {
    try {
        screen_.RemoveBar();
        screen_.Say("demo", failure, Colour::Red);
    } catch (const testbed::Failure&) {
        std::fprintf(stderr, "%s\n", failure.c_str());
    }
}

std::vector<Event> Demo::Tell(const std::string& command) {
    screen_.Say("user", command, Colour::Yellow);
    return run_.Server().Do(command);
}

void Demo::Prepare() {
    screen_.Title("A changer with 12 slots, 2 drives and a dozen discs that nobody has looked at");
    run_.StartServer();
    testbed::Simulator& server = run_.Server();
    server.Do("events kinds=request,robot,identified,status,disconnect");
    server.Do(
        "add-changer changer=A1 slots=12 drives=2 moving=300 spin-up=200 patience=5000 mount=" +
        std::string(kRoot));
    for (int slot = 0; slot < kDiscCount; ++slot) {
        const std::string number = std::to_string(slot);
        server.Do(
            "put changer=A1 slot=" + number + " seed=" + number +
            " directories=40 files=10 depth=4 name=" + kDiscs.at(static_cast<std::size_t>(slot)));
    }
    server.Do("start");
    screen_.Say("demo", "changer server running, process " + std::to_string(server.Pid()));
}

void Demo::IdentifyEveryDisc() {
    screen_.Title("trayprobed starts, and has every disc identified");
    run_.StartDaemon();
    screen_.Say("demo", "trayprobed running, process " + std::to_string(run_.Daemon().Pid()));

    std::map<std::string, int> withdrawals;
    Event last;
    int done = 0;
    ShowUntil([&](const Event& event) {
        const std::string slot = event["storage-element-index"];
        if (event.kind == "request" && event["command"] == "request identification" &&
            ++withdrawals[slot] == 2) {
            last = event;
            ++done;
        }
        return done == kDiscCount;
    });
    AwaitClosingOf(last);
    for (int slot = 0; slot < kDiscCount; ++slot) {
        const auto times =
            run_.Server().AllSoFar("identified", {{"slot", std::to_string(slot)}}).size();
        Check(times == 1, "slot " + std::to_string(slot) + " identified once");
    }
    screen_.Say("demo", "all 12 discs identified, each once", Colour::Green);
    run_.TakeBaseline();
}

void Demo::BuildTheCache() {
    screen_.Title("A user wants the directories of all discs cached");
    Tell("identify changer=A1");
    ShowUntil(IsWithdrawalForChanger);
    Event closing;
    ShowUntil([&](const Event& event) {
        closing = event;
        return IsWithdrawalForChanger(event);
    });
    AwaitClosingOf(closing);
    screen_.RemoveBar();
    Check(SlotsWithUncachedDirectories().empty(), "every directory of every disc cached");
    screen_.Say("demo", "every directory of every disc is cached", Colour::Green);
}

void Demo::AbortABuild() {
    screen_.Title("All is forgotten, built again, and the user changes his mind half-way");
    for (int slot = 0; slot < kDiscCount; ++slot)
        run_.Server().Do("forget changer=A1 slot=" + std::to_string(slot));
    Tell("identify changer=A1");
    const std::string half = std::to_string(kDiscCount / 2);
    ShowUntil(
        [&](const Event& event) { return event.kind == "status" && event["current"] == half; });
    Tell("abort changer=A1 client=trayprobed");
    Event closing;
    ShowUntil([&](const Event& event) {
        closing = event;
        return IsWithdrawalForChanger(event);
    });
    AwaitClosingOf(closing);
    screen_.RemoveBar();
    const std::size_t left = SlotsWithUncachedDirectories().size();
    Check(left > 0 && left < kDiscs.size(), "only some discs cached after the abort");
    screen_.Say("demo", "stopped with " + std::to_string(left) + " discs left", Colour::Green);
}

void Demo::CompareBrowsing() {
    screen_.Title("What the cache is good for: listing all directories of one disc");
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
    screen_.Title("The end");
    const std::vector<std::string> problems = run_.End();
    for (const std::string& problem : problems)
        screen_.Say("demo", problem, Colour::Red);
    Check(problems.empty(), "a clean end");
    screen_.Say("demo", "all as it must be: nothing logged, nothing left behind", Colour::Green);
}

void Demo::ShowUntil(const Condition& condition) {
    bool met = false;
    const auto isNews = [](const Line& line) {
        return line.stream != Stream::Server || testbed::ParseEvent(line.text).has_value();
    };
    while (!met) {
        const Line line = run_.OutputLog().Await(isNews, "what the demo is about");
        const auto event = testbed::ParseEvent(line.text);
        if (line.stream == Stream::Server && event) {
            Show(*event);
            met = condition(*event);
        } else {
            screen_.Say(NameOf(line.stream), line.text, Colour::Red);
            throw testbed::Failure("not as it must be: nothing logged");
        }
    }
}

void Demo::Show(const Event& event) {
    if (event.kind == "request") {
        screen_.Say("trayprobed", TellRequest(event), Colour::Cyan);
    } else if (event.kind == "robot" && event["phase"] == "begin") {
        const bool loads = event["move"] == "load";
        screen_.Say("robot", loads ? "slot " + event["slot"] + " -> drive " + event["drive"]
                                   : "drive " + event["drive"] + " -> slot " + event["slot"]);
    } else if (event.kind == "identified") {
        screen_.Say("server", "disc in slot " + event["slot"] + " identified", Colour::Green);
    } else if (event.kind == "status") {
        ShowStatus(event);
    }
}

void Demo::ShowStatus(const Event& status) {
    if (status["client"] == "trayprobed" && !status["message"].empty())
        screen_.ShowBar(std::stoi(status["current"]), std::stoi(status["maximum"]));
}

void Demo::AwaitClosingOf(const Event& request) {
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
        std::fputs("The demo takes processes, mounts and a system log of its own.\n", stderr);
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
