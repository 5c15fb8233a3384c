#include "ChangerServerConnectionLib/FrameAssembly.h"

#include "common/CFHelpers.h"

#include <string.h>

#include <algorithm>

// A header can announce 4 GiB. Real payloads are far smaller than this limit.
constexpr CFIndex kMaxPayloadLength = 256 * 1024 * 1024;

static bool BeginsWithSignature(const void* bytes, CFIndex length) {
    const size_t compared = std::min(static_cast<size_t>(length), sizeof kFrameSignature);
    return memcmp(bytes, &kFrameSignature, compared) == 0;
}

static bool AppendPayload(FrameAssembly* frame, const UInt8* bytes, CFIndex length) {
    const CFIndex gathered = CFDataGetLength(frame->pendingData);
    if (length > kMaxPayloadLength - gathered)
        return false;
    CFDataAppendBytes(frame->pendingData, bytes, length);
    return CFDataGetLength(frame->pendingData) == gathered + length;
}

// Adds bytes until the header is complete. If headerSize is less than 12, the last bytes of the 12
// belong to the payload.
static FrameState GatherHeader(FrameAssembly* frame, const UInt8* bytes, CFIndex length,
                               CFIndex* used) {
    UInt8* header = reinterpret_cast<UInt8*>(&frame->header);
    const CFIndex missing = static_cast<CFIndex>(sizeof(FrameHeader) - frame->headBytes);
    *used = std::min(length, missing);
    memcpy(header + frame->headBytes, bytes, static_cast<size_t>(*used));
    frame->headBytes += static_cast<UInt32>(*used);

    if (!BeginsWithSignature(header, frame->headBytes))
        return kFrameInvalidHeader;
    const UInt16 headerSize = frame->header.headerSize;
    if (frame->headBytes == sizeof(FrameHeader) && headerSize < sizeof(FrameHeader) &&
        !AppendPayload(frame, header + headerSize,
                       static_cast<CFIndex>(sizeof(FrameHeader) - headerSize)))
        return kFrameNoMemory;
    return kFrameIncomplete;
}

// Skips the bytes between the header and the payload, if headerSize is more than 12.
static CFIndex SkipToPayload(FrameAssembly* frame, CFIndex length) {
    if (frame->headBytes >= frame->header.headerSize)
        return 0;
    const CFIndex gap = static_cast<CFIndex>(frame->header.headerSize - frame->headBytes);
    const CFIndex skipped = std::min(length, gap);
    frame->headBytes += static_cast<UInt32>(skipped);
    return skipped;
}

static FrameState GatherPayload(FrameAssembly* frame, const UInt8* bytes, CFIndex length,
                                CFIndex* used) {
    const CFIndex missing =
        static_cast<CFIndex>(frame->header.dataLength) - CFDataGetLength(frame->pendingData);
    *used = std::clamp<CFIndex>(missing, 0, length);
    if (!AppendPayload(frame, bytes, *used))
        return kFrameNoMemory;
    if (missing > length)
        return kFrameIncomplete;
    if (missing < 0 || !BeginsWithSignature(bytes + *used, length - *used))
        return kFrameTooLong;
    return kFrameComplete;
}

FrameState GatherFrame(FrameAssembly* frame, const UInt8* bytes, CFIndex length, CFIndex* used) {
    *used = length;
    if (frame->pendingData == nullptr)
        frame->pendingData = CFDataCreateMutable(kCFAllocatorDefault, 0);
    if (frame->pendingData == nullptr)
        return kFrameNoMemory;

    CFIndex position = 0;
    if (frame->headBytes < sizeof(FrameHeader)) {
        const FrameState state = GatherHeader(frame, bytes, length, &position);
        if (state != kFrameIncomplete || frame->headBytes < sizeof(FrameHeader))
            return state;
    }
    position += SkipToPayload(frame, length - position);
    if (frame->headBytes < frame->header.headerSize)
        return kFrameIncomplete;

    CFIndex taken = 0;
    const FrameState state = GatherPayload(frame, bytes + position, length - position, &taken);
    if (state == kFrameComplete)
        *used = position + taken;
    return state;
}

CFPropertyListRef CreatePayloadList(const FrameAssembly* frame, char** errorText) {
    CFStringRef errorString = nullptr;
    CFPropertyListRef list = CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, frame->pendingData, kCFPropertyListImmutable, &errorString);
    *errorText = list == nullptr ? CFHAllocErrorText(errorString) : nullptr;
    CFHReleaseIfSet(errorString);
    return list;
}

void ResetFrameAssembly(FrameAssembly* frame) {
    if (frame->pendingData != nullptr)
        CFRelease(frame->pendingData);
    *frame = {};
}

CFDataRef CreateFrame(CFDataRef payload) {
    const CFIndex length = CFDataGetLength(payload);
    const FrameHeader header = {kFrameSignature, 0, sizeof(FrameHeader),
                                static_cast<UInt32>(length)};
    CFMutableDataRef frame = CFDataCreateMutable(kCFAllocatorDefault, 0);
    if (frame == nullptr)
        return nullptr;
    CFDataAppendBytes(frame, reinterpret_cast<const UInt8*>(&header), sizeof header);
    CFDataAppendBytes(frame, CFDataGetBytePtr(payload), length);
    if (CFDataGetLength(frame) == static_cast<CFIndex>(sizeof header) + length)
        return frame;
    CFRelease(frame);
    return nullptr;
}
