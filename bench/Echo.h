#ifndef BENCH_ECHO_H
#define BENCH_ECHO_H

namespace bench {

/* Reads one frame of at most 64 KiB from a client that has connected, writes it back, and waits
   until the client ends the connection. */
void GiveBack(int client);

} // namespace bench

#endif
