#include "Volumes.h"

#include "EventCounts.h"
#include "RandomValues.h"
#include "support/PropertyLists.h"
#include "testbed/Failure.h"

#include <sys/mount.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

std::string TreePath(int changer) {
    return "/tmp/trees/" + std::to_string(changer);
}

std::string DiscPath(int changer, UInt16 slot) {
    return TreePath(changer) + "/disc" + std::to_string(slot);
}

std::string RemovedDiscPath(int changer, UInt16 slot) {
    return "/tmp/removed/" + std::to_string(changer) + "-" + std::to_string(slot);
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
    Write(TreePath(changer) + "/.changer_info.plist", XmlOf(Dictionary({{"Changer GUID", guid}})));
}

} // namespace

Volumes::Volumes() {
    fs::create_directories("/tmp/removed");
    for (int changer = 0; changer < kChangers; ++changer) {
        MakeTree(changer);
        fs::create_directories(PathOf(GuidOf(changer)));
        ToggleMount(changer);
    }
}

std::string Volumes::PathOf(UInt64 changerGUID) {
    return "/tmp/volumes/" + std::to_string(changerGUID - GuidOf(0));
}

// Each bind mount is a separate volume, complete when it is mounted.
void Volumes::ToggleMount(int changer) {
    const std::string path = PathOf(GuidOf(changer));
    bool& isMounted = isMounted_[changer];
    if (isMounted) {
        testbed::Require(umount2(path.c_str(), MNT_DETACH) == 0, "cannot unmount " + path);
        event_counts::Count("volumes unmounted");
    } else {
        testbed::Require(
            mount(TreePath(changer).c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0,
            "cannot mount " + path);
        event_counts::Count("volumes mounted");
    }
    isMounted = !isMounted;
}

void Volumes::ToggleDisc(int changer, UInt16 slot) {
    bool& isRemoved = isRemoved_[changer][slot];
    const std::string inside = DiscPath(changer, slot);
    const std::string outside = RemovedDiscPath(changer, slot);
    fs::rename(isRemoved ? outside : inside, isRemoved ? inside : outside);
    event_counts::Count(isRemoved ? EventKind("discs put back") : EventKind("discs removed"));
    isRemoved = !isRemoved;
}

void Volumes::Disturb() {
    const int changer = random_values::Below(kChangers);
    if (random_values::OneIn(3))
        ToggleMount(changer);
    else
        ToggleDisc(changer, static_cast<UInt16>(random_values::Below(kSlots)));
}

void Volumes::Restore() {
    for (int changer = 0; changer < kChangers; ++changer) {
        if (!isMounted_[changer])
            ToggleMount(changer);
        for (UInt16 slot = 0; slot < kSlots; ++slot)
            if (isRemoved_[changer][slot])
                ToggleDisc(changer, slot);
    }
}
