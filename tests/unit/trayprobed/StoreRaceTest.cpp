/*
 * The daily timer changes the store without the state lock. The timer's update and a thread's
 * update must both last, even if one runs between the other's read and write.
 */

#include "Store.h"
#include "support/RecordedTimer.h"

#include <atomic>
#include <functional>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

namespace {

std::function<void()> g_onCopy; // called once, in the middle of an update

} // namespace

extern "C" {
CFMutableDictionaryRef __real_CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                            CFIndex capacity,
                                                            CFDictionaryRef dictionary);

CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context) {
    NumberReferences::NoteKept(context->info);
    return __real_CFRunLoopTimerCreate(allocator, fireDate, interval, flags, order, callout,
                                       context);
}

CFMutableDictionaryRef __wrap_CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                            CFIndex capacity,
                                                            CFDictionaryRef dictionary) {
    CFMutableDictionaryRef copy =
        __real_CFDictionaryCreateMutableCopy(allocator, capacity, dictionary);
    if (const auto onCopy = std::exchange(g_onCopy, nullptr))
        onCopy();
    return copy;
}
}

namespace {

using Update = std::function<VErrLink*()>;

class StoreRace : public Store {
protected:
    StoreRace() {
        AddChanger(kChanger);
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    }

    // Between the first update's read and write, the second update runs until it has ended or
    // must wait for the first.
    static void Interleave(const Update& first, const Update& second) {
        std::counting_semaphore<> endedOrWaiting(0);
        std::thread thread;
        g_onCopy = [&] {
            thread = std::thread([&] {
                const OnWaitingForMutex onWaiting([&] { endedOrWaiting.release(); });
                EXPECT_EQ(TakeChain(second()), Chain());
                endedOrWaiting.release();
            });
            endedOrWaiting.acquire();
        };
        EXPECT_EQ(TakeChain(first()), Chain());
        ASSERT_TRUE(thread.joinable()) << "the first never read the store";
        thread.join();
    }
};

VErrLink* StartBuild() {
    return SetChangerFSCacheBuildInProgress(kChanger, 1);
}
VErrLink* FinishElement() {
    return RemoveStorageElemFromMediaIdInProgressList(kChanger, 5);
}
VErrLink* BeginElement() {
    return AddStorageElemToMediaIdInProgressList(kChanger, 6);
}
VErrLink* RequestAbort() {
    return SetChangerShouldAbortOperation(kChanger, 1);
}

TEST_F(StoreRace, UpdateDuringAnotherUndoesNeither) {
    struct Change {
        const char* name;
        Update update;
        std::function<bool()> lasts;
    };
    const Change changes[] = {
        {"build flag", StartBuild, [&] { return IsBuilding(kChanger); }},
        {"removed element", FinishElement, [&] { return !IsInProgress(kChanger, 5); }},
        {"added element", BeginElement, [&] { return IsInProgress(kChanger, 6); }},
        {"abort flag", RequestAbort, [&] { return ShouldAbort(kChanger); }},
        {"timer", [] { return ScheduleChangerFSCacheTimer(kChanger, 1, 0); },
         [] { return TimerOf(kChanger) != nullptr; }},
    };
    for (const Change& first : changes) {
        for (const Change& second : changes) {
            if (&first == &second)
                continue;
            SCOPED_TRACE(std::string(second.name) + " during the update of the " + first.name);
            AddChanger(kChanger);
            EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
            Interleave(first.update, second.update);
            EXPECT_TRUE(first.lasts());
            EXPECT_TRUE(second.lasts());
            EXPECT_EQ(UnscheduleChangerFSCacheTimer(kChanger), nullptr);
        }
    }
}

// Mainly for the thread sanitizer.
TEST_F(StoreRace, UpdatesOfConcurrentThreadsAllLast) {
    constexpr int kRounds = 300;
    SaveInfoList(Array());
    std::atomic<bool> stop = false;
    std::thread timer([&] {
        while (!stop) {
            TakeChain(StartBuild());
            TakeChain(SetChangerFSCacheBuildInProgress(kChanger, 0));
        }
    });
    std::thread walk([&] {
        while (!stop) {
            SInt32 identified = 0;
            SInt32 hasFileSystem = 0;
            EXPECT_EQ(
                TakeChain(MediaHasMountablePartitions(kChanger, 0, &identified, &hasFileSystem))
                    .back()
                    .message,
                "fail GetChangerInfoDict");
        }
    });
    std::thread worker([&] {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_EQ(LockMediaIdState(), nullptr);
            TakeChain(BeginElement());
            TakeChain(FinishElement());
            UnlockMediaIdState();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        SaveInfoList(Array({Dictionary({{"GUID", round}})}));
        CFOwned<CFArrayRef> list;
        EXPECT_EQ(GetChangerList(list.Out()), nullptr);
        EXPECT_EQ(TakeChain(RequestAbort()), Chain());
        UnlockMediaIdState();
    }
    worker.join();
    stop = true;
    timer.join();
    walk.join();
    EXPECT_TRUE(IsInProgress(kChanger, 6));
    EXPECT_FALSE(IsInProgress(kChanger, 5));
    EXPECT_TRUE(ShouldAbort(kChanger));
}

} // namespace
