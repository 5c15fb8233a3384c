// trayprobed-bench [section...]: measures what the daemon costs beside its peers and its goals, in
// a private world. The tables go to standard output as Markdown, each figure as soon as it is known
// to standard error. Sections: memory, notifications, walk, server, growth, scaling, idle; all of
// them unless some are named.

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <unistd.h>

// The measuring process begins inside, where it sees the world's processes from its first moment.
int main(int, char** argv) {
    return testbed::RunInSandbox([&]() -> int {
        testbed::Require(execv(testbed::ProgramPath("bench-figures").c_str(), argv) == 0,
                         "cannot run bench-figures");
        return 1;
    });
}
