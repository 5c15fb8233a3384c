/*
 * What the server pushes, in whatever chunks it comes, through the real callbacks, store, registry,
 * identifications and builds; the server's answers are the test's. Besides what FrameScript.h
 * tells, this may happen:
 *
 *   ESC M, ESC U  the file system of changer 7 is mounted, unmounted
 *   ESC T         of the threads that were started, the one that waits longest runs
 *   ESC D         the daily timer that was made last fires
 *   ESC X         the server refuses the next command
 */

#include "FrameScript.h"
#include "KeptLists.h"
#include "Target.h"

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/PropertyLists.h"
#include "support/TemporaryTree.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/DeferredThreads.h"
#include "trayprobed/FakeDisks.h"
#include "trayprobed/FakeServer.h"
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
constexpr time_t kSomeDay = 1'000'000'000;

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

// The daemon, but for what stands around it.
class Daemon {
public:
    explicit Daemon(const ChangerFileSystem& fileSystem);
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // What it did: its commands to the server and its timers.
    std::vector<std::string> ReceiveChunks(std::string_view script);
    // What it should do, were its frames assembled and read well.
    std::vector<std::string> TakePayloads(std::string_view script);

private:
    void Receive(std::string_view chunk);
    void Take(std::string_view payload);
    void Happen(char event);
    std::vector<std::string> End();
    void NoteWhatItDid();
    void ExpectNothingUnderWay() const;

    KeptLists keptLists_;
    LogCapture log_;
    FakeTime time_{kSomeDay, 1};
    RecordedTimers timers_;
    DeferredThreads threads_;
    FakeDisk disk_;
    ChangerNotificationSubscription* subscription_ = nullptr;
    bool refused_ = false; // a command; the slot of a request that could not be withdrawn stays
    std::vector<std::string> done_;
};

// The connection stands.
Daemon::Daemon(const ChangerFileSystem& fileSystem) : disk_("sr0", fileSystem.Path().c_str()) {
    FakeServer::Reset();
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
        Happen(step.event);
    }
    return End();
}

std::vector<std::string> Daemon::TakePayloads(std::string_view script) {
    for (const ScriptStep& step : ReadPayloads(script)) {
        if (!step.bytes.empty())
            Take(step.bytes);
        Happen(step.event);
    }
    return End();
}

std::vector<std::string> Daemon::End() {
    while (DeferredThreads::Count() > 0)
        Happen('T');
    if (!refused_)
        ExpectNothingUnderWay();
    return done_;
}

void Daemon::Receive(std::string_view chunk) {
    ServerNotificationSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, Bytes(chunk),
                                     subscription_);
}

void Daemon::Take(std::string_view payload) {
    const Held<CFPropertyListRef> list(CFPropertyListCreateFromXMLData(
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

// A build whose status cannot be cleared keeps its progress record for good.
void RunNextThread() {
    FakeServer::TakeKeptReport(); // of an earlier thread, which may have freed it
    DeferredThreads::RunNext();
    free(FakeServer::TakeKeptReport());
}

void Daemon::Happen(char event) {
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
        FakeServer::Fail("");
        refused_ = true;
    }
    NoteWhatItDid();
}

void Daemon::NoteWhatItDid() {
    EXPECT_FALSE(StateLock::IsHeld());
    log_.Take();
    for (std::string& entry : Journal::Take())
        done_.push_back(std::move(entry));
}

void Daemon::ExpectNothingUnderWay() const {
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
    const auto done = Daemon(fileSystem).ReceiveChunks(script);
    if (IsWellFramed(script))
        EXPECT_EQ(done, Daemon(fileSystem).TakePayloads(script));
    return 0;
}
