#ifndef TESTS_UNIT_SUPPORT_WITHOUTMEMORY_H
#define TESTS_UNIT_SUPPORT_WITHOUTMEMORY_H

#include "AllocationFaults.h"
#include "support/Chain.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>

/* Calls the function with its nth allocation failing, and returns its result. */
template<typename Call>
auto WithoutMemory(Call call, std::size_t nth = 1) {
    const AllocationFault fault(nth);
    return call();
}

/* Calls the function with its first allocation failing, and takes the chain that it returns. */
template<typename Call>
Chain ChainWithoutMemory(Call call) {
    return TakeChain(WithoutMemory(call));
}

/* Calls call(), which returns an error chain, with each of its allocations failing in turn, and
   after each call check(chain, failed), without a fault. Expects an error if and only if an
   allocation failed. Returns the newest messages of the chains. */
template<typename Call, typename Check>
std::set<std::string> SweepErrors(Call call, Check check) {
    std::set<std::string> newest;
    VErrLink* err = nullptr;
    SweepAllocationFaults([&](std::size_t) { err = call(); },
                          [&](std::size_t nth, bool failed) {
                              SCOPED_TRACE("allocation " + std::to_string(nth));
                              EXPECT_EQ(err != nullptr, failed);
                              const Chain chain = TakeChain(err);
                              if (!chain.empty())
                                  newest.insert(chain.back().message);
                              check(chain, failed);
                          });
    return newest;
}

#endif
