#include "simulator/Frame.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace simulator {
namespace {

TEST(FrameTest, EncodedHeaderHasTheBytesOfTheWireFormat) {
    const std::string frame = EncodeFrame("abc");
    ASSERT_EQ(frame.size(), 15u);
    EXPECT_EQ(frame.substr(0, 4), "giSh"); // 0x68536967, least significant byte first
    EXPECT_EQ(frame.substr(4, 4), std::string("\0\0\x0C\0", 4));
    EXPECT_EQ(frame.substr(8), std::string("\x03\0\0\0abc", 7));
}

TEST(FrameTest, OnlyHeaderSizesAboveTwelveArePadded) {
    EXPECT_EQ(EncodeFrame("abc", {.headerSize = 20}).size(), 23u);
    EXPECT_EQ(EncodeFrame("abc", {.headerSize = 4}).size(), 15u);
}

TEST(FrameReaderTest, FramesSentByteByByteAreReassembled) {
    FrameReader reader;
    const std::string stream = EncodeFrame("one") + EncodeFrame("") + EncodeFrame("two");
    std::vector<std::string> payloads;
    for (const char byte : stream) {
        reader.Append({&byte, 1});
        while (const auto payload = reader.TakePayload())
            payloads.push_back(*payload);
    }
    EXPECT_EQ(payloads, (std::vector<std::string>{"one", "", "two"}));
}

TEST(FrameReaderTest, TwoFramesInOneChunkAreReturnedSeparately) {
    FrameReader reader;
    reader.Append(EncodeFrame("one") + EncodeFrame("two") + "gi");
    EXPECT_EQ(reader.TakePayload(), "one");
    EXPECT_EQ(reader.TakePayload(), "two");
    EXPECT_EQ(reader.TakePayload(), std::nullopt);
}

TEST(FrameReaderTest, PayloadBeginsAtTheHeaderSize) {
    FrameReader reader;
    reader.Append(EncodeFrame("abc", {.headerSize = 40}));
    EXPECT_EQ(reader.TakePayload(), "abc");
}

TEST(FrameReaderTest, WrongSignatureOrShortHeaderThrows) {
    for (const std::string& frame :
         {EncodeFrame("abc", {.signature = 0x67695368}), EncodeFrame("abc", {.headerSize = 11})}) {
        FrameReader reader;
        reader.Append(frame);
        EXPECT_THROW(reader.TakePayload(), FrameError) << frame;
    }
}

TEST(FrameReaderTest, HeaderWithTooLongPayloadThrowsBeforeThePayload) {
    FrameReader reader;
    reader.Append(EncodeFrame(std::string(FrameReader::kMaximumPayload + 1, 'x')).substr(0, 12));
    EXPECT_THROW(reader.TakePayload(), FrameError);
}

} // namespace
} // namespace simulator
