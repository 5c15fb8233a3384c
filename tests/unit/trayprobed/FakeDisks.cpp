#include "FakeDisks.h"

#include "Journal.h"
#include "StateLock.h"
#include "support/PropertyLists.h"

#include <cstring>
#include <utility>

namespace {

bool g_failNextSession = false;

FakeDisk* FromRef(DADiskRef disk) {
    return reinterpret_cast<FakeDisk*>(disk);
}

// The test identifies the callbacks by their addresses.
const char* Description(CFDictionaryRef match, void* context) {
    return match == nullptr && context == nullptr ? "every disk" : "some disks";
}

} // namespace

const CFStringRef kDADiskDescriptionVolumePathKey = CFSTR("DAVolumePath");

DASessionRef DASessionCreate(CFAllocatorRef) {
    Journal::Add("create session");
    if (std::exchange(g_failNextSession, false))
        return nullptr;
    return reinterpret_cast<DASessionRef>(Dictionary().Detach());
}

void DARegisterDiskAppearedCallback(DASessionRef, CFDictionaryRef match,
                                    DADiskAppearedCallback callback, void* context) {
    Journal::Add("appeared: %p for %s", reinterpret_cast<void*>(callback),
                 Description(match, context));
}

void DARegisterDiskDisappearedCallback(DASessionRef, CFDictionaryRef match,
                                       DADiskDisappearedCallback callback, void* context) {
    Journal::Add("disappeared: %p for %s", reinterpret_cast<void*>(callback),
                 Description(match, context));
}

void DASessionScheduleWithRunLoop(DASessionRef, CFRunLoopRef loop, CFStringRef mode) {
    Journal::Add("schedule%s%s", loop == CFRunLoopGetCurrent() ? "" : " in another loop",
                 mode == kCFRunLoopDefaultMode ? "" : " in another mode");
}

void DASessionUnscheduleFromRunLoop(DASessionRef, CFRunLoopRef loop, CFStringRef mode) {
    Journal::Add("unschedule%s%s", loop == CFRunLoopGetCurrent() ? "" : " in another loop",
                 mode == kCFRunLoopDefaultMode ? "" : " in another mode");
}

const char* DADiskGetBSDName(DADiskRef disk) {
    FromRef(disk)->wasNamedUnderTheLock_ = StateLock::IsHeld();
    return FromRef(disk)->bsdName_;
}

CFDictionaryRef DADiskCopyDescription(DADiskRef disk) {
    if (FromRef(disk)->failsDescription_)
        return nullptr;
    auto description = Dictionary();
    if (FromRef(disk)->volumePath_ != nullptr)
        CFDictionarySetValue(description, kDADiskDescriptionVolumePathKey,
                             FromRef(disk)->volumePath_);
    return description.Detach();
}

FakeDisk::FakeDisk(const char* bsdName, const char* volumePath) : bsdName_(bsdName) {
    if (volumePath != nullptr)
        volumePath_ = CFOwned<CFTypeRef>(CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(volumePath),
            static_cast<CFIndex>(std::strlen(volumePath)), true));
}

FakeDisk::FakeDisk(const char* bsdName, CFTypeRef volumePath)
    : bsdName_(bsdName), volumePath_(Share(volumePath)) {}

void FailNextSession() {
    g_failNextSession = true;
}
