#ifndef TESTS_UNIT_CONNECTION_SEAMS_H
#define TESTS_UNIT_CONNECTION_SEAMS_H

/* Calls to the platform that fail when a test says so. */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

/* While it lives, this thread's calls of one function fail. */
class Failing : NotCopyable {
public:
    explicit Failing(const char* function);
    ~Failing();

    static bool Is(const char* function);
};

/*
 * While it lives, calls the function before this thread sends data, with the time-out in seconds.
 */
class OnSending : NotCopyable {
public:
    explicit OnSending(std::function<void(CFTimeInterval timeout)> function);
    ~OnSending();
};

#endif
