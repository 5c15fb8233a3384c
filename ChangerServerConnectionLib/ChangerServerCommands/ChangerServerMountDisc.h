#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVERMOUNTDISC_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVERMOUNTDISC_H

/* The command that brings a disc to a drive and mounts it. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr UInt16 kNoDataTransferElem = 0xFFFF; // any drive

enum : UInt32 {
    kMountDiscPrivate = 1 << 0,       // for this process alone
    kMountDiscDisallowMount = 1 << 1, // load, but do not mount
    kMountDiscClearErrors = 1 << 2,   // set here, not by callers: on the first request only
    kMountDiscStartMount = 1 << 3     // set here, not by callers: until the server mounts already
};

/*
 * Asks once a second for as long as the server is busy. Fails with kVErrCodeCommandTimedOut once
 * timeout whole seconds have passed. A mount that the server answers too late is not taken back:
 * the disc then stays in its drive.
 *
 * The path and the device id are copied from the reply when a buffer is given; sizes count the
 * terminator. Any thread; blocks it.
 */
VErrLink* ChangerServerMountDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 const char* partitionId, const char* clientName, UInt32 flags,
                                 UInt32 privateFamily, char* mountPath, CFIndex mountPathSize,
                                 char* deviceId, CFIndex deviceIdSize);

VErrLink* ChangerServerMountDiscInDrive(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                        const char* partitionId, UInt16 dataTransferElem,
                                        const char* clientName, UInt32 flags, UInt32 privateFamily,
                                        char* mountPath, CFIndex mountPathSize, char* deviceId,
                                        CFIndex deviceIdSize);

/* The message alone, owned by the caller. */
VErrLink* InitMountDiscMessage(UInt64 changerGUID, UInt16 storageElem, const char* partitionId,
                               UInt16 dataTransferElem, const char* clientName, UInt32 flags,
                               UInt32 privateFamily, CFMutableDictionaryRef* message);

VErrLink* ParseMountDiscReply(CFDictionaryRef reply, char* mountPath, CFIndex mountPathSize,
                              char* deviceId, CFIndex deviceIdSize);

#endif
