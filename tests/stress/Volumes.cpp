#include "Volumes.h"

#include "Chance.h"
#include "Tally.h"
#include "testbed/Failure.h"

#include "support/PropertyLists.h"

#include <filesystem>
#include <fstream>
#include <sys/mount.h>

namespace {

namespace fs = std::filesystem;

std::string TreeOf(int changer) {
    return "/tmp/trees/" + std::to_string(changer);
}

std::string DiscPath(int changer, UInt16 slot) {
    return TreeOf(changer) + "/disc" + std::to_string(slot);
}

std::string PathOfTaken(int changer, UInt16 slot) {
    return "/tmp/taken/" + std::to_string(changer) + "-" + std::to_string(slot);
}

void Write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    testbed::Require(file.good(), "cannot write " + path);
}

void MakeTree(int changer) {
    const UInt64 guid = GuidOf(changer);
    for (UInt16 slot = 0; slot < kSlots; ++slot) {
        const std::string disc = DiscPath(changer, slot);
        for (const char* folder : {"/letters/1999", "/letters/2000", "/maps"})
            fs::create_directories(disc + folder);
        Write(disc + "/.media_info.plist", XmlOf(Dictionary({{"Changer GUID", guid},
                                                             {"Storage Element Index", slot},
                                                             {"Partition Id", "p"},
                                                             {"Writable", false}})));
    }
    Write(TreeOf(changer) + "/.changer_info.plist", XmlOf(Dictionary({{"Changer GUID", guid}})));
}

} // namespace

Volumes::Volumes() {
    fs::create_directories("/tmp/taken");
    for (int changer = 0; changer < kChangers; ++changer) {
        MakeTree(changer);
        fs::create_directories(PathOf(GuidOf(changer)));
        Toggle(changer);
    }
}

std::string Volumes::PathOf(UInt64 changerGUID) {
    return "/tmp/volumes/" + std::to_string(changerGUID - GuidOf(0));
}

// Each bound tree is a volume of its own, whole from the moment it is mounted.
void Volumes::Toggle(int changer) {
    const std::string path = PathOf(GuidOf(changer));
    bool& isMounted = isMounted_[changer];
    if (isMounted) {
        testbed::Require(umount2(path.c_str(), MNT_DETACH) == 0, "cannot unmount " + path);
        tally::Count(Kind::kVolumeUnmounted);
    } else {
        testbed::Require(mount(TreeOf(changer).c_str(), path.c_str(), nullptr, MS_BIND, nullptr) ==
                             0,
                         "cannot mount " + path);
        tally::Count(Kind::kVolumeMounted);
    }
    isMounted = !isMounted;
}

void Volumes::ToggleDisc(int changer, UInt16 slot) {
    bool& isTaken = isTaken_[changer][slot];
    const std::string inside = DiscPath(changer, slot);
    const std::string outside = PathOfTaken(changer, slot);
    fs::rename(isTaken ? outside : inside, isTaken ? inside : outside);
    tally::Count(isTaken ? Kind::kDiscPutBack : Kind::kDiscTaken);
    isTaken = !isTaken;
}

void Volumes::Disturb() {
    const int changer = chance::Below(kChangers);
    if (chance::OneIn(3))
        Toggle(changer);
    else
        ToggleDisc(changer, static_cast<UInt16>(chance::Below(kSlots)));
}

void Volumes::Restore() {
    for (int changer = 0; changer < kChangers; ++changer) {
        if (!isMounted_[changer])
            Toggle(changer);
        for (UInt16 slot = 0; slot < kSlots; ++slot)
            if (isTaken_[changer][slot])
                ToggleDisc(changer, slot);
    }
}
