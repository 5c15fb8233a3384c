#ifndef TESTS_SYSTEM_FAULTDIRECTOR_H
#define TESTS_SYSTEM_FAULTDIRECTOR_H

#include "FaultPlan.h"
#include "testbed/Daemon.h"
#include "tests/unit/support/NotCopyable.h"

#include <string>
#include <string_view>

/* Makes calls of a running daemon fail. Functions throw testbed::Failure on errors. */
class FaultDirector : NotCopyable {
public:
    // Creates the plan, without a fault; the destructor deletes it.
    FaultDirector();
    ~FaultDirector();

    // Returns the parameters with which to start the daemon. Its monotonic clock is faster by
    // kHaste.
    testbed::DaemonStart Start() const;

    // Makes the nth call (from 1) from now on fail. The daemon then writes kFaultNotice.
    void Arm(std::string_view call, int error, int nth);
    // Ends the fault; returns whether the call has failed.
    bool Disarm();

    // Returns the number of the daemon's waits for events since the last call.
    long TakeWaits();

private:
    std::string path_ = "/tmp/fault-plan";
    FaultPlan* plan_;
};

#endif
