#ifndef BENCH_SINGLEPROCESSTABLE_H
#define BENCH_SINGLEPROCESSTABLE_H

#include <sys/types.h>

namespace bench {

/* While this object exists, sysctl() returns a process table with one entry, a server. This
   excludes the time of reading the process table from a measurement. There may be one object at a
   time. Link the program with --wrap=sysctl. */
class SingleProcessTable {
public:
    // `process`: the process id of the server.
    explicit SingleProcessTable(pid_t process);
    ~SingleProcessTable();
    SingleProcessTable(const SingleProcessTable&) = delete;
    SingleProcessTable& operator=(const SingleProcessTable&) = delete;
};

} // namespace bench

#endif
