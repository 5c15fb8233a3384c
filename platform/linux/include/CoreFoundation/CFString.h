#ifndef COREFOUNDATION_CFSTRING_H
#define COREFOUNDATION_CFSTRING_H

/* Immutable text. Lengths and positions count UTF-16 units. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFArray* CFArrayRef;
typedef UInt32 CFStringEncoding;

/* The only encoding known here; a call that names another one fails. */
enum { kCFStringEncodingUTF8 = 0x08000100 };

/*
 * A copy of the NUL-terminated text, without a leading byte order mark. NULL if the text is NULL or
 * not valid UTF-8, or memory is short.
 */
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text,
                                      CFStringEncoding encoding);

/* A copy of `count` UTF-16 units, which may include unpaired surrogates. NULL if the count is
   negative, `characters` is NULL and the count is not 0, or memory is short. */
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters,
                                         CFIndex count);

/* The strings of the array in order, with the separator between each two; a NULL separator is
   empty. NULL if a member is not a string or memory is short. */
CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef strings,
                                             CFStringRef separator);

/* The length in UTF-16 units; 0 if `string` is not a string. */
CFIndex CFStringGetLength(CFStringRef string);

/* The maximum size in bytes of a string of that length in the encoding, without a terminator. 0 for
   an unknown encoding, kCFNotFound if the size does not fit into a CFIndex. */
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

/*
 * Copies the text and a terminator to a buffer of `size` bytes. False if the buffer is too small,
 * the encoding lacks a character (UTF-8 lacks unpaired surrogates) or is unknown, or `string` is
 * not a string; the buffer then contains an empty text, unless `size` is 0.
 */
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding);

/* Copies the UTF-16 units of the range to a buffer of range.length units. Does nothing if the range
   does not lie inside the string. The range may split a pair of surrogates. */
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);

CF_EXTERN_C_END

/*
 * CFSTR("literal") is a static object, so it needs no memory and cannot fail.
 */
#include <CoreFoundation/CFConstantString.h>

#endif
