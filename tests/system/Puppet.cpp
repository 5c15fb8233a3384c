#include "Puppet.h"

#include "stage/Failure.h"
#include "stage/PrivateWorld.h"
#include "stage/ProcessState.h"

#include <csignal>
#include <cstddef>
#include <sys/types.h>
#include <sys/wait.h>

namespace {

stage::Command PuppetCommand() {
    return {
        stage::ProgramPath("carouseld-puppet"), {"carouseld-puppet"}, stage::PlainEnvironment()};
}

std::string ToHex(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += kDigits[value >> 4];
        hex += kDigits[value & 15];
    }
    return hex;
}

} // namespace

Puppet::Puppet(stage::Record& record)
    : record_(record),
      process_(PuppetCommand(), record, stage::Voice::Server, stage::Voice::ServerOutput) {}

void Puppet::Listen() {
    Do("listen messages 128");
    Do("listen notifications 128");
}

std::string Puppet::Do(const std::string& step) {
    Begin(step);
    return AwaitAnswer();
}

void Puppet::Begin(const std::string& step) {
    process_.Tell(step);
}

std::string Puppet::AwaitAnswer() {
    const auto isAnswer = [](const stage::Line& line) {
        return line.voice == stage::Voice::Server;
    };
    const std::string answer = record_.Await(isAnswer, "the puppet's answer").text;
    if (answer.starts_with("failed "))
        throw stage::Failure("the puppet " + answer);
    return answer;
}

int Puppet::AcceptClient() {
    return std::stoi(Do("accept messages").substr(9));
}

int Puppet::AcceptSubscriber() {
    return std::stoi(Do("accept notifications").substr(9));
}

void Puppet::Read(int connection, std::size_t count) {
    Do("read " + std::to_string(connection) + " " + std::to_string(count));
}

std::string Puppet::ReadRequest(int connection) {
    return Do("request " + std::to_string(connection)).substr(8);
}

bool Puppet::Write(int connection, std::string_view bytes) {
    return Do("write " + std::to_string(connection) + " " + ToHex(bytes)) == "written";
}

void Puppet::Die() {
    process_.Signal(SIGKILL);
    siginfo_t end = {};
    stage::Require(waitid(P_PID, static_cast<id_t>(Pid()), &end, WEXITED | WNOWAIT) == 0,
                   "cannot await an end");
}

void Puppet::Kill() {
    process_.Signal(SIGKILL);
    process_.AwaitEnd();
}
