#ifndef BENCH_AWAITEDSERVER_H
#define BENCH_AWAITEDSERVER_H

#include "stage/Descriptor.h"

#include <string>

namespace bench {

// This process poses as a server that a daemon is going to connect to: it has the name, and listens
// for subscribers.
class AwaitedServer {
public:
    AwaitedServer();
    ~AwaitedServer();
    AwaitedServer(const AwaitedServer&) = delete;
    AwaitedServer& operator=(const AwaitedServer&) = delete;

    void AwaitSubscriber() const;

private:
    const std::string path_;
    const stage::Descriptor listener_;
};

} // namespace bench

#endif
