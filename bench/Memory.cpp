#include "Memory.h"

#include "testbed/Descriptor.h"
#include "testbed/Failure.h"
#include "testbed/Process.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace bench {
namespace {

// No exception may leave the child's part: it would run the parent's destructors.
[[noreturn]] void RunInChild(const std::function<long()>& body, const testbed::Descriptor& to) {
    try {
        const long result = body();
        _exit(write(to.Get(), &result, sizeof result) == sizeof result ? 0 : 1);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        _exit(1);
    }
}

} // namespace

long HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

long MeasureInChild(const std::function<long()>& body) {
    int ends[2];
    testbed::Require(pipe(ends) == 0, "cannot make a pipe");
    const testbed::Descriptor from(ends[0]);
    testbed::Descriptor to(ends[1]);
    const pid_t child = fork();
    testbed::Require(child >= 0, "cannot fork");
    if (child == 0)
        RunInChild(body, to);
    to.Close();
    long result = 0;
    const bool hasResult = read(from.Get(), &result, sizeof result) == sizeof result;
    int status = 0;
    testbed::Require(waitpid(child, &status, 0) == child, "cannot wait for a measurement");
    if (!hasResult || status != 0)
        throw testbed::Failure("a measurement in a process of its own " +
                               testbed::DescribeEnd(status));
    return result;
}

} // namespace bench
