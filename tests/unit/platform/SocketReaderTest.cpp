#include "Calls.h"
#include "FaultSweep.h"
#include "LocalServer.h"
#include "ResourceUsage.h"
#include "TestSocket.h"

#include <CoreFoundation/CFSocket.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace {

CFOwned<CFSocketRef> Connect(CFDataRef address) {
    const CFSocketSignature signature = {1, 1, 0, address};
    return CFOwned(CFSocketCreateConnectedToSocketSignature(
        kCFAllocatorDefault, &signature, kCFSocketDataCallBack,
        [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}, nullptr, 30));
}

bool BelongsToTheStart(const SystemCallFailure& failure) {
    return failure.function == "epoll_create1" || failure.function == kThreadStart;
}

std::set<std::string> ListThreads() {
    std::set<std::string> threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        threads.insert(entry.path());
    return threads;
}

bool BlocksSignal(const std::string& thread, int number) {
    std::ifstream status(thread + "/status");
    std::string word;
    while (status >> word && word != "SigBlk:") {
    }
    status >> word;
    return (std::stoull(word, nullptr, 16) >> (number - 1) & 1) != 0;
}

// In a program of its own: a process starts the reading thread only once.
TEST(SocketReaderTest, ConnectFailsCleanlyUntilTheThreadStarts) {
    const LocalServer server;
    const CFOwned address = Bytes(Address(server.Path()));
    const std::size_t descriptors = CountDescriptors();
    const std::set<std::string> threads = ListThreads();
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        if (!BelongsToTheStart(failure))
            continue;
        const SystemCallFault fault(failure, 1);
        EXPECT_EQ(Connect(address), nullptr) << Describe(failure, 1);
        EXPECT_TRUE(SystemCallFault::Happened()) << Describe(failure, 1);
    }
    {
        const AllocationFault fault(1);
        EXPECT_EQ(Connect(address), nullptr);
    }
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(ListThreads(), threads);

    const CFOwned socket = Connect(address);
    EXPECT_NE(socket, nullptr);
    std::set<std::string> started = ListThreads(); // the thread sanitizer adds one of its own
    for (const std::string& thread : threads)
        started.erase(thread);
    EXPECT_FALSE(started.empty());
    for (const std::string& thread : started)
        for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGALRM, SIGCHLD})
            EXPECT_TRUE(BlocksSignal(thread, number)) << number;
    EXPECT_FALSE(BlocksSignal("/proc/thread-self", SIGTERM));
}

} // namespace
