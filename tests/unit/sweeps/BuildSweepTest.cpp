/* The walk of a changer's directories and the build around it, with whatever can fail around them
   failing. */

#include "WholeDaemon.h"

#include "trayprobed/ChangerFSCacheThread.h"

#include <string>

using testing::ElementsAre;

namespace {

class BuildSweep : public WholeDaemon {
protected:
    BuildSweep() {
        MakeFileSystem();
        tree_.MakeDirectory("disc/other");
        RegisterFileSystem();
        AddChanger(kSweptChanger);
    }

    void ExpectWalkIsDoneOrTold();
    static void Start() {
        EXPECT_EQ(TakeChain(StartChangerFSCache(kSweptChanger)), Chain());
    }
};

// A directory whose status cannot be told is passed over, as the walk has it.
bool MayBeSilent(const Fault& fault) {
    return fault.function == "fstatat";
}

void BuildSweep::ExpectWalkIsDoneOrTold() {
    VErrLink* err = nullptr;
    Report(SweepFaults(
        [&] { err = CacheFSDirectory(kSweptChanger, tree_.Root().c_str(), 1, nullptr); },
        [&](const Fault& fault) {
            const bool done = err == nullptr && !log_.HasLines();
            VErrLogAndCatch(&err);
            ExpectSound(fault, done);
            EXPECT_EQ(done, !fault.happened || MayBeSilent(fault)) << fault.what;
        }));
}

TEST_F(BuildSweep, AWalkIsDoneOrTold) {
    ExpectWalkIsDoneOrTold();
}

// So deep that it does not keep all open.
TEST_F(BuildSweep, ADeepWalkIsDoneOrTold) {
    std::string path = "disc";
    for (int level = 0; level < 65; ++level) {
        tree_.MakeDirectory(path + "/b");
        tree_.MakeDirectory(path += "/a");
    }
    ExpectWalkIsDoneOrTold();
}

// Memory that is out when the flag is to be cleared leaves it set; the changer is then built again
// once it comes anew.
TEST_F(BuildSweep, ABuildIsDoneOrToldAndTheNextOneIsDone) {
    Start();
    Report(SweepFaults([] { HeldThreads::RunNext(); },
                       [&](const Fault& fault) {
                           const auto requests = server_.TakeRequests();
                           const bool closed = !IsBuilding(kSweptChanger) && !requests.empty() &&
                                               requests.back() == "A1000: request identification";
                           ExpectSound(fault, closed);
                           EXPECT_TRUE(!IsBuilding(kSweptChanger) || fault.function.empty())
                               << fault.what;
                           EXPECT_EQ(RemoveChangerFromList(kSweptChanger), nullptr);
                           AddChanger(kSweptChanger);
                           Start();
                       }));
    HeldThreads::RunNext();
    EXPECT_THAT(server_.TakeRequests(),
                ElementsAre("A1000: request identification", "A1000: set client status",
                            "A1000: set client status", "A1000: set client status",
                            "A1000: set client status", "A1000: request identification"));
    EXPECT_FALSE(IsBuilding(kSweptChanger));
}

} // namespace
