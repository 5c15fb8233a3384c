#ifndef COMMON_CFHELPERS_H
#define COMMON_CFHELPERS_H

/*
 * Typed values in property-list dictionaries and arrays, and text conversions.
 *
 * Integers are stored as numbers of their own width, unsigned ones bit for bit through the signed
 * type; pointers as 64-bit numbers; booleans as the two shared boolean objects. A Get whose key is
 * missing leaves the output as it was; one whose conversion fails leaves what the conversion
 * wrote. A Set that fails leaves the collection as it was. Adjust adds a delta, wrapping in the
 * width, to a value that must be there. None of these functions logs; each is as thread-safe as
 * the collection that it is given.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* ---- dictionaries ---- */

VErrLink* CFHDictionaryGetSInt64Value(CFDictionaryRef dict, CFStringRef key, SInt64* value);
VErrLink* CFHDictionarySetSInt64Value(CFMutableDictionaryRef dict, CFStringRef key, SInt64 value);
VErrLink* CFHDictionaryAdjustSInt64Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         SInt64 delta);
VErrLink* CFHDictionaryGetUInt64Value(CFDictionaryRef dict, CFStringRef key, UInt64* value);
VErrLink* CFHDictionarySetUInt64Value(CFMutableDictionaryRef dict, CFStringRef key, UInt64 value);
VErrLink* CFHDictionaryAdjustUInt64Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         UInt64 delta);
VErrLink* CFHDictionaryGetSInt32Value(CFDictionaryRef dict, CFStringRef key, SInt32* value);
VErrLink* CFHDictionarySetSInt32Value(CFMutableDictionaryRef dict, CFStringRef key, SInt32 value);
VErrLink* CFHDictionaryAdjustSInt32Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         SInt32 delta);
VErrLink* CFHDictionaryGetUInt32Value(CFDictionaryRef dict, CFStringRef key, UInt32* value);
VErrLink* CFHDictionarySetUInt32Value(CFMutableDictionaryRef dict, CFStringRef key, UInt32 value);
VErrLink* CFHDictionaryAdjustUInt32Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         UInt32 delta);
VErrLink* CFHDictionaryGetSInt16Value(CFDictionaryRef dict, CFStringRef key, SInt16* value);
VErrLink* CFHDictionarySetSInt16Value(CFMutableDictionaryRef dict, CFStringRef key, SInt16 value);
VErrLink* CFHDictionaryAdjustSInt16Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         SInt16 delta);
VErrLink* CFHDictionaryGetUInt16Value(CFDictionaryRef dict, CFStringRef key, UInt16* value);
VErrLink* CFHDictionarySetUInt16Value(CFMutableDictionaryRef dict, CFStringRef key, UInt16 value);
VErrLink* CFHDictionaryAdjustUInt16Value(CFMutableDictionaryRef dict, CFStringRef key,
                                         UInt16 delta);
VErrLink* CFHDictionaryGetAddrValue(CFDictionaryRef dict, CFStringRef key, void** value);
VErrLink* CFHDictionarySetAddrValue(CFMutableDictionaryRef dict, CFStringRef key, void* value);

/* Sizes are in bytes and count the terminator. A failed lookup leaves an empty string. */
VErrLink* CFHDictionaryGetStringValue(CFDictionaryRef dict, CFStringRef key, CFIndex size,
                                      CFStringEncoding encoding, char* buffer);
VErrLink* CFHDictionarySetStringValue(CFMutableDictionaryRef dict, CFStringRef key,
                                      const char* text, CFStringEncoding encoding);

/* Flags are 0 or 1; any other number sets true. Set never fails. */
VErrLink* CFHDictionaryGetBoolValue(CFDictionaryRef dict, CFStringRef key, SInt32* flag);
VErrLink* CFHDictionarySetBoolValue(CFMutableDictionaryRef dict, CFStringRef key, SInt32 flag);

/* ---- arrays ----
 * Get and Adjust take an index inside the array. Set beyond the end fills the gap with kCFNull. */

VErrLink* CFHArrayPadToValueAtIndex(CFMutableArrayRef array, CFIndex index, CFTypeRef value);

VErrLink* CFHArrayGetSInt64Value(CFArrayRef array, CFIndex index, SInt64* value);
VErrLink* CFHArraySetSInt64Value(CFMutableArrayRef array, CFIndex index, SInt64 value);
VErrLink* CFHArrayAppendSInt64Value(CFMutableArrayRef array, SInt64 value);
VErrLink* CFHArrayAdjustSInt64Value(CFMutableArrayRef array, CFIndex index, SInt64 delta);
VErrLink* CFHArrayGetUInt64Value(CFArrayRef array, CFIndex index, UInt64* value);
VErrLink* CFHArraySetUInt64Value(CFMutableArrayRef array, CFIndex index, UInt64 value);
VErrLink* CFHArrayAppendUInt64Value(CFMutableArrayRef array, UInt64 value);
VErrLink* CFHArrayAdjustUInt64Value(CFMutableArrayRef array, CFIndex index, UInt64 delta);
VErrLink* CFHArrayGetSInt32Value(CFArrayRef array, CFIndex index, SInt32* value);
VErrLink* CFHArraySetSInt32Value(CFMutableArrayRef array, CFIndex index, SInt32 value);
VErrLink* CFHArrayAppendSInt32Value(CFMutableArrayRef array, SInt32 value);
VErrLink* CFHArrayAdjustSInt32Value(CFMutableArrayRef array, CFIndex index, SInt32 delta);
VErrLink* CFHArrayGetUInt32Value(CFArrayRef array, CFIndex index, UInt32* value);
VErrLink* CFHArraySetUInt32Value(CFMutableArrayRef array, CFIndex index, UInt32 value);
VErrLink* CFHArrayAppendUInt32Value(CFMutableArrayRef array, UInt32 value);
VErrLink* CFHArrayAdjustUInt32Value(CFMutableArrayRef array, CFIndex index, UInt32 delta);
VErrLink* CFHArrayGetSInt16Value(CFArrayRef array, CFIndex index, SInt16* value);
VErrLink* CFHArraySetSInt16Value(CFMutableArrayRef array, CFIndex index, SInt16 value);
VErrLink* CFHArrayAppendSInt16Value(CFMutableArrayRef array, SInt16 value);
VErrLink* CFHArrayAdjustSInt16Value(CFMutableArrayRef array, CFIndex index, SInt16 delta);
VErrLink* CFHArrayGetUInt16Value(CFArrayRef array, CFIndex index, UInt16* value);
VErrLink* CFHArraySetUInt16Value(CFMutableArrayRef array, CFIndex index, UInt16 value);
VErrLink* CFHArrayAppendUInt16Value(CFMutableArrayRef array, UInt16 value);
VErrLink* CFHArrayAdjustUInt16Value(CFMutableArrayRef array, CFIndex index, UInt16 delta);
VErrLink* CFHArrayGetAddrValue(CFArrayRef array, CFIndex index, void** value);
VErrLink* CFHArraySetAddrValue(CFMutableArrayRef array, CFIndex index, void* value);
VErrLink* CFHArrayAppendAddrValue(CFMutableArrayRef array, void* value);

/* Unlike the dictionary's, a failed lookup leaves the buffer alone. */
VErrLink* CFHArrayGetStringValue(CFArrayRef array, CFIndex index, CFIndex size,
                                 CFStringEncoding encoding, char* buffer);
VErrLink* CFHArraySetStringValue(CFMutableArrayRef array, CFIndex index, const char* text,
                                 CFStringEncoding encoding);
VErrLink* CFHArrayAppendStringValue(CFMutableArrayRef array, const char* text,
                                    CFStringEncoding encoding);

VErrLink* CFHArrayGetBoolValue(CFArrayRef array, CFIndex index, SInt32* flag);
VErrLink* CFHArraySetBoolValue(CFMutableArrayRef array, CFIndex index, SInt32 flag);
VErrLink* CFHArrayAppendBoolValue(CFMutableArrayRef array, SInt32 flag);

/* ---- text ---- */

/* The new string belongs to the caller; null on failure. */
VErrLink* CFHStringCreateWithConcatenation(CFStringRef first, CFStringRef second,
                                           CFStringRef* joined);
/* Puts the joined string in the place of the first, which is released; unchanged on failure. */
VErrLink* CFHStringConcatenate(CFStringRef* string, CFStringRef appended);

/* The caller frees the text with free; null on failure, which has code kVErrCodeStringEncoding
   when the encoding lacks a character. */
VErrLink* CFHAllocCStringFromCFString(CFStringRef string, CFStringEncoding encoding, char** text);

/* A platform error text in UTF-8, freed by the caller; null when there is none. */
char* CFHAllocErrorText(CFStringRef text);

/* Copies at most capacity UTF-16 units, without terminator; length receives how many. */
VErrLink* CFHConvertFromUTF8ToUniStr(const char* text, UniChar* buffer, UInt16 capacity,
                                     UInt16* length);
VErrLink* CFHConvertFromUniStrToUTF8(const UniChar* characters, UInt16 count, char* buffer,
                                     CFIndex size);

/* ---- shorthand ---- */

inline void CFHReleaseIfSet(CFTypeRef object) {
    if (object != nullptr)
        CFRelease(object);
}

/* A boolean setting counts as true only when its value is the shared true object. */
inline bool CFHDictionaryIsTrue(CFDictionaryRef dict, CFStringRef key) {
    return CFDictionaryGetValue(dict, key) == kCFBooleanTrue;
}

/* Stores the value and returns whether it took its place: a dictionary that finds no memory to grow
   stays as it was, without a word. */
inline bool CFHDictionaryStore(CFMutableDictionaryRef dict, CFTypeRef key, CFTypeRef value) {
    if (dict == nullptr)
        return false;
    CFDictionarySetValue(dict, key, value);
    return CFDictionaryGetValue(dict, key) == value;
}

/* The collection under a key, borrowed; null when it is absent or something else. */
inline CFDictionaryRef CFHDictionaryFindDictionary(CFDictionaryRef dict, CFStringRef key) {
    CFTypeRef value = CFDictionaryGetValue(dict, key);
    const bool fits = value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID();
    return static_cast<CFDictionaryRef>(fits ? value : nullptr);
}
inline CFArrayRef CFHDictionaryFindArray(CFDictionaryRef dict, CFStringRef key) {
    CFTypeRef value = CFDictionaryGetValue(dict, key);
    const bool fits = value != nullptr && CFGetTypeID(value) == CFArrayGetTypeID();
    return static_cast<CFArrayRef>(fits ? value : nullptr);
}

/* Numbers as the typed setters store them; the caller owns them. Null when memory is short. */
inline CFNumberRef CFHCreateUInt64Number(UInt64 value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
}
inline CFNumberRef CFHCreateUInt16Number(UInt16 value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt16Type, &value);
}
inline CFMutableDictionaryRef CFHCreateMutableDictionary(void) {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}
inline CFRange CFHWholeArray(CFArrayRef array) {
    return CFRangeMake(0, CFArrayGetCount(array));
}

#endif
