#ifndef TESTS_LOOPSLEEP_H
#define TESTS_LOOPSLEEP_H

#include <functional>

/* Calls the function once, on the loop's thread, when a run of a loop has nothing more to do and
   is about to sleep. */
void AtNextSleep(std::function<void()> function);

/* The same on a thread of its own, which has ended when the loop goes to sleep. */
void AtNextSleepElsewhere(std::function<void()> function);

#endif
