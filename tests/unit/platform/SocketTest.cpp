#include "AllocationFaults.h"
#include "Callouts.h"
#include "LocalServer.h"
#include "LoopSleep.h"
#include "ResourceUsage.h"
#include "TestSocket.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <mutex>
#include <numeric>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::atomic<int> g_pausedStreams = 0;     // each pause or end of reading counts 1, each start -1
std::atomic<int> g_readStarts = 0;        // includes restarts after a pause
std::atomic<bool> g_chunkFault = false;   // no memory for the data of a callout
std::atomic<int> g_untilInterruption = 0; // the wait that decrements this to 0 is interrupted
std::atomic<int> g_readsToFail = 0;       // in the background
std::atomic<int> g_readError = 0;         // the errno of these reads
std::function<void()> g_makeWritable;     // replaces every wait until a socket is writable
thread_local std::vector<double> t_waits; // the time limits of these waits, in seconds

} // namespace

extern "C" {
int __real_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event);
CFDataRef __real_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
int __real_ppoll(pollfd* descriptors, nfds_t count, const timespec* limit, const sigset_t* signals);
ssize_t __real_recv(int socket, void* bytes, std::size_t count, int flags);

int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) {
    g_readStarts += operation == EPOLL_CTL_ADD ? 1 : 0;
    g_pausedStreams += operation == EPOLL_CTL_DEL ? 1 : -1;
    g_pausedStreams.notify_all();
    return __real_epoll_ctl(epoll, operation, descriptor, event);
}

CFDataRef __wrap_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length) {
    if (length > 0 && g_chunkFault)
        return nullptr;
    return __real_CFDataCreate(allocator, bytes, length);
}

int __wrap_ppoll(pollfd* descriptors, nfds_t count, const timespec* limit,
                 const sigset_t* signals) {
    if (--g_untilInterruption == 0) {
        errno = EINTR;
        return -1;
    }
    if (limit != nullptr)
        t_waits.push_back(static_cast<double>(limit->tv_sec) +
                          1e-9 * static_cast<double>(limit->tv_nsec));
    if (!g_makeWritable)
        return __real_ppoll(descriptors, count, limit, signals);
    g_makeWritable();
    return 1;
}

ssize_t __wrap_recv(int socket, void* bytes, std::size_t count, int flags) {
    const bool isInBackground = (flags & MSG_DONTWAIT) != 0; // reads of a Peer block
    if (isInBackground && g_readsToFail > 0 && g_readsToFail-- > 0) {
        errno = g_readError;
        return -1;
    }
    return __real_recv(socket, bytes, count, flags);
}
}

namespace {

using namespace std::string_literals;

using Chunks = std::vector<std::string>;

// Connecting

TEST(SocketConnectTest, FailsWithoutListener) {
    const std::size_t descriptors = CountDescriptors();
    {
        LocalServer server;
        std::ofstream(server.Directory() + "/file") << "text";
        EXPECT_FALSE(TestSocket(Address(server.Directory() + "/none")).Connected());
        EXPECT_FALSE(TestSocket(Address(server.Directory() + "/file")).Connected());
        server.StopListening();
        EXPECT_FALSE(TestSocket(server).Connected());
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(SocketConnectTest, PathEndsWithItsNulOrWithTheData) {
    const LocalServer server;
    const std::string address = Address(server.Path());
    const std::size_t length = server.Path().size();
    EXPECT_TRUE(TestSocket(address).Connected());
    EXPECT_TRUE(TestSocket(address.substr(0, 2 + length)).Connected());
    EXPECT_FALSE(TestSocket(address.substr(0, 1 + length)).Connected());
}

TEST(SocketConnectTest, PathMayFillAllOfItsBytes) {
    const LocalServer server;
    std::string path = server.Directory() + "/";
    path.append(104 - path.size(), 'p');
    ASSERT_EQ(symlink(server.Path().c_str(), path.c_str()), 0);
    EXPECT_TRUE(TestSocket(Address(path)).Connected());
    EXPECT_FALSE(TestSocket(Address(path) + '\0').Connected());
}

TEST(SocketConnectTest, FailsForOtherAddresses) {
    const LocalServer server;
    std::string otherFamily = Address(server.Path());
    otherFamily[1] = 2;
    for (const std::string& address : {otherFamily, ""s, "j"s, "j\1"s, "j\1\0"s, Address("")})
        EXPECT_FALSE(TestSocket(address).Connected());
}

TEST(SocketConnectTest, FailsForOtherSignatures) {
    const LocalServer server;
    const CFOwned address = Bytes(Address(server.Path()));
    for (const CFSocketSignature& signature :
         {CFSocketSignature{2, 1, 0, address}, CFSocketSignature{1, 2, 0, address},
          CFSocketSignature{1, 1, 7, address}, CFSocketSignature{1, 1, 0, nullptr}})
        EXPECT_EQ(CFSocketCreateConnectedToSocketSignature(
                      kCFAllocatorDefault, &signature, kCFSocketDataCallBack, nullptr, nullptr, 30),
                  nullptr);
}

TEST(SocketConnectTest, FullBacklogFailsWhenTheTimeOutEnds) {
    LocalServer server(0);
    server.FillBacklog();
    const std::size_t descriptors = CountDescriptors();
    for (const CFTimeInterval timeout : {0.02, 0.0, -1.0})
        EXPECT_FALSE(TestSocket(Address(server.Path()), timeout).Connected());
    EXPECT_EQ(CountDescriptors(), descriptors);
}

// True if the thread of this process sleeps in the kernel.
bool Sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(stat, line);
    return line.find(") S ") != std::string::npos;
}

TEST(SocketConnectTest, FullBacklogIsAwaited) {
    LocalServer server(0);
    server.FillBacklog();
    std::atomic<pid_t> client = 0;
    std::atomic<bool> connected = false;
    std::thread connects([&] {
        client = gettid();
        connected = TestSocket(server).Connected();
    });
    while (client == 0 || !Sleeps(client))
        std::this_thread::yield();
    server.Accept();
    connects.join();
    EXPECT_TRUE(connected);
}

// Receiving

class ConnectedSocketTest : public testing::Test {
protected:
    const LocalServer server;
    TestSocket socket{server};
    Peer peer = server.Accept();
};

class SocketReceiveTest : public ConnectedSocketTest {};

TEST_F(SocketReceiveTest, ChunkArrives) {
    socket.AddToLoop();
    peer.Write("hello");
    socket.RunUntilChunk();
    EXPECT_EQ(socket.chunks, Chunks{"hello"});
}

TEST_F(SocketReceiveTest, ReadsThatFailWithEintrOrEagainAreRepeated) {
    socket.AddToLoop();
    for (const int error : {EINTR, EAGAIN}) {
        g_readError = error;
        g_readsToFail = 3;
        peer.Write("hello");
        socket.RunUntilChunk();
        EXPECT_EQ(std::exchange(socket.chunks, {}), Chunks{"hello"}) << error;
        EXPECT_EQ(g_readsToFail, 0);
    }
}

TEST_F(SocketReceiveTest, NothingIsReadBeforeTheSourceIsAddedNorAfterItIsRemoved) {
    socket.CreateSource();
    peer.Write("one");
    EXPECT_GT(peer.Unread(), 0);
    socket.AddToLoop();
    socket.RunUntilChunk();
    socket.RemoveFromLoop();
    peer.Write("two");
    EXPECT_GT(peer.Unread(), 0);
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"one"});
    socket.AddToLoop();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"one", "two"}));
}

TEST_F(SocketReceiveTest, RemovalFromTheCommonModesLeavesTheDefaultMode) {
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), socket.AddToLoop(), kCFRunLoopCommonModes);
    peer.Write("here");
    socket.RunUntilChunk();
    EXPECT_EQ(socket.chunks, Chunks{"here"});
}

// No part occurs twice, so a lost, duplicated or exchanged part changes the text.
std::string LongText(std::size_t size) {
    std::vector<std::uint32_t> numbers(size / sizeof(std::uint32_t));
    std::iota(numbers.begin(), numbers.end(), 0);
    return std::string(reinterpret_cast<const char*>(numbers.data()), size);
}

TEST_F(SocketReceiveTest, DataThatArrivesWhileTheLoopIsBusyIsReadInOrder) {
    constexpr std::size_t kChunk = 64 * 1024;
    const std::string text = LongText(8 << 20);
    socket.AddToLoop();
    peer.Write(text); // blocks until nearly all of it was read
    peer.Close();
    CFRunLoopRun();
    EXPECT_EQ(socket.Received(), text);
    for (const std::string& chunk : socket.chunks)
        EXPECT_LE(chunk.size(), kChunk);
    EXPECT_EQ(socket.chunks.back(), "");
}

TEST_F(SocketReceiveTest, ChunkHasAllAvailableBytesUpTo64KiB) {
    constexpr std::size_t kChunk = 64 * 1024;
    constexpr std::size_t kRest = 30 * 1024;
    peer.Write(LongText(kChunk + kRest));
    peer.Close();
    socket.AddToLoop();
    CFRunLoopRun();
    ASSERT_EQ(socket.chunks.size(), 3U);
    EXPECT_EQ(socket.chunks[0].size(), kChunk);
    EXPECT_EQ(socket.chunks[1].size(), kRest);
    EXPECT_EQ(socket.chunks[2], "");
}

TEST_F(SocketReceiveTest, ReadingPausesAtTheHighWaterMarkUntilTheLowOne) {
    constexpr std::size_t kBound = 64 << 20;
    const std::string text = LongText(kBound + (4 << 20));
    g_pausedStreams = 0;
    socket.AddToLoop();
    ASSERT_EQ(g_pausedStreams, -1);
    std::atomic<bool> allWritten = false;
    std::thread writer([&] {
        peer.Write(text);
        allWritten = true;
        peer.ShutDownWriting();
    });
    g_pausedStreams.wait(-1);
    EXPECT_FALSE(allWritten);
    std::size_t received = 0;
    bool wasPaused = false;
    socket.atChunk = [&] {
        received += socket.chunks.back().size();
        if (received < kBound / 2 - (1 << 20)) {
            EXPECT_EQ(g_pausedStreams, 0);
            wasPaused = true;
        } else if (received > kBound / 2 + (1 << 20)) {
            EXPECT_EQ(g_readStarts, 1);
        }
    };
    g_readStarts = 0;
    CFRunLoopRun();
    writer.join();
    EXPECT_TRUE(wasPaused);
    EXPECT_TRUE(socket.Received() == text);
}

TEST_F(SocketReceiveTest, EndComesOnceAfterAllDataAndInvalidatesTheSocket) {
    socket.AddToLoop();
    peer.Write("last words");
    peer.Close();
    socket.atChunk = [&] { EXPECT_TRUE(socket.Valid()); };
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"last words", ""}));
    EXPECT_FALSE(socket.Valid());
    EXPECT_EQ(socket.Send("x"), kCFSocketError);
}

TEST_F(SocketReceiveTest, PeerThatShutsDownWritingIsAnEnd) {
    socket.AddToLoop();
    peer.Write("done");
    peer.ShutDownWriting();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"done", ""}));
}

TEST_F(SocketReceiveTest, ResetIsAnEndAfterThePendingReply) {
    EXPECT_EQ(socket.Send("a request that the peer does not read"), kCFSocketSuccess);
    peer.Write("reply");
    peer.Close();
    socket.AddToLoop();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"reply", ""}));
}

TEST_F(SocketReceiveTest, EndDoesNotFollowTheReplyThatStoppedTheRun) {
    peer.Write("reply");
    peer.Close();
    socket.AddToLoop();
    socket.RunUntilChunk();
    EXPECT_EQ(socket.chunks, Chunks{"reply"});
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"reply", ""}));
}

TEST_F(SocketReceiveTest, OnePendingChunkComesPerIteration) {
    socket.AddToLoop();
    peer.Write(LongText(1 << 20));
    peer.Close();
    std::size_t iterations = 0;
    TestSource counter([&] {
        ++iterations;
        counter.Signal();
    });
    socket.atChunk = [&] {
        EXPECT_LE(socket.chunks.size(), iterations + 1);
        if (socket.chunks.back().empty())
            StopCurrentRun();
    };
    counter.Signal();
    CFRunLoopRun();
    EXPECT_GE(iterations, 16);
}

TEST_F(SocketReceiveTest, NestedRunDoesNotEnterTheCalloutAgain) {
    TestSource inner(StopCurrentRun);
    socket.AddToLoop();
    int depth = 0;
    socket.atChunk = [&] {
        EXPECT_EQ(++depth, 1);
        if (socket.chunks.size() == 1) {
            peer.Write("second");
            peer.Close();
            // Everything is read from here on, so the nested run has nothing to do.
            g_pausedStreams.wait(-1);
            AtNextSleepElsewhere([&] { inner.Signal(); });
            CFRunLoopRun();
        }
        if (socket.chunks.back().empty())
            StopCurrentRun();
        --depth;
    };
    g_pausedStreams = -1;
    peer.Write("first");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"first", "second", ""}));
}

TEST_F(SocketReceiveTest, NestedRunCallsOutForAnotherSocket) {
    TestSocket exchange(server);
    const Peer exchangePeer = server.Accept();
    socket.AddToLoop();
    socket.atChunk = [&] {
        exchange.AddToLoop();
        exchangePeer.Write("reply");
        exchange.RunUntilChunk();
        EXPECT_EQ(exchange.chunks, Chunks{"reply"});
        StopCurrentRun();
    };
    peer.Write("notification");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"notification"});
}

TEST_F(SocketReceiveTest, ChunkWithoutMemoryIsAnEnd) {
    peer.Write("lost");
    g_chunkFault = true;
    socket.AddToLoop();
    CFRunLoopRun();
    g_chunkFault = false;
    EXPECT_EQ(socket.chunks, Chunks{""});
    EXPECT_FALSE(socket.Valid());
}

TEST_F(SocketReceiveTest, NothingFollowsAChunkWithoutMemory) {
    socket.AddToLoop();
    for (const std::string_view chunk : {"first", "lost", "behind"}) {
        peer.Write(chunk);
        peer.AwaitReading();
    }
    socket.atChunk = [] { g_chunkFault = true; };
    CFRunLoopRun();
    g_chunkFault = false;
    EXPECT_EQ(socket.chunks, (Chunks{"first", ""}));
}

// Sending

class SocketSendTest : public ConnectedSocketTest {
protected:
    ~SocketSendTest() override {
        g_makeWritable = nullptr;
        g_untilInterruption = 0;
    }
};

// A time-out that is not positive is no limit.
TEST_F(SocketSendTest, EverythingArrivesAtASlowPeerWithAndWithoutTimeOut) {
    const std::string text = LongText(8 << 20);
    for (const CFTimeInterval timeout : {30, 0, -1}) {
        std::string received;
        std::thread reader([&] { received = peer.Read(text.size()); });
        EXPECT_EQ(socket.Send(text, timeout), kCFSocketSuccess) << timeout;
        reader.join();
        EXPECT_TRUE(received == text) << timeout;
    }
}

TEST_F(SocketSendTest, PeerThatDoesNotReadIsATimeOut) {
    t_waits.clear();
    EXPECT_EQ(socket.Send(LongText(8 << 20), 0.02), kCFSocketTimeout);
    EXPECT_EQ(socket.Send("more", 0.02), kCFSocketTimeout);
    EXPECT_FALSE(t_waits.empty());
    for (const double wait : t_waits) {
        EXPECT_GT(wait, 0);
        EXPECT_LE(wait, 0.02);
    }
}

TEST_F(SocketSendTest, TimeOutAppliesToTheWholeMessage) {
    const std::string text = LongText(8 << 20);
    std::atomic<bool> over = false;
    // Each wait is shorter than the time-out; only their sum is longer.
    std::thread reader([&] {
        while (!over)
            peer.Read(16);
    });
    EXPECT_EQ(socket.Send(text, 0.05), kCFSocketTimeout);
    over = true;
    socket.Drop(); // ends the last read
    reader.join();
}

// Interrupts the first wait, then the second, and so on. The peer reads only while the socket is
// not writable, so the waits of all iterations are the same.
TEST_F(SocketSendTest, InterruptedWaitIsResumed) {
    const std::string text = LongText(1 << 20);
    std::string received;
    g_makeWritable = [&] { received += peer.Read(64 * 1024); };
    int nth = 0;
    do {
        received.clear();
        g_untilInterruption = ++nth;
        ASSERT_EQ(socket.Send(text), kCFSocketSuccess) << nth;
        received += peer.Read(text.size() - received.size());
        EXPECT_TRUE(received == text) << nth;
    } while (g_untilInterruption <= 0);
    EXPECT_GT(nth, 1);
}

TEST_F(SocketSendTest, ClosedPeerIsAnErrorAndNoSignal) {
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    peer.Close();
    EXPECT_EQ(socket.Send("data"), kCFSocketError);
    EXPECT_TRUE(socket.Valid());
}

TEST_F(SocketSendTest, NoDataOrNoValidSocketIsAnError) {
    EXPECT_EQ(socket.Send(""), kCFSocketError);
    EXPECT_EQ(CFSocketSendData(socket.Get(), nullptr, nullptr, 1), kCFSocketError);
    const CFOwned data = Bytes("data");
    EXPECT_EQ(CFSocketSendData(nullptr, nullptr, data, 1), kCFSocketError);
    CFSocketInvalidate(socket.Get());
    EXPECT_EQ(CFSocketSendData(socket.Get(), nullptr, data, 1), kCFSocketError);
}

// Sources

class SocketSourceTest : public ConnectedSocketTest {};

TEST_F(SocketSourceTest, IsOnlyOne) {
    EXPECT_EQ(socket.CreateSource().Get(), socket.CreateSource().Get());
}

TEST_F(SocketSourceTest, InvalidatedOneLeavesTheSocketValid) {
    CFRunLoopSourceInvalidate(socket.AddToLoop());
    EXPECT_EQ(socket.Send("still valid"), kCFSocketSuccess);
    socket.AddToLoop();
    peer.Write("still valid");
    socket.RunUntilChunk();
    EXPECT_EQ(socket.chunks, Chunks{"still valid"});
}

TEST_F(SocketSourceTest, SuccessorOfAnInvalidatedOneGetsThePendingChunks) {
    const CFOwned source = socket.AddToLoop();
    peer.Write("pending");
    peer.AwaitReading();
    CFRunLoopSourceInvalidate(source);
    socket.AddToLoop();
    socket.RunUntilChunk();
    EXPECT_EQ(socket.chunks, Chunks{"pending"});
}

TEST_F(SocketSourceTest, SocketDroppedInItsCalloutReleasesPendingChunksAndDescriptor) {
    g_pausedStreams = 0;
    socket.AddToLoop();
    peer.Write(LongText(1 << 20));
    peer.Close();
    g_pausedStreams.wait(-1);
    const std::size_t descriptors = CountDescriptors();
    socket.atChunk = [&] { socket.Drop(); };
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks.size(), 1);
    EXPECT_EQ(CountDescriptors(), descriptors - 1);
}

// Lifetime

// The first socket starts the reading thread, which never ends.
void StartTheReader() {
    const LocalServer server;
    TestSocket(server).CreateSource();
}

TEST(SocketLifetimeTest, SourceWithoutItsSocketKeepsNoDescriptor) {
    const LocalServer server;
    std::vector<CFOwned<CFRunLoopSourceRef>> sources;
    StartTheReader();
    CFRunLoopGetCurrent();
    const std::size_t descriptors = CountDescriptors();
    for (int i = 0; i < 10; ++i) {
        TestSocket socket(server);
        sources.push_back(socket.AddToLoop());
        server.Accept();
        CFRunLoopRun();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
}

std::atomic<int> g_references = 0;

TEST(SocketLifetimeTest, InfoIsRetainedFromCreationToInvalidationAndInCallouts) {
    const LocalServer server;
    const CFOwned address = Bytes(Address(server.Path()));
    const CFSocketSignature signature = {1, 1, 0, address};
    const CFSocketContext context = {0, nullptr,
                                     [](const void* info) {
                                         ++g_references;
                                         return info;
                                     },
                                     [](const void*) { --g_references; }, nullptr};
    CFSocketRef socket = CFSocketCreateConnectedToSocketSignature(
        kCFAllocatorDefault, &signature, kCFSocketDataCallBack,
        [](CFSocketRef self, CFSocketCallBackType, CFDataRef, const void*, void*) {
            EXPECT_EQ(g_references, 2);
            CFSocketInvalidate(self);
            EXPECT_EQ(g_references, 1);
        },
        &context, 30);
    EXPECT_EQ(g_references, 1);
    CFRunLoopAddSource(CFRunLoopGetCurrent(),
                       CFOwned(CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0)),
                       kCFRunLoopDefaultMode);
    CFRelease(socket);
    server.Accept();
    CFRunLoopRun();
    EXPECT_EQ(g_references, 0);
}

// Exchanges a request and its reply as the daemon does.
void Exchange(const LocalServer& server) {
    TestSocket socket(server);
    socket.AddToLoop();
    EXPECT_EQ(socket.Send("ping"), kCFSocketSuccess);
    socket.atChunk = StopCurrentRun;
    TestTimer timeout(CFAbsoluteTimeGetCurrent() + 30, 0, StopCurrentRun);
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"pong"});
}

void Answer(const LocalServer& server, int times) {
    for (int i = 0; i < times; ++i) {
        const Peer peer = server.Accept();
        EXPECT_EQ(peer.Read(4), "ping");
        peer.Write("pong");
    }
}

TEST(SocketLifetimeTest, ManyExchangesOnManyThreadsLeaveNothing) {
    constexpr int kThreads = 10;
    constexpr int kExchanges = 1000;
    const LocalServer server(kThreads);
    StartTheReader();
    const std::size_t threadsAtRest = CountThreads();
    std::thread first(Answer, std::cref(server), 1);
    Exchange(server); // creates this thread's loop
    first.join();
    const std::size_t descriptors = CountDescriptors();
    std::thread answers(Answer, std::cref(server), kThreads * kExchanges);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < kExchanges; ++k)
                Exchange(server);
        });
    for (std::thread& thread : threads)
        thread.join();
    answers.join();
    AwaitThreads(threadsAtRest);
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(SocketLifetimeTest, CreationsWithoutMemoryFail) {
    const LocalServer server;
    const CFOwned address = Bytes(Address(server.Path()));
    const CFSocketSignature signature = {1, 1, 0, address};
    CFRunLoopGetCurrent(); // the creation of the loop ends the process without memory
    CFSocketRef socket = nullptr;
    CFRunLoopSourceRef source = nullptr;
    CFRunLoopTimerRef timer = nullptr;
    SweepAllocationFaults(
        [&](std::size_t) {
            socket = CFSocketCreateConnectedToSocketSignature(
                kCFAllocatorDefault, &signature, kCFSocketDataCallBack, nullptr, nullptr, 30);
            source = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
            timer = CFRunLoopTimerCreate(kCFAllocatorDefault, 0, 0, 0, 0, nullptr, nullptr);
        },
        [&](std::size_t, bool happened) {
            EXPECT_EQ(socket == nullptr || source == nullptr || timer == nullptr, happened);
            CFSocketInvalidate(socket);
            for (CFTypeRef object : {CFTypeRef(socket), CFTypeRef(source), CFTypeRef(timer)})
                CFRelease(object);
        });
}

} // namespace
