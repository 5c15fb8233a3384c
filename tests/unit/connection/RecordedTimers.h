#ifndef TESTS_UNIT_CONNECTION_RECORDEDTIMERS_H
#define TESTS_UNIT_CONNECTION_RECORDEDTIMERS_H

/*
 * Run-loop timers without waiting. The code's timers are noted as they are asked for, by a clock
 * that stands still, and fire when the test says so. Failing (Seams.h) can make
 * CFRunLoopTimerCreate fail.
 */

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

constexpr CFAbsoluteTime kNow = 5000; // what the clock shows unless it is set

/* What the clock shows this thread from now on. */
void SetClock(CFAbsoluteTime now);

struct AskedTimer {
    CFAbsoluteTime fireDate;
    CFTimeInterval interval;
    CFOptionFlags flags;
    CFIndex order;
    CFRunLoopTimerCallBack callout;
};

/* While it lives, the timers of this thread's code fire again and again as long as the condition
   holds, instead of never. */
class TimersFireWhen {
public:
    explicit TimersFireWhen(std::function<bool()> condition);
    TimersFireWhen(const TimersFireWhen&) = delete;
    TimersFireWhen& operator=(const TimersFireWhen&) = delete;
    ~TimersFireWhen();
};

/* The last timer that this thread's code asked for, and how many it asked for so far. */
AskedTimer LastAskedTimer();
int CountAskedTimers();

/*
 * A timer of the test's own: calls the function in each turn of this thread's loop, or nearly so.
 */
class Tick {
public:
    explicit Tick(std::function<void()> function);
    Tick(const Tick&) = delete;
    Tick& operator=(const Tick&) = delete;
    ~Tick();

private:
    std::function<void()> function_;
    CFRunLoopTimerRef timer_;
};

/* Runs the loop until the condition holds. */
void RunUntil(const std::function<bool()>& isDone);

#endif
