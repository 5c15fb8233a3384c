// Keeps what the daemon keeps on purpose, and does nothing else: reads the notifications that the
// servers send from a pipe, through the daemon's own calls, so that its memory tells what the kept
// lists cost. A frame without a payload is the soak's mark at the end of a server: the source of
// its connection is kept, and the number of lists told.

#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "ChangerServerConnectionLib/LocalSocket.h"
#include "common/CFHelpers.h"
#include "trayprobed/MediaIdState.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

const char* g_serverPath = nullptr; // of a socket to connect to
long g_lists = 0;

bool Failed(VErrLink* err) {
    const bool failed = err != nullptr;
    VErrLogAndCatch(&err);
    return failed;
}

// The daemon knows a changer from the first list that shows it.
bool KnowChangersOf(CFArrayRef list) {
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

bool Keep(CFDictionaryRef notification) {
    if (CFDictionaryContainsKey(notification, CFSTR("changer list"))) {
        CFArrayRef known = nullptr; // kept, as the daemon does
        if (Failed(GetChangerList(&known)))
            return false;
    }
    CFArrayRef list = CFHDictionaryFindArray(notification, CFSTR("changer info"));
    if (list == nullptr)
        return true;
    ++g_lists;
    return !Failed(SaveChangerInfoList(list)) && KnowChangersOf(list);
}

void IgnoreData(CFSocketRef, CFSocketCallBackType, CFDataRef, const void*, void*) {}

// As the daemon does when it is connected, and when the server is gone.
bool KeepSource() {
    CFDataRef address = CreateLocalSocketAddress(g_serverPath);
    CFSocketRef socket = CreateConnectedLocalSocket(address, IgnoreData, nullptr);
    CFRelease(address);
    if (socket == nullptr)
        return false;
    const bool isKept = CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0) != nullptr;
    CloseLocalSocket(socket);
    return isKept;
}

bool HandleMark() {
    if (!KeepSource())
        return false;
    std::printf("kept %ld\n", g_lists);
    return std::fflush(stdout) == 0;
}

bool HandleFrame(const FrameAssembly& frame) {
    if (frame.header.dataLength == 0)
        return HandleMark();
    char* parserText = nullptr;
    auto* notification = static_cast<CFDictionaryRef>(CreatePayloadList(&frame, &parserText));
    if (notification == nullptr)
        return false;
    const bool kept = Keep(notification);
    CFRelease(notification);
    return kept;
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

// trayprobed-list-keeper PIPE SOCKET
int main(int argc, char** argv) {
    // Open for writing too, so that the pipe does not end with a server.
    const int pipe = argc == 3 ? open(argv[1], O_RDWR | O_CLOEXEC) : -1;
    if (pipe < 0 || !InitVErrSystem() || Failed(InitMediaIdState()))
        return 2;
    g_serverPath = argv[2];
    FrameAssembly frame = {};
    std::array<UInt8, 65536> chunk;
    ssize_t length = 0;
    while ((length = read(pipe, chunk.data(), chunk.size())) > 0) {
        if (!HandleChunk(frame, chunk.data(), length)) {
            std::fprintf(stderr, "cannot keep a notification\n");
            return 1;
        }
    }
    return 1;
}
