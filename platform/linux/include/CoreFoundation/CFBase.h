#ifndef COREFOUNDATION_CFBASE_H
#define COREFOUNDATION_CFBASE_H

/* The types that every other header needs, and reference counting. */

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

CF_EXTERN_C_BEGIN

/* Integers named by width. 64 bits are long long, as in the original: "%lld" and "%llX" fit. */
typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned short UInt16;
typedef signed short SInt16;
typedef unsigned int UInt32;
typedef signed int SInt32;
typedef unsigned long long UInt64;
typedef signed long long SInt64;
typedef UInt16 UniChar;

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef signed long CFIndex;

typedef const void* CFTypeRef;
typedef const void* CFPropertyListRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFNull* CFNullRef;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

/* The range of `length` items from `location` on. */
static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range = {location, length};
    return range;
}

enum { kCFNotFound = -1 };

/* Every allocator argument is ignored: all memory comes from malloc(). */
static const CFAllocatorRef kCFAllocatorDefault = 0;

/* The only null object: it stands for "no value" inside a collection. Never freed. */
extern const CFNullRef kCFNull;

/* Adds a reference and returns the object; NULL for NULL. Any thread. */
CFTypeRef CFRetain(CFTypeRef object);

/* Releases a reference. Releasing the last one frees the object, on the calling thread. Ignores
   NULL. Any thread. */
void CFRelease(CFTypeRef object);

/*
 * True if the objects are equal: by value for strings, numbers, data, dates, URLs and collections
 * of them, by identity for everything else. Numbers are equal across their widths, but a number
 * that was parsed and is above the signed 64-bit range equals only its own kind. NULL equals only
 * NULL.
 *
 * Collections compare their members and keys by this function; other callers are tests only.
 */
Boolean CFEqual(CFTypeRef first, CFTypeRef second);

/* The object's type, for comparison with CFArrayGetTypeID() or CFDictionaryGetTypeID(); 0 for NULL.
 */
CFTypeID CFGetTypeID(CFTypeRef object);

CF_EXTERN_C_END

#endif
