#ifndef BENCH_KNOWNSERVER_H
#define BENCH_KNOWNSERVER_H

#include <sys/types.h>

namespace bench {

// As long as this lives, the process table of this process's calls is just the server, so that an
// exchange can be timed without it. Wrap sysctl.
class KnownServer {
public:
    explicit KnownServer(pid_t process);
    ~KnownServer();
    KnownServer(const KnownServer&) = delete;
    KnownServer& operator=(const KnownServer&) = delete;
};

} // namespace bench

#endif
