#ifndef BENCH_MEMORY_H
#define BENCH_MEMORY_H

#include <functional>

namespace bench {

// The bytes on the heap of this process.
long HeapInUse();

// What the body returns, in a process of its own, which has done nothing before.
long MeasureApart(const std::function<long()>& body);

} // namespace bench

#endif
