#ifndef TESTS_FAKECLOCK_H
#define TESTS_FAKECLOCK_H

/*
 * Time in the test's hand. While a FakeClock lives, both clocks stand still but for it, and a run
 * loop that would sleep jumps to what it would sleep for. The kernel's monotonic timers expire when
 * the fake time reaches their dates, in the order of the dates. One thread moves the time at a
 * time; any thread may read it.
 */

#include <CoreFoundation/CFDate.h>

class FakeClock {
public:
    FakeClock();
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;
    ~FakeClock();

    // Time goes by.
    void Advance(CFTimeInterval seconds);
    // Somebody sets the wall clock.
    void Step(CFTimeInterval seconds);
    // The machine sleeps: the monotonic clock stands meanwhile.
    void Suspend(CFTimeInterval seconds);

    // Since the FakeClock was made, by the monotonic clock.
    CFTimeInterval Elapsed() const;

    // How often a run loop has slept since the FakeClock was made.
    int Sleeps() const;

    // Whether a date by the wall clock would wake the loop.
    bool HasAlarm() const;

    // Refuses descriptors for timers of either clock.
    void RefuseAlarms(bool refuse);
};

#endif
