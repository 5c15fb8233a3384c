#include "stage/Simulator.h"

#include "stage/Failure.h"
#include "stage/PrivateWorld.h"

#include <csignal>

namespace stage {
namespace {

Command SimulatorCommand() {
    return {ProgramPath("carouseld-sim"), {"carouseld-sim"}, PlainEnvironment()};
}

std::string Describe(const std::string& kind, const std::map<std::string, std::string>& values) {
    std::string text = "event " + kind;
    for (const auto& [key, value] : values) {
        text += " " + key + "=" + value;
    }
    return text;
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
    const std::string answer = m_record.Await(IsAnswer, "the server's answer to: " + command);
    if (answer != "ok") {
        throw Failure(command + ": " + answer);
    }
    std::vector<Event> model;
    const auto isModel = [](const Line& line) {
        return line.voice == Voice::Server && line.text.starts_with("model ");
    };
    while (const auto line = m_record.TakeIfThere(isModel)) {
        model.push_back(*ParseEvent(*line));
    }
    return model;
}

Event Simulator::Await(const std::string& kind, const std::map<std::string, std::string>& values) {
    const auto wanted = [&](const Line& line) {
        const auto event = line.voice == Voice::Server ? ParseEvent(line.text) : std::nullopt;
        return event && event->kind == kind && event->Has(values);
    };
    return *ParseEvent(m_record.Await(wanted, Describe(kind, values)));
}

std::vector<Event> Simulator::AllSoFar(const std::string& kind,
                                       const std::map<std::string, std::string>& values) const {
    std::vector<Event> events;
    for (const Line& line : m_record.Since(m_firstLine)) {
        const auto event = line.voice == Voice::Server ? ParseEvent(line.text) : std::nullopt;
        if (event && event->kind == kind && event->Has(values)) {
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
