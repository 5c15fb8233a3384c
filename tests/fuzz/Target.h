#ifndef TESTS_FUZZ_TARGET_H
#define TESTS_FUZZ_TARGET_H

/* What libFuzzer, or RunFiles.cpp in its place, calls in each target. */

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" {
/* Once, before all inputs; see Assertions.cpp. */
int LLVMFuzzerInitialize(int* argc, char*** argv);

/* The target, with one input. It leaves nothing behind: every input finds the same state. */
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

inline std::string_view TextOfInput(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

#endif
