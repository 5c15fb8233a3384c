/* Assembly of frames from the chunks of a stream, and the list in a payload. */

#include "ChangerServerConnectionLib/FrameAssembly.h"

#include "AllocationFaults.h"
#include "Frames.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/NotCopyable.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Added to a payload's length: the limit is reached without 256 MiB of data.
static CFIndex g_pretendedLength = 0;

static CFIndex g_capacity = 0; // of the last payload created

extern "C" {
CFMutableDataRef __real_CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
CFIndex __real_CFDataGetLength(CFDataRef data);

CFMutableDataRef __wrap_CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity) {
    g_capacity = capacity;
    return __real_CFDataCreateMutable(allocator, capacity);
}

CFIndex __wrap_CFDataGetLength(CFDataRef data) {
    return __real_CFDataGetLength(data) + g_pretendedLength;
}
}

namespace {

using Events = std::vector<std::string>;

// Assembles chunks as the socket's callback does. Records payloads and failures.
class Assembler : NotCopyable {
public:
    ~Assembler() {
        ResetFrameAssembly(&frame_);
    }

    void Append(std::string_view chunk) {
        while (!chunk.empty()) {
            CFIndex used = 0;
            const FrameState state =
                GatherFrame(&frame_, reinterpret_cast<const UInt8*>(chunk.data()),
                            static_cast<CFIndex>(chunk.size()), &used);
            ASSERT_GT(used, 0);
            ASSERT_LE(used, static_cast<CFIndex>(chunk.size()));
            chunk.remove_prefix(static_cast<std::size_t>(used));
            if (state == kFrameIncomplete)
                continue;
            events_.push_back(Describe(state));
            ResetFrameAssembly(&frame_);
        }
    }

    const Events& Recorded() const {
        return events_;
    }
    bool IsBetweenFrames() const {
        return frame_.pendingData == nullptr && frame_.headBytes == 0;
    }

private:
    std::string Describe(FrameState state) const {
        switch (state) {
        case kFrameComplete:
            return {reinterpret_cast<const char*>(CFDataGetBytePtr(frame_.pendingData)),
                    static_cast<std::size_t>(CFDataGetLength(frame_.pendingData))};
        case kFrameInvalidHeader:
            return "(invalid header)";
        case kFrameTooLong:
            return "(too long)";
        case kFrameNoMemory:
            return "(no memory)";
        case kFrameIncomplete:
            break;
        }
        return "(unknown state)";
    }

    FrameAssembly frame_ = {};
    Events events_;
};

Events Gather(const std::vector<std::string>& chunks) {
    Assembler assembler;
    for (const std::string& chunk : chunks)
        assembler.Append(chunk);
    return assembler.Recorded();
}

Events GatherInPiecesOf(std::size_t size, std::string_view bytes) {
    Assembler assembler;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size())))
        assembler.Append(bytes.substr(0, size));
    return assembler.Recorded();
}

// Expects the same events for every split into two or three chunks, and into chunks of every size.
void ExpectHoweverSplit(const std::string& bytes, const Events& expected) {
    const std::size_t size = bytes.size();
    for (std::size_t first = 1; first <= size; ++first) {
        for (std::size_t second = first; second <= size; ++second) {
            ASSERT_EQ(Gather({bytes.substr(0, first), bytes.substr(first, second - first),
                              bytes.substr(second)}),
                      expected)
                << "split at " << first << " and " << second;
        }
        ASSERT_EQ(GatherInPiecesOf(first, bytes), expected) << "pieces of " << first;
    }
}

// ---- well-formed streams ----

TEST(FrameAssembly, FramesAreAssembledHoweverTheStreamIsSplit) {
    const std::string inner = FrameOf("inner");
    const std::string allPayload = HeaderBytes({.headerSize = 0, .dataLength = 15});
    const std::string onlyHeader = HeaderBytes({.headerSize = 0, .dataLength = 12});
    const std::string eleven = HeaderBytes({.headerSize = 11, .dataLength = 3});
    const std::string thirteen = HeaderBytes({.headerSize = 13, .dataLength = 2});
    const std::string empty = HeaderBytes({.headerSize = 13, .dataLength = 0});
    const std::string next = FrameOf("next");
    const struct {
        const char* name;
        std::string bytes;
        Events payloads;
    } cases[] = {
        {"one frame", FrameOf("a payload"), {"a payload"}},
        {"two frames", FrameOf("one") + FrameOf("the second"), {"one", "the second"}},
        {"three frames",
         FrameOf("one") + FrameOf("the second") + FrameOf("3"),
         {"one", "the second", "3"}},
        {"frames as payload",
         FrameOf(inner) + FrameOf(inner.substr(0, 6)),
         {inner, inner.substr(0, 6)}},
        {"empty payloads", FrameOf("") + FrameOf("") + FrameOf("x"), {"", "", "x"}},
        {"header size 0: the header is payload",
         allPayload + "abc" + next,
         {allPayload + "abc", "next"}},
        {"header size 0: only the header is payload", onlyHeader + next, {onlyHeader, "next"}},
        {"header size 11: its last byte is payload",
         eleven + "ab" + next,
         {eleven.substr(11) + "ab", "next"}},
        {"header size 13: a byte is skipped", thirteen + "-ab" + next, {"ab", "next"}},
        {"header size 13, empty payload", empty + "-" + next, {"", "next"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        ExpectHoweverSplit(each.bytes, each.payloads);
    }
}

TEST(FrameAssembly, ReservedFieldIsIgnored) {
    EXPECT_THAT(Gather({HeaderBytes({.reserved = 0xFFFF, .dataLength = 1}) + "x"}),
                ElementsAre("x"));
}

TEST(FrameAssembly, NoStateIsKeptBetweenFrames) {
    Assembler assembler;
    assembler.Append(FrameOf("one"));
    EXPECT_TRUE(assembler.IsBetweenFrames());
    assembler.Append(FrameOf("two").substr(0, 3));
    EXPECT_FALSE(assembler.IsBetweenFrames());
}

// The kernel decides how the writer's chunks are split for the assembler.
TEST(FrameAssembly, FramesSentOverASocketPairAreAssembled) {
    std::string stream;
    Events expected;
    for (int i = 0; i < 200; ++i) {
        expected.push_back("payload " + std::string(static_cast<std::size_t>(i), 'x'));
        stream += FrameOf(expected.back());
    }
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    std::thread writer([&] {
        std::string_view rest = stream;
        for (std::size_t i = 0; !rest.empty(); ++i) {
            const std::size_t length = std::min(1 + i * 7 % 61, rest.size());
            EXPECT_EQ(write(ends[0], rest.data(), length), static_cast<ssize_t>(length));
            rest.remove_prefix(length);
        }
        close(ends[0]);
    });
    Assembler assembler;
    char buffer[256];
    for (std::size_t i = 0;; ++i) {
        const ssize_t got = read(ends[1], buffer, 1 + i * 13 % sizeof buffer);
        if (got <= 0)
            break;
        assembler.Append({buffer, static_cast<std::size_t>(got)});
    }
    writer.join();
    close(ends[1]);
    EXPECT_EQ(assembler.Recorded(), expected);
    EXPECT_TRUE(assembler.IsBetweenFrames());
}

// ---- header sizes ----

TEST(FrameAssembly, PayloadBehindTheLargestHeaderIsFoundHoweverTheStreamIsSplit) {
    const std::string bytes = HeaderBytes({.headerSize = 65535, .dataLength = 4}) +
                              std::string(65535 - 12, '-') + "data" + FrameOf("next");
    for (const std::size_t cut :
         {1u, 11u, 12u, 13u, 100u, 65534u, 65535u, 65536u, 65538u, 65539u, 65540u})
        EXPECT_THAT(Gather({bytes.substr(0, cut), bytes.substr(cut)}), ElementsAre("data", "next"))
            << cut;
    for (const std::size_t size : {1u, 11u, 12u, 4096u, 65535u, 65536u})
        EXPECT_THAT(GatherInPiecesOf(size, bytes), ElementsAre("data", "next")) << size;
}

TEST(FrameAssembly, PayloadShorterThanTheHeaderBytesInItIsTooLong) {
    const std::string header = HeaderBytes({.headerSize = 0, .dataLength = 11});
    EXPECT_THAT(Gather({header}), ElementsAre("(too long)"));
    EXPECT_THAT(Gather({header + "more", FrameOf("next")}), ElementsAre("(too long)", "next"));
    EXPECT_THAT(GatherInPiecesOf(1, header), ElementsAre("(too long)"));
}

// ---- data lengths ----

TEST(FrameAssembly, DataLengthOf4GiBAllocatesNothingInAdvance) {
    g_capacity = -1;
    EXPECT_THAT(Gather({HeaderBytes({.dataLength = 0xFFFFFFFF}) + "start", "more"}), IsEmpty());
    EXPECT_EQ(g_capacity, 0);
}

TEST(FrameAssembly, PayloadLongerThanTheLimitFailsWithNoMemory) {
    constexpr CFIndex kBound = 256 * 1024 * 1024;
    Assembler assembler;
    assembler.Append(HeaderBytes({.dataLength = 0xFFFFFFFF}));
    g_pretendedLength = kBound - 10;
    assembler.Append("0123456789");
    EXPECT_THAT(assembler.Recorded(), IsEmpty());
    assembler.Append("x");
    g_pretendedLength = 0;
    EXPECT_THAT(assembler.Recorded(), ElementsAre("(no memory)"));
    EXPECT_TRUE(assembler.IsBetweenFrames());
}

// ---- malformed streams ----

TEST(FrameAssembly, WrongByteInTheSignatureFailsAtThatByte) {
    const std::string frame = FrameOf("payload");
    for (std::size_t wrong = 0; wrong < 4; ++wrong) {
        std::string bytes = frame;
        bytes[wrong] = static_cast<char>(bytes[wrong] ^ 1);
        EXPECT_THAT(Gather({bytes}), ElementsAre("(invalid header)")) << wrong;
        for (std::size_t cut = 1; cut <= wrong; ++cut)
            EXPECT_THAT(Gather({bytes.substr(0, cut), bytes.substr(cut)}),
                        ElementsAre("(invalid header)"))
                << wrong << ", " << cut;
        EXPECT_THAT(Gather({bytes.substr(0, wrong + 1)}), ElementsAre("(invalid header)"));
        EXPECT_THAT(Gather({bytes, frame}), ElementsAre("(invalid header)", "payload"));
    }
}

TEST(FrameAssembly, BytesAfterAFrameThatBeginNoFrameMakeTheFrameTooLong) {
    for (const std::string& frame :
         {FrameOf("payload") + "x", FrameOf("payload") + "gix", FrameOf("").append(1, '\0')}) {
        EXPECT_THAT(Gather({frame, FrameOf("next")}), ElementsAre("(too long)", "next")) << frame;
    }
}

TEST(FrameAssembly, BytesAfterAFrameThatMayBeginTheNextAreKept) {
    const std::string next = FrameOf("next");
    for (std::size_t length = 1; length < next.size(); ++length)
        EXPECT_THAT(Gather({FrameOf("payload") + next.substr(0, length), next.substr(length)}),
                    ElementsAre("payload", "next"))
            << length;
    EXPECT_THAT(Gather({FrameOf("payload") + next.substr(0, 2), "x"}),
                ElementsAre("payload", "(invalid header)"));
}

TEST(FrameAssembly, InvalidBytesInALaterChunkLeaveTheFrameComplete) {
    EXPECT_THAT(Gather({FrameOf("payload"), "x"}), ElementsAre("payload", "(invalid header)"));
}

// Assembles two chunks with each allocation failing in turn. Returns the number of runs.
std::size_t SweepGathering(const std::string& bytes, std::size_t split) {
    const std::string first = bytes.substr(0, split);
    const std::string rest = bytes.substr(split);
    FrameAssembly frame = {};
    FrameState state = kFrameIncomplete;
    const auto body = [&](std::size_t) {
        frame = {};
        for (const std::string* chunk : {&first, &rest}) {
            CFIndex used = 0;
            if (state = kFrameIncomplete; !chunk->empty())
                state = GatherFrame(&frame, reinterpret_cast<const UInt8*>(chunk->data()),
                                    static_cast<CFIndex>(chunk->size()), &used);
            if (state != kFrameIncomplete)
                break;
        }
    };
    return SweepAllocationFaults(body, [&](std::size_t nth, bool happened) {
        EXPECT_EQ(state, happened ? kFrameNoMemory : kFrameComplete) << nth;
        ResetFrameAssembly(&frame);
    });
}

TEST(FrameAssembly, FrameIsLostAndReportedWithoutMemory) {
    for (const std::string& bytes :
         {FrameOf("payload"), HeaderBytes({.headerSize = 0, .dataLength = 15}) + "abc"})
        for (const std::size_t split :
             {bytes.size(), std::size_t{5}, std::size_t{12}, std::size_t{14}})
            EXPECT_GE(SweepGathering(bytes, split), 3u) << bytes << split;
}

// ---- payloads ----

FrameAssembly CompleteFrame(std::string_view payload) {
    const FrameAssembly frame = {CFDataCreateMutable(nullptr, 0), {}, 0};
    CFDataAppendBytes(frame.pendingData, reinterpret_cast<const UInt8*>(payload.data()),
                      static_cast<CFIndex>(payload.size()));
    return frame;
}

// The list of a payload, and the parser's error text.
struct ReadPayload {
    CFOwned<CFPropertyListRef> list;
    std::string error;
};

ReadPayload ReadList(std::string_view payload) {
    FrameAssembly frame = CompleteFrame(payload);
    char* text = nullptr;
    ReadPayload read = {CFOwned(CreatePayloadList(&frame, &text)),
                        text != nullptr ? text : "(none)"};
    free(text);
    ResetFrameAssembly(&frame);
    return read;
}

TEST(FramePayload, PayloadIsReadAsAPropertyList) {
    const auto list = Dictionary({{"command", "eject disc"}, {"Changer GUID", 7}});
    const ReadPayload read = ReadList(XmlOf(list));
    EXPECT_EQ(XmlOf(read.list), XmlOf(list));
    EXPECT_EQ(read.error, "(none)");
}

TEST(FramePayload, InvalidPropertyListFailsWithTheErrorOfTheParser) {
    const ReadPayload read = ReadList("<plist><dict></plist>");
    EXPECT_EQ(read.list, nullptr);
    EXPECT_THAT(read.error, testing::HasSubstr("on line 1"));
    EXPECT_EQ(ReadList("").error, "Cannot parse a NULL or zero-length data");
}

TEST(FramePayload, ListAndErrorTextAreNullWithoutMemory) {
    FrameAssembly frame = CompleteFrame(XmlOf(Dictionary({{"key", "a long enough text"}})));
    CFPropertyListRef list = nullptr;
    char* text = nullptr;
    {
        const AllocationFault fault(1, 100000);
        list = CreatePayloadList(&frame, &text);
    }
    ResetFrameAssembly(&frame);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(text, nullptr);
}

TEST(CreateFrame, FrameIsTheHeaderAndThePayload) {
    const auto payload = Bytes("<xml>");
    const CFOwned frame(CreateFrame(payload));
    const std::string bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(frame)),
                            static_cast<std::size_t>(CFDataGetLength(frame)));
    EXPECT_EQ(bytes, FrameOf("<xml>"));
}

TEST(CreateFrame, FrameIsNullWithoutMemory) {
    const auto payload = Bytes(std::string(1000, 'x'));
    CFDataRef frame = nullptr;
    const std::size_t runs =
        SweepAllocationFaults([&](std::size_t) { frame = CreateFrame(payload); },
                              [&](std::size_t nth, bool happened) {
                                  EXPECT_EQ(frame == nullptr, happened) << nth;
                                  if (frame != nullptr)
                                      CFRelease(frame);
                              });
    EXPECT_GE(runs, 3u);
}

} // namespace
