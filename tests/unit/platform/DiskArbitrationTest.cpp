#include "PrivateMounts.h"
#include "ResourceUsage.h"
#include "Urls.h"
#include "disks/MountMonitor.h"
#include "disks/UniqueMountIds.h"
#include "loop/RunLoop.h"

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

int g_unreadableTurns = 0;  // the next times that the mount table cannot be opened
itimerspec g_retry = {};    // the last delay that the session set
bool g_stopsAtRest = false; // the run, once the session waits for events alone

using Strings = std::vector<std::string>;

bool IsUrlOfFolder(CFURLRef url, const char* path) {
    CFURLRef folder = CreateUrl(path, true);
    const bool equal = CFEqual(url, folder);
    CFRelease(folder);
    return equal;
}

std::optional<std::string> VolumePath(DADiskRef disk) {
    CFDictionaryRef description = DADiskCopyDescription(disk);
    auto* url =
        static_cast<CFURLRef>(CFDictionaryGetValue(description, kDADiskDescriptionVolumePathKey));
    char path[4096];
    const bool good = url != nullptr && CFURLGetFileSystemRepresentation(
                                            url, true, reinterpret_cast<UInt8*>(path), sizeof path);
    EXPECT_TRUE(!good || IsUrlOfFolder(url, path)) << path;
    CFRelease(description);
    return good ? std::optional<std::string>(path) : std::nullopt;
}

// A session on this thread's loop, and what it told of the stage's volumes: "+name" and "-name".
class DiskArbitration : public testing::Test {
protected:
    void SetUp() override {
        if (!EnterPrivateMounts())
            GTEST_SKIP() << "no mounts of its own: " << strerror(errno) << " (run as root)";
        stage_.emplace();
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
    void Close() {
        if (session_ == nullptr)
            return;
        DASessionUnscheduleFromRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        CFRelease(session_);
        session_ = nullptr;
        volumes_.clear();
    }

    // The events of the next run that has any: every event stops the loop, with the step that told
    // it.
    Strings EventsOfAStep() {
        events_.clear();
        CFRunLoopRun();
        return events_;
    }

    // Waits for so many events more, each in a step of its own.
    Strings Events(std::size_t count) {
        events_.clear();
        while (events_.size() < count) {
            const std::size_t before = events_.size();
            CFRunLoopRun();
            EXPECT_EQ(events_.size(), before + 1);
        }
        return events_;
    }

    // The events until a volume that is mounted now has appeared: by then, all that was to be
    // told at once has been told.
    Strings EventsUntilNow() {
        Stage().Mount("last");
        events_.clear();
        while (events_.empty() || events_.back() != "+last")
            CFRunLoopRun();
        events_.pop_back();
        return events_;
    }

    const MountStage& Stage() const {
        return *stage_;
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
        if (path->starts_with(self.Stage().Path(""))) {
            const std::string volume = path->substr(self.Stage().Path("").size());
            const auto known = self.volumes_.emplace(DADiskGetBSDName(disk), volume).first;
            EXPECT_EQ(known->second, volume); // a disk that appears again is the same
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

    std::optional<MountStage> stage_;
};

TEST_F(DiskArbitration, TellsOfWhatIsMountedAtTheStart) {
    Stage().Mount("a");
    Stage().Mount("b");
    Open();
    EXPECT_TRUE(events_.empty());
    EXPECT_EQ(Events(2), (Strings{"+a", "+b"}));
}

TEST(DiskDescription, KeyOfThePathHasItsText) {
    EXPECT_TRUE(CFEqual(kDADiskDescriptionVolumePathKey, CFSTR("DAVolumePath")));
}

TEST_F(DiskArbitration, TellsOfVolumesThatComeAndGo) {
    Open();
    Stage().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
    Stage().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    Stage().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
}

TEST_F(DiskArbitration, DecodesPaths) {
    Open();
    Stage().Mount("two words\tand \\ more");
    EXPECT_EQ(Events(1), Strings{"+two words\tand \\ more"});
}

TEST_F(DiskArbitration, SeesARemountBetweenTwoLooks) {
    if (disks::ReadUniqueMountIds().value_or(disks::UniqueMountIds()).empty())
        GTEST_SKIP() << "this kernel tells no unique mount ids (Linux 6.8 does)";
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    Stage().Unmount("a");
    Stage().Mount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
}

TEST_F(DiskArbitration, CountsADiskOnceHoweverOftenItIsMounted) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    Stage().Bind("a", "b");
    EXPECT_EQ(EventsUntilNow(), Strings());
    Stage().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(EventsOfAStep(), (Strings{"+b", "+last"}));
    Stage().Unmount("b");
    EXPECT_EQ(Events(1), Strings{"-b"});
}

TEST_F(DiskArbitration, CountsEachDirectoryOfADeviceByItself) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    Stage().Place("a/sub");
    Stage().Bind("a/sub", "b");
    EXPECT_EQ(Events(1), Strings{"+b"});
    EXPECT_EQ(NameOf("b"), NameOf("a") + "s1");
}

TEST_F(DiskArbitration, TellsOfAMove) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    Stage().Move("a", "b");
    EXPECT_EQ(Events(2), (Strings{"-a", "+b"}));
}

TEST_F(DiskArbitration, TellsOfVolumesThatAreCoveredAndUncovered) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    const std::string name = NameOf("a");
    Stage().Mount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
    EXPECT_NE(NameOf("a"), name);
    Stage().Unmount("a");
    EXPECT_EQ(Events(2), (Strings{"-a", "+a"}));
    EXPECT_EQ(NameOf("a"), name);
}

TEST_F(DiskArbitration, TellsOfALateVolumeTogetherWithThoseMountedAfterIt) {
    HungVolume hung(Stage(), "hung");
    if (!hung.IsMounted())
        GTEST_SKIP() << "no user space file systems here";
    Open();
    EXPECT_EQ(EventsUntilNow(), Strings());
    hung.Answer();
    EXPECT_EQ(EventsOfAStep(), (Strings{"+hung", "+last"}));
    Stage().Unmount("hung");
    EXPECT_EQ(Events(1), Strings{"-hung"});
}

TEST_F(DiskArbitration, LetsTheCallbackOfALateVolumeGiveTheSessionUp) {
    HungVolume hung(Stage(), "hung");
    if (!hung.IsMounted())
        GTEST_SKIP() << "no user space file systems here";
    Open();
    EXPECT_EQ(EventsUntilNow(), Strings());
    onAppeared_ = [this] { Close(); };
    hung.Answer();
    EXPECT_EQ(EventsOfAStep(), Strings{"+hung"});
    CFRunLoopRun(); // at once: nothing is left in the loop
    EXPECT_EQ(events_, Strings{"+hung"});
    Stage().Unmount("hung");
}

TEST_F(DiskArbitration, NeverTellsOfAHungVolumeThatHasGone) {
    {
        const HungVolume hung(Stage(), "hung");
        if (!hung.IsMounted())
            GTEST_SKIP() << "no user space file systems here";
        Open();
        EXPECT_EQ(EventsUntilNow(), Strings());
        Stage().Unmount("hung");
    }
    // Its server has gone, so the touch has ended with an error.
    AwaitRest();
    // Nor is it told of while the table cannot be read that says that it has gone.
    g_unreadableTurns = 1;
    Stage().Unmount("last");
    EXPECT_EQ(Events(1), Strings{"-last"});
    EXPECT_EQ(EventsUntilNow(), Strings());
}

TEST_F(DiskArbitration, LetsACallbackGiveTheSessionUp) {
    Stage().Mount("a");
    Stage().Mount("b");
    onAppeared_ = [this] { Close(); };
    Open();
    EXPECT_EQ(Events(1).size(), 1U);
    CFRunLoopRun(); // at once: nothing is left in the loop
    EXPECT_EQ(events_.size(), 1U);
}

TEST_F(DiskArbitration, TellsNothingWhileUnscheduledAndAllOfItAfterwards) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    DASessionUnscheduleFromRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    Stage().Unmount("a");
    Stage().Mount("b");
    CFRunLoopRun();
    EXPECT_EQ(events_, Strings{"+a"});
    DASessionScheduleWithRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
    EXPECT_EQ(Events(2), (Strings{"-a", "+b"}));
}

TEST_F(DiskArbitration, LeavesNoThreadAndNoDescriptorBehind) {
    CFRunLoopGetCurrent();
    const std::size_t descriptors = CountDescriptors();
    Stage().Mount("a");
    for (int i = 0; i < 10; ++i) {
        Open();
        EXPECT_EQ(Events(1), Strings{"+a"});
        Close();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    AwaitRest();
}

TEST_F(DiskArbitration, LooksAgainAfterTheMountTableWasUnreadable) {
    Open();
    Stage().Mount("a");
    g_unreadableTurns = 2;
    EXPECT_EQ(Events(1), Strings{"+a"});
    g_unreadableTurns = 1;
    Stage().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(g_unreadableTurns, 0);
}

TEST_F(DiskArbitration, UnreadableMountTableIsReadAgainAfterOneSecond) {
    Open();
    EventsUntilNow();
    g_retry = {};
    g_unreadableTurns = 1;
    Stage().Unmount("last");
    EXPECT_EQ(Events(1), Strings{"-last"});
    EXPECT_EQ(g_retry.it_value.tv_sec, 1);
    EXPECT_EQ(g_retry.it_value.tv_nsec, 0);
    EXPECT_EQ(g_retry.it_interval.tv_sec, 0);
    EXPECT_EQ(g_retry.it_interval.tv_nsec, 0);
}

TEST_F(DiskArbitration, IsRefusedWhenTheMountTableCannotBeWatched) {
    CFRunLoopGetCurrent();
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(DASessionCreate(kCFAllocatorDefault), nullptr);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

// Runs the loop in a callout, until the change of the mount table has been seen there.
struct NestedRun {
    disks::MountMonitor monitor;
    std::size_t eventsSeen = 0;
    const Strings& events;

    static void Run(CFRunLoopTimerRef, void* info) {
        auto& self = *static_cast<NestedRun*>(info);
        CFRunLoopSourceRef change = cf::CreateDescriptorSource(
            self.monitor.Descriptor(), cf::RunLevel::kAny,
            [](void*) { CFRunLoopStop(CFRunLoopGetCurrent()); }, nullptr);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), change, kCFRunLoopDefaultMode);
        CFRunLoopRun();
        self.eventsSeen = self.events.size();
        CFRunLoopSourceInvalidate(change);
        CFRelease(change);
    }
};

TEST_F(DiskArbitration, TellsNothingInANestedRun) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    NestedRun nested{{}, 99, events_};
    CFRunLoopTimerContext context = {0, &nested, nullptr, nullptr, nullptr};
    CFRunLoopTimerRef timer =
        CFRunLoopTimerCreate(kCFAllocatorDefault, 0, 0, 0, 0, NestedRun::Run, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    Stage().Unmount("a");
    EXPECT_EQ(Events(1), Strings{"-a"});
    EXPECT_EQ(nested.eventsSeen, 0U);
    CFRelease(timer);
}

TEST_F(DiskArbitration, TakesNothingElseForASessionOrADisk) {
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
    Stage().Mount("a");
    EXPECT_EQ(Events(1), Strings{"+a"});
}

// Its timer is set no more.
TEST_F(DiskArbitration, RestsWhenAllIsTold) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    events_.clear();
    g_stopsAtRest = true;
    CFRunLoopRun();
    EXPECT_FALSE(g_stopsAtRest);
    EXPECT_EQ(events_, Strings());
}

TEST_F(DiskArbitration, TellsNobodyWhereNobodyIsRegistered) {
    Stage().Mount("a");
    Open();
    EXPECT_EQ(Events(1), Strings{"+a"});
    DARegisterDiskDisappearedCallback(session_, nullptr, nullptr, nullptr);
    volumes_.clear(); // which nobody will be told to do
    Stage().Unmount("a");
    EXPECT_EQ(EventsUntilNow(), Strings());
}

} // namespace

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);

FILE* __wrap_fopen(const char* path, const char* mode) {
    if (std::string_view(path) == "/proc/self/mountinfo" && g_unreadableTurns > 0) {
        --g_unreadableTurns;
        errno = EMFILE;
        return nullptr;
    }
    return __real_fopen(path, mode);
}

int __real_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before);

int __wrap_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before) {
    const bool isDelay = (flags & TFD_TIMER_ABSTIME) == 0; // the loop's own timers keep dates
    if (isDelay && setting->it_value.tv_sec > 0)
        g_retry = *setting;
    if (isDelay && setting->it_value.tv_sec == 0 && std::exchange(g_stopsAtRest, false))
        CFRunLoopStop(CFRunLoopGetCurrent());
    return __real_timerfd_settime(timer, flags, setting, before);
}
}
