#ifndef TESTS_SYSTEM_VOLUMETEST_H
#define TESTS_SYSTEM_VOLUMETEST_H

/* What the tests of volumes share. The server's changer has no file system of its own: what is
   listed in a build of that changer is a volume of the test's. */

#include "SystemTest.h"

#include <cstdint>
#include <filesystem>
#include <string>

/* Volumes that come and go while the daemon runs. They are folders that are bound to their place
   once they are complete, since a volume is looked at when it appears, and only then. */
class VolumeTest : public SystemTest {
public:
    static void WriteInfoFile(const std::filesystem::path& file, const std::string& content);
    static std::string PropertyList(const std::string& content);

    // Creates a folder with the content of a changer's file system and of `discs` discs, "disc0"...
    static void MakeChangerFolder(const std::filesystem::path& folder, int discs,
                                  std::uint64_t changer = 0x5000C500ABCD00A1);

    // Binds a folder, and waits until the daemon has read its info file so often: twice if it is a
    // changer's, once if it is not.
    static void Bind(const std::filesystem::path& folder, const std::filesystem::path& place,
                     int reads);

    // Waits until the daemon has seen all that was mounted and unmounted before.
    static void AwaitMountsSeen();

protected:
    void SetUp() override;

    void ExpectBuildOf(int discs);

    // A build with a file system to walk would report its progress before its closing request.
    void ExpectNothingToBuild();
};

#endif
