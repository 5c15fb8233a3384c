#ifndef BENCH_AWAITEDSERVER_H
#define BENCH_AWAITEDSERVER_H

#include "testbed/Descriptor.h"

#include <array>
#include <string>

namespace bench {

/* Makes this process the server that a daemon is going to connect to: it has the name, listens for
   subscribers, and gives requests back as their replies, which the daemon takes for success. */
class AwaitedServer {
public:
    AwaitedServer();
    ~AwaitedServer();
    AwaitedServer(const AwaitedServer&) = delete;
    AwaitedServer& operator=(const AwaitedServer&) = delete;

    // Wait for the next subscriber, whose connection is returned, and for so many requests. Throw
    // when none comes within testbed::kTimeOut.
    testbed::Descriptor AwaitSubscriber() const;
    void AnswerRequests(std::size_t count) const;

private:
    std::array<char, 16> formerName_{}; // of this thread, as long as the kernel has them
    const std::string subscriberPath_;
    const std::string requestPath_;
    const testbed::Descriptor subscribers_;
    const testbed::Descriptor requests_;
};

/* Sends all of it. Throws when the subscriber takes nothing for testbed::kTimeOut. */
void Push(const testbed::Descriptor& subscriber, const std::string& bytes);

} // namespace bench

#endif
