#ifndef BENCH_ECHO_H
#define BENCH_ECHO_H

namespace bench {

/* Reads one frame of at most 64 KiB from a connected client, writes it back, and waits until the
   client closes the connection. Returns without a reply if the client closes earlier. */
void EchoFrame(int client);

} // namespace bench

#endif
