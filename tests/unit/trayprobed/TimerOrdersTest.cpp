/*
 * The daily timer starts a build without the state lock, while identifications and builds end with
 * it. No order of their steps may lose an update. The steps that other threads can see:
 * - The timer locks the store and copies the state, for the flag. When no build is in progress, it
 *   locks the new build's mutex and creates the thread; then it locks the store, copies the state,
 *   and stores it with the flag set.
 * - An identification locks the registry, where it finds no volume. At its end it takes the state
 *   lock, locks the store, copies the state, and stores it without the element.
 * - A build that finds no volume waits for its starter, takes the state lock and locks the
 *   registry. At its end it locks the store, copies the state, and stores it with the flag clear.
 *
 * Threads share nothing else: the fake server replies without waiting, and between two steps a
 * thread works on its own copies.
 */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "ExploreInterleavings.h"
#include "Store.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdThread.h"

#include <cstdlib>
#include <set>
#include <string>
#include <vector>

// ExploreInterleavings.cpp wraps the mutexes here, instead of StateLock.cpp.
VErrLink* StateLock::InitStore() {
    return InitMediaIdState();
}

VErrLink* SendMessageToChangerServer(CFDictionaryRef, CFDictionaryRef*) {
    return nullptr;
}

namespace {

class TimerOrders : public Store {
protected:
    TimerOrders() {
        EXPECT_EQ(InitChangerFSCacheState(), nullptr);
    }
    ~TimerOrders() override {
        TermChangerFSCacheState();
    }

    // Two elements in progress and a requested abort, which a lost update would change.
    void MakeState() const {
        AddChanger(kChanger);
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
        EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 6), nullptr);
        EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    }
    void CheckState(bool isBuilding, bool isIdentifying) const {
        EXPECT_EQ(IsBuilding(kChanger), isBuilding);
        EXPECT_EQ(IsInProgress(kChanger, 5), isIdentifying);
        EXPECT_TRUE(IsInProgress(kChanger, 6));
        EXPECT_TRUE(ShouldAbort(kChanger));
    }

    // The threads have ended in exactly these orders, and were interleaved at steps of each kind.
    static void ExpectEndings(const ExploredOrders& orders,
                              const std::set<std::vector<std::size_t>>& endings) {
        EXPECT_EQ(orders.endings, endings);
        EXPECT_GT(orders.count, endings.size());
        EXPECT_EQ(orders.steps, (std::set<std::string>{"copy", "lock", "store"}));
        RecordProperty("orders", std::to_string(orders.count));
    }

    static void FireTimer() {
        ChangerFSCache(nullptr, const_cast<void*>(Value(kChanger).Get()));
    }
    static void Identify() {
        auto* context = static_cast<MediaIdThreadContext*>(calloc(1, sizeof(MediaIdThreadContext)));
        context->changerGUID = kChanger;
        context->storageElem = 5;
        RunMediaIdThread(context);
    }
    static void StartBuild() {
        EXPECT_EQ(TakeChain(StartChangerFSCache(kChanger)), Chain());
    }
};

TEST_F(TimerOrders, FlagSetByTimerAndElementRemovedByIdentificationBothLast) {
    ExpectEndings(RunInEveryOrder({.prepare = [&] { MakeState(); },
                                   .threads = {FireTimer, Identify},
                                   .checkBeforeStarted = [&] { CheckState(true, false); },
                                   .check = [&] { CheckState(false, false); }}),
                  {{0, 1}, {1, 0}});
}

TEST_F(TimerOrders, BuildClearsFlagOnlyAfterItsStarterHasSetIt) {
    ExpectEndings(RunInEveryOrder({.prepare = [&] { MakeState(); },
                                   .threads = {FireTimer},
                                   .check = [&] { CheckState(false, true); }}),
                  {{0, 1}});
}

// The timer finds the build still in progress, or starts the next one.
TEST_F(TimerOrders, TimerDuringABuildStartsNoneOrTheNext) {
    std::set<std::size_t> buildCounts;
    const auto prepare = [&] {
        MakeState();
        StartBuild();
    };
    const auto check = [&] {
        CheckState(false, true);
        buildCounts.insert(CountStartedThreads());
    };
    ExpectEndings(RunInEveryOrder({.prepare = prepare, .threads = {FireTimer}, .check = check}),
                  {{1, 0}, {0, 1, 2}});
    EXPECT_EQ(buildCounts, (std::set<std::size_t>{1, 2}));
}

TEST_F(TimerOrders, FlagClearedByBuildAndElementRemovedByIdentificationBothLast) {
    const auto prepare = [&] {
        MakeState();
        StartBuild();
    };
    ExpectEndings(RunInEveryOrder({.prepare = prepare,
                                   .threads = {Identify},
                                   .check = [&] { CheckState(false, false); }}),
                  {{0, 1}, {1, 0}});
}

} // namespace
