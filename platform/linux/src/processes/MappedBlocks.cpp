/*
 * Which blocks of memory go back to the system as soon as they are freed.
 *
 * glibc gives a large block a mapping of its own, and the rest of the heap back only from its end.
 * How large is large grows with each such block that is freed, up to 32 MiB, and with it what the
 * heap keeps at its end. A list that is read takes many times the memory of what is kept of it: the
 * chunks from the socket, the text, its normal form, the nodes of the parser. All that would stay
 * with the process for good, with what is kept between it. So the size is set here to that of the
 * smallest of these blocks, and stays.
 *
 * This is for the daemon, which reads such lists all its life and waits in between. What is given
 * back must be got again, page by page, which takes about 1 ms for a list of 5,000 discs.
 */

#include <malloc.h>

namespace {

constexpr int kSmallestMapping = 32 * 1024; // pugixml allocates its nodes in blocks of this size

__attribute__((constructor)) void MapBlocksOfReading() {
    mallopt(M_MMAP_THRESHOLD, kSmallestMapping);
}

} // namespace
