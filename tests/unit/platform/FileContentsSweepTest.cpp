/* Reading a file while what reading takes is short for a moment. */

#include "FaultSweep.h"
#include "lists/FileContents.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

using namespace std::chrono_literals;

// EIO is the file's own answer, which asking again does not change.
bool IsShortage(const SystemCallFailure& failure) {
    return failure.error != EIO;
}

TEST(FileContentsSweep, AShortageIsWaitedOut) {
    const std::string file = testing::TempDir() + "FileContentsSweepTest";
    const std::string path = file + ".link";
    std::ofstream(file) << "content";
    ASSERT_EQ(symlink(file.c_str(), path.c_str()), 0);
    std::size_t faults = 0;
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        cf::FileContents contents;
        faults += SweepSystemCall(
            failure, [&] { contents = cf::ReadFileWithin(1h, path, 100); },
            [&](const Fault& fault) {
                EXPECT_TRUE(contents.isRead || !IsShortage(failure)) << fault.what;
            });
    }
    EXPECT_GT(faults, 0U);
    std::remove(path.c_str());
    std::remove(file.c_str());
}

TEST(FileContentsSweep, NobodyWaitsWithoutEndForAShortage) {
    const std::string path = testing::TempDir() + "FileContentsSweepTest";
    std::ofstream(path) << "content";
    const SystemCallFault fault({"std::thread", EAGAIN}, 1);
    const cf::FileContents contents = cf::ReadFileWithin(0ms, path, 100);
    EXPECT_FALSE(contents.isOpened);
    EXPECT_TRUE(contents.isShortage);
    std::remove(path.c_str());
}

} // namespace
