#ifndef TESTS_STRESS_INFOLISTS_H
#define TESTS_STRESS_INFOLISTS_H

/* The "changer info" lists of a round: the number sent, and those that the daemon saved.
   Thread-safe. */

#include <atomic>

namespace info_lists {

void BeginRound();

void CountSentList();
long SentCount();
/* Waits until at most `most` lists are sent and not saved. Returns false when `isCancelled` is set;
   call NotifyWaiters() after setting it. */
bool AwaitPendingAtMost(long most, const std::atomic<bool>& isCancelled);
void NotifyWaiters();
/* Waits until `count` lists were saved; throws testbed::Failure after testbed::kTimeOut. */
void AwaitSaved(long count);

/* Releases the lists that the daemon has replaced and never releases by design. Call when no thread
   of the daemon runs. */
void ReleaseReplaced();

} // namespace info_lists

#endif
