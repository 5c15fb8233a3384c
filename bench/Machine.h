#ifndef BENCH_MACHINE_H
#define BENCH_MACHINE_H

#include <string>

namespace bench {

// The head of the tables: what machine this is, and the command that makes them.
std::string DescribeRun();

} // namespace bench

#endif
