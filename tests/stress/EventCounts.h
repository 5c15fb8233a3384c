#ifndef TESTS_STRESS_EVENTCOUNTS_H
#define TESTS_STRESS_EVENTCOUNTS_H

/* Counts of events by kind, and problems that were found. Thread-safe. */

#include <string>

enum class EventKind {
    // contents of notifications
    kChangerList,
    kChangerRemoved,
    kChangerReadded,
    kRootPreferences,
    kChangerInfo,
    kMediaInfo,
    kLongList,
    kIdentificationRequest,
    kBuildRequest,
    kAbortRequest,
    kDailyBuildSet,
    // actions of the daemon
    kListSaved,
    kWorkerStarted,
    kWorkerEnded,
    kBuildStarted,
    kBuildEnded,
    kWalkAborted,
    kDailyTimerFired,
    kConnectTimerFired,
    kReplyTimedOut,
    kLineLogged,
    // requests of the daemon, and replies
    kWithdrawal,
    kMount,
    kEject,
    kStatusShown,
    kStatusCleared,
    kReplyInPieces,
    kLateReply,
    kServerBusy,
    kErrorReply,
    kNoReply,
    kClosedWithoutReply,
    // events outside the daemon
    kServerRestart,
    kNotificationTruncated,
    kConnectionClosed,
    kVolumeMounted,
    kVolumeUnmounted,
    kDiscRemoved,
    kDiscPutBack,
    kBusyStateChecked,
    kIdleStateChecked,
    kCount
};

namespace event_counts {

void Count(EventKind kind);
/* Prints one line per kind and reports each kind with count 0 as a problem. */
void Report();

/* True if no count is 0. */
bool HasEveryEvent();

/* Prints a problem to standard error, each text once. */
void ReportProblem(const std::string& text);
bool HasProblems();

} // namespace event_counts

#endif
