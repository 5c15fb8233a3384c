#ifndef COMMON_CFHELPERS_H
#define COMMON_CFHELPERS_H

/*
 * Typed values in property-list dictionaries and arrays, and text conversion.
 *
 * An integer is stored as a number object of its own width; an unsigned integer bit for bit as the
 * signed integer of the same width; a pointer as a 64-bit number; a flag as kCFBooleanTrue or
 * kCFBooleanFalse; text as a string object.
 *
 * Only the collection owns the objects that are stored here. A setter or an append that fails
 * leaves the collection as it was. Sizes of text buffers are in bytes and include the
 * terminator. Errors have the default code unless a contract names another, and are not logged.
 *
 * Any thread may call these functions, and none blocks. The caller serialises the access to a
 * collection that several threads use.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* ---- dictionaries ---- */

/* Get fails if the key is missing, and then leaves *value as it was; or if its value is not a
   number that the type can represent, and then *value is unspecified. Set replaces any value of the
   key. Adjust adds delta to the number of the key, wrapping in its width; a missing key is an
   error. */
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

/* Get copies the text of the key; it fails if the key is missing or the text does not fit into size
   bytes of the encoding. A missing key makes the buffer an empty string. */
VErrLink* CFHDictionaryGetStringValue(CFDictionaryRef dict, CFStringRef key, CFIndex size,
                                      CFStringEncoding encoding, char* buffer);
VErrLink* CFHDictionarySetStringValue(CFMutableDictionaryRef dict, CFStringRef key,
                                      const char* text, CFStringEncoding encoding);

/* Get writes 0 or 1. It fails, and leaves *flag as it was, if the key is missing or its value is
   not a boolean. Set stores true for any flag but 0. It always returns null: without memory, the
   dictionary stays as it was. */
VErrLink* CFHDictionaryGetBoolValue(CFDictionaryRef dict, CFStringRef key, SInt32* flag);
VErrLink* CFHDictionarySetBoolValue(CFMutableDictionaryRef dict, CFStringRef key, SInt32 flag);

/* ---- arrays ---- */

/* Stores the value at the index, behind as many kCFNull as the array is too short for it. Always
   returns null: without memory, the value or part of the padding is missing. */
VErrLink* CFHArrayPadToValueAtIndex(CFMutableArrayRef array, CFIndex index, CFTypeRef value);

/* As for dictionaries. Precondition of Get and Adjust: the index is inside the array. Set pads as
   CFHArrayPadToValueAtIndex() does. */
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

/* As for dictionaries, but a missing element leaves the buffer as it was. */
VErrLink* CFHArrayGetStringValue(CFArrayRef array, CFIndex index, CFIndex size,
                                 CFStringEncoding encoding, char* buffer);
VErrLink* CFHArraySetStringValue(CFMutableArrayRef array, CFIndex index, const char* text,
                                 CFStringEncoding encoding);
VErrLink* CFHArrayAppendStringValue(CFMutableArrayRef array, const char* text,
                                    CFStringEncoding encoding);

/* As for dictionaries, but Set fails without memory. Append always returns null: without memory,
   the array stays as it was. */
VErrLink* CFHArrayGetBoolValue(CFArrayRef array, CFIndex index, SInt32* flag);
VErrLink* CFHArraySetBoolValue(CFMutableArrayRef array, CFIndex index, SInt32 flag);
VErrLink* CFHArrayAppendBoolValue(CFMutableArrayRef array, SInt32 flag);

/* ---- text ---- */

/* Creates a string, which the caller owns; null on failure. */
VErrLink* CFHStringCreateWithConcatenation(CFStringRef first, CFStringRef second,
                                           CFStringRef* joined);
/* Replaces *string by the joined string, and releases the former one. *string stays as it was on
   failure. */
VErrLink* CFHStringConcatenate(CFStringRef* string, CFStringRef appended);

/* Allocates a copy of the text, which the caller releases with free(); null on failure. The code is
   kVErrCodeStringEncoding if the encoding lacks a character. */
VErrLink* CFHAllocCStringFromCFString(CFStringRef string, CFStringEncoding encoding, char** text);

/* A UTF-8 copy of a platform error text, which the caller releases with free(). Null if text is
   null or cannot be copied. */
char* CFHAllocErrorText(CFStringRef text);

/* Copies at most `capacity` UTF-16 units, without a terminator. *length receives their number, and
   stays as it was if text is not UTF-8. */
VErrLink* CFHConvertFromUTF8ToUniStr(const char* text, UniChar* buffer, UInt16 capacity,
                                     UInt16* length);
/* Copies `count` UTF-16 units as UTF-8 text; fails if the text does not fit into size bytes. */
VErrLink* CFHConvertFromUniStrToUTF8(const UniChar* characters, UInt16 count, char* buffer,
                                     CFIndex size);

/* ---- shorthand ---- */

/* Releases the object; null is ignored. */
inline void CFHReleaseIfSet(CFTypeRef object) {
    if (object != nullptr)
        CFRelease(object);
}

/* True if the value of the key is kCFBooleanTrue; false for any other value and for none. */
inline bool CFHDictionaryIsTrue(CFDictionaryRef dict, CFStringRef key) {
    return CFDictionaryGetValue(dict, key) == kCFBooleanTrue;
}

/* Stores the value and returns whether the dictionary has it now: CFDictionarySetValue() does not
   report a shortage of memory. A null dictionary is a failure, too. */
inline bool CFHDictionaryStore(CFMutableDictionaryRef dict, CFTypeRef key, CFTypeRef value) {
    if (dict == nullptr)
        return false;
    CFDictionarySetValue(dict, key, value);
    return CFDictionaryGetValue(dict, key) == value;
}

/* The dictionary or array under a key, borrowed. Null if the key is missing or its value has
   another type. */
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

/* The same number objects as the typed setters store. The caller owns the number; null without
   memory. */
inline CFNumberRef CFHCreateUInt64Number(UInt64 value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
}
inline CFNumberRef CFHCreateUInt16Number(UInt16 value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt16Type, &value);
}
/* An empty dictionary of objects, which the caller owns; null without memory. */
inline CFMutableDictionaryRef CFHCreateMutableDictionary(void) {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}
/* The range of all elements. */
inline CFRange CFHWholeArray(CFArrayRef array) {
    return CFRangeMake(0, CFArrayGetCount(array));
}

#endif
