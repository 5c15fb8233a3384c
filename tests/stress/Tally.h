#ifndef TESTS_STRESS_TALLY_H
#define TESTS_STRESS_TALLY_H

/* What happened how often, and what was wrong. Any thread. */

#include <string>

enum class Kind {
    // what the server pushed
    kChangerList,
    kChangerRemoved,
    kChangerAddedAnew,
    kRootPreferences,
    kChangerInfo,
    kMediaInfo,
    kLongList,
    kIdentificationRequest,
    kBuildRequest,
    kAbortRequest,
    kDailyBuildSet,
    // what the daemon did
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
    // what it asked for, and what came of it
    kWithdrawal,
    kMount,
    kEject,
    kStatusShown,
    kStatusCleared,
    kAnswerInPieces,
    kAnswerLate,
    kServerBusy,
    kErrorAnswer,
    kNoAnswer,
    kClosedUnanswered,
    // what befell it
    kServerRestart,
    kNotificationCut,
    kConnectionClosed,
    kVolumeMounted,
    kVolumeUnmounted,
    kDiscTaken,
    kDiscPutBack,
    kStateChecked,
    kRest,
    kCount
};

namespace tally {

void Count(Kind kind);
/* One line each, and a complaint for each kind that never happened. */
void Report();

bool HasEverythingHappened();

/* Each text is told once. */
void Complain(const std::string& text);
bool HasComplaints();

} // namespace tally

#endif
