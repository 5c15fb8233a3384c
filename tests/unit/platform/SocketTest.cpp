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

std::atomic<int> g_resting = 0;           // streams that are not read for now, net
std::atomic<int> g_watches = 0;           // how often reading began, or began again
std::atomic<bool> g_chunkFault = false;   // no memory to hand out what arrived
std::atomic<int> g_untilInterruption = 0; // counts waits for room down to one that is interrupted
std::atomic<int> g_readsToFail = 0;       // in the background
std::atomic<int> g_readError = 0;         // with which they fail
std::function<void()> g_makeRoom;         // in place of any other wait for room
thread_local std::vector<double> t_waits; // for room: how long each may take, in seconds

} // namespace

extern "C" {
int __real_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event);
CFDataRef __real_CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
int __real_ppoll(pollfd* descriptors, nfds_t count, const timespec* limit, const sigset_t* signals);
ssize_t __real_recv(int socket, void* bytes, std::size_t count, int flags);

int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) {
    g_watches += operation == EPOLL_CTL_ADD ? 1 : 0;
    g_resting += operation == EPOLL_CTL_DEL ? 1 : -1;
    g_resting.notify_all();
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
    if (!g_makeRoom)
        return __real_ppoll(descriptors, count, limit, signals);
    g_makeRoom();
    return 1;
}

ssize_t __wrap_recv(int socket, void* bytes, std::size_t count, int flags) {
    const bool isInBackground = (flags & MSG_DONTWAIT) != 0; // the test's peers wait for theirs
    if (isInBackground && g_readsToFail > 0 && g_readsToFail-- > 0) {
        errno = g_readError;
        return -1;
    }
    return __real_recv(socket, bytes, count, flags);
}
}

namespace {

using Chunks = std::vector<std::string>;

// Connecting

TEST(SocketConnectTest, NobodyThereGivesNothing) {
    const std::size_t descriptors = CountDescriptors();
    {
        LocalServer server;
        std::ofstream(server.Directory() + "/file") << "text";
        EXPECT_FALSE(TestSocket(Address(server.Directory() + "/none"), 30).Connected());
        EXPECT_FALSE(TestSocket(Address(server.Directory() + "/file"), 30).Connected());
        server.StopListening();
        EXPECT_FALSE(TestSocket(server).Connected());
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(SocketConnectTest, PathEndsWithItsNulOrWithTheData) {
    const LocalServer server;
    EXPECT_TRUE(TestSocket(Address(server.Path()), 30).Connected());
    EXPECT_TRUE(
        TestSocket(Address(server.Path()).substr(0, 2 + server.Path().size()), 30).Connected());
    EXPECT_FALSE(
        TestSocket(Address(server.Path()).substr(0, 1 + server.Path().size()), 30).Connected());
}

TEST(SocketConnectTest, PathMayFillAllOfItsBytes) {
    const LocalServer server;
    std::string path = server.Directory() + "/";
    path.append(104 - path.size(), 'p');
    ASSERT_EQ(symlink(server.Path().c_str(), path.c_str()), 0);
    EXPECT_TRUE(TestSocket(Address(path), 30).Connected());
    EXPECT_FALSE(TestSocket(Address(path) + '\0', 30).Connected());
}

TEST(SocketConnectTest, OtherAddressesGiveNothing) {
    const LocalServer server;
    std::string otherFamily = Address(server.Path());
    otherFamily[1] = 2;
    EXPECT_FALSE(TestSocket(otherFamily, 30).Connected());
    for (const std::string_view address : {"", "j", "j\1", "j\1\0"})
        EXPECT_FALSE(TestSocket(std::string(address), 30).Connected());
    EXPECT_FALSE(TestSocket(Address(""), 30).Connected());
}

TEST(SocketConnectTest, OtherSignaturesGiveNothing) {
    const LocalServer server;
    const CFDataRef address = MakeData(Address(server.Path()));
    for (const CFSocketSignature& signature :
         {CFSocketSignature{2, 1, 0, address}, CFSocketSignature{1, 2, 0, address},
          CFSocketSignature{1, 1, 7, address}, CFSocketSignature{1, 1, 0, nullptr}})
        EXPECT_EQ(CFSocketCreateConnectedToSocketSignature(
                      kCFAllocatorDefault, &signature, kCFSocketDataCallBack, nullptr, nullptr, 30),
                  nullptr);
    CFRelease(address);
}

TEST(SocketConnectTest, FullBacklogGivesNothingWhenTheTimeIsOver) {
    LocalServer server(0);
    server.FillBacklog();
    const std::size_t descriptors = CountDescriptors();
    for (const CFTimeInterval timeout : {0.02, 0.0, -1.0})
        EXPECT_FALSE(TestSocket(Address(server.Path()), timeout).Connected());
    EXPECT_EQ(CountDescriptors(), descriptors);
}

// Whether a thread of this process sleeps in the kernel.
bool Sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(stat, line);
    return line.find(") S ") != std::string::npos;
}

TEST(SocketConnectTest, FullBacklogIsWaitedFor) {
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

TEST(SocketReceiveTest, ChunkArrives) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    socket.AddToLoop();
    socket.atChunk = StopCurrentRun;
    peer.Write("hello");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"hello"});
}

// By a signal, or by another reader that was faster.
TEST(SocketReceiveTest, InterruptedReadIsNoEnd) {
    for (const int error : {EINTR, EAGAIN}) {
        const LocalServer server;
        TestSocket socket(server);
        const Peer peer = server.Accept();
        socket.AddToLoop();
        socket.atChunk = StopCurrentRun;
        g_readError = error;
        g_readsToFail = 3;
        peer.Write("hello");
        CFRunLoopRun();
        EXPECT_EQ(socket.chunks, Chunks{"hello"}) << error;
        EXPECT_EQ(g_readsToFail, 0);
    }
}

TEST(SocketReceiveTest, NothingIsReadBeforeTheSourceIsAddedNorAfterItIsRemoved) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    CFRelease(socket.CreateSource());
    peer.Write("one");
    EXPECT_GT(peer.Unread(), 0);
    socket.AddToLoop();
    socket.atChunk = StopCurrentRun;
    CFRunLoopRun();
    socket.RemoveFromLoop();
    peer.Write("two");
    EXPECT_GT(peer.Unread(), 0);
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"one"});
    socket.AddToLoop();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"one", "two"}));
}

TEST(SocketReceiveTest, RemovingFromTheCommonModesLeavesItInTheDefaultMode) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    CFRunLoopSourceRef source = socket.CreateSource();
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
    CFRelease(source);
    socket.atChunk = StopCurrentRun;
    peer.Write("here");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"here"});
}

// Content that a lost, doubled or exchanged piece would change.
std::string LongText(std::size_t size) {
    std::vector<std::uint32_t> numbers(size / sizeof(std::uint32_t));
    std::iota(numbers.begin(), numbers.end(), 0);
    return std::string(reinterpret_cast<const char*>(numbers.data()), size);
}

TEST(SocketReceiveTest, MuchIsReadInOrderWhileTheLoopIsBusy) {
    constexpr std::size_t kChunk = 64 * 1024;
    const std::string text = LongText(8 << 20);
    const LocalServer server;
    TestSocket socket(server);
    socket.AddToLoop();
    {
        const Peer peer = server.Accept();
        peer.Write(text); // blocks until nearly all of it was read
    }
    CFRunLoopRun();
    EXPECT_EQ(socket.Received(), text);
    for (const std::string& chunk : socket.chunks)
        EXPECT_LE(chunk.size(), kChunk);
    EXPECT_EQ(socket.chunks.back(), "");
}

TEST(SocketReceiveTest, ChunkHasWhatIsThereUpTo64KBytes) {
    constexpr std::size_t kChunk = 64 * 1024;
    constexpr std::size_t kRest = 30 * 1024;
    const LocalServer server;
    TestSocket socket(server);
    server.Accept().Write(LongText(kChunk + kRest));
    socket.AddToLoop();
    CFRunLoopRun();
    ASSERT_EQ(socket.chunks.size(), 3U);
    EXPECT_EQ(socket.chunks[0].size(), kChunk);
    EXPECT_EQ(socket.chunks[1].size(), kRest);
    EXPECT_EQ(socket.chunks[2], "");
}

TEST(SocketReceiveTest, ReadingRestsWhenMuchIsQueuedUntilItIsDrained) {
    constexpr std::size_t kBound = 64 << 20;
    const std::string text = LongText(kBound + (4 << 20));
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    g_resting = 0;
    socket.AddToLoop();
    ASSERT_EQ(g_resting, -1);
    std::atomic<bool> allWritten = false;
    std::thread writer([&] {
        peer.Write(text);
        allWritten = true;
        peer.ShutDownWriting();
    });
    g_resting.wait(-1);
    EXPECT_FALSE(allWritten);
    std::size_t received = 0;
    bool restedAtHalf = false;
    socket.atChunk = [&] {
        received += socket.chunks.back().size();
        if (received < kBound / 2 - (1 << 20)) {
            EXPECT_EQ(g_resting, 0);
            restedAtHalf = true;
        } else if (received > kBound / 2 + (1 << 20)) {
            EXPECT_EQ(g_watches, 1);
        }
    };
    g_watches = 0;
    CFRunLoopRun();
    writer.join();
    EXPECT_TRUE(restedAtHalf);
    EXPECT_TRUE(socket.Received() == text);
}

TEST(SocketReceiveTest, EndComesOnceAfterAllDataAndInvalidates) {
    const LocalServer server;
    TestSocket socket(server);
    socket.AddToLoop();
    {
        const Peer peer = server.Accept();
        peer.Write("last words");
    }
    socket.atChunk = [&] { EXPECT_TRUE(socket.Valid()); };
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"last words", ""}));
    EXPECT_FALSE(socket.Valid());
    EXPECT_EQ(socket.Send("x"), kCFSocketError);
}

TEST(SocketReceiveTest, PeerThatStopsWritingIsAtItsEnd) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    socket.AddToLoop();
    peer.Write("done");
    peer.ShutDownWriting();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"done", ""}));
}

TEST(SocketReceiveTest, ResetIsAnEndAfterTheQueuedReply) {
    const LocalServer server;
    TestSocket socket(server);
    {
        const Peer peer = server.Accept();
        EXPECT_EQ(socket.Send("a request that nobody reads"), kCFSocketSuccess);
        peer.Write("reply");
    }
    socket.AddToLoop();
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"reply", ""}));
}

TEST(SocketReceiveTest, EndDoesNotFollowTheReplyThatStoppedTheRun) {
    const LocalServer server;
    TestSocket socket(server);
    {
        const Peer peer = server.Accept();
        peer.Write("reply");
    }
    socket.AddToLoop();
    socket.atChunk = StopCurrentRun;
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"reply"});
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"reply", ""}));
}

TEST(SocketReceiveTest, QueuedChunksComeOneATurn) {
    const LocalServer server;
    TestSocket socket(server);
    socket.AddToLoop();
    {
        const Peer peer = server.Accept();
        peer.Write(LongText(1 << 20));
    }
    std::size_t turns = 0;
    TestSource counter([&] {
        ++turns;
        counter.Signal();
    });
    socket.atChunk = [&] {
        EXPECT_LE(socket.chunks.size(), turns + 1);
        if (socket.chunks.back().empty())
            StopCurrentRun();
    };
    counter.Signal();
    CFRunLoopRun();
    EXPECT_GE(turns, 16);
}

TEST(SocketReceiveTest, NestedRunDoesNotEnterTheCalloutAgain) {
    const LocalServer server;
    TestSocket socket(server);
    TestSource inner(StopCurrentRun);
    Peer peer = server.Accept();
    socket.AddToLoop();
    int depth = 0;
    socket.atChunk = [&] {
        EXPECT_EQ(++depth, 1);
        if (socket.chunks.size() == 1) {
            peer.Write("second");
            peer.Close();
            // All was read by then, and the nested run has nothing to do.
            g_resting.wait(-1);
            AtNextSleepElsewhere([&] { inner.Signal(); });
            CFRunLoopRun();
        }
        if (socket.chunks.back().empty())
            StopCurrentRun();
        --depth;
    };
    g_resting = -1;
    peer.Write("first");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, (Chunks{"first", "second", ""}));
}

TEST(SocketReceiveTest, NestedRunServesAnotherSocket) {
    const LocalServer server;
    TestSocket notifications(server);
    const Peer notifies = server.Accept();
    TestSocket exchange(server);
    const Peer replies = server.Accept();
    notifications.AddToLoop();
    notifications.atChunk = [&] {
        exchange.AddToLoop();
        replies.Write("reply");
        CFRunLoopRun();
        EXPECT_EQ(exchange.chunks, Chunks{"reply"});
        StopCurrentRun();
    };
    exchange.atChunk = StopCurrentRun;
    notifies.Write("news");
    CFRunLoopRun();
    EXPECT_EQ(notifications.chunks, Chunks{"news"});
}

TEST(SocketReceiveTest, ChunkThatCannotBeHandedOutIsAnEnd) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    peer.Write("lost");
    g_chunkFault = true;
    socket.AddToLoop();
    CFRunLoopRun();
    g_chunkFault = false;
    EXPECT_EQ(socket.chunks, Chunks{""});
    EXPECT_FALSE(socket.Valid());
}

TEST(SocketReceiveTest, NothingFollowsAChunkThatCannotBeHandedOut) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    socket.AddToLoop();
    peer.Write("first");
    peer.AwaitReading();
    peer.Write("lost");
    peer.AwaitReading();
    peer.Write("behind");
    peer.AwaitReading();
    socket.atChunk = [] { g_chunkFault = true; };
    CFRunLoopRun();
    g_chunkFault = false;
    EXPECT_EQ(socket.chunks, (Chunks{"first", ""}));
}

// Sending

TEST(SocketSendTest, AllOfItArrivesAtASlowPeer) {
    const std::string text = LongText(8 << 20);
    const LocalServer server;
    const TestSocket socket(server);
    const Peer peer = server.Accept();
    std::string received;
    std::thread reader([&] { received = peer.Read(text.size()); });
    EXPECT_EQ(socket.Send(text), kCFSocketSuccess);
    reader.join();
    EXPECT_TRUE(received == text);
}

TEST(SocketSendTest, WithoutLimitWhenTheTimeoutIsNoTime) {
    const std::string text = LongText(1 << 20);
    const LocalServer server;
    const TestSocket socket(server);
    const Peer peer = server.Accept();
    std::string received;
    std::thread reader([&] { received = peer.Read(2 * text.size()); });
    EXPECT_EQ(socket.Send(text, 0), kCFSocketSuccess);
    EXPECT_EQ(socket.Send(text, -1), kCFSocketSuccess);
    reader.join();
    EXPECT_TRUE(received == text + text);
}

TEST(SocketSendTest, PeerThatNeverReadsIsATimeout) {
    const LocalServer server;
    const TestSocket socket(server);
    const Peer peer = server.Accept();
    t_waits.clear();
    EXPECT_EQ(socket.Send(LongText(8 << 20), 0.02), kCFSocketTimeout);
    EXPECT_EQ(socket.Send("more", 0.02), kCFSocketTimeout);
    EXPECT_FALSE(t_waits.empty());
    for (const double wait : t_waits) {
        EXPECT_GT(wait, 0);
        EXPECT_LE(wait, 0.02);
    }
}

TEST(SocketSendTest, TimeoutCountsForTheWholeMessage) {
    const std::string text = LongText(8 << 20);
    const LocalServer server;
    TestSocket socket(server);
    Peer peer = server.Accept();
    std::atomic<bool> over = false;
    // Takes a little, always in less than the time-out, so only the sum of the waits runs out.
    std::thread reader([&] {
        while (!over)
            peer.Read(16);
    });
    EXPECT_EQ(socket.Send(text, 0.05), kCFSocketTimeout);
    over = true;
    socket.Drop(); // ends a read that has taken everything
    reader.join();
}

// For the test's waits for room.
class RoomMaker {
public:
    explicit RoomMaker(std::function<void()> makeRoom) {
        g_makeRoom = std::move(makeRoom);
    }
    RoomMaker(const RoomMaker&) = delete;
    RoomMaker& operator=(const RoomMaker&) = delete;
    ~RoomMaker() {
        g_makeRoom = nullptr;
        g_untilInterruption = 0;
    }
};

// The first, second, ... wait is. The peer reads only when there is no room left, so the waits of
// each round are the same.
TEST(SocketSendTest, AWaitThatIsInterruptedIsTakenUpAgain) {
    const std::string text = LongText(1 << 20);
    const LocalServer server;
    const TestSocket socket(server);
    const Peer peer = server.Accept();
    std::string received;
    const RoomMaker reader([&] { received += peer.Read(64 * 1024); });
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

TEST(SocketSendTest, ClosedPeerIsAnErrorWithoutASignal) {
    ASSERT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    const LocalServer server;
    TestSocket socket(server);
    server.Accept();
    EXPECT_EQ(socket.Send("anybody?"), kCFSocketError);
    EXPECT_TRUE(socket.Valid());
}

TEST(SocketSendTest, NothingToSendOrNowhereIsAnError) {
    const LocalServer server;
    TestSocket socket(server);
    EXPECT_EQ(socket.Send(""), kCFSocketError);
    EXPECT_EQ(CFSocketSendData(socket.Get(), nullptr, nullptr, 1), kCFSocketError);
    const CFDataRef data = MakeData("data");
    EXPECT_EQ(CFSocketSendData(nullptr, nullptr, data, 1), kCFSocketError);
    CFSocketInvalidate(socket.Get());
    EXPECT_EQ(CFSocketSendData(socket.Get(), nullptr, data, 1), kCFSocketError);
    CFRelease(data);
}

// Life

TEST(SocketLifeTest, OneSourceEver) {
    const LocalServer server;
    const TestSocket socket(server);
    CFRunLoopSourceRef first = socket.CreateSource();
    CFRunLoopSourceRef second = socket.CreateSource();
    EXPECT_EQ(first, second);
    CFRelease(first);
    CFRelease(second);
}

TEST(SocketLifeTest, InvalidatedSourceLeavesTheSocketValid) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    CFRunLoopSourceRef source = socket.CreateSource();
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRunLoopSourceInvalidate(source);
    CFRelease(source);
    EXPECT_EQ(socket.Send("still here"), kCFSocketSuccess);
    socket.AddToLoop();
    socket.atChunk = StopCurrentRun;
    peer.Write("still here");
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"still here"});
}

TEST(SocketLifeTest, AnotherSourceTakesWhatIsQueued) {
    const LocalServer server;
    TestSocket socket(server);
    const Peer peer = server.Accept();
    CFRunLoopSourceRef source = socket.CreateSource();
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    peer.Write("queued");
    peer.AwaitReading();
    CFRunLoopSourceInvalidate(source);
    CFRelease(source);
    socket.AddToLoop();
    socket.atChunk = StopCurrentRun;
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks, Chunks{"queued"});
}

TEST(SocketLifeTest, DroppedInItsOwnCalloutIsGoneWithWhatIsQueued) {
    const LocalServer server;
    TestSocket socket(server);
    g_resting = 0;
    socket.AddToLoop();
    {
        const Peer peer = server.Accept();
        peer.Write(LongText(1 << 20));
    }
    g_resting.wait(-1);
    const std::size_t descriptors = CountDescriptors();
    socket.atChunk = [&] { socket.Drop(); };
    CFRunLoopRun();
    EXPECT_EQ(socket.chunks.size(), 1);
    EXPECT_EQ(CountDescriptors(), descriptors - 1);
}

// It stays from the first source on.
void StartTheReader() {
    const LocalServer server;
    CFRelease(TestSocket(server).CreateSource());
}

TEST(SocketLifeTest, ForgottenSourceKeepsNoDescriptor) {
    const LocalServer server;
    std::vector<CFRunLoopSourceRef> forgotten;
    StartTheReader();
    CFRunLoopGetCurrent();
    const std::size_t descriptors = CountDescriptors();
    for (int i = 0; i < 10; ++i) {
        TestSocket socket(server);
        forgotten.push_back(socket.CreateSource());
        CFRunLoopAddSource(CFRunLoopGetCurrent(), forgotten.back(), kCFRunLoopDefaultMode);
        server.Accept();
        CFRunLoopRun();
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    for (CFRunLoopSourceRef source : forgotten)
        CFRelease(source);
}

std::atomic<int> g_references = 0;

TEST(SocketLifeTest, InfoIsHeldFromCreationToInvalidationAndInCallouts) {
    const LocalServer server;
    const CFDataRef address = MakeData(Address(server.Path()));
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
    CFRelease(address);
    EXPECT_EQ(g_references, 1);
    CFRunLoopSourceRef source = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRelease(source);
    CFRelease(socket);
    server.Accept();
    CFRunLoopRun();
    EXPECT_EQ(g_references, 0);
}

// A request and its reply, as the daemon makes one.
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

TEST(SocketLifeTest, ManyExchangesOnManyThreadsLeaveNothing) {
    constexpr int kThreads = 10;
    constexpr int kExchanges = 1000;
    const LocalServer server(kThreads);
    StartTheReader();
    const std::size_t threadsAtRest = CountThreads();
    std::thread first(Answer, std::cref(server), 1);
    Exchange(server); // this thread's loop stays
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

TEST(SocketLifeTest, CreationsWithoutMemoryGiveNothing) {
    const LocalServer server;
    const CFDataRef address = MakeData(Address(server.Path()));
    const CFSocketSignature signature = {1, 1, 0, address};
    CFRunLoopGetCurrent(); // whose making may end the process instead
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
    CFRelease(address);
}

} // namespace
