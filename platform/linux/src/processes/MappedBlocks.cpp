/*
 * Which blocks of memory go back to the system as soon as they are freed.
 *
 * glibc gives a large block a mapping of its own, and the rest of the heap back only from its end.
 * How large is large grows with each such block that is freed, up to 32 MiB, and with it what the
 * heap keeps at its end. A list that is read takes many times the memory of what is kept of it: the
 * chunks from the socket, the text, the form that is parsed. All that would stay with the process
 * for good, with what is kept between it. So the size is set here to that of a chunk, and stays.
 *
 * This is for the daemon, which reads such lists all its life and waits in between. A page that is
 * given back must be got again with the next list, which takes about a third more time.
 */

#include <malloc.h>

namespace {

constexpr int kSmallestMapping = 64 * 1024; // of the sockets' chunks (InboundStream.cpp)

__attribute__((constructor)) void MapBlocksOfChunkSize() {
    mallopt(M_MMAP_THRESHOLD, kSmallestMapping);
}

} // namespace
