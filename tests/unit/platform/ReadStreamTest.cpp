/* Reading property lists from files: the states of a stream, and files that must not be opened. */

#include "Lists.h"
#include "ResourceUsage.h"
#include "Urls.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

constexpr const char* kUnknownError = "Property list reading could not be completed because the "
                                      "stream had an unknown error. Did you forget to open the "
                                      "stream?";

// When it names a file, stat() tells of that file, as if another took its place before open().
std::string g_replacedAfterLstat;

class ReadStreamTest : public testing::Test {
protected:
    ReadStreamTest() {
        std::string pattern = testing::TempDir() + "ReadStreamTest.XXXXXX";
        folder_ = mkdtemp(pattern.data());
    }
    ~ReadStreamTest() override {
        std::filesystem::remove_all(folder_);
    }

    std::string Path(const std::string& name) const {
        return folder_ / name;
    }
    std::string File(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
        return Path(name);
    }

private:
    std::filesystem::path folder_;
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

TEST_F(ReadStreamTest, ReadsXmlAndBinaryAndTellsWhich) {
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

TEST_F(ReadStreamTest, ReadsFilesLongerThanOneRead) {
    const std::string text(100000, 'a');
    const FileResult result = ReadFile(File("x", "<string>" + text + "</string>"));
    ASSERT_TRUE(result.list);
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(result.list.Get())), text);
}

TEST_F(ReadStreamTest, ReadsNoMoreThanAskedFor) {
    const std::string path = File("x", "<true/><false/>");
    EXPECT_TRUE(ReadFile(path, 7).list);
    EXPECT_EQ(ReadFile(path, 6).error, "Encountered unexpected EOF");
}

TEST_F(ReadStreamTest, SaysWhyThereIsNoList) {
    EXPECT_EQ(ReadFile(File("x", "")).error, "stream had too few bytes");
    EXPECT_EQ(ReadFile(File("x", "<true")).error, "stream had too few bytes");
    EXPECT_EQ(ReadFile(File("x", "\x01garbage")).error, "Unexpected character \x01 at line 1");
    EXPECT_EQ(ReadFile(File("x", "bplist00garbage")).error, "Unexpected character b at line 1");
    EXPECT_EQ(ReadFile(File("x", "<dict>")).error, "Encountered unexpected EOF");
}

TEST_F(ReadStreamTest, AtTheEndOfTheFileNothingIsLeft) {
    const CFOwned stream = MakeStream(File("x", "<true/>"));
    ASSERT_TRUE(CFReadStreamOpen(stream.Get()));
    EXPECT_TRUE(ReadFrom(stream.Get()).list);
    EXPECT_EQ(ReadFrom(stream.Get()).error, "stream had too few bytes");
}

TEST_F(ReadStreamTest, OpensOnce) {
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

TEST_F(ReadStreamTest, AFailedOpenIsFinal) {
    const CFOwned stream = MakeStream(Path("x"));
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    File("x", "<true/>");
    EXPECT_FALSE(CFReadStreamOpen(stream.Get()));
    EXPECT_EQ(ReadFrom(stream.Get()).error, kUnknownError);
}

TEST_F(ReadStreamTest, OpensADirectoryButCannotReadIt) {
    EXPECT_EQ(ReadFile(Path("")).error, kUnknownError);
}

TEST_F(ReadStreamTest, FollowsLinksWithinAFileSystem) {
    const std::string file = File("x", "<true/>");
    ASSERT_EQ(symlink(file.c_str(), Path("link").c_str()), 0);
    EXPECT_TRUE(ReadFile(Path("link")).list);
    ASSERT_EQ(symlink("/dev/zero", Path("zero").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("zero")));
    ASSERT_EQ(symlink("loop", Path("loop").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("loop")));
}

// Reading alone takes messages out of some of the kernel's files.
TEST_F(ReadStreamTest, FollowsNoLinkOutOfItsFileSystem) {
    ASSERT_TRUE(CanOpen("/proc/self/status"));
    ASSERT_EQ(symlink("/proc/self/status", Path("status").c_str()), 0);
    EXPECT_FALSE(CanOpen(Path("status")));
}

TEST_F(ReadStreamTest, OpensNothingThatCouldActOrBlock) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(CanOpen(Path("fifo")));
    ASSERT_EQ(mknod(Path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_FALSE(CanOpen(Path("socket")));
    EXPECT_FALSE(CanOpen("/dev/null"));
    EXPECT_FALSE(CanOpen(Path("missing")));
    EXPECT_FALSE(CanOpen(File("x", "<true/>") + "/below"));
    EXPECT_FALSE(CanOpen("/" + std::string(5000, 'a')));
}

// Opening alone makes some devices act, and wakes who waits at the other end of a FIFO.
TEST_F(ReadStreamTest, LooksBeforeItOpens) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, Path("fifo").c_str(), IN_OPEN), 0);
    EXPECT_FALSE(CanOpen(Path("fifo")));
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_EQ(read(watch, event, sizeof event), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(watch);
}

TEST_F(ReadStreamTest, LooksAgainAtWhatItOpened) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    const std::size_t before = CountDescriptors();
    g_replacedAfterLstat = File("x", "<true/>");
    EXPECT_FALSE(CanOpen(Path("fifo")));
    g_replacedAfterLstat.clear();
    EXPECT_EQ(CountDescriptors(), before);
}

TEST_F(ReadStreamTest, RefusesFilesAbove16MiB) {
    const std::string path = File("x", "<true/>");
    std::filesystem::resize_file(path, std::uintmax_t{16} << 20);
    EXPECT_TRUE(ReadFile(path).list);
    std::filesystem::resize_file(path, (std::uintmax_t{16} << 20) + 1);
    EXPECT_EQ(ReadFile(path).error, "stream had too many bytes");
    std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
    EXPECT_EQ(ReadFile(path).error, "stream had too many bytes");
}

// On other threads than the main one files are read without another thread's help.
TEST_F(ReadStreamTest, LimitsFilesOnAnyThread) {
    const std::string path = File("x", "<true/>");
    std::thread([&] {
        std::filesystem::resize_file(path, std::uintmax_t{16} << 20);
        EXPECT_TRUE(ReadFile(path).list);
        std::filesystem::resize_file(path, (std::uintmax_t{16} << 20) + 1);
        EXPECT_EQ(ReadFile(path).error, "stream had too many bytes");
    }).join();
}

TEST_F(ReadStreamTest, KeepsNoDescriptor) {
    const std::size_t before = CountDescriptors();
    const CFOwned stream = MakeStream(File("x", "<true/>"));
    ASSERT_TRUE(CFReadStreamOpen(stream.Get()));
    EXPECT_EQ(CountDescriptors(), before);
    EXPECT_FALSE(CanOpen(Path("missing")));
    EXPECT_EQ(CountDescriptors(), before);
}

TEST(ReadStream, NeedsAUrlAndAStream) {
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
