#ifndef BENCH_ENDANDCHECK_H
#define BENCH_ENDANDCHECK_H

#include "testbed/Failure.h"
#include "testbed/TestRun.h"

#include <string>

namespace bench {

/* Ends the run. Throws Failure with its problems, if any: the measurements are invalid then. */
inline void EndAndCheck(testbed::TestRun& run) {
    std::string problems;
    for (const std::string& problem : run.End())
        problems += problem + "\n";
    if (!problems.empty())
        throw testbed::Failure(problems);
}

} // namespace bench

#endif
