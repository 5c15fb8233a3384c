#include "TestObjects.h"

#include <gtest/gtest.h>

namespace {

TEST(NullArguments, TypeIdOfNullIsZero) {
    EXPECT_EQ(CFGetTypeID(nullptr), 0U);
}

TEST(NullArguments, GetCharactersIgnoresNullBuffer) {
    CFStringGetCharacters(CFSTR("abc"), {0, 3}, nullptr);
}

TEST(NullArguments, GetCharactersOfNonStringWritesNothing) {
    UniChar characters[] = {'a', 'b'};
    CFStringGetCharacters(nullptr, {0, 1}, characters);
    CFStringGetCharacters(static_cast<CFStringRef>(static_cast<CFTypeRef>(kCFNull)), {0, 1},
                          characters);
    EXPECT_EQ(characters[0], 'a');
    EXPECT_EQ(characters[1], 'b');
}

TEST(NullArguments, PathIntoNullBufferFails) {
    const auto* path = reinterpret_cast<const UInt8*>("/mnt");
    const CFOwned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(nullptr, path, 4, true));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url, true, nullptr, 100));
}

} // namespace
