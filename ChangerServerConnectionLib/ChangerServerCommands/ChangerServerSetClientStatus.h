#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERSETCLIENTSTATUS_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERSETCLIENTSTATUS_H

/* The command by which a client shows its user what it is doing with a changer. One attempt; any
   thread; blocks it. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* Texts are UTF-8. An empty message clears the status; steps count from 0 to maximumStep. */
VErrLink* ChangerServerSetClientStatus(UInt64 changerGUID, const char* clientName,
                                       const char* message, UInt16 currentStep, UInt16 maximumStep,
                                       Boolean abortRequested);

VErrLink* ChangerServerClearClientStatus(UInt64 changerGUID, const char* clientName);

/* The message alone, owned by the caller. */
VErrLink* InitSetClientStatusMessage(UInt64 changerGUID, const char* clientName,
                                     const char* message, UInt16 currentStep, UInt16 maximumStep,
                                     Boolean abortRequested, CFMutableDictionaryRef* dict);

#endif
