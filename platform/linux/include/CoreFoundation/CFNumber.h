#ifndef COREFOUNDATION_CFNUMBER_H
#define COREFOUNDATION_CFNUMBER_H

/* Numbers and the two boolean objects. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

typedef enum {
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat64Type = 6
} CFNumberType;

/* A number from the native value of that type, which is read from the given address. */
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

/*
 * Writes the number to the given address as that type, truncated when it must be, and returns
 * whether the value survived. The 8- and 16-bit types also accept the unsigned values of their
 * width. An object that is no number is left unread: false, and nothing is written.
 */
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

CF_EXTERN_C_END

#endif
