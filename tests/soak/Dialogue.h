#ifndef TESTS_SOAK_DIALOGUE_H
#define TESTS_SOAK_DIALOGUE_H

#include "Ledger.h"
#include "Performance.h"

#include <string>
#include <vector>

/* What is said to one server, and awaited of it and the daemon. */
class Dialogue {
public:
    explicit Dialogue(Performance& performance) : performance_(performance) {}

    std::vector<testbed::Event> Tell(const std::string& command) const;
    void TellAbout(Place place, const std::string& command) const;

    // The daemon sees the present state once; nothing is sent before or after it.
    void ShowOnce() const;

    void AwaitSubscriber() const;
    void AwaitTakenUp(int changer) const;       // the file system
    void AwaitClearedStatus(int changer) const; // as of a changer that is new to the daemon
    void AwaitIdentified(Place place) const;
    void AwaitEndOfIdentification(Place place) const;
    void AwaitBeginningOfBuild(int changer) const;
    void AwaitEndOfBuild(int changer) const;
    void AwaitUnansweredRequest() const; // by a fault of the server

    // Has a changer built, and waits until the build has listed as many discs as there are drives,
    // and waits for the next: a user's discs are these, and fill the drives.
    void HaltABuild(int changer) const;

    // Waits until no thread of the daemon's works: what a worker does last shows in nothing else.
    void AwaitQuiet() const;

    long CountNotifications() const; // "changer info", of this server

private:
    testbed::Simulator& Server() const {
        return performance_.run.Server();
    }
    void AwaitAnswered(const testbed::Event& request) const;
    void AwaitWithdrawalForChanger(int changer, int after) const;
    void AwaitListing(Place place) const;             // of a root that is not cached
    void AwaitProgress(int changer, int discs) const; // reported by a build

    Performance& performance_;
};

#endif
