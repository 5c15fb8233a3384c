/*
 * The daily timer starts a build without the state lock, while identifications and builds end under
 * it. Whatever the order of their steps, no update is lost.
 *
 * The timer's start has six steps that others can see: it locks the store and copies the state, for
 * the flag; when no build is in progress, it locks the new build's mutex and makes the thread; it
 * locks the store, copies the state, and stores it with the flag set.
 *
 * An identification has six: it locks the registry, where it finds no volume; then, to end, the
 * state, the store to see that the changer is known, and the store again; it copies the state, and
 * stores it without the element.
 *
 * A build that finds no volume has six: it waits for its starter; it locks the state and the
 * registry; to end, it locks the store, copies the state, and stores it with the flag clear.
 *
 * Nothing else is shared: the server's answers are made up on the spot, and what happens between
 * two steps concerns the thread's own copies. With the waiting that the locks demand, this makes
 * 364 orders of the timer and an identification, 4 of the timer and its new build, 30 of the timer,
 * an earlier build and, where there is one, its new build, and 50 of an identification and a build.
 */

#include "ExploreInterleavings.h"
#include "Store.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdThread.h"

#include <cstdlib>
#include <set>

// All mutexes are watched by ExploreInterleavings.cpp here.
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

    // Two elements in progress, and a wish to abort: what one update could undo of another.
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

    static void FireTimer() {
        ChangerFSCache(nullptr,
                       const_cast<__CFNumber*>(Integer(static_cast<SInt64>(kChanger)).Get()));
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

TEST_F(TimerOrders, TheFlagSetAndTheElementRemovedBothLast) {
    EXPECT_EQ(RunInEveryOrder({.prepare = [&] { MakeState(); },
                               .threads = {FireTimer, Identify},
                               .checkBeforeStarted = [&] { CheckState(true, false); },
                               .check = [&] { CheckState(false, false); }}),
              918U);
}

TEST_F(TimerOrders, ABuildClearsTheFlagAfterItsStarterHasSetIt) {
    EXPECT_EQ(RunInEveryOrder({.prepare = [&] { MakeState(); },
                               .threads = {FireTimer},
                               .checkBeforeStarted = nullptr,
                               .check = [&] { CheckState(false, true); }}),
              4U);
}

// The timer finds the build still in progress, or starts the next one.
TEST_F(TimerOrders, ABuildThatEndsMakesRoomForTheNextOne) {
    std::set<std::size_t> buildCounts;
    const auto prepare = [&] {
        MakeState();
        StartBuild();
    };
    const auto check = [&] {
        CheckState(false, true);
        buildCounts.insert(CountStartedThreads());
    };
    EXPECT_EQ(RunInEveryOrder({.prepare = prepare,
                               .threads = {FireTimer},
                               .checkBeforeStarted = nullptr,
                               .check = check}),
              30U);
    EXPECT_EQ(buildCounts, (std::set<std::size_t>{1, 2}));
}

TEST_F(TimerOrders, TheFlagClearedAndTheElementRemovedBothLast) {
    const auto prepare = [&] {
        MakeState();
        StartBuild();
    };
    EXPECT_EQ(RunInEveryOrder({.prepare = prepare,
                               .threads = {Identify},
                               .checkBeforeStarted = nullptr,
                               .check = [&] { CheckState(false, false); }}),
              176U);
}

} // namespace
