/* Info files: untrusted input from a disc or a mounted file system, read by the functions that
   recognise root directories. Each input is the content of both files of one directory. */

#include "Target.h"
#include "common/CFHelpers.h"
#include "fsclient/DirectoryInfo.h"
#include "support/Chain.h"
#include "support/NotCopyable.h"
#include "support/PropertyLists.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

// A directory whose two info files are links to one file.
class InfoFileDirectory : NotCopyable {
public:
    InfoFileDirectory() {
        const std::string path = tree_.Path(".changer_info.plist");
        file_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(link(path.c_str(), tree_.Path(".media_info.plist").c_str()), 0);
    }
    ~InfoFileDirectory() {
        close(file_);
    }

    void Write(std::string_view content) const {
        EXPECT_EQ(ftruncate(file_, static_cast<off_t>(content.size())), 0);
        EXPECT_EQ(pwrite(file_, content.data(), content.size(), 0),
                  static_cast<ssize_t>(content.size()));
    }
    const char* Path() const {
        return tree_.Root().c_str();
    }

private:
    const TemporaryTree tree_;
    int file_ = -1;
};

// The content of the file, read without the functions under test.
class Info {
public:
    explicit Info(std::string_view content) {
        if (content.size() >= 6) // no list is shorter
            list_ = CFOwned<CFPropertyListRef>(CFPropertyListCreateFromXMLData(
                nullptr, Bytes(content), kCFPropertyListImmutable, nullptr));
    }

    bool HasNumber(CFStringRef key, CFNumberType type) const {
        std::int64_t value = 0;
        return CFNumberGetValue(static_cast<CFNumberRef>(At(key)), type, &value);
    }
    std::int64_t Number(CFStringRef key) const {
        std::int64_t value = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(At(key)), kCFNumberSInt64Type, &value);
        return value;
    }
    bool HasText(CFStringRef key, CFIndex size) const {
        std::string text(static_cast<std::size_t>(size), '\0');
        return CFStringGetCString(static_cast<CFStringRef>(At(key)), text.data(), size,
                                  kCFStringEncodingUTF8);
    }
    bool HasBoolean(CFStringRef key) const {
        return At(key) == kCFBooleanTrue || At(key) == kCFBooleanFalse;
    }
    CFTypeRef At(CFStringRef key) const {
        return CFDictionaryGetValue(static_cast<CFDictionaryRef>(list_.Get()), key);
    }

private:
    CFOwned<CFPropertyListRef> list_;
};

bool IsRoot(const Info& info) {
    return info.HasNumber(CFSTR("Changer GUID"), kCFNumberSInt64Type);
}

bool IsMediaRoot(const Info& info) {
    return IsRoot(info) && info.HasNumber(CFSTR("Storage Element Index"), kCFNumberSInt16Type) &&
           info.HasText(CFSTR("Partition Id"), kPartitionIdSize) &&
           info.HasBoolean(CFSTR("Writable"));
}

void ExpectRootInfo(const char* directory, const Info& info) {
    UInt64 changerGUID = 0;
    EXPECT_EQ(TakeChain(GetChangerFileSystemRootInfo(directory, &changerGUID)), Chain());
    EXPECT_EQ(static_cast<SInt64>(changerGUID), info.Number(CFSTR("Changer GUID")));
}

void ExpectMediaRootInfo(const char* directory, const Info& info) {
    UInt64 changerGUID = 0;
    UInt16 storageElem = 0;
    char partitionId[kPartitionIdSize] = "";
    SInt32 writable = 2;
    EXPECT_EQ(TakeChain(GetChangerFileSystemMediaRootInfo(directory, &changerGUID, &storageElem,
                                                          partitionId, &writable)),
              Chain());
    EXPECT_EQ(static_cast<SInt64>(changerGUID), info.Number(CFSTR("Changer GUID")));
    EXPECT_EQ(storageElem, static_cast<UInt16>(info.Number(CFSTR("Storage Element Index"))));
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(info.At(CFSTR("Partition Id")))), partitionId);
    EXPECT_EQ(writable == 1, info.At(CFSTR("Writable")) == kCFBooleanTrue);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const InfoFileDirectory directory;
    const std::string_view content = TextOfInput(data, size);
    const Info info(content);
    directory.Write(content);

    bool isRoot = false;
    bool isMediaRoot = false;
    EXPECT_EQ(TakeChain(IsDirectoryRootOfChangerFileSystem(directory.Path(), &isRoot)), Chain());
    EXPECT_EQ(TakeChain(IsDirectoryMediaRootOfChangerFileSystem(directory.Path(), &isMediaRoot)),
              Chain());
    EXPECT_EQ(isRoot, IsRoot(info));
    EXPECT_EQ(isMediaRoot, IsMediaRoot(info));
    if (isRoot)
        ExpectRootInfo(directory.Path(), info);
    if (isMediaRoot)
        ExpectMediaRootInfo(directory.Path(), info);
    return 0;
}
