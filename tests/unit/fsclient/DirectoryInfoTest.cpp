#include "fsclient/DirectoryInfo.h"

#include "support/BinaryLists.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/TemporaryTree.h"
#include "support/WithoutMemory.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

std::string g_urlPath; // of the last URL created
bool g_readWithoutText = false;
int g_openStreams = 0;

} // namespace

extern "C" {
CFURLRef __real_CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                        CFIndex length, Boolean isDirectory);
CFPropertyListRef __real_CFPropertyListCreateFromStream(CFAllocatorRef allocator,
                                                        CFReadStreamRef stream, CFIndex length,
                                                        CFOptionFlags mutability,
                                                        CFPropertyListFormat* format,
                                                        CFStringRef* errorString);
Boolean __real_CFReadStreamOpen(CFReadStreamRef stream);
void __real_CFReadStreamClose(CFReadStreamRef stream);

CFURLRef __wrap_CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                        CFIndex length, Boolean isDirectory) {
    EXPECT_FALSE(isDirectory);
    if (g_urlPath.capacity() > static_cast<std::size_t>(length)) // memory may be short
        g_urlPath.assign(reinterpret_cast<const char*>(path), static_cast<std::size_t>(length));
    return __real_CFURLCreateFromFileSystemRepresentation(allocator, path, length, isDirectory);
}

CFPropertyListRef __wrap_CFPropertyListCreateFromStream(CFAllocatorRef allocator,
                                                        CFReadStreamRef stream, CFIndex length,
                                                        CFOptionFlags mutability,
                                                        CFPropertyListFormat* format,
                                                        CFStringRef* errorString) {
    EXPECT_EQ(length, 0);
    EXPECT_EQ(mutability, CFOptionFlags{kCFPropertyListMutableContainersAndLeaves});
    if (g_readWithoutText)
        return nullptr;
    return __real_CFPropertyListCreateFromStream(allocator, stream, length, mutability, format,
                                                 errorString);
}

Boolean __wrap_CFReadStreamOpen(CFReadStreamRef stream) {
    const Boolean isOpen = __real_CFReadStreamOpen(stream);
    g_openStreams += isOpen;
    return isOpen;
}

void __wrap_CFReadStreamClose(CFReadStreamRef stream) {
    --g_openStreams;
    __real_CFReadStreamClose(stream);
}
}

namespace {

constexpr const char* kSource = "fsclient/DirectoryInfo";

// {"Changer GUID": 7}
constexpr char kBinaryRootInfo[] = "bplist00\xD1\x01\x02\x5C"
                                   "Changer GUID\x10\x07\x08\x0B\x18\0\0\0\0\0\0\1\1"
                                   "\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x1A";

class DirectoryInfo : public testing::Test {
protected:
    DirectoryInfo() {
        g_urlPath.reserve(4096);
        g_readWithoutText = false;
    }
    ~DirectoryInfo() override {
        EXPECT_EQ(g_openStreams, 0);
        g_openStreams = 0;
    }

    void WriteRootInfo(std::string_view content) const {
        tree_.Write(".changer_info.plist", content);
    }
    void WriteMediaInfo(const CFOwned<CFMutableDictionaryRef>& info) const {
        tree_.Write(".media_info.plist", XmlOf(info));
    }
    // The errors of reading an info file, which must not make the directory a root.
    Chain RootInfoChain() const {
        UInt64 guid = 0;
        EXPECT_FALSE(IsRoot());
        return TakeChain(GetChangerFileSystemRootInfo(tree_.Root().c_str(), &guid));
    }
    std::vector<std::string> RootInfoMessages() const {
        return MessagesOf(RootInfoChain());
    }
    void ExpectRootGuid(UInt64 expected) const {
        UInt64 guid = 0;
        EXPECT_EQ(GetChangerFileSystemRootInfo(tree_.Root().c_str(), &guid), nullptr);
        EXPECT_EQ(guid, expected);
        EXPECT_TRUE(IsRoot());
    }
    struct MediaInfo {
        UInt64 guid = 0;
        UInt16 elem = 0;
        char partition[kPartitionIdSize] = "";
        SInt32 writable = 5;
    };
    Chain ReadMediaInfo(MediaInfo* info) const {
        return TakeChain(GetChangerFileSystemMediaRootInfo(
            tree_.Root().c_str(), &info->guid, &info->elem, info->partition, &info->writable));
    }
    void ExpectWritableMediaInfo(UInt64 guid, UInt16 elem, const char* partition) const {
        MediaInfo info;
        EXPECT_EQ(ReadMediaInfo(&info), Chain());
        EXPECT_EQ(info.guid, guid);
        EXPECT_EQ(info.elem, elem);
        EXPECT_STREQ(info.partition, partition);
        EXPECT_EQ(info.writable, 1);
        EXPECT_TRUE(IsMediaRoot());
        EXPECT_FALSE(IsRoot());
    }
    std::vector<std::string> MediaInfoMessages() const {
        MediaInfo info;
        EXPECT_FALSE(IsMediaRoot());
        return MessagesOf(ReadMediaInfo(&info));
    }
    // The path of the file that the function tries to read. There must be no such file.
    static std::string PathReadBy(VErrLink* (*read)(const char* directory, CFPropertyListRef* list),
                                  const std::string& directory) {
        CFPropertyListRef list = nullptr;
        EXPECT_NE(TakeChain(read(directory.c_str(), &list)), Chain());
        return g_urlPath;
    }
    bool IsRoot() const {
        bool isRoot = false;
        EXPECT_EQ(IsDirectoryRootOfChangerFileSystem(tree_.Root().c_str(), &isRoot), nullptr);
        return isRoot;
    }
    bool IsMediaRoot() const {
        bool isMediaRoot = false;
        EXPECT_EQ(IsDirectoryMediaRootOfChangerFileSystem(tree_.Root().c_str(), &isMediaRoot),
                  nullptr);
        return isMediaRoot;
    }

    LogCapture log_; // no test here may log
    TemporaryTree tree_;
};

// A complete info of a writable partition, plus `changes`.
CFOwned<CFMutableDictionaryRef> CompleteMediaInfo(std::initializer_list<Entry> changes = {}) {
    return With(Dictionary({{"Changer GUID", 7},
                            {"Storage Element Index", 12},
                            {"Partition Id", "s1"},
                            {"Writable", true}}),
                changes);
}

// ---- changer roots ----

TEST_F(DirectoryInfo, XmlRootInfoIsRead) {
    WriteRootInfo(XmlOf(Dictionary({{"Changer GUID", 0x7EDCBA9876543210}, {"Other", "x"}})));
    ExpectRootGuid(0x7EDCBA9876543210U);
}

TEST_F(DirectoryInfo, GuidOf64BitsIsReadFromItsNegative) {
    WriteRootInfo(XmlOf(Dictionary({{"Changer GUID", -81985529216486896}})));
    ExpectRootGuid(0xFEDCBA9876543210U);
}

TEST_F(DirectoryInfo, BinaryRootInfoIsRead) {
    WriteRootInfo({kBinaryRootInfo, sizeof kBinaryRootInfo - 1});
    ExpectRootGuid(7U);
}

TEST_F(DirectoryInfo, BinaryRootInfoIsReadWithAnyGuid) {
    for (const UInt64 written : {0x5000C500ABCD1234U, 0x8000000000000000U, 0xFFFFFFFFFFFFFFFFU}) {
        WriteRootInfo(BinaryDictionary(
            {{"Other", BinaryText("x")}, {"Changer GUID", BinaryInteger(written)}}));
        ExpectRootGuid(written);
    }
}

TEST_F(DirectoryInfo, DirectoryWithoutRootInfoIsNoRoot) {
    EXPECT_THAT(RootInfoChain(),
                ElementsAre(RaisedLink{"fail CFReadStreamOpen", "ReadFSInfoFile", kSource},
                            RaisedLink{"fail ReadFSInfoFile", "ReadFSRootInfoFile", kSource},
                            RaisedLink{"fail ReadFSRootInfoFile", "GetChangerFileSystemRootInfo",
                                       kSource}));
}

TEST_F(DirectoryInfo, RootInfoWithATextForTheGuidIsNoRoot) {
    WriteRootInfo(XmlOf(Dictionary({{"Changer GUID", "7"}})));
    const Chain chain = RootInfoChain();
    ASSERT_EQ(chain.size(), 2U);
    EXPECT_THAT(chain[0].message, StartsWith("fail get num as "));
    EXPECT_EQ(chain[1],
              (RaisedLink{"fail get changer GUID", "GetChangerFileSystemRootInfo", kSource}));
}

TEST_F(DirectoryInfo, RootInfoWithoutAGuidIsNoRoot) {
    for (const std::string& content : {XmlOf(Dictionary({{"changer guid", 7}})), XmlOf(Array({7})),
                                       XmlOf(Text("Changer GUID"))}) {
        WriteRootInfo(content);
        EXPECT_THAT(RootInfoMessages(),
                    ElementsAre("fail get value from dict", "fail get changer GUID"))
            << content;
    }
}

TEST_F(DirectoryInfo, ErrorOfAFileThatDoesNotParseHasTheTextOfTheParser) {
    for (const char* content :
         {"", "rubbish", "<plist><dict>", "bplist00", "{ \"Changer GUID\" = 7; }"}) {
        WriteRootInfo(content);
        EXPECT_THAT(RootInfoMessages(),
                    ElementsAre(AllOf(MatchesRegex("fail read property list \\(.+\\)"),
                                      Not("fail read property list (NULL)")),
                                "fail ReadFSInfoFile", "fail ReadFSRootInfoFile"))
            << content;
    }
}

TEST_F(DirectoryInfo, MissingErrorTextOfTheParserIsReportedAsNull) {
    WriteRootInfo("");
    g_readWithoutText = true;
    EXPECT_THAT(RootInfoMessages(), ElementsAre("fail read property list (NULL)",
                                                "fail ReadFSInfoFile", "fail ReadFSRootInfoFile"));
}

// ---- media roots ----

TEST_F(DirectoryInfo, XmlMediaInfoIsRead) {
    WriteMediaInfo(CompleteMediaInfo());
    ExpectWritableMediaInfo(7U, 12, "s1");
}

TEST_F(DirectoryInfo, BinaryMediaInfoIsRead) {
    tree_.Write(".media_info.plist",
                BinaryDictionary({{"Changer GUID", BinaryInteger(0x5000C500ABCD1234U)},
                                  {"Storage Element Index", BinaryInteger(40000)},
                                  {"Partition Id", BinaryText("s\xE9")},
                                  {"Writable", BinaryFlag(true)}}));
    ExpectWritableMediaInfo(0x5000C500ABCD1234U, 40000, "s\u00E9");
}

// Writers store an element above 32767 as a negative number or as its own value.
TEST_F(DirectoryInfo, StorageElementsOf16BitsAreReadAndGreaterOnesFail) {
    for (const int written : {40000, -25536}) {
        WriteMediaInfo(CompleteMediaInfo({{"Storage Element Index", written}}));
        ExpectWritableMediaInfo(7U, 40000, "s1");
    }
    WriteMediaInfo(CompleteMediaInfo({{"Storage Element Index", 70000}}));
    EXPECT_EQ(MediaInfoMessages().back(), "fail get media storage element");
}

TEST_F(DirectoryInfo, DirectoryWithoutMediaInfoIsNoMediaRoot) {
    const char* root = tree_.Root().c_str();
    EXPECT_THAT(
        TakeChain(GetChangerFileSystemMediaRootInfo(root, nullptr, nullptr, nullptr, nullptr)),
        ElementsAre(RaisedLink{"fail CFReadStreamOpen", "ReadFSInfoFile", kSource},
                    RaisedLink{"fail ReadFSInfoFile", "ReadFSMediaRootInfoFile", kSource},
                    RaisedLink{"fail ReadFSMediaRootInfoFile", "GetChangerFileSystemMediaRootInfo",
                               kSource}));
    EXPECT_FALSE(IsMediaRoot());
}

TEST_F(DirectoryInfo, OnlyKeysOfGivenOutputsAreRead) {
    const char* root = tree_.Root().c_str();
    WriteMediaInfo(Dictionary());
    EXPECT_EQ(GetChangerFileSystemMediaRootInfo(root, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_FALSE(IsMediaRoot());

    WriteMediaInfo(Dictionary({{"Writable", true}}));
    SInt32 writable = 0;
    EXPECT_EQ(GetChangerFileSystemMediaRootInfo(root, nullptr, nullptr, nullptr, &writable),
              nullptr);
    EXPECT_EQ(writable, 1);
}

TEST_F(DirectoryInfo, FirstInvalidValueEndsTheReading) {
    WriteMediaInfo(CompleteMediaInfo({{"Partition Id", 3}}));
    MediaInfo info;
    EXPECT_THAT(MessagesOf(ReadMediaInfo(&info)),
                ElementsAre("fail get str as C str", "fail get partition id"));
    EXPECT_EQ(info.guid, 7U);
    EXPECT_EQ(info.elem, 12);
    EXPECT_EQ(info.writable, 5);
}

// The keys are read in this order. Each is the first missing key of an info without that key, and
// of an info with the earlier keys only.
TEST_F(DirectoryInfo, FirstMissingKeyOfAMediaInfoIsReported) {
    const std::pair<const char*, const char*> keys[] = {
        {"Changer GUID", "fail get changer GUID"},
        {"Storage Element Index", "fail get media storage element"},
        {"Partition Id", "fail get partition id"},
        {"Writable", "fail get is writable boolean"}};
    const auto earlierKeys = Dictionary();
    for (const auto& [key, message] : keys) {
        WriteMediaInfo(Without(CompleteMediaInfo(), key));
        EXPECT_THAT(MediaInfoMessages(), ElementsAre("fail get value from dict", message));
        WriteMediaInfo(earlierKeys);
        EXPECT_THAT(MediaInfoMessages(), ElementsAre("fail get value from dict", message));
        CFDictionarySetValue(earlierKeys, Text(key),
                             CFDictionaryGetValue(CompleteMediaInfo(), Text(key)));
    }
}

TEST_F(DirectoryInfo, NumberForTheWritableFlagFails) {
    WriteMediaInfo(CompleteMediaInfo({{"Writable", 1}}));
    EXPECT_THAT(MediaInfoMessages(),
                ElementsAre("bool neither true nor false", "fail get is writable boolean"));
}

TEST_F(DirectoryInfo, PartitionIdOfMoreThan31BytesFails) {
    struct Case {
        std::string id;
        bool fits;
    };
    const std::string umlaut = "\xC3\xA4";
    for (const Case& each :
         {Case{"", true}, Case{std::string(31, 'x'), true}, Case{std::string(32, 'x'), false},
          Case{std::string(29, 'x') + umlaut, true}, Case{std::string(30, 'x') + umlaut, false}}) {
        tree_.MakeMediaRoot("", 7, 12, each.id.c_str());
        EXPECT_EQ(IsMediaRoot(), each.fits) << each.id;
    }
}

// ---- paths ----

TEST_F(DirectoryInfo, SlashAtTheEndOfThePathIsNotDoubled) {
    EXPECT_EQ(PathReadBy(ReadFSRootInfoFile, "/no/such"), "/no/such/.changer_info.plist");
    EXPECT_EQ(PathReadBy(ReadFSRootInfoFile, "/no/such/"), "/no/such/.changer_info.plist");
    EXPECT_EQ(PathReadBy(ReadFSRootInfoFile, "/"), "/.changer_info.plist");
}

TEST_F(DirectoryInfo, EmptyPathIsTheRootDirectory) {
    EXPECT_EQ(PathReadBy(ReadFSRootInfoFile, ""), "/.changer_info.plist");
}

TEST_F(DirectoryInfo, PathsAreTruncatedTo1023Bytes) {
    const std::string directory = "/" + std::string(1019, 'd'); // of 1020 bytes
    EXPECT_EQ(PathReadBy(ReadFSMediaRootInfoFile, directory), directory + "/.m");
    const std::string longer = "/" + std::string(2000, 'd');
    EXPECT_EQ(PathReadBy(ReadFSMediaRootInfoFile, longer), longer.substr(0, 1023));
}

TEST_F(DirectoryInfo, DirectoryNamesOfAnyBytesAreRead) {
    for (const char* name : {"with blank", "line\nbreak", "100%n", "\xFF\xFE"}) {
        tree_.MakeMediaRoot(name, 7, 12);
        bool isMediaRoot = false;
        EXPECT_EQ(IsDirectoryMediaRootOfChangerFileSystem(tree_.Path(name).c_str(), &isMediaRoot),
                  nullptr);
        EXPECT_TRUE(isMediaRoot) << name;
    }
}

TEST_F(DirectoryInfo, FailureResetsTheOutputs) {
    const auto earlier = Dictionary();
    CFPropertyListRef list = earlier.Get();
    bool isRoot = true;
    bool isMediaRoot = true;
    EXPECT_NE(TakeChain(ReadFSInfoFile("/no/such", "file", &list)), Chain());
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(IsDirectoryRootOfChangerFileSystem("/no/such", &isRoot), nullptr);
    EXPECT_FALSE(isRoot);
    EXPECT_EQ(IsDirectoryMediaRootOfChangerFileSystem("/no/such", &isMediaRoot), nullptr);
    EXPECT_FALSE(isMediaRoot);
}

// ---- files of untrusted discs ----

TEST_F(DirectoryInfo, SpecialFilesAreNotOpened) {
    const std::string path = tree_.Path(".changer_info.plist");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(RootInfoMessages().front(), "fail CFReadStreamOpen");
    for (const char* target : {"/dev/zero", ".changer_info.plist"}) {
        std::filesystem::remove(path);
        tree_.Link(target, ".changer_info.plist");
        EXPECT_EQ(RootInfoMessages().front(), "fail CFReadStreamOpen") << target;
    }
}

TEST_F(DirectoryInfo, DirectoryInPlaceOfTheInfoFileDoesNotParse) {
    tree_.MakeDirectory(".changer_info.plist");
    EXPECT_THAT(RootInfoMessages().front(), StartsWith("fail read property list ("));
}

TEST_F(DirectoryInfo, HugeFileDoesNotParse) {
    WriteRootInfo(XmlOf(Dictionary({{"Changer GUID", 7}})));
    std::filesystem::resize_file(tree_.Path(".changer_info.plist"), std::uintmax_t{40} << 30);
    EXPECT_THAT(RootInfoMessages().front(), StartsWith("fail read property list ("));
}

TEST_F(DirectoryInfo, LinkToAFileIsFollowed) {
    tree_.Write("elsewhere", XmlOf(Dictionary({{"Changer GUID", 7}})));
    tree_.Link("elsewhere", ".changer_info.plist");
    EXPECT_TRUE(IsRoot());
}

// ---- memory ----

TEST_F(DirectoryInfo, WithoutMemoryReadingFailsAndClosesTheFile) {
    WriteRootInfo(XmlOf(Dictionary({{"Changer GUID", 0x7EDCBA9876543210}})));
    const char* root = tree_.Root().c_str();
    std::set<std::string> innermost;
    UInt64 guid = 0;
    SweepErrors([&] { return GetChangerFileSystemRootInfo(root, &guid); },
                [&](const Chain& chain, bool) {
                    if (!chain.empty())
                        innermost.insert(chain.front().message.substr(0, 40));
                });
    EXPECT_THAT(innermost, testing::IsSupersetOf({"fail CFURLCreateFromFileSystemRepresenta",
                                                  "fail CFReadStreamCreateWithFile"}));
}

TEST_F(DirectoryInfo, WithoutMemoryNothingIsARoot) {
    tree_.MakeChangerRoot("", 7);
    tree_.MakeMediaRoot("", 7, 12);
    const char* root = tree_.Root().c_str();
    for (const auto isRootOf :
         {IsDirectoryRootOfChangerFileSystem, IsDirectoryMediaRootOfChangerFileSystem}) {
        bool isRoot = false;
        VErrLink* err = nullptr;
        SweepAllocationFaults([&](std::size_t) { err = isRootOf(root, &isRoot); },
                              [&](std::size_t, bool happened) {
                                  EXPECT_EQ(err, nullptr);
                                  EXPECT_EQ(isRoot, !happened);
                              });
    }
}

} // namespace
