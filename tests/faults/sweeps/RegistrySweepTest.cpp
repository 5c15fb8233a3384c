/* Fault sweeps of the registry of file systems: a disk appears, replaces another, disappears. */

#include "WholeDaemon.h"
#include "disks/DiskList.h"
#include "trayprobed/ChangerFSCacheManager.h"
#include "trayprobed/ChangerFSCacheState.h"

#include <cstddef>
#include <string>

namespace {

class RegistrySweep : public WholeDaemon {
protected:
    RegistrySweep() {
        tree_.MakeChangerRoot("old", kSweptChanger);
        tree_.MakeChangerRoot("new", kSweptChanger);
        old_ = MakeDisk("old", "sr0");
        new_ = MakeDisk("new", "sr1");
    }

    cf::Owned<disks::Disk> MakeDisk(const char* directory, const char* name) const {
        return cf::Owned<disks::Disk>::Adopt(
            new disks::Disk({0, 0, "/", tree_.Path(directory), name}, name, 0));
    }
    static void Appear(const cf::Owned<disks::Disk>& disk) {
        DiskArbDiskAppearedCallback(disk.Get(), nullptr);
    }
    static void Disappear(const cf::Owned<disks::Disk>& disk) {
        DiskArbDiskDisappearedCallback(disk.Get(), nullptr);
    }
    // The directory that the changer is registered with, "" if it is not registered.
    std::string Registered() const {
        bool isInList = false;
        char path[1024] = "";
        EXPECT_EQ(IsChangerFSGUIDInList(kSweptChanger, &isInList), nullptr);
        if (!isInList)
            return "";
        EXPECT_EQ(TakeChain(GetChangerFSMountPath(kSweptChanger, path, sizeof path)), Chain());
        return std::string(path).substr(tree_.Root().size() + 1);
    }

    cf::Owned<disks::Disk> old_;
    cf::Owned<disks::Disk> new_;
};

// A root that cannot be read counts as no changer's, so most of these failures are not logged.
TEST_F(RegistrySweep, AppearanceRegistersWhollyOrNotAtAll) {
    Report(SweepFaults([&] { Appear(old_); },
                       [&](const Fault& fault) {
                           const bool entered = Registered() == "old";
                           EXPECT_TRUE(entered || Registered().empty()) << fault.what;
                           ExpectSound(fault, entered || fault.happened);
                           Appear(old_);
                           EXPECT_EQ(Registered(), "old") << fault.what;
                           Disappear(old_);
                       }));
}

TEST_F(RegistrySweep, ReplacementLeavesTheOldOrTheNewEntry) {
    Appear(old_);
    Report(SweepFaults([&] { Appear(new_); },
                       [&](const Fault& fault) {
                           EXPECT_TRUE(Registered() == "new" || Registered() == "old")
                               << fault.what << ": " << Registered();
                           ExpectSound(fault, Registered() == "new" || fault.happened);
                           Appear(new_);
                           EXPECT_EQ(Registered(), "new") << fault.what;
                           Appear(old_);
                       }));
}

TEST_F(RegistrySweep, DisappearanceUnregistersOrLogsAnError) {
    Appear(old_);
    const std::size_t faults = SweepMemory(
        1, [&] { Disappear(old_); },
        [&](const Fault& fault) {
            EXPECT_TRUE(Registered().empty() || Registered() == "old") << fault.what;
            ExpectSound(fault, Registered().empty());
            Disappear(old_);
            EXPECT_EQ(Registered(), "") << fault.what;
            Appear(old_);
        });
    EXPECT_GT(faults, 0U);
}

} // namespace
