#ifndef TESTS_SOAK_SOAK_H
#define TESTS_SOAK_SOAK_H

/*
 * The daemon's years in minutes: the real daemon against many servers one after another, all delays
 * at zero. What the servers have recorded at the end is compared with what must have happened by
 * the rules of the daemon:
 *
 * - A notification starts at most one identification in each changer: of the first disc, by slot,
 *   of which one is requested, else, unless the changer's preferences forbid it, of the first that
 *   was never identified; of no disc that is being identified.
 * - It does so when none runs in the changer, or when fewer run than there are drives and fewer
 *   discs are mounted.
 * - An identification is four requests: the disc's request is withdrawn, the disc mounted and
 *   ejected, and its request withdrawn once more. A disc so identified is not wanted any more.
 * - A requested build is the withdrawal of the changer's request, a report without a maximum, one
 *   with the number of discs, one after each disc, a clearing, and a withdrawal again. An abort
 *   stops it on its way back from the next folder.
 * - A changer that the daemon did not know has its status cleared.
 * - A server that is killed in the middle of identifications and builds ends each of them. It is
 *   told once in the log, by its withdrawal that finds no server, and the disc of an identification
 *   is out of reach until another server sends notifications. A disc that this one is asked to have
 *   identified is identified once, and a changer that it is asked to have built is built once.
 *
 * A notification is out of date when it has been overtaken by what it started, and would start it
 * again. So the states in which a disc is wanted are shown one at a time, and the next one when
 * that disc no longer is. All other notifications flow as they like, beside whatever the daemon
 * does.
 *
 * The heap may grow by what the kept lists cost, which a second process tells that keeps the same.
 * What else the daemon touches depends on how much was ever under way at once: how many threads,
 * and how many notifications had been read when the main thread was held up. It may not grow for
 * long.
 */

#include "Memory.h"
#include "Performance.h"
#include "VerdictTable.h"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

class Soak {
public:
    Soak(int lives, bool judgesMemory);

    // True if all is as it must be. Prints its progress, and the table at the end, whatever the
    // end.
    bool Run();

private:
    void PlayOverture();
    void PlayLife(int number);
    void PlayFinale();
    void SayProgress(int number);
    void Judge();
    void JudgeCrashes();
    void JudgeMemory();
    void JudgeGrowth(const std::string& what, long bytes, long most);
    void JudgeTheEnd();
    void PrintLastLines();
    void Complain(const std::vector<std::string>& complaints) const;

    const int lives_;
    const bool judgesMemory_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    Performance performance_;
    Memory memory_;
    Memory::Sample warm_;
    Memory::Sample middle_;
    Memory::Sample last_;
    pid_t lastServer_ = -1;
    long restarts_ = 0;
    long identificationsOfFinale_ = 0;
    bool finalePlayed_ = false;
    VerdictTable table_;
};

#endif
