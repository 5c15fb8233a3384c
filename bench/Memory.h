#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include <functional>

namespace bench {

/* Returns the bytes that are allocated on the heap of this process. */
long HeapInUse();

/* Runs the body in a forked child process and returns its result; the heap of this process does not
   change. Throws Failure if the body throws or the child ends in another way; the text of the
   exception goes to standard error. Blocks until the child ends. */
long MeasureInChild(const std::function<long()>& body);

} // namespace bench

#endif
