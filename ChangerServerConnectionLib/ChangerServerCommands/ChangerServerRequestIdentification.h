#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERREQUESTIDENTIFICATION_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERREQUESTIDENTIFICATION_H

/*
 * The command that requests the identification of a changer or of one of its media, or withdraws
 * such a request. One exchange, without repetition. Any thread; blocks it.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr UInt16 kNoStorageElem = 0xFFFF; // the changer as a whole

/* Requests the identification if `request` is true, and else withdraws the request. */
VErrLink* ChangerServerRequestMediaIdentification(UInt64 changerGUID, UInt16 storageElem,
                                                  Boolean request);
VErrLink* ChangerServerRequestChangerIdentification(UInt64 changerGUID, Boolean request);

/* Makes the message, which the caller owns; null on failure. */
VErrLink* InitRequestIdentificationMessage(UInt64 changerGUID, UInt16 storageElem, Boolean request,
                                           CFMutableDictionaryRef* message);

#endif
