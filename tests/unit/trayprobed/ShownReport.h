#ifndef TESTS_UNIT_TRAYPROBED_SHOWNREPORT_H
#define TESTS_UNIT_TRAYPROBED_SHOWNREPORT_H

/* The progress report of a build, which is never freed if its status cannot be cleared. The message
   that is shown is a member of the report. */

#include "trayprobed/ChangerFSCacheThread.h"

#include <cstddef>

inline FSCacheStatusReport* ReportOf(const char* shownMessage) {
    char* const message = const_cast<char*>(shownMessage);
    return reinterpret_cast<FSCacheStatusReport*>(message - offsetof(FSCacheStatusReport, message));
}

#endif
