/* One identification, the whole body of its thread, with whatever can fail around it failing. */

#include "WholeDaemon.h"

#include "trayprobed/MediaIdThread.h"

namespace {

class IdentificationSweep : public WholeDaemon {
protected:
    IdentificationSweep() {
        MakeFileSystem();
        RegisterFileSystem();
        AddChanger(kSweptChanger);
        SaveInfoList(
            Array({Dictionary({{"GUID", static_cast<SInt64>(kSweptChanger)},
                               {"Changer Media Info",
                                Array({medium_, medium_, medium_, medium_, medium_, medium_})}})}));
    }

    // As the notification callback does it.
    static void Start() {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        EXPECT_EQ(TakeChain(StartMediaId(kSweptChanger, kSweptSlot, 1)), Chain());
        UnlockMediaIdState();
    }
    // A slot that its thread had to leave on the list is out of reach until the changer comes anew.
    void PutInReach() const {
        EXPECT_EQ(TakeChain(RemoveChangerFromList(kSweptChanger)), Chain());
        AddChanger(kSweptChanger);
    }

    const Held<CFMutableDictionaryRef> medium_ = Dictionary({{"Media Identify Time", 0}});
};

TEST_F(IdentificationSweep, IsDoneOrToldAndTheNextOneIsDone) {
    const std::vector<std::string> kAll = {"A1: request identification 5", "A1: mount disc 5",
                                           "A1: eject disc 5", "A1: request identification 5"};
    Start();
    Report(SweepFaults([] { HeldThreads::RunNext(); },
                       [&](const Fault& fault) {
                           const bool done = server_.TakeRequests() == kAll &&
                                             !IsInProgress(kSweptChanger, kSweptSlot);
                           ExpectSound(fault, done);
                           PutInReach();
                           Start();
                       }));
    HeldThreads::RunNext();
    EXPECT_EQ(server_.TakeRequests(), kAll);
    EXPECT_FALSE(IsInProgress(kSweptChanger, kSweptSlot));
}

} // namespace
