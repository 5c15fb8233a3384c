#ifndef COREFOUNDATION_CFDICTIONARY_H
#define COREFOUNDATION_CFDICTIONARY_H

/*
 * Unordered maps from objects to objects. A dictionary retains its keys and values and releases
 * them when they are removed or replaced, or the dictionary is freed. Keys are compared by CFEqual.
 */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

/* How a dictionary treats its keys and values. Only one way exists here, so the arguments of these
   types are ignored. */
typedef struct {
    CFIndex version;
} CFDictionaryKeyCallBacks;
typedef struct {
    CFIndex version;
} CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

/* The type of dictionaries, mutable or not, as CFGetTypeID() returns it. */
CFTypeID CFDictionaryGetTypeID(void);

/* An empty dictionary. The capacity is ignored: the dictionary grows as needed. */
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);

/* A shallow copy, whose keys and values are retained once more. The capacity is ignored. NULL if
   `dictionary` is not a dictionary or memory is short. */
CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFDictionaryRef dictionary);

/* The number of pairs; 0 if `dictionary` is not a dictionary. */
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);

/* The value, borrowed from the dictionary; NULL if the key is NULL or absent. ContainsKey: true if
   the key is present. */
const void* CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);
Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key);

/* Copies borrowed keys and values to buffers of at least CFDictionaryGetCount() pointers: key i
   belongs to value i; the order is unspecified. Either buffer may be NULL. */
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values);

/* Adds the pair, or replaces the value and the key of an equal key. Does nothing if the key or the
   value is NULL, the dictionary is immutable, or memory is short. */
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);

/* Removes and releases the key and its value. Does nothing if the key is absent or the dictionary
   is immutable. */
void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key);

CF_EXTERN_C_END

#endif
