// trayprobed-bench [section...]: runs the benchmarks of the daemon in a sandbox and compares the
// results with goals and with other programs. Prints each result to standard error at once, and the
// tables to standard output, as Markdown. Sections (default all): memory, notifications, walk,
// server, growth, scaling, idle.

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <unistd.h>

// bench-figures must start inside the sandbox: the platform's functions open /proc at program
// start.
int main(int, char** argv) {
    return testbed::RunInSandbox([&]() -> int {
        testbed::Require(execv(testbed::ProgramPath("bench-figures").c_str(), argv) == 0,
                         "cannot run bench-figures");
        return 1;
    });
}
