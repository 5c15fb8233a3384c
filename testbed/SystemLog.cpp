#include "testbed/SystemLog.h"

#include "testbed/Failure.h"
#include "testbed/Pattern.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace testbed {
namespace {

constexpr const char* kLogPath = "/dev/log";

sockaddr_un LogAddress() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::char_traits<char>::copy(address.sun_path, kLogPath, std::strlen(kLogPath));
    return address;
}

} // namespace

std::string WithoutHeader(const std::string& message) {
    static const Pattern stamp("<9>[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} ");
    constexpr std::size_t kStampLength = 19;
    const bool stamped = stamp.Matches(message.substr(0, kStampLength));
    return stamped ? message.substr(kStampLength) : message;
}

SystemLog::SystemLog(OutputLog& outputLog) : outputLog_(outputLog) {
    Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = LogAddress();
    Require(bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
            "cannot bind /dev/log");
    outputLog.AddDatagramSource(Stream::SystemLog, std::move(socket), WithoutHeader);
}

SystemLog::~SystemLog() {
    unlink(kLogPath);
}

void SystemLog::Flush() {
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = LogAddress();
    const std::string mark = "testbed: flush";
    Require(sendto(socket.Get(), mark.data(), mark.size(), 0,
                   reinterpret_cast<const sockaddr*>(&address), sizeof address) > 0,
            "cannot write to /dev/log");
    outputLog_.Await(Stream::SystemLog, mark);
}

} // namespace testbed
