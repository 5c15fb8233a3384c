/*
 * Sets the size from which malloc() maps blocks of their own, which return to the system when
 * freed.
 *
 * glibc maps a large block separately; the rest of the heap shrinks only from its end. "Large" is
 * 128 KiB at first. Each freed mapping raises that threshold, up to 32 MiB, and with it the memory
 * that the heap keeps at its end. Reading a list takes many times the memory of the result: chunks
 * from the socket, the frame, the text. With a raised threshold that memory stays in the heap for
 * good, between the blocks that remain in use. Setting the threshold, here to its first value,
 * keeps it constant.
 *
 * A lower threshold costs more than it saves: each open directory has a buffer of 32 KiB, and with
 * a mapping for each buffer a walk takes 1.4 times as long.
 */

#include <malloc.h>

namespace {

constexpr int kMappingThreshold = 128 * 1024;

__attribute__((constructor)) void SetMappingThreshold() {
    mallopt(M_MMAP_THRESHOLD, kMappingThreshold);
}

} // namespace
