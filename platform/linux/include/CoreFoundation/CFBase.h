#ifndef COREFOUNDATION_CFBASE_H
#define COREFOUNDATION_CFBASE_H

/* The types that every other header needs, and the life of objects. */

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

CF_EXTERN_C_BEGIN

/* Named by width as on the original, where 64 bits are long long: "%lld" and "%llX" fit. */
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

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range = {location, length};
    return range;
}

enum { kCFNotFound = -1 };

/* The only allocator. Every allocator argument is ignored. */
static const CFAllocatorRef kCFAllocatorDefault = 0;

/* The one object that stands for "no value" inside a collection. */
extern const CFNullRef kCFNull;

/* Adds a reference and returns the object. Any thread. NULL stays NULL. */
CFTypeRef CFRetain(CFTypeRef object);

/* Gives a reference up; the last one frees the object. Any thread. NULL is ignored. */
void CFRelease(CFTypeRef object);

/*
 * Equality by value for strings, numbers, booleans, data, dates, URLs and collections of them, by
 * identity for everything else. Numbers are equal across their widths, but a number parsed from a
 * text above the signed 64-bit range equals only its own kind.
 */
Boolean CFEqual(CFTypeRef first, CFTypeRef second);

/* The object's type, to be compared with what a type's own GetTypeID function gives; 0 for NULL. */
CFTypeID CFGetTypeID(CFTypeRef object);

CF_EXTERN_C_END

#endif
