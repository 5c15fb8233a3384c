#ifndef BENCH_INORDER_H
#define BENCH_INORDER_H

#include "testbed/Failure.h"
#include "testbed/TestRun.h"

#include <string>

namespace bench {

/* Ends the run. Throws what went wrong in it, since then nothing that was measured counts. */
inline void EndCleanly(testbed::TestRun& run) {
    std::string complaints;
    for (const std::string& complaint : run.End())
        complaints += complaint + "\n";
    if (!complaints.empty())
        throw testbed::Failure(complaints);
}

} // namespace bench

#endif
