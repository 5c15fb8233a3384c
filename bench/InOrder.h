#ifndef BENCH_INORDER_H
#define BENCH_INORDER_H

#include "testbed/Failure.h"
#include "testbed/TestRun.h"

#include <string>

namespace bench {

/* Ends the run. Throws what went wrong in it, since then nothing that was measured counts. */
inline void EndCleanly(testbed::TestRun& run) {
    std::string problems;
    for (const std::string& problem : run.End())
        problems += problem + "\n";
    if (!problems.empty())
        throw testbed::Failure(problems);
}

} // namespace bench

#endif
