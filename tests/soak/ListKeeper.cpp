// Keeps what the daemon keeps, and does nothing else: reads the notifications that the server sends
// from a pipe, through the daemon's own calls, so that its memory tells what the kept lists cost.
// A frame without a payload is the soak's mark: it is answered with the number of lists kept so
// far.

#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "common/CFHelpers.h"
#include "trayprobed/MediaIdState.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {

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
        if (Failed(GetChangerList(&known))) {
            return false;
        }
    }
    CFArrayRef list = CFHDictionaryFindArray(notification, CFSTR("changer info"));
    if (list == nullptr) {
        return true;
    }
    ++g_lists;
    return !Failed(SaveChangerInfoList(list)) && KnowChangersOf(list);
}

bool HandleFrame(const FrameAssembly& frame) {
    if (frame.header.dataLength == 0) {
        std::printf("kept %ld\n", g_lists);
        return std::fflush(stdout) == 0;
    }
    char* parserText = nullptr;
    auto* notification = static_cast<CFDictionaryRef>(CreatePayloadList(&frame, &parserText));
    if (notification == nullptr) {
        return false;
    }
    const bool kept = Keep(notification);
    CFRelease(notification);
    return kept;
}

bool HandleChunk(FrameAssembly& frame, const UInt8* bytes, CFIndex length) {
    CFIndex used = 0;
    for (CFIndex position = 0; position < length; position += used) {
        const FrameState state = GatherFrame(&frame, bytes + position, length - position, &used);
        if (state == kFrameIncomplete) {
            continue;
        }
        if (state != kFrameComplete || !HandleFrame(frame)) {
            return false;
        }
        ResetFrameAssembly(&frame);
    }
    return true;
}

} // namespace

// trayprobed-list-keeper PIPE
int main(int argc, char** argv) {
    // Open for writing too, so that the pipe does not end with a server.
    const int pipe = argc == 2 ? open(argv[1], O_RDWR | O_CLOEXEC) : -1;
    if (pipe < 0 || !InitVErrSystem() || Failed(InitMediaIdState())) {
        return 2;
    }
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
