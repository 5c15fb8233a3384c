#ifndef TESTS_STRESS_LEDGER_H
#define TESTS_STRESS_LEDGER_H

/*
 * What the daemon must know, counted beside it: the threads that it starts, the lists that were
 * sent and that it saved, and what it logs. Wrap the functions of kLedgerWraps.
 */

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>

namespace ledger {

// Forgets everything. In a quiet round nothing may be logged.
void BeginRound(bool quiet);

// ---- threads ----

bool IsBeingIdentified(UInt64 changerGUID, UInt16 storageElem);
// A withdrawal failed, so the element stays on the in-progress list for as long as the changer.
bool IsOutOfReach(UInt64 changerGUID, UInt16 storageElem);
// Builds that have started and have not yet begun to end.
int CountBuilds(UInt64 changerGUID);
// Whether a worker's or a build's thread runs.
bool IsAnybodyAtWork();

// ---- changer info lists ----

void NoteListSent();
// Until no more than that many are on the way; false when the flag is set, which Wake tells of.
bool AwaitListsUnderWay(long most, const std::atomic<bool>& giveUp);
void Wake();
long CountListsSent();
// Until so many were saved in this round; throws stage::Failure when that never happens.
void AwaitListsSaved(long count);

// The daemon keeps each list for ever; what it has replaced is given up here, when nobody reads.
void ReleaseReplacedLists();

} // namespace ledger

#endif
