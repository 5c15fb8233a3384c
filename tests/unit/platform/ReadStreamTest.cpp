/* Reading property lists from files: the states of a stream, and files that must not be opened. */

#include "Lists.h"
#include "ResourceUsage.h"
#include "Urls.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

namespace {

constexpr const char* kUnknownError = "Property list reading could not be completed because the "
                                      "stream had an unknown error. Did you forget to open the "
                                      "stream?";

// If not empty, lstat() reports this file, as if it was replaced between lstat() and open().
std::string g_replacedAfterLstat;

class ReadStreamTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const {
        return tree_.Path(name);
    }
    std::string File(const std::string& name, const std::string& content) const {
        tree_.Write(name, content);
        return Path(name);
    }

private:
    const TemporaryTree tree_;
};

CFOwned<CFReadStreamRef> MakeStream(const std::string& path) {
    const CFOwned url(CreateUrl(path));
    return CFOwned(CFReadStreamCreateWithFile(kCFAllocatorDefault, url.Get()));
}

bool CanOpen(const std::string& path) {
    const CFOwned stream = MakeStream(path);
    return CFReadStreamOpen(stream.Get());
}

struct FileResult {
    CFOwned<CFPropertyListRef> list;
    std::string error;
    CFPropertyListFormat format = {};
};

FileResult ReadFrom(CFReadStreamRef stream, CFIndex length = 0) {
    FileResult result;
    CFStringRef text = nullptr;
    result.list = CFOwned(CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, length,
                                                         kCFPropertyListMutableContainersAndLeaves,
                                                         &result.format, &text));
    if (const CFOwned error(text); error)
        result.error = TextOf(error.Get());
    return result;
}

FileResult ReadFile(const std::string& path, CFIndex length = 0) {
    const CFOwned stream = MakeStream(path);
    EXPECT_TRUE(CFReadStreamOpen(stream.Get()));
    return ReadFrom(stream.Get(), length);
}

TEST_F(ReadStreamTest, XmlAndBinaryAreReadWithTheirFormat) {
    const FileResult xml = ReadFile(File("x", "<string>a</string>"));
    ASSERT_TRUE(xml.list);
    EXPECT_EQ(xml.format, kCFPropertyListXMLFormat_v1_0);
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(xml.list.Get())), "a");
    std::string binary = "bplist00\x09\x08" + std::string(6, '\0') + "\x01\x01" +
                         std::string(7, '\0') + '\x01' + std::string(15, '\0') + '\x09';
    const FileResult result = ReadFile(File("b", binary));
    ASSERT_TRUE(result.list) << result.error;
    EXPECT_EQ(result.format, kCFPropertyListBinaryFormat_v1_0);
    EXPECT_EQ(result.list.Get(), kCFBooleanTrue);
}

TEST_F(ReadStreamTest, FileLongerThanOneReadIsReadWhole) {
    const std::string text(100000, 'a');
    const FileResult result = ReadFile(File("x", "<string>" + text + "</string>"));
    ASSERT_TRUE(result.list);
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(result.list.Get())), text);
}

TEST_F(ReadStreamTest, LengthLimitsTheRead) {
    const std::string path = File("x", "<true/><false/>");
    EXPECT_TRUE(ReadFile(path, 7).list);
    EXPECT_EQ(ReadFile(path, 6).error, "Encountered unexpected EOF");
}

TEST_F(ReadStreamTest, FailedReadGivesErrorText) {
    EXPECT_EQ(ReadFile(File("x", "")).error, "stream had too few bytes");
    EXPECT_EQ(ReadFile(File("x", "<true")).error, "stream had too few bytes");
    EXPECT_EQ(ReadFile(File("x", "\x01garbage")).error, "Unexpected character \x01 at line 1");
    EXPECT_EQ(ReadFile(File("x", "bplist00garbage")).error, "Unexpected character b at line 1");
    EXPECT_EQ(ReadFile(File("x", "<dict>")).error, "Encountered unexpected EOF");
}

TEST_F(ReadStreamTest, SecondReadFindsNoBytes) {
    const CFOwned stream = MakeStream(File("x", "<true/>"));
    ASSERT_TRUE(CFReadStreamOpen(stream.Get()));
    EXPECT_TRUE(ReadFrom(stream.Get()).list);
    EXPECT_EQ(ReadFrom(stream.Get()).error, "stream had too few bytes");
}

TEST_F(ReadStreamTest, StreamOpensOnce) {
    const CFOwned stream = MakeStream(File("x", "<true/>"));
    EXPECT_EQ(ReadFrom(stream.Get()).error, kUnknownError);
    CFReadStreamClose(stream.Get());
    EXPECT_TRUE(CFReadStreamOpen(stream.Get()));
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    CFReadStreamClose(stream.Get());
    EXPECT_EQ(ReadFrom(stream.Get()).error, kUnknownError);
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    CFReadStreamClose(stream.Get());
}

TEST_F(ReadStreamTest, FailedOpenIsFinal) {
    const CFOwned stream = MakeStream(Path("x"));
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    File("x", "<true/>");
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    EXPECT_EQ(ReadFrom(stream.Get()).error, kUnknownError);
}

TEST_F(ReadStreamTest, DirectoryOpensButReadFails) {
    EXPECT_EQ(ReadFile(Path("")).error, kUnknownError);
}

TEST_F(ReadStreamTest, LinkWithinFileSystemIsFollowed) {
    const std::string file = File("x", "<true/>");
    ASSERT_EQ(symlink(file.c_str(), Path("link").c_str()), 0);
    EXPECT_TRUE(ReadFile(Path("link")).list);
    ASSERT_EQ(symlink("/dev/zero", Path("zero").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("zero")));
    ASSERT_EQ(symlink("loop", Path("loop").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("loop")));
}

// Reading some of the kernel's files consumes messages.
TEST_F(ReadStreamTest, LinkToOtherFileSystemIsRefused) {
    ASSERT_TRUE(CanOpen("/proc/self/status"));
    ASSERT_EQ(symlink("/proc/self/status", Path("status").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("status")));
}

TEST_F(ReadStreamTest, FifosSocketsDevicesAndBadPathsAreRefused) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(CanOpen(Path("fifo")));
    ASSERT_EQ(mknod(Path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_FALSE(CanOpen(Path("socket")));
    EXPECT_FALSE(CanOpen("/dev/null"));
    EXPECT_FALSE(CanOpen(Path("missing")));
    EXPECT_FALSE(CanOpen(File("x", "<true/>") + "/below"));
    EXPECT_FALSE(CanOpen("/" + std::string(5000, 'a')));
}

// Opening makes some devices act and wakes a process at the other end of a FIFO.
TEST_F(ReadStreamTest, RefusedFifoIsNeverOpened) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, Path("fifo").c_str(), IN_OPEN), 0);
    EXPECT_FALSE(CanOpen(Path("fifo")));
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_EQ(read(watch, event, sizeof event), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(watch);
}

TEST_F(ReadStreamTest, FifoInPlaceOfCheckedFileIsRefused) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const std::size_t before = CountDescriptors();
    g_replacedAfterLstat = File("x", "<true/>");
    EXPECT_FALSE(CanOpen(Path("fifo")));
    g_replacedAfterLstat.clear();
    EXPECT_EQ(CountDescriptors(), before);
}

void ExpectLimitOf16MiB(const std::string& path) {
    std::filesystem::resize_file(path, std::uintmax_t{16} << 20);
    EXPECT_TRUE(ReadFile(path).list);
    std::filesystem::resize_file(path, (std::uintmax_t{16} << 20) + 1);
    EXPECT_EQ(ReadFile(path).error, "stream had too many bytes");
}

TEST_F(ReadStreamTest, FileAbove16MiBIsRefused) {
    const std::string path = File("x", "<true/>");
    ExpectLimitOf16MiB(path);
    std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_EQ(ReadFile(path).error, "stream had too many bytes");
}

// The main thread reads files with the help of another thread, other threads read alone.
TEST_F(ReadStreamTest, FileAbove16MiBIsRefusedOnOtherThread) {
    const std::string path = File("x", "<true/>");
    std::thread([&] { ExpectLimitOf16MiB(path); }).join();
}

TEST_F(ReadStreamTest, OpenStreamKeepsNoDescriptor) {
    const std::size_t before = CountDescriptors();
    const CFOwned stream = MakeStream(File("x", "<true/>"));
    ASSERT_TRUE(CFReadStreamOpen(stream.Get()));
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_FALSE(CanOpen(Path("missing")));
    EXPECT_EQ(CountDescriptors(), before);
}

TEST(ReadStream, NullOrWrongArgumentsFail) {
    EXPECT_EQ(CFReadStreamCreateWithFile(kCFAllocatorDefault, nullptr), nullptr);
    EXPECT_FALSE(CFReadStreamOpen(nullptr));
    CFReadStreamClose(nullptr);
    EXPECT_EQ(ReadFrom(nullptr).error, kUnknownError);
    auto* string = static_cast<CFURLRef>(static_cast<CFTypeRef>(CFSTR("/tmp")));
    const CFOwned stream(CFReadStreamCreateWithFile(kCFAllocatorDefault, string));
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
}

} // namespace

extern "C" {
int __real_lstat(const char* path, struct stat* status);

int __wrap_lstat(const char* path, struct stat* status) {
    return __real_lstat(g_replacedAfterLstat.empty() ? path : g_replacedAfterLstat.c_str(), status);
}
}
