#ifndef TESTS_UNIT_TRAYPROBED_EXPLOREINTERLEAVINGS_H
#define TESTS_UNIT_TRAYPROBED_EXPLOREINTERLEAVINGS_H

/*
 * Runs threads one step at a time, in every possible order.
 *
 * One participating thread runs at a time, up to its next step: locking a mutex that the thread
 * does not hold, copying a changer's state, or storing one. There the thread stops, and a thread
 * that does not wait for a mutex is chosen to continue. When all threads have ended, the run is
 * repeated with the next alternative of the last choice that has one: a depth-first search of all
 * orders.
 *
 * Work between two steps is invisible to other threads, so stops elsewhere would add no result.
 * Unlocking is no step, because its effect appears in the next step of another thread.
 */

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

struct Scenario {
    std::function<void()> prepare; // threads started here participate
    std::vector<std::function<void()>> threads;
    // If set, threads that `threads` start do not participate: they run after this call.
    std::function<void()> checkBeforeStarted = nullptr;
    std::function<void()> check;
};

/* What a search covered. Threads are numbered from 0 in the order of their start. */
struct ExploredOrders {
    std::size_t count = 0;
    std::set<std::vector<std::size_t>> endings; // the orders in which the threads ended
    std::set<std::string> steps; // of "lock", "copy" and "store", those that occurred
};

/* Runs the scenario in every order. Ends the process if threads wait for each other, or if a thread
   behaves differently in the same order. */
ExploredOrders RunInEveryOrder(const Scenario& scenario);

/* The number of threads that the code under test has started in the present run. */
std::size_t CountStartedThreads();

#endif
