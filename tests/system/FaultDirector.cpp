#include "FaultDirector.h"

#include "Calls.h"
#include "testbed/Descriptor.h"
#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>

using testbed::Require;

FaultDirector::FaultDirector() {
    const testbed::Descriptor file(
        open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    Require(ftruncate(file.Get(), sizeof(FaultPlan)) == 0, "cannot make " + path_);
    void* const memory =
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
    Require(memory != MAP_FAILED, "cannot share " + path_);
    plan_ = new (memory) FaultPlan;
}

FaultDirector::~FaultDirector() {
    munmap(plan_, sizeof(FaultPlan));
    unlink(path_.c_str());
}

// The address sanitizer's library refuses to start behind another one unless its check is disabled.
testbed::DaemonStart FaultDirector::Start() const {
    testbed::DaemonStart start;
    start.environment = {"LD_PRELOAD=" + testbed::ProgramPath("libfaulty-calls.so"),
                         std::string(kFaultPlanVariable) + "=" + path_,
                         "ASAN_OPTIONS=verify_asan_link_order=0"};
    return start;
}

void FaultDirector::Arm(std::string_view call, int error, int nth) {
    plan_->error = error;
    plan_->untilFault = nth;
    plan_->call = IndexOfFaultyCall(call);
}

bool FaultDirector::Disarm() {
    plan_->call = -1;
    return plan_->untilFault <= 0;
}

long FaultDirector::TakeWaits() {
    return plan_->waits.exchange(0);
}
