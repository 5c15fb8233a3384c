#ifndef TESTS_UNIT_SYSTEMCALLFAULTS_H
#define TESTS_UNIT_SYSTEMCALLFAULTS_H

/*
 * System calls that fail when a test says so, where code of the test program makes them (a shared
 * library's own calls do not count); name the sources with SYSTEM_CALL_FAULTS in add_unit_test. A
 * fault is the whole program's, whichever thread makes the call, but for the exempt ones.
 */

#include <cstddef>
#include <span>
#include <string>

/* One way in which a function fails: with that errno, or by doing less than it was asked for. */
struct SystemCallFailure {
    static constexpr int kShort = 0;

    const char* function;
    int error;
};

/* Every way that is known here. */
std::span<const SystemCallFailure> SystemCallFailures();

/* "call 2 of socket, EMFILE" */
std::string Describe(const SystemCallFailure& failure, std::size_t nth);

/* From its construction on, lets the nth call (from 1) fail. One at a time. The failure lasts as
   long. */
class SystemCallFault {
public:
    SystemCallFault(const SystemCallFailure& failure, std::size_t nth) noexcept;
    ~SystemCallFault();
    SystemCallFault(const SystemCallFault&) = delete;
    SystemCallFault& operator=(const SystemCallFault&) = delete;

    // Whether a call failed.
    static bool Happened() noexcept;
};

/* While it lives, the calling thread's calls do not count: for the test's own servers. */
class NoSystemCallFaultsHere {
public:
    NoSystemCallFaultsHere() noexcept;
    ~NoSystemCallFaultsHere();
    NoSystemCallFaultsHere(const NoSystemCallFaultsHere&) = delete;
    NoSystemCallFaultsHere& operator=(const NoSystemCallFaultsHere&) = delete;
};

#endif
