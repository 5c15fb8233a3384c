#include "Soak.h"

#include "testbed/Sandbox.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// trayprobed-soak [SERVER LIVES [unjudged]]
int main(int argc, char** argv) {
    const int lives = argc > 1 ? std::atoi(argv[1]) : 1000;
    const bool judgesMemory = argc < 3 || std::strcmp(argv[2], "unjudged") != 0;
    if (lives < 6) {
        std::fprintf(stderr, "usage: trayprobed-soak [SERVER LIVES, at least 6 [unjudged]]\n");
        return 2;
    }
    return testbed::RunInSandbox([&] { return Soak(lives, judgesMemory).Run() ? 0 : 1; });
}
