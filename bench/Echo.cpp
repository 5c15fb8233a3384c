#include "Echo.h"

#include "Frame.h"

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace bench {

void EchoFrame(int client) {
    std::array<char, 65536> frame;
    std::size_t size = 0;
    std::uint32_t length = 0;
    while (size < kFrameHeader || size < kFrameHeader + length) {
        const ssize_t got = read(client, frame.data() + size, frame.size() - size);
        if (got <= 0)
            return;
        size += static_cast<std::size_t>(got);
        std::memcpy(&length, frame.data() + kFrameHeader - sizeof length, sizeof length);
    }
    if (write(client, frame.data(), size) > 0) {
        while (read(client, frame.data(), frame.size()) > 0) {
        }
    }
}

} // namespace bench
