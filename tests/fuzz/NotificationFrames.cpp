/*
 * The notification socket: frames in arbitrary chunks, through the real callbacks, store, registry,
 * identifications and builds. Replies come from FakeCommands. Events besides those of
 * FrameScript.h:
 *
 *   ESC M, ESC U  the file system of changer 7 is mounted, unmounted
 *   ESC T         runs the oldest pending thread
 *   ESC D         fires the newest daily timer
 *   ESC X         the server refuses the next command
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "FrameScript.h"
#include "RetainedLists.h"
#include "Target.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/NotCopyable.h"
#include "support/PropertyLists.h"
#include "support/TemporaryTree.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/DeferredThreads.h"
#include "trayprobed/FakeCommands.h"
#include "trayprobed/FakeDisks.h"
#include "trayprobed/FakeTime.h"
#include "trayprobed/Journal.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"
#include "trayprobed/RecordedTimers.h"
#include "trayprobed/StateLock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr UInt64 kChanger = 7;
constexpr time_t kStartTime = 1'000'000'000;

class ChangerFileSystem {
public:
    ChangerFileSystem() {
        tree_.MakeChangerRoot("fs", kChanger);
        tree_.MakeMediaRoot("fs/first", kChanger, 0);
        tree_.MakeMediaRoot("fs/second", kChanger, 1);
        tree_.MakeDirectory("fs/second/a/b");
        tree_.MakeDirectory("fs/other");
    }
    std::string Path() const {
        return tree_.Path("fs");
    }

private:
    TemporaryTree tree_;
};

// The daemon with fakes for its environment.
class Daemon : NotCopyable {
public:
    explicit Daemon(const ChangerFileSystem& fileSystem);
    ~Daemon();

    // Feeds the chunks of the script; returns the daemon's commands to the server and its timers.
    std::vector<std::string> ReceiveChunks(std::string_view script);
    // The same from the payloads, without the assembly of frames: the expected result.
    std::vector<std::string> HandlePayloads(std::string_view script);

private:
    void Receive(std::string_view chunk);
    void HandlePayload(std::string_view payload);
    void Perform(char event);
    std::vector<std::string> End();
    void RecordActions();
    void ExpectNothingInProgress() const;

    RetainedLists retainedLists_;
    LogCapture log_;
    FakeTime time_{kStartTime, 1};
    RecordedTimers timers_;
    DeferredThreads threads_;
    FakeDisk disk_;
    ChangerNotificationSubscription* subscription_ = nullptr;
    bool isCommandRefused_ = false; // a slot whose withdrawal is refused stays in progress
    std::vector<std::string> actions_;
};

// Subscribed and connected.
Daemon::Daemon(const ChangerFileSystem& fileSystem) : disk_("sr0", fileSystem.Path().c_str()) {
    FakeCommands::Reset();
    EXPECT_EQ(TakeChain(StateLock::InitStore()), Chain());
    EXPECT_EQ(TakeChain(InitChangerFSCacheState()), Chain());
    EXPECT_EQ(TakeChain(SubscribeToChangerNotifications(
                  ChangerListNotificationCallBack, RootPrefsNotificationCallBack,
                  ChangerInfoNotificationCallBack, nullptr, &subscription_)),
              Chain());
    CFRunLoopTimerInvalidate(subscription_->connectTimer);
    CFRelease(subscription_->connectTimer);
    subscription_->connectTimer = nullptr;
    Journal::Take();
}

Daemon::~Daemon() {
    EXPECT_EQ(UnsubscribeFromChangerNotifications(subscription_), nullptr);
    EXPECT_EQ(SetGlobalShouldIdMedia(1), nullptr);
    TermChangerFSCacheState();
    TermMediaIdState();
    log_.Take();
}

std::vector<std::string> Daemon::ReceiveChunks(std::string_view script) {
    for (const ScriptStep& step : ReadChunks(script)) {
        if (!step.bytes.empty())
            Receive(step.bytes);
        Perform(step.event);
    }
    return End();
}

std::vector<std::string> Daemon::HandlePayloads(std::string_view script) {
    for (const ScriptStep& step : ReadPayloads(script)) {
        if (!step.bytes.empty())
            HandlePayload(step.bytes);
        Perform(step.event);
    }
    return End();
}

std::vector<std::string> Daemon::End() {
    while (DeferredThreads::Count() > 0)
        Perform('T');
    if (!isCommandRefused_)
        ExpectNothingInProgress();
    return actions_;
}

void Daemon::Receive(std::string_view chunk) {
    ServerNotificationSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, Bytes(chunk),
                                     subscription_);
}

void Daemon::HandlePayload(std::string_view payload) {
    const CFOwned<CFPropertyListRef> list(CFPropertyListCreateFromXMLData(
        nullptr, Bytes(payload), kCFPropertyListImmutable, nullptr));
    if (list != nullptr) {
        EXPECT_EQ(
            HandleChangerNotification(subscription_, static_cast<CFDictionaryRef>(list.Get())),
            nullptr);
    }
}

void FireDailyTimer() {
    const auto& timers = RecordedTimers::All();
    const auto last = std::find_if(timers.rbegin(), timers.rend(), [](const RecordedTimer& each) {
        return each.callout == ChangerFSCache;
    });
    if (last != timers.rend())
        ChangerFSCache(last->timer, last->context.info);
}

// A build whose status cannot be cleared never frees its progress report.
void RunNextThread() {
    // Discards the report of an earlier thread, which may be freed already.
    FakeCommands::TakeUnclearedReport();
    DeferredThreads::RunNext();
    free(FakeCommands::TakeUnclearedReport());
}

void Daemon::Perform(char event) {
    if (event == kLost) {
        Receive({});
    } else if (event == 'M') {
        DiskArbDiskAppearedCallback(disk_.Ref(), nullptr);
    } else if (event == 'U') {
        DiskArbDiskDisappearedCallback(disk_.Ref(), nullptr);
    } else if (event == 'T' && DeferredThreads::Count() > 0) {
        RunNextThread();
    } else if (event == 'D') {
        FireDailyTimer();
    } else if (event == 'X') {
        FakeCommands::Fail("");
        isCommandRefused_ = true;
    }
    RecordActions();
}

void Daemon::RecordActions() {
    EXPECT_FALSE(StateLock::IsHeld());
    log_.Take();
    for (std::string& entry : Journal::Take())
        actions_.push_back(std::move(entry));
}

void Daemon::ExpectNothingInProgress() const {
    CFArrayRef changers = nullptr;
    EXPECT_EQ(TakeChain(GetChangerList(&changers)), Chain());
    for (CFIndex i = 0; i < CFArrayGetCount(changers); ++i) {
        UInt64 changerGUID = 0;
        UInt32 identifications = 0;
        SInt32 isBuilding = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(changers, i)),
                         kCFNumberSInt64Type, &changerGUID);
        EXPECT_EQ(TakeChain(GetMediaIdInProgressCount(changerGUID, &identifications)), Chain());
        EXPECT_EQ(TakeChain(GetChangerFSCacheBuildInProgress(changerGUID, &isBuilding)), Chain());
        EXPECT_EQ(identifications, 0U);
        EXPECT_EQ(isBuilding, 0);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ChangerFileSystem fileSystem;
    static const int zone = setenv("TZ", "UTC", 1);
    EXPECT_EQ(zone, 0);
    const std::string_view script = TextOfInput(data, size);
    const auto actions = Daemon(fileSystem).ReceiveChunks(script);
    if (IsWellFramed(script))
        EXPECT_EQ(actions, Daemon(fileSystem).HandlePayloads(script));
    return 0;
}
