#ifndef TESTS_PEER_H
#define TESTS_PEER_H

/* The other end of the simulator's sockets, for tests: speaks frames and property lists. */

#include "simulator/Descriptor.h"
#include "simulator/Frame.h"
#include "simulator/Values.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace simulator {

class Peer {
public:
    explicit Peer(const std::string& path); // throws std::system_error

    void Send(std::string_view bytes) const;
    void SendRequest(const Value& request) const;
    // What the next read gives; empty at the end of the stream or after a reset.
    std::string Receive();
    // The next frame's dictionary; none at the end of the stream.
    std::optional<Value> ReceiveValue();
    // The whole exchange; the reply's code without the facility's high word.
    std::int64_t Exchange(const Value& request);

private:
    Descriptor socket_;
    FrameReader reader_;
};

/* A request about slot 0 of the changer A1. */
Value MakeRequest(const char* command);
Value MakePrivateMount(std::int64_t slot);
Value MakePrivateEject(std::int64_t slot);

} // namespace simulator

#endif
