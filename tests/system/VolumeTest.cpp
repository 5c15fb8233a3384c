#include "VolumeTest.h"

#include "testbed/Failure.h"
#include "testbed/ReadWatch.h"
#include "tests/unit/support/BinaryLists.h"

#include <gmock/gmock.h>

#include <sys/mount.h>
#include <sys/stat.h>

#include <cstddef>
#include <fstream>
#include <vector>

using testbed::Event;
using testing::Contains;
using testing::Each;

namespace fs = std::filesystem;

namespace {

constexpr const char* kNotAnInfoFile = "no property list";

} // namespace

void VolumeTest::SetUp() {
    run_.StartServer();
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    Tell("start");
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

void VolumeTest::AwaitMountsSeen() {
    static int number = 0;
    const fs::path folder = "/tmp/mark" + std::to_string(number++);
    WriteInfoFile(folder / ".changer_info.plist", kNotAnInfoFile);
    Bind(folder, folder.string() + "-place", 1);
}

void VolumeTest::ExpectBuildOf(int discs) {
    Tell("identify changer=5000C500ABCD00A1");
    AwaitEndOfBuild();
    const std::string steps = std::to_string(discs);
    EXPECT_THAT(RequestsSoFar(), Contains("status " + steps + "/" + steps));
}

void VolumeTest::ExpectNothingToBuild() {
    const std::size_t before = RequestsSoFar().size();
    int last = 0;
    for (int build = 0; build < 2; ++build) {
        Tell("identify changer=5000C500ABCD00A1");
        last = AwaitWithdrawalForChanger(last).number;
    }
    std::vector<std::string> requests = RequestsSoFar();
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(requests, Each("withdraw changer"));
}

namespace {

TEST_F(VolumeTest, FileSystemIsRegisteredWhenItIsMounted) {
    ExpectNothingToBuild();
    MakeChangerFolder("/tmp/a", 2);
    Bind("/tmp/a", "/tmp/place", 2);
    ExpectBuildOf(2);
}

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

TEST_F(VolumeTest, FileSystemIsUnregisteredWhenItIsUnmounted) {
    MakeChangerFolder("/tmp/a", 2);
    Bind("/tmp/a", "/tmp/place", 2);
    ASSERT_EQ(umount("/tmp/place"), 0);
    AwaitMountsSeen();
    ExpectNothingToBuild();
    Bind("/tmp/a", "/tmp/another place", 2);
    ExpectBuildOf(2);
}

TEST_F(VolumeTest, SecondFileSystemOfAChangerReplacesTheFirst) {
    MakeChangerFolder("/tmp/a", 1);
    MakeChangerFolder("/tmp/b", 3);
    Bind("/tmp/a", "/tmp/place-a", 2);
    Bind("/tmp/b", "/tmp/place-b", 2);
    ASSERT_EQ(umount("/tmp/place-a"), 0);
    AwaitMountsSeen();
    ExpectBuildOf(3);
}

TEST_F(VolumeTest, VolumeMountedTwiceStaysRegisteredUntilItsLastUnmount) {
    MakeChangerFolder("/tmp/a", 2);
    Bind("/tmp/a", "/tmp/place-1", 2);
    fs::create_directory("/tmp/place-2");
    ASSERT_EQ(mount("/tmp/a", "/tmp/place-2", nullptr, MS_BIND, nullptr), 0);
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ASSERT_EQ(umount("/tmp/place-1"), 0);
    infoFile.AwaitReads(2); // taken up again, at its other place
    ExpectBuildOf(2);
    ASSERT_EQ(umount("/tmp/place-2"), 0);
    AwaitMountsSeen();
    ExpectNothingToBuild();
}

TEST_F(VolumeTest, MovedVolumeIsRegisteredAtItsNewMountPoint) {
    MakeChangerFolder("/tmp/a", 2);
    Bind("/tmp/a", "/tmp/place-1", 2);
    fs::create_directory("/tmp/place-2");
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ASSERT_EQ(mount("/tmp/place-1", "/tmp/place-2", nullptr, MS_MOVE, nullptr), 0);
    infoFile.AwaitReads(2);
    ExpectBuildOf(2);
}

TEST_F(VolumeTest, MountPointWithSpecialCharactersIsRegistered) {
    MakeChangerFolder("/tmp/a", 1);
    Bind("/tmp/a", "/tmp/a \"place\"\twith\nblanks\\", 2);
    ExpectBuildOf(1);
}

TEST_F(VolumeTest, MountPointThatIsNotUtf8IsLoggedAndNotRegistered) {
    MakeChangerFolder("/tmp/a", 1);
    Bind("/tmp/a", "/tmp/\xff", 2);
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

// Neither may keep the main thread waiting.
TEST_F(VolumeTest, PipeOrFolderInPlaceOfTheInfoFileDoesNotBlockTheDaemon) {
    fs::create_directories("/tmp/pipe");
    ASSERT_EQ(mkfifo("/tmp/pipe/.changer_info.plist", 0600), 0);
    fs::create_directories("/tmp/folder/.changer_info.plist");
    for (const fs::path folder : {"/tmp/pipe", "/tmp/folder"}) {
        fs::create_directories(folder.string() + "-place");
        ASSERT_EQ(
            mount(folder.c_str(), (folder.string() + "-place").c_str(), nullptr, MS_BIND, nullptr),
            0);
    }
    AwaitMountsSeen();
    MakeChangerFolder("/tmp/a", 1);
    Bind("/tmp/a", "/tmp/place", 2);
    ExpectBuildOf(1);
}

// Listing what is mounted is followed by watching it: nothing may fall in between.
TEST_F(VolumeTest, FileSystemOfTheServerIsRegisteredWhileTheDaemonRuns) {
    Tell("mount changer=5000C500ABCD00A1 mount=/tmp/carousel");
    Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
    while (Server().AllSoFar("listed").empty())
        AwaitServedRequest(0);
}

} // namespace
