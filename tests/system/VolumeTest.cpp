#include "VolumeTest.h"

#include "testbed/Failure.h"
#include "testbed/ReadWatch.h"
#include "tests/unit/support/BinaryLists.h"
#include "tests/unit/support/Matchers.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cstddef>
#include <fstream>
#include <vector>

namespace fs = std::filesystem;

void VolumeTest::SetUp() {
    run_.StartServer();
    Do("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Do("start");
    run_.StartDaemon();
    AwaitChangerAdded();
    run_.TakeBaseline();
}

void VolumeTest::WriteInfoFile(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << content;
}

std::string VolumeTest::PropertyList(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + content +
           "</dict></plist>\n";
}

void VolumeTest::MakeChangerFolder(const fs::path& folder, int discs, std::uint64_t changer) {
    const std::string guid =
        "<key>Changer GUID</key><integer>" + std::to_string(changer) + "</integer>";
    WriteInfoFile(folder / ".changer_info.plist", PropertyList(guid));
    for (int slot = 0; slot < discs; ++slot) {
        const std::string number = std::to_string(slot);
        WriteInfoFile(folder / ("disc" + number) / ".media_info.plist",
                      PropertyList(guid + "<key>Storage Element Index</key><integer>" + number +
                                   "</integer><key>Partition Id</key><string>1</string>"
                                   "<key>Writable</key><false/>"));
    }
}

void VolumeTest::Bind(const fs::path& folder, const fs::path& place, int reads) {
    testbed::ReadWatch infoFile((folder / ".changer_info.plist").string());
    fs::create_directories(place);
    testbed::Require(mount(folder.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind");
    infoFile.AwaitReads(reads);
}

void VolumeTest::MountChanger(int discs, const fs::path& folder, const fs::path& place) {
    MakeChangerFolder(folder, discs);
    Bind(folder, place, 2);
}

void VolumeTest::AwaitMountsSeen() {
    static int number = 0;
    const fs::path folder = "/tmp/mark" + std::to_string(number++);
    WriteInfoFile(folder / ".changer_info.plist", "no property list");
    Bind(folder, folder.string() + "-place", 1);
}

void VolumeTest::ExpectBuildOf(int discs) {
    RunBuild();
    const std::string steps = std::to_string(discs);
    EXPECT_THAT(RequestsSoFar(), Contains("status " + steps + "/" + steps));
}

void VolumeTest::ExpectNothingToBuild() {
    const std::size_t before = RequestsSoFar().size();
    int last = 0;
    for (int build = 0; build < 2; ++build) {
        RequestBuild();
        last = AwaitWithdrawalForChanger(last).number;
    }
    std::vector<std::string> requests = RequestsSoFar();
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(requests, Each("withdraw changer"));
}

namespace {

TEST_F(VolumeTest, FileSystemWithBinaryInfoFilesIsBuilt) {
    const auto guid = std::pair("Changer GUID", BinaryInteger(0x5000C500ABCD00A1U));
    WriteInfoFile("/tmp/binary/.changer_info.plist", BinaryDictionary({guid}));
    for (const unsigned slot : {0U, 1U}) {
        const fs::path disc = "/tmp/binary/disc" + std::to_string(slot);
        WriteInfoFile(disc / ".media_info.plist",
                      BinaryDictionary({guid,
                                        {"Storage Element Index", BinaryInteger(slot)},
                                        {"Partition Id", BinaryText("1")},
                                        {"Writable", BinaryFlag(false)}}));
    }
    Bind("/tmp/binary", "/tmp/place", 2);
    ExpectBuildOf(2);
}

TEST_F(VolumeTest, FileSystemIsRegisteredFromItsMountToItsUnmount) {
    ExpectNothingToBuild();
    MountChanger(2);
    ExpectBuildOf(2);
    ASSERT_EQ(umount("/tmp/place"), 0);
    AwaitMountsSeen();
    ExpectNothingToBuild();
    Bind("/tmp/a", "/tmp/another place", 2);
    ExpectBuildOf(2);
}

TEST_F(VolumeTest, SecondFileSystemOfAChangerReplacesTheFirst) {
    MountChanger(1, "/tmp/a", "/tmp/place-a");
    MountChanger(3, "/tmp/b", "/tmp/place-b");
    ASSERT_EQ(umount("/tmp/place-a"), 0);
    AwaitMountsSeen();
    ExpectBuildOf(3);
}

TEST_F(VolumeTest, VolumeMountedTwiceStaysRegisteredUntilItsLastUnmount) {
    MountChanger(2, "/tmp/a", "/tmp/place-1");
    Bind("/tmp/a", "/tmp/place-2", 0);
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ASSERT_EQ(umount("/tmp/place-1"), 0);
    infoFile.AwaitReads(2); // registered again, at its other place
    ExpectBuildOf(2);
    ASSERT_EQ(umount("/tmp/place-2"), 0);
    AwaitMountsSeen();
    ExpectNothingToBuild();
}

TEST_F(VolumeTest, MovedVolumeIsRegisteredAtItsNewMountPoint) {
    if (testbed::g_testedDaemon.isConfined)
        GTEST_SKIP() << "the kernel does not move a mount that is below a shared one";
    MountChanger(2, "/tmp/a", "/tmp/place-1");
    fs::create_directory("/tmp/place-2");
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ASSERT_EQ(mount("/tmp/place-1", "/tmp/place-2", nullptr, MS_MOVE, nullptr), 0);
    infoFile.AwaitReads(2);
    ExpectBuildOf(2);
}

TEST_F(VolumeTest, MountPointWithSpecialCharactersIsRegistered) {
    MountChanger(1, "/tmp/a", "/tmp/a \"place\"\twith\nblanks\\");
    ExpectBuildOf(1);
}

TEST_F(VolumeTest, MountPointThatIsNotUtf8IsLoggedAndNotRegistered) {
    MountChanger(1, "/tmp/a", "/tmp/\xff");
    AwaitLog(
        {Link("CFHelpers", "CFHDictionarySetStringValue", "fail alloc str"),
         Link("ChangerFSCacheState", "AddChangerFSToList", "fail set changer mount path value"),
         Link("ChangerFSCacheManager", "DiskArbDiskAppearedCallback", "fail AddChangerFSToList")});
    ExpectNothingToBuild();
}

TEST_F(VolumeTest, VolumesWithInvalidInfoFilesAreIgnored) {
    WriteInfoFile("/tmp/malformed/.changer_info.plist", "<plist");
    WriteInfoFile("/tmp/empty/.changer_info.plist", "");
    WriteInfoFile("/tmp/string/.changer_info.plist",
                  PropertyList("<key>Changer GUID</key><string>161</string>"));
    for (const fs::path folder : {"/tmp/malformed", "/tmp/empty", "/tmp/string"})
        Bind(folder, folder.string() + "-place", 1);
    ExpectNothingToBuild();
}

TEST_F(VolumeTest, PipeOrFolderInPlaceOfTheInfoFileDoesNotBlockTheDaemon) {
    fs::create_directories("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe/.changer_info.plist", 0600), 0);
    fs::create_directories("/tmp/folder/.changer_info.plist");
    for (const fs::path folder : {"/tmp/pipe", "/tmp/folder"})
        Bind(folder, folder.string() + "-place", 0);
    AwaitMountsSeen();
    MountChanger(1);
    ExpectBuildOf(1);
}

// The daemon lists the mount table and then watches it: no mount between the two may be missed.
TEST_F(VolumeTest, FileSystemOfTheServerIsRegisteredWhileTheDaemonRuns) {
    Do("mount changer=5000C500ABCD00A1 mount=/tmp/carousel");
    PutDisc(0, "identified=yes");
    while (Server().AllSoFar("listed").empty())
        AwaitServedRequest(0);
}

} // namespace
