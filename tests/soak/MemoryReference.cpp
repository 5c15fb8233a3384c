/*
 * trayprobed-memory-reference PIPE SOCKET: the reference for the daemon's heap. It reads the
 * servers' notifications from a pipe and stores them with the daemon's own functions, so its heap
 * holds the lists that the daemon never frees by design, and nothing else. A frame without payload
 * marks the end of a server: the program then creates one more connection source, which the daemon
 * does not free either, and writes "lists COUNT".
 */

#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "ChangerServerConnectionLib/LocalSocket.h"
#include "common/CFHelpers.h"
#include "trayprobed/MediaIdState.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace {

const char* g_serverPath = nullptr; // the socket to connect to
long g_listCount = 0;

bool Failed(VErrLink* err) {
    const bool failed = err != nullptr;
    VErrLogAndCatch(&err);
    return failed;
}

// The daemon adds a changer when the first list contains it.
bool AddChangersOf(CFArrayRef list) {
    for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
        UInt64 changerGUID = 0;
        SInt32 isKnown = 0;
        auto* info = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(list, i));
        if (Failed(CFHDictionaryGetUInt64Value(info, CFSTR("GUID"), &changerGUID)) ||
            Failed(IsChangerInList(changerGUID, &isKnown)) ||
            (!isKnown && Failed(AddChangerToList(changerGUID)))) {
            return false;
        }
    }
    return true;
}

bool StoreNotification(CFDictionaryRef notification) {
    if (CFDictionaryContainsKey(notification, CFSTR("changer list"))) {
        CFArrayRef changers = nullptr; // never released, as in the daemon
        if (Failed(GetChangerList(&changers)))
            return false;
    }
    CFArrayRef list = CFHDictionaryFindArray(notification, CFSTR("changer info"));
    if (list == nullptr)
        return true;
    ++g_listCount;
    return !Failed(SaveChangerInfoList(list)) && AddChangersOf(list);
}

void IgnoreData(CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}

// The daemon creates a source for each connection and keeps it when the connection is lost.
bool LeakSource() {
    CFDataRef address = CreateLocalSocketAddress(g_serverPath);
    CFSocketRef socket = CreateConnectedLocalSocket(address, IgnoreData, nullptr);
    CFRelease(address);
    if (socket == nullptr)
        return false;
    const bool isCreated = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0) != nullptr;
    CloseLocalSocket(socket);
    return isCreated;
}

bool HandleMarker() {
    if (!LeakSource())
        return false;
    std::printf("lists %ld\n", g_listCount);
    return std::fflush(stdout) == 0;
}

bool HandleFrame(const FrameAssembly& frame) {
    if (frame.header.dataLength == 0)
        return HandleMarker();
    char* parserText = nullptr;
    auto* notification = static_cast<CFDictionaryRef>(CreatePayloadList(&frame, &parserText));
    if (notification == nullptr)
        return false;
    const bool isStored = StoreNotification(notification);
    CFRelease(notification);
    return isStored;
}

bool HandleChunk(FrameAssembly& frame, const UInt8* bytes, CFIndex length) {
    CFIndex used = 0;
    for (CFIndex position = 0; position < length; position += used) {
        const FrameState state = GatherFrame(&frame, bytes + position, length - position, &used);
        if (state == kFrameIncomplete)
            continue;
        if (state != kFrameComplete || !HandleFrame(frame))
            return false;
        ResetFrameAssembly(&frame);
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    // Opened for writing too: otherwise read() returns 0 when a server closes the pipe.
    const int pipe = argc == 3 ? open(argv[1], O_RDWR | O_CLOEXEC) : -1;
    if (pipe < 0 || !InitVErrSystem() || Failed(InitMediaIdState()))
        return 2;
    g_serverPath = argv[2];
    FrameAssembly frame = {};
    std::array<UInt8, 65536> chunk;
    ssize_t length = 0;
    while ((length = read(pipe, chunk.data(), chunk.size())) > 0) {
        if (!HandleChunk(frame, chunk.data(), length)) {
            std::fprintf(stderr, "cannot store a notification\n");
            return 1;
        }
    }
    return 1;
}
