#include "TestObjects.h"
#include "Urls.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

namespace {

CFOwned<CFURLRef> Url(std::string_view path, bool isDirectory = false) {
    return CFOwned(CreateUrl(path, isDirectory));
}

TEST(Url, PathHasNoTrailingSlash) {
    struct Row {
        std::string_view path;
        const char* expected;
    };
    const Row rows[] = {{"/Volumes/X", "/Volumes/X"},
                        {"/Volumes/X/", "/Volumes/X"},
                        {"/", "/"},
                        {"//", "/"},
                        {"relative", "relative"},
                        {"/not \xFF utf-8", "/not \xFF utf-8"}};
    for (const Row& row : rows) {
        char buffer[64];
        EXPECT_TRUE(CFURLGetFileSystemRepresentation(
            Url(row.path, true), true, reinterpret_cast<UInt8*>(buffer), sizeof buffer));
        EXPECT_STREQ(buffer, row.expected);
    }
}

TEST(Url, FailsWithoutCapacityForTheTerminator) {
    const auto url = Url("/mnt");
    UInt8 buffer[6] = "#####";
    for (CFIndex size = -1; size <= 4; ++size)
        EXPECT_FALSE(CFURLGetFileSystemRepresentation(url, true, buffer, size)) << size;
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "#####");
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(url, true, buffer, 5));
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "/mnt");
}

TEST(Url, CreationFailsForAnEmptyOrMissingPath) {
    EXPECT_EQ(Url(""), nullptr);
    EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(nullptr, nullptr, 4, false), nullptr);
}

TEST(Url, EqualsByPathAndKind) {
    EXPECT_TRUE(CFEqual(Url("/mnt/", true), Url("/mnt", true)));
    EXPECT_FALSE(CFEqual(Url("/mnt", true), Url("/mnt", false)));
    EXPECT_FALSE(CFEqual(Url("/mnt"), Url("/mnt2")));
    EXPECT_EQ(cf::Hash(cf::AsObject(CFURLRef{Url("/mnt", true)})),
              cf::Hash(cf::AsObject(CFURLRef{Url("/mnt/", true)})));
}

TEST(Url, OtherObjectsHaveNoPath) {
    UInt8 buffer[8] = "#";
    for (const CFTypeRef object : {CFTypeRef{CFSTR("/mnt")}, CFTypeRef{nullptr}}) {
        const auto* disguised = static_cast<CFURLRef>(object);
        EXPECT_FALSE(CFURLGetFileSystemRepresentation(disguised, true, buffer, sizeof buffer));
    }
    EXPECT_EQ(buffer[0], '#');
}

} // namespace
