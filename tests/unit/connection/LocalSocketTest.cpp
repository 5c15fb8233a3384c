/* The address of a local socket, byte for byte. */

#include "ChangerServerConnectionLib/LocalSocket.h"

#include "AllocationFaults.h"
#include "support/CFOwned.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace {

int g_releasedNull;

} // namespace

extern "C" {
void __real_CFRelease(CFTypeRef object);

// On a Mac, releasing NULL ends the process.
void __wrap_CFRelease(CFTypeRef object) {
    g_releasedNull += object == nullptr ? 1 : 0;
    __real_CFRelease(object);
}
}

namespace {

std::string AddressBytes(const std::string& path) {
    const CFOwned address(CreateLocalSocketAddress(path.c_str()));
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(address)),
            static_cast<std::size_t>(CFDataGetLength(address))};
}

TEST(LocalSocketAddress, HasLengthFamilyAndPath) {
    EXPECT_EQ(kLocalSocketPathSize, 104u);
    std::string expected = std::string("\x6A\x01") + "/tmp/socket";
    expected.resize(106);
    EXPECT_EQ(AddressBytes("/tmp/socket"), expected);
}

TEST(LocalSocketAddress, TruncatesALongPathAndTerminatesIt) {
    const std::string path(200, 'p');
    EXPECT_EQ(AddressBytes(path), "\x6A\x01" + path.substr(0, 103) + '\0');
}

TEST(LocalSocketAddress, IsNullWithoutMemory) {
    const AllocationFault fault(1);
    EXPECT_EQ(CreateLocalSocketAddress("/tmp/socket"), nullptr);
}

TEST(LocalSocket, ClosingANullSocketReleasesNothing) {
    g_releasedNull = 0;
    CloseLocalSocket(nullptr);
    EXPECT_EQ(g_releasedNull, 0);
}

} // namespace
