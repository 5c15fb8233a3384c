#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "common/CFHelpers.h"

static const char kSourcePath[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus";

VErrLink* InitSetClientStatusMessage(UInt64 changerGUID, const char* clientName,
                                     const char* message, UInt16 currentStep, UInt16 maximumStep,
                                     Boolean abortRequested, CFMutableDictionaryRef* dict) {
    VErrLink* err = nullptr;
    *dict = nullptr;
    CFMutableDictionaryRef status = CFHCreateMutableDictionary();
    VERR_NEED(err, CFHDictionaryStore(status, CFSTR("command"), CFSTR("set client status")),
              "fail create message dict");
    VERR_STEP(err, CFHDictionarySetUInt64Value(status, CFSTR("Changer GUID"), changerGUID),
              "fail set changer GUID");
    VERR_STEP(err,
              CFHDictionarySetStringValue(status, CFSTR("client name"), clientName,
                                          kCFStringEncodingUTF8),
              "fail set client name");
    VERR_STEP(err,
              CFHDictionarySetStringValue(status, CFSTR("message"), message, kCFStringEncodingUTF8),
              "fail set message");
    VERR_STEP(err, CFHDictionarySetUInt16Value(status, CFSTR("current step"), currentStep),
              "fail set cur step");
    VERR_STEP(err, CFHDictionarySetUInt16Value(status, CFSTR("maximum step"), maximumStep),
              "fail set max step");
    if (err == nullptr) {
        CFHDictionarySetBoolValue(status, CFSTR("abort requested"), abortRequested);
        *dict = status;
    } else {
        CFHReleaseIfSet(status);
    }
    return err;
}

VErrLink* ChangerServerSetClientStatus(UInt64 changerGUID, const char* clientName,
                                       const char* message, UInt16 currentStep, UInt16 maximumStep,
                                       Boolean abortRequested) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef request = nullptr;
    CFDictionaryRef reply = nullptr;
    VERR_STEP(err,
              InitSetClientStatusMessage(changerGUID, clientName, message, currentStep, maximumStep,
                                         abortRequested, &request),
              "fail InitSetClientStatusMessage");
    VERR_STEP(err, SendMessageToChangerServer(request, &reply), "fail SendMessageToChangerServer");
    CFHReleaseIfSet(reply);
    CFHReleaseIfSet(request);
    return err;
}

VErrLink* ChangerServerClearClientStatus(UInt64 changerGUID, const char* clientName) {
    VErrLink* err = nullptr;
    VERR_STEP(err, ChangerServerSetClientStatus(changerGUID, clientName, "", 0, 0, false),
              "fail ChangerServerSetClientStatus");
    return err;
}
