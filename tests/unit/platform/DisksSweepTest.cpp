/* Disk Arbitration with whatever can fail around it failing: what a turn could not do, the next one
   does. */

#include "FaultSweep.h"
#include "PrivateMounts.h"
#include "disks/DiskList.h"
#include "disks/Volumes.h"
#include "loop/RunLoop.h"

#include <DiskArbitration/DiskArbitration.h>

#include <gtest/gtest.h>

#include <sys/timerfd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The second's wait before a failed turn is tried again takes a millisecond.
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

void StopRun(void*) {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

// ---- the mount table ----

TEST(DisksSweep, TheMountTableIsReadWholeOrNotAtAll) {
    const auto all = ReadVolumes(kMountTable);
    ASSERT_TRUE(all);
    std::optional<std::vector<Volume>> volumes;
    const SweptFaults swept = SweepFaults(
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
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
}

// ---- the list ----

constexpr cf::Nanoseconds kNow = 0;

// One volume stays, one goes, two come; there are no such paths, which is an answer too.
class ListSweep : public testing::Test {
protected:
    ListSweep() {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), answers_, kCFRunLoopDefaultMode);
        BeginAnew();
    }
    ~ListSweep() override {
        CFRunLoopSourceInvalidate(answers_);
        CFRelease(answers_);
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

    const CFRunLoopSourceRef answers_ =
        cf::CreateSignalSource(cf::RunLevel::kAny, StopRun, nullptr);
    VolumeProbes probes_{answers_};
    std::optional<DiskList> list_;
};

TEST_F(ListSweep, AnUpdateThatFailsHasChangedNothing) {
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

TEST_F(ListSweep, AProbeThatCannotBeStartedIsStartedTheNextTime) {
    list_->Update(Volumes({2, 3, 4}), kNow);
    const SweptFaults swept = SweepFaults(
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
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
}

// ---- a disk ----

// Short of memory, a description is none or lacks the path.
TEST(DiskSweep, DescriptionNeverNamesAnotherPath) {
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
    EXPECT_EQ(faults, 3U); // the dictionary, the URL, room in the dictionary
}

// ---- the session ----

TEST(SessionSweep, IsMadeWholeOrNotAtAll) {
    DASessionRef session = nullptr;
    const SweptFaults swept = SweepFaults([&] { session = DASessionCreate(kCFAllocatorDefault); },
                                          [&](const Fault& fault) {
                                              EXPECT_EQ(session == nullptr, fault.happened)
                                                  << fault.what;
                                              if (session != nullptr)
                                                  CFRelease(session);
                                          });
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
}

int g_present = 0; // disks, by what was told

void NoteAppeared(DADiskRef, void*) {
    ++g_present;
    StopRun(nullptr);
}

void NoteDisappeared(DADiskRef, void*) {
    --g_present;
    StopRun(nullptr);
}

class TurnSweep : public testing::Test {
protected:
    void SetUp() override {
        if (!EnterPrivateMounts())
            GTEST_SKIP() << "no mounts of its own: " << strerror(errno) << " (run as root)";
        stage_.emplace();
        g_present = 0;
        session_ = DASessionCreate(kCFAllocatorDefault);
        ASSERT_NE(session_, nullptr);
        DARegisterDiskAppearedCallback(session_, nullptr, NoteAppeared, nullptr);
        DARegisterDiskDisappearedCallback(session_, nullptr, NoteDisappeared, nullptr);
        DASessionScheduleWithRunLoop(session_, CFRunLoopGetCurrent(), kCFRunLoopDefaultMode);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), turns_, kCFRunLoopDefaultMode);
        AwaitAll();
    }
    ~TurnSweep() override {
        CFRunLoopSourceInvalidate(turns_);
        CFRelease(turns_);
        if (session_ != nullptr)
            CFRelease(session_);
    }

    // Until the disks told are as many as there are.
    static void AwaitAll() {
        while (g_present != static_cast<int>(ReadVolumes(kMountTable)->size()))
            CFRunLoopRun();
    }
    // In the first the loop learns that the table has changed, in the second the session looks.
    void TakeTwoTurns() {
        turnsLeft_ = 2;
        cf::SignalSource(turns_);
        while (turnsLeft_ > 0)
            CFRunLoopRun();
    }

    std::optional<MountStage> stage_;

private:
    static void CountTurn(void* info) {
        auto& self = *static_cast<TurnSweep*>(info);
        if (--self.turnsLeft_ > 0)
            cf::SignalSource(self.turns_);
        else
            StopRun(nullptr);
    }

    int turnsLeft_ = 0;
    const CFRunLoopSourceRef turns_ = cf::CreateSignalSource(cf::RunLevel::kAny, CountTurn, this);
    DASessionRef session_ = nullptr;
};

TEST_F(TurnSweep, WhatATurnMissesTheNextOneTells) {
    stage_->Mount("first");
    const SweptFaults swept = SweepFaults([&] { TakeTwoTurns(); },
                                          [&](const Fault&) {
                                              AwaitAll();
                                              stage_->Unmount("first");
                                              AwaitAll();
                                              stage_->Mount("first");
                                          });
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
    AwaitAll();
}

} // namespace
} // namespace disks
