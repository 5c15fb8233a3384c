#ifndef COREFOUNDATION_CFDATA_H
#define COREFOUNDATION_CFDATA_H

/* Byte buffers. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;

/* An immutable copy of the bytes. NULL if the length is negative, `bytes` is NULL and the length is
   not 0, or memory is short. */
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

/* An empty buffer, which grows when bytes are appended. A capacity above 0 is its maximum length.
 */
CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);

/* The length in bytes; 0 if `data` is not a data object. */
CFIndex CFDataGetLength(CFDataRef data);

/* The bytes, borrowed until the data is changed or freed. NULL only if `data` is not a data object:
   an empty one has a valid pointer, too. */
const UInt8* CFDataGetBytePtr(CFDataRef data);

/* Appends a copy of the bytes. Does nothing if the length is not above 0, the maximum length would
   be exceeded, or memory is short: only the length shows that. */
void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length);

CF_EXTERN_C_END

#endif
