#ifndef COREFOUNDATION_COREFOUNDATION_H
#define COREFOUNDATION_COREFOUNDATION_H

/*
 * Core Foundation on Linux: the functions that this project calls, with the behaviour that the
 * original documents. Two rules go beyond the original and hold for every function:
 *   - a function that creates an object returns NULL if memory is short;
 *   - NULL and an object of another type than the function expects are treated as absent: lookups
 *     find nothing, conversions fail, counts are 0, mutations do nothing.
 *
 * Ownership: the caller owns what a function with Create or Copy in its name returns and must
 * CFRelease it; all other results are borrowed.
 *
 * Threads: immutable objects may be used by any number of threads. A mutable object needs a lock of
 * the caller's. No function blocks unless its comment says so.
 */

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFSocket.h>
#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#endif
