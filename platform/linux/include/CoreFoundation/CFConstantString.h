#ifndef COREFOUNDATION_CFCONSTANTSTRING_H
#define COREFOUNDATION_CFCONSTANTSTRING_H

/* What CFSTR leaves in the program. The first members are those of every object. */

#include <CoreFoundation/CFBase.h>

#endif
