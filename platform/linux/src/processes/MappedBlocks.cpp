/*
 * The size from which blocks of memory go back to the system as soon as they are freed.
 *
 * glibc gives a large block a mapping of its own; the rest of the heap goes back only from its end.
 * "Large" is 128 KiB at the start, grows with each such block that is freed, up to 32 MiB, and with
 * it what the heap keeps at its end. A list that is read takes many times the memory of what is
 * kept of it: the chunks from the socket, the frame, the text. All that would stay with the process
 * for good, with what is kept between it. Setting the size, here to what it is at the start, keeps
 * it from growing.
 *
 * A smaller size costs more than it gives: each directory that is open has a buffer of 32 KiB, and
 * with a mapping for each of them a walk takes 1.4 times as long.
 */

#include <malloc.h>

namespace {

constexpr int kSmallestMapping = 128 * 1024;

__attribute__((constructor)) void MapBlocksOfReading() {
    mallopt(M_MMAP_THRESHOLD, kSmallestMapping);
}

} // namespace
