#ifndef COMMON_WALLCLOCK_H
#define COMMON_WALLCLOCK_H

/*
 * Time-outs by the wall clock, in whole seconds. Any thread.
 */

#include <time.h>

/* The seconds since *start. A clock that was set back behind it makes *start now: the time-out then
   begins anew, instead of lasting as much longer. */
double SecondsSince(time_t* start);

#endif
