#include "disks/VolumeProbes.h"

#include "PrivateMounts.h"
#include "ResourceUsage.h"
#include "loop/RunLoop.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

std::atomic<int> g_openFlags = 0; // of the last call

} // namespace

extern "C" {
int __real_open(const char* path, int flags, mode_t mode);

int __wrap_open(const char* path, int flags, ...) {
    g_openFlags = flags;
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return __real_open(path, flags, mode);
}
}

namespace disks {
namespace {

class VolumeProbesTest : public testing::Test {
protected:
    ~VolumeProbesTest() override {
        CFRunLoopSourceInvalidate(answers_);
        CFRelease(answers_);
        probes_.reset();
        AwaitRest();
    }

    void Await(const Probe& probe) {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), answers_, kCFRunLoopDefaultMode);
        while (!probe.done)
            CFRunLoopRun();
    }

    const CFRunLoopSourceRef answers_ = cf::CreateSignalSource(
        cf::RunLevel::kAny, [](void*) { CFRunLoopStop(CFRunLoopGetCurrent()); }, nullptr);
    std::unique_ptr<VolumeProbes> probes_ = std::make_unique<VolumeProbes>(answers_);
};

TEST_F(VolumeProbesTest, EndWithAnyResultOfOpen) {
    Await(*probes_->Start("/"));
    Await(*probes_->Start("/nonexistent"));
    Await(*probes_->Start("/proc/self/comm"));
}

// Opening a device or a pipe may act on it.
TEST_F(VolumeProbesTest, OpenNothingButDirectories) {
    std::string directory = testing::TempDir() + "probes-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string pipe = directory + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int watcher = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    for (const std::string& path : {pipe, directory}) {
        ASSERT_GE(inotify_add_watch(watcher, path.c_str(), IN_OPEN), 0);
        Await(*probes_->Start(path));
        inotify_event event = {};
        const bool wasOpened = read(watcher, &event, sizeof event) > 0;
        EXPECT_EQ(wasOpened, path == directory) << path;
        EXPECT_EQ(g_openFlags & (O_NONBLOCK | O_CLOEXEC), O_NONBLOCK | O_CLOEXEC);
    }
    close(watcher);
    unlink(pipe.c_str());
    rmdir(directory.c_str());
}

TEST_F(VolumeProbesTest, StartMoreOftenThanThereAreThreads) {
    for (std::size_t i = 0; i < 2 * VolumeProbes::kMaximumThreads; ++i)
        Await(*probes_->Start("/"));
}

// With a volume that does not answer before Answer().
class HungVolumeProbesTest : public VolumeProbesTest {
protected:
    void SetUp() override {
        if (!EnterPrivateMounts())
            GTEST_SKIP() << "no mounts of its own: " << strerror(errno) << " (run as root)";
        bed_.emplace();
        hung_.emplace(*bed_, "hung");
        if (!hung_->IsMounted())
            GTEST_SKIP() << "no user space file systems here";
    }

    std::vector<std::shared_ptr<Probe>> StartStuck(std::size_t count) {
        std::vector<std::shared_ptr<Probe>> stuck;
        while (stuck.size() < count)
            stuck.push_back(probes_->Start(bed_->Path("hung")));
        return stuck;
    }

    std::optional<PrivateMounts> bed_;
    std::optional<HungVolume> hung_;
};

TEST_F(HungVolumeProbesTest, AreBoundedInThreadsAndEndOnceVolumesAnswer) {
    const auto stuck = StartStuck(2 * VolumeProbes::kMaximumThreads);
    EXPECT_EQ(CountThreads(), kThreadsAtRest + VolumeProbes::kMaximumThreads);

    const auto behind = probes_->Start("/");
    hung_->Answer();
    Await(*behind);
    for (const auto& probe : stuck)
        Await(*probe);
    bed_->Unmount("hung");
}

TEST_F(HungVolumeProbesTest, ThatAreCancelledDoNotDelayTheOthers) {
    const auto stuck = StartStuck(VolumeProbes::kMaximumThreads);
    std::vector<std::shared_ptr<Probe>> cancelled; // one for each thread
    for (std::size_t i = 0; i < VolumeProbes::kMaximumThreads; ++i) {
        cancelled.push_back(probes_->Start("/"));
        cancelled.back()->cancelled = true;
    }
    const auto behind = probes_->Start("/");
    hung_->Answer();
    Await(*behind);
    for (const auto& probe : cancelled)
        EXPECT_FALSE(probe->done);
    for (const auto& probe : stuck)
        Await(*probe);
    bed_->Unmount("hung");
}

TEST_F(HungVolumeProbesTest, AreDestroyedWhileAVolumeHangs) {
    StartStuck(VolumeProbes::kMaximumThreads);
    const std::weak_ptr<Probe> behind = probes_->Start("/");
    probes_.reset();
    EXPECT_TRUE(behind.expired());
    hung_.reset();
    AwaitRest();
}

} // namespace
} // namespace disks
