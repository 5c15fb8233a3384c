#ifndef TESTS_UNIT_TRAYPROBED_EXPLOREINTERLEAVINGS_H
#define TESTS_UNIT_TRAYPROBED_EXPLOREINTERLEAVINGS_H

/*
 * Threads that run one step at a time, in every order that there is.
 *
 * Of the threads that take part only one runs at any moment, up to its next step: the locking of a
 * mutex that it does not hold, the copying of a changer's state, or the storing of one. There it
 * stops, and one of those that can go on is chosen; who waits for a mutex cannot. Once all have
 * ended, everything is run again with the last choice for which there was another one changed, and
 * so on until no choice is left: a search in depth of all orders.
 *
 * What a thread does between two steps nobody else sees, so that no other place to stop would lead
 * to anything new. Unlocking needs none for the same reason: what it lets happen is the next step
 * of somebody else.
 */

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

struct Scenario {
    std::function<void()> prepare; // threads started here take part
    std::vector<std::function<void()>> threads;
    // When this is set, threads started by these do not take part; they run after it was called.
    std::function<void()> checkBeforeStarted;
    std::function<void()> check;
};

/* What a search covered. Threads are numbered as they were started, from 0. */
struct ExploredOrders {
    std::size_t count = 0;
    std::set<std::vector<std::size_t>> endings; // the orders in which the threads ended
    std::set<std::string> steps; // of "lock", "copy" and "store", those that occurred
};

/* Runs the scenario in every order. Ends the process if threads wait for each other, or if a thread
   behaves differently in the same order. */
ExploredOrders RunInEveryOrder(const Scenario& scenario);

/* The number of threads that were started by others than the scenario since its run began. */
std::size_t CountStartedThreads();

#endif
