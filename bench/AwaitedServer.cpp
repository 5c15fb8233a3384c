#include "AwaitedServer.h"

#include "LocalAddress.h"

#include "stage/Failure.h"

#include <poll.h>
#include <sys/prctl.h>

#include <chrono>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

AwaitedServer::AwaitedServer()
    : path_("/tmp/carouseldn-" + std::to_string(getpid())),
      listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    prctl(PR_SET_NAME, "carouseld-bench");
    const sockaddr_un address = LocalAddress(path_);
    const auto* at = reinterpret_cast<const sockaddr*>(&address);
    stage::Require(bind(listener_.Get(), at, sizeof address) == 0 &&
                       listen(listener_.Get(), 1) == 0,
                   "cannot listen at " + path_);
}

AwaitedServer::~AwaitedServer() {
    unlink(path_.c_str());
    prctl(PR_SET_NAME, "bench");
}

void AwaitedServer::AwaitSubscriber() const {
    constexpr std::chrono::milliseconds kWait = stage::kPatience;
    pollfd listener = {listener_.Get(), POLLIN, 0};
    stage::Require(poll(&listener, 1, static_cast<int>(kWait.count())) == 1, "no subscriber came");
    const stage::Descriptor client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    stage::Require(static_cast<bool>(client), "cannot accept a subscriber");
}

} // namespace bench
