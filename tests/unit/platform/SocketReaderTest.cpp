#include "Callouts.h"
#include "Descriptors.h"
#include "LocalServer.h"

#include <CoreFoundation/CFSocket.h>

#include <gtest/gtest.h>

#include <sys/un.h>

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

// A program of its own, as the one thread is started only once.
TEST(SocketReaderTest, RefusedThreadGivesNoSourceAndIsTriedAgain) {
    const LocalServer server;
    CFSocketRef socket = Connect(server);
    ASSERT_NE(socket, nullptr);
    const std::ptrdiff_t descriptors = CountDescriptors();
    const std::ptrdiff_t threads = CountThreads();
    g_refuseThreads = true;
    EXPECT_EQ(CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0), nullptr);
    g_refuseThreads = false;
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(CountThreads(), threads);

    CFRunLoopSourceRef source = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0);
    ASSERT_NE(source, nullptr);
    EXPECT_GT(CountThreads(), threads);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    server.Accept();
    CFRunLoopRun();
    CFRelease(source);
    CFRelease(socket);
}

} // namespace
