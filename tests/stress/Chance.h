#ifndef TESTS_STRESS_CHANCE_H
#define TESTS_STRESS_CHANCE_H

/* Chance, from one seed for the whole run: each thread draws a sequence of its own. */

#include <cstdint>

namespace chance {

/* Before any thread draws. */
void Seed(std::uint32_t seed);

/* 0 to bound - 1. */
int Below(int bound);
bool OneIn(int count);
/* Lets others run, for so many microseconds at most. */
void Pause(int mostMicroseconds);

} // namespace chance

#endif
