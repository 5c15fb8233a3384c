#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "common/CFHelpers.h"
#include "common/WallClock.h"

#include <time.h>
#include <unistd.h>

static const char kSourcePath[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc";

VErrLink* InitMountDiscMessage(UInt64 changerGUID, UInt16 storageElem, const char* partitionId,
                               UInt16 dataTransferElem, const char* clientName, UInt32 flags,
                               UInt32 privateFamily, CFMutableDictionaryRef* message) {
    VErrLink* err = nullptr;
    *message = nullptr;
    CFMutableDictionaryRef dict = CFHCreateMutableDictionary();
    VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("command"), CFSTR("mount disc")),
              "fail alloc messageDict");
    VERR_STEP(err, CFHDictionarySetUInt64Value(dict, CFSTR("Changer GUID"), changerGUID),
              "fail set GUID argument");
    VERR_STEP(err, CFHDictionarySetUInt16Value(dict, CFSTR("Storage Element Index"), storageElem),
              "fail set storage element index");
    VERR_STEP(err,
              CFHDictionarySetStringValue(dict, CFSTR("Partition ID"), partitionId,
                                          kCFStringEncodingUTF8),
              "fail set partition id string");
    if (dataTransferElem != kNoDataTransferElem)
        VERR_STEP(err,
                  CFHDictionarySetUInt16Value(dict, CFSTR("Data Transfer Element Index"),
                                              dataTransferElem),
                  "fail set data transfer element index");
    VERR_STEP(
        err,
        CFHDictionarySetStringValue(dict, CFSTR("client name"), clientName, kCFStringEncodingUTF8),
        "fail set client name string");
    if (flags & kMountDiscPrivate) { // the family is unsigned here, and signed in an eject
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("private"), kCFBooleanTrue),
                  "fail set mount private flag");
        VERR_STEP(err, CFHDictionarySetSInt32Value(dict, CFSTR("private PID"), getpid()),
                  "fail set mount private PID");
        VERR_STEP(err, CFHDictionarySetUInt32Value(dict, CFSTR("private family"), privateFamily),
                  "fail set private mount family to %ld", static_cast<long>(privateFamily));
    }
    if (flags & kMountDiscDisallowMount)
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("mount disc disallow mount"), kCFBooleanTrue),
                  "fail set disallow mount flag");
    if (flags & kMountDiscClearErrors)
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("mount disc clear errors"), kCFBooleanTrue),
                  "fail set clear errors flag");
    if (flags & kMountDiscStartMount)
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("mount disc start mount"), kCFBooleanTrue),
                  "fail set start mount flag");
    if (err == nullptr)
        *message = dict;
    else
        CFHReleaseIfSet(dict);
    return err;
}

VErrLink* ParseMountDiscReply(CFDictionaryRef reply, char* mountPath, CFIndex mountPathSize,
                              char* deviceId, CFIndex deviceIdSize) {
    VErrLink* err = nullptr;
    if (mountPath != nullptr)
        VERR_STEP(err,
                  CFHDictionaryGetStringValue(reply, CFSTR("mount path"), mountPathSize,
                                              kCFStringEncodingUTF8, mountPath),
                  "fail get mount path from reply dictionary");
    if (deviceId != nullptr)
        VERR_STEP(err,
                  CFHDictionaryGetStringValue(reply, CFSTR("device id"), deviceIdSize,
                                              kCFStringEncodingUTF8, deviceId),
                  "fail get device Id from reply dictionary");
    return err;
}

VErrLink* ChangerServerMountDiscInDrive(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                        const char* partitionId, UInt16 dataTransferElem,
                                        const char* clientName, UInt32 flags, UInt32 privateFamily,
                                        char* mountPath, CFIndex mountPathSize, char* deviceId,
                                        CFIndex deviceIdSize) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef message = nullptr;
    CFDictionaryRef reply = nullptr; // of the last request; earlier replies are not released
    UInt32 attemptFlags = flags | kMountDiscClearErrors | kMountDiscStartMount;
    time_t start = time(nullptr);
    if (mountPath != nullptr && mountPathSize != 0)
        mountPath[0] = '\0';
    if (deviceId != nullptr && deviceIdSize != 0)
        deviceId[0] = '\0';

    while (true) {
        VERR_STEP(err,
                  InitMountDiscMessage(changerGUID, storageElem, partitionId, dataTransferElem,
                                       clientName, attemptFlags, privateFamily, &message),
                  "fail init mount disc message");
        if (err != nullptr)
            break;
        err = SendMessageToChangerServer(message, &reply);
        if (err == nullptr) {
            VERR_STEP(err,
                      ParseMountDiscReply(reply, mountPath, mountPathSize, deviceId, deviceIdSize),
                      "fail parse mount disc reply");
            break;
        }
        const VErrCode code = VErrGetErrCode(err);
        if (code != kVErrCodeMountUnderWay && code != kVErrCodeServerBusy) {
            VERR_RAISE(VErrThrow(&err, "fail send message to changer server"));
            break;
        }
        VErrCatch(&err);
        attemptFlags &= ~static_cast<UInt32>(kMountDiscClearErrors);
        if (code == kVErrCodeMountUnderWay)
            attemptFlags &= ~static_cast<UInt32>(kMountDiscStartMount);
        if (SecondsSince(&start) >= timeout) { // the eject command uses >
            VERR_RAISE(
                VErrThrowWithErrCode(&err, kVErrCodeCommandTimedOut, "mount disc timed out"));
            break;
        }
        sleep(1);
        CFRelease(message);
        message = nullptr;
    }
    CFHReleaseIfSet(reply);
    CFHReleaseIfSet(message);
    return err;
}

VErrLink* ChangerServerMountDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 const char* partitionId, const char* clientName, UInt32 flags,
                                 UInt32 privateFamily, char* mountPath, CFIndex mountPathSize,
                                 char* deviceId, CFIndex deviceIdSize) {
    VErrLink* err = nullptr;
    VERR_STEP(err,
              ChangerServerMountDiscInDrive(timeout, changerGUID, storageElem, partitionId,
                                            kNoDataTransferElem, clientName, flags, privateFamily,
                                            mountPath, mountPathSize, deviceId, deviceIdSize),
              "fail mount disc to drive index kNoDataTransferElem");
    return err;
}
