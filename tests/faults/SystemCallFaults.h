#ifndef TESTS_FAULTS_SYSTEMCALLFAULTS_H
#define TESTS_FAULTS_SYSTEMCALLFAULTS_H

/*
 * System calls that fail when a test requests a failure: those of Calls.def, where code of the test
 * program makes them. A shared library's own calls do not count. A fault is in effect for every
 * thread but the exempt ones. Name SystemCallFaults in the SEAMS of add_unit_test. A seam of the
 * program's own for one of the calls takes the place of the wrapper here.
 */

#include "support/NotCopyable.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/* One way in which a function fails. */
struct SystemCallFailure {
    std::string_view function;
    int error; // errno; kShort (Calls.h): the call does a part of what was requested
};

/* Each error of each row of Calls.def. */
const std::vector<SystemCallFailure>& SystemCallFailures();

/* "call 2 of socket, EMFILE" */
std::string Describe(const SystemCallFailure& failure, std::size_t nth);

/* While it lives, the nth call (from 1) since its construction fails. One at a time in the process;
   `failure` must live as long. */
class SystemCallFault : NotCopyable {
public:
    // Counts the calls of all threads from now on.
    SystemCallFault(const SystemCallFailure& failure, std::size_t nth) noexcept;
    ~SystemCallFault();

    // True if the last fault made a call fail.
    static bool Happened() noexcept;
};

/* While it lives, the calling thread's calls do not count: for the test's own servers. Not to be
   nested. */
class NoSystemCallFaultsHere : NotCopyable {
public:
    NoSystemCallFaultsHere() noexcept;
    ~NoSystemCallFaultsHere();
};

#endif
