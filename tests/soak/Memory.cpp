#include "Memory.h"

#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr const char* kListenerPath = "/tmp/list-keeper";

// A frame without a payload.
struct Mark {
    std::uint32_t signature = 0x68536967;
    std::uint16_t reserved = 0;
    std::uint16_t headerSize = 12;
    std::uint32_t dataLength = 0;
};

// From lines like "55f7-55f8 rw-p 0 00:00 0  [heap]", each followed by some like "Anonymous: 4 kB".
Footing ReadFooting(pid_t pid) {
    std::istringstream lines(testbed::ReadProcFile(pid, "smaps"));
    Footing footing;
    bool isHeap = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string key = line.substr(0, line.find(' '));
        if (key == "Anonymous:")
            (isHeap ? footing.heap : footing.rest) += std::stol(line.substr(key.size())) * 1024;
        else if (key.back() != ':')
            isHeap = line.ends_with("[heap]");
    }
    return footing;
}

testbed::Descriptor Listen() {
    testbed::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kListenerPath);
    testbed::Require(
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            listen(listener.Get(), 1) == 0,
        "cannot listen");
    return listener;
}

} // namespace

Memory::Memory(testbed::OutputLog& outputLog) : outputLog_(outputLog), listener_(Listen()) {
    testbed::Require(mkfifo(pipe_.c_str(), 0600) == 0, "cannot make a pipe");
    const testbed::Command command{testbed::ProgramPath("trayprobed-list-keeper"),
                                   {"trayprobed-list-keeper", pipe_, kListenerPath},
                                   testbed::MinimalEnvironment()};
    keeper_.emplace(command, outputLog_, testbed::Stream::Helper, testbed::Stream::Helper);
}

Memory::Sample Memory::Take(const testbed::Daemon& daemon) {
    const testbed::Descriptor pipe(open(pipe_.c_str(), O_WRONLY | O_CLOEXEC));
    const Mark mark;
    testbed::Require(write(pipe.Get(), &mark, sizeof mark) == sizeof mark,
                     "cannot mark the notifications");
    const std::string kept = outputLog_.Await(testbed::Stream::Helper, "kept [0-9]+").text;
    const testbed::Descriptor connection(accept(listener_.Get(), nullptr, nullptr));
    return {ReadFooting(daemon.Pid()), ReadFooting(keeper_->Pid()),
            std::stol(kept.substr(kept.find(' ')))};
}

long UnexplainedGrowth(const Memory::Sample& from, const Memory::Sample& to) {
    return (to.daemon.heap - from.daemon.heap) - (to.keeper.heap - from.keeper.heap);
}
