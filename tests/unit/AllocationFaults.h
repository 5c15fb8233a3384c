#ifndef TESTS_UNIT_ALLOCATIONFAULTS_H
#define TESTS_UNIT_ALLOCATIONFAULTS_H

/*
 * Memory that runs out when a test says so. malloc, calloc, realloc, strdup and operator new count
 * as allocations, where code of the test program calls them (a shared library's own calls do not).
 * So does CFNumberCreate: most numbers need no memory here, but who calls it may not count on that.
 * Name the sources with ALLOCATION_FAULTS in add_unit_test. Only the thread that made the fault
 * sees it, so a test's threads do not disturb each other. The test framework allocates too: check
 * results after the fault has ended.
 *
 * For zero bytes malloc and calloc return null, as they may; and what malloc returns is filled, so
 * that nobody takes it for zeroed memory.
 */

#include <cstddef>

/* From its construction on, lets the nth allocation (from 1) and those after it, count in all,
   find no memory. One at a time on a thread. */
class AllocationFault {
public:
    explicit AllocationFault(std::size_t nth, std::size_t count = 1) noexcept;
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;

    // Whether an allocation was refused.
    static bool Happened() noexcept;
    // Whether one was, and many more would be.
    static bool StaysOut() noexcept;
};

/* While it lives, the calling thread's allocations do not count: for the test's own seams. */
class NoAllocationFaultsHere {
public:
    NoAllocationFaultsHere() noexcept;
    ~NoAllocationFaultsHere();
    NoAllocationFaultsHere(const NoAllocationFaultsHere&) = delete;
    NoAllocationFaultsHere& operator=(const NoAllocationFaultsHere&) = delete;
};

/* Runs the body with its first, second, ... allocation refused, until a run needs no more of them:
   that run's number is returned, so 1 says that the body never allocates. body(fault number) does
   the work; check(fault number, happened) then looks at what became of it, in peace. */
template<typename Body, typename Check>
std::size_t SweepAllocationFaults(Body body, Check check) {
    for (std::size_t nth = 1;; ++nth) {
        bool happened = false;
        {
            const AllocationFault fault(nth);
            body(nth);
            happened = AllocationFault::Happened();
        }
        check(nth, happened);
        if (!happened)
            return nth;
    }
}

#endif
