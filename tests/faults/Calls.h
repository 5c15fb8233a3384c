#ifndef TESTS_FAULTS_CALLS_H
#define TESTS_FAULTS_CALLS_H

/* The table of calls that can fail (Calls.def) as data, and the headers for its types. */

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

/* What the daemon does while FaultyCallsTest.cpp injects a failure. */
enum Phase : unsigned {
    kNoPhase = 0,
    kStart = 1,
    kIdentification = 2,
    kReconnection = 4,
    kRemount = 8,
    kEveryPhase = 15
};

/* Instead of an errno: the call does a part of what was requested. */
inline constexpr int kShort = -1;

struct FaultyCall {
    std::string_view name;
    unsigned phases;
    std::array<int, 8> errors; // the rest is 0
};

inline constexpr FaultyCall kFaultyCalls[] = {
#define CALL(name, Result, failed, condition, parameters, arguments, phases, ...)                  \
    {#name, phases, {__VA_ARGS__}},
#define UNIT_CALL CALL
#define VARIANT(...)
#define HARDENED(...)
#include "Calls.def"
};

/* The position of a call in the table; -1: there is none. */
constexpr int IndexOfFaultyCall(std::string_view name) {
    for (int i = 0; i < static_cast<int>(std::size(kFaultyCalls)); ++i)
        if (kFaultyCalls[i].name == name)
            return i;
    return -1;
}

/* The row of the start of a std::thread. */
inline constexpr std::string_view kThreadStart =
    "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE";
static_assert(IndexOfFaultyCall(kThreadStart) >= 0);

/* "EMFILE", or "short" */
inline std::string NameOfError(int error) {
    return error == kShort ? "short" : strerrorname_np(error);
}

#endif
