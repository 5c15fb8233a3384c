#ifndef CHANGERSERVERCONNECTIONLIB_FRAMEASSEMBLY_H
#define CHANGERSERVERCONNECTIONLIB_FRAMEASSEMBLY_H

/*
 * The frame of both server sockets, and its assembly from the chunks of a stream.
 *
 * A frame is a header of 12 bytes, in the byte order of the host, and a payload, which is an XML
 * property list. The payload begins headerSize bytes behind the begin of the frame. Chunks may end
 * anywhere: a header may come in several chunks, and one chunk may end a frame and begin the next.
 *
 * The functions keep no state of their own. A FrameAssembly belongs to one thread.
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

/* The part of a frame that has been received. All zero between frames. */
struct FrameAssembly {
    CFMutableDataRef pendingData; // payload so far, owned
    FrameHeader header;           // complete if headBytes >= sizeof(FrameHeader)
    UInt32 headBytes;             // received bytes before the payload, header included
};

enum FrameState {
    kFrameIncomplete,
    kFrameComplete,      // pendingData holds the whole payload
    kFrameInvalidHeader, // wrong signature
    kFrameTooLong,       // the bytes behind the payload do not begin a frame
    kFrameNoMemory       // no memory, or a payload above 256 MiB
};

/* Adds the bytes of a chunk to the frame. *used receives how many bytes belong to the frame: all,
   unless the frame is complete and the next one begins behind it. In every state but
   kFrameIncomplete, the caller then calls ResetFrameAssembly(); the next byte begins a frame. */
FrameState GatherFrame(FrameAssembly* frame, const UInt8* bytes, CFIndex length, CFIndex* used);

/* Parses the payload of a complete frame; the caller owns the result. NULL if the payload is not a
   property list: *errorText is then the parser's message, which the caller releases with free(), or
   NULL if there is none. */
CFPropertyListRef CreatePayloadList(const FrameAssembly* frame, char** errorText);

/* Releases the payload and makes the assembly all zero. */
void ResetFrameAssembly(FrameAssembly* frame);

/* Makes a frame of the payload; the caller owns the frame. Null without memory. */
CFDataRef CreateFrame(CFDataRef payload);

#endif
