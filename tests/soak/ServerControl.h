#ifndef TESTS_SOAK_SERVERCONTROL_H
#define TESTS_SOAK_SERVERCONTROL_H

#include "CountComparison.h"
#include "SoakContext.h"

#include <string>
#include <vector>

/* Sends commands to the current server and waits for its events. A wait throws testbed::Failure
   after testbed::kTimeOut. */
class ServerControl {
public:
    explicit ServerControl(SoakContext& context) : context_(context) {}

    // Execute a command. DoForSlot() inserts the arguments "changer" and "slot" of `place`.
    std::vector<testbed::Event> Do(const std::string& command) const;
    void DoForSlot(Place place, const std::string& command) const;

    // Sends the current state to the daemon once, while notifications are paused.
    void SendStateOnce() const;

    void AwaitSubscriber() const;
    void AwaitFileSystemRegistered(int changer) const;
    void AwaitStatusCleared(int changer) const; // the daemon clears the status of a new changer
    void AwaitIdentified(Place place) const;
    void AwaitEndOfIdentification(Place place) const;
    void AwaitStartOfBuild(int changer) const;
    void AwaitEndOfBuild(int changer) const;
    void AwaitPendingRequest() const; // one that gets no reply because of a fault

    // Loads a disc into each drive as a user does, requests a build of the changer, and waits until
    // the build has listed these discs and waits for a drive.
    void BlockBuild(int changer) const;

    // Waits until the daemon uses no more resources than in the idle state; throws
    // testbed::Failure if it does not. No event marks the end of a worker thread.
    void AwaitIdle() const;

    long CountNotifications() const; // "changer info" notifications of this server

private:
    testbed::Simulator& Server() const {
        return context_.run.Server();
    }
    void AwaitConnectionClosed(const testbed::Event& request) const;
    void AwaitWithdrawalForChanger(int changer, int after) const;
    testbed::Event AwaitStatus(int changer, const std::string& key, const std::string& value) const;

    SoakContext& context_;
};

#endif
