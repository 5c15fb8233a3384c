#include "RunningDaemon.h"

#include "EventCounts.h"
#include "common/VErr.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

namespace {

void RunMain(std::promise<CFRunLoopRef>& up) {
    InitVErrSystem();
    for (const auto init : {InitMediaIdState, InitChangerFSCacheState, InitMediaIdManager,
                            InitChangerFSCacheManager}) {
        if (init() != nullptr)
            event_counts::ReportProblem("the daemon does not start");
    }
    up.set_value(CFRunLoopGetCurrent());
    CFRunLoopRun();
    TermChangerFSCacheManager();
    TermMediaIdManager();
    TermChangerFSCacheState();
    TermMediaIdState();
    TermVErrSystem();
}

} // namespace

RunningDaemon::RunningDaemon() : main_([this] { RunMain(up_); }), loop_(up_.get_future().get()) {}

RunningDaemon::~RunningDaemon() {
    CFRunLoopStop(loop_);
    main_.join();
}
