#include "Callouts.h"
#include "PrivateMounts.h"
#include "ResourceUsage.h"
#include "Urls.h"
#include "disks/MountMonitor.h"
#include "disks/UniqueMountIds.h"
#include "support/CFOwned.h"

#include <DiskArbitration/DiskArbitration.h>

#include <sys/resource.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

int g_failingOpens = 0;     // the next attempts to open the mount table that fail
itimerspec g_retry = {};    // the last delay that the session set
bool g_stopsAtRest = false; // stop the run when the session clears its timer

using Strings = std::vector<std::string>;

std::optional<std::string> VolumePath(DADiskRef disk) {
    const CFOwned description(DADiskCopyDescription(disk));
    auto* url =
        static_cast<CFURLRef>(CFDictionaryGetValue(description, kDADiskDescriptionVolumePathKey));
    char path[4096];
    const bool hasPath =
        url != nullptr &&
        CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path);
    EXPECT_TRUE(!hasPath || CFEqual(url, CFOwned(CreateUrl(path, true)))) << path;
    return hasPath ? std::optional<std::string>(path) : std::nullopt;
}

// A session on this thread's loop, and its events for the volumes of the test: "+name" and "-name".
class DiskArbitration : public testing::Test {
protected:
    void SetUp() override {
        if (!EnterPrivateMounts())
            GTEST_SKIP() << "no mounts of its own: " << strerror(errno) << " (run as root)";
        mounts_.emplace();
    }
    ~DiskArbitration() override {
        Close();
        AwaitRest();
    }

    void Open() {
        session_ = DASessionCreate(kCFAllocatorDefault);
        ASSERT_NE(session_, nullptr);
        DARegisterDiskAppearedCallback(session_, nullptr, NoteAppeared, this);
        DARegisterDiskDisappearedCallback(session_, nullptr, NoteDisappeared, this);
        DASessionScheduleWithRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    // Mounts the volume and opens a session where it has appeared.
    void OpenWithVolume(const std::string& name) {
        Mounts().Mount(name);
        Open();
        EXPECT_EQ(Events(1), Strings{"+" + name});
    }
    void Close() {
        if (session_ == nullptr)
            return;
        DASessionUnscheduleFromRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        CFRelease(session_);
        session_ = nullptr;
        volumes_.clear();
    }

    // The events of one iteration: each event stops the loop after its iteration.
    Strings EventsOfAnIteration() {
        events_.clear();
        CFRunLoopRun();
        return events_;
    }

    // Waits for so many events, each in an iteration of its own.
    Strings Events(std::size_t count) {
        events_.clear();
        while (events_.size() < count) {
            const std::size_t before = events_.size();
            CFRunLoopRun();
            EXPECT_EQ(events_.size(), before + 1);
        }
        return events_;
    }

    // The events until a volume that is mounted now has appeared: all events that are due now.
    Strings EventsUntilNow() {
        Mounts().Mount("last");
        events_.clear();
        while (events_.empty() || events_.back() != "+last")
            CFRunLoopRun();
        events_.pop_back();
        return events_;
    }

    const PrivateMounts& Mounts() const {
        return *mounts_;
    }
    std::string NameOf(const std::string& volume) const {
        const auto found = std::ranges::find_if(
            volumes_, [&](const auto& entry) { return entry.second == volume; });
        return found != volumes_.end() ? found->first : "";
    }

    DASessionRef session_ = nullptr;
    Strings events_;
    std::map<std::string, std::string> volumes_; // names of those present, by BSD name
    std::function<void()> onAppeared_ = [] {};

private:
    static void NoteAppeared(DADiskRef disk, void* context) {
        auto& self = *static_cast<DiskArbitration*>(context);
        const auto path = VolumePath(disk);
        ASSERT_TRUE(path);
        const std::string root = self.Mounts().Path("");
        if (path->starts_with(root)) {
            const std::string volume = path->substr(root.size());
            const auto known = self.volumes_.emplace(DADiskGetBSDName(disk), volume).first;
            EXPECT_EQ(known->second, volume); // the same disk if it appears again
            self.Note("+" + volume);
            self.onAppeared_();
        }
    }
    static void NoteDisappeared(DADiskRef disk, void* context) {
        auto& self = *static_cast<DiskArbitration*>(context);
        EXPECT_FALSE(VolumePath(disk));
        const auto known = self.volumes_.find(DADiskGetBSDName(disk));
        if (known != self.volumes_.end()) {
            self.Note("-" + known->second);
            self.volumes_.erase(known);
        }
    }
    void Note(const std::string& event) {
        events_.push_back(event);
        CFRunLoopStop(CFRunLoopGetCurrent());
    }

    std::optional<PrivateMounts> mounts_;
};

TEST_F(DiskArbitration, MountedVolumesAppearWhenTheLoopRuns) {
    Mounts().Mount("a");
    Mounts().Mount("b");
    Open();
    EXPECT_TRUE(events_.empty());
    EXPECT_EQ(Events(2), (Strings{"+a", "+b"}));
}

TEST(DiskDescription, VolumePathKeyIsDAVolumePath) {
    EXPECT_TRUE(CFEqual(kDADiskDescriptionVolumePathKey, CFSTR("DAVolumePath")));
}

TEST_F(DiskArbitration, MountAndUnmountAreReported) {
    Open();
    Mounts().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
    Mounts().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    Mounts().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
}

TEST_F(DiskArbitration, EscapedPathIsDecoded) {
    Open();
    Mounts().Mount("two words\tand \\ more");
    EXPECT_EQ(Events(1), Strings{"+two words\tand \\ more"});
}

TEST_F(DiskArbitration, RemountBetweenTwoIterationsIsReported) {
    if (disks::ReadUniqueMountIds().value_or(disks::UniqueMountIds()).empty())
        GTEST_SKIP() << "this kernel has no unique mount ids (Linux 6.8 does)";
    OpenWithVolume("a");
    Mounts().Unmount("a");
    Mounts().Mount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
}

TEST_F(DiskArbitration, DiskMountedTwiceAppearsOnce) {
    OpenWithVolume("a");
    Mounts().Bind("a", "b");
    EXPECT_EQ(EventsUntilNow(), Strings());
    Mounts().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(EventsOfAnIteration(), (Strings{"+b", "+last"}));
    Mounts().Unmount("b");
    EXPECT_EQ(Events(1), Strings{"-b"});
}

TEST_F(DiskArbitration, DirectoriesOfOneDeviceAreDifferentDisks) {
    OpenWithVolume("a");
    Mounts().Place("a/sub");
    Mounts().Bind("a/sub", "b");
    EXPECT_EQ(Events(1), Strings{"+b"});
    EXPECT_EQ(NameOf("b"), NameOf("a") + "s1");
}

TEST_F(DiskArbitration, MoveIsADisappearanceAndAnAppearance) {
    OpenWithVolume("a");
    Mounts().Move("a", "b");
    EXPECT_EQ(Events(2), (Strings{"-a", "+b"}));
}

TEST_F(DiskArbitration, CoveredVolumeDisappearsUntilItIsUncovered) {
    OpenWithVolume("a");
    const std::string name = NameOf("a");
    Mounts().Mount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
    EXPECT_NE(NameOf("a"), name);
    Mounts().Unmount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
    EXPECT_EQ(NameOf("a"), name);
}

class HungVolumeTest : public DiskArbitration {
protected:
    void SetUp() override {
        DiskArbitration::SetUp();
        if (IsSkipped())
            return;
        hung_.emplace(Mounts(), "hung");
        if (!hung_->IsMounted())
            GTEST_SKIP() << "no user space file systems here";
        Open();
        EXPECT_EQ(EventsUntilNow(), Strings());
    }

    std::optional<HungVolume> hung_;
};

TEST_F(HungVolumeTest, LateVolumeAppearsWithThoseMountedAfterIt) {
    hung_->Answer();
    EXPECT_EQ(EventsOfAnIteration(), (Strings{"+hung", "+last"}));
    Mounts().Unmount("hung");
    EXPECT_EQ(Events(1), Strings{"-hung"});
}

TEST_F(HungVolumeTest, CallbackOfALateVolumeMayCloseTheSession) {
    onAppeared_ = [this] { Close(); };
    hung_->Answer();
    EXPECT_EQ(EventsOfAnIteration(), Strings{"+hung"});
    CFRunLoopRun(); // returns at once: the loop is empty
    EXPECT_EQ(events_, Strings{"+hung"});
    Mounts().Unmount("hung");
}

TEST_F(HungVolumeTest, GoneVolumeIsNeverReported) {
    Mounts().Unmount("hung");
    hung_.reset();
    // The server has gone: the probe has ended with an error.
    AwaitRest();
    // Nor is the volume reported while the mount table without it cannot be read.
    g_failingOpens = 1;
    Mounts().Unmount("last");
    EXPECT_EQ(Events(1), Strings{"-last"});
    EXPECT_EQ(EventsUntilNow(), Strings());
}

TEST_F(DiskArbitration, CallbackMayCloseTheSession) {
    Mounts().Mount("a");
    Mounts().Mount("b");
    onAppeared_ = [this] { Close(); };
    Open();
    EXPECT_EQ(Events(1).size(), 1U);
    CFRunLoopRun(); // returns at once: the loop is empty
    EXPECT_EQ(events_.size(), 1U);
}

TEST_F(DiskArbitration, EventsOfAnUnscheduledSessionFollowWhenScheduled) {
    OpenWithVolume("a");
    DASessionUnscheduleFromRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Mounts().Unmount("a");
    Mounts().Mount("b");
    CFRunLoopRun();
    EXPECT_EQ(events_, Strings{"+a"});
    DASessionScheduleWithRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    EXPECT_EQ(Events(2), (Strings{"-a", "+b"}));
}

TEST_F(DiskArbitration, ClosedSessionsLeaveNoThreadAndNoDescriptor) {
    CFRunLoopGetCurrent();
    const std::size_t descriptors = CountDescriptors();
    Mounts().Mount("a");
    for (int i = 0; i < 10; ++i) {
        Open();
        EXPECT_EQ(Events(1), Strings{"+a"});
        Close();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    AwaitRest();
}

TEST_F(DiskArbitration, UnreadableMountTableIsReadAgainAfterOneSecond) {
    Open();
    Mounts().Mount("a");
    g_failingOpens = 2;
    EXPECT_EQ(Events(1), Strings{"+a"});
    g_retry = {};
    g_failingOpens = 1;
    Mounts().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(g_failingOpens, 0);
    const itimerspec oneSecond = {{0, 0}, {1, 0}};
    EXPECT_EQ(std::memcmp(&g_retry, &oneSecond, sizeof g_retry), 0);
}

TEST_F(DiskArbitration, CreationFailsIfTheMountTableCannotBeWatched) {
    CFRunLoopGetCurrent();
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(DASessionCreate(kCFAllocatorDefault), nullptr);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(DiskArbitration, NestedRunHasNoEvents) {
    OpenWithVolume("a");
    const disks::MountMonitor monitor;
    std::size_t eventsSeen = 99;
    const TestTimer timer(0, 0, [&] { // the nested run sees the change of the mount table
        const TestSource change(StopCurrentRun, cf::RunLevel::kAny, monitor.Descriptor());
        CFRunLoopRun();
        eventsSeen = events_.size();
    });
    Mounts().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(eventsSeen, 0U);
}

TEST_F(DiskArbitration, OtherObjectsAreIgnoredAsSessionAndAsDisk) {
    Open();
    EXPECT_EQ(DADiskGetBSDName(nullptr), nullptr);
    EXPECT_EQ(DADiskGetBSDName(reinterpret_cast<DADiskRef>(session_)), nullptr);
    EXPECT_EQ(DADiskCopyDescription(reinterpret_cast<DADiskRef>(session_)), nullptr);
    auto* const noSession = reinterpret_cast<DASessionRef>(const_cast<__CFString*>(CFSTR("none")));
    for (DASessionRef session : {DASessionRef{nullptr}, noSession}) {
        DARegisterDiskAppearedCallback(session, nullptr, nullptr, nullptr);
        DARegisterDiskDisappearedCallback(session, nullptr, nullptr, nullptr);
        DASessionScheduleWithRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        DASessionUnscheduleFromRunLoop(session, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    }
    Mounts().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
}

TEST_F(DiskArbitration, TimerIsClearedWhenAllEventsAreReported) {
    OpenWithVolume("a");
    events_.clear();
    g_stopsAtRest = true;
    CFRunLoopRun();
    EXPECT_FALSE(g_stopsAtRest);
    EXPECT_EQ(events_, Strings());
}

TEST_F(DiskArbitration, WithoutACallbackNoEventIsReported) {
    OpenWithVolume("a");
    DARegisterDiskDisappearedCallback(session_, nullptr, nullptr, nullptr);
    volumes_.clear(); // no callback does
    Mounts().Unmount("a");
    EXPECT_EQ(EventsUntilNow(), Strings());
}

} // namespace

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);

FILE* __wrap_fopen(const char* path, const char* mode) {
    if (std::string_view(path) == "/proc/self/mountinfo" && g_failingOpens > 0) {
        --g_failingOpens;
        errno = EMFILE;
        return nullptr;
    }
    return __real_fopen(path, mode);
}

int __real_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before);

int __wrap_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before) {
    const bool isDelay = (flags & TFD_TIMER_ABSTIME) == 0; // the timers of the loop have dates
    if (isDelay && setting->it_value.tv_sec > 0)
        g_retry = *setting;
    if (isDelay && setting->it_value.tv_sec == 0 && std::exchange(g_stopsAtRest, false))
        CFRunLoopStop(CFRunLoopGetCurrent());
    return __real_timerfd_settime(timer, flags, setting, before);
}
}
