#include "Memory.h"

#include "stage/Descriptor.h"
#include "stage/Failure.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

long HeapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

long MeasureApart(const std::function<long()>& body) {
    int ends[2];
    stage::Require(pipe(ends) == 0, "cannot make a pipe");
    const stage::Descriptor from(ends[0]);
    stage::Descriptor to(ends[1]);
    const pid_t child = fork();
    stage::Require(child >= 0, "cannot fork");
    if (child == 0) {
        const long result = body();
        _exit(write(to.Get(), &result, sizeof result) == sizeof result ? 0 : 1);
    }
    to.Close();
    long result = 0;
    const bool told = read(from.Get(), &result, sizeof result) == sizeof result;
    waitpid(child, nullptr, 0);
    if (!told) {
        throw stage::Failure("a measurement ended without a result");
    }
    return result;
}

} // namespace bench
