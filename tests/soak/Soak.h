#ifndef TESTS_SOAK_SOAK_H
#define TESTS_SOAK_SOAK_H

/*
 * A long test of one daemon: it runs against many servers, one after another, with all delays at
 * zero. At the end the observed counts of the servers are compared with the counts that the rules
 * of the daemon require:
 *
 * - A notification starts at most one identification in each changer: of the first requested disc
 *   in slot order, otherwise (unless the preferences of the changer forbid it) of the first disc
 *   that was never identified. A disc that is being identified is not picked.
 * - It starts one if none runs in the changer, or if fewer identifications run than there are
 *   drives and fewer discs are mounted.
 * - An identification is four requests: withdraw the disc's request, mount, eject, withdraw again.
 * - A requested build is: withdraw the changer's request, a status without maximum, a status with
 *   the number of discs, a status after each disc, clear the status, withdraw again. An abort ends
 *   the build when the walk leaves its next folder.
 * - The daemon clears the status of a changer that is new to it.
 * - A server that is killed during identifications and builds ends each of them. The daemon logs
 *   one failed withdrawal for each. The disc of an identification stays in progress until another
 *   server sends notifications. When that server requests the disc or the changer again, it is
 *   identified or built once.
 *
 * A notification is stale when its identification has already started; it would start the same
 * identification again. Therefore each state with a requested disc is sent once, and the next state
 * only after the disc has been identified. All other notifications are sent without
 * synchronisation.
 *
 * The heap may grow by the size of the lists that the daemon never frees, which a second process
 * measures (MemorySampler.h). Other memory depends on the largest number of concurrent threads and
 * pending notifications, so it must stop growing.
 */

#include "MemorySampler.h"
#include "ResultTable.h"
#include "SoakContext.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

class Soak {
public:
    // `checksMemory`: compare the memory growth with its limits. Not possible with a sanitizer.
    Soak(int cycles, bool checksMemory);

    // Returns true if every check passed. Prints progress, and the result table in any case.
    bool Run();

private:
    void RunWarmUp();
    void RunCycle(int number);
    void RunShutdown();
    void PrintProgress(int number);
    void Evaluate();
    void EvaluateCrashes();
    void EvaluateMemory();
    void EvaluateGrowth(const std::string& what, long bytes, long most);
    void EvaluateEnd();
    void PrintLastLines();

    const int cycles_;
    const bool checksMemory_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    SoakContext context_;
    MemorySampler sampler_;
    MemorySampler::Sample warmedUp_;
    MemorySampler::Sample middle_;
    MemorySampler::Sample last_;
    pid_t lastServer_ = -1;
    long restarts_ = 0;
    long shutdownIdentifications_ = 0;
    bool hasShutDown_ = false;
    ResultTable table_;
};

#endif
