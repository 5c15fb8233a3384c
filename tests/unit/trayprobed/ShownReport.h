#ifndef TESTS_UNIT_TRAYPROBED_SHOWNREPORT_H
#define TESTS_UNIT_TRAYPROBED_SHOWNREPORT_H

/* The progress record of a build, which is kept for good when its status cannot be cleared. A test
   finds it by the message that is shown, which lies inside of it. */

#include "trayprobed/ChangerFSCacheThread.h"

#include <cstddef>

inline FSCacheStatusReport* ReportOf(const char* shownMessage) {
    char* const message = const_cast<char*>(shownMessage);
    return reinterpret_cast<FSCacheStatusReport*>(message - offsetof(FSCacheStatusReport, message));
}

#endif
