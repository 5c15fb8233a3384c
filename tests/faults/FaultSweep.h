#ifndef TESTS_FAULTS_FAULTSWEEP_H
#define TESTS_FAULTS_FAULTSWEEP_H

/*
 * Fault sweeps: a body of work runs again and again with one fault, its first, second, ...
 * allocation failing, alone and with all after it, then its first, second, ... call of each system
 * function with each error, until none is left. Name AllocationFaults and SystemCallFaults in the
 * SEAMS of add_unit_test.
 */

#include "AllocationFaults.h"
#include "SystemCallFaults.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>

struct Fault {
    std::string what;          // for messages
    std::string_view function; // of the system; empty for an allocation
    bool happened;             // false: the body had fewer calls, and nothing has failed
};

/* How many faults happened. */
struct SweptFaults {
    std::size_t allocations = 0;
    std::size_t systemCalls = 0;
};

/* Records the numbers of faults as properties of the test, which fails if one of them is 0. */
inline void Report(const SweptFaults& swept) {
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
    testing::Test::RecordProperty("allocations", std::to_string(swept.allocations));
    testing::Test::RecordProperty("system_calls", std::to_string(swept.systemCalls));
}

/* The thread on which a body runs with its fault: the sweep's, or a new one for each run. */
enum class SweptThread { kCalling, kFresh };

/* Runs the body with a fault that is constructed from the arguments. True if the fault happened. */
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

/*
 * Each sweep calls body() with a fault, then check(fault) without one on the calling thread, where
 * the result is examined and the next run prepared. Returns the number of faults that happened.
 */

/* Sweeps the allocations; each fails with the `count` - 1 after it. */
template<typename Body, typename Check>
std::size_t SweepMemory(std::size_t count, Body body, Check check,
                        SweptThread thread = SweptThread::kCalling) {
    const std::string following = count > 1 ? " and all after it" : "";
    return SweepFaults([&](std::size_t nth) {
        const bool happened = RunWithFault<AllocationFault>(thread, body, nth, count);
        check(Fault{"allocation " + std::to_string(nth) + following, "", happened});
        return happened;
    });
}

/* Sweeps the calls of one function with one error. */
template<typename Body, typename Check>
std::size_t SweepSystemCall(const SystemCallFailure& failure, Body body, Check check,
                            SweptThread thread = SweptThread::kCalling) {
    return SweepFaults([&](std::size_t nth) {
        const bool happened = RunWithFault<SystemCallFault>(thread, body, failure, nth);
        check(Fault{Describe(failure, nth), failure.function, happened});
        return happened;
    });
}

/* Sweeps everything. */
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
