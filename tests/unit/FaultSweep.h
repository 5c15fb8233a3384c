#ifndef TESTS_UNIT_FAULTSWEEP_H
#define TESTS_UNIT_FAULTSWEEP_H

/*
 * A body of work, run again and again with one thing around it failing: its first, second, ...
 * allocation, alone and with all that follow it, then its first, second, ... call of each system
 * function in each way, until none is left. Needs ALLOCATION_FAULTS and SYSTEM_CALL_FAULTS in
 * add_unit_test.
 */

#include "AllocationFaults.h"
#include "SystemCallFaults.h"

#include <cstdint>
#include <string>

struct Fault {
    std::string what;     // for messages
    std::string function; // of the system; empty: memory ran out
    bool happened;        // else the body needed no more of them, and nothing has gone wrong
};

// How many faults there were.
struct SweptFaults {
    std::size_t allocations = 0;
    std::size_t systemCalls = 0;
};

// body() does the work, on the calling thread; check(fault) then looks at what became of it, in
// peace, and makes all ready for the next run.
template<typename Body, typename Check>
std::size_t SweepMemory(std::size_t count, Body body, Check check) {
    const std::string following = count > 1 ? " and all after it" : "";
    for (std::size_t nth = 1;; ++nth) {
        bool happened = false;
        {
            const AllocationFault fault(nth, count);
            body();
            happened = AllocationFault::Happened();
        }
        check(Fault{"allocation " + std::to_string(nth) + following, "", happened});
        if (!happened)
            return nth - 1;
    }
}

template<typename Body, typename Check>
std::size_t SweepSystemCall(const SystemCallFailure& failure, Body body, Check check) {
    for (std::size_t nth = 1;; ++nth) {
        bool happened = false;
        {
            const SystemCallFault fault(failure, nth);
            body();
            happened = SystemCallFault::Happened();
        }
        check(Fault{Describe(failure, nth), failure.function, happened});
        if (!happened)
            return nth - 1;
    }
}

template<typename Body, typename Check>
SweptFaults SweepFaults(Body body, Check check) {
    SweptFaults swept;
    swept.allocations = SweepMemory(1, body, check);
    SweepMemory(SIZE_MAX, body, check);
    for (const SystemCallFailure& failure : SystemCallFailures())
        swept.systemCalls += SweepSystemCall(failure, body, check);
    return swept;
}

#endif
