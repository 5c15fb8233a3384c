#ifndef TESTS_FUZZ_TARGET_H
#define TESTS_FUZZ_TARGET_H

/* The functions of each target that libFuzzer, or RunFiles.cpp in its place, calls. */

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" {
/* Called once before all inputs; see Assertions.cpp. */
int LLVMFuzzerInitialize(int* argc, char*** argv);

/* Runs the target with one input and restores the initial state. */
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

inline std::string_view TextOfInput(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

#endif
