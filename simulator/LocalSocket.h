#ifndef SIMULATOR_LOCALSOCKET_H
#define SIMULATOR_LOCALSOCKET_H

/* Local stream sockets: a listening one with a path, and writing to one that may be slow. */

#include "simulator/Descriptor.h"
#include "simulator/Faults.h"

#include <string>
#include <vector>

namespace simulator {

/* Listens at a path, which it replaces if it is there and unlinks when it is closed. */
class ListeningSocket {
public:
    explicit ListeningSocket(std::string path); // throws std::system_error
    ListeningSocket(const ListeningSocket&) = delete;
    ~ListeningSocket();

    int Get() const {
        return socket_.Get();
    }
    // The next client, its socket non-blocking; or an empty descriptor if there is none any more.
    Descriptor Accept() const;

private:
    const std::string path_;
    Descriptor socket_;
};

/* True when the peer has read all that was sent so far, or is gone. */
bool HasPeerReadAll(int socket);

/* What one attempt to send has come to. */
enum class SendResult { Done, Again, Lost };

/* Sends what the kernel takes of a piece now, and removes it from the piece. */
SendResult SendSome(int socket, Piece& piece);

/* Sends everything. False when the peer is gone or the bell rings first. */
bool SendPieces(int socket, std::vector<Piece> pieces, const WakeEvent& stop);

/* Appends what is there to be read, after waiting for it. False at the end of the stream, on an
   error, or when the bell rings first. */
bool ReceiveSome(int socket, std::string& bytes, const WakeEvent& stop);

} // namespace simulator

#endif
