#ifndef BENCH_BENCHSERVER_H
#define BENCH_BENCHSERVER_H

#include "testbed/Descriptor.h"

#include <array>
#include <string>

namespace bench {

/* Makes this process the server that a daemon connects to: sets the name of the process, listens
   for subscribers, and echoes requests; the daemon takes the echo for a successful reply. */
class BenchServer {
public:
    // Sets the name of this thread and creates the sockets; the destructor undoes both. Throws
    // Failure on errors.
    BenchServer();
    ~BenchServer();
    BenchServer(const BenchServer&) = delete;
    BenchServer& operator=(const BenchServer&) = delete;

    // Waits for the next subscriber and returns its connection. Throws Failure after
    // testbed::kTimeOut.
    testbed::Descriptor AwaitSubscriber() const;
    // Waits for `count` requests, one connection each, and echoes them. Throws Failure if none
    // arrives within testbed::kTimeOut.
    void AnswerRequests(std::size_t count) const;

private:
    std::array<char, 16> formerName_{}; // of this thread; 16 is the kernel's limit
    const std::string notificationPath_;
    const std::string requestPath_;
    const testbed::Descriptor notificationSocket_;
    const testbed::Descriptor requestSocket_;
};

/* Sends all bytes. Throws Failure on errors, and if the subscriber reads nothing for
   testbed::kTimeOut. */
void Push(const testbed::Descriptor& subscriber, const std::string& bytes);

} // namespace bench

#endif
