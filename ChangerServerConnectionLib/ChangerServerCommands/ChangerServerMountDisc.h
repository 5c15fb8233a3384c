#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERMOUNTDISC_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERMOUNTDISC_H

/* The command that loads a disc into a drive and mounts it. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr UInt16 kNoDataTransferElem = 0xFFFF; // any drive

enum : UInt32 {
    kMountDiscPrivate = 1 << 0,       // for this process alone
    kMountDiscDisallowMount = 1 << 1, // load the disc without mounting it
    kMountDiscClearErrors = 1 << 2,   // not for callers: set in the first request
    kMountDiscStartMount = 1 << 3     // not for callers: set until the server has begun to mount
};

/*
 * Requests the mount, and repeats the request every second as long as the server is busy or mounts.
 * The code is kVErrCodeCommandTimedOut when `timeout` whole seconds have passed; the server may
 * then mount the disc later, and nothing ejects it.
 *
 * mountPath and deviceId receive texts of the reply and may each be null. They are empty after an
 * error, unless the reply cannot be read. Sizes are in bytes, terminator included. Any thread;
 * blocks it.
 */
VErrLink* ChangerServerMountDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 const char* partitionId, const char* clientName, UInt32 flags,
                                 UInt32 privateFamily, char* mountPath, CFIndex mountPathSize,
                                 char* deviceId, CFIndex deviceIdSize);

/* The same for a certain drive; kNoDataTransferElem stands for any. */
VErrLink* ChangerServerMountDiscInDrive(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                        const char* partitionId, UInt16 dataTransferElem,
                                        const char* clientName, UInt32 flags, UInt32 privateFamily,
                                        char* mountPath, CFIndex mountPathSize, char* deviceId,
                                        CFIndex deviceIdSize);

/* Makes the message, which the caller owns; null on failure. */
VErrLink* InitMountDiscMessage(UInt64 changerGUID, UInt16 storageElem, const char* partitionId,
                               UInt16 dataTransferElem, const char* clientName, UInt32 flags,
                               UInt32 privateFamily, CFMutableDictionaryRef* message);

/* Copies the mount path and the device id of a reply. A null buffer is skipped. The first text that
   is missing or does not fit its size is the error. */
VErrLink* ParseMountDiscReply(CFDictionaryRef reply, char* mountPath, CFIndex mountPathSize,
                              char* deviceId, CFIndex deviceIdSize);

#endif
