#ifndef BENCH_AWAITEDSERVER_H
#define BENCH_AWAITEDSERVER_H

#include "stage/Descriptor.h"

#include <string>

namespace bench {

// This process poses as a server that a daemon is going to connect to: it has the name, listens for
// subscribers, and gives requests back as their replies, which is good enough for the daemon's.
class AwaitedServer {
public:
    AwaitedServer();
    ~AwaitedServer();
    AwaitedServer(const AwaitedServer&) = delete;
    AwaitedServer& operator=(const AwaitedServer&) = delete;

    // The connection of the next one.
    stage::Descriptor AwaitSubscriber() const;
    void AnswerRequests(std::size_t count) const;

private:
    const std::string subscriberPath_;
    const std::string requestPath_;
    const stage::Descriptor subscribers_;
    const stage::Descriptor requests_;
};

// Sends all of it. Throws when the subscriber takes nothing for as long as anything is waited for.
void Push(const stage::Descriptor& subscriber, const std::string& bytes);

} // namespace bench

#endif
