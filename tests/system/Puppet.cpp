#include "Puppet.h"

#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <sys/types.h>
#include <sys/wait.h>

#include <csignal>
#include <cstddef>

namespace {

testbed::Command PuppetCommand() {
    return {testbed::ProgramPath("carouseld-puppet"),
            {"carouseld-puppet"},
            testbed::MinimalEnvironment()};
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

Puppet::Puppet(testbed::OutputLog& outputLog)
    : outputLog_(outputLog),
      process_(PuppetCommand(), outputLog, testbed::Stream::Server, testbed::Stream::ServerOutput) {
}

void Puppet::Listen() {
    Do("listen messages 128");
    Do("listen notifications 128");
}

std::string Puppet::Do(const std::string& step) {
    process_.WriteLine(step);
    const auto isAnswer = [](const testbed::Line& line) {
        return line.stream == testbed::Stream::Server;
    };
    const std::string answer = outputLog_.Await(isAnswer, "the puppet's answer").text;
    if (answer.starts_with("failed "))
        throw testbed::Failure("the puppet " + answer);
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
    testbed::Require(waitid(P_PID, static_cast<id_t>(Pid()), &end, WEXITED | WNOWAIT) == 0,
                     "cannot await an end");
}

void Puppet::Kill() {
    process_.Signal(SIGKILL);
    process_.AwaitEnd();
}
