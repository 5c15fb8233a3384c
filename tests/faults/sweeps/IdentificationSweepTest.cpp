/* One identification, the whole body of its thread, with whatever can fail around it failing. */

#include "WholeDaemon.h"

#include "trayprobed/MediaIdThread.h"

#include <string>
#include <vector>

namespace {

class IdentificationSweep : public WholeDaemon {
protected:
    IdentificationSweep() {
        MakeFileSystem();
        RegisterFileSystem();
        AddChanger(kSweptChanger);
        const auto medium = Dictionary({{"Media Identify Time", 0}});
        const auto media = Array();
        while (CFArrayGetCount(media) <= kSweptSlot)
            CFArrayAppendValue(media, medium.Get());
        SaveInfoList(Array({Dictionary(
            {{"GUID", static_cast<SInt64>(kSweptChanger)}, {"Changer Media Info", media}})}));
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
};

TEST_F(IdentificationSweep, IsDoneOrToldAndTheNextOneIsDone) {
    const std::vector<std::string> kAll = {
        "5000C500ABCD1000: request identification 1000", "5000C500ABCD1000: mount disc 1000",
        "5000C500ABCD1000: eject disc 1000", "5000C500ABCD1000: request identification 1000"};
    Start();
    Report(SweepFaults([] { DeferredThreads::RunNext(); },
                       [&](const Fault& fault) {
                           const bool done = server_.TakeRequests() == kAll &&
                                             !IsInProgress(kSweptChanger, kSweptSlot);
                           ExpectSound(fault, done);
                           PutInReach();
                           Start();
                       }));
    DeferredThreads::RunNext();
    EXPECT_EQ(server_.TakeRequests(), kAll);
    EXPECT_FALSE(IsInProgress(kSweptChanger, kSweptSlot));
}

} // namespace
