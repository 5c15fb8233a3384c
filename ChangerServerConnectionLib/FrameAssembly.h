#ifndef CHANGERSERVERCONNECTIONLIB_FRAMEASSEMBLY_H
#define CHANGERSERVERCONNECTIONLIB_FRAMEASSEMBLY_H

/*
 * The frame of both server sockets, and its assembly from chunks of a stream.
 *
 * A frame is a 12-byte header in the host's byte order and a payload, an XML property list. The
 * payload begins headerSize bytes into the frame. Where a chunk begins and ends is nobody's
 * promise: a header may come in pieces, and one chunk may end one frame and begin the next.
 */

#include <CoreFoundation/CoreFoundation.h>

constexpr UInt32 kFrameSignature = 0x68536967;

struct FrameHeader {
    UInt32 signature;
    UInt16 reserved; // 0
    UInt16 headerSize;
    UInt32 dataLength; // of the payload
};
static_assert(sizeof(FrameHeader) == 12, "the header goes over the wire as it stands");

/* What has been gathered of one frame. All zero between frames. */
struct FrameAssembly {
    CFMutableDataRef pendingData; // payload so far, owned
    FrameHeader header;           // valid once headBytes has reached its size
    UInt32 headBytes;             // bytes seen of what precedes the payload, header included
};

enum FrameState {
    kFrameIncomplete,
    kFrameComplete,      // pendingData holds the whole payload
    kFrameInvalidHeader, // not the signature
    kFrameTooLong,       // more bytes than dataLength, and no next frame in them
    kFrameNoMemory       // or above the bound on a payload
};

/*
 * Adds a chunk's bytes to the frame. used receives how many belong to it: all of them, unless the
 * frame is complete and the next one begins behind it. In every state but kFrameIncomplete the
 * caller then resets the assembly; after a failure the next chunk is read as a new frame.
 */
FrameState GatherFrame(FrameAssembly* frame, const UInt8* bytes, CFIndex length, CFIndex* used);

/*
 * The property list that a complete frame carries, owned by the caller. NULL when it is none;
 * errorText then receives the parser's words, to be freed, or NULL when it has none.
 */
CFPropertyListRef CreatePayloadList(const FrameAssembly* frame, char** errorText);

/* Drops what was gathered. */
void ResetFrameAssembly(FrameAssembly* frame);

/* A whole frame around the payload; the caller owns it. Null when memory is short. */
CFDataRef CreateFrame(CFDataRef payload);

#endif
