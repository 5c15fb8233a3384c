#include "testbed/Simulator.h"

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <csignal>
#include <optional>

namespace testbed {
namespace {

Command SimulatorCommand() {
    return {ProgramPath("carouseld-sim"), {"carouseld-sim"}, MinimalEnvironment()};
}

std::string Describe(const std::string& kind, const Values& values) {
    std::string text = "event " + kind;
    for (const auto& [key, value] : values)
        text += " " + key + "=" + value;
    return text;
}

std::optional<Event> EventOf(const Line& line, const std::string& kind) {
    const bool isWorthParsing =
        line.stream == Stream::Server && line.text.find(' ' + kind) != std::string::npos;
    const auto event = isWorthParsing ? ParseEvent(line.text) : std::nullopt;
    return event && event->kind == kind ? event : std::nullopt;
}

Event AwaitEvent(OutputLog& outputLog, const std::string& kind,
                 const std::function<bool(const Event&)>& holds, const std::string& what) {
    const auto isMatch = [&](const Line& line) {
        const auto event = EventOf(line, kind);
        return event && holds(*event);
    };
    return *ParseEvent(outputLog.Await(isMatch, what).text);
}

bool IsAnswer(const Line& line) {
    return line.stream == Stream::Server && (line.text == "ok" || line.text.starts_with("error "));
}

} // namespace

Simulator::Simulator(OutputLog& outputLog)
    : outputLog_(outputLog), firstLine_(outputLog.Size()),
      process_(SimulatorCommand(), outputLog, Stream::Server, Stream::ServerOutput) {}

std::string Simulator::DescribeUnexpectedEnd() {
    std::string text = "the server " + DescribeEnd(process_.AwaitEnd());
    const auto isError = [](const Line& line) { return line.stream == Stream::ServerOutput; };
    while (const auto line = outputLog_.TryTake(isError))
        text += ": " + line->text;
    return text;
}

std::vector<Event> Simulator::Do(const std::string& command) {
    const std::optional<Line> answer = process_.WriteAndAwait(command, IsAnswer);
    if (!answer)
        throw Failure(DescribeUnexpectedEnd());
    if (answer->text != "ok")
        throw Failure(command + ": " + answer->text);
    std::vector<Event> model;
    const auto isModel = [](const Line& line) {
        return line.stream == Stream::Server && line.text.starts_with("model ");
    };
    while (const auto line = outputLog_.TryTake(isModel))
        model.push_back(*ParseEvent(line->text));
    return model;
}

Event Simulator::Await(const std::string& kind, const Values& values) {
    return AwaitEvent(
        outputLog_, kind, [&](const Event& event) { return event.Has(values); },
        Describe(kind, values));
}

Event Simulator::Await(const std::string& kind, const std::function<bool(const Event&)>& holds) {
    return AwaitEvent(outputLog_, kind, holds, "an event " + kind + " that meets a condition");
}

std::vector<Event> Simulator::AllSoFar(const std::string& kind, const Values& values) const {
    std::vector<Event> events;
    for (const Line& line : outputLog_.LinesFrom(firstLine_)) {
        const auto event = EventOf(line, kind);
        if (event && event->Has(values))
            events.push_back(*event);
    }
    return events;
}

void Simulator::Kill() {
    process_.Signal(SIGKILL);
    process_.AwaitEnd();
}

void Simulator::Quit() {
    Do("quit");
    const int status = process_.AwaitEnd();
    if (status != 0)
        throw Failure("the server " + DescribeEnd(status));
}

} // namespace testbed
