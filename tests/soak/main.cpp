#include "Soak.h"
#include "testbed/Sandbox.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// trayprobed-soak [CYCLES [no-memory-check]]
int main(int argc, char** argv) {
    const int cycles = argc > 1 ? std::atoi(argv[1]) : 1000;
    const bool checksMemory = argc < 3 || std::strcmp(argv[2], "no-memory-check") != 0;
    if (cycles < 6) {
        std::fprintf(stderr, "usage: trayprobed-soak [CYCLES, at least 6 [no-memory-check]]\n");
        return 2;
    }
    return testbed::RunInSandbox([&] { return Soak(cycles, checksMemory).Run() ? 0 : 1; });
}
