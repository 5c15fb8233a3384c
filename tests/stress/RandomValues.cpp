#include "RandomValues.h"

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

namespace {

std::uint32_t g_seed = 0;
std::atomic<std::uint32_t> g_threads = 0;

std::mt19937& Engine() {
    thread_local std::mt19937 engine(g_seed + g_threads++);
    return engine;
}

} // namespace

void random_values::Seed(std::uint32_t seed) {
    g_seed = seed;
}

int random_values::Below(int bound) {
    return std::uniform_int_distribution(0, bound - 1)(Engine());
}

bool random_values::OneIn(int count) {
    return Below(count) == 0;
}

void random_values::Sleep(int mostMicroseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(Below(mostMicroseconds + 1)));
}
