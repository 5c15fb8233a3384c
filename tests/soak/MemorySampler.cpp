#include "MemorySampler.h"

#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <sstream>

namespace {

constexpr const char* kSocketPath = "/tmp/memory-reference";

// A frame without payload.
struct Marker {
    std::uint32_t signature = 0x68536967;
    std::uint16_t reserved = 0;
    std::uint16_t headerSize = 12;
    std::uint32_t dataLength = 0;
};

// smaps has a line like "55f7-55f8 rw-p 0 00:00 0  [heap]" per mapping, followed by lines like
// "Anonymous: 4 kB".
MemoryUsage ReadMemoryUsage(pid_t pid) {
    std::istringstream lines(testbed::ReadProcFile(pid, "smaps"));
    MemoryUsage usage;
    bool isHeap = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string key = line.substr(0, line.find(' '));
        if (key == "Anonymous:")
            (isHeap ? usage.heap : usage.rest) += std::stol(line.substr(key.size())) * 1024;
        else if (key.back() != ':')
            isHeap = line.ends_with("[heap]");
    }
    return usage;
}

testbed::Descriptor Listen() {
    testbed::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kSocketPath);
    testbed::Require(
        bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
            listen(listener.Get(), 1) == 0,
        "cannot listen");
    return listener;
}

} // namespace

MemorySampler::MemorySampler(testbed::OutputLog& outputLog)
    : outputLog_(outputLog), listener_(Listen()) {
    testbed::Require(mkfifo(pipe_.c_str(), 0600) == 0, "cannot make a pipe");
    const testbed::Command command{testbed::ProgramPath("trayprobed-memory-reference"),
                                   {"trayprobed-memory-reference", pipe_, kSocketPath},
                                   testbed::MinimalEnvironment()};
    reference_.emplace(command, outputLog_, testbed::Stream::Helper, testbed::Stream::Helper);
}

MemorySampler::Sample MemorySampler::Measure(const testbed::Daemon& daemon) {
    const testbed::Descriptor pipe(open(pipe_.c_str(), O_WRONLY | O_CLOEXEC));
    const Marker marker;
    testbed::Require(write(pipe.Get(), &marker, sizeof marker) == sizeof marker,
                     "cannot mark the notifications");
    const std::string lists = outputLog_.Await(testbed::Stream::Helper, "lists [0-9]+").text;
    const testbed::Descriptor connection(accept(listener_.Get(), nullptr, nullptr));
    return {ReadMemoryUsage(daemon.Pid()), ReadMemoryUsage(reference_->Pid()),
            std::stol(lists.substr(lists.find(' ')))};
}

long UnexplainedGrowth(const MemorySampler::Sample& from, const MemorySampler::Sample& to) {
    return (to.daemon.heap - from.daemon.heap) - (to.reference.heap - from.reference.heap);
}
