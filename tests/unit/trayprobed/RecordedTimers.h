#ifndef TESTS_UNIT_TRAYPROBED_RECORDEDTIMERS_H
#define TESTS_UNIT_TRAYPROBED_RECORDEDTIMERS_H

/* The run-loop timers that the daemon makes: real ones, but watched. */

#include <CoreFoundation/CoreFoundation.h>

#include <ctime>
#include <vector>

struct RecordedTimer {
    CFRunLoopTimerRef timer; // a reference of the record's own
    time_t fireTime;
    CFTimeInterval interval;
    CFOptionFlags flags;
    CFIndex order;
    CFRunLoopTimerCallBack callout;
    CFRunLoopTimerContext context;
};

/* While it lives, records timers, and notes in the journal where they are added, removed and
   invalidated. At its end no timer is left in the loop. */
class RecordedTimers {
public:
    RecordedTimers();
    ~RecordedTimers();
    RecordedTimers(const RecordedTimers&) = delete;
    RecordedTimers& operator=(const RecordedTimers&) = delete;

    static const std::vector<RecordedTimer>& All();
    // The next timer cannot be made.
    static void FailNext();
};

#endif
