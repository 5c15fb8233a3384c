#ifndef TESTS_SOAK_MEMORYSAMPLER_H
#define TESTS_SOAK_MEMORYSAMPLER_H

#include "testbed/Daemon.h"
#include "testbed/Descriptor.h"
#include "testbed/Process.h"

#include <optional>
#include <string>

/* Anonymous memory of a process in bytes. */
struct MemoryUsage {
    long heap = 0; // of the main thread, which retains the lists
    long rest = 0; // stacks and heaps of the other threads; their size depends on the largest
                   // number of concurrent operations, not on the number of all operations
};

/* Measures the memory of the daemon and of trayprobed-memory-reference, a process that retains the
   same lists and nothing else. */
class MemorySampler {
public:
    explicit MemorySampler(testbed::OutputLog& outputLog);

    // The pipe into which every server has to copy its notifications.
    const std::string& Pipe() const {
        return pipe_;
    }

    struct Sample {
        MemoryUsage daemon;
        MemoryUsage reference;
        long lists = 0; // retained so far
    };
    // Call at the end of each server: waits until the reference has stored all its notifications.
    Sample Measure(const testbed::Daemon& daemon);

private:
    testbed::OutputLog& outputLog_;
    const std::string pipe_ = "/tmp/notifications";
    testbed::Descriptor listener_; // the reference connects to it as the daemon to a server
    std::optional<testbed::Process> reference_;
};

/* Growth of the daemon's heap in bytes, less the growth of the reference's heap. */
long UnexplainedGrowth(const MemorySampler::Sample& from, const MemorySampler::Sample& to);

#endif
