#ifndef TESTS_FAULTS_SWEEPS_WHOLEDAEMON_H
#define TESTS_FAULTS_SWEEPS_WHOLEDAEMON_H

/*
 * The daemon's modules together, from the callbacks down to sockets and files, with the test's
 * server and file system. The daemon's threads run when the test runs them (DeferredThreads.h). An
 * exchange times out at once if all later allocations fail, as no reply could be read.
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

/* The GUID is a number object; the slot's number is stored in the reference itself. */
constexpr UInt64 kSweptChanger = 0x5000C500ABCD1000;
constexpr UInt16 kSweptSlot = 1000;

class WholeDaemon : public Store {
protected:
    WholeDaemon();
    ~WholeDaemon() override;

    // Writes the changer's file system, with its info file and one disc in kSweptSlot.
    void MakeFileSystem() const;
    // Registers the file system as that of kSweptChanger.
    void RegisterFileSystem() const;

    // Checks what holds after every run: no open file, no held mutex; log lines if the work was not
    // done, none without a fault. Returns the log lines.
    std::vector<std::string> ExpectSound(const Fault& fault, bool done);

    ObedientServer server_;
    TemporaryTree tree_;
    // Each call of time() advances the time by 4 s: the daemon retries a disc that it cannot list
    // for ten seconds. No daily timer is due then.
    const FakeTime time_{4'000'000'000, 4};
    DeferredThreads threads_;
};

#endif
