/*
 * The order of a due timer and of input at a socket in a loop that runs late. Input that had
 * reached the machine when the timer became due goes first, even if no thread of the process could
 * run between the two.
 */

#include "AllocationFaults.h"
#include "Callouts.h"
#include "FakeClock.h"
#include "LocalServer.h"
#include "ResourceUsage.h"
#include "TestSocket.h"
#include "loop/Arrivals.h"
#include "support/Matchers.h"
#include "support/NotCopyable.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace {

constexpr CFTimeInterval kDay = 86400;

std::mutex g_mutex;
std::condition_variable g_changed;
bool g_isStopped = false;                    // the background thread does not run
std::atomic<bool> g_findsNothing = false;    // recv() fails as if another reader had been faster
std::atomic<int> g_vainReads = 0;            // calls of recv() that failed so
std::atomic<bool> g_interruptsPeeks = false; // recv() with MSG_PEEK, which looks for the end

} // namespace

extern "C" {
int __real_epoll_wait(int epoll, epoll_event* events, int count, int milliseconds);
ssize_t __real_recv(int socket, void* bytes, std::size_t count, int flags);

ssize_t __wrap_recv(int socket, void* bytes, std::size_t count, int flags) {
    if (g_interruptsPeeks && (flags & MSG_PEEK) != 0) {
        errno = EINTR;
        return -1;
    }
    if (!g_findsNothing)
        return __real_recv(socket, bytes, count, flags);
    ++g_vainReads;
    errno = EAGAIN;
    return -1;
}

// The background thread takes nothing from the kernel while it is stopped.
int __wrap_epoll_wait(int epoll, epoll_event* events, int count, int milliseconds) {
    if (milliseconds == 0)
        return __real_epoll_wait(epoll, events, count, 0);
    pollfd ready = {epoll, POLLIN, 0};
    poll(&ready, 1, -1);
    std::unique_lock lock(g_mutex);
    g_changed.wait(lock, [] { return !g_isStopped; });
    return __real_epoll_wait(epoll, events, count, 0);
}
}

namespace {

// Stops the background thread, as if the whole process were stopped.
class Stop : NotCopyable {
public:
    Stop() {
        const std::lock_guard lock(g_mutex);
        g_isStopped = true;
    }
    ~Stop() {
        const std::lock_guard lock(g_mutex);
        g_isStopped = false;
        g_changed.notify_all();
    }
};

class ArrivalOrderTest : public testing::Test {
protected:
    ArrivalOrderTest() : peer_(server_.Accept()) {
        socket_.atChunk = [this] {
            order_.push_back(socket_.chunks.back().empty() ? "end" : socket_.chunks.back());
        };
        socket_.AddToLoop();
    }

    // A callout that appends the name to order_.
    std::function<void()> Note(const char* name) {
        return [this, name] { order_.push_back(name); };
    }
    CFAbsoluteTime In(CFTimeInterval seconds) const {
        return start_ + seconds;
    }

    // Returns when the background thread has read the bytes.
    void Send(std::string_view bytes) const {
        peer_.Write(bytes);
        peer_.AwaitReading();
    }

    // Runs the loop until the timers of the test have fired and all input is read.
    void Run() {
        TestTimer last(In(100), 0, StopCurrentRun);
        CFRunLoopRun();
    }

    FakeClock clock_;
    const CFAbsoluteTime start_ = CFAbsoluteTimeGetCurrent();
    const LocalServer server_;
    TestSocket socket_{server_};
    Peer peer_;
    std::vector<std::string> order_;
};

// ---- the process was stopped ----

struct LateLoop {
    const char* name;
    CFTimeInterval timerDate; // seconds after the stop
    CFTimeInterval inputDate;
    CFTimeInterval runDate; // the process continues
    std::function<void(Peer&, const TestSocket&)> input;
    std::vector<std::string> order;

    friend void PrintTo(const LateLoop& late, std::ostream* out) {
        *out << late.name;
    }
};

class LateLoopTest : public ArrivalOrderTest, public testing::WithParamInterface<LateLoop> {
protected:
    ~LateLoopTest() override {
        g_interruptsPeeks = false;
    }
};

TEST_P(LateLoopTest, CalloutsAreInTheOrderOfTheirDates) {
    const LateLoop& late = GetParam();
    TestTimer timer(In(late.timerDate), 0, Note("timer"));
    const Stop stop;
    clock_.Advance(late.inputDate);
    late.input(peer_, socket_);
    clock_.Advance(late.runDate - late.inputDate);
    Run();
    EXPECT_EQ(order_, late.order);
}

void Reply(Peer& peer, const TestSocket&) {
    peer.Write("reply");
}

void ReplyWithInterruptedPeek(Peer& peer, const TestSocket&) {
    peer.Write("reply");
    g_interruptsPeeks = true;
}

void End(Peer& peer, const TestSocket&) {
    peer.ShutDownWriting();
}

void ReplyAndEnd(Peer& peer, const TestSocket&) {
    peer.Write("x");
    peer.ShutDownWriting();
}

void ReplyAndReset(Peer& peer, const TestSocket& socket) {
    EXPECT_EQ(socket.Send("a request that the peer does not read"), kCFSocketSuccess);
    peer.Write("reply");
    peer.Close();
}

INSTANTIATE_TEST_SUITE_P(
    , LateLoopTest,
    testing::ValuesIn(std::vector<LateLoop>{
        {"InputBeforeTheTimer", 30, 0.2, 31, Reply, {"reply", "timer"}},
        {"InputAfterTheTimer", 30, 30.5, 31, Reply, {"timer", "reply"}},
        {"InputAFractionOfASecondBeforeTheTimer", 30.5, 30.2, 31.2, Reply, {"reply", "timer"}},
        {"InterruptedPeekIsNoEnd", 30, 0, 31, ReplyWithInterruptedPeek, {"reply", "timer"}},
        {"EndAfterTheTimer", 30, 30.5, 31, End, {"timer", "end"}},
        {"EndBehindAByteBeforeTheTimer", 30, 0, 31, ReplyAndEnd, {"x", "end", "timer"}},
        {"ResetBehindInputBeforeTheTimer", 30, 0, 31, ReplyAndReset, {"reply", "end", "timer"}},
    }),
    [](const auto& test) { return test.param.name; });

TEST_F(ArrivalOrderTest, InputThatTheBackgroundThreadReadsAfterAStopKeepsItsPlace) {
    TestTimer timer(In(30), 0, Note("timer"));
    {
        const Stop stop;
        peer_.Write("before");
        clock_.Advance(31);
    }
    peer_.AwaitReading();
    Send("after");
    Run();
    EXPECT_THAT(order_, ElementsAre("before", "timer", "after"));
}

TEST_F(ArrivalOrderTest, LargeInputReadInTheBackgroundBeforeTheTimerGoesFirst) {
    TestTimer timer(In(30), 0, Note("timer"));
    const std::string large(200'000, 'x');
    Send(large);
    clock_.Advance(31);
    Run();
    EXPECT_EQ(socket_.Received(), large);
    EXPECT_EQ(order_.back(), "timer");
}

TEST_F(ArrivalOrderTest, LargeInputAndItsEndBeforeTheTimerGoFirstAfterAStop) {
    TestTimer timer(In(30), 0, Note("timer"));
    const Stop stop;
    const std::string large(100'000, 'x');
    peer_.Write(large);
    peer_.ShutDownWriting();
    clock_.Advance(31);
    Run();
    EXPECT_EQ(socket_.Received(), large);
    ASSERT_GE(order_.size(), 3U);
    EXPECT_THAT(std::span(order_).last(2), ElementsAre("end", "timer"));
}

TEST_F(ArrivalOrderTest, TimerDoesNotWaitForInputThatCannotBeReadYet) {
    TestTimer timer(In(30), 0, [this] {
        order_.push_back("timer");
        g_findsNothing = false;
    });
    const Stop stop;
    peer_.Write("reply");
    clock_.Advance(31);
    g_vainReads = 0;
    g_findsNothing = true;
    Run();
    EXPECT_EQ(g_vainReads, 1);
    EXPECT_THAT(order_, ElementsAre("timer", "reply"));
}

TEST_F(ArrivalOrderTest, InputReadWithoutMemoryBeforeTheTimerIsAnEndBeforeIt) {
    TestTimer timer(In(30), 0, Note("timer"));
    const Stop stop;
    peer_.Write("reply");
    clock_.Advance(31);
    {
        const AllocationFault fault(1);
        cf::HandleArrivals();
        ASSERT_TRUE(AllocationFault::Happened());
    }
    Run();
    EXPECT_THAT(order_, ElementsAre("end", "timer"));
}

TEST_F(ArrivalOrderTest, InputBetweenTwoTimersComesBetweenThemAfterAStop) {
    TestTimer second(In(30), 0, Note("second"));
    TestTimer first(In(20), 0, Note("first"));
    const Stop stop;
    clock_.Advance(25);
    peer_.Write("reply");
    clock_.Advance(10);
    Run();
    EXPECT_THAT(order_, ElementsAre("first", "reply", "second"));
}

TEST_F(ArrivalOrderTest, TimerDoesNotFireAfterEarlierInputStoppedTheRun) {
    TestTimer timer(In(30), 0, Note("timer"));
    socket_.atChunk = [this] {
        order_.push_back("reply");
        StopCurrentRun();
    };
    const Stop stop;
    peer_.Write("reply");
    clock_.Advance(31);
    CFRunLoopRun();
    EXPECT_THAT(order_, ElementsAre("reply"));
}

TEST_F(ArrivalOrderTest, SourceIsNotPerformedAgainInsideItsOwnCallout) {
    const Stop stop;
    socket_.atChunk = [this] {
        order_.push_back(socket_.chunks.back());
        if (order_.size() > 1)
            return;
        TestTimer timer(In(30), 0, [this] {
            order_.push_back("timer");
            StopCurrentRun();
        });
        peer_.Write("second");
        clock_.Advance(31);
        CFRunLoopRun();
        order_.push_back("return");
    };
    peer_.Write("first");
    TestTimer wake(In(0), 0, [] {});
    Run();
    EXPECT_THAT(order_, ElementsAre("first", "timer", "return", "second"));
}

TEST_F(ArrivalOrderTest, WithoutADescriptorForTheDeadlineTheTimerFiresFirst) {
    clock_.RefuseAlarms(true);
    TestTimer timer(In(30), 0, Note("timer"));
    clock_.RefuseAlarms(false);
    const Stop stop;
    peer_.Write("reply");
    clock_.Advance(31);
    Run();
    EXPECT_THAT(order_, ElementsAre("timer", "reply"));
}

// ---- the loop does not take what arrives ----

// A chunk counts for 16 bytes more than its length.
TEST_F(ArrivalOrderTest, ReadingPausesFrom64MBytesDownTo32) {
    std::vector<std::size_t> half(511, 64 * 1024);
    half.push_back(56 * 1024);
    for (int i = 0; i < 2; ++i)
        for (const std::size_t size : half) {
            {
                const Stop stop; // until all is written: one chunk
                peer_.Write(std::string(size, 'x'));
            }
            peer_.AwaitReading();
        }
    const auto isPaused = [this] {
        cf::HandleArrivals();
        return peer_.Unread() > 0;
    };
    peer_.Write("behind");
    EXPECT_TRUE(isPaused());
    socket_.RemoveFromLoop();
    socket_.AddToLoop();
    EXPECT_TRUE(isPaused());
    socket_.atChunk = [&] {
        EXPECT_EQ(isPaused(), socket_.chunks.size() < half.size());
        if (socket_.chunks.size() == half.size())
            StopCurrentRun();
    };
    CFRunLoopRun();
    EXPECT_EQ(socket_.chunks.size(), half.size());
}

class WatchedEvent : public cf::WatchedDescriptor {
public:
    explicit WatchedEvent(int descriptor) : WatchedDescriptor(Count), descriptor_(descriptor) {
        EXPECT_LT(fcntl(descriptor, F_GETFD), 0) << "in use";
        const int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        EXPECT_EQ(dup3(event, descriptor, O_CLOEXEC), descriptor);
        close(event);
        const std::lock_guard lock(cf::ArrivalsMutex());
        EXPECT_TRUE(Watch(descriptor));
    }
    ~WatchedEvent() {
        End();
        close(descriptor_);
    }

    void End() {
        const std::lock_guard lock(cf::ArrivalsMutex());
        Unwatch();
    }
    // The number of calls of the handler for one input.
    int CountCalls() const {
        count_ = 0;
        EXPECT_EQ(eventfd_write(descriptor_, 1), 0);
        cf::HandleArrivals();
        eventfd_t input = 0;
        EXPECT_EQ(eventfd_read(descriptor_, &input), 0);
        return count_;
    }

private:
    static void Count(cf::WatchedDescriptor& watched, cf::Nanoseconds) noexcept {
        ++static_cast<WatchedEvent&>(watched).count_;
    }

    const int descriptor_;
    mutable int count_ = 0;
};

TEST_F(ArrivalOrderTest, DescriptorsWithTheSameLowestByteAreWatchedIndependently) {
    const Stop stop;
    WatchedEvent first(300);
    WatchedEvent second(300 + 256);
    WatchedEvent third(300 + 512);
    for (const WatchedEvent* each : {&first, &second, &third})
        EXPECT_EQ(each->CountCalls(), 1);
    second.End();
    EXPECT_EQ(first.CountCalls(), 1);
    EXPECT_EQ(second.CountCalls(), 0);
    EXPECT_EQ(third.CountCalls(), 1);
    third.End();
    EXPECT_EQ(first.CountCalls(), 1);
    EXPECT_EQ(third.CountCalls(), 0);
}

TEST_F(ArrivalOrderTest, OnlyANonRepeatingTimerOfTheNextHoursTakesADescriptor) {
    const std::size_t before = CountDescriptors();
    TestTimer repeating(In(30), 30, [] {});
    TestTimer daily(In(30), kDay, [] {});
    TestTimer tomorrow(In(kDay), 0, [] {});
    EXPECT_EQ(CountDescriptors(), before);
    TestTimer delay(In(30), 0, [] {});
    EXPECT_EQ(CountDescriptors(), before + 1);
}

// ---- the loop was busy ----

class LongCalloutTest : public ArrivalOrderTest {
protected:
    // The callout of the first input calls `callout`; then the loop continues.
    void RunWithFirstCallout(std::function<void()> callout) {
        socket_.atChunk = [this, callout = std::move(callout)] {
            order_.push_back(socket_.chunks.back());
            if (order_.size() == 1)
                callout();
        };
        Send("first");
        Run();
    }
};

TEST_F(LongCalloutTest, InputBeforeTheTimerGoesFirst) {
    TestTimer timer(In(30), 0, Note("timer"));
    RunWithFirstCallout([this] {
        clock_.Advance(10);
        Send("second");
        clock_.Advance(21);
    });
    EXPECT_THAT(order_, ElementsAre("first", "second", "timer"));
}

TEST_F(LongCalloutTest, InputAfterTheTimerComesSecond) {
    TestTimer timer(In(30), 0, Note("timer"));
    RunWithFirstCallout([this] {
        clock_.Advance(31);
        Send("second");
    });
    EXPECT_THAT(order_, ElementsAre("first", "timer", "second"));
}

TEST_F(LongCalloutTest, RepeatingAndWallClockTimersAreOrderedLikeADelay) {
    TestTimer repeating(In(30), 1000, Note("repeating"));
    TestTimer daily(In(40), kDay, Note("daily"));
    RunWithFirstCallout([this] {
        clock_.Advance(35);
        Send("second");
        clock_.Advance(10);
    });
    EXPECT_THAT(order_, ElementsAre("first", "repeating", "second", "daily"));
}

} // namespace
