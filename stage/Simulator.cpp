#include "stage/Simulator.h"

#include "stage/Failure.h"
#include "stage/PrivateWorld.h"

#include <csignal>

namespace stage {
namespace {

Command SimulatorCommand() {
    return {ProgramPath("carouseld-sim"), {"carouseld-sim"}, PlainEnvironment()};
}

std::string Describe(const std::string& kind, const Values& values) {
    std::string text = "event " + kind;
    for (const auto& [key, value] : values) {
        text += " " + key + "=" + value;
    }
    return text;
}

std::optional<Event> EventOf(const Line& line, const std::string& kind) {
    const auto event = line.voice == Voice::Server ? ParseEvent(line.text) : std::nullopt;
    return event && event->kind == kind ? event : std::nullopt;
}

bool IsAnswer(const Line& line) {
    return line.voice == Voice::Server && (line.text == "ok" || line.text.starts_with("error "));
}

} // namespace

Simulator::Simulator(Record& record)
    : m_record(record), m_firstLine(record.Size()),
      m_process(SimulatorCommand(), record, Voice::Server, Voice::ServerOutput) {}

std::vector<Event> Simulator::Do(const std::string& command) {
    m_process.Tell(command);
    const std::string answer = m_record.Await(IsAnswer, "the server's answer to: " + command).text;
    if (answer != "ok") {
        throw Failure(command + ": " + answer);
    }
    std::vector<Event> model;
    const auto isModel = [](const Line& line) {
        return line.voice == Voice::Server && line.text.starts_with("model ");
    };
    while (const auto line = m_record.TakeIfThere(isModel)) {
        model.push_back(*ParseEvent(line->text));
    }
    return model;
}

Event Simulator::Await(const std::string& kind, const Values& values) {
    const auto wanted = [&](const Line& line) {
        const auto event = EventOf(line, kind);
        return event && event->Has(values);
    };
    return *ParseEvent(m_record.Await(wanted, Describe(kind, values)).text);
}

Event Simulator::Await(const std::string& kind, const std::function<bool(const Event&)>& holds) {
    const auto wanted = [&](const Line& line) {
        const auto event = EventOf(line, kind);
        return event && holds(*event);
    };
    return *ParseEvent(m_record.Await(wanted, "a certain event " + kind).text);
}

std::vector<Event> Simulator::AllSoFar(const std::string& kind, const Values& values) const {
    std::vector<Event> events;
    for (const Line& line : m_record.Since(m_firstLine)) {
        const auto event = EventOf(line, kind);
        if (event && event->Has(values)) {
            events.push_back(*event);
        }
    }
    return events;
}

void Simulator::Kill() {
    m_process.Signal(SIGKILL);
    m_process.AwaitEnd();
}

void Simulator::Quit() {
    Do("quit");
    const int status = m_process.AwaitEnd();
    if (status != 0) {
        throw Failure("the server " + DescribeEnd(status));
    }
}

} // namespace stage
