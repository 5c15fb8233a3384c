#include "Callouts.h"
#include "Descriptors.h"
#include "LocalServer.h"

#include <CoreFoundation/CFSocket.h>

#include <gtest/gtest.h>

#include <sys/un.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <system_error>

namespace {

bool g_refuseThreads = false;

} // namespace

// std::thread's start; what it is handed is passed on as it came.
extern "C" {
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)());
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)());

void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)()) {
    if (g_refuseThreads)
        throw std::system_error(EAGAIN, std::generic_category());
    __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
        thread, state, depend);
}
}

namespace {

CFSocketRef Connect(const LocalServer& server) {
    sockaddr_un address = {sizeof address, 1, {}};
    server.Path().copy(address.sun_path, sizeof address.sun_path);
    const CFDataRef data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(&address), sizeof address);
    const CFSocketSignature signature = {1, 1, 0, data};
    CFSocketRef socket = CFSocketCreateConnectedToSocketSignature(
        kCFAllocatorDefault, &signature, kCFSocketDataCallBack,
        [](CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}, nullptr, 30);
    CFRelease(data);
    return socket;
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

// A program of its own, as the one thread is started only once.
TEST(SocketReaderTest, RefusedThreadGivesNoSourceAndIsTriedAgain) {
    const LocalServer server;
    CFSocketRef socket = Connect(server);
    ASSERT_NE(socket, nullptr);
    const std::ptrdiff_t descriptors = CountDescriptors();
    const std::set<std::string> threads = ListThreads();
    g_refuseThreads = true;
    EXPECT_EQ(CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0), nullptr);
    g_refuseThreads = false;
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(ListThreads(), threads);

    CFRunLoopSourceRef source = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
    ASSERT_NE(source, nullptr);
    std::set<std::string> reader = ListThreads();
    for (const std::string& thread : threads)
        reader.erase(thread);
    ASSERT_EQ(reader.size(), 1);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGALRM, SIGCHLD})
        EXPECT_TRUE(BlocksSignal(*reader.begin(), number)) << number;
    EXPECT_FALSE(BlocksSignal("/proc/thread-self", SIGTERM));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    server.Accept();
    CFRunLoopRun();
    CFRelease(source);
    CFRelease(socket);
}

} // namespace
