#ifndef TESTS_FAULTS_ALLOCATIONFAULTS_H
#define TESTS_FAULTS_ALLOCATIONFAULTS_H

/*
 * Allocations that fail when a test requests a failure. malloc, calloc, realloc, strdup and
 * operator new count as allocations, where code of the test program calls them (a shared library's
 * own calls do not). So does CFNumberCreate: most numbers need no memory here, but callers may not
 * rely on that. Name AllocationFaults in the SEAMS of add_unit_test. A fault is in effect only for
 * the thread that constructed it. The test framework allocates too: check results after the fault
 * has ended.
 *
 * For zero bytes malloc and calloc return null, as the standard allows. The bytes that malloc
 * returns are filled, and so never zero.
 */

#include "support/NotCopyable.h"

#include <cstddef>

/* While it lives, the nth allocation (from 1) since its construction and those after it, `count` in
   all, fail. One at a time on a thread. */
class AllocationFault : NotCopyable {
public:
    // Counts the calling thread's allocations from now on.
    explicit AllocationFault(std::size_t nth, std::size_t count = 1) noexcept;
    ~AllocationFault();

    // True if an allocation of the calling thread has failed. False once the fault has ended.
    static bool Happened() noexcept;
    // True if one has failed and the next one will fail too.
    static bool WillHappenAgain() noexcept;
};

/* While it lives, the calling thread's allocations do not count: for the test's own seams. Not to
   be nested. */
class NoAllocationFaultsHere : NotCopyable {
public:
    NoAllocationFaultsHere() noexcept;
    ~NoAllocationFaultsHere();
};

/* The loop of every sweep: run(nth) works with the nth fault, from 1 on, and returns whether the
   fault happened. Ends with the first that did not, and returns the number of those that did. */
template<typename Run>
std::size_t SweepFaults(Run run) {
    std::size_t faults = 0;
    while (run(faults + 1))
        ++faults;
    return faults;
}

/* Calls body(nth) with the nth allocation failing, then check(nth, happened) without a fault, for
   nth = 1, 2, ... until a body needs fewer allocations. Returns the last nth: 1 if the body never
   allocates. */
template<typename Body, typename Check>
std::size_t SweepAllocationFaults(Body body, Check check) {
    return 1 + SweepFaults([&](std::size_t nth) {
               bool happened = false;
               {
                   const AllocationFault fault(nth);
                   body(nth);
                   happened = AllocationFault::Happened();
               }
               check(nth, happened);
               return happened;
           });
}

#endif
