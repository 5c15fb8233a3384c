#ifndef COREFOUNDATION_CFDATE_H
#define COREFOUNDATION_CFDATE_H

/* Absolute time: seconds since 2001-01-01 00:00:00 UTC by the wall clock. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

/* The seconds from 1970-01-01 to 2001-01-01. */
extern const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

/* The current time of the wall clock, which may be set while the program runs. Any thread. */
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

CF_EXTERN_C_END

#endif
