#ifndef TESTS_SOAK_MEMORY_H
#define TESTS_SOAK_MEMORY_H

#include "testbed/Daemon.h"
#include "testbed/Descriptor.h"
#include "testbed/Process.h"

#include <optional>
#include <string>

/* Bytes of memory that a process has touched and not given back. */
struct Footing {
    long heap = 0; // of its main thread, which keeps the lists
    long rest = 0; // of the other threads: their stacks, and heaps that grow with what was ever
                   // under way at one time, not with what has gone by
};

/* How much memory the daemon takes, beside a process that keeps the same lists and nothing else:
   it reads what the servers send from a pipe, and keeps it through the daemon's own calls. */
class Memory {
public:
    explicit Memory(testbed::OutputLog& outputLog);

    // To be given to every server, which copies its notifications into it.
    const std::string& Pipe() const {
        return pipe_;
    }

    struct Sample {
        Footing daemon;
        Footing keeper;
        long lists = 0; // kept by then
    };
    // At the end of each server: waits until all is kept that it sent.
    Sample Take(const testbed::Daemon& daemon);

private:
    testbed::OutputLog& outputLog_;
    const std::string pipe_ = "/tmp/notifications";
    testbed::Descriptor listener_; // for the keeper to connect to, as to a server
    std::optional<testbed::Process> keeper_;
};

/* What the daemon's heap has grown by beyond what its lists cost. */
long UnexplainedGrowth(const Memory::Sample& from, const Memory::Sample& to);

#endif
