/* Paths of limited size: truncation, and the slash before a name. */

#include "common/PathBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

const std::string kLongest(kPathSize - 1, 'x');

PathBuffer PathOf(const std::string& text) {
    PathBuffer path;
    std::ranges::fill(path.text, '?');
    SetPath(&path, text.c_str());
    return path;
}

void ExpectPath(const PathBuffer& path, const std::string& text) {
    EXPECT_STREQ(path.text, text.c_str());
    EXPECT_EQ(path.length, text.size());
}

TEST(PathBuffer, TextIsTruncatedTo1023Bytes) {
    ExpectPath(PathOf(""), "");
    ExpectPath(PathOf("a/b"), "a/b");
    ExpectPath(PathOf(kLongest), kLongest);
    ExpectPath(PathOf(kLongest + "y"), kLongest);
}

TEST(PathBuffer, NameIsAppendedBehindExactlyOneSlash) {
    for (const char* before : {"a", "a/"}) {
        PathBuffer path = PathOf(before);
        EXPECT_EQ(AppendToPath(&path, "b"), 2U);
        ExpectPath(path, "a/b");
    }
}

TEST(PathBuffer, NameBehindAnEmptyPathIsBelowTheRoot) {
    PathBuffer path = PathOf("");
    EXPECT_EQ(AppendToPath(&path, "name"), 1U);
    ExpectPath(path, "/name");
}

TEST(PathBuffer, EmptyNameAddsTheSlashAlone) {
    PathBuffer path = PathOf("a");
    EXPECT_EQ(AppendToPath(&path, ""), 2U);
    ExpectPath(path, "a/");
}

TEST(PathBuffer, NameIsTruncatedAt1023BytesOfPath) {
    PathBuffer path = PathOf(kLongest.substr(2));
    EXPECT_EQ(AppendToPath(&path, "yz"), kPathSize - 2);
    ExpectPath(path, kLongest.substr(2) + "/y");

    path = PathOf(kLongest.substr(1));
    EXPECT_EQ(AppendToPath(&path, "y"), kPathSize - 1);
    ExpectPath(path, kLongest.substr(1) + "/");

    path = PathOf(kLongest);
    EXPECT_EQ(AppendToPath(&path, "y"), kPathSize - 1);
    ExpectPath(path, kLongest);
}

TEST(PathBuffer, NameIsAppendedToATruncatedPath) {
    PathBuffer path = PathOf("a/long-name");
    TruncatePath(&path, 1);
    ExpectPath(path, "a");
    AppendToPath(&path, "b");
    ExpectPath(path, "a/b");
}

} // namespace
