#ifndef COREFOUNDATION_CFNUMBER_H
#define COREFOUNDATION_CFNUMBER_H

/* Numbers and the two boolean objects. Both are immutable. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;

/* The only booleans, so identity compares them. Never freed. */
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

/* The native types. Only tests use kCFNumberFloat64Type. */
typedef enum {
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat64Type = 6
} CFNumberType;

/* A number from the native value of that type at the address `value`. NULL if the address is NULL,
   the type is unknown, or memory is short. */
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);

/*
 * Writes the number as that type to the address `value`. Returns true if the value is unchanged,
 * and false if it had to be truncated. The 16-bit type accepts also the unsigned values of its
 * width. If `number` is not a number, `value` is NULL or the type is unknown: false, and nothing is
 * written.
 */
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

CF_EXTERN_C_END

#endif
