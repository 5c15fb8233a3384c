#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "common/CFHelpers.h"

static const char kSourcePath[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification";

VErrLink* InitRequestIdentificationMessage(UInt64 changerGUID, UInt16 storageElem, Boolean request,
                                           CFMutableDictionaryRef* message) {
    VErrLink* err = nullptr;
    *message = nullptr;
    CFMutableDictionaryRef dict = CFHCreateMutableDictionary();
    VERR_NEED(err, CFHDictionaryStore(dict, CFSTR("command"), CFSTR("request identification")),
              "fail alloc messageDict");
    VERR_STEP(err, CFHDictionarySetUInt64Value(dict, CFSTR("Changer GUID"), changerGUID),
              "fail set changer GUID");
    if (storageElem != kNoStorageElem)
        VERR_STEP(err,
                  CFHDictionarySetUInt16Value(dict, CFSTR("Storage Element Index"), storageElem),
                  "fail set storage element index");
    VERR_NEED(
        err, CFHDictionaryStore(dict, CFSTR("request"), request ? kCFBooleanTrue : kCFBooleanFalse),
        "fail save request identification");
    if (err == nullptr)
        *message = dict;
    else
        CFHReleaseIfSet(dict);
    return err;
}

VErrLink* ChangerServerRequestMediaIdentification(UInt64 changerGUID, UInt16 storageElem,
                                                  Boolean request) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef message = nullptr;
    CFDictionaryRef reply = nullptr;
    VERR_STEP(err, InitRequestIdentificationMessage(changerGUID, storageElem, request, &message),
              "fail InitRequestIdentificationMessage");
    VERR_STEP(err, SendMessageToChangerServer(message, &reply), "fail SendMessageToChangerServer");
    CFHReleaseIfSet(reply);
    CFHReleaseIfSet(message);
    return err;
}

VErrLink* ChangerServerRequestChangerIdentification(UInt64 changerGUID, Boolean request) {
    return ChangerServerRequestMediaIdentification(changerGUID, kNoStorageElem, request);
}
