#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

/* Ordered collections of objects, which they retain. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

/* How a collection treats its members. There is one way here: retained, compared by CFEqual. */
typedef struct {
    CFIndex version;
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;

CFTypeID CFArrayGetTypeID(void);

/* Capacity is a hint. */
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks);

/* A shallow copy; every member is retained once more. */
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                           CFArrayRef array);

CFIndex CFArrayGetCount(CFArrayRef array);

/* Borrowed. NULL outside the array. */
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

/* The first equal member inside the range, or kCFNotFound. */
CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value);
Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value);

/* Short of memory the array stays as it was: compare the count. NULL is not a member. */
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

/* Replaces the member; at index == count it appends. Beyond that nothing happens. */
void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);
void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);

CF_EXTERN_C_END

#endif
