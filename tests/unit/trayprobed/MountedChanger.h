#ifndef TESTS_UNIT_TRAYPROBED_MOUNTEDCHANGER_H
#define TESTS_UNIT_TRAYPROBED_MOUNTEDCHANGER_H

/* A known changer whose file system is a temporary tree, not mounted before Mount(). */

#include "DeferredThreads.h"
#include "FakeCommands.h"
#include "FileSystemSeams.h"
#include "Journal.h"
#include "Store.h"
#include "support/TemporaryTree.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/ChangerFSCacheThread.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

constexpr const char* kWalkSource = "trayprobed/ChangerFSCacheThread";

/* Entries of the journal: the status of a full build. */
constexpr const char* kClear = "clear 9EDCBA9876543210 trayprobed";
inline std::string Show(int current, int maximum) {
    return "show 9EDCBA9876543210 trayprobed \"Building changer directory cache\" " +
           std::to_string(current) + "/" + std::to_string(maximum);
}

class MountedChanger : public Store {
protected:
    MountedChanger() : seams_(tree_.Root()) {
        EXPECT_EQ(InitChangerFSCacheState(), nullptr);
        AddChanger(kChanger);
        FakeCommands::Reset();
        Journal::Take();
    }
    ~MountedChanger() override {
        EXPECT_FALSE(StateLock::IsHeld());
        TermChangerFSCacheState();
        FakeCommands::Reset();
    }

    void Mount() const {
        Mount(tree_.Root());
    }
    static void Mount(const std::string& path) {
        EXPECT_EQ(TakeChain(AddChangerFSToList(kChanger, "sr0", path.c_str())), Chain());
    }
    void MakeMediaRoot(std::string_view directory, int storageElem = 5) const {
        tree_.MakeMediaRoot(directory, kChanger, storageElem);
    }
    static void SetAbort(SInt32 shouldAbort) {
        EXPECT_EQ(TakeChain(SetChangerShouldAbortOperation(kChanger, shouldAbort)), Chain());
    }
    // Walks the whole tree; nothing is reported without a report.
    Chain Walk(SInt32 descend = 1, FSCacheStatusReport* report = nullptr) const {
        return TakeChain(CacheFSDirectory(kChanger, tree_.Root().c_str(), descend, report));
    }
    // Calls act() before the listing of `path`, relative to the root: "./a/b".
    void AtListingOf(const std::string& path, const std::function<void()>& act) {
        seams_.onListing = [=](const std::string& listed) {
            if (listed == path)
                act();
        };
    }
    // Calls act() before the nth listing from now.
    void AtListing(std::size_t nth, const std::function<void()>& act) {
        seams_.onListing = [=, listed = std::size_t{0}](const std::string&) mutable {
            if (++listed == nth)
                act();
        };
    }
    std::string LoggedPath(const std::string& relative) const {
        return "\"" + tree_.Root() + relative + "\"";
    }
    // The log line of a directory, relative to the root, that could not be listed.
    std::string ListingFailure(const std::string& directory, int error,
                               const char* function = "CacheFSDirectory") const {
        return std::string("ChangerFSCacheThread:123, ") + function + ": fail scandir on " +
               LoggedPath(directory) + " (err = " + std::to_string(error) + ")";
    }

    TemporaryTree tree_;
    FileSystemSeams seams_;
    DeferredThreads threads_;
};

#endif
