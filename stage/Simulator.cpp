#include "stage/Simulator.h"

#include "stage/Failure.h"
#include "stage/PrivateWorld.h"

#include <csignal>
#include <optional>

namespace stage {
namespace {

Command SimulatorCommand() {
    return {ProgramPath("carouseld-sim"), {"carouseld-sim"}, PlainEnvironment()};
}

std::string Describe(const std::string& kind, const Values& values) {
    std::string text = "event " + kind;
    for (const auto& [key, value] : values)
        text += " " + key + "=" + value;
    return text;
}

std::optional<Event> EventOf(const Line& line, const std::string& kind) {
    const bool isWorthParsing =
        line.voice == Voice::Server && line.text.find(' ' + kind) != std::string::npos;
    const auto event = isWorthParsing ? ParseEvent(line.text) : std::nullopt;
    return event && event->kind == kind ? event : std::nullopt;
}

bool IsAnswer(const Line& line) {
    return line.voice == Voice::Server && (line.text == "ok" || line.text.starts_with("error "));
}

} // namespace

Simulator::Simulator(Record& record)
    : record_(record), firstLine_(record.Size()),
      process_(SimulatorCommand(), record, Voice::Server, Voice::ServerOutput) {}

std::string Simulator::DescribeUnexpectedEnd() {
    std::string text = "the server " + DescribeEnd(process_.AwaitEnd());
    const auto isError = [](const Line& line) { return line.voice == Voice::ServerOutput; };
    while (const auto line = record_.TakeIfThere(isError))
        text += ": " + line->text;
    return text;
}

std::vector<Event> Simulator::Do(const std::string& command) {
    const std::optional<Line> answer = process_.Ask(command, IsAnswer);
    if (!answer)
        throw Failure(DescribeUnexpectedEnd());
    if (answer->text != "ok")
        throw Failure(command + ": " + answer->text);
    std::vector<Event> model;
    const auto isModel = [](const Line& line) {
        return line.voice == Voice::Server && line.text.starts_with("model ");
    };
    while (const auto line = record_.TakeIfThere(isModel))
        model.push_back(*ParseEvent(line->text));
    return model;
}

Event Simulator::Await(const std::string& kind, const Values& values) {
    const auto wanted = [&](const Line& line) {
        const auto event = EventOf(line, kind);
        return event && event->Has(values);
    };
    return *ParseEvent(record_.Await(wanted, Describe(kind, values)).text);
}

Event Simulator::Await(const std::string& kind, const std::function<bool(const Event&)>& holds) {
    const auto wanted = [&](const Line& line) {
        const auto event = EventOf(line, kind);
        return event && holds(*event);
    };
    return *ParseEvent(record_.Await(wanted, "a certain event " + kind).text);
}

std::vector<Event> Simulator::AllSoFar(const std::string& kind, const Values& values) const {
    std::vector<Event> events;
    for (const Line& line : record_.Since(firstLine_)) {
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

} // namespace stage
