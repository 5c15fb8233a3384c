#include "Watch.h"

#include "testbed/Sandbox.h"

#include <csignal>
#include <string_view>

using testbed::Line;
using testbed::Process;
using testbed::Stream;

namespace {

constexpr unsigned short kRows = 10; // more than the table of one changer has
// Ends what the command writes before each table.
constexpr std::string_view kEraseToEnd = "\033[J";

testbed::Command CommandOf(const std::vector<std::string>& arguments) {
    testbed::Command command{testbed::ProgramPath("changerctl"), {"changerctl"}, {"TERM=xterm"}};
    for (const std::string& argument : arguments)
        command.arguments.push_back(argument);
    for (const std::string& variable : testbed::MinimalEnvironment())
        command.environment.push_back(variable);
    return command;
}

} // namespace

Watch::Watch(testbed::OutputLog& outputLog, Screen& screen)
    : outputLog_(outputLog), screen_(screen) {
    const testbed::Command command = CommandOf({"watch"});
    if (screen.IsTerminal())
        command_.emplace(command, outputLog, Stream::CommandOutput, Stream::CommandErrors,
                         testbed::Terminal(screen.Columns(), kRows));
    else
        command_.emplace(command, outputLog, Stream::CommandOutput, Stream::CommandErrors);
}

void Watch::Show(const Line& line) {
    Add(line.text);
    ShowArrived();
}

void Watch::End() {
    command_->Signal(SIGINT);
    command_->AwaitEnd();
    ShowArrived();
}

// The lines of a table arrive together, and are shown together.
void Watch::ShowArrived() {
    const auto isOutput = [](const Line& line) { return line.stream == Stream::CommandOutput; };
    while (const auto line = outputLog_.TryTake(isOutput))
        Add(line->text);
    if (screen_.IsTerminal())
        screen_.ShowBelow(table_);
}

void Watch::Add(const std::string& line) {
    if (!screen_.IsTerminal()) {
        screen_.Say("watch", line);
        return;
    }
    const std::size_t start = line.find(kEraseToEnd);
    if (start != std::string::npos)
        table_ = {""}; // apart from the lines above
    std::string text = start == std::string::npos ? line : line.substr(start + kEraseToEnd.size());
    if (text.ends_with('\r')) // the terminal ends each line so
        table_.push_back(text.substr(0, text.size() - 1));
}

Process StartChangerctl(testbed::OutputLog& outputLog, const std::vector<std::string>& arguments) {
    return {CommandOf(arguments), outputLog, Stream::CommandErrors, Stream::CommandErrors};
}
