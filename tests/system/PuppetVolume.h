#ifndef TESTS_SYSTEM_PUPPETVOLUME_H
#define TESTS_SYSTEM_PUPPETVOLUME_H

#include "testbed/Descriptor.h"
#include "testbed/Process.h"

#include <sys/types.h>

#include <string>
#include <vector>

/* The file system of changer 5000C500ABCD00A1 with one disc, whose folders do to whoever lists them
   what their names say (puppets/PuppetVolume.cpp), served by a process of its own. */
class PuppetVolume {
public:
    enum class Start { Awake, Asleep, StopsAtInfo, StopsAtSecondInfo };
    // After which it is mounted, and has stopped if it starts asleep. The last two stop when the
    // daemon comes to read the changer's info file for the first, or the second, time.
    PuppetVolume(testbed::OutputLog& outputLog, const std::string& place,
                 const std::vector<std::string>& folders, Start start = Start::Awake);
    // Unmounts it if nobody did.
    ~PuppetVolume();

    // Waits until the file with this path in the volume is opened once more.
    void AwaitRead(const std::string& path);
    // Waits until it has stopped because somebody listed a folder that lets it.
    void AwaitStop() {
        process_.AwaitStop();
    }
    void Continue() {
        process_.Continue();
    }
    void Kill();
    // Whoever is inside just now does not keep it from going.
    void Unmount();

private:
    static testbed::Command CommandFor(const std::string& place,
                                       const std::vector<std::string>& folders, Start start);
    static const char* OptionFor(Start start);

    testbed::OutputLog& outputLog_;
    const std::string place_;
    testbed::Process process_;
};

/* A volume whose server never answers as long as this lives. Whoever waits for it then gets an
   error. */
class SilentVolume {
public:
    explicit SilentVolume(const std::string& place) : SilentVolume(place, kForAllUsers) {}

    // One that the system lets nobody but its owner into, as those of ordinary users are.
    static SilentVolume OfUser(uid_t owner, const std::string& place);

private:
    static constexpr const char* kForAllUsers = "user_id=0,group_id=0,allow_other";
    SilentVolume(const std::string& place, const std::string& options);

    testbed::Descriptor device_;
};

#endif
