#ifndef COREFOUNDATION_CFDATE_H
#define COREFOUNDATION_CFDATE_H

/* Absolute time: seconds since 2001-01-01 00:00:00 UTC by the wall clock. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

/* From 1970-01-01 to the reference date. */
extern const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

CF_EXTERN_C_END

#endif
