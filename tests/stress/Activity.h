#ifndef TESTS_STRESS_ACTIVITY_H
#define TESTS_STRESS_ACTIVITY_H

/* Counts the threads that the daemon starts and checks the lines that they log.
   Thread-safe. */

#include <CoreFoundation/CoreFoundation.h>

namespace activity {

/* Resets the stuck elements. Any logged line is a problem if `logMustBeEmpty`, otherwise only the
   lines that are always wrong. */
void BeginRound(bool logMustBeEmpty);

/* True while a worker thread runs for the element. */
bool IsBeingIdentified(UInt64 changerGUID, UInt16 storageElem);
/* True if a withdrawal failed: the element stays on the in-progress list as long as its changer is
   known and the server that sent the request runs. */
bool IsStuck(UInt64 changerGUID, UInt16 storageElem);
/* The same, but the server has gone: the next notification removes the element from the list. */
bool IsStuckOfFormerServer(UInt64 changerGUID, UInt16 storageElem);
/* Builds that have started and have not yet cleared their in-progress flag. */
int CountBuilds(UInt64 changerGUID);
/* True while a worker or build thread runs. */
bool HasThreads();

} // namespace activity

#endif
