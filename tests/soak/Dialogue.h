#ifndef TESTS_SOAK_DIALOGUE_H
#define TESTS_SOAK_DIALOGUE_H

#include "Ledger.h"
#include "Performance.h"

#include <string>
#include <vector>

// What is said to one server, and awaited of it and the daemon.
class Dialogue {
public:
    explicit Dialogue(Performance& performance) : performance_(performance) {}

    std::vector<stage::Event> Tell(const std::string& command) const;
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
    void AwaitListing(Place place) const; // of a root that is not cached

    // Waits until no thread of the daemon's works: what a worker does last shows in nothing else.
    void AwaitQuiet() const;

    long CountNotifications() const; // "changer info", of this server

private:
    stage::Simulator& Server() const {
        return performance_.scene.Server();
    }
    void AwaitAnswered(const stage::Event& request) const;
    void AwaitWithdrawalForChanger(int changer, int after) const;

    Performance& performance_;
};

#endif
