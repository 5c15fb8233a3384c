#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "common/CFHelpers.h"
#include "common/WallClock.h"

#include <time.h>
#include <unistd.h>

static const char kSourcePath[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc";

VErrLink* InitEjectDiscMessage(UInt64 changerGUID, UInt16 storageElem, UInt32 flags,
                               SInt32 privateFamily, CFMutableDictionaryRef* message) {
    VErrLink* err = nullptr;
    *message = nullptr;
    CFMutableDictionaryRef dict = CFHCreateMutableDictionary();
    VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("command"), CFSTR("eject disc")),
              "fail alloc messageDict");
    VERR_STEP(err, CFHDictionarySetUInt64Value(dict, CFSTR("Changer GUID"), changerGUID),
              "fail set GUID argument");
    VERR_STEP(err, CFHDictionarySetUInt16Value(dict, CFSTR("Storage Element Index"), storageElem),
              "fail set storage element index");
    if (flags & kEjectDiscPrivate) {
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("private"), kCFBooleanTrue),
                  "fail set eject private flag");
        VERR_STEP(err, CFHDictionarySetSInt32Value(dict, CFSTR("private PID"), getpid()),
                  "fail set eject private PID");
        VERR_STEP(err, CFHDictionarySetSInt32Value(dict, CFSTR("private family"), privateFamily),
                  "fail set eject private family to %ld", static_cast<long>(privateFamily));
    }
    if (flags & kEjectDiscOverridePrivate)
        VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("overridePrivate"), kCFBooleanTrue),
                  "fail set override private flag");
    if (err == nullptr)
        *message = dict;
    else
        CFHReleaseIfSet(dict);
    return err;
}

VErrLink* ChangerServerEjectDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 UInt32 flags, SInt32 privateFamily) {
    CFMutableDictionaryRef message = nullptr;
    CFDictionaryRef reply = nullptr; // of the last request; earlier replies are not released
    VErrLink* err = nullptr;
    VERR_STEP(err, InitEjectDiscMessage(changerGUID, storageElem, flags, privateFamily, &message),
              "fail InitEjectDiscMessage");
    time_t start = time(nullptr);
    while (err == nullptr) {
        err = SendMessageToChangerServer(message, &reply);
        if (err == nullptr)
            break;
        if (VErrGetErrCode(err) != kVErrCodeServerBusy) {
            VERR_RAISE(VErrThrow(&err, "fail send message to changer server"));
            break;
        }
        VErrCatch(&err);
        if (SecondsSince(&start) > timeout) // the mount command uses >=
            VERR_RAISE(
                VErrThrowWithErrCode(&err, kVErrCodeCommandTimedOut, "eject disc timed out"));
        else
            sleep(1);
    }
    CFHReleaseIfSet(reply);
    CFHReleaseIfSet(message);
    return err;
}
