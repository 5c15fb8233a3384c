#include "fsclient/DirectoryInfo.h"

#include "common/CFHelpers.h"
#include "common/PathBuffer.h"

#include <stdlib.h>
#include <sys/stat.h>

static const char kSourcePath[] = "fsclient/DirectoryInfo";

static const char kRootInfoFileName[] = ".changer_info.plist";
static const char kMediaInfoFileName[] = ".media_info.plist";

static void SetFilePath(PathBuffer* path, const char* directory, const char* fileName) {
    SetPath(path, directory);
    AppendToPath(path, fileName);
}

static CFURLRef CreateFileURL(const char* directory, const char* fileName) {
    PathBuffer path;
    SetFilePath(&path, directory, fileName);
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.text),
                                                   static_cast<CFIndex>(path.length), false);
}

VErrLink* ReadFSInfoFile(const char* directory, const char* fileName, CFPropertyListRef* list) {
    VErrLink* err = nullptr;
    CFURLRef url = nullptr;
    CFReadStreamRef stream = nullptr;
    bool opened = false;
    *list = nullptr;

    VERR_GET(err, url, CreateFileURL(directory, fileName),
             "fail CFURLCreateFromFileSystemRepresentation");
    VERR_GET(err, stream, CFReadStreamCreateWithFile(kCFAllocatorDefault, url),
             "fail CFReadStreamCreateWithFile");
    VERR_GET(err, opened, CFReadStreamOpen(stream), "fail CFReadStreamOpen");
    if (err == nullptr) {
        CFStringRef errorString = nullptr;
        CFPropertyListFormat format;
        *list = CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, 0,
                                               kCFPropertyListMutableContainersAndLeaves, &format,
                                               &errorString);
        char* readerText = *list == nullptr ? CFHAllocErrorText(errorString) : nullptr;
        VERR_NEED(err, *list != nullptr, "fail read property list (%s)",
                  readerText != nullptr ? readerText : "NULL");
        free(readerText);
        CFHReleaseIfSet(errorString);
    }
    if (opened)
        CFReadStreamClose(stream);
    CFHReleaseIfSet(stream);
    CFHReleaseIfSet(url);
    return err;
}

VErrLink* ReadFSRootInfoFile(const char* directory, CFPropertyListRef* list) {
    VErrLink* err = nullptr;
    VERR_STEP(err, ReadFSInfoFile(directory, kRootInfoFileName, list), "fail ReadFSInfoFile");
    return err;
}

VErrLink* ReadFSMediaRootInfoFile(const char* directory, CFPropertyListRef* list) {
    VErrLink* err = nullptr;
    VERR_STEP(err, ReadFSInfoFile(directory, kMediaInfoFileName, list), "fail ReadFSInfoFile");
    return err;
}

VErrLink* GetChangerFileSystemRootInfo(const char* directory, UInt64* changerGUID) {
    VErrLink* err = nullptr;
    CFPropertyListRef list = nullptr;
    VERR_STEP(err, ReadFSRootInfoFile(directory, &list), "fail ReadFSRootInfoFile");
    auto* info = static_cast<CFDictionaryRef>(list);
    VERR_STEP(err, CFHDictionaryGetUInt64Value(info, CFSTR("Changer GUID"), changerGUID),
              "fail get changer GUID");
    CFHReleaseIfSet(list);
    return err;
}

VErrLink* GetChangerFileSystemMediaRootInfo(const char* directory, UInt64* changerGUID,
                                            UInt16* storageElem, char* partitionId,
                                            SInt32* writable) {
    VErrLink* err = nullptr;
    CFPropertyListRef list = nullptr;
    VERR_STEP(err, ReadFSMediaRootInfoFile(directory, &list), "fail ReadFSMediaRootInfoFile");
    auto* info = static_cast<CFDictionaryRef>(list);
    if (changerGUID != nullptr)
        VERR_STEP(err, CFHDictionaryGetUInt64Value(info, CFSTR("Changer GUID"), changerGUID),
                  "fail get changer GUID");
    if (storageElem != nullptr)
        VERR_STEP(err,
                  CFHDictionaryGetUInt16Value(info, CFSTR("Storage Element Index"), storageElem),
                  "fail get media storage element");
    if (partitionId != nullptr)
        VERR_STEP(err,
                  CFHDictionaryGetStringValue(info, CFSTR("Partition Id"), kPartitionIdSize,
                                              kCFStringEncodingUTF8, partitionId),
                  "fail get partition id");
    if (writable != nullptr)
        VERR_STEP(err, CFHDictionaryGetBoolValue(info, CFSTR("Writable"), writable),
                  "fail get is writable boolean");
    CFHReleaseIfSet(list);
    return err;
}

VErrLink* IsDirectoryRootOfChangerFileSystem(const char* directory, bool* isRoot) {
    UInt64 changerGUID = 0;
    VErrLink* err = GetChangerFileSystemRootInfo(directory, &changerGUID);
    *isRoot = err == nullptr;
    VErrCatch(&err);
    return nullptr;
}

// A walk checks each directory, and few have an info file: lstat() is cheaper than an error chain.
static bool HasFile(const char* directory, const char* fileName) {
    PathBuffer path;
    struct stat status;
    SetFilePath(&path, directory, fileName);
    return lstat(path.text, &status) == 0;
}

VErrLink* IsDirectoryMediaRootOfChangerFileSystem(const char* directory, bool* isMediaRoot) {
    *isMediaRoot = false;
    if (!HasFile(directory, kMediaInfoFileName))
        return nullptr;
    UInt64 changerGUID = 0;
    UInt16 storageElem = 0;
    char partitionId[kPartitionIdSize];
    SInt32 writable = 0;
    VErrLink* err = GetChangerFileSystemMediaRootInfo(directory, &changerGUID, &storageElem,
                                                      partitionId, &writable);
    *isMediaRoot = err == nullptr;
    VErrCatch(&err);
    return nullptr;
}
