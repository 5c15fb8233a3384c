#ifndef TESTS_SYSTEM_PUPPETVOLUME_H
#define TESTS_SYSTEM_PUPPETVOLUME_H

#include "testbed/Descriptor.h"
#include "testbed/Process.h"

#include <sys/types.h>

#include <string>
#include <vector>

/* A mounted file system of changer 5000C500ABCD00A1 with one disc, served by a process of its own
   (puppets/PuppetVolume.cpp). The name of a folder on the disc defines what happens when the folder
   is listed. Functions that wait throw testbed::Failure after testbed::kTimeOut. */
class PuppetVolume {
public:
    // Whether the process stops itself: before its first answer, or when the changer's info file is
    // opened for the first or the second time.
    enum class Start { Awake, Asleep, StopsAtInfo, StopsAtSecondInfo };
    // Waits until the volume is mounted, and until the process has stopped if it starts asleep.
    PuppetVolume(testbed::OutputLog& outputLog, const std::string& place,
                 const std::vector<std::string>& folders, Start start = Start::Awake);
    // Unmounts the volume, if it is mounted, and kills the process.
    ~PuppetVolume();

    // Waits until the changer's info file is opened `count` times more. The daemon opens the file
    // twice when it registers the volume.
    void AwaitInfoReads(int count = 2);
    // Waits until the process has stopped itself.
    void AwaitStop() {
        process_.AwaitStop();
    }
    // Sends SIGCONT.
    void Continue() {
        process_.Continue();
    }
    // Kills and reaps the process.
    void Kill();
    // Detaches the volume from its place, even if it is in use.
    void Unmount();

private:
    testbed::OutputLog& outputLog_;
    const std::string place_;
    testbed::Process process_;
};

/* A volume whose server never answers while this object lives. Its destruction ends each pending
   system call with an error. */
class SilentVolume {
public:
    explicit SilentVolume(const std::string& place) : SilentVolume(place, kForAllUsers) {}

    // A volume of an ordinary user: the kernel refuses access to all other users.
    static SilentVolume OfUser(uid_t owner, const std::string& place);

private:
    static constexpr const char* kForAllUsers = "user_id=0,group_id=0,allow_other";
    SilentVolume(const std::string& place, const std::string& options);

    testbed::Descriptor device_;
};

#endif
