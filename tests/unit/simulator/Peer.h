#ifndef TESTS_PEER_H
#define TESTS_PEER_H

/* A client of the simulator's sockets, for tests: frames and property lists. All calls block. */

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
    // Connects to the socket at `path`; throws std::system_error on failure.
    explicit Peer(const std::string& path);

    // Send all bytes, or a request as a frame; throw std::system_error on failure.
    void Send(std::string_view bytes) const;
    void SendRequest(const Value& request) const;
    // The result of one recv(); empty at the end of the stream or after a reset.
    std::string Receive();
    // The property list of the next frame; none at the end of the stream.
    std::optional<Value> ReceiveValue();
    // Sends a request and returns the code of the reply, without the high word; 0 is success.
    std::int64_t Exchange(const Value& request);

private:
    Descriptor socket_;
    FrameReader reader_;
};

/* Make a request for changer A1: any command for slot 0, a private mount, a private eject. */
Value MakeRequest(const char* command);
Value MakePrivateMount(std::int64_t slot);
Value MakePrivateEject(std::int64_t slot);

} // namespace simulator

#endif
