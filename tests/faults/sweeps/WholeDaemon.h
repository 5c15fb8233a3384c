#ifndef TESTS_FAULTS_SWEEPS_WHOLEDAEMON_H
#define TESTS_FAULTS_SWEEPS_WHOLEDAEMON_H

/*
 * The daemon's modules all together, from the callbacks down to sockets and files, against a server
 * and a changer file system of the test's own. Only its threads wait to be run by the test
 * (DeferredThreads.h), and a reply is waited for no longer once memory is out for good: nothing
 * that arrives could be read.
 */

#include "FaultSweep.h"
#include "ObedientServer.h"
#include "support/TemporaryTree.h"
#include "trayprobed/DeferredThreads.h"
#include "trayprobed/FakeTime.h"
#include "trayprobed/Store.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

/* A number object, not an integer that a reference holds by itself. */
constexpr UInt64 kSweptChanger = 0x5000C500ABCD1000;
constexpr UInt16 kSweptSlot = 1000;

class WholeDaemon : public Store {
protected:
    WholeDaemon();
    ~WholeDaemon() override;

    // The changer's file system, with its info file and one disc in kSweptSlot.
    void MakeFileSystem() const;
    void RegisterFileSystem() const;

    // What must be true after every run; returns what was logged, which is something if the work
    // was not done, and nothing if nothing has failed.
    std::vector<std::string> ExpectSound(const Fault& fault, bool done);

    // Tells how far a sweep came, which is some way.
    static void Report(const SweptFaults& swept);

    ObedientServer server_;
    TemporaryTree tree_;
    // Passes quickly, for a disc that cannot be listed is looked for again and again, for ten
    // seconds. So late that no daily timer is due.
    const FakeTime time_{4'000'000'000, 4};
    DeferredThreads threads_;
};

#endif
