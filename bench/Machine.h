#ifndef BENCH_MACHINE_H
#define BENCH_MACHINE_H

#include <string>

namespace bench {

/* The head of the tables: how they come about, what machine this is, and how busy it is now. */
std::string DescribeRun();

} // namespace bench

#endif
