#ifndef COREFOUNDATION_CFPROPERTYLIST_H
#define COREFOUNDATION_CFPROPERTYLIST_H

/*
 * Property lists: strings, numbers, booleans, data, dates, arrays and string-keyed dictionaries,
 * as XML (the document type "plist" 1.0) and as the binary format "bplist00". The older text
 * format is refused.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

/* What a list is made of when it is read. Both mutable options give mutable arrays and dictionaries
   with immutable leaves. Tests alone use kCFPropertyListMutableContainers. */
typedef enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
} CFPropertyListMutabilityOptions;

/* The formats that are read. */
typedef enum {
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
} CFPropertyListFormat;

/*
 * The list as XML in UTF-8, with the keys of a dictionary sorted by UTF-16 unit. NULL if the list
 * contains anything that is not a property list, is nested deeper than 512 levels, or needs more
 * than 64 MiB, or if memory is short.
 */
CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef propertyList);

/*
 * Reads a list, XML or binary, which its first bytes decide. Returns NULL on failure. Unless NULL,
 * errorString then receives a text that the caller owns (or NULL if memory is short); on success it
 * receives NULL. Any thread; does not block.
 *
 * Equal immutable values are one object, shared by all lists that exist and freed with the last
 * one. Time and memory are linear in the length of the data, which is at most 64 MiB; at most 512
 * levels may be nested. If a binary list refers twice to a container, both references are one
 * object, even a mutable one. Only tests use another option than kCFPropertyListImmutable here.
 *
 * XML is UTF-8 or UTF-16 if it has a byte order mark, or else has the encoding that it declares:
 * UTF-8, ASCII (with bytes from 80 hexadecimal on as Latin-1), ISO-8859-1, ISO-8859-15 or
 * windows-1252. Only strings and keys must be valid text; comments, instructions, attributes and
 * all bytes behind the list are ignored. Of equal keys, the last one is used in XML and the first
 * one in a binary list. Nulls, identifiers and sets of a binary list become kCFNull; a key that is
 * not a string is ignored with its value.
 */
CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator, CFDataRef data,
                                                  CFOptionFlags mutability,
                                                  CFStringRef* errorString);

/*
 * The same for at most streamLength bytes of an open stream (0 or less: up to its end). Fails for a
 * stream that is not open and for more than 16 MiB. Unless NULL, `format` receives the format on
 * success.
 */
CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream,
                                                 CFIndex streamLength, CFOptionFlags mutability,
                                                 CFPropertyListFormat* format,
                                                 CFStringRef* errorString);

CF_EXTERN_C_END

#endif
