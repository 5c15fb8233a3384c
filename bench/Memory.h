#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include <functional>

namespace bench {

/* The bytes that are allocated on the heap of this process. */
long HeapInUse();

/* Runs the body in a child of this process and returns its result, so that what it leaves on the
   heap is gone. Throws when the child fails, which says why on standard error. */
long MeasureApart(const std::function<long()>& body);

} // namespace bench

#endif
