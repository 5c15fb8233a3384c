#ifndef TESTS_STRESS_RANDOMVALUES_H
#define TESTS_STRESS_RANDOMVALUES_H

/* Random values. All sequences derive from one seed; each thread has its own sequence. */

#include <cstdint>

namespace random_values {

/* Sets the seed. Call before any other function. */
void Seed(std::uint32_t seed);

/* Returns a value from 0 to bound - 1. */
int Below(int bound);
/* Returns true with probability 1 / count. */
bool OneIn(int count);
/* Sleeps for a random time of at most so many microseconds. */
void Sleep(int mostMicroseconds);

} // namespace random_values

#endif
