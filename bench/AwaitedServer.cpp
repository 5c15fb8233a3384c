#include "AwaitedServer.h"

#include "Echo.h"
#include "LocalAddress.h"

#include "stage/Failure.h"

#include <poll.h>
#include <sys/prctl.h>

#include <chrono>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

void Await(const stage::Descriptor& socket, short event, const std::string& what) {
    constexpr std::chrono::milliseconds kWait = stage::kPatience;
    pollfd waits = {socket.Get(), event, 0};
    stage::Require(poll(&waits, 1, static_cast<int>(kWait.count())) == 1, what);
}

stage::Descriptor Listen(const std::string& path) {
    stage::Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = LocalAddress(path);
    const auto* at = reinterpret_cast<const sockaddr*>(&address);
    stage::Require(bind(listener.Get(), at, sizeof address) == 0 && listen(listener.Get(), 1) == 0,
                   "cannot listen at " + path);
    return listener;
}

stage::Descriptor AwaitClient(const stage::Descriptor& listener) {
    Await(listener, POLLIN, "no client came");
    stage::Descriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    stage::Require(static_cast<bool>(client), "cannot accept a client");
    return client;
}

} // namespace

AwaitedServer::AwaitedServer()
    : subscriberPath_("/tmp/carouseldn-" + std::to_string(getpid())),
      requestPath_("/tmp/carouseld-" + std::to_string(getpid())),
      subscribers_(Listen(subscriberPath_)), requests_(Listen(requestPath_)) {
    prctl(PR_SET_NAME, "carouseld-bench");
}

AwaitedServer::~AwaitedServer() {
    unlink(subscriberPath_.c_str());
    unlink(requestPath_.c_str());
    prctl(PR_SET_NAME, "bench");
}

stage::Descriptor AwaitedServer::AwaitSubscriber() const {
    return AwaitClient(subscribers_);
}

void AwaitedServer::AnswerRequests(std::size_t count) const {
    for (; count > 0; --count) {
        GiveBack(AwaitClient(requests_).Get());
    }
}

void Push(const stage::Descriptor& subscriber, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        Await(subscriber, POLLOUT, "a subscriber takes nothing");
        const ssize_t size = send(subscriber.Get(), bytes.data() + sent, bytes.size() - sent,
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        stage::Require(size > 0, "cannot send to a subscriber");
        sent += static_cast<std::size_t>(size);
    }
}

} // namespace bench
