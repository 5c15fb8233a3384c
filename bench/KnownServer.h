#ifndef BENCH_KNOWNSERVER_H
#define BENCH_KNOWNSERVER_H

#include <sys/types.h>

namespace bench {

/* As long as this object exists, sysctl shows this process a table of one process, the server, so
   that an exchange is timed without reading the whole table. The program wraps sysctl (--wrap). */
class KnownServer {
public:
    explicit KnownServer(pid_t process);
    ~KnownServer();
    KnownServer(const KnownServer&) = delete;
    KnownServer& operator=(const KnownServer&) = delete;
};

} // namespace bench

#endif
