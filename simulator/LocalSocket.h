#ifndef SIMULATOR_LOCALSOCKET_H
#define SIMULATOR_LOCALSOCKET_H

/* Stream sockets of the Unix domain: listening, sending and receiving. */

#include "simulator/Descriptor.h"
#include "simulator/Faults.h"

#include <string>
#include <vector>

namespace simulator {

/* Listens at a path. Replaces an existing file there; the destructor unlinks the path. */
class ListeningSocket {
public:
    // Throws std::system_error if the socket cannot be created, bound or listened on.
    explicit ListeningSocket(std::string path);
    ListeningSocket(const ListeningSocket&) = delete;
    ~ListeningSocket();

    // The descriptor for poll(), owned by the object.
    int Get() const {
        return socket_.Get();
    }
    // Accepts the next client, as a non-blocking socket; an empty descriptor if no client waits.
    // If no descriptor is free, waits 10 milliseconds, since the client stays pending.
    Descriptor Accept() const;

private:
    const std::string path_;
    Descriptor socket_;
};

/* True if the peer has read everything that was sent, or has closed the connection. */
bool HasPeerReadAll(int socket);

/* The result of one attempt: the piece is sent, a part remains, or the connection is lost. */
enum class SendResult { Done, Again, Lost };

/* Sends as much of `piece` as the kernel accepts without blocking, and removes it from `piece`. */
SendResult SendSome(int socket, Piece& piece);

/* Sends all pieces; blocks. False if the connection is lost or `stop` is signalled before the end.
 */
bool SendPieces(int socket, std::vector<Piece> pieces, const WakeEvent& stop);

/* Blocks until bytes arrive and appends them to `bytes`. False at the end of the stream, on an
   error, or if `stop` is signalled first. */
bool ReceiveSome(int socket, std::string& bytes, const WakeEvent& stop);

} // namespace simulator

#endif
