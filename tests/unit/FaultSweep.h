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

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

struct Fault {
    std::string what;     // for messages
    std::string function; // of the system; empty: memory ran out
    bool happened;        // else the body needed no more of them, and nothing has gone wrong
};

/* How many faults there were. */
struct SweptFaults {
    std::size_t allocations = 0;
    std::size_t systemCalls = 0;
};

/*
 * Where a body runs, and its fault is set: on the sweep's thread, or each time on one of its own.
 */
enum class SweptThread { kCalling, kFresh };

/* Whether the fault happened, which is made of the arguments. */
template<typename FaultKind, typename Body, typename... Arguments>
bool RunWithFault(SweptThread thread, Body& body, const Arguments&... arguments) {
    bool happened = false;
    const auto run = [&] {
        const FaultKind fault(arguments...);
        body();
        happened = FaultKind::Happened();
    };
    if (thread == SweptThread::kFresh)
        std::thread(run).join();
    else
        run();
    return happened;
}

/* body() does the work; check(fault) then looks at what became of it, in peace, on the calling
   thread, and makes all ready for the next run. */
template<typename Body, typename Check>
std::size_t SweepMemory(std::size_t count, Body body, Check check,
                        SweptThread thread = SweptThread::kCalling) {
    const std::string following = count > 1 ? " and all after it" : "";
    for (std::size_t nth = 1;; ++nth) {
        const bool happened = RunWithFault<AllocationFault>(thread, body, nth, count);
        check(Fault{"allocation " + std::to_string(nth) + following, "", happened});
        if (!happened)
            return nth - 1;
    }
}

template<typename Body, typename Check>
std::size_t SweepSystemCall(const SystemCallFailure& failure, Body body, Check check,
                            SweptThread thread = SweptThread::kCalling) {
    for (std::size_t nth = 1;; ++nth) {
        const bool happened = RunWithFault<SystemCallFault>(thread, body, failure, nth);
        check(Fault{Describe(failure, nth), failure.function, happened});
        if (!happened)
            return nth - 1;
    }
}

template<typename Body, typename Check>
SweptFaults SweepFaults(Body body, Check check, SweptThread thread = SweptThread::kCalling) {
    SweptFaults swept;
    swept.allocations = SweepMemory(1, body, check, thread);
    SweepMemory(SIZE_MAX, body, check, thread);
    for (const SystemCallFailure& failure : SystemCallFailures())
        swept.systemCalls += SweepSystemCall(failure, body, check, thread);
    return swept;
}

#endif
