#ifndef TESTS_FAKECLOCK_H
#define TESTS_FAKECLOCK_H

/*
 * A clock that the test controls. While a FakeClock lives, both clocks change only through it, and
 * a run loop that would sleep advances them to its next date instead. The kernel's monotonic timers
 * expire when the fake time reaches their dates, in the order of the dates. Any thread may read the
 * time; one thread at a time may change it.
 */

#include "support/NotCopyable.h"

#include <CoreFoundation/CFDate.h>

class FakeClock : NotCopyable {
public:
    FakeClock();
    ~FakeClock();

    // Advances both clocks.
    void Advance(CFTimeInterval seconds);
    // Changes the wall clock alone, as settimeofday() does.
    void Step(CFTimeInterval seconds);
    // Suspends the machine: the monotonic clock stands still.
    void Suspend(CFTimeInterval seconds);

    // Seconds of the monotonic clock since construction.
    CFTimeInterval Elapsed() const;

    // The number of sleeps of run loops since construction.
    int Sleeps() const;

    // True if a date of the wall clock would wake the loop.
    bool HasAlarm() const;

    // While true, timerfd_create() fails.
    void RefuseAlarms(bool refuse);
};

#endif
