#include "Callouts.h"
#include "LoopSleep.h"
#include "ResourceUsage.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace {

thread_local int t_takeBeforeGLib = 0; // descriptors in use while GLib creates a context
std::atomic<int> g_wakeUps = 0;

} // namespace

extern "C" {
GMainContext* __real_g_main_context_new(void);

GMainContext* __wrap_g_main_context_new(void) {
    std::vector<int> taken;
    for (int i = 0; i < t_takeBeforeGLib; ++i)
        taken.push_back(dup(STDERR_FILENO));
    GMainContext* context = __real_g_main_context_new();
    for (const int descriptor : taken)
        close(descriptor);
    return context;
}

void __real_g_main_context_wakeup(GMainContext* context);

void __wrap_g_main_context_wakeup(GMainContext* context) {
    ++g_wakeUps;
    __real_g_main_context_wakeup(context);
}
}

namespace {

// An eventfd is readable while its count is above 0.
class Event : NotCopyable {
public:
    Event() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Event() {
        close(descriptor_);
    }

    int Descriptor() const {
        return descriptor_;
    }
    void Raise() const {
        EXPECT_EQ(eventfd_write(descriptor_, 1), 0);
    }
    void Clear() const {
        eventfd_t count = 0;
        EXPECT_EQ(eventfd_read(descriptor_, &count), 0);
    }

private:
    int descriptor_;
};

TEST(RunLoopTest, EachThreadHasItsOwnLoop) {
    const CFRunLoopRef own = CFRunLoopGetCurrent();
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(CFRunLoopGetCurrent(), own);
    std::thread([own] { EXPECT_NE(CFRunLoopGetCurrent(), own); }).join();
}

TEST(RunLoopTest, ModeStringsEqualTheirNames) {
    EXPECT_TRUE(CFEqual(kCFRunLoopDefaultMode, CFSTR("kCFRunLoopDefaultMode")));
    EXPECT_TRUE(CFEqual(kCFRunLoopCommonModes, CFSTR("kCFRunLoopCommonModes")));
}

TEST(RunLoopTest, EmptyLoopReturnsAtOnce) {
    CFRunLoopRun();
}

TEST(RunLoopTest, StopBeforeARunIsIgnored) {
    TestSource source(StopCurrentRun);
    source.Signal();
    StopCurrentRun();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, RunEndsWhenLastSourceIsRemoved) {
    TestSource source([&] { source.Remove(); });
    source.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, ReadySourcesPerformInOrderOfAddition) {
    std::vector<int> order;
    TestSource first([&] { order.push_back(1); });
    TestSource second([&] { order.push_back(2); });
    TestSource third([&] {
        order.push_back(3);
        StopCurrentRun();
    });
    third.Signal();
    second.Signal();
    first.Signal();
    CFRunLoopRun();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoopTest, SourcesKeepOrderWhenOthersAreRemoved) {
    std::vector<int> order;
    std::vector<std::unique_ptr<TestSource>> sources;
    for (int i = 0; i < 5; ++i)
        sources.push_back(std::make_unique<TestSource>([&order, i] { order.push_back(i); }));
    const auto run = [&] {
        TestSource last(StopCurrentRun);
        for (const auto& source : sources)
            source->Signal();
        last.Signal();
        order.clear();
        CFRunLoopRun();
        return order;
    };
    sources[2]->Remove();
    EXPECT_EQ(run(), (std::vector<int>{0, 1, 3, 4}));
    sources[0]->Remove();
    sources[1]->Remove();
    EXPECT_EQ(run(), (std::vector<int>{3, 4}));
    sources[4]->Remove();
    sources[1]->Add();
    EXPECT_EQ(run(), (std::vector<int>{3, 1}));
    sources[3]->Remove();
    sources[1]->Remove();
    EXPECT_EQ(run(), (std::vector<int>{}));
    sources[2]->Add();
    sources[0]->Add();
    EXPECT_EQ(run(), (std::vector<int>{2, 0}));
}

TEST(RunLoopTest, SourcePerformsOncePerIteration) {
    TestSource eager([&] { eager.Signal(); });
    TestSource other([&] {
        if (other.Count() == 3)
            StopCurrentRun();
        other.Signal();
    });
    eager.Signal();
    other.Signal();
    CFRunLoopRun();
    EXPECT_EQ(eager.Count(), 3);
}

TEST(RunLoopTest, SourceAddedInIterationPerformsInNext) {
    std::optional<TestSource> late;
    TestSource first([&] {
        if (late.has_value()) {
            EXPECT_EQ(late->Count(), 0);
            return;
        }
        late.emplace(StopCurrentRun);
        late->Signal();
        first.Signal();
    });
    first.Signal();
    CFRunLoopRun();
    EXPECT_EQ(late->Count(), 1);
    EXPECT_EQ(first.Count(), 2);
}

TEST(RunLoopTest, SignalsBeforeCalloutPerformOnce) {
    TestSource source(StopCurrentRun);
    source.Signal();
    source.Signal();
    CFRunLoopRun();
    TestSource stop(StopCurrentRun);
    stop.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, SignalsBeforeCalloutWakeLoopOnce) {
    TestSource source(StopCurrentRun);
    g_wakeUps = 0;
    std::thread([&] {
        source.Signal();
        source.Signal();
    }).join();
    EXPECT_EQ(g_wakeUps, 1);
    CFRunLoopRun();
}

TEST(RunLoopTest, SignalOnLoopThreadDoesNotWake) {
    TestSource source(StopCurrentRun);
    g_wakeUps = 0;
    source.Signal();
    EXPECT_EQ(g_wakeUps, 0);
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, StoppedRunPerformsNoOtherSource) {
    TestSource first(StopCurrentRun);
    TestSource second(StopCurrentRun);
    first.Signal();
    second.Signal();
    CFRunLoopRun();
    EXPECT_EQ(second.Count(), 0);
    CFRunLoopRun();
    EXPECT_EQ(second.Count(), 1);
    EXPECT_EQ(first.Count(), 1);
}

TEST(RunLoopTest, StopEndsOnlyTheInnermostRun) {
    TestSource inner(StopCurrentRun);
    TestSource outer([&] {
        if (outer.Count() == 1) {
            inner.Signal();
            CFRunLoopRun();
            EXPECT_EQ(inner.Count(), 1);
            outer.Signal();
        } else {
            StopCurrentRun();
        }
    });
    outer.Signal();
    CFRunLoopRun();
    EXPECT_EQ(outer.Count(), 2);
}

TEST(RunLoopTest, OuterRunStoppedBeforeInnerRunEndsAfterIt) {
    TestSource inner(StopCurrentRun);
    TestSource never([] {});
    TestSource outer([&] {
        StopCurrentRun();
        inner.Signal();
        CFRunLoopRun();
        never.Signal();
    });
    outer.Signal();
    CFRunLoopRun();
    EXPECT_EQ(inner.Count(), 1);
    EXPECT_EQ(never.Count(), 0);
}

TEST(RunLoopTest, AnotherThreadStopsASleepingRun) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    TestSource keepsRunning([] {});
    AtNextSleepElsewhere([loop] { CFRunLoopStop(loop); });
    CFRunLoopRun();
}

TEST(RunLoopTest, AnotherThreadsSignalsAllWakeTheLoop) {
    constexpr int kSignals = 1000;
    std::atomic<int> performed = 0;
    TestSource source([&] {
        if (++performed == kSignals)
            StopCurrentRun();
        performed.notify_one();
    });
    std::thread signaller([&] {
        for (int i = 0; i < kSignals; ++i) {
            source.Signal();
            performed.wait(i);
        }
    });
    CFRunLoopRun();
    signaller.join();
    EXPECT_EQ(source.Count(), kSignals);
}

TEST(RunLoopTest, NestedRunPerformsAllButSourceInCallout) {
    int depth = 0;
    TestSource other(StopCurrentRun);
    TestSource source([&] {
        EXPECT_EQ(++depth, 1);
        if (source.Count() == 1) {
            source.Signal();
            other.Signal();
            CFRunLoopRun();
        } else {
            StopCurrentRun();
        }
        --depth;
    });
    other.Remove();
    other.Add(); // behind the source, which would perform first
    source.Signal();
    CFRunLoopRun();
    EXPECT_EQ(other.Count(), 1);
    EXPECT_EQ(source.Count(), 2);
}

TEST(RunLoopTest, OutermostSourcesPerformInOrderAfterNestedRun) {
    std::vector<int> order;
    const Event event;
    TestSource first([&] { order.push_back(2); }, cf::RunLevel::kOutermost);
    TestSource second(
        [&] {
            order.push_back(3);
            StopCurrentRun();
        },
        cf::RunLevel::kOutermost, event.Descriptor());
    TestSource inner(StopCurrentRun);
    TestSource nests([&] {
        first.Signal();
        event.Raise();
        // Although the descriptor is readable, the nested run sleeps.
        AtNextSleepElsewhere([&] { inner.Signal(); });
        CFRunLoopRun();
        order.push_back(1);
    });
    nests.Signal();
    CFRunLoopRun();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoopTest, DescriptorSourcePerformsWhileReadable) {
    const Event event;
    TestSource source(
        [&] {
            if (source.Count() == 3)
                event.Clear();
        },
        cf::RunLevel::kAny, event.Descriptor());
    event.Raise();
    AtNextSleepElsewhere([loop = CFRunLoopGetCurrent()] { CFRunLoopStop(loop); });
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 3);
}

TEST(RunLoopTest, DescriptorThatBecomesReadableWakesLoop) {
    const Event event;
    TestSource source(StopCurrentRun, cf::RunLevel::kAny, event.Descriptor());
    AtNextSleepElsewhere([&] { event.Raise(); });
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, NestedRunSkipsDescriptorInCallout) {
    const Event event;
    TestSource inner(StopCurrentRun);
    TestSource source(
        [&] {
            if (source.Count() == 2)
                return StopCurrentRun();
            AtNextSleepElsewhere([&] { inner.Signal(); });
            CFRunLoopRun();
            EXPECT_EQ(source.Count(), 1);
        },
        cf::RunLevel::kAny, event.Descriptor());
    event.Raise();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 2);
}

TEST(RunLoopTest, DescriptorPerformsBesideSourceThatIsAlwaysReady) {
    const Event event;
    event.Raise();
    TestSource eager([&] { eager.Signal(); });
    TestSource source(StopCurrentRun, cf::RunLevel::kAny, event.Descriptor());
    eager.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, RemovedDescriptorPerformsOnlyWhenAddedAgain) {
    const Event event;
    TestSource source([] {}, cf::RunLevel::kAny, event.Descriptor());
    TestSource stop(StopCurrentRun);
    source.Remove();
    event.Raise();
    stop.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 0);
    source.Add();
    stop.Remove();
    TestSource last([&] {
        if (source.Count() > 0)
            StopCurrentRun();
        last.Signal();
    });
    last.Signal();
    CFRunLoopRun();
    EXPECT_GE(source.Count(), 1);
}

TEST(RunLoopTest, SourceInvalidatedInItsCalloutPerformsNoMore) {
    const Event event;
    event.Raise();
    TestSource descriptor([&] { descriptor.Invalidate(); }, cf::RunLevel::kAny, event.Descriptor());
    TestSource signal([&] {
        signal.Invalidate();
        signal.Signal();
        signal.Add();
    });
    signal.Signal();
    CFRunLoopRun();
    EXPECT_EQ(descriptor.Count(), 1);
    EXPECT_EQ(signal.Count(), 1);
}

TEST(RunLoopTest, RemovalFromCommonModesKeepsSourceOfDefaultMode) {
    TestSource source(StopCurrentRun);
    source.Remove(kCFRunLoopCommonModes);
    source.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

TEST(RunLoopTest, EitherModeRemovesSourceOfCommonModes) {
    TestSource source(StopCurrentRun);
    source.Signal();
    for (CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes}) {
        source.Remove();
        source.Add(kCFRunLoopCommonModes);
        source.Remove(mode);
        CFRunLoopRun();
    }
    EXPECT_EQ(source.Count(), 0);
}

TEST(RunLoopTest, RemovalFromOtherModeOrLoopOrOfNullIsIgnored) {
    TestSource source(StopCurrentRun);
    CFRunLoopRef const loop = CFRunLoopGetCurrent();
    std::thread([&] { source.Remove(); }).join();
    source.Remove(CFSTR("another mode"));
    CFRunLoopRemoveSource(loop, nullptr, kCFRunLoopDefaultMode);
    CFRunLoopRemoveSource(nullptr, source.Get(), kCFRunLoopDefaultMode);
    CFRunLoopSourceInvalidate(nullptr);
    source.Signal();
    CFRunLoopRun();
    EXPECT_EQ(source.Count(), 1);
}

void CountAndStop(void* count) {
    ++*static_cast<int*>(count);
    StopCurrentRun();
}

TEST(RunLoopTest, LoopRetainsItsSource) {
    int performed = 0;
    CFRunLoopSourceRef source =
        cf::CreateSignalSource(cf::RunLevel::kAny, CountAndStop, &performed);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    cf::SignalSource(source);
    CFRelease(source);
    CFRunLoopRun();
    EXPECT_EQ(performed, 1);
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
}

TEST(RunLoopTest, ThreadExitFreesLoopTimersAndSources) {
    static std::atomic<int> released;
    released = 0;
    const std::size_t descriptors = CountDescriptors();
    std::thread([] {
        const Event event;
        CFRunLoopTimerContext context = {0, nullptr, nullptr, [](const void*) { ++released; },
                                         nullptr};
        // The second timer is a date, for which the loop has an alarm.
        for (const CFTimeInterval interval : {0.0, 86400.0}) {
            CFRunLoopTimerRef timer =
                CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + 3600 * 24,
                                     interval, 0, 0, nullptr, &context);
            CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
            CFRelease(timer);
        }
        CFRunLoopSourceRef source = cf::CreateDescriptorSource(
            event.Descriptor(), cf::RunLevel::kAny, [](void*) {}, nullptr);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
        CFRelease(source);
        AtNextSleepElsewhere([loop = CFRunLoopGetCurrent()] { CFRunLoopStop(loop); });
        CFRunLoopRun();
    }).join();
    EXPECT_EQ(released, 2);
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(RunLoopTest, SourceOutlivesTheLoopOfAnEndedThread) {
    int performed = 0;
    CFRunLoopSourceRef source =
        cf::CreateSignalSource(cf::RunLevel::kAny, CountAndStop, &performed);
    std::thread([source] {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    }).join();
    cf::SignalSource(source);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRunLoopRun();
    EXPECT_EQ(performed, 1);
    CFRunLoopSourceInvalidate(source);
    CFRelease(source);
}

TEST(RunLoopTest, WithoutDescriptorsThereIsNoLoop) {
    std::thread([] {
        {
            const DescriptorLimit none(0);
            EXPECT_EQ(CFRunLoopGetCurrent(), nullptr);
            CFRunLoopRun();
            StopCurrentRun();
        }
        EXPECT_NE(CFRunLoopGetCurrent(), nullptr);
    }).join();
}

// The limit that leaves `spare` descriptors.
rlim_t LimitLeaving(int spare) {
    const int next = dup(STDERR_FILENO);
    close(next);
    return static_cast<rlim_t>(next + spare);
}

// GLib ends the process if it gets no descriptor.
TEST(RunLoopTest, DescriptorsTakenBeforeGLibDoNotAbort) {
    for (int spare = 1; spare <= 6; ++spare) {
        const DescriptorLimit few(LimitLeaving(spare));
        std::thread([] {
            t_takeBeforeGLib = 2;
            CFRunLoopGetCurrent();
        }).join();
    }
}

TEST(RunLoopTest, ThreadsStartedTogetherWithFewDescriptorsDoNotAbort) {
    for (int round = 0; round < 600; ++round) {
        const DescriptorLimit few(LimitLeaving(1 + round % 6));
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back(CFRunLoopGetCurrent);
        for (std::thread& thread : threads)
            thread.join();
    }
}

} // namespace
