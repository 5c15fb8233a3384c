#ifndef TESTS_UNIT_TRAYPROBED_FAKETIME_H
#define TESTS_UNIT_TRAYPROBED_FAKETIME_H

/* Replaces time(). */

#include "support/NotCopyable.h"

#include <ctime>

class FakeTime : NotCopyable {
public:
    // Each call of time() returns the current fake time and then advances it by `step` seconds.
    explicit FakeTime(time_t now, time_t step = 0);
    ~FakeTime();

    static void Set(time_t now);
};

/* The time of "2024-03-31 08:00:00", which is universal time. */
time_t Utc(const char* dateAndTime);

#endif
