#ifndef COREFOUNDATION_CFARRAY_H
#define COREFOUNDATION_CFARRAY_H

/*
 * Ordered collections of objects. An array retains its members and releases them when they are
 * removed or the array is freed. Indexes begin at 0. CFRetain and CFRelease may be called from any
 * thread; see CoreFoundation.h for the rest.
 */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

/* How an array treats its members. Only one way exists here: retained, compared by CFEqual. The
   callBacks arguments are ignored. */
typedef struct {
    CFIndex version;
} CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;

/* The type of arrays, mutable or not, as CFGetTypeID() returns it. */
CFTypeID CFArrayGetTypeID(void);

/* An empty array. The capacity is ignored: the array grows as needed. */
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);

/* An immutable array of the `count` objects at `values`, which it retains. NULL if one of them is
   NULL, `values` is NULL and `count` is not 0, `count` is negative or above 2^30, or memory is
   short. */
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks);

/* A shallow copy, whose members are retained once more. The capacity is ignored. NULL if `array` is
   not an array or memory is short. */
CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                           CFArrayRef array);

/* The number of members; 0 if `array` is not an array. */
CFIndex CFArrayGetCount(CFArrayRef array);

/* The member, borrowed from the array. NULL if the index is out of bounds. */
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

/* The index of the first member inside the range that equals `value`; kCFNotFound if there is none
   or the range exceeds the array. ContainsValue: true if there is such a member. */
CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef array, CFRange range, const void* value);
Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value);

/* Retains and appends the value. Does nothing if the value is NULL, the array is immutable, or
   memory is short: only the count shows that. */
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

/* Replaces the member at `index`; if `index` equals the count, appends. Does nothing in the cases
   of CFArrayAppendValue, and if the index is out of bounds. */
void CFArraySetValueAtIndex(CFMutableArrayRef array, CFIndex index, const void* value);

/* Removes and releases the member. Does nothing if the index is out of bounds or the array is
   immutable. */
void CFArrayRemoveValueAtIndex(CFMutableArrayRef array, CFIndex index);

CF_EXTERN_C_END

#endif
