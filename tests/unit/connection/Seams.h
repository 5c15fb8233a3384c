#ifndef TESTS_UNIT_CONNECTION_SEAMS_H
#define TESTS_UNIT_CONNECTION_SEAMS_H

/* Calls to the platform that fail when a test says so. */

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

/* While it lives, this thread's calls of one function fail. */
class Failing {
public:
    explicit Failing(const char* function);
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;
    ~Failing();

    static bool Is(const char* function);
};

/*
 * While it lives, calls the function before this thread sends data, with the time-out in seconds.
 */
class OnSending {
public:
    explicit OnSending(std::function<void(CFTimeInterval timeout)> function);
    OnSending(const OnSending&) = delete;
    OnSending& operator=(const OnSending&) = delete;
    ~OnSending();
};

#endif
