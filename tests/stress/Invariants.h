#ifndef TESTS_STRESS_INVARIANTS_H
#define TESTS_STRESS_INVARIANTS_H

/* Invariants of the daemon's state: those that hold whenever the state lock is free, and those that
   hold when the daemon is idle. A violation is a problem in EventCounts.h. */

#include "support/NotCopyable.h"

#include <atomic>
#include <thread>

/* Checks the state repeatedly, with the state lock held, on a thread of its own. */
class StateObserver : NotCopyable {
public:
    StateObserver() : thread_([this] { CheckRepeatedly(); }) {}
    ~StateObserver() {
        isStopped_ = true;
        thread_.join();
    }

private:
    void CheckRepeatedly();

    std::atomic<bool> isStopped_ = false;
    std::thread thread_;
};

/* True if the daemon knows all changers and their mount points and has no work. */
bool IsIdle();
/* Checks that no build and no abort flag is left, and that only stuck elements are in progress;
   with `changersReadded` (all changers were removed and added again), that none is. */
void CheckIdleState(bool changersReadded);

#endif
