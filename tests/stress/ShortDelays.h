#ifndef TESTS_STRESS_SHORTDELAYS_H
#define TESTS_STRESS_SHORTDELAYS_H

/*
 * Shortens the daemon's delays: time() runs and sleep() ends forty times as fast, and timers fire
 * after milliseconds.
 *
 *   connect timer     2 ms
 *   daily build       0 to 4 ms after it is set, then daily
 *   reply time-out    unchanged, or at most 20 ms
 */

namespace short_delays {

void ShortenReplyTimeouts(bool shorten);

/* True if a daily timer is set and has not fired yet. */
bool HasPendingDailyTimer();

} // namespace short_delays

#endif
