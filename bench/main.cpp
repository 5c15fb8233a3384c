// trayprobed-bench [section...]: measures what the daemon costs beside its peers and its goals, in
// a private world. The tables go to standard output as Markdown; how far it is, to standard error.
// Sections: memory, notifications, walk, server, growth, scaling, idle; all unless named.

#include "stage/Failure.h"
#include "stage/PrivateWorld.h"

#include <unistd.h>

// The measuring process begins inside, where it sees the world's processes from its first moment.
int main(int, char** argv) {
    return stage::RunInPrivateWorld([&]() -> int {
        execv(stage::ProgramPath("bench-figures").c_str(), argv);
        throw stage::Failure("cannot run bench-figures");
    });
}
