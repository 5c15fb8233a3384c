#ifndef BENCH_MACHINE_H
#define BENCH_MACHINE_H

#include <string>

namespace bench {

/* Returns the introduction of the report as Markdown: the method, this machine and its present
   load. */
std::string DescribeRun();

} // namespace bench

#endif
