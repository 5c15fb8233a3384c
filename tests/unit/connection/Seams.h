#ifndef TESTS_UNIT_CONNECTION_SEAMS_H
#define TESTS_UNIT_CONNECTION_SEAMS_H

/* Injects failures of platform functions. */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

/* While an object exists, the calling thread's calls of that function fail; "" is no function. */
class Failing : NotCopyable {
public:
    explicit Failing(const char* function);
    ~Failing();

    static bool Is(const char* function);
};

/* While an object exists, the function is called before the calling thread sends data, with the
   time-out in seconds. */
class OnSending : NotCopyable {
public:
    explicit OnSending(std::function<void(CFTimeInterval timeout)> function);
    ~OnSending();
};

#endif
