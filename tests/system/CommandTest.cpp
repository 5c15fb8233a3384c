#include "CommandTest.h"

#include "testbed/Sandbox.h"

#include <sys/wait.h>

#include <fstream>

using testbed::Event;
using testbed::Process;
using testbed::Stream;

namespace {

constexpr const char* kPayload = "/tmp/payload";

void Append(std::vector<std::string>& list, const std::vector<std::string>& more) {
    list.insert(list.end(), more.begin(), more.end());
}

} // namespace

void CommandTest::BeginWithDaemon() {
    Begin();
    AwaitSubscription();
}

testbed::Command CommandTest::CommandOf(const std::vector<std::string>& arguments) const {
    testbed::Command command{testbed::ProgramPath("changerctl"), {"changerctl"}, environment_};
    Append(command.arguments, arguments);
    Append(command.environment, testbed::MinimalEnvironment());
    return command;
}

Process CommandTest::Start(const std::vector<std::string>& arguments) {
    return {CommandOf(arguments), run_.OutputLog(), Stream::CommandOutput, Stream::CommandErrors};
}

Process CommandTest::StartOn(const testbed::Terminal& terminal,
                             const std::vector<std::string>& arguments) {
    return {CommandOf(arguments), run_.OutputLog(), Stream::CommandOutput, Stream::CommandErrors,
            terminal};
}

std::string CommandTest::TakeAll(Stream stream) {
    const auto isOfStream = [stream](const testbed::Line& line) { return line.stream == stream; };
    std::string text;
    while (const auto line = run_.OutputLog().TryTake(isOfStream))
        text += line->text + "\n";
    return text;
}

CommandEnd CommandTest::AwaitEnd(Process& command) {
    const int status = command.AwaitEnd();
    const int exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {exitStatus, TakeAll(Stream::CommandOutput), TakeAll(Stream::CommandErrors)};
}

CommandEnd CommandTest::Run(const std::vector<std::string>& arguments) {
    Process command = Start(arguments);
    return AwaitEnd(command);
}

CommandEnd CommandTest::RunOn(const testbed::Terminal& terminal,
                              const std::vector<std::string>& arguments) {
    Process command = StartOn(terminal, arguments);
    return AwaitEnd(command);
}

void CommandTest::PermitKeptConnections() {
    environment_.emplace_back("ASAN_OPTIONS=detect_leaks=0");
}

CommandEnd CommandTest::RunProgram(const std::string& program,
                                   const std::vector<std::string>& arguments,
                                   const std::string& input) {
    testbed::Command command{program, arguments, testbed::MinimalEnvironment()};
    command.environment.push_back("changerctl=" + testbed::ProgramPath("changerctl"));
    Process process(command, run_.OutputLog(), Stream::CommandOutput, Stream::CommandErrors);
    if (!input.empty())
        process.WriteLine(input);
    process.CloseInput();
    return AwaitEnd(process);
}

CommandEnd CommandTest::RunShell(const std::string& commandLine) {
    return RunProgram("/bin/sh", {"sh", "-c", commandLine}, "");
}

CommandEnd CommandTest::RunJq(const std::string& filter, const std::string& text) {
    return RunProgram("/usr/bin/jq", {"jq", "--exit-status", "--compact-output", filter}, text);
}

std::string CommandTest::AwaitOutput(const std::string& pattern) {
    return run_.OutputLog().Await(Stream::CommandOutput, pattern).text;
}

void CommandTest::AwaitSubscription() {
    Server().Await("subscriber", {{"connected", "yes"}});
}

void CommandTest::NotifyAboutChanger(const std::string& members) {
    std::ofstream(kPayload) << "<plist version=\"1.0\"><dict><key>changer info</key><array><dict>"
                            << members << "</dict></array></dict></plist>";
    Do(std::string("notify payload=") + kPayload);
}

std::vector<std::string> CommandTest::Statuses() {
    std::vector<std::string> statuses;
    for (const Event& status : Do("show"))
        if (status.kind == "status")
            statuses.push_back(status["client"] + " " + status["current"] + "/" +
                               status["maximum"] + " " + status["abort"]);
    return statuses;
}

void CommandTest::PutBlockingDiscs(int count) {
    Do("timing changer=5000C500ABCD00A1 moving=100000");
    for (int slot = 0; slot < count; ++slot)
        PutDisc(slot, "identified=yes");
}

void CommandTest::AwaitBlockedBuild() {
    Server().Await("listing", {{"slot", std::to_string(blockingSlot_)}});
}

void CommandTest::TakeBlockingDisc() {
    const std::string slot = std::to_string(blockingSlot_++);
    Do("take changer=5000C500ABCD00A1 slot=" + slot);
    AwaitLog({Link("ChangerFSCacheThread", "CacheFSDirectory",
                   "fail scandir on \"/tmp/carousel/disc-" + slot + "\" (err = 5)")});
}

// The daemon handles notifications in order, and clears the status of a new changer before it
// handles the states of the changers in the same notification.
void CommandTest::AwaitHandledNotifications() {
    for (const std::string guid : {"5000C500ABCD00B1", "5000C500ABCD00B2"}) {
        Do("add-changer changer=" + guid + " slots=1 drives=1");
        AwaitChangerAdded(guid);
    }
}

void CommandTest::AwaitStep(int step) {
    Server().Await("status", [step](const Event& status) {
        return status["current"] == std::to_string(step) && status["maximum"] != "0" &&
               status["abort"] == "no";
    });
}
