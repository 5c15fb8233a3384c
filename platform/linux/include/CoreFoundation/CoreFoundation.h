#ifndef COREFOUNDATION_COREFOUNDATION_H
#define COREFOUNDATION_COREFOUNDATION_H

/*
 * Core Foundation on Linux: the calls that this project makes, behaving as documented for the
 * original. Two rules go beyond the original and hold for every function:
 *   - a creation that finds no memory returns NULL;
 *   - an object of another type than the function expects behaves as absent: lookups find
 *     nothing, conversions fail, counts are 0, mutations do nothing. NULL is such an object.
 *
 * Ownership follows the naming rule: what a function with Create or Copy in its name returns is
 * owned by the caller, who gives it up with CFRelease; everything else is borrowed.
 * Immutable objects may be shared by threads freely; a mutable one needs its user's lock.
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
