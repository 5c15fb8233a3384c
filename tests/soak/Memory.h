#ifndef TESTS_SOAK_MEMORY_H
#define TESTS_SOAK_MEMORY_H

#include "stage/Daemon.h"
#include "stage/Process.h"

#include <optional>
#include <string>

// How much memory the daemon takes, beside a process that keeps the same lists and nothing else:
// it reads what the servers send from a pipe, and keeps it through the daemon's own calls.
class Memory {
public:
    explicit Memory(stage::Record& record);

    // To be given to every server, which copies its notifications into it.
    const std::string& Pipe() const {
        return pipe_;
    }

    struct Sample {
        long daemon = 0; // bytes of its own
        long keeper = 0;
        long lists = 0; // kept by then
    };
    // While no server sends: waits until all is kept that was sent.
    Sample Take(const stage::Daemon& daemon);

private:
    stage::Record& record_;
    const std::string pipe_ = "/tmp/notifications";
    std::optional<stage::Process> keeper_;
};

// What the daemon's memory has grown by beyond what its lists cost.
long UnexplainedGrowth(const Memory::Sample& from, const Memory::Sample& to);

#endif
