/*
 * Socket objects.
 *
 * Ownership: the source retains its socket until the source is invalidated or freed. The socket has
 * a plain pointer to its source. Invalidating the socket invalidates the source, so a source that
 * its owner forgot to release retains no socket.
 *
 * Threads: all functions but CFRetain() and CFRelease() are for the thread of the source's loop.
 * The InboundStream passes the input from the arrivals thread to that thread.
 */

#include "loop/ContextInfo.h"
#include "sockets/InboundStream.h"
#include "sockets/LocalStream.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <new>
#include <span>
#include <utility>

struct __CFSocket : cf::Object {
    static const cf::Class kClass;
    __CFSocket(int socketDescriptor, CFSocketCallBack socketCallout, const CFSocketContext* context,
               CFDataRef noData) noexcept
        : cf::Object(&kClass), descriptor(socketDescriptor), callout(socketCallout), info(context),
          endOfStream(cf::Owned<const cf::Object>::Adopt(cf::AsObject(noData))) {}

    int descriptor; // -1: the socket is invalid
    const CFSocketCallBack callout;
    cf::ContextInfo info;
    cf::InboundStream stream;
    const cf::Owned<const cf::Object> endOfStream; // the empty data of the last callout
    cf::Source* source = nullptr;
};

namespace cf {
namespace {

using Socket = ::__CFSocket;

std::span<const UInt8> Bytes(CFDataRef data) noexcept {
    return {CFDataGetBytePtr(data), static_cast<std::size_t>(CFDataGetLength(data))};
}

void Close(Socket& socket) noexcept {
    socket.stream.Discard();
    close(std::exchange(socket.descriptor, -1));
    socket.info.Release();
}

void InvalidateSocket(Socket& socket) noexcept {
    if (socket.descriptor < 0)
        return;
    const auto alive = Owned<Socket>::Share(&socket);
    if (socket.source != nullptr)
        Invalidate(*socket.source);
    Close(socket);
}

// The socket has no source, which would retain it; so the stream is not started.
void DestroySocket(Object* object) noexcept {
    auto* socket = static_cast<Socket*>(object);
    if (socket->descriptor >= 0)
        Close(*socket);
    delete socket;
}

void CallOut(Socket& socket, const Object* data) noexcept {
    socket.info.Use(
        [&](void* info) { socket.callout(&socket, kCFSocketDataCallBack, nullptr, data, info); });
}

// The perform callback of the source: delivers one chunk, or the end of the stream, per iteration.
void DeliverChunk(void* info) noexcept {
    const auto socket = Owned<Socket>::Share(static_cast<Socket*>(info));
    const auto chunk = socket->stream.Dequeue();
    if (chunk.data) {
        if (!chunk.isLast)
            Signal(*socket->source);
        CallOut(*socket.Get(), chunk.data.Get());
    } else if (chunk.isEnd) {
        CallOut(*socket.Get(), socket->endOfStream.Get());
        InvalidateSocket(*socket.Get());
    }
}

void StartStream(void* info) noexcept {
    auto* socket = static_cast<Socket*>(info);
    socket->stream.Start(socket->descriptor, *socket->source);
}

void PauseStream(void* info) noexcept {
    static_cast<Socket*>(info)->stream.Pause();
}

void OnSourceInvalidated(void* info) noexcept {
    auto* socket = static_cast<Socket*>(info);
    socket->source = nullptr;
    Release(socket);
}

bool HasArrivedBy(void* info, Nanoseconds time) noexcept {
    return static_cast<Socket*>(info)->stream.HasArrivedBy(time);
}

constexpr SourceCallouts kSourceCallouts = {DeliverChunk, StartStream, PauseStream,
                                            OnSourceInvalidated, HasArrivedBy};

bool IsLocalStream(const CFSocketSignature& signature) noexcept {
    return signature.protocolFamily == PF_UNIX && signature.socketType == SOCK_STREAM &&
           signature.protocol == 0;
}

} // namespace

} // namespace cf

constinit const cf::Class __CFSocket::kClass = {cf::DestroySocket, nullptr, nullptr};

CFSocketRef CFSocketCreateConnectedToSocketSignature(CFAllocatorRef,
                                                     const CFSocketSignature* signature,
                                                     CFOptionFlags, CFSocketCallBack callout,
                                                     const CFSocketContext* context,
                                                     CFTimeInterval timeout) {
    if (!cf::IsLocalStream(*signature))
        return nullptr;
    const int descriptor = cf::ConnectToLocalStream(cf::Bytes(signature->address), timeout);
    if (descriptor < 0)
        return nullptr;
    CFDataRef noData = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    cf::Socket* socket = nullptr;
    // Without the arrivals thread nothing would read from the connection.
    if (noData != nullptr && cf::StartArrivals())
        socket = new (std::nothrow) cf::Socket(descriptor, callout, context, noData);
    if (socket == nullptr) {
        CFRelease(noData);
        close(descriptor);
    }
    return socket;
}

CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef, CFSocketRef socket, CFIndex) {
    auto* target = cf::As<cf::Socket>(socket);
    if (target == nullptr || target->descriptor < 0)
        return nullptr;
    if (target->source != nullptr) {
        cf::Retain(target->source);
    } else {
        target->source = cf::CreateSource(cf::kSourceCallouts, target, cf::RunLevel::kAny);
        if (target->source != nullptr)
            cf::Retain(target);
    }
    return target->source;
}

void CFSocketInvalidate(CFSocketRef socket) {
    if (auto* target = cf::As<cf::Socket>(socket))
        cf::InvalidateSocket(*target);
}

CFSocketError CFSocketSendData(CFSocketRef socket, CFDataRef, CFDataRef data,
                               CFTimeInterval timeout) {
    auto* target = cf::As<cf::Socket>(socket);
    const auto bytes = cf::Bytes(data);
    if (target == nullptr || target->descriptor < 0 || bytes.empty())
        return kCFSocketError;
    return cf::SendAll(target->descriptor, bytes, timeout);
}
