/* The disk callbacks: which volumes are added to the registry and removed from it. */

#include "trayprobed/ChangerFSCacheManager.h"

#include "FakeDisks.h"
#include "Journal.h"
#include "StateLock.h"
#include "Store.h"
#include "support/Matchers.h"
#include "support/TemporaryTree.h"
#include "trayprobed/ChangerFSCacheState.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

static std::vector<std::string> g_fileUrls; // the paths of all file URLs created
static bool g_recognitionFails = false;     // the real function never fails

extern "C" {
CFURLRef __real_CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                        CFIndex length, Boolean isDirectory);

CFURLRef __wrap_CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                        CFIndex length, Boolean isDirectory) {
    if (!isDirectory)
        g_fileUrls.emplace_back(reinterpret_cast<const char*>(path),
                                static_cast<std::size_t>(length));
    return __real_CFURLCreateFromFileSystemRepresentation(allocator, path, length, isDirectory);
}

VErrLink* __real__Z34IsDirectoryRootOfChangerFileSystemPKcPb(const char* directory, bool* isRoot);

VErrLink* __wrap__Z34IsDirectoryRootOfChangerFileSystemPKcPb(const char* directory, bool* isRoot) {
    VErrLink* err = nullptr;
    if (g_recognitionFails)
        return VErrRaise(VErrThrow(&err, "fail on purpose"), "test/Recognition", __func__, 1);
    return __real__Z34IsDirectoryRootOfChangerFileSystemPKcPb(directory, isRoot);
}
}

namespace {

constexpr const char* kSource = "trayprobed/ChangerFSCacheManager";

// ---- the session ----

std::string Registration(const char* event, void (*callback)(DADiskRef, void*)) {
    char text[128];
    snprintf(text, sizeof text, "%s: %p for every disk", event, reinterpret_cast<void*>(callback));
    return text;
}

TEST(DiskSession, InitSchedulesTheSessionAndTermUnschedulesItOnce) {
    const LogCapture log;
    Journal::Take();
    EXPECT_EQ(InitChangerFSCacheManager(), nullptr);
    EXPECT_THAT(Journal::Take(),
                ElementsAre("create session", Registration("appeared", DiskArbDiskAppearedCallback),
                            Registration("disappeared", DiskArbDiskDisappearedCallback),
                            "schedule"));
    TermChangerFSCacheManager();
    TermChangerFSCacheManager();
    EXPECT_THAT(Journal::Take(), ElementsAre("unschedule"));
}

TEST(DiskSession, InitFailsWithoutASession) {
    const LogCapture log;
    Journal::Take();
    FailNextSession();
    EXPECT_EQ(TakeChain(InitChangerFSCacheManager()),
              (Chain{{"fail DASessionCreate", "InitChangerFSCacheManager", kSource}}));
    TermChangerFSCacheManager();
    EXPECT_THAT(Journal::Take(), ElementsAre("create session"));
}

// ---- the callbacks ----

class DiskCallbacks : public Store {
protected:
    DiskCallbacks() {
        EXPECT_EQ(InitChangerFSCacheState(), nullptr);
    }
    ~DiskCallbacks() override {
        EXPECT_FALSE(StateLock::IsHeld());
        TermChangerFSCacheState();
    }

    static void Appear(const char* bsdName, const std::string& path) {
        FakeDisk disk(bsdName, path.c_str());
        DiskArbDiskAppearedCallback(disk.Ref(), nullptr);
    }
    static void Disappear(const char* bsdName) {
        FakeDisk disk(bsdName);
        DiskArbDiskDisappearedCallback(disk.Ref(), nullptr);
    }
    // Log lines of the callbacks.
    static std::string Appeared(const std::string& message) {
        return "ChangerFSCacheManager:123, DiskArbDiskAppearedCallback: " + message;
    }
    static std::string Disappeared(const std::string& message) {
        return "ChangerFSCacheManager:123, DiskArbDiskDisappearedCallback: " + message;
    }
    // Empty if the changer has no path.
    static std::string PathOf(UInt64 changerGUID) {
        char path[1024] = "";
        TakeChain(GetChangerFSMountPath(changerGUID, path, sizeof path));
        return path;
    }

    TemporaryTree tree_;
};

TEST_F(DiskCallbacks, VolumeOfAChangerIsRegisteredUntilItDisappears) {
    tree_.MakeChangerRoot("", kChanger);
    Appear("sr0", tree_.Root());
    EXPECT_EQ(PathOf(kChanger), tree_.Root());
    Disappear("sr1");
    EXPECT_EQ(PathOf(kChanger), tree_.Root());
    Disappear("sr0");
    EXPECT_EQ(PathOf(kChanger), "");
}

TEST_F(DiskCallbacks, PathOfAnyUtf8IsRegistered) {
    tree_.MakeChangerRoot("with blank\n100%n \xC3\xA4", kOtherChanger);
    Appear("sr0", tree_.Path("with blank\n100%n \xC3\xA4"));
    EXPECT_EQ(PathOf(kOtherChanger), tree_.Path("with blank\n100%n \xC3\xA4"));
}

TEST_F(DiskCallbacks, DisksWithoutNameOrVolumeAreIgnored) {
    tree_.MakeChangerRoot("", kOtherChanger);
    Appear(nullptr, tree_.Root());
    FakeDisk unmounted("sr0");
    DiskArbDiskAppearedCallback(unmounted.Ref(), nullptr);
    FakeDisk withoutUrl("sr0", CFTypeRef(CFSTR("/")));
    DiskArbDiskAppearedCallback(withoutUrl.Ref(), nullptr);
    Disappear(nullptr);
    EXPECT_EQ(PathOf(kOtherChanger), "");
}

TEST_F(DiskCallbacks, DescriptionOfADiskWithoutANameIsNotRead) {
    FakeDisk disk(nullptr, "/");
    disk.FailDescription();
    DiskArbDiskAppearedCallback(disk.Ref(), nullptr);
}

// A path has at most 1,023 bytes. The info file's path is truncated to as many.
TEST_F(DiskCallbacks, VolumeWhosePathDoesNotFitIsIgnored) {
    for (const std::size_t length : {1022U, 1023U, 1024U, 1025U}) {
        const std::string path = "/" + std::string(length - 1, 'd');
        g_fileUrls.clear();
        Appear("sr0", path);
        std::vector<std::string> expected;
        if (length <= 1023)
            expected.push_back((path + "/.changer_info.plist").substr(0, 1023));
        EXPECT_EQ(g_fileUrls, expected) << length;
    }
}

// With a longer path the info file's path would be truncated.
TEST_F(DiskCallbacks, VolumeWithMoreThan1003BytesOfPathIsIgnored) {
    for (const std::size_t length : {1003U, 1004U}) {
        std::string below;
        while (tree_.Root().size() + below.size() + 1 < length) {
            const std::size_t missing = length - tree_.Root().size() - below.size() - 1;
            below += "/" + std::string(missing <= 200 ? missing : 100, 'd');
        }
        tree_.MakeDirectory(below.substr(1));
        tree_.MakeChangerRoot(below.substr(1), kOtherChanger);
        Appear("sr0", tree_.Root() + below);
        EXPECT_EQ(PathOf(kOtherChanger), length == 1003 ? tree_.Root() + below : "");
        Disappear("sr0");
    }
}

TEST_F(DiskCallbacks, OnlyTheNameOfADisappearingDiskIsReadWithTheLockHeld) {
    FakeDisk disk("sr0");
    DiskArbDiskDisappearedCallback(disk.Ref(), nullptr);
    EXPECT_TRUE(disk.wasNamedUnderTheLock_);
    DiskArbDiskAppearedCallback(disk.Ref(), nullptr);
    EXPECT_FALSE(disk.wasNamedUnderTheLock_);
}

TEST_F(DiskCallbacks, OtherVolumesAreIgnored) {
    tree_.MakeDirectory("plain");
    tree_.MakeMediaRoot("medium", kOtherChanger, 1);
    tree_.MakeDirectory("nameless");
    tree_.Write("nameless/.changer_info.plist", XmlOf(Dictionary({{"Changer GUID", "7"}})));
    for (const char* volume : {"plain", "medium", "nameless", "absent"})
        Appear("sr0", tree_.Path(volume));
    EXPECT_EQ(PathOf(kOtherChanger), "");
}

TEST_F(DiskCallbacks, VolumeWithoutADescriptionIsLogged) {
    FakeDisk disk("sr0", "/");
    disk.FailDescription();
    DiskArbDiskAppearedCallback(disk.Ref(), nullptr);
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(Appeared("fail DADiskCopyDescription")));
}

TEST_F(DiskCallbacks, FailedRecognitionIsLoggedWithThePath) {
    tree_.MakeChangerRoot("", kOtherChanger);
    g_recognitionFails = true;
    Appear("sr0", tree_.Root());
    g_recognitionFails = false;
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(": fail on purpose"),
                            Appeared("fail IsDirectoryRootOfChangerFileSystem for \"" +
                                     tree_.Root() + "\"")));
    EXPECT_EQ(PathOf(kOtherChanger), "");
}

TEST_F(DiskCallbacks, SecondVolumeOfAChangerReplacesTheFirst) {
    tree_.MakeChangerRoot("first", kOtherChanger);
    tree_.MakeChangerRoot("second", kOtherChanger);
    Appear("sr0", tree_.Path("first"));
    Appear("sr1", tree_.Path("second"));
    Disappear("sr0");
    EXPECT_EQ(PathOf(kOtherChanger), tree_.Path("second"));
}

TEST_F(DiskCallbacks, WithoutTheLockNothingChanges) {
    tree_.MakeChangerRoot("", kOtherChanger);
    StateLock::FailLock(EINVAL);
    Appear("sr0", tree_.Root());
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, LockMediaIdState: fail pthread_mutex_lock (err = 22)",
                    Appeared("fail LockMediaIdState (err = 22)")));
    EXPECT_EQ(PathOf(kOtherChanger), "");

    Appear("sr0", tree_.Root());
    StateLock::FailLock(EINVAL);
    Disappear("sr0");
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr("fail pthread_mutex_lock"),
                            Disappeared("fail LockMediaIdState (err = 22)")));
    EXPECT_EQ(PathOf(kOtherChanger), tree_.Root());
}

TEST_F(DiskCallbacks, PathThatIsNotUtf8IsLogged) {
    tree_.MakeChangerRoot("\xFF", kOtherChanger);
    Appear("sr0", tree_.Path("\xFF"));
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre(
            "CFHelpers:123, CFHDictionarySetStringValue: fail alloc str",
            "ChangerFSCacheState:123, AddChangerFSToList: fail set changer mount path value",
            Appeared("fail AddChangerFSToList")));
    EXPECT_EQ(PathOf(kOtherChanger), "");
}

TEST_F(DiskCallbacks, FailedRemovalIsLogged) {
    EXPECT_EQ(AddChangerFSToList(kOtherChanger, std::string(128, 'n').c_str(), "/x"), nullptr);
    Disappear("sr0");
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("CFHelpers:123, CFHDictionaryGetStringValue: fail get str as C str",
                            "ChangerFSCacheState:123, RemoveChangerFSFromList: fail "
                            "CFHDictionaryGetStringValue",
                            Disappeared("fail RemoveChangerFSFromList for bsd name \"sr0\"")));
    EXPECT_EQ(PathOf(kOtherChanger), "/x");
}

// The volume is recognised without the lock and read again with the lock held; a volume that
// has disappeared in between is logged.
TEST_F(DiskCallbacks, RootThatDisappearsBeforeItsSecondReadingIsLogged) {
    tree_.MakeChangerRoot("", kOtherChanger);
    StateLock::OnLock([&] { std::filesystem::remove(tree_.Path(".changer_info.plist")); });
    Appear("sr0", tree_.Root());
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("DirectoryInfo:123, ReadFSInfoFile: fail CFReadStreamOpen",
                    "DirectoryInfo:123, ReadFSRootInfoFile: fail ReadFSInfoFile",
                    "DirectoryInfo:123, GetChangerFileSystemRootInfo: fail "
                    "ReadFSRootInfoFile",
                    Appeared("fail GetChangerFileSystemRootInfo for \"" + tree_.Root() + "\"")));
    EXPECT_EQ(PathOf(kOtherChanger), "");
}

} // namespace
