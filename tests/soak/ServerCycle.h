#ifndef TESTS_SOAK_SERVERCYCLE_H
#define TESTS_SOAK_SERVERCYCLE_H

#include "ServerControl.h"
#include "ServerCrash.h"
#include "SoakContext.h"

#include <set>
#include <string>
#include <vector>

/* Counts of one server cycle, and the intervals between builds, aborts and crashes. */
inline constexpr int kNotificationsPerCycle = 100;
inline constexpr int kIdentificationsPerCycle = 10;
inline constexpr int kCyclesPerBuild = 2;
inline constexpr int kBuildsPerAbort = 3;
inline constexpr int kCyclesPerCrash = 10;
inline constexpr int kFirstCrashCycle = 5;

/* The command that schedules a changer's daily build twelve hours from now: every notification sets
   the timer, and the build does not start during the soak. */
std::string DailyBuildCommand(int changer);

/* One server from start to end, and the work that it gives to the daemon. The number of the cycle
   selects the changers and discs, so all of them take part in turn. */
class ServerCycle {
public:
    ServerCycle(SoakContext& context, int number);

    void Run();

    // Instead of Run(), after all other cycles: identifies every disc once more and builds every
    // changer. A disc or changer that is still marked as in progress would never be picked.
    void RunShutdown();

    // Adds the server's requests and identifications to the observed counts.
    void Count();

    // Ends the server regularly or by SIGKILL, when idle or during work.
    void Stop();

private:
    // Two discs of one changer; the second identification starts while the first one runs.
    struct DiscPair {
        Place first;
        Place second;
        bool isSecondNew; // inserted and never identified; otherwise it is requested, too
    };

    int ChangerAt(int position) const {
        return (number_ + position) % kChangers;
    }
    int SlotAt(int position) const {
        return (number_ / kChangers + position) % kDiscs;
    }
    std::vector<DiscPair> ChoosePairs() const;

    void Start(const std::set<Place>& newDiscs);
    void AddChanger(int changer, const std::set<Place>& newDiscs);
    void IdentifyPairs(const std::vector<DiscPair>& pairs);
    void AwaitNewChangers();
    void Remount(int changer);
    void IdentifyDuringBuild();
    void SendRemainingNotifications();
    void AwaitCompletedBuild(int changer);
    void BlockAndAbortBuild(int changer);
    void AwaitAbortedBuild(int changer);
    void IdentifyLastDisc();
    void RequestIdentification(Place place);
    void IdentifyEveryDisc();
    void BuildEveryChanger();

    SoakContext& context_;
    ServerControl control_;
    const int number_;
    const bool hasBuild_ = number_ % kCyclesPerBuild == 0;
    const bool hasAbort_ =
        hasBuild_ && number_ / kCyclesPerBuild % kBuildsPerAbort == kBuildsPerAbort - 1;
    const bool hasCrash_ = number_ % kCyclesPerCrash == kFirstCrashCycle;
    ServerCrash crash_;
    bool isInterrupted_ = false;
};

#endif
