#include "TestObjects.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <string_view>

namespace {

const UInt8* BytesOf(std::string_view text) {
    return reinterpret_cast<const UInt8*>(text.data());
}

std::string_view Content(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

void Append(CFMutableDataRef data, std::string_view text) {
    CFDataAppendBytes(data, BytesOf(text), static_cast<CFIndex>(text.size()));
}

TEST(Data, IsACopyOfTheBytes) {
    char bytes[] = "abc";
    const CFOwned<CFDataRef> data(CFDataCreate(nullptr, BytesOf(bytes), 3));
    bytes[0] = '#';
    EXPECT_EQ(Content(data), "abc");
}

TEST(Data, EmptyHasAnAddress) {
    const CFOwned<CFDataRef> immutable(CFDataCreate(nullptr, nullptr, 0));
    const CFOwned<CFMutableDataRef> growing(CFDataCreateMutable(nullptr, 0));
    EXPECT_NE(CFDataGetBytePtr(immutable), nullptr);
    EXPECT_NE(CFDataGetBytePtr(growing), nullptr);
    EXPECT_EQ(CFDataGetLength(immutable), 0);
    EXPECT_TRUE(CFEqual(immutable, growing));
}

TEST(Data, RefusesImpossibleLengths) {
    EXPECT_EQ(CFDataCreate(nullptr, BytesOf("x"), -1), nullptr);
    EXPECT_EQ(CFDataCreate(nullptr, nullptr, 1), nullptr);
}

TEST(MutableData, GrowsByAppending) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string part = std::to_string(i);
        Append(data, part);
        expected += part;
    }
    EXPECT_EQ(Content(data), expected);
}

TEST(MutableData, AppendBeyondTheCapacityIsIgnored) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 5));
    Append(data, "abc");
    Append(data, "def");
    EXPECT_EQ(Content(data), "abc");
    Append(data, "de");
    EXPECT_EQ(Content(data), "abcde");
    const CFOwned oneByte(CFDataCreateMutable(nullptr, 1));
    Append(oneByte, "a");
    Append(oneByte, "b");
    EXPECT_EQ(Content(oneByte), "a");
}

TEST(MutableData, InvalidAppendIsIgnored) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    Append(data, "abc");
    CFDataAppendBytes(data, BytesOf("x"), -1);
    CFDataAppendBytes(data, BytesOf("x"), std::numeric_limits<CFIndex>::min());
    CFDataAppendBytes(data, nullptr, 1);
    EXPECT_EQ(Content(data), "abc");
}

TEST(Data, ImmutableIgnoresAppend) {
    const CFOwned data = Bytes("abc");
    Append(const_cast<CFMutableDataRef>(CFDataRef{data}), "def");
    EXPECT_EQ(Content(data), "abc");
}

TEST(Data, EqualsByContent) {
    const CFOwned data = Bytes("abc");
    const CFOwned other = Bytes("abd");
    const CFOwned<CFMutableDataRef> growing(CFDataCreateMutable(nullptr, 0));
    Append(growing, "abc");
    EXPECT_TRUE(CFEqual(data, growing));
    EXPECT_EQ(cf::Hash(cf::AsObject(CFDataRef{data})),
              cf::Hash(cf::AsObject(CFMutableDataRef{growing})));
    EXPECT_FALSE(CFEqual(data, other));
    EXPECT_FALSE(CFEqual(data, CFSTR("abc")));
}

TEST(Data, OtherObjectsAreEmptyDataThatIgnoreAppend) {
    for (const CFTypeRef object : {CFTypeRef{CFSTR("abc")}, CFTypeRef{nullptr}}) {
        auto* disguised = static_cast<CFMutableDataRef>(const_cast<void*>(object));
        EXPECT_EQ(CFDataGetLength(disguised), 0);
        EXPECT_EQ(CFDataGetBytePtr(disguised), nullptr);
        Append(disguised, "x");
    }
}

} // namespace
