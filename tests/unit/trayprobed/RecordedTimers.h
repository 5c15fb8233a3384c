#ifndef TESTS_UNIT_TRAYPROBED_RECORDEDTIMERS_H
#define TESTS_UNIT_TRAYPROBED_RECORDEDTIMERS_H

/* Records the run-loop timers that the daemon creates. */

#include "support/NotCopyable.h"
#include "support/RecordedTimer.h"

#include <vector>

/* While an object lives, each timer created is recorded, and the journal shows where timers are
   added, removed and invalidated. The destructor invalidates and releases all of them. */
class RecordedTimers : NotCopyable {
public:
    RecordedTimers();
    ~RecordedTimers();

    // In the order of their creation; the recorder owns a reference to each timer.
    static const std::vector<RecordedTimer>& All();
    // The next CFRunLoopTimerCreate returns nullptr.
    static void FailNext();
};

#endif
