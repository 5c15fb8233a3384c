#ifndef TESTS_STRESS_SHORTTIMES_H
#define TESTS_STRESS_SHORTTIMES_H

/*
 * The daemon's time, made short: the clock that its loops look at runs forty times as fast,
 * a sleep lasts milliseconds, and so do the delays of its timers.
 *
 *   next attempt to connect   2 milliseconds
 *   daily build               at once to 4 milliseconds after it is set, then daily
 *   reply                     as long as ever, or at most 20 milliseconds
 */

namespace short_times {

void ShortenReplyTimeouts(bool shorten);

/* Whether a daily timer is set that has not fired yet. */
bool HasPendingDailyTimer();

} // namespace short_times

#endif
