#ifndef TESTS_UNIT_CONNECTION_TIMERCONTROL_H
#define TESTS_UNIT_CONNECTION_TIMERCONTROL_H

/*
 * Run-loop timers without waiting: the clock stands still, the timers that the daemon creates are
 * recorded, and fire only while a TimersFireWhile exists. All state belongs to the calling thread.
 * Failing (Seams.h) also covers CFRunLoopTimerCreate.
 */

#include "support/NotCopyable.h"
#include "support/RecordedTimer.h"

#include <CoreFoundation/CoreFoundation.h>

#include <functional>

constexpr CFAbsoluteTime kNow = 5000; // the clock's time before SetClock

/* Sets the time that CFAbsoluteTimeGetCurrent returns. */
void SetClock(CFAbsoluteTime now);

/* While an object exists, timers created by the daemon fire in each iteration of the run loop in
   which the condition holds. Otherwise such timers never fire. */
class TimersFireWhile : NotCopyable {
public:
    explicit TimersFireWhile(std::function<bool()> condition);
    ~TimersFireWhile();
};

/* The last timer that the daemon created, without the timer itself, and the number of timers
   created since the thread began. */
const RecordedTimer& LastTimer();
int CountTimers();

/* Calls the function about once per iteration of the thread's run loop. */
class Tick : NotCopyable {
public:
    explicit Tick(std::function<void()> function);
    ~Tick();

private:
    std::function<void()> function_;
    CFRunLoopTimerRef timer_;
};

/* Runs the loop until the condition holds. */
void RunUntil(const std::function<bool()>& isDone);

#endif
