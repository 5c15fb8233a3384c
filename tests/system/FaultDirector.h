#ifndef TESTS_SYSTEM_FAULTDIRECTOR_H
#define TESTS_SYSTEM_FAULTDIRECTOR_H

#include "FaultPlan.h"
#include "testbed/Daemon.h"

#include <string>
#include <string_view>

/*
 * Lets the calls of a running daemon fail, one after the other, without starting it anew for each.
 */
class FaultDirector {
public:
    FaultDirector();
    ~FaultDirector();
    FaultDirector(const FaultDirector&) = delete;
    FaultDirector& operator=(const FaultDirector&) = delete;

    // How a daemon is to be started for it.
    testbed::DaemonStart Start() const;

    // From now on lets the nth call (from 1) fail. The daemon says kFaultNotice then.
    void Arm(std::string_view call, int error, int nth);
    // Lets all succeed again; whether one has failed.
    bool Disarm();

    // How often the daemon has looked for something to do since it was asked last.
    long TakeWaits();

private:
    std::string path_ = "/tmp/fault-plan";
    FaultPlan* plan_;
};

#endif
