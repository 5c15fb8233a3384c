/* Disk Arbitration while each allocation and system call fails in turn: the next iteration repeats
   what one could not do. */

#include "Callouts.h"
#include "FaultSweep.h"
#include "PrivateMounts.h"
#include "disks/DiskList.h"
#include "disks/Volumes.h"

#include <DiskArbitration/DiskArbitration.h>

#include <gtest/gtest.h>

#include <sys/timerfd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The pause of one second after a failed iteration takes a millisecond.
extern "C" {
int __real_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before);

int __wrap_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before) {
    const bool isSet = setting->it_value.tv_sec > 0;
    const itimerspec hastened = {{0, 0}, {0, isSet ? 1'000'000 : 0}};
    return __real_timerfd_settime(timer, flags, &hastened, before);
}
}

namespace disks {
namespace {

constexpr const char* kMountTable = "/proc/self/mountinfo";

template<typename Body, typename Check>
void SweepEveryKindOfFault(Body body, Check check) {
    const SweptFaults swept = SweepFaults(body, check);
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
}

// ---- the mount table ----

TEST(DisksSweep, MountTableIsReadCompletelyOrNotAtAll) {
    const auto all = ReadVolumes(kMountTable);
    ASSERT_TRUE(all);
    std::optional<std::vector<Volume>> volumes;
    SweepEveryKindOfFault(
        [&] {
            try {
                volumes = ReadVolumes(kMountTable);
            } catch (const std::bad_alloc&) {
                volumes.reset();
            }
        },
        [&](const Fault& fault) {
            EXPECT_TRUE(volumes || fault.happened) << fault.what;
            EXPECT_TRUE(!volumes || volumes == all) << fault.what;
        });
}

// ---- the list ----

constexpr cf::Nanoseconds kNow = 0;

// One volume stays, one goes, two come. The paths do not exist: each probe ends with an error.
class ListSweep : public testing::Test {
protected:
    ListSweep() {
        BeginAnew();
    }

    void BeginAnew() {
        list_.emplace();
        list_->Update(Volumes({1, 2}), kNow);
        EXPECT_EQ(TakeEvents(2), "++");
    }
    static std::vector<Volume> Volumes(const std::vector<std::uint64_t>& mounts) {
        std::vector<Volume> volumes;
        for (const std::uint64_t mount : mounts)
            volumes.push_back({mount, 45, "/", "/nonexistent/" + std::to_string(mount), "none"});
        return volumes;
    }
    // Waits for so many events.
    std::string TakeEvents(std::size_t count) {
        list_->StartProbes(probes_);
        std::string events;
        while (events.size() < count)
            if (const DiskEvent event = list_->NextEvent(kNow); event.disk)
                events += event.appeared ? '+' : '-';
            else
                CFRunLoopRun();
        return events;
    }

    TestSource answers_{StopCurrentRun};
    VolumeProbes probes_{answers_.Get()};
    std::optional<DiskList> list_;
};

TEST_F(ListSweep, FailedUpdateChangesNothing) {
    std::vector<Volume> changed;
    bool failed = false;
    const auto prepare = [&] {
        BeginAnew();
        changed = Volumes({2, 3, 4});
    };
    prepare();
    const std::size_t faults = SweepMemory(
        1,
        [&] {
            try {
                failed = true;
                list_->Update(std::move(changed), kNow);
                failed = false;
            } catch (const std::bad_alloc&) {
            }
        },
        [&](const Fault& fault) {
            EXPECT_TRUE(!failed || fault.happened) << fault.what;
            if (failed) {
                EXPECT_FALSE(list_->NextEvent(kNow).disk) << fault.what;
                list_->Update(Volumes({2, 3, 4}), kNow);
            }
            EXPECT_EQ(TakeEvents(3), "-++") << fault.what;
            prepare();
        });
    EXPECT_GT(faults, 0U);
}

TEST_F(ListSweep, ProbeThatCannotBeStartedIsStartedTheNextTime) {
    list_->Update(Volumes({2, 3, 4}), kNow);
    SweepEveryKindOfFault(
        [&] {
            try {
                list_->StartProbes(probes_);
            } catch (const std::exception&) {
            }
        },
        [&](const Fault& fault) {
            EXPECT_EQ(TakeEvents(3), "-++") << fault.what;
            BeginAnew();
            list_->Update(Volumes({2, 3, 4}), kNow);
        });
}

// ---- a disk ----

// Without memory there is no description, or one without the path.
TEST(DiskSweep, DescriptionHasThePathOrNone) {
    const auto disk =
        cf::Owned<Disk>::Adopt(new Disk({1, 45, "/", "/mnt/disc", "none"}, "0:45", 0));
    CFDictionaryRef description = nullptr;
    const std::size_t faults = SweepMemory(
        1, [&] { description = DADiskCopyDescription(disk.Get()); },
        [&](const Fault& fault) {
            char path[32] = "";
            auto* url = static_cast<CFURLRef>(
                CFDictionaryGetValue(description, kDADiskDescriptionVolumePathKey));
            CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path),
                                             sizeof path);
            EXPECT_STREQ(path, fault.happened ? "" : "/mnt/disc") << fault.what;
            CFRelease(description);
        });
    EXPECT_EQ(faults, 3U); // the dictionary, the URL, capacity of the dictionary
}

// ---- the session ----

TEST(SessionSweep, CreationFailsCleanlyOrSucceeds) {
    DASessionRef session = nullptr;
    SweepEveryKindOfFault([&] { session = DASessionCreate(kCFAllocatorDefault); },
                          [&](const Fault& fault) {
                              EXPECT_EQ(session == nullptr, fault.happened) << fault.what;
                              if (session != nullptr)
                                  CFRelease(session);
                          });
}

int g_present = 0; // disks that appeared and did not disappear

template<int kChange>
void CountPresent(DADiskRef, void*) {
    g_present += kChange;
    StopCurrentRun();
}

class IterationSweep : public testing::Test {
protected:
    void SetUp() override {
        if (!EnterPrivateMounts())
            GTEST_SKIP() << "no mounts of its own: " << strerror(errno) << " (run as root)";
        mounts_.emplace();
        g_present = 0;
        session_ = DASessionCreate(kCFAllocatorDefault);
        ASSERT_NE(session_, nullptr);
        DARegisterDiskAppearedCallback(session_, nullptr, CountPresent<+1>, nullptr);
        DARegisterDiskDisappearedCallback(session_, nullptr, CountPresent<-1>, nullptr);
        DASessionScheduleWithRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        AwaitAll();
    }
    ~IterationSweep() override {
        if (session_ != nullptr)
            CFRelease(session_);
    }

    // Returns when every mounted volume has appeared and no other.
    static void AwaitAll() {
        while (g_present != static_cast<int>(ReadVolumes(kMountTable)->size()))
            CFRunLoopRun();
    }
    // In the first iteration the change of the table signals the session, in the second the session
    // reads the table.
    void RunTwice() {
        iterationsLeft_ = 2;
        iteration_.Signal();
        while (iterationsLeft_ > 0)
            CFRunLoopRun();
    }

    std::optional<PrivateMounts> mounts_;

private:
    int iterationsLeft_ = 0;
    TestSource iteration_{[this] {
        if (--iterationsLeft_ > 0)
            iteration_.Signal();
        else
            StopCurrentRun();
    }};
    DASessionRef session_ = nullptr;
};

TEST_F(IterationSweep, NextIterationReportsWhatAFailedOneMissed) {
    mounts_->Mount("first");
    SweepEveryKindOfFault([&] { RunTwice(); },
                          [&](const Fault&) {
                              AwaitAll();
                              mounts_->Unmount("first");
                              AwaitAll();
                              mounts_->Mount("first");
                          });
    AwaitAll();
}

} // namespace
} // namespace disks
