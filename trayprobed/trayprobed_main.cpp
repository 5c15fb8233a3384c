/*
 * The daemon's entry point: initialises the modules in order, each only if the one before
 * succeeded; runs the run loop on the main thread; then terminates the initialised modules in
 * reverse order.
 */

#include "common/MessageLog.h"
#include "common/VErr.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string.h>

static const char kSourcePath[] = "trayprobed/trayprobed_main";

static const char kProcessTitle[] = "(trayprobed)";

// Copies the whole title, even if argv[0] is shorter: nothing uses the bytes behind the arguments.
static void SetProcessTitle(int argc, char** argv) {
    for (int i = 0; i < argc; i++)
        memset(argv[i], 0, strlen(argv[i]));
    if (argc == 0)
        return;
    char* title = argv[0];
    for (size_t i = 0; i < sizeof kProcessTitle; i++)
        title[i] = kProcessTitle[i];
}

int main(int argc, char** argv) {
    VErrLink* err = nullptr;
    const bool vErrSystemUp = InitVErrSystem() != 0;
    if (!vErrSystemUp) {
        LogMessage("%s: fail start VErr system\n", __func__);
        return 0;
    }

    VERR_STEP(err, InitMediaIdState(), "fail InitMediaIdState");
    const bool mediaIdStateUp = err == nullptr;
    VERR_STEP(err, InitChangerFSCacheState(), "fail InitChangerFSCacheState");
    const bool changerFSCacheStateUp = err == nullptr;
    VERR_STEP(err, InitMediaIdManager(), "fail InitMediaIdManager");
    const bool mediaIdManagerUp = err == nullptr;
    VERR_STEP(err, InitChangerFSCacheManager(), "fail InitChangerFSCacheManager");
    const bool changerFSCacheManagerUp = err == nullptr;

    if (changerFSCacheManagerUp) {
        SetProcessTitle(argc, argv);
        CFRunLoopRun();
    }

    // The exit status is always 0: failures are in the log.
    VErrLogAndCatch(&err);
    if (changerFSCacheManagerUp)
        TermChangerFSCacheManager();
    if (mediaIdManagerUp)
        TermMediaIdManager();
    if (changerFSCacheStateUp)
        TermChangerFSCacheState();
    if (mediaIdStateUp)
        TermMediaIdState();
    TermVErrSystem();
    return 0;
}
