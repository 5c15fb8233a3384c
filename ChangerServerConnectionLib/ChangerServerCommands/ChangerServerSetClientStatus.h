#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERSETCLIENTSTATUS_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERSETCLIENTSTATUS_H

/*
 * The command that makes the server display what a client does with a changer. One exchange,
 * without repetition. Any thread; blocks it.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* Sets the status of the client. Texts are UTF-8. currentStep counts from 0 to maximumStep. An
   empty message clears the status. */
VErrLink* ChangerServerSetClientStatus(UInt64 changerGUID, const char* clientName,
                                       const char* message, UInt16 currentStep, UInt16 maximumStep,
                                       Boolean abortRequested);

/* Sets the status to an empty message, step 0 of 0. */
VErrLink* ChangerServerClearClientStatus(UInt64 changerGUID, const char* clientName);

/* Makes the message, which the caller owns; null on failure. */
VErrLink* InitSetClientStatusMessage(UInt64 changerGUID, const char* clientName,
                                     const char* message, UInt16 currentStep, UInt16 maximumStep,
                                     Boolean abortRequested, CFMutableDictionaryRef* dict);

#endif
