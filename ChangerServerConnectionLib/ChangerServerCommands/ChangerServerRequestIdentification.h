#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERREQUESTIDENTIFICATION_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERREQUESTIDENTIFICATION_H

/* The command that asks the server to have a changer, or one of its media, identified, or takes
   such a request back. One attempt; any thread; blocks it. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr UInt16 kNoStorageElem = 0xFFFF; // the changer as a whole

/* request: true asks, false withdraws. */
VErrLink* ChangerServerRequestMediaIdentification(UInt64 changerGUID, UInt16 storageElem,
                                                  Boolean request);
VErrLink* ChangerServerRequestChangerIdentification(UInt64 changerGUID, Boolean request);

/* The message alone, owned by the caller. */
VErrLink* InitRequestIdentificationMessage(UInt64 changerGUID, UInt16 storageElem, Boolean request,
                                           CFMutableDictionaryRef* message);

#endif
