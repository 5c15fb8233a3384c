#include "common/CFHelpers.h"

#include <stdlib.h>

static const char kSourcePath[] = "common/CFHelpers";

// The differences between the functions for two types of numbers.
struct NumberMember {
    const char* function; // the public one, which links name
    CFNumberType type;
    const char* word; // name of the type in messages
};

static const char kNumberFailure[] = "fail alloc num";
static const char kStringFailure[] = "fail alloc str";

static VErrLink* RaiseIn(const char* function, SInt64 line, VErrLink* thrown) {
    return VErrRaise(thrown, kSourcePath, function, line);
}

// CFNumberGetValue() fails for an object that is not a number.
static VErrLink* ConvertNumber(const NumberMember& member, const void* object, void* value) {
    VErrLink* err = nullptr;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(object), member.type, value))
        RaiseIn(member.function, __LINE__, VErrThrow(&err, "fail get num as %s", member.word));
    return err;
}

static CFNumberRef CreateNumber(const NumberMember& member, const void* value) {
    return CFNumberCreate(kCFAllocatorDefault, member.type, value);
}

static CFStringRef CreateString(const char* text, CFStringEncoding encoding) {
    return CFStringCreateWithCString(kCFAllocatorDefault, text, encoding);
}

static VErrLink* ConvertString(const char* function, const void* object, char* buffer, CFIndex size,
                               CFStringEncoding encoding) {
    VErrLink* err = nullptr;
    if (!CFStringGetCString(static_cast<CFStringRef>(object), buffer, size, encoding))
        RaiseIn(function, __LINE__, VErrThrow(&err, "fail get str as C str"));
    return err;
}

static VErrLink* ConvertBool(const char* function, const void* object, SInt32* flag) {
    VErrLink* err = nullptr;
    if (object == kCFBooleanTrue)
        *flag = 1;
    else if (object == kCFBooleanFalse)
        *flag = 0;
    else
        RaiseIn(function, __LINE__, VErrThrow(&err, "bool neither true nor false"));
    return err;
}

static CFBooleanRef SharedBool(SInt32 flag) {
    return flag != 0 ? kCFBooleanTrue : kCFBooleanFalse;
}

// ---- dictionaries ----

static VErrLink* DictionaryFind(const char* function, CFDictionaryRef dict, CFStringRef key,
                                const void** object) {
    VErrLink* err = nullptr;
    *object = CFDictionaryGetValue(dict, key);
    if (*object == nullptr)
        RaiseIn(function, __LINE__, VErrThrow(&err, "fail get value from dict"));
    return err;
}

static VErrLink* DictionaryGetNumber(const NumberMember& member, CFDictionaryRef dict,
                                     CFStringRef key, void* value) {
    const void* object = nullptr;
    VErrLink* err = DictionaryFind(member.function, dict, key, &object);
    return err != nullptr ? err : ConvertNumber(member, object, value);
}

// Stores a new object and releases it. A null object, which could not be created, is the same
// failure as one that cannot be stored.
static VErrLink* DictionaryStoreNew(const char* function, CFMutableDictionaryRef dict,
                                    CFStringRef key, CFTypeRef object, const char* failure) {
    VErrLink* err = nullptr;
    if (object == nullptr || !CFHDictionaryStore(dict, key, object))
        RaiseIn(function, __LINE__, VErrThrow(&err, "%s", failure));
    CFHReleaseIfSet(object);
    return err;
}

static VErrLink* DictionarySetNumber(const NumberMember& member, CFMutableDictionaryRef dict,
                                     CFStringRef key, const void* value) {
    return DictionaryStoreNew(member.function, dict, key, CreateNumber(member, value),
                              kNumberFailure);
}

// Signed overflow would be undefined; unsigned arithmetic wraps.
template<typename Native>
static Native WrappingSum(Native value, Native delta) {
    return static_cast<Native>(static_cast<UInt64>(value) + static_cast<UInt64>(delta));
}

#define DEFINE_DICTIONARY_NUMBER(Word, Native, numberType)                                         \
    VErrLink* CFHDictionaryGet##Word##Value(CFDictionaryRef dict, CFStringRef key,                 \
                                            Native* value) {                                       \
        return DictionaryGetNumber({__func__, numberType, #Word}, dict, key, value);               \
    }                                                                                              \
    VErrLink* CFHDictionarySet##Word##Value(CFMutableDictionaryRef dict, CFStringRef key,          \
                                            Native value) {                                        \
        return DictionarySetNumber({__func__, numberType, #Word}, dict, key, &value);              \
    }

// The failure to get the value has one text for 64-bit numbers and another for narrower ones.
#define DEFINE_DICTIONARY_ADJUST(Word, Native, getFailure)                                         \
    VErrLink* CFHDictionaryAdjust##Word##Value(CFMutableDictionaryRef dict, CFStringRef key,       \
                                               Native delta) {                                     \
        Native value = 0;                                                                          \
        VErrLink* err = nullptr;                                                                   \
        VERR_STEP(err, CFHDictionaryGet##Word##Value(dict, key, &value), getFailure);              \
        VERR_STEP(err, CFHDictionarySet##Word##Value(dict, key, WrappingSum(value, delta)),        \
                  "fail set adjusted value");                                                      \
        return err;                                                                                \
    }

DEFINE_DICTIONARY_NUMBER(SInt64, SInt64, kCFNumberSInt64Type)
DEFINE_DICTIONARY_ADJUST(SInt64, SInt64, "fail get value from dict")
DEFINE_DICTIONARY_NUMBER(UInt64, UInt64, kCFNumberSInt64Type)
DEFINE_DICTIONARY_ADJUST(UInt64, UInt64, "fail get value from dict")
DEFINE_DICTIONARY_NUMBER(SInt32, SInt32, kCFNumberSInt32Type)
DEFINE_DICTIONARY_ADJUST(SInt32, SInt32, "fail get value")
DEFINE_DICTIONARY_NUMBER(UInt32, UInt32, kCFNumberSInt32Type)
DEFINE_DICTIONARY_ADJUST(UInt32, UInt32, "fail get value")
DEFINE_DICTIONARY_NUMBER(SInt16, SInt16, kCFNumberSInt16Type)
DEFINE_DICTIONARY_ADJUST(SInt16, SInt16, "fail get value")
DEFINE_DICTIONARY_NUMBER(UInt16, UInt16, kCFNumberSInt16Type)
DEFINE_DICTIONARY_ADJUST(UInt16, UInt16, "fail get value")

VErrLink* CFHDictionaryGetAddrValue(CFDictionaryRef dict, CFStringRef key, void** value) {
    return DictionaryGetNumber({__func__, kCFNumberSInt64Type, "void *"}, dict, key, value);
}

VErrLink* CFHDictionarySetAddrValue(CFMutableDictionaryRef dict, CFStringRef key, void* value) {
    return DictionarySetNumber({__func__, kCFNumberSInt64Type, "void *"}, dict, key, &value);
}

VErrLink* CFHDictionaryGetStringValue(CFDictionaryRef dict, CFStringRef key, CFIndex size,
                                      CFStringEncoding encoding, char* buffer) {
    if (size != 0)
        buffer[0] = '\0';
    const void* object = nullptr;
    VErrLink* err = DictionaryFind(__func__, dict, key, &object);
    return err != nullptr ? err : ConvertString(__func__, object, buffer, size, encoding);
}

VErrLink* CFHDictionarySetStringValue(CFMutableDictionaryRef dict, CFStringRef key,
                                      const char* text, CFStringEncoding encoding) {
    return DictionaryStoreNew(__func__, dict, key, CreateString(text, encoding), kStringFailure);
}

VErrLink* CFHDictionaryGetBoolValue(CFDictionaryRef dict, CFStringRef key, SInt32* flag) {
    const void* object = nullptr;
    VErrLink* err = DictionaryFind(__func__, dict, key, &object);
    return err != nullptr ? err : ConvertBool(__func__, object, flag);
}

VErrLink* CFHDictionarySetBoolValue(CFMutableDictionaryRef dict, CFStringRef key, SInt32 flag) {
    CFDictionarySetValue(dict, key, SharedBool(flag));
    return nullptr;
}

// ---- arrays ----

VErrLink* CFHArrayPadToValueAtIndex(CFMutableArrayRef array, CFIndex index, CFTypeRef value) {
    for (CFIndex count = CFArrayGetCount(array); count < index; count++)
        CFArrayAppendValue(array, kCFNull);
    CFArraySetValueAtIndex(array, index, value);
    return nullptr;
}

// Precondition: the index is inside the array. A null element is an error.
static VErrLink* ArrayFind(const char* function, CFArrayRef array, CFIndex index,
                           const void** object) {
    VErrLink* err = nullptr;
    *object = CFArrayGetValueAtIndex(array, index);
    if (*object == nullptr)
        RaiseIn(function, __LINE__, VErrThrow(&err, "fail get value at index %ld", index));
    return err;
}

static VErrLink* ArrayPut(const char* function, CFMutableArrayRef array, CFIndex index,
                          CFTypeRef value, const char* failure) {
    const CFIndex count = CFArrayGetCount(array);
    VErrLink* err = nullptr;
    VERR_STEP_IN(function, err, CFHArrayPadToValueAtIndex(array, index, value),
                 "fail CFHArrayPadToValueAtIndex");
    VERR_NEED_IN(function, err, CFArrayGetValueAtIndex(array, index) == value, "%s", failure);
    // Without memory for the element, the padding before it is removed again.
    for (CFIndex last = CFArrayGetCount(array); err != nullptr && last > count; last--)
        CFArrayRemoveValueAtIndex(array, last - 1);
    return err;
}

// Like ArrayPut(), for a new object, which is released; null if it could not be created.
static VErrLink* ArrayPutNew(const char* function, CFMutableArrayRef array, CFIndex index,
                             CFTypeRef object, const char* failure) {
    VErrLink* err = nullptr;
    VERR_NEED_IN(function, err, object != nullptr, "%s", failure);
    if (err == nullptr)
        err = ArrayPut(function, array, index, object, failure);
    CFHReleaseIfSet(object);
    return err;
}

static VErrLink* ArrayAppendNew(const char* function, CFMutableArrayRef array, CFTypeRef object,
                                const char* failure) {
    VErrLink* err = nullptr;
    const CFIndex count = CFArrayGetCount(array);
    if (object != nullptr)
        CFArrayAppendValue(array, object);
    VERR_NEED_IN(function, err, CFArrayGetCount(array) > count, "%s", failure);
    CFHReleaseIfSet(object);
    return err;
}

static VErrLink* ArrayGetNumber(const NumberMember& member, CFArrayRef array, CFIndex index,
                                void* value) {
    const void* object = nullptr;
    VErrLink* err = ArrayFind(member.function, array, index, &object);
    return err != nullptr ? err : ConvertNumber(member, object, value);
}

static VErrLink* ArraySetNumber(const NumberMember& member, CFMutableArrayRef array, CFIndex index,
                                const void* value) {
    return ArrayPutNew(member.function, array, index, CreateNumber(member, value), kNumberFailure);
}

static VErrLink* ArrayAppendNumber(const NumberMember& member, CFMutableArrayRef array,
                                   const void* value) {
    return ArrayAppendNew(member.function, array, CreateNumber(member, value), kNumberFailure);
}

#define DEFINE_ARRAY_NUMBER(Word, Native, numberType)                                              \
    VErrLink* CFHArrayGet##Word##Value(CFArrayRef array, CFIndex index, Native* value) {           \
        return ArrayGetNumber({__func__, numberType, #Word}, array, index, value);                 \
    }                                                                                              \
    VErrLink* CFHArraySet##Word##Value(CFMutableArrayRef array, CFIndex index, Native value) {     \
        return ArraySetNumber({__func__, numberType, #Word}, array, index, &value);                \
    }                                                                                              \
    VErrLink* CFHArrayAppend##Word##Value(CFMutableArrayRef array, Native value) {                 \
        return ArrayAppendNumber({__func__, numberType, #Word}, array, &value);                    \
    }                                                                                              \
    VErrLink* CFHArrayAdjust##Word##Value(CFMutableArrayRef array, CFIndex index, Native delta) {  \
        Native value = 0;                                                                          \
        VErrLink* err = nullptr;                                                                   \
        VERR_STEP(err, CFHArrayGet##Word##Value(array, index, &value),                             \
                  "fail get value at index %ld", index);                                           \
        VERR_STEP(err, CFHArraySet##Word##Value(array, index, WrappingSum(value, delta)),          \
                  "fail set adjusted value at index %ld", index);                                  \
        return err;                                                                                \
    }

DEFINE_ARRAY_NUMBER(SInt64, SInt64, kCFNumberSInt64Type)
DEFINE_ARRAY_NUMBER(UInt64, UInt64, kCFNumberSInt64Type)
DEFINE_ARRAY_NUMBER(SInt32, SInt32, kCFNumberSInt32Type)
DEFINE_ARRAY_NUMBER(UInt32, UInt32, kCFNumberSInt32Type)
DEFINE_ARRAY_NUMBER(SInt16, SInt16, kCFNumberSInt16Type)
DEFINE_ARRAY_NUMBER(UInt16, UInt16, kCFNumberSInt16Type)

VErrLink* CFHArrayGetAddrValue(CFArrayRef array, CFIndex index, void** value) {
    return ArrayGetNumber({__func__, kCFNumberSInt64Type, "void *"}, array, index, value);
}

VErrLink* CFHArraySetAddrValue(CFMutableArrayRef array, CFIndex index, void* value) {
    return ArraySetNumber({__func__, kCFNumberSInt64Type, "void *"}, array, index, &value);
}

VErrLink* CFHArrayAppendAddrValue(CFMutableArrayRef array, void* value) {
    return ArrayAppendNumber({__func__, kCFNumberSInt64Type, "void *"}, array, &value);
}

VErrLink* CFHArrayGetStringValue(CFArrayRef array, CFIndex index, CFIndex size,
                                 CFStringEncoding encoding, char* buffer) {
    VErrLink* err = nullptr;
    const void* object = CFArrayGetValueAtIndex(array, index);
    if (object == nullptr)
        return VERR_RAISE(VErrThrow(&err, "unable to get str at index %ld", index));
    return ConvertString(__func__, object, buffer, size, encoding);
}

VErrLink* CFHArraySetStringValue(CFMutableArrayRef array, CFIndex index, const char* text,
                                 CFStringEncoding encoding) {
    return ArrayPutNew(__func__, array, index, CreateString(text, encoding), kStringFailure);
}

VErrLink* CFHArrayAppendStringValue(CFMutableArrayRef array, const char* text,
                                    CFStringEncoding encoding) {
    return ArrayAppendNew(__func__, array, CreateString(text, encoding), kStringFailure);
}

VErrLink* CFHArrayGetBoolValue(CFArrayRef array, CFIndex index, SInt32* flag) {
    const void* object = nullptr;
    VErrLink* err = ArrayFind(__func__, array, index, &object);
    return err != nullptr ? err : ConvertBool(__func__, object, flag);
}

VErrLink* CFHArraySetBoolValue(CFMutableArrayRef array, CFIndex index, SInt32 flag) {
    return ArrayPut(__func__, array, index, SharedBool(flag), "fail CFHArrayPadToValueAtIndex");
}

VErrLink* CFHArrayAppendBoolValue(CFMutableArrayRef array, SInt32 flag) {
    CFArrayAppendValue(array, SharedBool(flag));
    return nullptr;
}

// ---- text ----

VErrLink* CFHStringCreateWithConcatenation(CFStringRef first, CFStringRef second,
                                           CFStringRef* joined) {
    VErrLink* err = nullptr;
    *joined = nullptr;
    CFMutableArrayRef strings =
        CFArrayCreateMutable(kCFAllocatorDefault, 2, &kCFTypeArrayCallBacks);
    if (strings == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create strArr"));

    CFArrayAppendValue(strings, first);
    CFArrayAppendValue(strings, second);
    if (CFArrayGetCount(strings) == 2) // CFArrayAppendValue() does not report a shortage of memory
        *joined = CFStringCreateByCombiningStrings(kCFAllocatorDefault, strings, CFSTR(""));
    VERR_NEED(err, *joined != nullptr, "fail create string by combining strings");
    CFRelease(strings);
    return err;
}

VErrLink* CFHStringConcatenate(CFStringRef* string, CFStringRef appended) {
    CFStringRef joined = nullptr;
    VErrLink* err = CFHStringCreateWithConcatenation(*string, appended, &joined);
    if (err != nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create string with concatenation"));
    CFRelease(*string);
    *string = joined;
    return nullptr;
}

VErrLink* CFHAllocCStringFromCFString(CFStringRef string, CFStringEncoding encoding, char** text) {
    VErrLink* err = nullptr;
    *text = nullptr;
    const CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), encoding) + 1;
    char* buffer = static_cast<char*>(malloc(static_cast<size_t>(size)));
    if (buffer == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail allocate storage for the C string"));
    if (!CFStringGetCString(string, buffer, size, encoding)) {
        free(buffer);
        return VERR_RAISE(VErrThrowWithErrCode(&err, kVErrCodeStringEncoding,
                                               "can't convert the string to the requested "
                                               "encoding"));
    }
    *text = buffer;
    return nullptr;
}

char* CFHAllocErrorText(CFStringRef text) {
    if (text == nullptr)
        return nullptr;
    char* copy = nullptr;
    VErrLink* err = CFHAllocCStringFromCFString(text, kCFStringEncodingUTF8, &copy);
    VErrCatch(&err);
    return copy;
}

VErrLink* CFHConvertFromUTF8ToUniStr(const char* text, UniChar* buffer, UInt16 capacity,
                                     UInt16* length) {
    VErrLink* err = nullptr;
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8);
    if (string == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create temp CFString from UTF8 string"));
    *length = static_cast<UInt16>(CFStringGetLength(string));
    if (*length > capacity)
        *length = capacity;
    CFStringGetCharacters(string, CFRangeMake(0, *length), buffer);
    CFRelease(string);
    return nullptr;
}

VErrLink* CFHConvertFromUniStrToUTF8(const UniChar* characters, UInt16 count, char* buffer,
                                     CFIndex size) {
    VErrLink* err = nullptr;
    CFStringRef string = CFStringCreateWithCharacters(kCFAllocatorDefault, characters, count);
    if (string == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create temp CFString from uni chars"));
    VERR_NEED(err, CFStringGetCString(string, buffer, size, kCFStringEncodingUTF8),
              "fail get UTF8 string from temp CFString");
    CFRelease(string);
    return err;
}
