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

/* Any UTF-16 units, unpaired surrogates included. */
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* characters,
                                         CFIndex count);

/* The strings of the array, in order, with the separator between each two. */
CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef strings,
                                             CFStringRef separator);

CFIndex CFStringGetLength(CFStringRef string);

/* The most bytes that a string of that length takes in the encoding, without a terminator. */
CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

/*
 * Copies the text with its terminator. False when the buffer is too small (its first byte is then
 * 0, if it has one), when a character has no place in the encoding, or the encoding is unknown.
 */
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size,
                           CFStringEncoding encoding);

/* Copies the units of a range that lies inside the string; a pair of surrogates may be split. */
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);

CF_EXTERN_C_END

/*
 * A constant string is a static object of the program, so naming one never fails. The layout is
 * the library's own; use CFSTR.
 */
#include <CoreFoundation/CFConstantString.h>

#endif
