#ifndef COMMON_WALLCLOCK_H
#define COMMON_WALLCLOCK_H

/*
 * Time-outs by the wall clock.
 */

#include <time.h>

/* The whole seconds since *start. If the clock was set back to a time before *start, *start becomes
   the present time: the time-out begins again, and is not extended by the change. Any thread. */
double SecondsSince(time_t* start);

#endif
