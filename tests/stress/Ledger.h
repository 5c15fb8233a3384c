#ifndef TESTS_STRESS_LEDGER_H
#define TESTS_STRESS_LEDGER_H

/*
 * Who is at work: the threads that the daemon starts, counted beside it, and what they log.
 */

#include <CoreFoundation/CoreFoundation.h>

namespace ledger {

/* Forgets everything. In a quiet round nothing may be logged, in others not everything. */
void BeginRound(bool quiet);

bool IsBeingIdentified(UInt64 changerGUID, UInt16 storageElem);
/* A withdrawal failed, so the element stays on the in-progress list for as long as the changer and
   the server that asked for it. */
bool IsOutOfReach(UInt64 changerGUID, UInt16 storageElem);
/*
 * The same, but that server has gone: the element is free with the next notification at the latest.
 */
bool WasLeftByFormerServer(UInt64 changerGUID, UInt16 storageElem);
/* Builds that have started and have not yet begun to end. */
int CountBuilds(UInt64 changerGUID);
/* Whether a worker's or a build's thread runs. */
bool IsAnybodyAtWork();

} // namespace ledger

#endif
