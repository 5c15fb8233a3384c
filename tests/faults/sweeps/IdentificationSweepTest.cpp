/* Fault sweep of one identification: the whole thread function. */

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

    // As the notification callback does.
    static void Start() {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        EXPECT_EQ(TakeChain(StartMediaId(kSweptChanger, kSweptSlot, 1)), Chain());
        UnlockMediaIdState();
    }
    // Clears the list of slots in progress, from which a failed identification may not remove its
    // own.
    void ReAddChanger() const {
        EXPECT_EQ(TakeChain(RemoveChangerFromList(kSweptChanger)), Chain());
        AddChanger(kSweptChanger);
    }
};

TEST_F(IdentificationSweep, IdentificationSucceedsOrLogsAnErrorAndTheNextSucceeds) {
    const std::vector<std::string> kAll = {
        "5000C500ABCD1000: request identification 1000", "5000C500ABCD1000: mount disc 1000",
        "5000C500ABCD1000: eject disc 1000", "5000C500ABCD1000: request identification 1000"};
    Start();
    Report(SweepFaults([] { DeferredThreads::RunNext(); },
                       [&](const Fault& fault) {
                           const bool done = server_.TakeRequests() == kAll &&
                                             !IsInProgress(kSweptChanger, kSweptSlot);
                           ExpectSound(fault, done);
                           ReAddChanger();
                           Start();
                       }));
    DeferredThreads::RunNext();
    EXPECT_EQ(server_.TakeRequests(), kAll);
    EXPECT_FALSE(IsInProgress(kSweptChanger, kSweptSlot));
}

} // namespace
