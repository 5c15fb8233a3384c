#ifndef TESTS_STRESS_RUNNINGDAEMON_H
#define TESTS_STRESS_RUNNINGDAEMON_H

/* One life of the daemon: its stages, brought up and taken down as its main does, on a thread that
   is its main thread. Nobody is at work any more when it ends. */

#include <CoreFoundation/CoreFoundation.h>

#include <future>
#include <thread>

class RunningDaemon {
public:
    // All stages are up.
    RunningDaemon();
    RunningDaemon(const RunningDaemon&) = delete;
    RunningDaemon& operator=(const RunningDaemon&) = delete;
    ~RunningDaemon();

private:
    std::promise<CFRunLoopRef> up_; // kept until its thread has ended
    std::thread main_;
    const CFRunLoopRef loop_; // the thread's own
};

#endif
