#ifndef TESTS_UNIT_TRAYPROBED_FAKETIME_H
#define TESTS_UNIT_TRAYPROBED_FAKETIME_H

/* time() in the test's hand. */

#include "support/NotCopyable.h"

#include <ctime>

class FakeTime : NotCopyable {
public:
    // Each call of time gives the present and then moves it on by step.
    explicit FakeTime(time_t now, time_t step = 0);
    ~FakeTime();

    static void Set(time_t now);
};

/* "2024-03-31 08:00:00" in universal time. */
time_t Utc(const char* dateAndTime);

#endif
