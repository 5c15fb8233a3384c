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

typedef enum {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
} CFPropertyListMutabilityOptions;

typedef enum {
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
} CFPropertyListFormat;

/*
 * NULL when the list holds anything that is no property list, is nested deeper than 512 levels or
 * takes more than 64 MiB, or memory is short. The bytes are UTF-8; dictionary keys are sorted by
 * UTF-16 unit.
 */
CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef propertyList);

/*
 * XML or binary, told apart by their first bytes. NULL on failure; errorString, when given, then
 * receives a text that the caller owns (or NULL when memory is short), and NULL on success.
 * Equal immutable values are one object, shared between all lists alive and freed with the last.
 * Time and memory are linear in the length of the data, which is at most 64 MiB; nesting ends at
 * 512 levels. Where a binary list refers twice to a container, a mutable one is shared, too.
 *
 * XML is UTF-8 or UTF-16 by its byte order mark, or else of the encoding that it declares: UTF-8,
 * ASCII (with bytes from 80 on as Latin-1), ISO-8859-1, ISO-8859-15 or windows-1252. Only strings
 * and keys must be valid; comments, instructions, attributes and what follows the list are skipped.
 * Of equal keys the last counts in XML, the first in a binary list. Nulls, identifiers and sets of
 * a binary list become kCFNull; a key that is no string is left out with its value.
 */
CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator, CFDataRef data,
                                                  CFOptionFlags mutability,
                                                  CFStringRef* errorString);

/*
 * As above from an open stream, of which at most streamLength bytes are read (0: to its end).
 * Files above 16 MiB are refused. format, when given, receives the format found.
 */
CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream,
                                                 CFIndex streamLength, CFOptionFlags mutability,
                                                 CFPropertyListFormat* format,
                                                 CFStringRef* errorString);

CF_EXTERN_C_END

#endif
