#ifndef BENCH_INORDER_H
#define BENCH_INORDER_H

#include "stage/Failure.h"
#include "stage/Scene.h"

#include <string>

namespace bench {

/* Ends the run. Throws what went wrong in it, since then nothing that was measured counts. */
inline void EndInOrder(stage::Scene& scene) {
    std::string complaints;
    for (const std::string& complaint : scene.End())
        complaints += complaint + "\n";
    if (!complaints.empty())
        throw stage::Failure(complaints);
}

} // namespace bench

#endif
