#ifndef TESTS_TESTSOCKET_H
#define TESTS_TESTSOCKET_H

/* A connected socket of Core Foundation and what it received. */

#include "Callouts.h"
#include "LocalServer.h"
#include "support/CFValues.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <sys/un.h>

#include <functional>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline std::string Address(const std::string& path) {
    sockaddr_un address = {};
    address.sun_len = sizeof address;
    address.sun_family = 1;
    path.copy(address.sun_path, sizeof address.sun_path);
    return std::string(reinterpret_cast<const char*>(&address), sizeof address);
}

/* A connected socket that keeps the chunks that its callouts receive. */
class TestSocket {
public:
    explicit TestSocket(const LocalServer& server) : TestSocket(Address(server.Path())) {}
    explicit TestSocket(const std::string& address, CFTimeInterval timeout = kUsualTimeout) {
        const CFOwned data = Bytes(address);
        const CFSocketSignature signature = {1, 1, 0, data};
        const CFSocketContext context = {0, this, nullptr, nullptr, nullptr};
        socket_ = CFSocketCreateConnectedToSocketSignature(
            kCFAllocatorDefault, &signature, kCFSocketDataCallBack, CallOut, &context, timeout);
    }
    TestSocket(const TestSocket&) = delete;
    TestSocket& operator=(const TestSocket&) = delete;
    ~TestSocket() {
        Drop();
    }

    static constexpr CFTimeInterval kUsualTimeout = 30;

    bool Connected() const {
        return socket_ != nullptr;
    }
    CFSocketRef Get() const {
        return socket_;
    }

    CFOwned<CFRunLoopSourceRef> CreateSource() const {
        return CFOwned(CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket_, 0));
    }
    bool Valid() const {
        return CreateSource() != nullptr;
    }
    // Returns the source, or nullptr if the socket is invalid.
    CFOwned<CFRunLoopSourceRef> AddToLoop() const {
        CFOwned source = CreateSource();
        if (source != nullptr)
            CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
        return source;
    }
    void RemoveFromLoop() const {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), CreateSource(), kCFRunLoopDefaultMode);
    }
    // Runs the loop until the next chunk arrives.
    void RunUntilChunk() {
        atChunk = StopCurrentRun;
        CFRunLoopRun();
    }

    CFSocketError Send(std::string_view bytes, CFTimeInterval timeout = kUsualTimeout) const {
        return CFSocketSendData(socket_, nullptr, Bytes(bytes), timeout);
    }

    void Drop() {
        if (socket_ == nullptr)
            return;
        CFSocketInvalidate(socket_);
        CFRelease(std::exchange(socket_, nullptr));
    }

    // Hands the reference to the caller.
    CFSocketRef Detach() {
        return std::exchange(socket_, nullptr);
    }

    std::string Received() const {
        return std::accumulate(chunks.begin(), chunks.end(), std::string());
    }

    std::vector<std::string> chunks;
    std::function<void()> atChunk = [] {};

private:
    static void CallOut(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                        const void* data, void* info) {
        auto* self = static_cast<TestSocket*>(info);
        EXPECT_EQ(socket, self->socket_);
        EXPECT_EQ(type, static_cast<CFSocketCallBackType>(kCFSocketDataCallBack));
        EXPECT_EQ(address, nullptr);
        const auto chunk = static_cast<CFDataRef>(data);
        self->chunks.emplace_back(reinterpret_cast<const char*>(CFDataGetBytePtr(chunk)),
                                  static_cast<std::size_t>(CFDataGetLength(chunk)));
        self->atChunk();
    }

    CFSocketRef socket_;
};

#endif
