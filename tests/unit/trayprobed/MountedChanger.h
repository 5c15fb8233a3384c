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

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <string_view>

constexpr const char* kWalkSource = "trayprobed/ChangerFSCacheThread";

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
    // Walks the whole tree; without a status nothing is reported.
    Chain Walk(SInt32 descend = 1, FSCacheStatusReport* status = nullptr) const {
        return TakeChain(CacheFSDirectory(kChanger, tree_.Root().c_str(), descend, status));
    }
    std::string LoggedPath(const char* relative) const {
        return "\"" + tree_.Root() + relative + "\"";
    }

    TemporaryTree tree_;
    FileSystemSeams seams_;
    DeferredThreads threads_;
};

#endif
