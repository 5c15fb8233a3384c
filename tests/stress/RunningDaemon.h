#ifndef TESTS_STRESS_RUNNINGDAEMON_H
#define TESTS_STRESS_RUNNINGDAEMON_H

/* The daemon's modules, initialised and terminated as its main does, on a thread that acts as its
   main thread. No other thread of the daemon runs at the end. */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

#include <future>
#include <thread>

class RunningDaemon : NotCopyable {
public:
    // Returns when all modules are initialised.
    RunningDaemon();
    ~RunningDaemon();

private:
    std::promise<CFRunLoopRef> up_; // must outlive the thread
    std::thread main_;
    const CFRunLoopRef loop_; // of the thread
};

#endif
