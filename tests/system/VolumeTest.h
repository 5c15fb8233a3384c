#ifndef TESTS_SYSTEM_VOLUMETEST_H
#define TESTS_SYSTEM_VOLUMETEST_H

#include "SystemTest.h"

#include <cstdint>
#include <filesystem>
#include <string>

/* A run in which volumes are mounted and unmounted. The server's changer has no file system of its
   own: a build of the changer lists the test's volume. A volume is a folder that is complete before
   it is bound to its place, as the daemon reads it when it appears. */
class VolumeTest : public SystemTest {
public:
    // Writes a file, and creates the folders above it.
    static void WriteInfoFile(const std::filesystem::path& file, const std::string& content);
    // Returns a property list of one dictionary, whose elements are `content`.
    static std::string PropertyList(const std::string& content);

    // Creates a folder with the content of a changer's file system and of `discs` discs, "disc0"...
    static void MakeChangerFolder(const std::filesystem::path& folder, int discs,
                                  std::uint64_t changer = 0x5000C500ABCD00A1);

    // Binds a folder, and waits until the daemon has read its info file `reads` times: twice for a
    // changer's file system, once for another. 0: does not wait.
    static void Bind(const std::filesystem::path& folder, const std::filesystem::path& place,
                     int reads);
    // MakeChangerFolder() and Bind(), until the volume is registered.
    static void MountChanger(int discs, const std::filesystem::path& folder = "/tmp/a",
                             const std::filesystem::path& place = "/tmp/place");

    // Waits until the daemon has handled all earlier mounts and unmounts.
    static void AwaitMountsSeen();

protected:
    // Starts the server and the daemon.
    void SetUp() override;

    // Runs a build, and checks that it walked so many discs.
    void ExpectBuildOf(int discs);

    // Runs two builds, and checks that they report no progress: there is no file system to walk.
    void ExpectNothingToBuild();
};

#endif
