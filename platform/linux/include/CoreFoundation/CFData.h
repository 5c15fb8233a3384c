#ifndef COREFOUNDATION_CFDATA_H
#define COREFOUNDATION_CFDATA_H

/* Byte buffers. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;

/* A copy of the bytes. */
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

/* An empty buffer that grows as it is appended to; a capacity above 0 is its greatest length. */
CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

CFIndex CFDataGetLength(CFDataRef data);

/* Borrowed until the data changes or goes. Never NULL for a data object, not even an empty one. */
const UInt8* CFDataGetBytePtr(CFDataRef data);

/* Short of memory or capacity, or with a negative length, the buffer stays as it was: compare
   the length. */
void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length);

CF_EXTERN_C_END

#endif
