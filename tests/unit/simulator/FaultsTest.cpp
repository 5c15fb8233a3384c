#include "simulator/Faults.h"

#include "simulator/Frame.h"
#include "simulator/Words.h"

#include <gtest/gtest.h>

#include <string>

namespace simulator {
namespace {

Value MakeReply() {
    Value reply = Value::MakeDictionary();
    reply.Set("mount path", "/mnt/disc").Set("error code", 0);
    return reply;
}

std::string Encode(const Fault& fault) {
    std::string bytes;
    for (const Piece& piece : EncodeWithFault(MakeReply(), fault))
        bytes += piece.bytes;
    return bytes;
}

TEST(FaultsTest, FirstMatchingRuleIsUsedUntilItsCountIsZero) {
    Faults faults;
    faults.Add({"mount disc", {.kind = FaultKind::Close}, 2});
    faults.Add({"request", {.kind = FaultKind::Silence}, {}});
    EXPECT_EQ(faults.Take({"eject disc", "request"})->kind, FaultKind::Silence);
    EXPECT_EQ(faults.Take({"mount disc", "request"})->kind, FaultKind::Close);
    EXPECT_EQ(faults.Take({"mount disc", "request"})->kind, FaultKind::Close);
    EXPECT_EQ(faults.Take({"mount disc", "request"})->kind, FaultKind::Silence);
    EXPECT_FALSE(faults.Take({"notification"}));
    EXPECT_EQ(faults.List().size(), 1u);
    faults.Clear();
    EXPECT_FALSE(faults.Take({"request"}));
}

TEST(FaultsTest, FaultNamesParseToTheSameKind) {
    for (const auto kind : {FaultKind::Error, FaultKind::WrongRoot, FaultKind::Raw})
        EXPECT_EQ(ParseFaultName(FaultName(kind)), kind);
    EXPECT_EQ(FaultName(FaultKind::Raw), "raw");
    EXPECT_THROW(ParseFaultName("jam"), CommandError);
}

TEST(FaultsTest, FrameWithoutFaultIsUndamaged) {
    const auto pieces = EncodeWithFault(MakeReply(), {});
    ASSERT_EQ(pieces.size(), 1u);
    EXPECT_EQ(pieces[0].bytes, EncodeFrame(MakeReply().ToXml()));
    EXPECT_FALSE(pieces[0].alone);
}

TEST(FaultsTest, HeaderFaultsChangeSignatureAndHeaderSize) {
    EXPECT_EQ(Encode({.kind = FaultKind::Signature}).substr(0, 4), "hSig");
    FrameReader reader;
    reader.Append(Encode({.kind = FaultKind::HeaderSize, .size = 31}));
    EXPECT_EQ(reader.TakePayload(), MakeReply().ToXml());
}

TEST(FaultsTest, PayloadFaultsChangeThePropertyList) {
    const auto decode = [](const Fault& fault) {
        FrameReader reader;
        reader.Append(Encode(fault));
        return Value::ParseXml(reader.TakePayload().value());
    };
    EXPECT_THROW(decode({.kind = FaultKind::Malformed}), ValueError);
    EXPECT_FALSE(decode({.kind = FaultKind::WrongRoot}).IsDictionary());
    EXPECT_EQ(decode({.kind = FaultKind::WrongTypes}).Describe("error code"), "not a number");
    EXPECT_EQ(decode({.kind = FaultKind::Huge, .size = 5000}).FindString("padding")->size(), 5000u);
    EXPECT_EQ(decode({.kind = FaultKind::Huge, .size = 1}).FindString("mount path"), "/mnt/disc");
}

TEST(FaultsTest, StreamFaultsSplitRepeatExtendAndReplaceTheFrame) {
    const std::string frame = EncodeFrame(MakeReply().ToXml());
    EXPECT_EQ(Encode({.kind = FaultKind::Glued}), frame + frame);
    EXPECT_EQ(Encode({.kind = FaultKind::Extra}), frame + 'x');
    EXPECT_EQ(Encode({.kind = FaultKind::Raw, .raw = "rubbish"}), "rubbish");

    const auto pieces = EncodeWithFault(MakeReply(), Fault{.kind = FaultKind::Split, .size = 7});
    EXPECT_EQ(pieces.size(), (frame.size() + 6) / 7);
    EXPECT_EQ(pieces.front().bytes, frame.substr(0, 7));
    EXPECT_TRUE(pieces.back().alone);
    EXPECT_EQ(Encode({.kind = FaultKind::Split, .size = 7}), frame);
}

} // namespace
} // namespace simulator
