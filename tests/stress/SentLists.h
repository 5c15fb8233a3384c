#ifndef TESTS_STRESS_SENTLISTS_H
#define TESTS_STRESS_SENTLISTS_H

/* The changer info lists of a round: how many were sent, and which of them the daemon saved. */

#include <atomic>

namespace sent_lists {

void BeginRound();

void NoteSent();
long CountSent();
/* Until no more than that many are under way; false when the flag is set, of which Wake tells. */
bool AwaitUnderWay(long most, const std::atomic<bool>& giveUp);
void Wake();
/* Until so many were saved; throws testbed::Failure when that never happens. */
void AwaitSaved(long count);

/* The daemon keeps each list for ever. What it has replaced is given up here, once nobody reads. */
void ReleaseReplaced();

} // namespace sent_lists

#endif
