#include "BenchServer.h"

#include "Echo.h"
#include "LocalSocket.h"
#include "testbed/Failure.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace bench {
namespace {

void Await(const testbed::Descriptor& socket, short event, const std::string& what) {
    constexpr std::chrono::milliseconds kWait = testbed::kTimeOut;
    pollfd waits = {socket.Get(), event, 0};
    const int ready = poll(&waits, 1, static_cast<int>(kWait.count()));
    testbed::Require(ready >= 0, "cannot wait for a socket");
    if (ready == 0)
        throw testbed::Failure(what);
}

testbed::Descriptor AwaitClient(const testbed::Descriptor& listener) {
    Await(listener, POLLIN, "no client connects");
    return Accept(listener);
}

} // namespace

BenchServer::BenchServer()
    : notificationPath_(NotificationPath(getpid())), requestPath_(RequestPath(getpid())),
      notificationSocket_(Listen(notificationPath_)), requestSocket_(Listen(requestPath_)) {
    prctl(PR_GET_NAME, formerName_.data());
    prctl(PR_SET_NAME, "carouseld-bench");
}

BenchServer::~BenchServer() {
    unlink(notificationPath_.c_str());
    unlink(requestPath_.c_str());
    prctl(PR_SET_NAME, formerName_.data());
}

testbed::Descriptor BenchServer::AwaitSubscriber() const {
    return AwaitClient(notificationSocket_);
}

void BenchServer::AnswerRequests(std::size_t count) const {
    for (; count > 0; --count)
        EchoFrame(AwaitClient(requestSocket_).Get());
}

void Push(const testbed::Descriptor& subscriber, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        Await(subscriber, POLLOUT, "a subscriber reads nothing");
        const ssize_t size = send(subscriber.Get(), bytes.data() + sent, bytes.size() - sent,
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
        testbed::Require(size > 0, "cannot send to a subscriber");
        sent += static_cast<std::size_t>(size);
    }
}

} // namespace bench
