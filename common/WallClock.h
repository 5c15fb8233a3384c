#ifndef COMMON_WALLCLOCK_H
#define COMMON_WALLCLOCK_H

/*
 * Time-outs by the wall clock, in whole seconds. Any thread.
 */

#include <time.h>

/* The seconds since *start. A clock that was set back behind it starts the time-out anew, as if
   *start were now; otherwise it would last as much longer. */
double SecondsSince(time_t* start);

#endif
